// Light control on a simulated leaf, as a client sees it.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <variant>
#include <vector>

#include "bench/head.h"
#include "client/console.h"

namespace {

void SetLight(ConsoleClient& client, std::string_view settings) {
  client.Request(SettingsDocument("cfg/lightsource", settings)).Check();
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
  SetLight(client, "<control>setpoint</control><Q_setpoint>200</Q_setpoint>");
  Watch(client, 1);
  Course course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 200, 4) << "from below";
  EXPECT_LT(course.highest, 220);

  client.Set("cfg/lightsource/Q_setpoint", "60");
  client.WaitForEvent("CONFIGCHANGED");
  course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 60, 2) << "from above";
  EXPECT_GT(course.lowest, 54);

  SetLight(client, "<red_mix>20</red_mix><blue_mix>70</blue_mix><farred_mix>10</farred_mix>");
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
