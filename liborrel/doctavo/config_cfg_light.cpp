#include "liborrel/doctavo/config_cfg_light.h"

#include "liborrel/units.h"

ConfigLightSourceTavo::ConfigLightSourceTavo() : ConfigurableComposite("lightsource") {
  add_all({&control, &q_setpoint, &red_mix, &blue_mix, &farred_mix, &transmittance, &d_red_percent,
           &d_blue_percent, &d_farred_percent});
  add_units(q_setpoint, units::kPFD);
  add_units(d_red_percent, units::kPercent);
  add_units(d_blue_percent, units::kPercent);
  add_units(d_farred_percent, units::kPercent);
}

ConfigCfgMeasure::ConfigCfgMeasure() : ConfigurableComposite("measure") {
  add_all({&control, &outrate, &dark_modrate, &light_modrate, &flash_modrate, &q_modred_setpoint,
           &d_modred_percent});
  add_units(outrate, units::kHz);
  add_units(dark_modrate, units::kHz);
  add_units(light_modrate, units::kHz);
  add_units(flash_modrate, units::kHz);
  add_units(q_modred_setpoint, units::kPFD);
  add_units(d_modred_percent, units::kPercent);
}

ConfigCfgRawDataCapture::ConfigCfgRawDataCapture() : ConfigurableComposite("rawdatacapture") {
  add_all({&when, &size});
}
