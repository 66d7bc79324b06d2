#include "liborrel/doctavo/config_factory_tavo.h"

#include "liborrel/units.h"

ConfigFactoryCalibrationTavo::ConfigFactoryCalibrationTavo()
    : ConfigurableComposite("calibration") {
  add_all({&f_red, &f_blue, &f_farred, &f_modred, &u_red, &u_blue, &u_farred, &u_modred,
           &dac_red_zero, &dac_blue_zero, &dac_farred_zero, &dac_modred_zero});
  add_units(f_red, units::kPFDPerPc);
  add_units(f_blue, units::kPFDPerPc);
  add_units(f_farred, units::kPFDPerPc);
  add_units(f_modred, units::kPFDPerPc);
  add_units(u_red, units::kPcPerDAC);
  add_units(u_blue, units::kPcPerDAC);
  add_units(u_farred, units::kPcPerDAC);
  add_units(u_modred, units::kPcPerDAC);
  add_units(dac_red_zero, units::kDAC);
  add_units(dac_blue_zero, units::kDAC);
  add_units(dac_farred_zero, units::kDAC);
  add_units(dac_modred_zero, units::kDAC);
}

ConfigFactoryBiasTavo::ConfigFactoryBiasTavo() : ConfigurableComposite("bias") {
  add_all({&red_offset, &blue_offset, &farred_offset, &modred_offset, &red_bias, &blue_bias,
           &modred_bias, &red_precharge, &red_precharge_time});
  add_units(red_offset, units::kDACCounts);
  add_units(blue_offset, units::kDACCounts);
  add_units(farred_offset, units::kDACCounts);
  add_units(modred_offset, units::kDACCounts);
  add_units(red_bias, units::kDACCounts);
  add_units(blue_bias, units::kDACCounts);
  add_units(modred_bias, units::kDACCounts);
  add_units(red_precharge, units::kDACCounts);
  add_units(red_precharge_time, units::kMicrosecs);
}

ConfigFactoryTavo::ConfigFactoryTavo() : ConfigurableComposite("factory") {
  add_all({&serialnumber, &calibration, &bias});
}
