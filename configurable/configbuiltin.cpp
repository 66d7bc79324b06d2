#include "configurable/configbuiltin.h"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "configurable/number_text.h"
#include "configurable/text_stream.h"
#include "configurable/xml_text.h"
#include "configurable/xml_writer.h"

namespace {

template <class Number>
struct RealNames;
template <>
struct RealNames<float> {
  static constexpr const char* kType = "float";
  static constexpr const char* kRangeError = "ConfigurableFloat: range error";
};
template <>
struct RealNames<double> {
  static constexpr const char* kType = "double";
  static constexpr const char* kRangeError = "ConfigurableDouble: range error";
};

// The whole text of a stream to its end, blanks included; false if there is none.
bool ReadAll(std::istream& in, std::string& text) {
  if (!in || in.peek() == std::istream::traits_type::eof()) return false;
  if (TextInput* memory = TextInput::From(in)) {
    text = memory->Rest();
    memory->Skip(text.size());
    in.setstate(std::ios_base::eofbit);
  } else {
    text.assign(std::istreambuf_iterator<char>(in), {});
  }
  return true;
}

// The next word of a stream, in `storage` if need be; empty if there is none.
std::string_view ReadWord(std::istream& in, std::string& storage) {
  TextInput* memory = TextInput::From(in);
  if (memory == nullptr || !in.good()) {
    in >> storage;
    return storage;
  }
  const auto is_space = [](char byte) { return xml_text::Is(byte, xml_text::kSpace); };
  const std::string_view rest = memory->Rest();
  std::size_t start = 0;
  while (start < rest.size() && is_space(rest[start])) ++start;
  std::size_t end = start;
  while (end < rest.size() && !is_space(rest[end])) ++end;
  memory->Skip(end);
  if (end == rest.size()) in.setstate(std::ios_base::eofbit);
  if (start == end) in.setstate(std::ios_base::failbit);
  return rest.substr(start, end - start);
}

// Stores `value` and marks the item if the value differs.
template <class Value>
void Store(Configurable& item, Value& stored, const Value& value) {
  if (stored == value) return;
  stored = value;
  item.set_changed(true);
}

// Reads numbers with `separator` between them, and nothing required after the last.
bool ReadParts(std::istream& in, char separator, std::initializer_list<int*> parts) {
  for (int* part : parts) {
    char byte = separator;
    if (part != *parts.begin() && (!(in >> byte) || byte != separator)) return false;
    if (!(in >> *part)) return false;
  }
  return true;
}

void PrintParts(std::ostream& out, char separator, std::initializer_list<int> parts,
                int first_width) {
  out << std::setfill('0');
  int width = first_width;
  for (const int& part : parts) {
    if (&part != parts.begin()) out << separator;
    out << std::setw(width) << part;
    width = 2;
  }
  out << std::setfill(' ');
}

Timestamp TimeOfDay(int hours, int minutes, int seconds) {
  return Timestamp(double{3600} * hours + double{60} * minutes + seconds);
}

}  // namespace

template <class Number>
ConfigurableReal<Number>::ConfigurableReal(const std::string& name, Number value)
    : Configurable(name),
      _value(value),
      _min(std::numeric_limits<Number>::lowest()),
      _max(std::numeric_limits<Number>::max()),
      _default_value(value),
      _range_mode(Range::kNone) {}

template <class Number>
ConfigurableReal<Number>::ConfigurableReal(const std::string& name, Number value, Number min,
                                           Number max, bool strict)
    : Configurable(name),
      _value(value),
      _min(min),
      _max(max),
      _default_value(value),
      _range_mode(strict ? Range::kClampAndCheck : Range::kClamp) {}

template <class Number>
void ConfigurableReal<Number>::set(Number value) {
  // If the bounds are in order, this refuses nan alone; what lies beyond them is clamped.
  if (_range_mode == Range::kClampAndCheck && !(value > _min) && !(value < _max))
    throw std::range_error(RealNames<Number>::kRangeError);
  if (_range_mode != Range::kNone) {
    if (value < _min) value = _min;
    if (value > _max) value = _max;
  }
  Store(*this, _value, value);
}

template <class Number>
std::istream& ConfigurableReal<Number>::read_value(std::istream& in, std::ostream& err) {
  if (!in) return in;
  Number value = 0;
  ReadNumber(in, value);
  if (in) {
    set(value);
    return in;
  }
  in.clear();
  in.seekg(0);
  std::string word;
  in >> word;
  if (word == "inf")
    set(std::numeric_limits<Number>::infinity());
  else if (word == "-inf")
    set(-std::numeric_limits<Number>::infinity());
  else if (word == "nan")
    set(std::numeric_limits<Number>::quiet_NaN());
  else
    err << "unable to read " << RealNames<Number>::kType;
  return in;
}

template <class Number>
std::ostream& ConfigurableReal<Number>::print_value(std::ostream& out) const {
  WriteNumber(out, _value);
  return out;
}

template <class Number>
void ConfigurableReal<Number>::write_value(XMLWriter& writer) const {
  writer.number(_value);
}

