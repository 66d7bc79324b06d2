#include "bench/light_path.h"

#include <algorithm>

namespace {

// Readings of the detectors in the dark, counts.
constexpr double kDcOffset = 152.4;
constexpr double kPcOffset = 12.3;
// What the detectors make of light: counts for each µmol/m²/s that fluoresces as Fm does.
constexpr double kLumetGain = 1.5;
constexpr double kDcGain = 2;
// Where they saturate.
constexpr double kSaturation = 60000;
// What PSII takes of far red.
constexpr double kFarredOnPSII = 0.01;

double Flux(const LightSourceCalibration& source, float dac) {
  return dac <= 0 ? 0 : std::max(0.0, double{source.F} * source.u * (dac - source.dac_zero));
}

float Saturated(double counts, std::uint16_t flag, std::uint16_t& flags) {
  if (counts > kSaturation) flags |= flag;
  return static_cast<float>(std::min(counts, kSaturation));
}

}  // namespace

double LeafLight::OnPSII() const { return actinic + measuring + kFarredOnPSII * farred; }

LightCalibration LightPath::BenchCalibration() {
  return {.red = {0.5F, 0.5F, 200},
          .blue = {0.4F, 0.2F, 150},
          .farred = {0.3F, 0.1F, 100},
          .modred = {0.5F, 0.1F, 300}};
}

LightPath::LightPath() : calibration(BenchCalibration()) {}

void LightPath::Calibrate(const BiasConfig& bias) {
  calibration.red = {bias.red.F, bias.red.u, bias.dac_red_zero};
  calibration.blue = {bias.blue.F, bias.blue.u, bias.dac_blue_zero};
  calibration.farred = {bias.farred.F, bias.farred.u, bias.dac_farred_zero};
  dc_zero = bias.DC0;
  pc_zero = bias.Pc0;
}

LeafLight LightPath::At(const LightDrive& drive) const {
  LeafLight light;
  light.actinic = Flux(calibration.red, drive.red) + Flux(calibration.blue, drive.blue);
  light.farred = Flux(calibration.farred, drive.farred);
  light.pulse = Flux(calibration.modred, drive.modred);
  light.measuring = light.pulse * 1e-6 * drive.modrate;
  return light;
}

void LightPath::Read(const LeafLight& light, double fluorescence, const LightDrive& drive,
                     const std::function<float(float)>& noise, WireSample& sample) const {
  sample.lumet = static_cast<float>(kLumetGain * light.pulse * fluorescence) + noise(0.8F);
  sample.dc = Saturated(kDcOffset + kDcGain * light.OnPSII() * fluorescence, 1, sample.flags) -
              dc_zero + noise(0.5F);
  const double seen = Flux(calibration.red, drive.red) / calibration.red.F +
                      Flux(calibration.blue, drive.blue) / calibration.blue.F +
                      Flux(calibration.farred, drive.farred) / calibration.farred.F;
  sample.pc = Saturated(kPcOffset + seen, 2, sample.flags) - pc_zero + noise(0.2F);
}
