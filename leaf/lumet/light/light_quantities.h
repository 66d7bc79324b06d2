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

// The nearest number that fits into 16 bits, halves rounded up; NaN gives 0.
std::uint16_t RoundToWord(float value);

// Derives the light quantities of one sample after another. The levels of the sources rarely
// change, and a sample then costs one division: what follows from a level is worked out when it
// changes. Arithmetic is in single precision and one order, whatever was kept from earlier samples.
class LightQuantities {
 public:
  explicit LightQuantities(const LightCalibration& calibration = {});

  // Fills in PFD, REDMODAVG and the three shares of the actinic light from the measured values of
  // `sample`. `transmittance`, 0..1, is that of the light path in force; it scales PFD alone.
  // Without actinic light the shares keep what the sample holds.
  void Derive(float transmittance, DataSample& sample);

 private:
  class Source {
   public:
    explicit Source(const LightSourceCalibration& calibration);
    // Takes a level in DAC counts; true if it has changed.
    bool TakeLevel(float dac);

    float F;          // µmol/m²/s/Pc
    float flux = 0;   // µmol/m²/s at the level
    float share = 0;  // of the actinic light

   private:
    float per_count;  // µmol/m²/s/DAC
    float dac_zero;
    std::uint32_t level_bits = 0;
  };

  void ComputeShares();

  Source red;
  Source blue;
  Source farred;
  Source modred;
  std::uint32_t rate_bits = 0;
  float redmodavg = 0;
  bool has_actinic = false;
  float counts_per_flux = 0;  // of the light sensor, in the present mix of actinic light
};

// The same for a single sample.
void DeriveLightQuantities(const LightCalibration& calibration, float transmittance,
                           DataSample& sample);
