#include "liborrel/doctavo/config_tavo.h"

#include <algorithm>
#include <array>

ConfigTavo::ConfigTavo() : ConfigurableComposite("tavo") {
  Serialnumber().set_target(&Factory().Serialnumber());
}

bool ConfigTavo::needs_saving() const {
  const std::array<const Configurable*, 8> counted = {&Output, &Cfg,  &Cal,          &Factory,
                                                      &Ver,    &Name, &Serialnumber, &Ipaddress};
  return has_changed() && std::any_of(counted.begin(), counted.end(),
                                      [](const auto* item) { return item->has_changed(); });
}
