#pragma once

#include <array>
#include <cstdint>

#include "leaf/lumet/light/flash_mode.h"
#include "leaf/lumet/link/dsp_records.h"
#include "liborrel/doctavo/config_tavo.h"

// The step from settings to the signal processor's timing record. Light arithmetic is in single
// precision.

// What the processor must do by the settings in `tavo`: in the steady measuring state, in a flash
// of this mode, and in a dark pulse. `controller_dacs` are the levels of red, blue and far red that
// the light controller wants; they count where it is in charge.
TimingConfig ComputeTiming(const ConfigTavo& tavo, FlashMode flash_mode,
                           const std::array<std::uint16_t, 3>& controller_dacs);

// The output rate near `requested` that the processor can really produce, both in Hz: a divisor of
// the modulation rate.
unsigned ComputeOutputRate(unsigned modulation_rate, unsigned requested);

// DAC counts for `percent` of a source's range, and for a flux of `q` µmol/m²/s of a source with
// this calibration. Values beyond the DAC's range give its nearest end; NaN gives 0.
std::uint16_t PercentToDac(float percent);
std::uint16_t FluxToDac(float q, float F, float u, float zero);
