#pragma once

#include <limits>
#include <string>
#include <vector>

#include "common/timestamp.h"
#include "configurable/configurable.h"

// The typed leaves of the tree. Each assignment, by whatever path, marks the leaf only if the value
// differs from the stored one. The value at construction is the default, and is not clamped.
// Numbers are read and printed by the rules of standard streams, with six significant digits.
// Documents get the text of print_value, written without a stream; so nothing that derives from
// these has another text.

// What floats and doubles have in common.
template <class Number>
class ConfigurableReal : public Configurable {
 public:
  Number get() const { return _value; }
  // Clamps to the range, if there is one. nan stays nan, and always counts as a change. Throws
  // std::range_error for nan where the range is strict.
  void set(Number value);

  void reset() override { set(_default_value); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const final;
  void write_value(XMLWriter& writer) const final;
  std::ostream& print_doctype(std::ostream& out) const override;

 protected:
  enum class Range { kNone, kClamp, kClampAndCheck };
  ConfigurableReal(const std::string& name, Number value);
  ConfigurableReal(const std::string& name, Number value, Number min, Number max, bool strict);

 private:
  Number _value;
  Number _min;
  Number _max;
  Number _default_value;
  Range _range_mode;
};

class ConfigurableFloat : public ConfigurableReal<float> {
 public:
  ConfigurableFloat(const std::string& name, float value) : ConfigurableReal(name, value) {}
  ConfigurableFloat(const std::string& name, float value, float min, float max, bool strict)
      : ConfigurableReal(name, value, min, max, strict) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

class ConfigurableDouble : public ConfigurableReal<double> {
 public:
  ConfigurableDouble(const std::string& name, double value) : ConfigurableReal(name, value) {}
  ConfigurableDouble(const std::string& name, double value, double min, double max, bool strict)
      : ConfigurableReal(name, value, min, max, strict) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

class ConfigurableInteger : public Configurable {
 public:
  ConfigurableInteger(const std::string& name, int value, int min = std::numeric_limits<int>::min(),
                      int max = std::numeric_limits<int>::max());

  int get() const { return _value; }
  // Clamps.
  void set(int value);

  void reset() override { set(_default_value); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const final;
  void write_value(XMLWriter& writer) const final;
  std::ostream& print_doctype(std::ostream& out) const override;
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }

 private:
  int _value;
  int _min;
  int _max;
  int _default_value;
};

// Seconds since 1970 as an integer that also reads "YYYY-MM-DD HH:MM:SS" in local time.
class ConfigurableTimeT : public ConfigurableInteger {
 public:
  using ConfigurableInteger::ConfigurableInteger;
  std::istream& read_value(std::istream& in, std::ostream& err) override;
};

class ConfigurableBool : public Configurable {
 public:
  ConfigurableBool(const std::string& name, bool value);

  bool get() const { return _value; }
  void set(bool value);

  void reset() override { set(_default_value); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const final;
  void write_value(XMLWriter& writer) const final;
  std::ostream& print_doctype(std::ostream& out) const override;
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }

 private:
  bool _value;
  bool _default_value;
};

class ConfigurableString : public Configurable {
 public:
  ConfigurableString(const std::string& name, const std::string& value);

  const std::string& get() const { return _value; }
  // Derived classes may act on a new value here.
  virtual void set(const std::string& value);

  void reset() override { set(_default_value); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const final;
  void write_value(XMLWriter& writer) const final;
  std::ostream& print_doctype(std::ostream& out) const override;
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }

 private:
  std::string _value;
  std::string _default_value;
};

// Shows the value of a string elsewhere in the tree. A write to it is accepted and does nothing.
class ConfigurableStringProxyReadOnly : public Configurable {
 public:
  // `target` must outlive this. It may be null until the first printing.
  ConfigurableStringProxyReadOnly(const std::string& name, ConfigurableString* target)
      : Configurable(name), _target(target) {}

  void set_target(ConfigurableString* target) { _target = target; }