template <class Number>
std::ostream& ConfigurableReal<Number>::print_doctype(std::ostream& out) const {
  out << RealNames<Number>::kType << ":" << _default_value;
  if (_range_mode != Range::kNone) out << ";" << _min << "..." << _max;
  return out;
}

template class ConfigurableReal<float>;
template class ConfigurableReal<double>;

ConfigurableInteger::ConfigurableInteger(const std::string& name, int value, int min, int max)
    : Configurable(name), _value(value), _min(min), _max(max), _default_value(value) {}

void ConfigurableInteger::set(int value) {
  Store(*this, _value, std::min(std::max(value, _min), _max));
}

std::istream& ConfigurableInteger::read_value(std::istream& in, std::ostream& err) {
  int value = 0;
  ReadNumber(in, value);
  if (in)
    set(value);
  else
    err << "unable to read integer";
  return in;
}

std::ostream& ConfigurableInteger::print_value(std::ostream& out) const {
  WriteNumber(out, _value);
  return out;
}

void ConfigurableInteger::write_value(XMLWriter& writer) const { writer.number(_value); }

std::ostream& ConfigurableInteger::print_doctype(std::ostream& out) const {
  out << "integer:" << _default_value;
  if (_min != std::numeric_limits<int>::min() || _max != std::numeric_limits<int>::max())
    out << ";" << _min << "..." << _max;
  return out;
}

std::istream& ConfigurableTimeT::read_value(std::istream& in, std::ostream& err) {
  int value = 0;
  if (!(in >> value)) {
    err << "unable to read time_t";
    return in;
  }
  struct tm time = {};
  time.tm_isdst = -1;
  char dash = 0;
  char colon = 0;
  const bool dated = in.peek() == '-' && in >> dash >> time.tm_mon >> dash && dash == '-' &&
                     in >> time.tm_mday >> time.tm_hour >> colon && colon == ':' &&
                     in >> time.tm_min >> colon && colon == ':' && in >> time.tm_sec;
  // Far outside these the library's own arithmetic would overflow.
  const auto sane = [](int number) { return number > -10000 && number < 10000; };
  if (dated && sane(value) && sane(time.tm_mon)) {
    time.tm_year = value - 1900;
    time.tm_mon -= 1;
    value = static_cast<int>(mktime(&time));
  }
  in.clear();
  set(value);
  return in;
}

ConfigurableBool::ConfigurableBool(const std::string& name, bool value)
    : Configurable(name), _value(value), _default_value(value) {}

void ConfigurableBool::set(bool value) { Store(*this, _value, value); }

std::istream& ConfigurableBool::read_value(std::istream& in, std::ostream& err) {
  std::string storage;
  const std::string_view word = ReadWord(in, storage);
  const bool is_true = word == "true";
  if (!in)
    err << "unable to read bool";
  else if (is_true || word == "false")
    set(is_true);
  else
    err << "invalid bool";
  return in;
}

std::ostream& ConfigurableBool::print_value(std::ostream& out) const {
  WriteText(out, _value ? "true" : "false");
  return out;
}

void ConfigurableBool::write_value(XMLWriter& writer) const {
  writer.text(_value ? "true" : "false", false);
}

std::ostream& ConfigurableBool::print_doctype(std::ostream& out) const {
  return out << "true|false";
}

ConfigurableString::ConfigurableString(const std::string& name, const std::string& value)
    : Configurable(name), _value(value), _default_value(value) {}

void ConfigurableString::set(const std::string& value) { Store(*this, _value, value); }

std::istream& ConfigurableString::read_value(std::istream& in, std::ostream& err) {
  std::string text;
  if (ReadAll(in, text))
    set(text);
  else
    err << "unable to read string\n";
  return in;
}

std::ostream& ConfigurableString::print_value(std::ostream& out) const {
  WriteText(out, _value);
  return out;
}

void ConfigurableString::write_value(XMLWriter& writer) const {
  writer.text(_value, !has_flag(RawText));
}

std::ostream& ConfigurableString::print_doctype(std::ostream& out) const {
  out << "string";
  if (!_default_value.empty()) out << ":" << _default_value;
  return out;
}

ConfigurableMultipleChoice::ConfigurableMultipleChoice(const std::string& name,
                                                       std::vector<std::string>* choices,
                                                       int default_index)
    : Configurable(name), _choices(choices), _index(default_index), _default_index(default_index) {}

void ConfigurableMultipleChoice::set(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= _choices->size()) return;
  Store(*this, _index, index);
}

const std::string& ConfigurableMultipleChoice::text() const {
  static const std::string none;
  const auto place = static_cast<std::size_t>(_index);
  return place < _choices->size() ? (*_choices)[place] : none;
}

std::istream& ConfigurableMultipleChoice::read_value(std::istream& in, std::ostream& err) {
  std::string text;
  if (!ReadAll(in, text)) {
    err << "unable to read choice\n";
    return in;
  }
  const auto found = std::find(_choices->begin(), _choices->end(), text);
  if (found != _choices->end())
    set(static_cast<int>(found - _choices->begin()));
  else
    err << "invalid option: " << text << "\n";
  return in;
}

