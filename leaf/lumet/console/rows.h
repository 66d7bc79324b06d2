#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "leaf/lumet/board/sensors.h"
#include "leaf/lumet/link/sample.h"

// The texts of the rows that console clients receive: fields separated by tabs, the row's name
// first, on data rows the checksum last, and a line feed.

// One column of a row.
struct OutputChannel {
  std::string name;
  const char* unit;
  int precision;  // significant digits in status rows and on the bus
};

// The columns of the DATA row, in their order.
std::span<const OutputChannel> DataChannels();

// Those of the DATASTAT row: time, DIAG, and the temperature of each sensor.
std::span<const OutputChannel> StatusChannels();

// The values to publish, in the order of the channels.
std::array<double, 15> DataValues(const DataSample& sample, std::uint32_t diag);
std::array<double, 2 + kSensors.size()> StatusValues(double time, std::uint32_t diag,
                                                     const BoardTemperatures& temperatures);

// Each value with the precision of its channel, and the checksum.
std::string StatusRow(std::span<const double> values);
// One JSON object of all values by the names of their channels, without white space.
std::string JsonPayload(std::span<const OutputChannel> channels, std::span<const double> values);

// `row_name`, the name of each channel, and CHK: the row that heads a table of data rows.
std::string NamesRow(std::string_view row_name, std::span<const OutputChannel> channels);
// The same with the units.
std::string UnitsRow(std::string_view row_name, std::span<const OutputChannel> channels);

// Names the bits of DIAG, lowest first.
constexpr std::string_view kDataDiagHeader =
    "DATADIAGH\tCONSOLECONNECTED\tNOOP2\tNOOP4\tNOOP8\tNOOP10\tNOOP20\tNOOP40\tNOOP80\tNOOP100\t"
    "NOOP200\tPARSATURATED\tDCSATURATED\tTEMP_WARNING\tREDMODOFF\tTESTMODEON\tTEMP_FAULT\n";

// Heads rows of the data clock, which this head does not make.
constexpr std::string_view kDataClockHeader = "DATACLOCKH\tSECONDS\tNANOSECONDS\tDATE\tTIME\tCHK\n";

// The rows of register values by address: the names, and the values at `time`, in seconds, which
// have 6 decimals as in DATA rows.
std::string RegisterNamesRow(const std::map<std::uint16_t, std::uint16_t>& values);
std::string RegisterValuesRow(const std::map<std::uint16_t, std::uint16_t>& values, double time);

// A text from the signal processor, after a prefix that says what kind it is.
std::string DataMsgRow(std::string_view prefix, std::string_view text);

// What a client is sent when it connects. `console_name` is that of the client with the console
// role, if there is one.
std::string OpeningBlock(std::string_view version, std::string_view host_name,
                         std::string_view serial_number,
                         const std::optional<std::string>& console_name);

// Composes DATA rows, one at a time, in buffers of its own.
class DataRowComposer {
 public:
  DataRowComposer();

  // The row of `sample`; valid until the next call. TIME has 6 decimals, DIAG is `diag` as an
  // unsigned number, the other columns have 6 significant digits. CHK is the sum of all bytes
  // before it, modulo 256, in three digits.
  std::string_view Compose(const DataSample& sample, std::uint32_t diag);

 private:
  // DIAG to CODE, all columns between TIME and CHK.
  static constexpr std::size_t kColumns = 14;
  // The bits of their values.
  using Columns = std::array<std::uint32_t, kColumns>;

  struct Row {
    // Room for every column at its longest: a time of 309 digits and 14 shorter numbers.
    alignas(8) std::array<char, 768> text;
    // The whole seconds that it begins with, and where their fraction stands; 0 if it has none.
    std::uint32_t seconds = 0;
    std::uint32_t fraction_place = 0;
  };

  // Writes the row as far as its time; returns the end of that.
  static char* PutTime(Row& row, double time);

  // The latest row and the one before it: many values stay the same from sample to sample, and
  // their text is taken over.
  std::array<Row, 2> rows;
  std::size_t latest = 0;
  // Of the latest row: what the columns hold, the length of each with its tab, and where DIAG
  // stands.
  Columns columns = {};
  std::array<std::uint8_t, kColumns> lengths;
  std::uint32_t diag_place = 0;
};
