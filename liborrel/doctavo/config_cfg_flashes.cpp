#include "liborrel/doctavo/config_cfg_flashes.h"

#include "liborrel/units.h"

ConfigCfgRectangularFlash::ConfigCfgRectangularFlash() : ConfigurableComposite("rectflash") {
  add_all({&outrate, &margin, &duration, &q_red_setpoint, &d_red_percent});
  add_units(outrate, units::kHz);
  add_units(margin, units::kPoints);
  add_units(duration, units::kMs);
  add_units(q_red_setpoint, units::kPFD);
  add_units(d_red_percent, units::kPercent);
}

ConfigCfgMultiPhaseFlash::ConfigCfgMultiPhaseFlash() : ConfigurableComposite("multiphaseflash") {
  add_all({&outrate, &margin, &phase1_duration, &phase2_duration, &phase3_duration, &q_red_setpoint,
           &d_red_percent, &ramp});
  add_units(outrate, units::kHz);
  add_units(margin, units::kPoints);
  add_units(phase1_duration, units::kMs);
  add_units(phase2_duration, units::kMs);
  add_units(phase3_duration, units::kMs);
  add_units(q_red_setpoint, units::kPFD);
  add_units(d_red_percent, units::kPercent);
  add_units(ramp, units::kPercent);
}

ConfigCfgInductionFlash::ConfigCfgInductionFlash() : ConfigurableComposite("inductionflash") {
  add_all({&margin, &duration, &q_red_setpoint, &d_red_percent});
  add_units(margin, units::kPoints);
  add_units(duration, units::kMs);
  add_units(q_red_setpoint, units::kPFD);
  add_units(d_red_percent, units::kPercent);
}

ConfigCfgDarkPulse::ConfigCfgDarkPulse() : ConfigurableComposite("darkpulse") {
  add_all({&outrate, &duration, &margin, &before, &after, &q_farred_setpoint, &d_farred_percent});
  add_units(outrate, units::kHz);
  add_units(duration, units::kSecs);
  add_units(before, units::kSecs);
  add_units(after, units::kSecs);
  add_units(margin, units::kPoints);
  add_units(q_farred_setpoint, units::kPFD);
  add_units(d_farred_percent, units::kPercent);
}
