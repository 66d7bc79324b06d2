#include "liborrel/doctavo/config_cal_tavo.h"

#include "liborrel/units.h"

ConfigCalTavo::ConfigCalTavo() : ConfigurableComposite("cal") {
  add_all({&dc0, &pc0});
  add_units(dc0, units::kCounts);
  add_units(pc0, units::kCounts);
}

ConfigCalRecordTavo::ConfigCalRecordTavo(const std::string& item_name)
    : ConfigurableComposite(item_name),
      time("time", Timestamp()),
      type("type", ""),
      dc0("DC0", 0),
      pc0("Pc0", 0) {
  add_all({&time, &type, &dc0, &pc0});
}

ConfigCalRecordTavo::ConfigCalRecordTavo(const Timestamp& when, const std::string& kind,
                                         int dc0_counts, int pc0_counts)
    : ConfigurableComposite("record"),
      time("time", when),
      type("type", kind),
      dc0("DC0", dc0_counts),
      pc0("Pc0", pc0_counts) {
  add_all({&time, &type, &dc0, &pc0});
}

void ConfigCalHistoryTavo::copy(ConfigCalRecordTavo& target,
                                const ConfigCalRecordTavo& source) const {
  target.time.set(source.time.get());
  target.type.set(source.type.get());
  target.dc0.set(source.dc0.get());
  target.pc0.set(source.pc0.get());
}

bool ConfigCalHistoryTavo::same(const ConfigCalRecordTavo& a, const ConfigCalRecordTavo& b) const {
  const double time_a = a.time.get().get();
  const double time_b = b.time.get().get();
  return !(time_a < time_b) && !(time_b < time_a);
}
