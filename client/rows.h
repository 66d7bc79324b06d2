#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "client/deadline.h"

// The rows that a head sends to its console clients, as values.

// What the columns of a kind of row hold, as its header rows say. CHK is not among them.
struct Columns {
  std::string row;  // such as "DATA"
  std::vector<std::string> names;
  std::vector<std::string> units;  // empty texts where there are none
};

// DATA, DATASTAT and DATATEST: a number in each column. The checksum has been found right.
struct DataRow {
  std::shared_ptr<const Columns> columns;
  std::vector<double> values;  // as many as there are columns
  std::string line;            // as it came

  const std::string& Name() const { return columns->row; }
  // The value of a column. Throws ClientError where there is no such column.
  double operator[](std::string_view column) const;
  // The texts of the values, with every digit that the head sent.
  std::vector<std::string> Fields() const;
};

// DATAEVENT: something that has happened, such as CONFIGCHANGED, or CONSOLECONNECTED with a name.
struct EventRow {
  std::string event;
  std::string value;  // as it stands; the name of a console begins with a blank
};

// DATAMSG: a text of the signal processor, with the prefix that shows its kind.
struct MessageRow {
  std::string text;
};

// DATAFLRAW: a piece of a raw capture. The pieces of one capture, joined, are a zlib stream; one
// without bytes ends it.
struct CaptureRow {
  std::vector<std::uint8_t> bytes;
};

// Every other row, including those that describe the columns of others (DATAH, DATAU, DATASTATH, …)
// among them.
struct PlainRow {
  std::string name;
  std::vector<std::string> fields;
};

using Row = std::variant<DataRow, EventRow, MessageRow, CaptureRow, PlainRow>;

// Reads rows, and keeps what their header rows say.
class RowReader {
 public:
  // Whether a line is a row, whatever it holds.
  static bool IsRow(std::string_view line);

  // Reads a row from its line, without the line feed. Throws ClientError for one that is damaged:
  // with a wrong checksum, with more or fewer fields than its header row has, with no number where
  // one must be, or that came before its header row.
  Row Read(std::string line);

  // The columns of a kind of row; null before its header row has come.
  std::shared_ptr<const Columns> ColumnsOf(const std::string& row) const;
  // The names of the bits of DIAG that are set in `diag`, lowest first.
  std::vector<std::string> DiagNames(double diag) const;

 private:
  void Learn(const PlainRow& header);
  DataRow ReadData(const std::string& name, std::string line) const;

  std::map<std::string, std::shared_ptr<const Columns>, std::less<>> columns;
  std::vector<std::string> diag_names;
};
