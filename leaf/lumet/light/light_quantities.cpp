#include "leaf/lumet/light/light_quantities.h"

#include <bit>

namespace {

// value > 0 and value <= 0 without floating point, which the head's processor does not have.
bool IsPositive(float value) {
  constexpr std::uint32_t kInfinity = 0x7F80'0000;
  return std::bit_cast<std::uint32_t>(value) - 1 < kInfinity;
}
bool IsAtMostZero(float value) { return std::bit_cast<std::int32_t>(value) <= 0 && value <= 0; }

}  // namespace

std::uint16_t RoundToWord(float value) {
  if (!(value >= 0)) return 0;
  if (value > 65535) return 65535;
  // NOLINTNEXTLINE(bugprone-incorrect-roundings): not below 0, and rounded in single precision
  return static_cast<std::uint16_t>(value + 0.5F);
}

LightQuantities::Source::Source(const LightSourceCalibration& calibration)
    : F(calibration.F), per_count(calibration.F * calibration.u), dac_zero(calibration.dac_zero) {}

bool LightQuantities::Source::TakeLevel(float dac) {
  // Compared by its bits, so that NaN equals itself.
  const auto bits = std::bit_cast<std::uint32_t>(dac);
  if (bits == level_bits) return false;
  level_bits = bits;
  // A source that is off gives no light, whatever its zero.
  flux = IsAtMostZero(dac) ? 0 : per_count * (dac - dac_zero);
  return true;
}

LightQuantities::LightQuantities(const LightCalibration& calibration)
    : red(calibration.red),
      blue(calibration.blue),
      farred(calibration.farred),
      modred(calibration.modred) {}

void LightQuantities::Derive(float transmittance, DataSample& sample) {
  auto& values = sample.values;
  const auto rate = std::bit_cast<std::uint32_t>(values[DataSample::MODRATE]);
  if (modred.TakeLevel(values[DataSample::MODREDDAC]) || rate != rate_bits) {
    rate_bits = rate;
    redmodavg = modred.flux * 1e-6F * values[DataSample::MODRATE];
  }
  bool mix_changed = red.TakeLevel(values[DataSample::REDDAC]);
  mix_changed |= blue.TakeLevel(values[DataSample::BLUEDAC]);
  mix_changed |= farred.TakeLevel(values[DataSample::FARREDDAC]);
  if (mix_changed) ComputeShares();

  values[DataSample::REDMODAVG] = redmodavg;
  float pfd = redmodavg;
  if (has_actinic) {
    values[DataSample::REDFRAC] = red.share;
    values[DataSample::BLUEFRAC] = blue.share;
    values[DataSample::FARREDFRAC] = farred.share;
    pfd += values[DataSample::PC] / counts_per_flux;
  }
  constexpr auto kOne = std::bit_cast<std::uint32_t>(1.0F);
  if (std::bit_cast<std::uint32_t>(transmittance) != kOne) pfd *= transmittance;
  values[DataSample::PFD] = pfd;
}

void LightQuantities::ComputeShares() {
  const float total = (red.flux + blue.flux) + farred.flux;
  has_actinic = IsPositive(total);
  if (!has_actinic) return;
  for (Source* source : {&red, &blue, &farred}) source->share = source->flux / total;
  counts_per_flux = red.share / red.F + blue.share / blue.F + farred.share / farred.F;
}

void DeriveLightQuantities(const LightCalibration& calibration, float transmittance,
                           DataSample& sample) {
  LightQuantities(calibration).Derive(transmittance, sample);
}
