#include "tests/web_driver.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <span>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "client/json_text.h"
#include "client/lines.h"
#include "common/base64.h"

namespace {

Json::Value Object(std::initializer_list<std::pair<const char*, Json::Value>> members) {
  Json::Value value;
  for (const auto& [name, member] : members) value[name] = member;
  return value;
}

}  // namespace

Browser::Browser(const std::string& directory)
    : driver({"env", "HOME=" + directory, "chromedriver", "--port=0"}) {
  const std::string before = "successfully on port ";
  const std::string& said = driver.WaitForOutput(".\n", driver.WaitForOutput(before).find(before));
  port = std::stoi(said.substr(said.find(before) + before.size()));
  Json::Value request;
  Json::Value& options = request["capabilities"]["alwaysMatch"];
  for (const char* word : {"--headless=new", "--disable-gpu", "--hide-scrollbars",
                           "--disable-dev-shm-usage", "--window-size=1280,900"})
    options["goog:chromeOptions"]["args"].append(word);
  if (geteuid() == 0) options["goog:chromeOptions"]["args"].append("--no-sandbox");
  options["goog:loggingPrefs"]["browser"] = "ALL";
  session = "/session/" + Call("POST", "/session", request)["sessionId"].asString();
  Tell("Browser.setDownloadBehavior", Object({{"behavior", "allow"}, {"downloadPath", directory}}));
}

Browser::~Browser() {
  try {
    Call("DELETE", session, {});
  } catch (const std::exception& error) {
    std::cerr << "the browser does not end in order: " << error.what() << std::endl;
  }
}

void Browser::Open(const std::string& address) {
  Call("POST", session + "/url", Object({{"url", address}}));
}

Json::Value Browser::Run(const std::string& script) {
  return Call("POST", session + "/execute/sync",
              Object({{"script", script}, {"args", Json::Value(Json::arrayValue)}}));
}

void Browser::Await(const std::string& expression) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!Run("return Boolean(" + expression + ")").asBool()) {
    if (std::chrono::steady_clock::now() > end)
      throw std::runtime_error("waited in vain for " + expression + "; the page shows: " +
                               Run("return document.body.innerText").asString());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

std::string Browser::Text(const std::string& id) {
  return Run("return document.getElementById('" + id + "').textContent").asString();
}

void Browser::Click(const std::string& id) { Run("document.getElementById('" + id + "').click()"); }
void Browser::Enter(const std::string& selector, const std::string& value) {
  Run("const entry = document.querySelector('" + selector + "'); entry.value = '" + value +
      "'; entry.dispatchEvent(new Event('input', {bubbles: true}));");
}

void Browser::Press(const std::string& key) {
  Json::Value request;
  Json::Value& keys = request["actions"][0] = Object({{"type", "key"}, {"id", "keyboard"}});
  for (const char* act : {"keyDown", "keyUp"})
    keys["actions"].append(Object({{"type", act}, {"value", key}}));
  Call("POST", session + "/actions", request);
}

void Browser::Tell(const std::string& command, const Json::Value& parameters) {
  Call("POST", session + "/goog/cdp/execute", Object({{"cmd", command}, {"params", parameters}}));
}

void Browser::Resize(int width, int height) {
  Tell("Emulation.setDeviceMetricsOverride", Object({{"width", width},
                                                     {"height", height},
                                                     {"deviceScaleFactor", 1},
                                                     {"mobile", width < 600}}));
}

void Browser::Picture(const std::string& name, int width, bool is_dark) {
  const char* const directory = std::getenv("LUMET_VIEW_SCREENSHOTS");
  if (directory == nullptr || *directory == '\0') return;
  SetTheme(is_dark);
  Resize(width, 400);
  Resize(width, std::max(400, Run("return document.documentElement.scrollHeight").asInt()));
  std::this_thread::sleep_for(std::chrono::milliseconds(700));  // a drawing or two
  const std::string text = Call("GET", session + "/screenshot", {}).asString();
  std::vector<std::uint8_t> bytes;
  Base64AppendDecoded(std::span(text.data(), text.size()), bytes);
  std::ofstream(std::string(directory) + "/" + name, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
  SetTheme(false);
  Resize(1280, 900);
}

std::string Browser::Complaints() {
  std::string all;
  for (const Json::Value& each : Call("POST", session + "/se/log", Object({{"type", "browser"}})))
    all += each["message"].asString() + "\n";
  return all;
}

Json::Value Browser::Call(const std::string& method, const std::string& path,
                          const Json::Value& value) const {
  const std::string body =
      method == "POST" ? Json::writeString(Json::StreamWriterBuilder(), value) : "";
  LineClient client(port, "127.0.0.1");
  client.Send(method + " " + path + " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n\r\n" + body);
  const Deadline deadline(std::chrono::seconds(60));
  const Socket& socket = client.Connection();
  std::string reply;
  std::size_t whole = std::string::npos;
  while (reply.size() < whole) {
    if (!deadline.WaitFor(socket.GetFD(), POLLIN)) deadline.Fail("the browser", reply);
    std::array<char, 65536> piece{};
    const ssize_t count = recv(socket.GetFD(), piece.data(), piece.size(), 0);
    if (count <= 0) throw std::runtime_error("the browser's driver is gone: " + reply);
    reply.append(piece.data(), static_cast<std::size_t>(count));
    const std::size_t end = reply.find("\r\n\r\n");
    const std::size_t length = reply.find("Content-Length:");
    if (whole == std::string::npos && end != std::string::npos && length < end)
      whole = end + 4 + std::stoul(reply.substr(length + 15));
  }
  const Json::Value answer = ReadJson(reply.substr(reply.find("\r\n\r\n") + 4), "answer");
  if (answer["value"].isObject() && answer["value"].isMember("error"))
    throw std::runtime_error(path + ": " + answer["value"]["message"].asString());
  return answer["value"];
}

void Browser::SetTheme(bool is_dark) {
  Json::Value media;
  media["features"][0] =
      Object({{"name", "prefers-color-scheme"}, {"value", is_dark ? "dark" : "light"}});
  Tell("Emulation.setEmulatedMedia", media);
}
