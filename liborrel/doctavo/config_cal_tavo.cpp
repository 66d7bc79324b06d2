#include "liborrel/doctavo/config_cal_tavo.h"

void ConfigCalHistoryTavo::copy(ConfigCalRecordTavo& target,
                                const ConfigCalRecordTavo& source) const {
  target.Time().set(source.Time().get());
  target.Type().set(source.Type().get());
  target.DC0().set(source.DC0().get());
  target.Pc0().set(source.Pc0().get());
}

bool ConfigCalHistoryTavo::same(const ConfigCalRecordTavo& a, const ConfigCalRecordTavo& b) const {
  const double time_a = a.Time().get().get();
  const double time_b = b.Time().get().get();
  return !(time_a < time_b) && !(time_b < time_a);
}
