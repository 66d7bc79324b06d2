// Light control, flashes and zeroing on a simulated leaf, as a client and the bus see them.

#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "bench/broker.h"
#include "bench/bus_client.h"
#include "bench/head.h"

namespace {

std::string Document(const std::string& settings) {
  return "<nemra><tavo>" + settings + "</tavo></nemra>\n";
}

std::string Light(const std::string& settings) {
  return Document("<cfg><lightsource>" + settings + "</lightsource></cfg>");
}

struct Row {
  double time = 0;
  double pfd = 0;
  int code = 0;
};

Row NextRow(Client& client) {
  std::istringstream fields(client.ReadLineThatBegins("DATA\t"));
  Row row;
  std::string field;
  for (int i = 0; std::getline(fields, field, '\t'); ++i) {
    if (i == 1) row.time = std::stod(field);
    if (i == 6) row.pfd = std::stod(field);
    if (i == 15) row.code = std::stoi(field);
  }
  return row;
}

// Lets `seconds` of simulated time pass. Of plain measuring, the lowest and highest PFD, and the
// mean of the last quarter.
struct Course {
  double lowest = 1e9;
  double highest = 0;
  double settled = 0;
};
Course Watch(Client& client, double seconds) {
  Course course;
  const double start = NextRow(client).time;
  double sum = 0;
  int count = 0;
  for (Row row; row.time < start + seconds;) {
    row = NextRow(client);
    if (row.code != 1) continue;
    course.lowest = std::min(course.lowest, row.pfd);
    course.highest = std::max(course.highest, row.pfd);
    if (row.time < start + seconds * 0.75) continue;
    sum += row.pfd;
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
  Client client(head.Port());
  client.Send(Light("<control>setpoint</control><Q_setpoint>200</Q_setpoint>"));
  Watch(client, 1);
  Course course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 200, 4) << "from below";
  EXPECT_LT(course.highest, 220);

  client.Send(Light("<Q_setpoint>60</Q_setpoint>"));
  client.ReadLineThatBegins("DATAEVENT\tCONFIGCHANGED");
  course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 60, 2) << "from above";
  EXPECT_GT(course.lowest, 54);

  client.Send(Light("<red_mix>20</red_mix><blue_mix>70</blue_mix><farred_mix>10</farred_mix>"));
  course = Watch(client, seconds);
  EXPECT_NEAR(course.settled, 60, 2) << "with another mix";

  client.Send(Document("<cmd><rect>true</rect></cmd>"));
  while (NextRow(client).code != 3) {
  }
  while (NextRow(client).code != 1) {
  }
  course = Watch(client, seconds / 4);
  EXPECT_NEAR(course.settled, 60, 2) << "through a flash";
  EXPECT_LT(course.highest, 66);
  EXPECT_GT(course.lowest, 54);
  EXPECT_EQ(head.Stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(Measurement, Rates, testing::Values(1, 10, 1000));

Json::Value NextRecord(Subscriber& bus, std::size_t& from) {
  const std::string& said = bus.WaitForOutput("\n}\n", from);
  const std::size_t start = said.find('{', from);
  const std::size_t end = said.find("\n}\n", start) + 3;
  from = end;
  Json::Value record;
  std::istringstream(said.substr(start, end - start)) >> record;
  return record;
}

TEST(Measurement, EventsOfEachKindReachTheBus) {
  const TemporaryDirectory root;
  const int port = FreePort();
  const Broker broker(root.Path() + "/broker", port);
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.bench = {"--broker-port", std::to_string(port), "--speed", "5"}});
  Subscriber(port).WaitForOutput("data/DATAEVENT/CONNECTED {\"");
  ChildProcess marker({"mosquitto_pub", "-h", "::1", "-p", std::to_string(port), "-r", "-t",
                       "nemra/tavo/output/XEVENT", "-m", "ready"});
  ASSERT_EQ(marker.Wait(), 0);
  Subscriber flashes(port, "nemra/tavo/output/DATAFLASHEVENT");
  Subscriber darks(port, "nemra/tavo/output/DATADARKEVENT");
  Subscriber(port, "nemra/tavo/output/XEVENT").WaitForOutput("ready");
  Client client(head.Port());
  client.Send(
      Document("<cfg><lightsource><control>percent</control></lightsource>"
               "<inductionflash><margin>0</margin><duration>40</duration></inductionflash>"
               "</cfg>"));
  std::size_t flashes_from = 0;
  std::size_t darks_from = 0;
  const auto record_of = [&](const std::string& command) {
    client.Send(Document("<cmd><" + command + ">true</" + command + "></cmd>"));
    return command == "dark" ? NextRecord(darks, darks_from) : NextRecord(flashes, flashes_from);
  };

