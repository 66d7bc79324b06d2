#pragma once

#include <cstdint>
#include <string>

#include "configurable/configbuiltin.h"

// The lists of choices of this head. The enumerators are the indexes.

class ConfigFanMode : public ConfigurableMultipleChoice {
 public:
  enum Choice { Off, Auto, Percent };
  ConfigFanMode(const std::string& item_name, int default_index);
};

class ConfigLightSourceModeTavo : public ConfigurableMultipleChoice {
 public:
  enum Choice { Off, Percent, Setpoint, Test };
  ConfigLightSourceModeTavo(const std::string& item_name, int default_index);
};

class ConfigControlMode : public ConfigurableMultipleChoice {
 public:
  enum Choice { Off, Percent, Setpoint };
  ConfigControlMode(const std::string& item_name, int default_index);
};

class ConfigRawCaptureStart : public ConfigurableMultipleChoice {
 public:
  enum Choice { Now, Measure, Flash, Dark };
  ConfigRawCaptureStart(const std::string& item_name, int default_index);
};

// A modulation rate that the processor can make. The texts are the rates in Hz.
class ConfigModRate : public ConfigurableMultipleChoice {
 public:
  ConfigModRate(const std::string& item_name, int default_index);
  std::uint32_t Hz() const;
};
