#include "leaf/lumet/console/rows.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <memory>
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

// Writes the checksum of a row, and the line feed after it, to `at`. Returns the end.
char* PutChecksum(const char* row, const char* row_end, char* at) {
  // A word at a time, in lanes of 16 bits. Each turn adds two bytes to every lane, which has room
  // for 128 turns; only rows of many registers take more.
  using Word = std::size_t;
  constexpr auto kLanes = static_cast<Word>(0x00FF00FF00FF00FF);
  constexpr std::ptrdiff_t kTurns = 128;
  constexpr std::ptrdiff_t kBytes = sizeof(Word);
  unsigned sum = 0;
  for (; row != row_end && reinterpret_cast<std::uintptr_t>(row) % kBytes != 0; ++row)
    sum += static_cast<unsigned char>(*row);
  while (row_end - row >= kBytes) {
    Word lanes = 0;
    for (std::ptrdiff_t turns = std::min((row_end - row) / kBytes, kTurns); turns > 0; --turns) {
      Word bytes = 0;
      std::memcpy(&bytes, std::assume_aligned<sizeof(Word)>(row), sizeof bytes);
      lanes += (bytes & kLanes) + (bytes >> 8 & kLanes);
      row += kBytes;
    }
    for (int lane = 0; lane < kBytes * 8; lane += 16) sum += static_cast<unsigned>(lanes >> lane);
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

DataRowComposer::DataRowComposer() {
  // The columns of a sample of zeros.
  for (std::size_t i = 0; i <= kColumns; ++i) {
    rows[0].text[2 * i] = '0';
    rows[0].text[2 * i + 1] = '\t';
    rows[0].places[i] = static_cast<std::uint32_t>(2 * i);
  }
}

char* DataRowComposer::PutTime(Row& row, const Row& before, double time) {
  constexpr std::string_view kName = "DATA\t";
  constexpr std::size_t kSeconds = 16;  // the name, ten digits, and the point
  char* const text = row.text.data();
  std::uint32_t whole = 0;
  std::uint32_t micros = 0;
  if (!SplitMicros(time, whole, micros)) {
    fraction_place = 0;
    std::memcpy(text, kName.data(), kName.size());
    return PutFixed6(text + kName.size(), time);
  }
  if (whole == seconds && fraction_place != 0) {
    std::memcpy(text, before.text.data(), kSeconds);
  } else {
    std::memcpy(text, kName.data(), kName.size());
    char* const point = PutUnsigned(text + kName.size(), whole);
    *point = '.';
    fraction_place = static_cast<std::uint32_t>(point + 1 - text);
    seconds = whole;
  }
  PutSixDigits(text + fraction_place, micros);
  return text + fraction_place + 6;
}

std::string_view DataRowComposer::Compose(const DataSample& sample, std::uint32_t diag) {
  const Row& before = rows[latest];
  latest = 1 - latest;
  Row& row = rows[latest];
  char* const text = row.text.data();
  char* to = PutTime(row, before, sample.time);
  *to++ = '\t';

  // By their bits, so that NaN equals itself and -0 differs from 0.
  Columns news;
  news.front() = diag;
  for (std::size_t i = 0; i < kPrintedValues.size(); ++i)
    news[i + 1] = std::bit_cast<std::uint32_t>(sample.values[kPrintedValues[i]]);
  news.back() = sample.code;

  for (std::size_t i = 0; i < kColumns;) {
    const auto place = static_cast<std::uint32_t>(to - text);
    if (news[i] != columns[i]) {
      row.places[i] = place;
      to = i == 0 || i == kColumns - 1 ? PutUnsigned(to, news[i])
                                       : PutFloat(to, std::bit_cast<float>(news[i]));
      *to++ = '\t';
      ++i;
      continue;
    }
    const std::uint32_t from = before.places[i];
    for (; i < kColumns && news[i] == columns[i]; ++i)
      row.places[i] = before.places[i] + (place - from);
    const std::size_t length = before.places[i] - from;
    std::memcpy(to, before.text.data() + from, length);
    to += length;
  }
  row.places[kColumns] = static_cast<std::uint32_t>(to - text);
  columns = news;
  const char* const end = PutChecksum(text, to, to);
  return {text, static_cast<std::size_t>(end - text)};
}
