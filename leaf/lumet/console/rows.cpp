#include "leaf/lumet/console/rows.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "common/number_format.h"

namespace {

char* PutWhole(char* to, std::uint32_t value) {
  return std::to_chars(to, to + std::numeric_limits<std::uint32_t>::digits10 + 1, value).ptr;
}

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

// Writes the checksum of a row, which has ASCII characters alone, and the line feed after it to
// `at`. Returns the end.
char* PutChecksum(const char* row, const char* row_end, char* at) {
  // Two words at a time, whose bytes are below 128 and so fit a byte when they are added, into
  // lanes of 16 bits. After 32 turns all lanes together still fit one.
  using Word = std::size_t;
  constexpr auto kLanes = static_cast<Word>(0x00FF00FF00FF00FF);
  constexpr auto kOnes = static_cast<Word>(0x0001000100010001);
  constexpr std::ptrdiff_t kTurns = 32;
  constexpr std::ptrdiff_t kBytes = sizeof(Word);
  const auto word = [](const char* from) {
    Word bytes = 0;
    std::memcpy(&bytes, std::assume_aligned<kBytes>(from), sizeof bytes);
    return bytes;
  };
  unsigned sum = 0;
  for (; row != row_end && reinterpret_cast<std::uintptr_t>(row) % kBytes != 0; ++row)
    sum += static_cast<unsigned char>(*row);
  while (row_end - row >= 2 * kBytes) {
    Word lanes = 0;
    const char* const stop = row + std::min((row_end - row) / (2 * kBytes), kTurns) * 2 * kBytes;
    for (; row != stop; row += 2 * kBytes) {
      const Word pairs = word(row) + word(row + kBytes);
      lanes += (pairs & kLanes) + (pairs >> 8 & kLanes);
    }
    // The highest lane of the product is the sum of all.
    sum += static_cast<unsigned>(lanes * kOnes >> (8 * kBytes - 16));
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
  for (std::size_t i = 0; i < kColumns; ++i) {
    rows[0].text[2 * i] = '0';
    rows[0].text[2 * i + 1] = '\t';
  }
  lengths.fill(2);
}

char* DataRowComposer::PutTime(Row& row, double time) {
  constexpr std::string_view kName = "DATA\t";
  char* const text = row.text.data();
  std::uint32_t whole = 0;
  std::uint32_t micros = 0;
  if (!SplitMicros(time, whole, micros)) {
    row.fraction_place = 0;
    std::memcpy(text, kName.data(), kName.size());
    return PutFixed6(text + kName.size(), time);
  }
  if (whole != row.seconds || row.fraction_place == 0) {
    std::memcpy(text, kName.data(), kName.size());
    char* const point = PutWhole(text + kName.size(), whole);
    *point = '.';
    row.fraction_place = static_cast<std::uint32_t>(point + 1 - text);
    row.seconds = whole;
  }
  PutSixDigits(text + row.fraction_place, micros);
  return text + row.fraction_place + 6;
}

std::string_view DataRowComposer::Compose(const DataSample& sample, std::uint32_t diag) {
  const Row& before = rows[latest];
  latest = 1 - latest;
  Row& row = rows[latest];
  char* const text = row.text.data();
  char* to = PutTime(row, sample.time);
  *to++ = '\t';

  // The unchanged part of the row before, up to the column that is looked at.
  const char* kept = before.text.data() + diag_place;
  const char* kept_end = kept;
  diag_place = static_cast<std::uint32_t>(to - text);
  constexpr std::ptrdiff_t kWorthACall = 8;
  const auto put_kept = [&] {
    if (kept_end - kept >= kWorthACall) {
      std::memcpy(to, kept, static_cast<std::size_t>(kept_end - kept));
      to += kept_end - kept;
    } else {
      while (kept != kept_end) *to++ = *kept++;
    }
  };
  // Values are compared by their bits, so that NaN equals itself and -0 differs from 0.
  const auto put = [&](std::size_t i, std::uint32_t value, auto put_text) {
    if (value != columns[i]) {
      if (kept != kept_end) put_kept();
      kept = kept_end + lengths[i];
      char* const end = put_text(to, value);
      *end = '\t';
      kept_end += lengths[i];
      lengths[i] = static_cast<std::uint8_t>(end + 1 - to);
      to = end + 1;
      columns[i] = value;
    } else {
      kept_end += lengths[i];
    }
  };
  put(0, diag, PutWhole);
  for (std::size_t i = 0; i < kPrintedValues.size(); ++i)
    put(i + 1, std::bit_cast<std::uint32_t>(sample.values[kPrintedValues[i]]),
        [](char* at, std::uint32_t value) { return PutFloat(at, std::bit_cast<float>(value)); });
  put(kColumns - 1, sample.code, PutWhole);
  put_kept();
  const char* const end = PutChecksum(text, to, to);
  return {text, static_cast<std::size_t>(end - text)};
}
