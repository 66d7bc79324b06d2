#include "client/rows.h"

#include <algorithm>
#include <charconv>
#include <span>

#include "common/base64.h"

namespace {

constexpr std::string_view kChecksum = "CHK";

std::vector<std::string> FieldsOf(std::string_view text) {
  std::vector<std::string> fields;
  while (true) {
    const std::size_t tab = text.find('\t');
    fields.emplace_back(text.substr(0, tab));
    if (tab == std::string_view::npos) return fields;
    text.remove_prefix(tab + 1);
  }
}

// The text before the first tab, and the text after it.
std::pair<std::string, std::string> AtTab(std::string_view text) {
  const std::size_t tab = text.find('\t');
  if (tab == std::string_view::npos) return {std::string(text), ""};
  return {std::string(text.substr(0, tab)), std::string(text.substr(tab + 1))};
}

[[noreturn]] void Refuse(std::string_view line, const std::string& reason) {
  throw ClientError("the head sent a damaged row, " + reason + ": " + Quoted(line));
}

// The fields after the row's name, without the checksum, which must be right.
std::string_view CheckedFields(std::string_view line) {
  const std::size_t last = line.rfind('\t');
  const std::string_view digits = line.substr(last + 1);
  unsigned told = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), told);
  if (digits.size() != 3 || error != std::errc() || end != digits.data() + digits.size())
    Refuse(line, "without a checksum");
  unsigned sum = 0;
  for (const char byte : line.substr(0, last + 1)) sum += static_cast<unsigned char>(byte);
  if (sum % 256 != told) Refuse(line, "whose checksum would be " + std::to_string(sum % 256));
  const std::size_t first = line.find('\t');
  return first == last ? std::string_view() : line.substr(first + 1, last - first - 1);
}

// Decimal, or hexadecimal after "0x".
bool ReadNumber(std::string_view field, double& value) {
  const char* const end = field.data() + field.size();
  if (field.starts_with("0x")) {
    unsigned word = 0;
    const auto read = std::from_chars(field.data() + 2, end, word, 16);
    value = word;
    return read.ec == std::errc() && read.ptr == end;
  }
  const auto read = std::from_chars(field.data(), end, value);
  return read.ec == std::errc() && read.ptr == end;
}

}  // namespace

double DataRow::operator[](std::string_view column) const {
  const auto found = std::find(columns->names.begin(), columns->names.end(), column);
  if (found == columns->names.end())
    throw ClientError("the row " + Name() + " has no column " + Quoted(column));
  return values[static_cast<std::size_t>(found - columns->names.begin())];
}

std::vector<std::string> DataRow::Fields() const {
  std::vector<std::string> fields = FieldsOf(AtTab(line).second);
  fields.resize(values.size());
  return fields;
}

bool RowReader::IsRow(std::string_view line) {
  constexpr std::string_view kStart = "DATA";
  if (!line.starts_with(kStart)) return false;
  const std::size_t end = line.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ", kStart.size());
  return end != std::string_view::npos && line[end] == '\t';
}

Row RowReader::Read(std::string line) {
  auto [name, rest] = AtTab(line);
  if (name == "DATA" || name == "DATASTAT" || name == "DATATEST")
    return ReadData(name, std::move(line));
  if (name == "DATAEVENT") {
    auto [event, value] = AtTab(rest);
    return EventRow{std::move(event), std::move(value)};
  }
  if (name == "DATAMSG") return MessageRow{std::move(rest)};
  if (name == "DATAFLRAW") {
    CaptureRow row;
    if (Base64AppendDecoded(std::span(rest.data(), rest.size()), row.bytes) != rest.size())
      Refuse(line, "whose Base64 is cut off");
    return row;
  }
  PlainRow row{std::move(name), FieldsOf(rest)};
  Learn(row);
  return row;
}

void RowReader::Learn(const PlainRow& header) {
  if (header.name == "DATADIAGH") {
    diag_names = header.fields;
    return;
  }
  if (header.fields.empty() || header.fields.back() != kChecksum) return;
  const std::vector<std::string> told(header.fields.begin(), header.fields.end() - 1);
  const std::string row = header.name.substr(0, header.name.size() - 1);
  if (header.name.ends_with('H')) {
    columns[row] =
        std::make_shared<Columns>(Columns{row, told, std::vector<std::string>(told.size())});
  } else if (const auto known = columns.find(row); header.name.ends_with('U') &&
                                                   known != columns.end() &&
                                                   known->second->names.size() == told.size()) {
    known->second = std::make_shared<Columns>(Columns{row, known->second->names, told});
  }
}

DataRow RowReader::ReadData(const std::string& name, std::string line) const {
  const std::shared_ptr<const Columns> told = ColumnsOf(name);
  if (!told) Refuse(line, "before the row that tells its columns");
  DataRow row{told, {}, {}};
  row.values.reserve(told->names.size());
  std::string_view rest = CheckedFields(line);
  for (bool more = true; more;) {
    const std::size_t tab = rest.find('\t');
    double value = 0;
    if (!ReadNumber(rest.substr(0, tab), value))
      Refuse(line, "with no number in the field " + Quoted(rest.substr(0, tab)));
    row.values.push_back(value);
    more = tab != std::string_view::npos;
    if (more) rest.remove_prefix(tab + 1);
  }
  if (row.values.size() != told->names.size())
    Refuse(line, "with " + std::to_string(row.values.size()) + " fields for " +
                     std::to_string(told->names.size()) + " columns");
  row.line = std::move(line);
  return row;
}

std::shared_ptr<const Columns> RowReader::ColumnsOf(const std::string& row) const {
  const auto found = columns.find(row);
  return found == columns.end() ? nullptr : found->second;
}

std::vector<std::string> RowReader::DiagNames(double diag) const {
  std::vector<std::string> names;
  const auto bits = static_cast<std::uint32_t>(diag);
  for (std::size_t bit = 0; bit < diag_names.size() && bit < 32; ++bit)
    if ((bits >> bit & 1) != 0) names.push_back(diag_names[bit]);
  return names;
}
