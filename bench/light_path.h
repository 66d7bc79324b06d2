#pragma once

#include <cstdint>
#include <functional>

#include "leaf/lumet/light/light_quantities.h"
#include "leaf/lumet/link/dsp_records.h"

// Drive of the four light sources, DAC counts, and the rate at which the last is pulsed.
struct LightDrive {
  float red = 0;
  float blue = 0;
  float farred = 0;
  float modred = 0;
  std::uint32_t modrate = 0;  // Hz
};

// What reaches the leaf, µmol/m²/s.
struct LeafLight {
  double actinic = 0;    // red and blue
  double farred = 0;     // without the little of it that PSII absorbs
  double measuring = 0;  // on average, in proportion to the rate of the pulses
  double pulse = 0;      // while it is on

  double OnPSII() const;
};

// The optics of the simulated head: from drives to light at the leaf, and from the leaf's
// fluorescence to the readings of the detectors.
//
// The measuring light does to the leaf what any red light does. At the bench's settings (30 % of
// full drive) it is 0.05 µmol/m²/s with 50 pulses a second, 19 with 20 000, and 242 with 250 000.
// So a flash, margins included, adds 242 µmol/m²/s to the light: F rises above Fo in the margin
// before it, and PFD falls only to that in the margin after it.
class LightPath {
 public:
  // The head of the bench before it is set to anything else.
  static LightCalibration BenchCalibration();

  LightPath();
  // As the head has set it. The measuring light's calibration is the bench's.
  void Calibrate(const BiasConfig& bias);

  LeafLight At(const LightDrive& drive) const;
  // Fills in what the detectors read; `noise` gives noise of the standard deviation it is given.
  void Read(const LeafLight& light, double fluorescence, const LightDrive& drive,
            const std::function<float(float)>& noise, WireSample& sample) const;

 private:
  LightCalibration calibration;
  // What the processor takes off each reading.
  float dc_zero = 0;
  float pc_zero = 0;
};
