#pragma once

#include <string>

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"

// How the clock follows the other units of the system. The enumerators are the indexes.
class ConfigCfgClockPTP : public ConfigurableMultipleChoice {
 public:
  enum Choice { Auto, SlaveOnly, Preferred };
  ConfigCfgClockPTP(const std::string& item_name, int default_index);
};

// The time zone. Its list of choices is that of the system: whoever writes its doctype, names with
// '|' between them, replaces the list for all items of this kind and keeps the index.
class ConfigTimezone : public ConfigurableMultipleChoice {
 public:
  ConfigTimezone(const std::string& item_name, int default_index);
  std::istream& read_doctype(std::istream& in, std::ostream& err) override;
};

// The clock of the system, as settings. The values are those of the moment: somebody else fills
// them in and carries changes through.
class ConfigCfgClock : public ConfigurableComposite {
 public:
  // Not every unit has the item `time_t`.
  explicit ConfigCfgClock(bool with_time_t = true);

  ConfigurableString& Time() { return time; }  // local, HH:MM:SS
  ConfigurableString& Date() { return date; }  // local, YYYY-MM-DD
  ConfigTimezone& Zone() { return zone; }
  ConfigCfgClockPTP& Ptp() { return ptp; }
  ConfigurableInteger& TimeT() { return time_t_item; }  // seconds since 1970

 private:
  ConfigurableString time{"time", "00:00:00"};
  ConfigurableString date{"date", "1970-01-01"};
  ConfigTimezone zone{"zone", 0};
  ConfigCfgClockPTP ptp{"ptp", ConfigCfgClockPTP::Auto};
  ConfigurableInteger time_t_item{"time_t", 0};
};
