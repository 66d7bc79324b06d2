#include "leaf/lumet/light/light_quantities.h"

namespace {

// µmol/m²/s at `dac` counts; a source that is off gives none, whatever its zero.
float Flux(const LightSourceCalibration& source, float dac) {
  return dac <= 0 ? 0 : (source.F * source.u) * (dac - source.dac_zero);
}

}  // namespace

std::uint16_t RoundToWord(float value) {
  if (!(value >= 0)) return 0;
  if (value > 65535) return 65535;
  return static_cast<std::uint16_t>(value + 0.5F);
}

void DeriveLightQuantities(const LightCalibration& calibration, float transmittance,
                           DataSample& sample) {
  auto& values = sample.values;
  const float modred_flux = Flux(calibration.modred, values[DataSample::MODREDDAC]) * 1e-6F;
  values[DataSample::REDMODAVG] = modred_flux * values[DataSample::MODRATE];
  values[DataSample::PFD] = values[DataSample::REDMODAVG];

  const float red = Flux(calibration.red, values[DataSample::REDDAC]);
  const float blue = Flux(calibration.blue, values[DataSample::BLUEDAC]);
  const float farred = Flux(calibration.farred, values[DataSample::FARREDDAC]);
  const float total = (red + blue) + farred;
  if (total > 0) {
    values[DataSample::REDFRAC] = red / total;
    values[DataSample::BLUEFRAC] = blue / total;
    values[DataSample::FARREDFRAC] = farred / total;
    values[DataSample::PFD] +=
        values[DataSample::PC] / (values[DataSample::REDFRAC] / calibration.red.F +
                                  values[DataSample::BLUEFRAC] / calibration.blue.F +
                                  values[DataSample::FARREDFRAC] / calibration.farred.F);
  }
  values[DataSample::PFD] *= transmittance;
}
