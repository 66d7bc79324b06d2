#include "leaf/lumet/console/rows.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iomanip>
#include <limits>
#include <map>
#include <random>

#include "common/number_format.h"
#include "common/test_registry.h"

namespace {

using namespace self_test;

// Six digits of floats where they are hardest: at powers of ten, in ties, and the smallest.
void NumberCases() {
  const auto check = [](float value) {
    std::array<char, 32> text;
    std::array<char, 32> expected;
    std::snprintf(expected.data(), expected.size(), "%g", double{value});
    *PutFloat(text.data(), value) = '\0';
    ExpectEqual(std::string(text.data()), std::string(expected.data()));
  };
  for (int exponent = -45; exponent <= 38; ++exponent) {
    for (const double digits : {1.0, 9.999995, 9.99999, 1.000005, 2.5}) {
      const auto value = static_cast<float>(digits * std::pow(10, exponent));
      for (const float near : {std::nextafter(value, 0.0F), value, std::nextafter(value, INFINITY)})
        check(near);
    }
  }
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

}  // namespace

void RowsCases() {
  NumberCases();
  RowCases();
  PayloadCases();
}
