// The message bus, with a real broker and its own clients.

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>

#include "bench/broker.h"
#include "bench/bus_client.h"
#include "bench/head.h"

namespace {

std::vector<std::string> LinesWith(const std::string& text, const std::string& part) {
  std::istringstream lines(text);
  std::vector<std::string> found;
  for (std::string line; std::getline(lines, line);)
    if (line.find(part) != std::string::npos) found.push_back(line);
  return found;
}

// A head on a bus, which has said and subscribed to all it does at a connect.
struct BusHead {
  explicit BusHead(int broker_port, Head::PlayedBy processor = Head::PlayedBy::kCaller)
      : head(root.Path(), processor,
             {.bench = {"--broker-port", std::to_string(broker_port), "--rate", "200"}}) {
    Subscriber(broker_port).WaitForOutput("data/DATAEVENT/CONNECTED {\"");
  }

  TemporaryDirectory root;
  Head head;
};

TEST(Bus, KeepsWhatLastsAndTellsWhatHappens) {
  const TemporaryDirectory directory;
  const FreePort port;
  const Broker broker(directory.Path(), port);
  BusHead bench(port);
  Head& head = bench.head;
  const std::string host = [] {
    std::array<char, 128> name = {};
    gethostname(name.data(), name.size() - 1);
    return std::string(name.data());
  }();

  // One that comes late finds what is retained.
  Subscriber late(port);
  std::string said = late.WaitForOutput("\n1 nemra/tavo/data/DATAEVENT/CONNECTED {");
  EXPECT_NE(said.find("1 nemra/ROLES/request/tavo " + host + "\n"), std::string::npos) << said;
  EXPECT_NE(said.find("1 nemra/tavo/xml/doc <nemra><tavo><ack>true</ack><ver>1.3.1</ver>"),
            std::string::npos);
  EXPECT_NE(said.find("1 nemra/tavo/xml/changes "), std::string::npos);
  EXPECT_NE(said.find(R"(CONNECTED {"MODEL":"TAVO","VERSION":"1.3.1","NAME":")" + host +
                      R"(","SN":"TVF-XXXX"})"),
            std::string::npos);

  // Samples a sixteenth of a second apart for ten seconds of their own time, in no time of ours.
  RecordWriter records;
  WireSample sample;
  sample.code = 1;
  const std::uint32_t start = StampNow().seconds;
  for (std::uint32_t i = 0; i <= 160; ++i) {
    sample.tick = i * 62'500;
    records.Sample({start + i / 16, 0}, sample);
  }
  head.SignalProcessor().Send(records);
  const std::string last = "\"TIME\":" + std::to_string(start + 10);
  said = late.WaitForOutput("0 nemra/tavo/output/DATA {" + last);
  EXPECT_EQ(LinesWith(said, "output/DATA {").size(), 21U);
  EXPECT_EQ(LinesWith(said, "output/DATASTAT {").size(), 11U);

  // The bus writes while a console holds its role; clients hear of it, and so does the bus.
  Client console(head.Port());
  console.Send("Console unit\n");
  console.ReadLineThatBegins("DATAEVENT\tCONSOLECONNECTED");
  const std::size_t before = late.Output().size();
  Publish(port, "nemra/tavo/xml/update",
          "<nemra><tavo><cfg><fan_freq>900</fan_freq></cfg></tavo></nemra>");
  console.ReadLineThatBegins("DATAEVENT\tCONFIGCHANGED");
  said = late.WaitForOutput("xml/changes <nemra><tavo><cfg><fan_freq>900</fan_freq></cfg>", before);
  EXPECT_NE(said.find("<fan_freq>900</fan_freq>", said.find("0 nemra/tavo/xml/doc", before)),
            std::string::npos);
  console.Send("<nemra><tavo><cfg><fan_freq>&query;</fan_freq></cfg></tavo></nemra>\n");
  EXPECT_EQ(console.ReadLineThatBegins("<nemra>"),
            "<nemra><tavo><cfg><fan_freq>900</fan_freq></cfg></tavo></nemra>");

  // What else is said on its topics neither stops nor moves it.
  Publish(port, "nemra/kesh/scripts/power/constants/update", R"({"PowerAction":"shutdown"})");
  Publish(port, "nemra/kesh/scripts/power/constants/update", "[1");
  Publish(port, "nemra/system/start", "now");

  // Its orderly end takes back what it was.
  EXPECT_EQ(head.Stop(), 0);
  late.WaitForOutput("0 nemra/tavo/data/DATAEVENT/CONNECTED {}\n0 nemra/ROLES/deactivate/tavo " +
                     host + "\n");
  Subscriber after(port);
  said = after.WaitForOutput("DATAEVENT/CONNECTED");
  EXPECT_NE(said.find("CONNECTED {}\n"), std::string::npos) << said;
}

