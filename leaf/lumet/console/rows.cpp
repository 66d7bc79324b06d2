#include "leaf/lumet/console/rows.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/number_format.h"

namespace {

// The floats of a DATA row in the order of its columns; the modulation rate has none.
constexpr std::array kPrintedValues = {
    DataSample::LUMET,     DataSample::DC,      DataSample::PC,        DataSample::PFD,
    DataSample::REDMODAVG, DataSample::REDFRAC, DataSample::BLUEFRAC,  DataSample::FARREDFRAC,
    DataSample::REDDAC,    DataSample::BLUEDAC, DataSample::FARREDDAC, DataSample::MODREDDAC,
};

std::string HeadingRow(std::string_view row_name, std::span<const OutputChannel> channels,
                       std::string_view (*field)(const OutputChannel&)) {
  std::string row(row_name);
  for (const OutputChannel& channel : channels) row.append("\t").append(field(channel));
  return row + "\tCHK\n";
}

// Writes the checksum of a row, and the line feed behind it, to `at`. Returns the end.
char* PutChecksum(const char* row, const char* row_end, char* at) {
  // Eight bytes at a time, in four lanes of 16 bits. Each turn adds two bytes to every lane, which
  // has room for 128 turns; only rows of many registers take more.
  constexpr std::uint64_t kLanes = 0x00FF00FF00FF00FF;
  constexpr std::ptrdiff_t kTurns = 128;
  unsigned sum = 0;
  while (row_end - row >= 8) {
    std::uint64_t lanes = 0;
    for (std::ptrdiff_t turns = std::min((row_end - row) / 8, kTurns); turns > 0; --turns) {
      std::uint64_t bytes = 0;
      std::memcpy(&bytes, row, sizeof bytes);
      lanes += (bytes & kLanes) + (bytes >> 8 & kLanes);
      row += sizeof bytes;
    }
    sum += static_cast<unsigned>(lanes + (lanes >> 16) + (lanes >> 32) + (lanes >> 48));
  }
  for (; row != row_end; ++row) sum += static_cast<unsigned char>(*row);
  sum %= 256;
  *at++ = static_cast<char>('0' + sum / 100);
  *at++ = static_cast<char>('0' + sum / 10 % 10);
  *at++ = static_cast<char>('0' + sum % 10);
  *at++ = '\n';
  return at;
}

std::string WithChecksum(std::string row) {
  std::array<char, 4> checksum;
  PutChecksum(row.data(), row.data() + row.size(), checksum.data());
  return row.append(checksum.data(), checksum.size());
}

// Appends `value` with `precision` significant digits.
void AppendGeneral(std::string& text, double value, int precision) {
  std::array<char, 32> number;
  text.append(number.data(), PutGeneral(number.data(), value, precision));
}

std::string HexWord(std::uint16_t word) {
  std::array<char, 8> text = {};
  std::snprintf(text.data(), text.size(), "0x%04x", unsigned{word});
  return text.data();
}

}  // namespace

std::span<const OutputChannel> DataChannels() {
  static const std::array<OutputChannel, 15> channels = {{
      {"TIME", "seconds", 11},
      {"DIAG", "diag", 6},
      {"LUMET", "", 6},
      {"DC", "", 6},
      {"PC", "counts", 6},
      {"PFD", "µmol/m²/s", 6},
      {"REDMODAVG", "", 6},
      {"REDFRAC", "", 6},
      {"BLUEFRAC", "", 6},
      {"FARREDFRAC", "", 6},
      {"REDDAC", "counts", 6},
      {"BLUEDAC", "counts", 6},
      {"FARREDDAC", "counts", 6},
      {"MODREDDAC", "counts", 6},
      {"CODE", "", 6},
  }};
  return channels;
}

std::span<const OutputChannel> StatusChannels() {
  static const auto channels = [] {
    std::array<OutputChannel, 2 + kSensors.size()> all = {
        {{"TIME", "seconds", 11}, {"DIAG", "diag", 6}}};
    std::transform(kSensors.begin(), kSensors.end(), all.begin() + 2,
                   [](const SensorPlace& sensor) {
                     return OutputChannel{std::string(sensor.name), "C", 6};
                   });
    return all;
  }();
  return channels;
}

std::array<double, 15> DataValues(const DataSample& sample, std::uint32_t diag) {
  std::array<double, 15> values = {sample.time, static_cast<double>(diag)};
  std::transform(kPrintedValues.begin(), kPrintedValues.end(), values.begin() + 2,
                 [&](auto place) { return double{sample.values[place]}; });
  values.back() = sample.code;
  return values;
}

