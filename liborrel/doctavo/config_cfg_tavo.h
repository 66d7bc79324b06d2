#pragma once

#include "configurable/child.h"
#include "liborrel/config_cfg_clock.h"
#include "liborrel/config_cfg_network.h"
#include "liborrel/doctavo/config_cfg_flashes.h"
#include "liborrel/doctavo/config_cfg_light.h"
#include "liborrel/doctavo/tavo_choices.h"
#include "liborrel/units.h"

// How the head measures.
class ConfigCfgTavo : public ConfigurableComposite {
 public:
  ConfigCfgTavo() : ConfigurableComposite("cfg") {}

  Child<ConfigCfgRectangularFlash> Rectflash{this, "The rectangular flash"};
  Child<ConfigCfgMultiPhaseFlash> Multiphaseflash{this, "The multiphase flash"};
  Child<ConfigCfgInductionFlash> Inductionflash{this, "The induction flash"};
  Child<ConfigLightSourceTavo> Lightsource{this, "Actinic light"};
  Child<ConfigCfgMeasure> Measure{this, "Measuring light and the rate of samples"};
  Child<ConfigCfgDarkPulse> Darkpulse{this, "The dark pulse"};
  Child<ConfigCfgRawDataCapture> Rawdatacapture{this, "Capture of raw detector data"};
  Child<ConfigCfgClock> Clock{this, "The clock of the system"};
  Child<ConfigCfgNetwork> Network{this, "The network of the system, for its next start"};
  Child<ConfigFanMode> FanMode{this, "fan_mode", units::kNone,
                               "How the fan runs: off, by temperature, or by fan_duty",
                               ConfigFanMode::Auto};
  IntegerLeaf FanDuty{
      this, "fan_duty", units::kPercent, "Power of the fan where it is set in percent", 50, 0, 100};
  IntegerLeaf FanFreq{this, "fan_freq", units::kHz, "Frequency of the fan's supply", 60, 1, 20000};
};