TEST(Bus, ComesBackWithTheBroker) {
  const TemporaryDirectory directory;
  const FreePort port;
  auto broker = std::make_unique<Broker>(directory.Path(), port);
  BusHead bench(port, Head::PlayedBy::kSimulator);
  broker->Process().Stop(SIGKILL);
  std::size_t from = bench.head.WaitForLog("MQTT Disconnected\n").size();
  const std::string failure =
      "Unable to connect to MQTT broker ::1: Unable to connect: "
      "MQTTClient: Connection refused\n";
  from = bench.head.WaitForLog(failure, from).size();
  broker = std::make_unique<Broker>(directory.Path(), port);
  Subscriber fresh(port);
  fresh.WaitForOutput("xml/doc <nemra>");
  fresh.WaitForOutput("output/DATA {");
  bench.head.WaitForLog("MQTT Connected", from);
  // Whose death the broker tells.
  bench.head.Stop(SIGKILL);
  fresh.WaitForOutput("0 nemra/ROLES/deactivate/tavo ");
  EXPECT_EQ(fresh.Output().find("CONNECTED {}"), std::string::npos);
}

// Somebody takes its connections and says nothing.
TEST(Bus, SamplesDoNotWaitForABrokerThatIsSilent) {
  SocketAddress address("::1");
  Socket listener(AF_INET6, SOCK_STREAM, 0);
  listener.Bind(address);
  listener.Listen(8);
  listener.GetSockName(address);
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.bench = {"--broker-port", std::to_string(address.GetPort()), "--rate", "200"}});
  Client client(head.Port());
  const auto accept_next = [&] {
    WaitReadable(listener.GetFD(), std::chrono::steady_clock::now() + kDeadline, "a connection");
    return Socket(listener, nullptr);
  };
  {
    accept_next();  // is anybody there?
    Socket connection = accept_next();
    std::string greeting;
    connection.ReadString(greeting);
    EXPECT_NE(greeting.find("MQTT"), std::string::npos);
    int lines = 0;
    EXPECT_LT(LongestGap(client, [&](const std::string&) { return ++lines == 400; }), kLongestGap);
    EXPECT_EQ(head.WaitForLog("").find("MQTT"), std::string::npos);
  }
  head.WaitForLog("MQTT Disconnected\n");
  accept_next();
  EXPECT_EQ(head.Stop(), 0);
}

TEST(Bus, ShutdownMessageTakesTheMachineDown) {
  const TemporaryDirectory directory;
  const FreePort port;
  const Broker broker(directory.Path(), port);
  BusHead bench(port);
  Publish(port, "nemra/system/shutdown", "");
  bench.head.WaitForLog("Exiting...\nlumet-bench: would run /usr/bin/poweroff\n");
  EXPECT_EQ(bench.head.Wait(), 0);
}

// Payloads of any kind on each topic, while samples stream: nothing but lines comes of it.
TEST(Bus, BadMessagesCostNothingButLines) {
  constexpr int kMessages = 10'000;
  const TemporaryDirectory directory;
  const FreePort port;
  const Broker broker(directory.Path(), port);
  BusHead bench(port, Head::PlayedBy::kSimulator);
  Head& head = bench.head;
  Client client(head.Port());
  client.ReadLineThatBegins("DATA\t");

  const std::string pieces[] = {"<nemra>", "<tavo>", "</tavo>", "<cfg", "&query;",  "\"",
                                "{",       "}",      "[",       "\xFF", "<!--",     "&lt",
                                "1e999",   ">",      "&#0;",    ":",    "<clock/>", "PowerAction"};
  std::mt19937 random(3);
  const auto send_to = [&](const std::string& topic) {
    std::string lines;
    for (int i = 0; i < kMessages; ++i) {
      for (auto n = random() % 12; n > 0; --n) lines += pieces[random() % std::size(pieces)];
      lines += "\n";
    }
    const std::string path = directory.Path() + "/lines";
    WriteFile(path, lines);
    ChildProcess publisher(
        {"sh", "-c",
         "mosquitto_pub -h ::1 -p " + std::to_string(port) + " -t " + topic + " -l < " + path});
    // Until it has taken them all, and a last one that is in order.
    bool all_are_sent = false;
    const auto gap = LongestGap(client, [&](const std::string& line) {
      if (!all_are_sent && publisher.HasEnded()) {
        all_are_sent = true;
        Publish(port, "nemra/tavo/xml/update",
                "<nemra><tavo><cfg><fan_freq>" + std::to_string(500 + random() % 400) +
                    "</fan_freq></cfg></tavo></nemra>");
      }
      return all_are_sent && line.starts_with("DATAEVENT\tCONFIGCHANGED");
    });
    EXPECT_EQ(publisher.Wait(), 0);
    std::cout << topic << ": longest gap between two rows " << gap.count() << " ms\n";
    EXPECT_LT(gap, kLongestGap) << topic;
  };
  send_to("nemra/tavo/xml/update");
  const long before = head.Status("VmRSS");
  for (const char* topic : {"nemra/tavo/xml/update", "nemra/kesh/scripts/power/constants/update"})
    send_to(topic);
  const long grown = head.Status("VmRSS") - before;
  std::cout << "memory grown by " << grown << " kB\n";
  EXPECT_LT(grown, 8192);
  EXPECT_EQ(head.Stop(), 0);
}

}  // namespace
