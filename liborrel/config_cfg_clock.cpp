#include "liborrel/config_cfg_clock.h"

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
