#include <sys/resource.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "common/base64.h"
#include "common/temporary_directory.h"
#include "common/test_registry.h"
#include "common/zlib.h"
#include "leaf/lumet/board/diagnostics.h"
#include "leaf/lumet/board/hw_mon.h"
#include "leaf/lumet/board/run_time_event_logger.h"
#include "leaf/lumet/light/light_controller.h"
#include "leaf/lumet/light/zeroing.h"
#include "leaf/lumet/link/raw_capture.h"

void MonitorCases();

namespace {

using self_test::ExpectEqual;
using self_test::ExpectTrue;

void ControllerCases() {
  DocTavo doc;
  LumetLightController controller(doc, false);
  ConfigLightSourceTavo& light = doc.Conf().Cfg().Lightsource();
  ConfigurableInteger& outrate = doc.Conf().Cfg().Measure().Outrate();
  light.Control().set(ConfigLightSourceModeTavo::Setpoint);
  light.RedMix().set(3);
  // With all calibration at its default, counts are flux.
  const auto feed = [&](float setpoint, int rate, float q, int samples) {
    doc.set_changed(false);
    light.QSetpoint().set(setpoint);
    outrate.set(rate);
    doc.notify_if_changed();
    std::string updates;
    for (int i = 0; i < samples; ++i) updates += controller.Step(q) ? "!" : ".";
    return updates + std::to_string(controller.GetDac(0));
  };
  doc.notify();
  const struct {
    const char* name;
    float setpoint;
    int rate;
    float q;
    int samples;
    const char* expected;
  } rows[] = {
      {"an error of 100: integral 50, drive (500 + 100) / 10", 100, 10, 0, 5, "....!60"},
      {"an error of 60: integral 80, drive (800 + 60) / 10", 100, 10, 40, 10, "....!....!116"},
      {"no error at another rate: the integral term, of 110, stays", 100, 9, 100, 4, "...!110"},
      {"beyond the DAC: the integral stays behind", 1e9F, 9, 100, 4, "...!65535"},
      {"and back", 100, 9, 100, 4, "...!110"},
      {"no number", std::nanf(""), 9, 100, 4, "...!0"},
      {"and back again", 100, 9, 100, 4, "...!110"},
      {"off tells so once", 0, 9, 100, 3, "!..0"},
  };
  for (const auto& row : rows)
    ExpectEqual(feed(row.setpoint, row.rate, row.q, row.samples), row.expected, row.name);
  light.Control().set(ConfigLightSourceModeTavo::Percent);
  doc.notify();
  ExpectEqual(feed(100, 10, 0, 6), "......0", "not in charge");
}

void DiagnosticsCases() {
  const struct {
    float temperature;
    bool console;
    std::uint32_t expected;
  } steps[] = {{69.9F, false, 0x2000}, {70, true, 0x3001},  {74.9F, true, 0x3001},
               {75, false, 0xB000},    {72, false, 0xB000}, {70, false, 0xB000},
               {69.9F, true, 0x2001},  {-40, false, 0x2000}};
  std::uint32_t diag = REDMODOFF;
  for (const auto& step : steps) {
    diag = NextDiagnostics(diag, step.console, step.temperature);
    ExpectEqual(diag, step.expected, std::to_string(step.temperature));
  }
  const struct {
    int step;
    float temperature;
    int next;
  } fan[] = {{0, 32, 0}, {0, 32.1F, 1}, {0, 90, 1},    {1, 28, 1},  {1, 27.9F, 0},
             {1, 42, 1}, {1, 42.1F, 2}, {3, 47.9F, 2}, {3, 100, 3}, {0, -20, 0}};
  for (const auto& row : fan)
    ExpectEqual(FanStepper::NextStep(row.step, row.temperature), row.next,
                std::to_string(row.step) + " at " + std::to_string(row.temperature));
}

void ZeroingCases() {
  DocTavo doc;
  const Machine machine;
  Zeroing zeroing(doc, "", machine);
  const auto feed = [&](std::uint16_t code, float dc, float pc, int samples) {
    std::string taken;
    for (int i = 0; i < samples; ++i) taken += zeroing.Take(0, dc, pc, code).value_or(".");
    return taken + std::to_string(doc.Conf().Cal().DC0().get()) + " " +
           std::to_string(doc.Conf().Cal().Pc0().get());
  };
  ExpectEqual(feed(3, 12.5F, 7, 6), "......0 0", "not armed");
  zeroing.ArmDC0();
  feed(3, 12.5F, 7, 4);
  feed(1, 99, 99, 2);
  ExpectEqual(feed(3, 12.5F, 7, 2), "DC0.13 0", "the fifth sample of flashes, in the second");
  zeroing.ArmDC0();
  feed(3, 0, 0, 3);
  zeroing.ArmPc0();
  ExpectEqual(feed(3, 5, -12.5F, 5), "....Pc013 -13", "one takes the place of the other");
  zeroing.ArmDC0();
  ExpectEqual(feed(3, 0.4F, 0, 5), "....DC013 -13");
  zeroing.ArmDC0();
  ExpectEqual(feed(3, std::nanf(""), 0, 5), "....DC013 -13");
}

// The kernel's files, with what is written to them.
void SensorCases() {
  const TemporaryDirectory directory;
  Machine machine;
  int rights = 0;
  machine.set_effective_user = [&](uid_t) {
    ++rights;
    return 0;
  };
  for (const char* name : {"49", "4a", "4b", "4c"})
    directory.Write(std::string("i2c-1/1-00") + name + "/temp1_input",
                    name == std::string("4b") ? "x" : "41500\n");
  HWMon sensors(directory.Path(), machine);
  ExpectEqual(sensors.MaxTemperature(), 0.0F, "before the first pass");
  sensors.Expired();
  ExpectTrue(sensors.Temperatures() == BoardTemperatures{41.5F, 41.5F, 0, 41.5F, 0}, "a pass");
  ExpectEqual(directory.Read("i2c-1/new_device"), "lm75 0x4d", "the one that is missing");
  ExpectTrue(!std::filesystem::exists(directory.Path() + "/i2c-1/delete_device"),
             "nothing to delete");
  std::filesystem::create_directories(directory.Path() + "/i2c-1/1-004d");
  sensors.Expired();
  ExpectEqual(directory.Read("i2c-1/delete_device"), "0x4d", "a device without its file");
  ExpectEqual(rights, 4, "rights taken and given back, twice");
  directory.Write("i2c-1/1-004d/temp1_input", "-12500\n");
  directory.Write("i2c-1/1-0049/temp1_input", "");
  directory.Write("i2c-1/1-004a/temp1_input", "62000\n");
  sensors.Expired();
  ExpectTrue(sensors.Temperatures() == BoardTemperatures{41.5F, 62, 0, 41.5F, -12.5F},
             "what can't be read stays");
  ExpectEqual(sensors.MaxTemperature(), 62.0F);
  ExpectEqual(rights, 4);
}

// The bytes of a capture from its rows.
std::vector<std::uint8_t> Unpacked(const std::string& rows) {
  std::vector<std::uint8_t> packed;
  std::istringstream lines(rows);
  for (std::string line; std::getline(lines, line);) {
    ExpectTrue(line.starts_with("DATAFLRAW\t"), line);
    const std::string text = line.substr(line.find('\t') + 1);
    ExpectEqual(Base64AppendDecoded(text, packed), text.size(), "whole groups");
  }
  return ZlibInflate(packed);
}

// The rows of a capture that comes in records, as from the processor.
std::string Captured(RawCapture& capture, std::span<const std::uint8_t> bytes) {
  std::string rows;
  for (std::span<const std::uint8_t> rest = bytes; !rest.empty();) {
    const auto record = rest.first(std::min<std::size_t>(rest.size(), 396));
    rows += capture.Take(record);
    rest = rest.subspan(record.size());
  }
  ExpectTrue(bytes.size() > 400 || rows.empty(), "small records pile up");
  rows += capture.Take({});
  ExpectTrue(rows.ends_with("\nDATAFLRAW\t\n"), "the empty row");
  return rows;
}

// Words of a detector at rest: bytes on the edge of what can be compressed, in runs of every
// length, so that the compressor's output comes in pieces of every size.
void RawCaptureCases() {
  constexpr std::size_t kLargest = 2'000'000;
  RawCapture capture;
  for (unsigned seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    // Most are small enough to have this over soon.
    const std::size_t most = seed % 4 == 0 ? kLargest : kLargest / 20;
    std::normal_distribution<float> words(2000, std::array{3.0F, 30.0F, 300.0F}[seed % 3]);
    std::vector<std::uint8_t> bytes(random() % most);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
      const auto word = static_cast<unsigned>(words(random));
      bytes[i] = static_cast<std::uint8_t>(word);
      bytes[i + 1] = static_cast<std::uint8_t>(word >> 8);
    }
    ExpectTrue(Unpacked(Captured(capture, bytes)) == bytes,
               std::to_string(bytes.size()) + " bytes of seed " + std::to_string(seed));
  }
  for (const std::size_t size : {396U, 1U, 0U})
    ExpectEqual(Unpacked(Captured(capture, std::vector<std::uint8_t>(size, 7))).size(), size);
}

