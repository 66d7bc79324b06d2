#pragma once

#include <string>

#include "configurable/child.h"
#include "configurable/choice.h"
#include "liborrel/units.h"

// How the clock follows the other units of the system.
class ConfigCfgClockPTP : public ConfigurableChoice<ConfigCfgClockPTP> {
 public:
  enum Choice { Auto, SlaveOnly, Preferred };
  static constexpr const char* kChoices[] = {"auto", "slaveonly", "preferred"};
  using ConfigurableChoice::ConfigurableChoice;
};

// The time zone. Its list of choices is that of the system: writing its doctype, names with '|'
// between them, replaces the list for all items of this kind and keeps the index.
class ConfigTimezone : public ConfigurableChoice<ConfigTimezone> {
 public:
  static constexpr const char* kChoices[] = {"UTC"};
  using ConfigurableChoice::ConfigurableChoice;
  std::istream& read_doctype(std::istream& in, std::ostream& err) override;
};

// The clock of the system, as settings. The values are those of the moment: somebody else fills
// them in and carries changes through.
class ConfigCfgClock : public ConfigurableComposite {
 public:
  // Not every unit has the item `time_t`.
  explicit ConfigCfgClock(bool with_time_t = true);

  StringLeaf Time{this, "time", units::kNone, "Local time of day, HH:MM:SS", "00:00:00"};
  StringLeaf Date{this, "date", units::kNone, "Local date, YYYY-MM-DD", "1970-01-01"};
  Child<ConfigTimezone> Zone{this, "zone", units::kNone, "Time zone", 0};
  Child<ConfigCfgClockPTP> Ptp{this, "ptp", units::kNone, "How the clock follows the other units",
                               ConfigCfgClockPTP::Auto};

  ConfigurableInteger& TimeT() { return time_t_item; }
  const ConfigurableInteger& TimeT() const { return time_t_item; }

 private:
  ConfigurableInteger time_t_item{"time_t", 0};
};
