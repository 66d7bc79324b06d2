// Settings that reach the operating system, on a bench that writes down what it would do to one.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "client/bus.h"
#include "client/console.h"

namespace {

std::string Settings(const std::string& clock_or_network) {
  return SettingsDocument("cfg", clock_or_network);
}

struct SystemHead {
  explicit SystemHead(std::string root, const HeadOptions& options = {})
      : root(std::move(root)),
        head(this->root, Head::PlayedBy::kCaller, options),
        client(head.Port()) {}

  std::string Ask(const std::string& request) { return client.Request(request).text; }
  // What the head has said up to `text`, from where it was looked at last.
  std::string Said(const std::string& text) {
    const std::string all = head.WaitForLog(text, looked_at);
    const std::size_t end = all.find(text, looked_at) + text.size();
    std::string said = all.substr(looked_at, end - looked_at);
    looked_at = end;
    return said;
  }

  std::string root;
  Head head;
  ConsoleClient client;
  std::size_t looked_at = 0;
};

// Summer and winter of a zone that takes effect at once.
void CheckZones(SystemHead& bench, const std::string& etc) {
  EXPECT_EQ(bench.Ask(Settings("<clock><zone>Europe/Berlin</zone></clock>")), "");
  EXPECT_EQ(bench.Ask(Settings("<clock><date>2026-07-01</date><time>12:00:00</time></clock>")), "");
  EXPECT_NE(bench.Said("UTC\n").find("Set clock to: Wed Jul  1 12:00:00 2026\n"
                                     "lumet-bench: would set the system time to 1782900000\n"
                                     "lumet-bench: would set the hardware clock to 2026-7-1 "
                                     "10:0:0 UTC\n"),
            std::string::npos);
  EXPECT_EQ(bench.Ask(Settings("<clock><zone>America/New_York</zone></clock>")), "");
  EXPECT_EQ(bench.Ask(Settings("<clock><date>2026-01-15</date><time>12:00:00</time></clock>")), "");
  bench.Said("would set the system time to 1768496400\n");
  EXPECT_EQ(bench.Ask(Settings("<clock><time_t>86400</time_t></clock>")), "");
  bench.Said("would set the system time to 86400\n");
  EXPECT_EQ(ReadFile(etc + "timezone"), "America/New_York\n");
  EXPECT_TRUE(
      std::filesystem::read_symlink(etc + "localtime").string().ends_with("/America/New_York"));
}

// An invalid date or time is reported, and costs nothing else.
void CheckDatesAndTimes(SystemHead& bench) {
  for (const char* date : {"tomorrow", "1988-12-31", "2100-01-01", "26-07-01", "2026-13-01",
                           "2026-00-01", "2026-02-30", "2023-02-29"})
    EXPECT_EQ(bench.Ask(Settings(std::string("<clock><date>") + date + "</date></clock>")),
              std::string("<nemra><tavo><error>Invalid date format (should be YYYY-MM-DD): ") +
                  date + "</error></tavo></nemra>");
  for (const char* time : {"12.30", "24:00:00", "23:60:00", "23:59:60", "-1:00:00"})
    EXPECT_EQ(bench.Ask(Settings(std::string("<clock><time>") + time + "</time></clock>")),
              std::string("<nemra><tavo><error>Invalid time format (should be HH:MM:SS): ") + time +
                  "</error></tavo></nemra>");
  for (const char* moment : {"<date>2024-02-29</date><time>00:00:00</time>",
                             "<date>2099-12-31</date><time>23:59:59</time>"})
    EXPECT_EQ(bench.Ask(Settings("<clock>" + std::string(moment) + "</clock>")), "");
  EXPECT_EQ(bench.Said("Set clock to: Thu Feb 29 00:00:00 2024\n").find("would set the system"),
            std::string::npos)
      << "for what was refused";
  bench.Said("Set clock to: Thu Dec 31 23:59:59 2099\n");
}

TEST(System, SettingsReachItsFilesAndSurviveARestart) {
  const TemporaryDirectory root;
  const std::string etc = root.Path() + "/etc/";
  WriteFile(etc + "network/interfaces", "auto lo\niface lo inet loopback\n");
  WriteFile(etc + "hostname", "head-1\n");
  WriteFile(etc + "sysconfig/ptpd", "PTPD_OPTS=-p\n");
  const std::string stored =
      "<network><name>head-2</name><configuration>manual</configuration>"
      "<ipaddress>10.1.2.3</ipaddress><netmask>255.255.255.0</netmask>"
      "<gateway>10.1.2.1</gateway></network>";
  {
    SystemHead bench(root.Path());
    EXPECT_EQ(bench.Ask(Settings("<network><name>&query;</name></network>")),
              Settings("<network><name>head-1</name></network>"));
    EXPECT_EQ(bench.Ask(Settings("<clock><ptp>&query;</ptp></clock>")),
              Settings("<clock><ptp>preferred</ptp></clock>"));
    EXPECT_EQ(bench.Ask(Settings(stored)), "");
    EXPECT_EQ(bench.Ask(Settings("<clock><ptp>auto</ptp></clock>")), "");
    bench.Said("would run " + root.Path() + "/etc/rc.d/init.d/ptpd restart\n");
    EXPECT_EQ(ReadFile(etc + "hostname"), "head-2\n");
    EXPECT_EQ(ReadFile(etc + "network/interfaces"),
              "auto lo\niface lo inet loopback\nauto eth0\niface eth0 inet static\n"
              "\taddress 10.1.2.3\n\tnetmask 255.255.255.0\n\tbroadcast 10.1.2.255\n"
              "\tgateway 10.1.2.1\n");
    EXPECT_EQ(ReadFile(etc + "sysconfig/ptpd"), "");

    CheckZones(bench, etc);
    CheckDatesAndTimes(bench);

    // The clock of a slave is its master's.
    EXPECT_EQ(bench.Ask(Settings("<clock><ptp>slaveonly</ptp></clock>")), "");
    EXPECT_EQ(bench.Ask(Settings("<clock><time_t>86400</time_t></clock>")), "");
    EXPECT_EQ(bench.head.Stop(), 0);
    EXPECT_EQ(bench.Said("Exiting...\n").find("Set clock"), std::string::npos);
  }
  SystemHead again(root.Path());
  EXPECT_EQ(again.Ask(Settings("<network>&query;</network>")), Settings(stored));
  EXPECT_EQ(again.Ask(Settings("<clock><zone>&query;</zone><ptp>&query;</ptp></clock>")),
            Settings("<clock><zone>America/New_York</zone></clock>") +
                Settings("<clock><ptp>slaveonly</ptp></clock>"));
  EXPECT_EQ(again.head.Stop(), 0);
}

// What a time or an offset of 32 bits would not hold: the year 2099, and a log of 3 GiB.
TEST(System, OutlivesTheYear2038AndFilesOf2GiB) {
  constexpr RecordTime kStamp = {4'083'998'400, 250'000'000};  // 2099-06-01 12:00 UTC
  constexpr std::uintmax_t kLogSize = std::uintmax_t{3} << 30;
  const TemporaryDirectory root;
  const std::string log = root.Path() + "/var/log/cal";
  const std::string settings = root.Path() + "/etc/tavo.conf";
  WriteFile(log, "timestamp\n");
  std::filesystem::resize_file(log, kLogSize);
  WriteFile(settings, "<nemra><tavo><cfg><fan_duty>33</fan_duty></cfg></tavo></nemra>");
  for (const std::string& file : {log, settings, root.Path() + "/etc"}) {
    const std::array<struct timespec, 2> times = {{{kStamp.seconds, 0}, {kStamp.seconds, 0}}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
  }

  SystemHead bench(root.Path(), {.wrapper = {"env", "TZ=UTC"}});
  EXPECT_EQ(bench.Ask(Settings("<fan_duty>&query;</fan_duty>")),
            Settings("<fan_duty>33</fan_duty>"));
  EXPECT_EQ(bench.Ask(Settings("<clock><date>2099-06-01</date><time>12:00:00</time></clock>")), "");
  EXPECT_NE(bench.Said("UTC\n").find("Set clock to: Mon Jun  1 12:00:00 2099\n"
                                     "lumet-bench: would set the system time to 4083998400\n"
                                     "lumet-bench: would set the hardware clock to 2099-6-1 "
                                     "12:0:0 UTC\n"),
            std::string::npos);

  bench.client.Set("cmd/zero_dc0", "true");
  WireSample sample;
  sample.dc = 100;
  sample.code = 3;
  RecordWriter records;
  for (int i = 0; i < 5; ++i, sample.tick += 500'000) records.Sample(kStamp, sample);
  bench.head.SignalProcessor().Send(records);
  for (const double time : {4083998400.25, 4083998400.75, 4083998401.25})
    EXPECT_EQ(bench.client.NextData()["TIME"], time);
  bench.Said("new DC0=100\n");
  EXPECT_EQ(bench.head.Stop(), 0);
  std::ifstream end(log);
  end.seekg(static_cast<std::streamoff>(kLogSize));
  const std::string line(std::istreambuf_iterator<char>(end), {});
  EXPECT_TRUE(line.ends_with("\tZero DC0\t100\t0\t\n")) << line;
}

TEST(System, WhatItRefusesIsToldAndLeavesTheOldFile) {
  const TemporaryDirectory root;
  const std::string interfaces = root.Path() + "/etc/network/interfaces";
  WriteFile(interfaces, "auto lo\n");
  SystemHead bench(root.Path());
  // Nobody can write over a directory.
  const std::string etc = root.Path() + "/etc/";
  const std::string files[] = {interfaces, etc + "hostname", etc + "sysconfig/ptpd",
                               etc + "timezone", etc + "tavo.conf"};
  std::filesystem::remove(etc + "tavo.conf");
  for (const std::string& file : files) std::filesystem::create_directory(file + ".new");
  EXPECT_EQ(bench.Ask(Settings("<fan_duty>21</fan_duty><network><name>head-3</name><gateway>"
                               "192.168.1.2</gateway><configuration>manual</configuration>"
                               "</network><clock><ptp>preferred</ptp></clock>")),
            "");
  EXPECT_EQ(bench.Ask(Settings("<clock><zone>Europe/Berlin</zone></clock>")),
            "<nemra><tavo><error>Unable to save timezone string to file: " + etc +
                "timezone: Is a directory</error></tavo></nemra>");
  for (const std::string& file : files) bench.head.WaitForLog("Unable to open: " + file + ".new\n");
  EXPECT_EQ(ReadFile(interfaces), "auto lo\n");
  for (const std::string& file : files) std::filesystem::remove(file + ".new");
  // All of it is tried again, and the zone last.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (ReadFile(etc + "timezone") != "Europe/Berlin\n" &&
         std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_TRUE(ReadFile(interfaces)
                  .ends_with("inet static\n\taddress 192.168.1.95\n"
                             "\tnetmask 255.255.255.0\n\tbroadcast 192.168.1.255\n"
                             "\tgateway 192.168.1.2\n"));
  EXPECT_EQ(ReadFile(etc + "hostname"), "head-3\n");
  EXPECT_EQ(ReadFile(etc + "sysconfig/ptpd"), "PTPD_OPTS=-p\n");
  EXPECT_NE(ReadFile(etc + "tavo.conf").find("<fan_duty>21<"), std::string::npos);

  EXPECT_EQ(bench.head.Stop(), 0);
}

TEST(System, FailuresHoldBackNothingElse) {
  const TemporaryDirectory root;
  const FreePort port;
  const Broker broker(root.Path() + "/broker", port);
  SystemHead bench(root.Path(), {.bench = {"--broker", "[::1]:" + std::to_string(port)}});
  // From the bus: an invalid date must not stay as a change that makes every later update fail.
  BusClient bus({.port = port});
  bus.WaitForHead();
  const std::string bad = Settings("<clock><date>never</date></clock>");
  bus.Publish(bus_topic::kUpdate, bad);
  bench.Said("Error with request: " + bad +
             ": Invalid date format (should be YYYY-MM-DD): never\n");
  bus.Set("cfg/network/name", "later");
  bus.WaitFor(bus_topic::kChanges, [](const BusMessage& message) {
    return message.payload.find("<name>later</name>") != std::string::npos;
  });
  EXPECT_EQ(ReadFile(root.Path() + "/etc/hostname"), "later\n");

  // The date of a time from there is today's.
  bus.Publish(bus_topic::kUpdate, Settings("<clock><time>12:34:56</time></clock>"));
  EXPECT_EQ(bench.Said("the system time to 1").find(" 1970\n"), std::string::npos);

  // What was taken before a failure reaches the files, and each failure holds back only itself.
  EXPECT_EQ(bench.Ask(Settings("<fan_duty>21</fan_duty><network><name>still-later</name></network>"
                               "<clock><date>bad</date></clock>"
                               "<network><ipaddress>junk</ipaddress></network>")),
            "<nemra><tavo><error>SocketAddress: illegal address junk</error></tavo></nemra>");
  bench.Said("ERROR: Invalid date format (should be YYYY-MM-DD): bad\n");
  EXPECT_EQ(ReadFile(root.Path() + "/etc/hostname"), "still-later\n");
  EXPECT_NE(ReadFile(root.Path() + "/etc/tavo.conf").find("<fan_duty>21<"), std::string::npos);
  EXPECT_EQ(bench.head.Stop(), 0);
}

}  // namespace
