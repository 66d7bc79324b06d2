#pragma once

#include <cstdint>

#include "leaf/lumet/link/sample.h"

// What relates the DAC counts of one light source to its photon flux at the leaf.
struct LightSourceCalibration {
  float F = 1;         // µmol/m²/s/Pc
  float u = 1;         // Pc/DAC
  float dac_zero = 0;  // DAC counts at which the source is dark
};

struct LightCalibration {
  LightSourceCalibration red;
  LightSourceCalibration blue;
  LightSourceCalibration farred;
  LightSourceCalibration modred;
};

// The nearest number that 16 bits hold, halves upwards; NaN gives 0.
std::uint16_t RoundToWord(float value);

// Fills in PFD, REDMODAVG and the three shares of the actinic light from the measured values of
// `sample`. `transmittance`, 0..1, is that of the light path in force; it scales PFD alone.
// Single precision throughout. Without actinic light the shares keep
// what the sample holds.
void DeriveLightQuantities(const LightCalibration& calibration, float transmittance,
                           DataSample& sample);
