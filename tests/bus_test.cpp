// The message bus, with a real broker.

#include "client/bus.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <random>
#include <string>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "client/console.h"
#include "common/socket.h"

namespace {

// A head on a bus, which has published and subscribed to all that it does at a connect.
struct BusHead {
  explicit BusHead(Head::PlayedBy processor)
      : head(root.Path() + "/head", processor,
             {.bench = {"--broker", "[::1]:" + std::to_string(port), "--rate", "200"}}) {
    BusClient({.port = port}).WaitForHead();
  }
  std::unique_ptr<Broker> StartBroker() const {
    return std::make_unique<Broker>(root.Path() + "/broker", port);
  }

  TemporaryDirectory root;
  FreePort port;
  std::unique_ptr<Broker> broker = StartBroker();
  Head head;
};

std::string OwnHostName() {
  std::array<char, 128> name = {};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

// Samples a sixteenth of a second apart for ten seconds of their own time, all at once.
void SendTenSeconds(Processor& processor, std::uint32_t start) {
  RecordWriter records;
  WireSample sample;
  sample.code = 1;
  for (std::uint32_t i = 0; i <= 160; ++i) {
    sample.tick = i * 62'500;
    records.Sample({start + i / 16, 0}, sample);
  }
  processor.Send(records);
}

TEST(Bus, KeepsWhatLastsAndTellsWhatHappensUntilAShutdown) {
  BusHead bench(Head::PlayedBy::kCaller);
  Head& head = bench.head;
  const std::string host = OwnHostName();

  // A client that comes late finds what is retained.
  BusClient late({.port = bench.port});
  std::map<std::string, std::string> retained;
  while (retained.size() < 4) {
    const BusMessage message = late.Next();
    if (message.retained) retained[message.topic] = message.payload;
  }
  EXPECT_EQ(retained["nemra/ROLES/request/tavo"], host);
  EXPECT_EQ(ReadSettings(retained[bus_topic::kDocument]).At("tavo/ver").text, "1.3.1");
  EXPECT_TRUE(retained.contains(bus_topic::kChanges));
  EXPECT_EQ(retained[bus_topic::kIdentity],
            R"({"MODEL":"TAVO","VERSION":"1.3.1","NAME":")" + host + R"(","SN":"TVF-XXXX"})");

  const std::uint32_t start = StampNow().seconds;
  SendTenSeconds(head.SignalProcessor(), start);
  std::map<std::string, int> published;
  for (double time = 0; time < start + 10;) {
    const BusMessage message = late.Next();
    ++published[message.topic];
    if (message.topic == bus_topic::kData) time = message.Values().at("TIME");
  }
  EXPECT_EQ(published[bus_topic::kData], 21);
  EXPECT_EQ(published[bus_topic::kStatus], 11);

  // The bus writes while a console holds its role; clients hear of it, and so does the bus.
  ConsoleClient console(head.Port());
  console.Command("Console unit");
  console.WaitForEvent("CONSOLECONNECTED");
  late.Set("cfg/fan_freq", "900");
  console.WaitForEvent("CONFIGCHANGED");
  for (const std::string& topic : {bus_topic::kDocument, bus_topic::kChanges})
    EXPECT_EQ(late.WaitFor(topic).Settings().At("tavo/cfg/fan_freq").text, "900");
  EXPECT_EQ(console.Get("cfg/fan_freq").text, "900");

  // What else is said on its topics neither stops nor moves it.
  late.Publish("nemra/kesh/scripts/power/constants/update", R"({"PowerAction":"shutdown"})");
  late.Publish("nemra/kesh/scripts/power/constants/update", "[1");
  late.Publish("nemra/system/start", "now");

  // Its end, with the machine's, takes back its identity.
  late.Publish("nemra/system/shutdown", "");
  head.WaitForLog("Exiting...\nlumet-bench: would run /usr/bin/poweroff\n");
  EXPECT_EQ(head.Wait(), 0);
  EXPECT_EQ(late.WaitFor(bus_topic::kIdentity).payload, "{}");
  const BusMessage last = late.Next();
  EXPECT_EQ(last.topic + " " + last.payload, "nemra/ROLES/deactivate/tavo " + host);
  EXPECT_EQ(BusClient({.port = bench.port}).WaitFor(bus_topic::kIdentity).payload, "{}");
}

TEST(Bus, ComesBackWithTheBroker) {
  BusHead bench(Head::PlayedBy::kSimulator);
  // A broker that stands still for a while costs no row and no connection.
  ConsoleClient client(bench.head.Port());
  kill(bench.broker->Process().Pid(), SIGSTOP);
  int rows = 0;
  EXPECT_LT(LongestGap(client, [&](auto&) { return ++rows == 300; }), kLongestGap);
  kill(bench.broker->Process().Pid(), SIGCONT);
  BusClient({.port = bench.port}).WaitFor(bus_topic::kData);
  EXPECT_FALSE(bench.head.HasLogged("MQTT Disconnected"));

  bench.broker->Process().Stop(SIGKILL);
  std::size_t from = bench.head.WaitForLog("MQTT Disconnected\n").size();
  const std::string failure =
      "Unable to connect to MQTT broker ::1: Unable to connect: "
      "MQTTClient: Connection refused\n";
  from = bench.head.WaitForLog(failure, from).size();
  bench.broker = bench.StartBroker();
  BusClient fresh({.port = bench.port});
  fresh.WaitFor(bus_topic::kDocument);
  fresh.WaitFor(bus_topic::kData);
  bench.head.WaitForLog("MQTT Connected", from);
  // The broker announces its death.
  bench.head.Stop(SIGKILL);
  BusMessage message;
  do message = fresh.Next();
  while (message.topic != "nemra/ROLES/deactivate/tavo" && message.payload != "{}");
  EXPECT_FALSE(message.retained);
  EXPECT_EQ(message.topic, "nemra/ROLES/deactivate/tavo");
}

// Something that listens where the broker should be, and is not one.
class Stranger {
 public:
  Stranger() {
    SocketAddress address("::1");
    listener.Create(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    listener.Bind(address);
    listener.Listen(0);
    listener.GetSockName(address);
    port = address.GetPort();
  }
  int Port() const { return port; }

  bool HasNext() const {
    struct pollfd waiting = {listener.GetFD(), POLLIN, 0};
    return poll(&waiting, 1, 0) == 1;
  }
  // The next connection that greets a broker.
  Socket Accept() const {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (true) {
      WaitReadable(listener.GetFD(), deadline, "a connection");
      Socket connection(listener, nullptr);
      WaitReadable(connection.GetFD(), deadline, "a greeting");
      std::string greeting;
      connection.ReadString(greeting);
      if (greeting.find("MQTT") != std::string::npos) return connection;
    }
  }
  // The same, and answers it.
  Socket Welcome() const {
    Socket connection = Accept();
    connection.Write(std::string("\x20\x02\0\0", 4));
    return connection;
  }

 private:
  Socket listener;
  int port = 0;
};

// A head whose broker is a stranger, and its rows.
struct StrangersHead {
  explicit StrangersHead(const Stranger& stranger)
      : head(root.Path(), Head::PlayedBy::kSimulator,
             {.bench = {"--broker", "[::1]:" + std::to_string(stranger.Port()), "--rate", "200"}}),
        client(head.Port()) {}

  // They come until the head has said this, and for a while longer.
  void ExpectRowsUntil(const std::string& line) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    int rows_after = 0;
    const auto gap = LongestGap(client, [&](auto&) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("it never says " + line);
      head.HasLogged(line);
      return head.WaitForLog("").find(line, from) != std::string::npos && ++rows_after == 100;
    });
    EXPECT_LT(gap, kLongestGap) << line;
    from = head.WaitForLog(line, from).size();
  }

  TemporaryDirectory root;
  Head head;
  ConsoleClient client;
  std::size_t from = 0;  // what it said before that has been seen
};

TEST(Bus, SamplesDoNotWaitForWhateverTheBrokerIs) {
  const Stranger stranger;
  // They fill its queue, and the head does not inherit them.
  SocketAddress address("::1");
  address.SetPort(stranger.Port());
  std::array<Socket, 3> others;
  for (Socket& other : others) {
    other.Create(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    other.SetNonBlocking();
    other.Connect(address);
  }
  StrangersHead bench(stranger);
  bench.ExpectRowsUntil(
      "Unable to connect to MQTT broker ::1: Unable to connect: "
      "MQTTClient: Connection timed out\n");
  for (Socket& other : others) other.Close();

  {
    Socket connection = stranger.Accept();
    std::mt19937 random(1);
    std::string garbage(1 << 16, '\0');
    for (char& letter : garbage) letter = static_cast<char>(random());
    connection.Write(garbage);
    bench.ExpectRowsUntil("MQTT Disconnected\n");
  }
  {
    // Silent, and the only connection that is made.
    const Socket connection = stranger.Accept();
    int rows = 0;
    EXPECT_LT(LongestGap(bench.client, [&](auto&) { return ++rows == 400; }), kLongestGap);
    EXPECT_FALSE(stranger.HasNext());
  }
  bench.ExpectRowsUntil("MQTT Disconnected\n");
  {
    Socket connection = stranger.Welcome();
    connection.Write("\x30\x80\x80\x80\x32");  // to be followed by 100 MiB
    bench.ExpectRowsUntil("MQTT broker sends 104857605 bytes at once, closing the connection\n");
  }
  EXPECT_EQ(bench.head.Stop(), 0);
}

// A broker that reads next to nothing, while more is published than may wait.
TEST(Bus, KeepsNoMoreForASlowBrokerThanMayWait) {
  const Stranger stranger;
  StrangersHead bench(stranger);
  Socket connection = stranger.Welcome();
  bench.ExpectRowsUntil("MQTT Connected\n");
  GapMeter gap;
  int changes = 0;
  while (!bench.head.HasLogged("MQTT broker does not take what is published, ")) {
    std::string byte(1, '\0');
    EXPECT_EQ(connection.Recv(byte.data(), 1, 0), 1);
    // Of a setting that is not saved.
    for (int i = 0; i < 100; ++i)
      bench.client.Ask("<nemra><tavo><cfg><rawdatacapture><size>" + std::to_string(++changes) +
                       "</size></rawdatacapture></cfg></tavo></nemra>");
    for (int answers = 0; answers < 100;) {
      const ConsoleMessage message = bench.client.Next();
      gap.Saw(message);
      if (std::holds_alternative<NumberedAnswer>(message)) ++answers;
    }
  }
  EXPECT_LT(gap.Longest(), kLongestGap);
  // AddressSanitizer keeps memory of its own.
  if (!kWithAddressSanitizer) {
    EXPECT_LT(bench.head.Status("VmHWM"), 64 << 10);
  }
  // It hears all that lasts when it reads on.
  const std::string latest = "<size>" + std::to_string(changes) + "</size>";
  std::string heard;
  for (std::string chunk; heard.find(latest) == std::string::npos;) {
    heard.erase(0, heard.size() - std::min(heard.size(), latest.size()));
    connection.ReadString(chunk);
    heard += chunk;
  }
  bench.head.WaitForLog("MQTT broker takes what is published again, ");
  EXPECT_EQ(bench.head.Stop(), 0);
}

}  // namespace
