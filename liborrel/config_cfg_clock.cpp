#include "liborrel/config_cfg_clock.h"

#include <vector>

namespace {

std::vector<std::string>* PTPModes() {
  static std::vector<std::string> choices = {"auto", "slaveonly", "preferred"};
  return &choices;
}

std::vector<std::string>* Timezones() {
  static std::vector<std::string> choices = {"UTC"};
  return &choices;
}

}  // namespace

ConfigCfgClockPTP::ConfigCfgClockPTP(const std::string& item_name, int default_index)
    : ConfigurableMultipleChoice(item_name, PTPModes(), default_index) {}

ConfigTimezone::ConfigTimezone(const std::string& item_name, int default_index)
    : ConfigurableMultipleChoice(item_name, Timezones(), default_index) {}

std::istream& ConfigTimezone::read_doctype(std::istream& in, std::ostream&) {
  choices().clear();
  for (std::string zone; std::getline(in, zone, '|');) choices().push_back(zone);
  // The end of the text is the end of the list.
  in.clear();
  return in;
}

ConfigCfgClock::ConfigCfgClock(bool with_time_t) : ConfigurableComposite("clock") {
  time_t_item.set_meaning("Seconds since 1970, UTC");
  if (with_time_t) add(&time_t_item);
}
