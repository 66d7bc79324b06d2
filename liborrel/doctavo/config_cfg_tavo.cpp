#include "liborrel/doctavo/config_cfg_tavo.h"

#include "liborrel/units.h"

ConfigCfgTavo::ConfigCfgTavo() : ConfigurableComposite("cfg") {
  add_all({&rectflash, &multiphaseflash, &inductionflash, &lightsource, &measure, &darkpulse,
           &rawdatacapture, &clock, &network, &fan_mode, &fan_duty, &fan_freq});
  add_units(fan_duty, units::kPercent);
  add_units(fan_freq, units::kHz);
}
