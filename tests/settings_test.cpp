// The settings files of a head.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>

#include "bench/bench_instrument.h"
#include "bench/head.h"
#include "client/console.h"
#include "common/little_endian.h"
#include "leaf/lumet/board/settings_files.h"
#include "leaf/lumet/link/recording.h"
#include "leaf/lumet/version.h"

namespace {

ino_t Inode(const std::string& path) {
  struct stat status = {};
  stat(path.c_str(), &status);
  return status.st_ino;
}

// The head saves after it has told the processor.
bool Appears(const std::string& path) {
  for (const Deadline deadline(kDefaultTimeout); !std::filesystem::exists(path);)
    if (deadline.IsOver()) return false;
  return true;
}

// DC0 and the bias of red that the processor is told next.
std::string NextBias(Processor& processor) {
  std::string found;
  while (found.empty()) {
    const std::string packet = processor.ReadPacket();
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(packet.data()), packet.size());
    ForEachRecord(bytes, [&](const RecordHeader& header, std::span<const std::uint8_t> payload) {
      if (static_cast<DSPCode>(header.code) == DSPCode::SetBiasConfig)
        found = std::to_string(GetF32(&payload[48])) + " " + std::to_string(GetU16(&payload[64]));
    });
  }
  return found;
}

SettingsFiles::Paths PathsOf(const Instrument& instrument) {
  return {instrument.factory_settings, instrument.cal_settings, instrument.main_settings};
}

TEST(Settings, AreReadAtTheStartAndAgainOnDemand) {
  const TemporaryDirectory root;
  const std::string etc = root.Path() + "/etc/";
  WriteFile(etc + "factorytavo.conf",
            "<nemra><tavo><factory><serialnumber>TVF-0042</serialnumber><calibration>"
            "<F_modred>2</F_modred></calibration><bias><red_bias>100</red_bias></bias></factory>"
            "</tavo></nemra>\n");
  WriteFile(etc + "caltavo.conf",
            "<nemra><tavo><cal><DC0>-7</DC0></cal></tavo></nemra>\n<nemra><tavo><history><record>"
            "<time>2026-01-02 03:04:05</time></record></history></tavo></nemra>\n");
  // What is masked is passed over, and what follows the damage is lost.
  WriteFile(etc + "tavo.conf",
            "<nemra><tavo><ver>9</ver><cal><DC0>5</DC0></cal><cmd><reboot>true</reboot></cmd><cfg>"
            "<fan_duty>77</fan_duty><fan_mode>fast</fan_mode></cfg></tavo></other>");
  Head head(root.Path(), Head::PlayedBy::kCaller, {.lumet = {"-d"}});
  EXPECT_EQ(NextBias(head.SignalProcessor()), "-7.000000 100");
  ConsoleClient client(head.Port());
  EXPECT_EQ(client.Head().serial_number, "TVF-0042");
  const std::string dump = head.WaitForLog("<F_red units");
  const std::string version = "<ver>" + std::string(kLumetVersion) + "</ver>";
  for (const std::string_view part :
       {std::string_view("<Error Param=\"fan_mode\">invalid option: fast\n</Error>"),
        std::string_view("<fan_duty>77</fan_duty>"), std::string_view(version),
        std::string_view("<time>2026-01-02 03:04:05</time>"),
        std::string_view("<error>Test error message</error>"), std::string_view("<ack>true</ack>")})
    EXPECT_NE(dump.find(part), std::string::npos) << part;

  // Measuring light of 100 counts at 1 Hz, with the calibration that was read.
  RecordWriter records;
  WireSample sample;
  sample.code = 1;
  sample.modred_dac = 1e6;
  sample.modulation_rate = 1;
  records.Sample(StampNow(), sample);
  head.SignalProcessor().Send(records);
  const DataRow row = client.NextData();
  EXPECT_EQ(row["PFD"], 2);
  EXPECT_EQ(row["REDMODAVG"], 2);
  EXPECT_EQ(row["REDFRAC"] + row["BLUEFRAC"] + row["FARREDFRAC"], 0);
  // With the calibration of the moment: a standing query may write it.
  LineClient writer(head.Port());
  writer.Send(
      "<nemra><tavo><factory><calibration><F_modred>3</F_modred></calibration></factory>"
      "</tavo>&query_changes;</nemra>\n"
      "<nemra><tavo><cfg><fan_duty>1</fan_duty></cfg></tavo></nemra>\n");
  writer.ReadLineThatBegins("<nemra><tavo><ack>");
  records.Sample(StampNow(), sample);
  head.SignalProcessor().Send(records);
  EXPECT_EQ(client.NextData()["PFD"], 3);

  WriteFile(etc + "factorytavo.conf",
            "<nemra><tavo><factory><bias><red_bias>200</red_bias></bias></factory></tavo></nemra>");
  std::string log;
  EXPECT_EQ(RunLumetOnce(root.Path(), {"-r"}, log), 0);
  EXPECT_EQ(NextBias(head.SignalProcessor()), "-7.000000 200");
  EXPECT_EQ(head.Stop(), 0);
}

