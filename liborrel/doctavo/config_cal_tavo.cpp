#include "liborrel/doctavo/config_cal_tavo.h"

#include <utility>

#include "configurable/xml_parser.h"

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

void ConfigCalHistoryTavo::add(Configurable* child) {
  if (size() >= limit) remove_first();
  ConfigurableCompositeDynamic::add(child);
}

bool ConfigCalHistoryTavo::read_element(XMLParser& parser, XMLWriter& writer) {
  any_read = any_refused = false;
  return ConfigurableCompositeDynamic::read_element(parser, writer);
}

bool ConfigCalHistoryTavo::read_child_element(std::string_view tag, XMLParser& parser,
                                              XMLWriter& writer) {
  // The first one replaces the list.
  if (size() < limit || !std::exchange(any_read, true)) {
    any_read = true;
    return ConfigurableCompositeDynamic::read_child_element(tag, parser, writer);
  }
  // One error reports all of them: an answer of a million errors helps nobody.
  if (!std::exchange(any_refused, true))
    write_error("more than " + std::to_string(limit) + " records", writer);
  parser.PassElement();
  return true;
}
