#pragma once

#include <cstdint>
#include <optional>

#include "common/machine.h"
#include "leaf/lumet/instrument.h"

// Gives a head on the bench what a head has when it leaves the factory: the calibration of the
// simulated light path, sensors that show a temperature, and settings by which it measures. Files
// that exist stay as they are, except for the output rate, Hz, if there is one to set. Throws
// std::runtime_error.
void ProvideSettings(const Instrument& instrument, const Machine& machine,
                     std::optional<std::uint32_t> rate);