TEST(Settings, AreWrittenOnceAndWithoutWhatIsMasked) {
  const TemporaryDirectory root;
  const std::string path = root.Path() + "/etc/tavo.conf";
  ino_t first = 0;
  for (int start = 0; start < 2; ++start) {
    Head head(root.Path(), Head::PlayedBy::kCaller);
    head.SignalProcessor().ReadPacket();
    ASSERT_TRUE(Appears(path));
    EXPECT_EQ(head.Stop(), 0);
    // The second start finds the file as it is and leaves it alone.
    if (start == 0)
      first = Inode(path);
    else
      EXPECT_EQ(Inode(path), first);
  }
  const std::string written = ReadFile(path);
  EXPECT_TRUE(written.starts_with("\n<nemra>\n\t<tavo>\n\t\t<ack>true</ack>\n\t\t<output>"));
  EXPECT_TRUE(written.ends_with("\t</tavo>\n</nemra>\n"));
  for (const char* masked : {"<ver", "<fpga", "<dsp", "<name", "<ipaddress", "<serialnumber",
                             "<cmd", "<clock", "<network", "<cal>", "<history", "<factory"})
    EXPECT_EQ(written.find(masked), std::string::npos) << masked;
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(Settings, KeepWhatTheyCouldNotRead) {
  const std::string factory =
      "<nemra><tavo><factory><calibration><F_red>2</F_red></calibration></factory></tavo></nemra>";
  const std::string zeros = "<nemra><tavo><cal><DC0>1</DC0></cal></tavo></nemra>";
  const std::string history = "<nemra><tavo><history/></tavo></nemra>";
  const auto with = [](std::string text, const std::string& part, const std::string& other) {
    return text.replace(text.find(part), part.size(), other);
  };
  const struct {
    const char* name;
    std::string factory;
    std::string cal;
    bool is_kept;
  } rows[] = {
      {"whole", factory, zeros + history, false},
      {"no history, and a value that is none", with(factory, "2", "x"), zeros, false},
      {"end tags that are none", with(factory, "/calibration", "/callibration"),
       with(zeros, "/nemra", "/nemr"), true},
      {"cut off", factory.substr(0, factory.size() - 9), zeros + history.substr(0, 20), true},
      {"other roots", with(factory, "nemra", "nemrb"), with(zeros, "<nemra", "<nem<ra"), true},
      {"what throws",
       with(factory, "<factory>", "<cfg><network><gateway>x</gateway></network></cfg>"),
       zeros + "<", true},
  };
  for (const auto& row : rows) {
    const TemporaryDirectory root;
    const Instrument instrument = BenchInstrument(root.Path());
    const Machine machine = BenchMachine(instrument);
    WriteFile(instrument.factory_settings, row.factory);
    WriteFile(instrument.cal_settings, row.cal);
    DocTavo doc;
    SettingsFiles files(doc, PathsOf(instrument), machine);
    testing::internal::CaptureStdout();
    files.load_factory();
    files.load_cal();
    testing::internal::GetCapturedStdout();
    for (int i = 1; i < 3; ++i) {
      doc.Conf().Factory().Serialnumber().set("TVF-" + std::to_string(i));
      doc.Conf().Cal().Pc0().set(i);
      files.save_factory();
      files.save_cal();
    }
    EXPECT_NE(ReadFile(instrument.factory_settings).find("TVF-2"), std::string::npos) << row.name;
    EXPECT_EQ(ReadFile(instrument.factory_settings + ".bad"), row.is_kept ? row.factory : "")
        << row.name;
    EXPECT_EQ(ReadFile(instrument.cal_settings + ".bad"), row.is_kept ? row.cal : "") << row.name;
  }
}

TEST(Settings, CountAsMissingWhenTheyCantBeRead) {
  const TemporaryDirectory root;
  const std::string etc = root.Path() + "/etc/";
  for (const char* name : {"tavo.conf", "caltavo.conf", "factorytavo.conf"})
    std::filesystem::create_directories(etc + name);
  Head head(root.Path(), Head::PlayedBy::kCaller);
  EXPECT_EQ(NextBias(head.SignalProcessor()), "0.000000 3375");
  EXPECT_TRUE(Appears(etc + "tavo.conf.bad/") && Appears(etc + "tavo.conf"));
  EXPECT_NE(ReadFile(etc + "tavo.conf").find("<lightsource>"), std::string::npos);
  std::filesystem::remove(etc + "factorytavo.conf");
  std::filesystem::create_directory(etc + "factorytavo.conf");
  kill(head.Pid(), SIGUSR1);
  EXPECT_EQ(NextBias(head.SignalProcessor()), "0.000000 3375");
  EXPECT_EQ(head.Stop(), 0);
}

TEST(Settings, KeepTheirMaskWhenRightsAreRefused) {
  const TemporaryDirectory root;
  const Instrument instrument = BenchInstrument(root.Path());
  Machine machine = BenchMachine(instrument);
  machine.set_effective_user = [](uid_t) {
    errno = EPERM;
    return -1;
  };
  DocTavo doc;
  SettingsFiles files(doc, PathsOf(instrument), machine);
  files.load_main([] {});
  doc.Conf().Cfg().FanDuty().set(2);
  try {
    files.save_main();
    ADD_FAILURE() << "saved without rights";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Unable to gain super user priviledges: Operation not permitted");
  }
  EXPECT_TRUE(doc.Conf().Cfg().Clock().has_flag(Configurable::Active)) << "what was masked is not";
}

}  // namespace
