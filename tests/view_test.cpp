// lumet-view in a browser: headless Chromium, driven by WebDriver, in front of the bench.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "client/bus.h"
#include "client/console.h"
#include "common/temporary_directory.h"
#include "tests/web_driver.h"

namespace {

const std::string kLive = "document.getElementById('connection').dataset.state === 'live'";

class View : public testing::Test {
 protected:
  std::unique_ptr<ChildProcess> StartHead(const std::string& rate = "100") {
    auto started = std::make_unique<ChildProcess>(std::vector<std::string>{
        LUMET_BENCH, "--root", directory.Path() + "/head", "--console-port",
        std::to_string(console), "--broker", "[::1]:" + std::to_string(bus), "--rate", rate});
    started->WaitForOutput("MQTT Connected");
    return started;
  }
  // Starts it, and returns the address of the page.
  std::string StartView(const std::vector<std::string>& options = {}) {
    std::vector<std::string> words = options;
    words.insert(words.begin(),
                 {LUMET_VIEW, "--head", "[::1]:" + std::to_string(console), "--broker",
                  "[::1]:" + std::to_string(bus), "--port", std::to_string(web)});
    view.reset();
    view = std::make_unique<ChildProcess>(words);
    const std::string& said = view->WaitForOutput(" in a browser");
    const std::size_t start = said.find("http://");
    return said.substr(start, said.find(" in a browser") - start);
  }
  std::string Downloaded(const std::string& ending) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (std::chrono::steady_clock::now() < end) {
      for (const auto& each : std::filesystem::directory_iterator(directory.Path()))
        if (each.path().extension() == ending) return ReadFile(each.path());
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("nothing was saved as " + ending);
  }

