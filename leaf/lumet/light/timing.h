#pragma once

#include <array>
#include <cstdint>

#include "leaf/lumet/light/flash_mode.h"
#include "leaf/lumet/link/dsp_records.h"
#include "liborrel/doctavo/config_tavo.h"

// The step from settings to what the signal processor runs by. Light arithmetic is in single
// precision.

// What the processor is to do by the settings in `tavo`: in the steady measuring state, in a flash
// of this mode, and in a dark pulse. `controller_dacs` are the levels of red, blue and far red that
// the light controller wants; they count where it is in charge.
TimingConfig ComputeTiming(const ConfigTavo& tavo, FlashMode flash_mode,
                           const std::array<std::uint16_t, 3>& controller_dacs);

// The output rate that the processor can really produce near the one `requested`, both in Hz: a
// divisor of the modulation rate.
unsigned ComputeOutputRate(unsigned modulation_rate, unsigned requested);

// DAC counts for `percent` of a source's range, and for a flux of `q` µmol/m²/s of a source with
// this calibration. What is beyond the DAC gets its nearest end; NaN gives 0.
std::uint16_t PercentToDac(float percent);
std::uint16_t FluxToDac(float q, float F, float u, float zero);
