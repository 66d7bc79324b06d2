#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"
#include "liborrel/config_cfg_clock.h"
#include "liborrel/config_cfg_network.h"
#include "liborrel/doctavo/config_cfg_flashes.h"
#include "liborrel/doctavo/config_cfg_light.h"
#include "liborrel/doctavo/tavo_choices.h"

// How the head measures.
class ConfigCfgTavo : public ConfigurableComposite {
 public:
  ConfigCfgTavo();

  ConfigCfgRectangularFlash& Rectflash() { return rectflash; }
  ConfigCfgMultiPhaseFlash& Multiphaseflash() { return multiphaseflash; }
  ConfigCfgInductionFlash& Inductionflash() { return inductionflash; }
  ConfigLightSourceTavo& Lightsource() { return lightsource; }
  ConfigCfgMeasure& Measure() { return measure; }
  ConfigCfgDarkPulse& Darkpulse() { return darkpulse; }
  ConfigCfgRawDataCapture& Rawdatacapture() { return rawdatacapture; }
  ConfigCfgClock& Clock() { return clock; }
  ConfigCfgNetwork& Network() { return network; }
  ConfigFanMode& FanMode() { return fan_mode; }
  ConfigurableInteger& FanDuty() { return fan_duty; }
  ConfigurableInteger& FanFreq() { return fan_freq; }

 private:
  ConfigCfgRectangularFlash rectflash;
  ConfigCfgMultiPhaseFlash multiphaseflash;
  ConfigCfgInductionFlash inductionflash;
  ConfigLightSourceTavo lightsource;
  ConfigCfgMeasure measure;
  ConfigCfgDarkPulse darkpulse;
  ConfigCfgRawDataCapture rawdatacapture;
  ConfigCfgClock clock;
  ConfigCfgNetwork network;
  ConfigFanMode fan_mode{"fan_mode", ConfigFanMode::Auto};
  ConfigurableInteger fan_duty{"fan_duty", 50, 0, 100};
  ConfigurableInteger fan_freq{"fan_freq", 60, 1, 20000};
};