std::ostream& ConfigurableMultipleChoice::print_value(std::ostream& out) const {
  WriteText(out, text());
  return out;
}

void ConfigurableMultipleChoice::write_value(XMLWriter& writer) const {
  writer.text(text(), !has_flag(RawText));
}

std::ostream& ConfigurableMultipleChoice::print_doctype(std::ostream& out) const {
  const char* separator = "";
  for (const std::string& choice : *_choices) {
    out << separator << choice;
    separator = "|";
  }
  return out;
}

ConfigurableTimestampBase::ConfigurableTimestampBase(const std::string& name,
                                                     const Timestamp& value, const Form& form)
    : Configurable(name), _value(value), _default_value(value), _form(form) {}

void ConfigurableTimestampBase::set(const Timestamp& value) {
  if (value.get() == _value.get()) return;
  _value = value;
  set_changed(true);
}

std::istream& ConfigurableTimestampBase::read_value(std::istream& in, std::ostream& err) {
  Timestamp value;
  if (_form.read(in, value))
    set(value);
  else
    err << _form.complaint << "\n";
  return in;
}

std::ostream& ConfigurableTimestampBase::print_value(std::ostream& out) const {
  _form.print(out, _value);
  return out;
}

std::ostream& ConfigurableTimestampBase::print_doctype(std::ostream& out) const {
  return out << _form.doctype;
}

const ConfigurableTimestampBase::Form ConfigurableTimestampBase::kTimestamp = {
    [](std::istream& in, Timestamp& value) { return static_cast<bool>(in >> value); },
    [](std::ostream& out, const Timestamp& value) { out << value; }, "YYYY-MM-DD HH:MM:SS.SS",
    "unable to read Timestamp"};

const ConfigurableTimestampBase::Form ConfigurableTimestampBase::kDate = {
    [](std::istream& in, Timestamp& value) {
      int year = 0;
      int month = 0;
      int day = 0;
      if (!ReadParts(in, '-', {&year, &month, &day})) return false;
      value = Timestamp(year, month, day, 0, 0, 0);
      return true;
    },
    [](std::ostream& out, const Timestamp& value) {
      PrintParts(out, '-', {value.GetYear(), value.GetMonth(), value.GetDay()}, 4);
    },
    "YYYY-MM-DD", "unable to read date (should be YYYY-MM-DD)"};

const ConfigurableTimestampBase::Form ConfigurableTimestampBase::kYearMonth = {
    [](std::istream& in, Timestamp& value) {
      int year = 0;
      int month = 0;
      if (!ReadParts(in, '-', {&year, &month})) return false;
      value = Timestamp(year, month, 1, 0, 0, 0);
      return true;
    },
    [](std::ostream& out, const Timestamp& value) {
      PrintParts(out, '-', {value.GetYear(), value.GetMonth()}, 4);
    },
    "YYYY-MM", "unable to read date (should be YYYY-MM)"};

const ConfigurableTimestampBase::Form ConfigurableTimestampBase::kTimeOfDay = {
    [](std::istream& in, Timestamp& value) {
      int hours = 0;
      int minutes = 0;
      int seconds = 0;
      if (!ReadParts(in, ':', {&hours, &minutes, &seconds})) return false;
      value = TimeOfDay(hours, minutes, seconds);
      return true;
    },
    [](std::ostream& out, const Timestamp& value) {
      const int seconds = static_cast<int>(value.GetSecond());
      PrintParts(out, ':', {value.GetHour(), value.GetMinute(), seconds}, 2);
    },
    "HH:MM:SS", "unable to read time (should be HH:MM:SS)"};

const ConfigurableTimestampBase::Form ConfigurableTimestampBase::kHourMinutes = {
    [](std::istream& in, Timestamp& value) {
      int hours = 0;
      int minutes = 0;
      if (!ReadParts(in, ':', {&hours, &minutes})) return false;
      value = TimeOfDay(hours, minutes, 0);
      return true;
    },
    [](std::ostream& out, const Timestamp& value) {
      PrintParts(out, ':', {value.GetHour(), value.GetMinute()}, 2);
    },
    "HH:MM", "unable to read time (should be HH:MM)"};

ConfigUnitsAttribute::ConfigUnitsAttribute(const std::string& unit)
    : ConfigurableString("units", unit) {
  set_flag(Active, false);
}

std::istream& ConfigUnitsAttribute::read_value(std::istream& in, std::ostream&) {
  set_flag(Active, false);
  return in;
}

void ConfigUnitsAttribute::add_to(Configurable& item) {
  item.add_attribute(this);
  set_parent(nullptr);
}

void add_units(Configurable& item, const char* unit) {
  static std::map<const char*, std::unique_ptr<ConfigUnitsAttribute>> units;
  std::unique_ptr<ConfigUnitsAttribute>& attribute = units[unit];
  if (!attribute) attribute = std::make_unique<ConfigUnitsAttribute>(unit);
  attribute->add_to(item);
}