  const TemporaryDirectory directory;
  const FreePort console;
  const FreePort bus;
  const FreePort web;
  const Broker broker{directory.Path() + "/broker", bus};
  std::unique_ptr<ChildProcess> view;
};

TEST_F(View, TakesAFlashFromButtonToCurve) {
  const auto head = StartHead();
  BusClient events({.port = bus, .topics = {bus_topic::kFlash}});
  Browser page(directory.Path());
  page.Open(StartView());
  page.Await(kLive);
  page.Await("document.getElementById('charts').dataset.rows > 120");
  page.Click("flash-mpf");
  const BusMessage message = events.WaitFor(bus_topic::kFlash);
  const EventRecord record = message.Event();
  page.Await("document.querySelector('#event-table tbody tr')");
  page.Press("2");  // the events
  page.Await("document.querySelectorAll('#fit-chart canvas').length > 0");
  EXPECT_TRUE(
      page.Text("event-title").starts_with("Multiphase flash " + std::to_string(record.id)));
  const std::string numbers = page.Text("last-numbers");
  ASSERT_TRUE(numbers.starts_with("Fv/Fm 0.")) << numbers;
  EXPECT_NEAR(std::stod(numbers.substr(6)), 0.80, 0.02);  // of the bench's leaf
  char printed[32];
  std::snprintf(printed, sizeof printed, "%.1f", record["FMAX"]);
  EXPECT_NE(page.Text("event-results").find(std::string("FMAX") + printed + "counts"),
            std::string::npos)
      << page.Text("event-results");

  page.Click("export-json");
  EXPECT_EQ(Downloaded(".json"), message.payload);
  page.Click("export-csv");
  std::istringstream csv(Downloaded(".csv"));
  std::vector<std::string> rows;
  for (std::string line; std::getline(csv, line);)
    if (!line.starts_with('#')) rows.push_back(line);
  ASSERT_EQ(rows.size(), record.curve.seconds.size() + 1);
  EXPECT_EQ(rows.front(),
            "SECS (s),LUMET (counts),DC (counts),PFD (µmol/m²/s),REDMODAVG "
            "(µmol/m²/s),CODE");
  page.Click("export-png");
  EXPECT_TRUE(Downloaded(".png").starts_with("\x89PNG"));

  page.Click("take-reference");
  ConsoleClient(static_cast<int>(console)).Set("cfg/lightsource/control", "setpoint");
  page.Press("1");
  page.Await("Number(document.getElementById('now-pfd').textContent) > 190");
  page.Click("flash-rect");
  page.Await("document.querySelectorAll('#event-table tbody tr').length === 2");
  page.Await("document.getElementById('last-numbers').textContent.includes('NPQ')");
  EXPECT_TRUE(page.Text("last-numbers").starts_with("ΦPSII 0."));
  page.Picture("view-live.png", 1280, false);
  page.Picture("view-phone-dark.png", 390, true);
  page.Press("2");
  page.Run("document.querySelectorAll('#event-table input')[1].click()");
  page.Await("document.querySelectorAll('#event-chart .legend span').length === 4");
  page.Picture("view-events-dark.png", 1280, true);
  page.Run("document.querySelectorAll('#event-table button')[1].click()");
  page.Picture("view-multiphase.png", 1280, false);
  EXPECT_EQ(page.Complaints(), "");
}

TEST_F(View, ShowsTracesAndTheStateOfTheHead) {
  const auto head = StartHead();
  Browser page(directory.Path());
  page.Open(StartView());
  page.Await("document.querySelectorAll('#charts canvas').length === 10");
  page.Await("document.getElementById('status').textContent.includes('28.5 °C')");
  const std::string status = page.Text("status");
  for (const char* part : {"DIAGnothing to report", "Fanauto", "Consolenobody", "TAVO TVF-XXXX"})
    EXPECT_NE(status.find(part), std::string::npos) << part << " is not in " << status;
  ConsoleClient desk(static_cast<int>(console));
  desk.Command("Console desk");
  page.Await("document.getElementById('status').textContent.includes('Consoledesk')");
  page.Await("document.getElementById('status').textContent.includes('a client is the console')");
  // Values under the cursor; held and let go by keys.
  page.Run(
      "const place = document.querySelector('#trace-f canvas:last-of-type');"
      "const {left, top, width, height} = place.getBoundingClientRect();"
      "place.dispatchEvent(new MouseEvent('mousemove', {bubbles: true, clientX: left + width"
      " - 60, clientY: top + height / 2}));");
  page.Await(
      "/F \\d+.*PFD 0\\.\\d+ µmol.*far red/.test(document.getElementById('cursor').textContent)");
  page.Press(" ");
  page.Await("document.getElementById('pause').textContent === 'Go on'");
  page.Press("+");
  page.Press("0");
  page.Await("document.getElementById('pause').textContent === 'Pause'");
  // What was before the page was opened is there too.
  page.Open(page.Run("return location.href").asString());
  page.Await("document.getElementById('charts').dataset.rows > 0");
  page.Run("document.querySelector('#chooser input').click()");
  page.Await("document.querySelectorAll('#charts canvas').length === 8");
  EXPECT_EQ(page.Complaints(), "");
}

TEST_F(View, SetsWhatIsAskedAndShowsWhatIsRefused) {
  const auto head = StartHead();
  ConsoleClient other(static_cast<int>(console));
  Browser page(directory.Path());
  page.Open(StartView());
  const std::string light = "[data-path=\"cfg/lightsource/";
  page.Await("document.querySelector('" + light + "control\"]')");
  page.Enter(light + "control\"]", "setpoint");
  page.Enter(light + "Q_setpoint\"]", "350");
  EXPECT_EQ(page.Text("light-preview"),
            "<nemra><tavo><cfg><lightsource><control>setpoint</control></lightsource></cfg><cfg>"
            "<lightsource><Q_setpoint>350</Q_setpoint></lightsource></cfg></tavo></nemra>");
  page.Click("light-send");
  page.Await("document.getElementById('light-answer').textContent === 'Done.'");
  EXPECT_EQ(other.Get("cfg/lightsource/Q_setpoint").text, "350");

  page.Press("/");
  page.Enter("#search", "fan");
  page.Await("document.getElementById('search-count').textContent.startsWith('3 of')");
  const std::string duty = "#tree [data-path=\"cfg/fan_duty\"]";
  const auto set = [&](const std::string& value) {
    page.Run("document.getElementById('setting-answer').textContent = ''");
    page.Enter(duty, value);
    page.Run("document.querySelector('" + duty + "').parentNode.querySelector('button').click()");
    page.Await("/now|holds|says/.test(document.getElementById('setting-answer').textContent)");
    return page.Text("setting-answer");
  };
  EXPECT_EQ(set("33"), "cfg/fan_duty is 33 now.");
  EXPECT_EQ(set("150"), "fan_duty: asked for 150, the head holds 100.");
  other.Command("Console desk");
  EXPECT_NE(set("44").find("Configuration is locked"), std::string::npos);
  other.Set("cfg/fan_duty", "55");
  page.Await("document.querySelector('" + duty + "').value === '55'");
  EXPECT_NE(page.Text("tree").find("Power of the fan"), std::string::npos);
  page.Picture("view-settings.png", 1280, false);
  page.Picture("view-settings-phone.png", 390, false);
}

TEST_F(View, FindsALostHeadAgain) {
  Browser page(directory.Path());
  page.Open(StartView());
  page.Await("document.getElementById('notice').textContent.startsWith('No head: ')");
  {
    const auto head = StartHead();
    page.Await(kLive);
  }
  page.Await("document.getElementById('connection').textContent === 'no head'");
  const auto head = StartHead();
  page.Await(kLive);
  page.Await("document.getElementById('notice').hidden");
  // And the program itself.
  view->Stop();
  page.Await("document.getElementById('connection').textContent === 'page not connected'");
  StartView();
  page.Await(kLive);
}

TEST_F(View, LetsOnlyThoseChangeWhoMay) {
  const auto head = StartHead();
  directory.Write("token", "sesame\n");
  Browser page(directory.Path());
  page.Open(StartView({"--token-file", directory.Path() + "/token"}));
  const auto ask = [&](const std::string& message) {
    page.Run(
        "window.answer = null; const socket = new WebSocket('ws://' + location.host + '/', "
        "'lumet-view'); socket.onopen = () => socket.send(" +
        message +
        ");"
        "socket.onmessage = ({data}) => { if (/^{\"answer/.test(data)) window.answer = data; };"
        "socket.onclose = () => { window.answer = window.answer || 'closed'; };");
    page.Await("window.answer");
    return page.Run("return window.answer").asString();
  };
  const std::string set = "'{\"set\": [{\"path\": \"cfg/fan_duty\", \"value\": \"7\"}]}'";
  EXPECT_NE(ask(set).find("changes need the token"), std::string::npos);
  page.Await("document.body.classList.contains('read-only')");
  page.Enter("#token", "sesame");
  page.Run("document.querySelector('#token-form button').click()");
  page.Await("document.body.classList.contains('may-change')");

  // What no page sends.
  for (const char* bad : {"'{\"set\": 5}'", "'{'", "'[]'", "'{\"curve\": 99}'",
                          "'{\"set\": [{\"path\": \"cfg/<a>\", \"value\": \"7\"}]}'",
                          "JSON.stringify({set: Array(51).fill({path: 'a', value: 'b'})})"})
    EXPECT_NE(ask(bad).find("\"error\":\""), std::string::npos) << bad;
  EXPECT_EQ(ask("'x'.repeat(100000)"), "closed");
  EXPECT_EQ(ask("new Uint8Array(9)"), "closed");
  const int port = page.Run("return Number(location.port)").asInt();
  const auto knock = [&](const std::string& host, const std::string& origin) {
    LineClient stranger(port);
    stranger.Send("GET / HTTP/1.1\r\nHost: " + host + "\r\nOrigin: " + origin +
                  "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                  "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n"
                  "Sec-WebSocket-Protocol: lumet-view\r\n\r\n");
    try {
      return stranger.ReadLine();
    } catch (const ClientError&) {
      return std::string("closed");
    }
  };
  EXPECT_TRUE(knock("[::1]", "http://[::1]").starts_with("HTTP/1.1 101"));
  EXPECT_FALSE(knock("[::1]", "http://elsewhere").starts_with("HTTP/1.1 101"));
  EXPECT_FALSE(knock("elsewhere", "http://elsewhere").starts_with("HTTP/1.1 101"));
  LineClient(port).Send("\x16\x03\x01garbage\r\n\r\n");

  page.Open(StartView({"--read-only"}));
  EXPECT_NE(ask(set).find("--read-only"), std::string::npos);
  EXPECT_EQ(ConsoleClient(static_cast<int>(console)).Get("cfg/fan_duty").text, "50");
}

// LUMET_VIEW_SECONDS says for how long; a minute is what it must stand.
TEST_F(View, KeepsUpWithAThousandSamplesASecond) {
  const char* const wanted = std::getenv("LUMET_VIEW_SECONDS");
  const int seconds = wanted != nullptr ? std::atoi(wanted) : 10;
  const auto head = StartHead("1000");
  Browser page(directory.Path());
  page.Open(StartView());
  page.Await("document.getElementById('charts').dataset.rows > 1000");
  // The rows so far, the time of the last, the longest step between two, and how late it is.
  const auto ask = [&] {
    return page.Run(
        "const {rows, last, longest} = document.getElementById('charts').dataset;"
        "return [Number(rows), Number(last), Number(longest), Date.now() / 1000 - last];");
  };
  const Json::Value start = ask();
  Json::Value now = start;
  double longest_lag = 0;
  while (now[1].asDouble() < start[1].asDouble() + seconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    now = ask();
    longest_lag = std::max(longest_lag, now[3].asDouble());
  }
  // Not one sample is left out.
  EXPECT_NEAR(now[0].asInt() - start[0].asInt(), 1000 * (now[1].asDouble() - start[1].asDouble()),
              2);
  EXPECT_LT(now[2].asDouble(), 0.0015);
  EXPECT_LT(longest_lag, 2);
  RecordProperty("longest_lag_ms", static_cast<int>(longest_lag * 1000));
}

}  // namespace