void CounterCases() {
  const TemporaryDirectory directory;
  const std::string path = directory.Path() + "/log";
  const struct {
    const char* before;
    const char* after;  // the last line, up to its timestamp
  } rows[] = {
      {"", R"({"event_id":1,"powercycle_count":1,"runtime_minutes":0,)"},
      {"{\"event_id\":41,\"powercycle_count\":5,\"runtime_minutes\":90}\n",
       R"({"event_id":42,"powercycle_count":6,"runtime_minutes":90,)"},
      {"{\"event_id\":41}\n{\"powercycle_count\":\"x\",\"runtime_minutes\":3}\n",
       R"({"event_id":1,"powercycle_count":1,"runtime_minutes":3,)"},
      // Torn lines.
      {"{\"event_id\":41,\"powercycle_count\":5}\n[1]\n\n{\"event_id\":4",
       R"({"event_id":42,"powercycle_count":6,)"},
      {"{\"event_id\":41,\"powercycle_count\":5}\n{\"event_id\":44,\"pow{\"event_id\":43}\n",
       R"({"event_id":45,"powercycle_count":6,)"},
      {"{\"event_id\":44,\"powercycle_c",
       R"({"event_id":45,"powercycle_count":1,"runtime_minutes":0,)"},
  };
  for (const auto& row : rows) {
    directory.Write("log", row.before);
    { RunTimeEventLogger(path).NextValue("event_id"); }
    std::istringstream file(directory.Read("log"));
    std::string last;
    for (std::string line; std::getline(file, line);) last = line;
    ExpectEqual(last.substr(0, last.find("\"timestamp\"")), row.after, row.before);
  }

  // What is torn stands alone, and a disk that is full for a while costs the lines of that while.
  const std::string torn = "{\"event_id\":41}\n" + std::string(5000, 'x');
  directory.Write("log", torn);
  struct rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  {
    const struct rlimit full = {torn.size() + 10, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    const RunTimeEventLogger logger(path);
    setrlimit(RLIMIT_FSIZE, &before);
  }
  const std::string start = torn + "\n{\"event_i\n{\"event_id\":41,";
  ExpectEqual(directory.Read("log").substr(0, start.size()), start);
}

}  // namespace

void MonitorCases() {
  ControllerCases();
  DiagnosticsCases();
  ZeroingCases();
  SensorCases();
  RawCaptureCases();
  CounterCases();
}
