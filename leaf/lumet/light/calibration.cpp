#include "leaf/lumet/light/calibration.h"

#include <cstdint>

LightCalibration LightCalibrationOf(const ConfigTavo& tavo) {
  const ConfigFactoryCalibrationTavo& values = tavo.Factory().Calibration();
  LightCalibration calibration;
  calibration.red = {values.FRed().get(), values.URed().get(), values.DacRedZero().get()};
  calibration.blue = {values.FBlue().get(), values.UBlue().get(), values.DacBlueZero().get()};
  calibration.farred = {values.FFarred().get(), values.UFarred().get(),
                        values.DacFarredZero().get()};
  calibration.modred = {values.FModred().get(), values.UModred().get(),
                        values.DacModredZero().get()};
  return calibration;
}

BiasConfig BiasConfigOf(const ConfigTavo& tavo) {
  const LightCalibration light = LightCalibrationOf(tavo);
  const ConfigFactoryBiasTavo& values = tavo.Factory().Bias();
  const auto counts = [](const ConfigurableInteger& item) {
    return static_cast<std::uint16_t>(item.get());
  };
  BiasConfig bias;
  bias.red = {light.red.u, light.red.F};
  bias.blue = {light.blue.u, light.blue.F};
  bias.farred = {light.farred.u, light.farred.F};
  bias.dac_red_zero = light.red.dac_zero;
  bias.dac_blue_zero = light.blue.dac_zero;
  bias.dac_farred_zero = light.farred.dac_zero;
  bias.DC0 = static_cast<float>(tavo.Cal().DC0().get());
  bias.Pc0 = static_cast<float>(tavo.Cal().Pc0().get());
  bias.red_offset = counts(values.RedOffset());
  bias.blue_offset = counts(values.BlueOffset());
  bias.farred_offset = counts(values.FarredOffset());
  bias.modred_offset = counts(values.ModredOffset());
  bias.red_bias = counts(values.RedBias());
  bias.blue_bias = counts(values.BlueBias());
  bias.modred_bias = counts(values.ModredBias());
  bias.red_precharge = counts(values.RedPrecharge());
  return bias;
}
