// Light control, flashes and zeroing on a simulated leaf, as a client and the bus see them.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <variant>
#include <vector>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "client/bus.h"
#include "client/console.h"

namespace {

constexpr const char* kLight = "cfg/lightsource";

void Send(ConsoleClient& client, std::string_view path, std::string_view settings) {
  client.Request(SettingsDocument(path, settings)).Check();
}

// Lets `seconds` of simulated time pass. Of plain measuring, the lowest and highest PFD, and the
// mean of the last quarter.
struct Course {
  double lowest = 1e9;
  double highest = 0;
  double settled = 0;
};
Course Watch(ConsoleClient& client, double seconds) {
  Course course;
  const double start = client.NextData()["TIME"];
  double sum = 0;
  int count = 0;
  for (double time = start; time < start + seconds;) {
    const DataRow row = client.NextData();
    time = row["TIME"];
    if (row["CODE"] != 1) continue;
    course.lowest = std::min(course.lowest, row["PFD"]);
    course.highest = std::max(course.highest, row["PFD"]);
    if (time < start + seconds * 0.75) continue;
    sum += row["PFD"];
    ++count;
  }
  course.settled = sum / count;
  return course;
}

class Rates : public testing::TestWithParam<int> {};

TEST_P(Rates, LightComesToItsSetpointAndStays) {
  const int rate = GetParam();
  // Four samples make an update below 8 Hz.
  const double seconds = rate < 8 ? 240 : 30;
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.bench = {"--rate", std::to_string(rate), "--speed", rate < 8 ? "400" : "40"}});
  ConsoleClient client(head.Port());
  Send(client, kLight, "<control>setpoint</control><Q_setpoint>200</Q_setpoint>");
  Watch(client, 1);
  Course course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 200, 4) << "from below";
  EXPECT_LT(course.highest, 220);

  client.Set("cfg/lightsource/Q_setpoint", "60");
  client.WaitForEvent("CONFIGCHANGED");
  course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 60, 2) << "from above";
  EXPECT_GT(course.lowest, 54);

  Send(client, kLight, "<red_mix>20</red_mix><blue_mix>70</blue_mix><farred_mix>10</farred_mix>");
  course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 60, 2) << "with another mix";

  client.Set("cmd/rect", "true");
  while (client.NextData()["CODE"] != 3) {
  }
  while (client.NextData()["CODE"] != 1) {
  }
  course = Watch(client, seconds / 4);
  EXPECT_NEAR(course.settled, 60, 2) << "through a flash";
  EXPECT_LT(course.highest, 66);
  EXPECT_GT(course.lowest, 54);
  EXPECT_EQ(head.Stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(Measurement, Rates, testing::Values(1, 10, 1000));

TEST(Measurement, EventsOfEachKindReachTheBus) {
  const TemporaryDirectory root;
  const FreePort port;
  const Broker broker(root.Path() + "/broker", port);
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.bench = {"--broker", "[::1]:" + std::to_string(port), "--speed", "5"}});
  BusClient({.port = port}).WaitForHead();
  BusClient bus({.port = port, .topics = {bus_topic::kFlash, bus_topic::kDark}});
  ConsoleClient client(head.Port());
  Send(client, "cfg",
       "<lightsource><control>percent</control></lightsource>"
       "<inductionflash><margin>0</margin><duration>40</duration></inductionflash>");
  const auto record_of = [&](const std::string& command) {
    client.Set("cmd/" + command, "true");
    return bus.NextEvent();
  };

  const EventRecord rect = record_of("rect");
  EXPECT_EQ(rect.type, "RECT");
  EXPECT_FALSE(rect.fit);
  const EventRecord multiphase = record_of("mpf");
  EXPECT_EQ(multiphase.type, "MPF");
  EXPECT_GE(multiphase.fit->intercept, multiphase["P1_MAXF"]);
  EXPECT_EQ(multiphase["FMAX"], multiphase.fit->intercept);
  EXPECT_LT(multiphase.fit->slope, 0);
  EXPECT_GT(multiphase.fit->r2, 0.9);
  const EventRecord induction = record_of("induction");
  EXPECT_EQ(induction.type, "INDUCTION");
  EXPECT_EQ(induction["MODRATE"], 250'000);
  EXPECT_EQ(induction.curve.seconds.size(), 10'000U);
  const EventRecord dark = record_of("dark");
  EXPECT_EQ(dark.type, "DARK");
  EXPECT_EQ(dark.curve.farred.size(), dark.curve.seconds.size());
  EXPECT_LT(dark["FMIN"], rect.curve.fluorescence[0]);
  EXPECT_EQ(dark.id, rect.id + 3);

  for (const char* command : {"zero_dc0", "zero_pc0"}) EXPECT_EQ(record_of(command).type, "ZERO");
  EXPECT_EQ(head.Stop(), 0);
}

// Too hot: the light goes out, stays out when it is cool again, and everybody knows.
TEST(Measurement, HeatShutsTheLightOff) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator, {.lumet = {"-d"}});
  ConsoleClient client(head.Port());
  client.Set("cfg/lightsource/control", "setpoint");
  while (client.NextData()["PFD"] < 100) {
  }
  ConsoleClient listener(head.Port());
  listener.Watch("");
  listener.NextData();
  const std::string sensor = root.Path() + "/sys/bus/i2c/devices/i2c-1/1-004c/temp1_input";
  WriteFile(sensor, "75000\n");
  int changes = 0;
  const auto read_to_diag = [&](const std::vector<std::string>& names) {
    while (true) {
      const ConsoleMessage message = client.Next();
      const auto* event = std::get_if<EventRow>(&message);
      if (event != nullptr && event->event == "CONFIGCHANGED") ++changes;
      const auto* row = std::get_if<DataRow>(&message);
      if (row != nullptr && client.DiagNames((*row)["DIAG"]) == names) return;
    }
  };
  read_to_diag({"TEMP_WARNING", "TEMP_FAULT"});
  EXPECT_EQ(listener.NextChange().text,
            "<nemra><tavo><cfg><lightsource><control>off</control></lightsource><measure>"
            "<control>off</control></measure></cfg></tavo></nemra>");
  while (client.NextData()["PFD"] > 1) {
  }
  WriteFile(sensor, "69900\n");
  read_to_diag({});
  EXPECT_EQ(changes, 1);
  EXPECT_LT(client.NextData()["PFD"], 1);
  // From the file.
  kill(head.Pid(), SIGUSR1);
  client.WaitForEvent("CONFIGCHANGED");
  EXPECT_EQ(client.Get("cfg/lightsource/control").text, "off");
  kill(head.Pid(), SIGTERM);
  const std::string& log = head.WaitForLog("Exiting...");
  EXPECT_EQ(log.find("_dac_fraction", log.find("XML Listener Response")), std::string::npos)
      << "the controller is off";
  EXPECT_EQ(head.Wait(), 0);
}

}  // namespace