  const Json::Value rect = record_of("rect");
  EXPECT_EQ(rect["TYPE"], "RECT");
  EXPECT_EQ(rect["SECS"].size(), rect["CODE"].size());
  const Json::Value multiphase = record_of("mpf");
  EXPECT_EQ(multiphase["TYPE"], "MPF");
  EXPECT_GE(multiphase["P2_INT"].asDouble(), multiphase["P1_MAXF"].asDouble());
  EXPECT_EQ(multiphase["FMAX"], multiphase["P2_INT"]);
  EXPECT_LT(multiphase["P2_SLP"].asDouble(), 0);
  EXPECT_GT(multiphase["P2_R2"].asDouble(), 0.9);
  const Json::Value induction = record_of("induction");
  EXPECT_EQ(induction["TYPE"], "INDUCTION");
  EXPECT_EQ(induction["MODRATE"], 250'000);
  EXPECT_EQ(induction["SECS"].size(), 10'000U);
  const Json::Value dark = record_of("dark");
  EXPECT_EQ(dark["TYPE"], "DARK");
  EXPECT_EQ(dark["FARRED"].size(), dark["SECS"].size());
  EXPECT_LT(dark["FMIN"].asDouble(), rect["LUMET"][0].asDouble());
  EXPECT_EQ(dark["EVENT_ID"].asInt(), rect["EVENT_ID"].asInt() + 3);

  // Zeros: what the detectors read in the dark, twice.
  for (const char* command : {"zero_dc0", "zero_dc0", "zero_pc0"})
    EXPECT_EQ(record_of(command)["TYPE"], "ZERO");
  client.Send(Document("<cal>&query;</cal><history>&query;</history>"));
  const std::string zeros = client.ReadLineThatBegins("<nemra><tavo><cal>");
  const auto zero = [&](const std::string& tag) {
    return std::stoi(zeros.substr(zeros.find(tag) + tag.size()));
  };
  EXPECT_NEAR(zero("<DC0>"), 152, 3) << zeros;
  EXPECT_NEAR(zero("<Pc0>"), 12, 1) << zeros;
  std::size_t records = 0;
  for (std::size_t at = 0; (at = zeros.find("<type>Zero ", at)) != std::string::npos; ++at)
    ++records;
  EXPECT_EQ(records, 2U) << zeros;
  const std::string log = ReadFile(root.Path() + "/var/log/cal");
  EXPECT_TRUE(log.starts_with("timestamp\ttype\tDC0\tPc0\t\n")) << log;
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 4);
  EXPECT_EQ(head.Stop(), 0);
}

// Too hot: the light goes out, and stays out when it is cool again.
TEST(Measurement, HeatShutsTheLightOff) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator);
  Client client(head.Port());
  client.Send(Light("<control>percent</control>"));
  while (NextRow(client).pfd < 100) {
  }
  const std::string sensor = root.Path() + "/sys/bus/i2c/devices/i2c-1/1-004c/temp1_input";
  WriteFile(sensor, "75000\n");
  const auto read_to_diag = [&](unsigned diag) {
    while (client.ReadLineThatBegins("DATA\t").find("\t" + std::to_string(diag) + "\t") ==
           std::string::npos) {
    }
  };
  read_to_diag(0x9000);
  while (NextRow(client).pfd > 1) {
  }
  WriteFile(sensor, "69900\n");
  read_to_diag(0);
  EXPECT_LT(NextRow(client).pfd, 1);
  client.Send(Document("<cfg><lightsource><control>&query;</control></lightsource></cfg>"));
  EXPECT_NE(client.ReadLineThatBegins("<nemra>").find("<control>off<"), std::string::npos);
  EXPECT_EQ(head.Stop(), 0);
}

}  // namespace
