#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"
#include "liborrel/doctavo/tavo_choices.h"

// Actinic light.
class ConfigLightSourceTavo : public ConfigurableComposite {
 public:
  ConfigLightSourceTavo();

  ConfigLightSourceModeTavo& Control() { return control; }
  ConfigurableFloat& QSetpoint() { return q_setpoint; }
  ConfigurableFloat& RedMix() { return red_mix; }
  ConfigurableFloat& BlueMix() { return blue_mix; }
  ConfigurableFloat& FarredMix() { return farred_mix; }
  ConfigurableFloat& Transmittance() { return transmittance; }
  ConfigurableFloat& DRedPercent() { return d_red_percent; }
  ConfigurableFloat& DBluePercent() { return d_blue_percent; }
  ConfigurableFloat& DFarredPercent() { return d_farred_percent; }

 private:
  ConfigLightSourceModeTavo control{"control", ConfigLightSourceModeTavo::Off};
  ConfigurableFloat q_setpoint{"Q_setpoint", 0};
  ConfigurableFloat red_mix{"red_mix", 0};
  ConfigurableFloat blue_mix{"blue_mix", 0};
  ConfigurableFloat farred_mix{"farred_mix", 0};
  ConfigurableFloat transmittance{"transmittance", 1, 0, 1, false};
  ConfigurableFloat d_red_percent{"D_red_percent", 0, 0, 100, false};
  ConfigurableFloat d_blue_percent{"D_blue_percent", 0, 0, 100, false};
  ConfigurableFloat d_farred_percent{"D_farred_percent", 0, 0, 100, false};
};

// Measuring light, its modulation, and the rate of samples.
class ConfigCfgMeasure : public ConfigurableComposite {
 public:
  ConfigCfgMeasure();

  ConfigControlMode& Control() { return control; }
  ConfigurableInteger& Outrate() { return outrate; }
  ConfigModRate& DarkModrate() { return dark_modrate; }
  ConfigModRate& LightModrate() { return light_modrate; }
  ConfigModRate& FlashModrate() { return flash_modrate; }
  ConfigurableFloat& QModredSetpoint() { return q_modred_setpoint; }
  ConfigurableFloat& DModredPercent() { return d_modred_percent; }

 private:
  ConfigControlMode control{"control", ConfigControlMode::Off};
  ConfigurableInteger outrate{"outrate", 1, 1, 10000};
  ConfigModRate dark_modrate{"dark_modrate", 0};
  ConfigModRate light_modrate{"light_modrate", 0};
  ConfigModRate flash_modrate{"flash_modrate", 0};
  ConfigurableFloat q_modred_setpoint{"Q_modred_setpoint", 0};
  ConfigurableFloat d_modred_percent{"D_modred_percent", 0, 0, 100, false};
};

// Capture of raw detector data.
class ConfigCfgRawDataCapture : public ConfigurableComposite {
 public:
  ConfigCfgRawDataCapture();

  ConfigRawCaptureStart& When() { return when; }
  ConfigurableInteger& Size() { return size; }

 private:
  ConfigRawCaptureStart when{"when", ConfigRawCaptureStart::Now};
  ConfigurableInteger size{"size", 0, 0};
};
