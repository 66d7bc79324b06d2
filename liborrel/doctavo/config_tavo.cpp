#include "liborrel/doctavo/config_tavo.h"

#include <algorithm>
#include <array>

ConfigTavo::ConfigTavo() : ConfigurableComposite("tavo") {
  add_all({&ack, &ver, &fpga, &dsp, &instrument_name, &serialnumber, &ipaddress, &output, &cfg,
           &cal, &history, &cmd, &factory, &error});
}

bool ConfigTavo::needs_saving() const {
  const std::array<const Configurable*, 8> counted = {
      &output, &cfg, &cal, &factory, &ver, &instrument_name, &serialnumber, &ipaddress};
  return has_changed() && std::any_of(counted.begin(), counted.end(),
                                      [](const auto* item) { return item->has_changed(); });
}
