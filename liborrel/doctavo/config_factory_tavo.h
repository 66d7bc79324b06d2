#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"

// What relates DAC counts to photon flux, for each light source.
class ConfigFactoryCalibrationTavo : public ConfigurableComposite {
 public:
  ConfigFactoryCalibrationTavo();

  ConfigurableFloat& FRed() { return f_red; }
  ConfigurableFloat& FBlue() { return f_blue; }
  ConfigurableFloat& FFarred() { return f_farred; }
  ConfigurableFloat& FModred() { return f_modred; }
  ConfigurableFloat& URed() { return u_red; }
  ConfigurableFloat& UBlue() { return u_blue; }
  ConfigurableFloat& UFarred() { return u_farred; }
  ConfigurableFloat& UModred() { return u_modred; }
  ConfigurableFloat& DacRedZero() { return dac_red_zero; }
  ConfigurableFloat& DacBlueZero() { return dac_blue_zero; }
  ConfigurableFloat& DacFarredZero() { return dac_farred_zero; }
  ConfigurableFloat& DacModredZero() { return dac_modred_zero; }

 private:
  ConfigurableFloat f_red{"F_red", 1};
  ConfigurableFloat f_blue{"F_blue", 1};
  ConfigurableFloat f_farred{"F_farred", 1};
  ConfigurableFloat f_modred{"F_modred", 1};
  ConfigurableFloat u_red{"u_red", 1};
  ConfigurableFloat u_blue{"u_blue", 1};
  ConfigurableFloat u_farred{"u_farred", 1};
  ConfigurableFloat u_modred{"u_modred", 1};
  ConfigurableFloat dac_red_zero{"dac_red_zero", 0};
  ConfigurableFloat dac_blue_zero{"dac_blue_zero", 0};
  ConfigurableFloat dac_farred_zero{"dac_farred_zero", 0};
  ConfigurableFloat dac_modred_zero{"dac_modred_zero", 0};
};

// Working points of the light drivers. Far red has no bias, and only red is precharged.
class ConfigFactoryBiasTavo : public ConfigurableComposite {
 public:
  ConfigFactoryBiasTavo();

  ConfigurableInteger& RedOffset() { return red_offset; }
  ConfigurableInteger& BlueOffset() { return blue_offset; }
  ConfigurableInteger& FarredOffset() { return farred_offset; }
  ConfigurableInteger& ModredOffset() { return modred_offset; }
  ConfigurableInteger& RedBias() { return red_bias; }
  ConfigurableInteger& BlueBias() { return blue_bias; }
  ConfigurableInteger& ModredBias() { return modred_bias; }
  ConfigurableInteger& RedPrecharge() { return red_precharge; }
  ConfigurableFloat& RedPrechargeTime() { return red_precharge_time; }

 private:
  ConfigurableInteger red_offset{"red_offset", 0, 0, 4096};
  ConfigurableInteger blue_offset{"blue_offset", 0, 0, 4096};
  ConfigurableInteger farred_offset{"farred_offset", 0, 0, 4096};
  ConfigurableInteger modred_offset{"modred_offset", 0, 0, 4096};
  ConfigurableInteger red_bias{"red_bias", 3375, 0, 4096};
  ConfigurableInteger blue_bias{"blue_bias", 2916, 0, 4096};
  ConfigurableInteger modred_bias{"modred_bias", 2048, 0, 4096};
  ConfigurableInteger red_precharge{"red_precharge", 0, 0, 4096};
  ConfigurableFloat red_precharge_time{"red_precharge_time", 0, 0, 2.55F, false};
};

// What belongs to this one instrument.
class ConfigFactoryTavo : public ConfigurableComposite {
 public:
  ConfigFactoryTavo();

  ConfigurableString& Serialnumber() { return serialnumber; }
  ConfigFactoryCalibrationTavo& Calibration() { return calibration; }
  ConfigFactoryBiasTavo& Bias() { return bias; }

 private:
  ConfigurableString serialnumber{"serialnumber", "TVF-XXXX"};
  ConfigFactoryCalibrationTavo calibration;
  ConfigFactoryBiasTavo bias;
};