std::array<double, 2 + kSensors.size()> StatusValues(double time, std::uint32_t diag,
                                                     const BoardTemperatures& temperatures) {
  std::array<double, 2 + kSensors.size()> values = {time, static_cast<double>(diag)};
  std::copy(temperatures.begin(), temperatures.end(), values.begin() + 2);
  return values;
}

std::string StatusRow(std::span<const double> values) {
  std::string row = "DATASTAT\t";
  const std::span<const OutputChannel> channels = StatusChannels();
  for (std::size_t i = 0; i < channels.size(); ++i) {
    AppendGeneral(row, values[i], channels[i].precision);
    row += "\t";
  }
  return WithChecksum(std::move(row));
}

std::string JsonPayload(std::span<const OutputChannel> channels, std::span<const double> values) {
  std::string json;
  for (std::size_t i = 0; i < channels.size(); ++i) {
    json.append(i == 0 ? "{\"" : ",\"").append(channels[i].name).append("\":");
    AppendGeneral(json, values[i], channels[i].precision);
  }
  return json + "}";
}

std::string NamesRow(std::string_view row_name, std::span<const OutputChannel> channels) {
  return HeadingRow(row_name, channels,
                    [](const OutputChannel& channel) -> std::string_view { return channel.name; });
}

std::string UnitsRow(std::string_view row_name, std::span<const OutputChannel> channels) {
  return HeadingRow(row_name, channels,
                    [](const OutputChannel& channel) -> std::string_view { return channel.unit; });
}

std::string RegisterNamesRow(const std::map<std::uint16_t, std::uint16_t>& values) {
  std::string row = "DATATESTH\tTIME";
  for (const auto& [address, value] : values) row.append("\t").append(HexWord(address));
  return row + "\tCHK\n";
}

std::string RegisterValuesRow(const std::map<std::uint16_t, std::uint16_t>& values, double time) {
  std::string row = "DATATEST\t";
  std::array<char, kLongestFixed6> number;
  row.append(number.data(), PutFixed6(number.data(), time));
  for (const auto& [address, value] : values) row.append("\t").append(HexWord(value));
  return WithChecksum(row + "\t");
}

std::string DataMsgRow(std::string_view prefix, std::string_view text) {
  return std::string("DATAMSG\t").append(prefix).append(text).append("\n");
}

std::string OpeningBlock(std::string_view version, std::string_view host_name,
                         std::string_view serial_number,
                         const std::optional<std::string>& console_name) {
  std::string block = "DATAEVENT\tMODEL\tTAVO\n";
  block.append("DATAEVENT\tVERSION\t").append(version).append("\n");
  block.append("DATAEVENT\tNAME\t").append(host_name).append("\n");
  block.append("DATAEVENT\tSN\t").append(serial_number).append("\n");
  if (console_name)
    block.append("DATAEVENT\tCONSOLECONNECTED\t").append(*console_name).append("\n");
  else
    block.append("DATAEVENT\tCONSOLEDISCONNECTED\n");
  block.append(NamesRow("DATAH", DataChannels()));
  block.append(UnitsRow("DATAU", DataChannels()));
  return block.append(kDataDiagHeader);
}

std::string_view DataRowComposer::Compose(const DataSample& sample, std::uint32_t diag) {
  constexpr std::string_view kName = "DATA\t";
  char* to = buffer.data();
  const auto put_tab = [&](char* end) {
    *end = '\t';
    to = end + 1;
  };
  std::memcpy(to, kName.data(), kName.size());
  to += kName.size();
  put_tab(PutFixed6(to, sample.time));
  put_tab(PutUnsigned(to, diag));
  for (std::size_t i = 0; i < kPrintedValues.size(); ++i) {
    const float value = sample.values[kPrintedValues[i]];
    Column& column = columns[i];
    // By its bits, so that nan is like itself, and -0 unlike 0.
    const auto bits = std::bit_cast<std::uint32_t>(value);
    if (bits != column.bits) {
      column.bits = bits;
      column.length =
          static_cast<std::uint32_t>(PutGeneral(column.text.data(), value) - column.text.data());
    }
    // More than it takes, since a fixed size costs less.
    std::memcpy(to, column.text.data(), column.text.size());
    put_tab(to + column.length);
  }
  put_tab(PutUnsigned(to, sample.code));
  const char* end = PutChecksum(buffer.data(), to, to);
  return {buffer.data(), static_cast<std::size_t>(end - buffer.data())};
}
