#pragma once

#include <memory>
#include <string>

#include "common/timestamp.h"
#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"
#include "configurable/configurable_composite_dynamic.h"

// The zeros in force, which the processor subtracts.
class ConfigCalTavo : public ConfigurableComposite {
 public:
  ConfigCalTavo();

  ConfigurableInteger& DC0() { return dc0; }  // counts
  ConfigurableInteger& Pc0() { return pc0; }  // counts

 private:
  ConfigurableInteger dc0{"DC0", 0};
  ConfigurableInteger pc0{"Pc0", 0};
};

// One zero that was taken.
class ConfigCalRecordTavo : public ConfigurableComposite {
 public:
  // An empty record, to be read from a document.
  explicit ConfigCalRecordTavo(const std::string& item_name);
  ConfigCalRecordTavo(const Timestamp& when, const std::string& kind, int dc0_counts,
                      int pc0_counts);

  const ConfigurableTimestamp& Time() const { return time; }
  const ConfigurableString& Type() const { return type; }
  const ConfigurableInteger& DC0() const { return dc0; }
  const ConfigurableInteger& Pc0() const { return pc0; }

 private:
  friend class ConfigCalHistoryTavo;

  ConfigurableTimestamp time;
  ConfigurableString type;
  ConfigurableInteger dc0;
  ConfigurableInteger pc0;
};

// All zeros that were taken, in the order of arrival. Two records of one time are the same.
class ConfigCalHistoryTavo : public ConfigurableCompositeDynamic<ConfigCalRecordTavo> {
 public:
  ConfigCalHistoryTavo() : ConfigurableCompositeDynamic("history") {}

 protected:
  void copy(ConfigCalRecordTavo& target, const ConfigCalRecordTavo& source) const override;
  bool same(const ConfigCalRecordTavo& a, const ConfigCalRecordTavo& b) const override;
};
