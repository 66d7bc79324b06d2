#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

#include "common/timestamp.h"
#include "configurable/child.h"
#include "configurable/configurable_composite_dynamic.h"
#include "liborrel/units.h"

// The zeros in force, which the processor subtracts.
class ConfigCalTavo : public ConfigurableComposite {
 public:
  ConfigCalTavo() : ConfigurableComposite("cal") {}

  IntegerLeaf DC0{this, "DC0", units::kCounts, "Zero of the detector", 0};
  IntegerLeaf Pc0{this, "Pc0", units::kCounts, "Zero of the light sensor", 0};
};

// One zero that was taken.
class ConfigCalRecordTavo : public ConfigurableComposite {
 public:
  // An empty record, to be read from a document.
  explicit ConfigCalRecordTavo(const std::string& name)
      : ConfigCalRecordTavo(name, Timestamp(), "", 0, 0) {}
  ConfigCalRecordTavo(const Timestamp& when, const std::string& kind, int dc0, int pc0)
      : ConfigCalRecordTavo("record", when, kind, dc0, pc0) {}

  Child<ConfigurableTimestamp> Time;
  StringLeaf Type;
  IntegerLeaf DC0;
  IntegerLeaf Pc0;

 private:
  ConfigCalRecordTavo(const std::string& name, const Timestamp& when, const std::string& kind,
                      int dc0, int pc0)
      : ConfigurableComposite(name),
        Time(this, "time", units::kNone, "When the zero was taken", when),
        Type(this, "type", units::kNone, "Kind of zero", kind),
        DC0(this, "DC0", units::kNone, "Zero of the detector from then on", dc0),
        Pc0(this, "Pc0", units::kNone, "Zero of the light sensor from then on", pc0) {}
};

// All zeros that were taken, in the order of arrival. Two records of one time are the same. With a
// limit, further records of a document are refused, and an added one takes the place of the oldest.
class ConfigCalHistoryTavo : public ConfigurableCompositeDynamic<ConfigCalRecordTavo> {
 public:
  ConfigCalHistoryTavo() : ConfigurableCompositeDynamic("history") {}

  void set_limit(std::size_t records) { limit = records; }
  void add(Configurable* child) override;
  bool read_element(XMLParser& parser, XMLWriter& writer) override;
  bool read_child_element(std::string_view tag, XMLParser& parser, XMLWriter& writer) override;

 protected:
  void copy(ConfigCalRecordTavo& target, const ConfigCalRecordTavo& source) const override;
  bool same(const ConfigCalRecordTavo& a, const ConfigCalRecordTavo& b) const override;

 private:
  std::size_t limit = std::numeric_limits<std::size_t>::max();
  bool any_read = false;  // of the element that is being read
  bool any_refused = false;
};
