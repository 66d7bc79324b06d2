// Heads of one house, by the bridge of docs/fleet.md.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "client/bus.h"
#include "client/console.h"

namespace {

std::string TopicOf(int number, const std::string& topic) {
  return "heads/TVF-000" + std::to_string(number) + "/" + topic;
}

// A head with a broker of its own, bridged to the house as the page tells.
struct BridgedHead {
  BridgedHead(int number, int house) {
    const std::string serial = "TVF-000" + std::to_string(number);
    console.Set("factory/serialnumber", serial);
    std::string conf = ReadFile(SOURCE_DIR "/packaging/mosquitto/lumet-site.conf");
    conf = std::regex_replace(conf, std::regex("TVF-XXXX"), serial);
    conf = std::regex_replace(conf, std::regex("site.example:1883"),
                              "127.0.0.1:" + std::to_string(house));
    const std::string path = root.Path() + "/mosquitto.conf";
    WriteFile(path, "listener " + std::to_string(port) +
                        " ::1\nallow_anonymous true\npersistence false\nlog_dest none\n" + conf);
    broker.emplace(std::vector<std::string>{"mosquitto", "-c", path});
  }

  TemporaryDirectory root;
  FreePort port;
  Head head{root.Path() + "/head",
            Head::PlayedBy::kSimulator,
            {.bench = {"--broker", "[::1]:" + std::to_string(port)}}};
  ConsoleClient console{head.Port()};
  std::optional<ChildProcess> broker;  // comes after the head knows its serial number
};

TEST(Fleet, BridgesHeadsUnderTheirSerialNumbers) {
  const TemporaryDirectory directory;
  const FreePort port("127.0.0.1");
  const Broker house_broker(directory.Path(), port, "127.0.0.1");
  const BusOptions house_options = {.host = "127.0.0.1", .port = port, .topics = {"heads/#"}};
  BusClient house(house_options);
  std::vector<std::unique_ptr<BridgedHead>> heads;
  for (int number = 1; number <= 3; ++number)
    heads.push_back(std::make_unique<BridgedHead>(number, port));
  for (int number = 1; number <= 3; ++number) house.WaitFor(TopicOf(number, bus_topic::kData));

  // One that comes late finds each head.
  BusClient late(house_options);
  std::map<std::string, std::string> retained;
  for (BusMessage message = late.Next(); message.retained; message = late.Next())
    retained[message.topic] = message.payload;
  for (int number = 1; number <= 3; ++number) {
    EXPECT_EQ(retained[TopicOf(number, "bridge")], "1");
    EXPECT_NE(retained[TopicOf(number, bus_topic::kIdentity)].find("\"SN\":\"TVF-000" +
                                                                   std::to_string(number) + "\""),
              std::string::npos);
    EXPECT_TRUE(retained.contains(TopicOf(number, bus_topic::kDocument)));
  }

  // What is told to one is for it alone.
  house.Publish(TopicOf(2, bus_topic::kUpdate), SettingsDocument("cfg/fan_duty", "71"));
  late.WaitFor(TopicOf(2, bus_topic::kDocument), [](const BusMessage& message) {
    return message.payload.find("<fan_duty>71<") != std::string::npos;
  });
  for (int number = 1; number <= 3; ++number)
    EXPECT_EQ(heads[static_cast<std::size_t>(number - 1)]->console.Get("cfg/fan_duty").text,
              number == 2 ? "71" : "50");
  heads[2]->console.Set("cmd/rect", "true");
  EXPECT_EQ(EventRecord::Parse(late.WaitFor(TopicOf(3, bus_topic::kFlash)).payload).device,
            "TVF-0003");

  // For a time-series store.
  ChildProcess store({"/usr/bin/python3", std::string(SOURCE_DIR) + "/examples/line_protocol.py",
                      "127.0.0.1", std::to_string(port), "12"});
  EXPECT_EQ(store.Wait(), 0);
  const std::string line =
      R"((DATA|DATASTAT),serial=TVF-000[123] DIAG=0(,[A-Za-z]+=[-.0-9e]+)+ \d{19}\n)";
  EXPECT_TRUE(std::regex_match(store.Output(), std::regex("(" + line + "){12}"))) << store.Output();

  heads[0]->head.Stop();
  EXPECT_EQ(late.WaitFor(TopicOf(1, bus_topic::kIdentity)).payload, "{}");
}

}  // namespace
