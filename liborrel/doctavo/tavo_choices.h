#pragma once

#include <cstdint>
#include <string>

#include "configurable/choice.h"

// The lists of choices of this head.

class ConfigFanMode : public ConfigurableChoice<ConfigFanMode> {
 public:
  enum Choice { Off, Auto, Percent };
  static constexpr const char* kChoices[] = {"off", "auto", "percent"};
  using ConfigurableChoice::ConfigurableChoice;
};

class ConfigLightSourceModeTavo : public ConfigurableChoice<ConfigLightSourceModeTavo> {
 public:
  enum Choice { Off, Percent, Setpoint, Test };
  static constexpr const char* kChoices[] = {"off", "percent", "setpoint", "test"};
  using ConfigurableChoice::ConfigurableChoice;
};

class ConfigControlMode : public ConfigurableChoice<ConfigControlMode> {
 public:
  enum Choice { Off, Percent, Setpoint };
  static constexpr const char* kChoices[] = {"off", "percent", "setpoint"};
  using ConfigurableChoice::ConfigurableChoice;
};

class ConfigRawCaptureStart : public ConfigurableChoice<ConfigRawCaptureStart> {
 public:
  enum Choice { Now, Measure, Flash, Dark };
  static constexpr const char* kChoices[] = {"now", "measure", "flash", "dark"};
  using ConfigurableChoice::ConfigurableChoice;
};

// A modulation rate that the processor can make. The texts are the rates in Hz.
class ConfigModRate : public ConfigurableMultipleChoice {
 public:
  ConfigModRate(const std::string& name, int default_index);
  std::uint32_t Hz() const;
};
