#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iomanip>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include "common/bonjour_resolver.h"
#include "common/number_format.h"
#include "common/test_registry.h"
#include "leaf/lumet/bus/announcement.h"
#include "leaf/lumet/console/rows.h"
#include "leaf/lumet/light/light_quantities.h"
#include "leaf/lumet/light/timing.h"
#include "leaf/lumet/link/sample_clock.h"

void MeasurementCases();

namespace {

using self_test::ExpectEqual;
using self_test::ExpectTrue;

void LightCases() {
  LightCalibration calibration;
  calibration.red = {2, 0.5F, 100};
  calibration.blue = {4, 0.25F, 0};
  calibration.modred = {1, 2, 10};
  const struct {
    const char* name;
    float red, blue, farred, modred, pc;
    float pfd, redmodavg, redfrac, bluefrac, farredfrac;
  } rows[] = {
      {"dark", 0, 0, 0, 0, 300, 0, 0, 0, 0, 0},
      {"measuring light alone", 0, 0, 0, 510, 300, 10, 20, 0, 0, 0},
      // 300 counts / (0.5 / 2 + 0.5 / 4), and 20 of measuring light, through half the path
      {"red and blue", 1100, 1000, 0, 510, 300, 410, 20, 0.5F, 0.5F, 0},
      {"all three", 1100, 1000, 2000, 0, 300, 300.0F / 0.6875F / 2, 0, 0.25F, 0.25F, 0.5F},
      {"a source below its zero", 50, 0, 0, 0, 300, 0, 0, 0, 0, 0},
  };
  for (const auto& row : rows) {
    DataSample sample;
    auto& values = sample.values;
    values[DataSample::REDDAC] = row.red;
    values[DataSample::BLUEDAC] = row.blue;
    values[DataSample::FARREDDAC] = row.farred;
    values[DataSample::MODREDDAC] = row.modred;
    values[DataSample::PC] = row.pc;
    values[DataSample::MODRATE] = 20000;
    DeriveLightQuantities(calibration, 0.5F, sample);
    std::ostringstream derived;
    for (const auto channel : {DataSample::PFD, DataSample::REDMODAVG, DataSample::REDFRAC,
                               DataSample::BLUEFRAC, DataSample::FARREDFRAC})
      derived << values[channel] << " ";
    std::ostringstream expected;
    expected << row.pfd << " " << row.redmodavg << " " << row.redfrac << " " << row.bluefrac << " "
             << row.farredfrac << " ";
    ExpectEqual(derived.str(), expected.str(), row.name);
  }
}

// What is kept from one sample to the next changes nothing.
void LightSequenceCases() {
  LightCalibration calibration;
  calibration.red = {2.5F, 0.3F, 100};
  calibration.blue = {4.1F, 0.7F, 3};
  calibration.farred = {0.9F, 0.11F, -5};
  calibration.modred = {1.7F, 2.3F, 10};
  LightQuantities kept(calibration);
  std::mt19937 random(5);
  DataSample sample;
  for (int i = 0; i < 20'000; ++i) {
    constexpr std::array kMeasured = {DataSample::PC,        DataSample::MODRATE,
                                      DataSample::REDDAC,    DataSample::BLUEDAC,
                                      DataSample::FARREDDAC, DataSample::MODREDDAC};
    float& value = sample.values[kMeasured[random() % kMeasured.size()]];
    value = random() % 3 == 0    ? 0
            : random() % 50 == 0 ? std::bit_cast<float>(static_cast<std::uint32_t>(random()))
                                 : static_cast<float>(random() % 70'000) / 3 - 1000;
    const float transmittance = random() % 2 == 0 ? 1 : 0.7F;
    DataSample fresh = sample;
    DeriveLightQuantities(calibration, transmittance, fresh);
    kept.Derive(transmittance, sample);
    for (std::size_t place = 0; place < sample.values.size(); ++place)
      ExpectTrue(std::bit_cast<std::uint32_t>(sample.values[place]) ==
                         std::bit_cast<std::uint32_t>(fresh.values[place]) ||
                     (std::isnan(sample.values[place]) && std::isnan(fresh.values[place])),
                 "quantities of a sequence");
  }
}

// Times are the sums of doubles, whatever way they are worked out.
void ClockCases() {
  std::mt19937_64 random(3);
  for (const std::uint32_t second : {5U, 1'073'741'000U, 1'795'235'804U, 2'147'480'000U}) {
    SampleClock clock;
    const auto nanoseconds = static_cast<std::int32_t>(random() % 1'000'000'000);
    const RecordTime stamp = {second, nanoseconds};
    const double start = clock.Synchronise(0, stamp);
    for (int i = 0; i < 20'000; ++i) {
      const auto tick = static_cast<std::uint32_t>(random() % 0xFF676980);
      ExpectTrue(clock.Unwrap(tick) == start + tick / 1e6, "time of tick " + std::to_string(tick));
    }
  }
}

// Six digits of floats where they are hardest: at powers of ten, in ties, and the smallest.
void NumberCases() {
  const auto check = [](float value) {
    std::array<char, 32> text;
    std::array<char, 32> expected;
    std::snprintf(expected.data(), expected.size(), "%g", double{value});
    *PutFloat(text.data(), value) = '\0';
    ExpectEqual(std::string(text.data()), std::string(expected.data()));
  };
  const auto with_neighbours = [&](float value) {
    for (const float next : {std::nextafter(value, 0.0F), value, std::nextafter(value, INFINITY)})
      check(next);
  };
  for (int exponent = -45; exponent <= 38; ++exponent)
    for (const double digits : {1.0, 9.999995, 9.99999, 1.000005, 2.5})
      with_neighbours(static_cast<float>(digits * std::pow(10, exponent)));
  for (unsigned i = 0; i < 20'000; ++i) {
    check(static_cast<float>(2 * i + 1) / 4 + 50'000);
    check(static_cast<float>(10 * i + 5) + 1'000'000);
    check(static_cast<float>(2 * i + 1) / 2 + 300'000);
    check(std::bit_cast<float>(i * i / 3));
  }
}

// The checksum that ends a row, added up byte by byte.
std::string Checksum(const std::string& row) {
  unsigned sum = 0;
  for (const char byte : row) sum += static_cast<unsigned char>(byte);
  std::ostringstream text;
  text << std::setfill('0') << std::setw(3) << sum % 256 << "\n";
  return text.str();
}

// The row as a string stream writes it, but for the sign of nan.
std::string StreamedRow(const DataSample& sample, std::uint32_t diag) {
  std::ostringstream row;
  row << "DATA\t" << std::fixed << std::setprecision(6) << sample.time << "\t";
  row << std::defaultfloat << diag << "\t";
  for (std::size_t i = 0; i < sample.values.size(); ++i) {
    if (i == DataSample::MODRATE) continue;
    const double value = sample.values[i];
    row << (std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value) << "\t";
  }
  row << static_cast<int>(sample.code) << "\t";
  return row.str() + Checksum(row.str());
}

void RowCases() {
  DataRowComposer composer;
  DataSample sample;
  sample.time = 1795235804.0800435;
  sample.values = {400.766F, 590.562F, 330.43F, 1e6F, 999999.5F, 1.0F / 3, -0.0F,
                   1e-5F,    1000,     20000,   2000, 0,         65520};
  sample.code = 65535;
  ExpectEqual(std::string(composer.Compose(sample, 0x8C00)),
              "DATA\t1795235804.080044\t35840\t400.766\t590.562\t330.43\t1e+06\t1e+06\t0.333333\t-0"
              "\t1e-05\t20000\t2000\t0\t65520\t65535\t098\n");

  // Any bits at all may come from the processor.
  std::mt19937_64 random(7);
  for (int i = 0; i < 20'000; ++i) {
    const std::uint64_t bits = random();
    sample.time = i % 100 == 0 ? std::numeric_limits<double>::lowest()
                  : i % 2 == 0 ? 1.7e9 + static_cast<double>(bits % 1'000'000'000'000) / 4096
                               : std::bit_cast<double>(bits >> 1 & 0x41FFFFFFFFFFFFFF);
    for (float& value : sample.values)
      value = i % 3 == 0 ? static_cast<float>(random() % 100'000'000) / 1000
                         : std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    sample.code = static_cast<std::uint16_t>(random());
    const auto diag = static_cast<std::uint32_t>(random());
    ExpectEqual(std::string(composer.Compose(sample, diag)), StreamedRow(sample, diag));
  }
}

void PayloadCases() {
  const auto status = StatusValues(12.5, 0x1000, {40.25F, 0, -3, 51, 5});
  ExpectEqual(JsonPayload(StatusChannels(), status),
              R"({"TIME":12.5,"DIAG":4096,"TDigital":40.25,"TPreamp":0,"TPowerSupply":-3,)"
              R"("TDrive":51,"TLEDTile":5})");
  ExpectEqual(StatusRow(status), "DATASTAT\t12.5\t4096\t40.25\t0\t-3\t51\t5\t091\n");

  // Which sign it has, and whether one shows, is a matter of the processor.
  const double nan = -std::numeric_limits<double>::quiet_NaN();
  const auto nowhere = StatusValues(nan, 0, {static_cast<float>(nan), -INFINITY, 1e-5F, 1e6F, 0});
  const std::string row = "DATASTAT\tnan\t0\tnan\t-inf\t1e-05\t1e+06\t0\t";
  ExpectEqual(StatusRow(nowhere), row + Checksum(row));
  ExpectEqual(JsonPayload(StatusChannels(), nowhere),
              R"({"TIME":nan,"DIAG":0,"TDigital":nan,"TPreamp":-inf,"TPowerSupply":1e-05,)"
              R"("TDrive":1e+06,"TLEDTile":0})");

  // However many registers there are.
  std::map<std::uint16_t, std::uint16_t> registers;
  std::string text = "DATATEST\t1795248523.250000";
  for (unsigned address = 0; address < 65536; ++address) {
    if (address < 1000 || address == 65535) {
      const std::string row_so_far = text + "\t";
      ExpectEqual(RegisterValuesRow(registers, 1795248523.25), row_so_far + Checksum(row_so_far),
                  std::to_string(address) + " registers");
    }
    registers[static_cast<std::uint16_t>(address)] = 0xFFFF;
    text += "\t0xffff";
  }
  ExpectEqual(RegisterValuesRow({}, nan), "DATATEST\tnan\t" + Checksum("DATATEST\tnan\t"));
}

void OutputRateCases() {
  const struct {
    unsigned modulation_rate, requested, expected;
  } rows[] = {
      {250000, 250000, 250000},
      {250000, 25000, 25000},
      {250000, 2500, 2500},
      {250000, 250, 250},
      {250000, 25, 25},
      {250000, 2, 2},
      {250000, 1, 1},
      {250000, 0, 1},
      {250000, 200000, 250000},
      {250000, 300000, 250000},
      {250000, 3, 4},
      {30000, 3, 3},
      {30000, 30, 30},
      {30000, 300, 300},
      {30000, 3000, 3000},
      {30000, 30000, 30000},
      {30000, 301, 375},
      {250, 249, 250},
      {250, 251, 250},
      {250, 126, 250},
      {250, 125, 125},
      {250, 124, 125},
      {1, 1, 1},
      {1, 2, 1},
      {2, 2, 2},
      {2, 3, 2},
  };
  for (const auto& row : rows)
    ExpectEqual(ComputeOutputRate(row.modulation_rate, row.requested), row.expected,
                std::to_string(row.modulation_rate) + " " + std::to_string(row.requested));
}

// Of all services around, the head follows that of its own console unit alone.
void ConsoleUnitCases() {
  const struct {
    const char* address;
    TxtMap txt;
    const char* broker;
  } rows[] = {
      {"fe80::b", {{"chamber", "tvf-0042"}}, "fe80::b%eth0"},
      {"fe80::b", {{"chamber", "TVF-0043"}}, ""},
      {"fe80::b", {{"model", "TVF-0042"}}, ""},
      {"2001:db8::b", {{"chamber", "TVF-0042"}}, ""},
      {"169.254.0.7", {{"chamber", "TVF-0042"}}, ""},
  };
  for (const auto& row : rows)
    ExpectEqual(BrokerOfOwnConsoleUnit(SocketAddress(row.address), row.txt, "TVF-0042", "eth0")
                    .value_or(""),
                row.broker, row.address);

  BonjourResolver services;
  services.ServiceFound("Unit", "_a._tcp", "local", 2, "unit.local", SocketAddress("10.0.0.1"),
                        {{"a", "1"}});
  const auto unit = services.Find("Unit");
  services.ServiceFound("Unit", "_a._tcp", "local", 2, "unit.local", SocketAddress("fe80::b"),
                        {{"a", "2"}});
  services.ServiceFound("Unit", "_a._tcp", "local", 2, "unit.local", SocketAddress("10.0.0.1"),
                        {{"a", "2"}});
  ExpectEqual(unit->addresses.size(), std::size_t{2});
  ExpectEqual(unit->txt.at("a"), "2");
  services.ServiceRemoved("Unit", "_a._tcp", "local");
  ExpectTrue(services.Find("Unit") == nullptr && unit->host_name == "unit.local", "removed");
}

}  // namespace

void MeasurementCases() {
  LightCases();
  LightSequenceCases();
  ClockCases();
  NumberCases();
  RowCases();
  PayloadCases();
  OutputRateCases();
  ConsoleUnitCases();
}