  std::ostream& print_value(std::ostream& out) const override { return _target->print_value(out); }
  std::ostream& print_doctype(std::ostream& out) const override { return out << "string"; }

 private:
  ConfigurableString* _target;
};

// One of a list of texts, held as its index. All items of one kind share their list.
class ConfigurableMultipleChoice : public Configurable {
 public:
  // `choices` must outlive this.
  ConfigurableMultipleChoice(const std::string& name, std::vector<std::string>* choices,
                             int default_index);

  int get() const { return _index; }
  // Has no effect for an index outside the list.
  void set(int index);
  // The text of the choice; empty when a shorter list has replaced the old one since.
  const std::string& text() const;
  std::vector<std::string>& choices() const { return *_choices; }

  void reset() override { set(_default_index); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const final;
  void write_value(XMLWriter& writer) const final;
  std::ostream& print_doctype(std::ostream& out) const override;
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }

 private:
  std::vector<std::string>* _choices;
  int _index;
  int _default_index;
};

// What the leaves that hold a Timestamp have in common: they differ in their text form alone.
class ConfigurableTimestampBase : public Configurable {
 public:
  const Timestamp& get() const { return _value; }
  void set(const Timestamp& value);

  void reset() override { set(_default_value); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const override;
  std::ostream& print_doctype(std::ostream& out) const override;

 protected:
  struct Form {
    bool (*read)(std::istream& in, Timestamp& value);
    void (*print)(std::ostream& out, const Timestamp& value);
    const char* doctype;
    const char* complaint;
  };
  static const Form kTimestamp;
  static const Form kDate;
  static const Form kYearMonth;
  static const Form kTimeOfDay;
  static const Form kHourMinutes;
  ConfigurableTimestampBase(const std::string& name, const Timestamp& value, const Form& form);

 private:
  Timestamp _value;
  Timestamp _default_value;
  const Form& _form;
};

// YYYY-MM-DD HH:MM:SS.SS
class ConfigurableTimestamp : public ConfigurableTimestampBase {
 public:
  ConfigurableTimestamp(const std::string& name, const Timestamp& value)
      : ConfigurableTimestampBase(name, value, kTimestamp) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

// YYYY-MM-DD
class ConfigurableDate : public ConfigurableTimestampBase {
 public:
  ConfigurableDate(const std::string& name, const Timestamp& value)
      : ConfigurableTimestampBase(name, value, kDate) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

// YYYY-MM
class ConfigurableDate_YearMonth : public ConfigurableTimestampBase {
 public:
  ConfigurableDate_YearMonth(const std::string& name, const Timestamp& value)
      : ConfigurableTimestampBase(name, value, kYearMonth) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

// HH:MM:SS, the seconds of a day
class ConfigurableTime : public ConfigurableTimestampBase {
 public:
  ConfigurableTime(const std::string& name, const Timestamp& value)
      : ConfigurableTimestampBase(name, value, kTimeOfDay) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

// HH:MM, the seconds of a day
class ConfigurableTime_HourMinutes : public ConfigurableTimestampBase {
 public:
  ConfigurableTime_HourMinutes(const std::string& name, const Timestamp& value)
      : ConfigurableTimestampBase(name, value, kHourMinutes) {}
  void accept(ConfigurableVisitor& visitor) override { visitor.visit(*this); }
};

// The unit of an item, which shows in its doctype alone: it is always disabled, never marked, and
// can't be set. Items of any number of documents share it, and it outlives them, so it knows no
// parent.
class ConfigUnitsAttribute : public ConfigurableString {
 public:
  explicit ConfigUnitsAttribute(const std::string& unit);
  void set_enabled(bool /*enabled*/) override {}
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  // Gives `item` this unit.
  void add_to(Configurable& item);
};

// Gives `item` the unit `unit`, UTF-8. One attribute serves all items that give the same pointer,
// and lives until the process exits.
void add_units(Configurable& item, const char* unit);
