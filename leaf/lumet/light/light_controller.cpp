#include "leaf/lumet/light/light_controller.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>

#include "leaf/lumet/light/calibration.h"

namespace {

const std::string kListenerName = "LumetLightController";

std::array<LightSourceCalibration, 3> Sources(const DocTavo& doc) {
  const LightCalibration calibration = LightCalibrationOf(doc.Conf());
  return {calibration.red, calibration.blue, calibration.farred};
}

}  // namespace

LumetLightController::LumetLightController(DocTavo& doc, bool verbose)
    : _doc(doc), _verbose(verbose) {
  LoadZeros();
  ComputeMix();
  LoadSettings();
  _doc.add_listener(kListenerName, this);
}

LumetLightController::~LumetLightController() { _doc.remove_listener(kListenerName); }

void LumetLightController::item_changed(const ConfigurableEvent&) {
  const ConfigTavo& tavo = _doc.Conf();
  const bool calibration_changed = tavo.Factory().has_changed();
  const bool light_changed = tavo.Cfg().Lightsource().has_changed();
  if (calibration_changed) LoadZeros();
  if (calibration_changed || light_changed) ComputeMix();
  if (light_changed || tavo.Cfg().Measure().has_changed()) LoadSettings();
}

void LumetLightController::LoadZeros() {
  const auto sources = Sources(_doc);
  std::transform(sources.begin(), sources.end(), _zero.begin(),
                 [](const LightSourceCalibration& source) { return source.dac_zero; });
}

void LumetLightController::ComputeMix() {
  _mix = {};
  const ConfigLightSourceTavo& light = _doc.Conf().Cfg().Lightsource();
  std::array<float, 3> fraction = {light.RedMix().get(), light.BlueMix().get(),
                                   light.FarredMix().get()};
  const float total = (fraction[0] + fraction[1]) + fraction[2];
  if (!(total > 0)) return;
  for (float& part : fraction) part /= total;

  const auto sources = Sources(_doc);
  Qmax = 99999.9F;
  for (std::size_t i = 0; i < fraction.size(); ++i) {
    if (!(fraction[i] > 0)) continue;
    const float q =
        (static_cast<float>(_dac_max) - _zero[i]) * sources[i].F * sources[i].u / fraction[i];
    if (q < Qmax) Qmax = q;
  }
  for (std::size_t i = 0; i < fraction.size(); ++i)
    _mix[i] = (Qmax * fraction[i]) / (sources[i].F * sources[i].u);
  if (!_verbose) return;
  std::cout << "Qmax=" << Qmax << "\nMIX:";
  const auto precision = std::cout.precision(10);
  for (const float counts : _mix) std::cout << counts << " ";
  std::cout.precision(precision);
  std::cout << "\n";
}

void LumetLightController::LoadSettings() {
  constexpr std::uint32_t kFewestSamples = 4;
  const ConfigCfgTavo& cfg = _doc.Conf().Cfg();
  _setpoint = cfg.Lightsource().QSetpoint().get();
  _outrate = static_cast<std::uint32_t>(cfg.Measure().Outrate().get());
  // There are two updates a second, if there are enough samples.
  _samples_per_update = std::max(_outrate / 2, kFewestSamples);
  const float new_scale =
      static_cast<float>(_outrate) / static_cast<float>(2 * _samples_per_update);
  _Q_err_integrator *= _integral_scale / new_scale;
  _integral_scale = new_scale;
  _enabled = cfg.Lightsource().Control().get() == ConfigLightSourceModeTavo::Setpoint;
}

bool LumetLightController::Step(float measured_pfd) {
  constexpr float kIntegralLimit = 30000;
  constexpr float kHighestFraction = 100;
  // Protocol: the fraction may fall a little below zero, so that the DAC may fall below its own
  // zero.
  constexpr float kLowestFraction = -0.01F;

  if (!_enabled) return false;
  if (_setpoint <= 0) {
    const bool was_on = _dac_fraction != kOff;
    _dac_fraction = kOff;
    return was_on;
  }
  _err_sum = (_setpoint - measured_pfd) + _err_sum;
  if (++_err_count < _samples_per_update) return false;

  const auto count = static_cast<float>(_err_count);
  const float error = _err_sum / count;
  const float integral =
      std::clamp((count * error) / static_cast<float>(_outrate) + _Q_err_integrator,
                 -kIntegralLimit, kIntegralLimit);
  const float pi = ((integral * _integral_scale) / _integral_time + error) * _gain;
  _dac_fraction = pi / Qmax;
  // At a limit the integral stays, so that the light leaves the limit at once.
  if (_dac_fraction > kHighestFraction)
    _dac_fraction = kHighestFraction;
  else if (_dac_fraction < kLowestFraction)
    _dac_fraction = kLowestFraction;
  else if (!std::isnan(_dac_fraction))  // a NaN setpoint makes it NaN
    _Q_err_integrator = integral;
  _err_sum = 0;
  _err_count = 0;
  if (_verbose)
    std::cout << "_Q_err_integrator=" << _Q_err_integrator << " _dac_fraction=" << _dac_fraction
              << " PI=" << pi << "\n";
  return true;
}

unsigned short LumetLightController::GetDac(unsigned channel) const {
  if (_dac_fraction == kOff || !(_mix[channel] > 0)) return 0;
  return RoundToWord(_dac_fraction * _mix[channel] + _zero[channel]);
}
