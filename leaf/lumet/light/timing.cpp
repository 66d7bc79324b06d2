#include "leaf/lumet/light/timing.h"

#include <algorithm>

#include "leaf/lumet/light/calibration.h"

namespace {

constexpr unsigned kMicrosecondsPerSecond = 1'000'000;
constexpr unsigned kFullModrate = 250'000;  // Hz

std::uint16_t DacOf(float q, const LightSourceCalibration& source) {
  return FluxToDac(q, source.F, source.u, source.dac_zero);
}

// Settings are 32 bits wide, and some of them have no limit.
std::uint16_t Field(int setting) { return static_cast<std::uint16_t>(setting); }

unsigned Setting(const ConfigurableInteger& item) { return static_cast<unsigned>(item.get()); }

// The actinic light of the steady state, and the measuring light's rate that goes with it.
struct Actinic {
  std::uint16_t red = 0;
  std::uint16_t blue = 0;
  std::uint16_t farred = 0;
  float red_q = 0;  // µmol/m²/s
  unsigned measure_modrate;
};

Actinic PercentActinic(const ConfigLightSourceTavo& light, unsigned dark_modrate,
                       unsigned light_modrate) {
  Actinic actinic = {.measure_modrate = light_modrate};
  actinic.red = PercentToDac(light.DRedPercent().get());
  actinic.blue = PercentToDac(light.DBluePercent().get());
  actinic.farred = PercentToDac(light.DFarredPercent().get());
  if (actinic.red == 0 && actinic.blue == 0 && actinic.farred == 0)
    actinic.measure_modrate = dark_modrate;
  return actinic;
}

// For a wanted flux, part of which comes from the measuring light.
Actinic FluxActinic(const ConfigLightSourceTavo& light, const LightCalibration& calibration,
                    std::uint16_t measure_modred, unsigned dark_modrate, unsigned light_modrate,
                    const std::array<std::uint16_t, 3>& controller_dacs) {
  Actinic actinic = {.measure_modrate = light_modrate};
  const LightSourceCalibration& modred = calibration.modred;
  const float wanted = light.QSetpoint().get();
  const float per_pulse =
      measure_modred == 0
          ? 0
          : (modred.F * modred.u) * (static_cast<float>(measure_modred) - modred.dac_zero) * 1e-6F;
  float average = static_cast<float>(light_modrate) * per_pulse;
  // The measuring light gives no more than a third of it.
  if (average * 3.0F > wanted) {
    actinic.measure_modrate = dark_modrate;
    average = static_cast<float>(dark_modrate) * per_pulse;
  }
  const float remaining = wanted - average;
  const float total = (light.RedMix().get() + light.BlueMix().get()) + light.FarredMix().get();
  if (!(remaining > 0) || !(total > 0)) return actinic;
  actinic.red_q = (remaining * light.RedMix().get()) / total;
  if (light.Control().get() == ConfigLightSourceModeTavo::Test) {
    actinic.red = DacOf(actinic.red_q, calibration.red);
    actinic.blue = DacOf((remaining * light.BlueMix().get()) / total, calibration.blue);
    actinic.farred = DacOf((remaining * light.FarredMix().get()) / total, calibration.farred);
  } else {
    actinic.red = controller_dacs[0];
    actinic.blue = controller_dacs[1];
    actinic.farred = controller_dacs[2];
  }
  return actinic;
}

std::uint16_t MeasureModred(const ConfigCfgMeasure& measure, const LightSourceCalibration& modred) {
  switch (measure.Control().get()) {
    case ConfigControlMode::Percent:
      return PercentToDac(measure.DModredPercent().get());
    case ConfigControlMode::Setpoint:
      // Protocol: not divided by the rate, unlike the flux that the actinic light completes.
      return DacOf(measure.QModredSetpoint().get(), modred);
    default:
      return 0;
  }
}

void SetFlashRates(TimingConfig& timing, unsigned modrate, unsigned outrate, int duration,
                   unsigned margin_before, unsigned margin_after) {
  timing.flash_modrate = modrate;
  timing.flash_outrate = outrate;
  timing.flash_duration = Field(duration);
  timing.flash_margin_before = margin_before;
  timing.flash_margin_after = margin_after;
}

void SetFlashTiming(TimingConfig& timing, const ConfigCfgTavo& cfg, FlashMode flash_mode) {
  const unsigned modrate = cfg.Measure().FlashModrate().Hz();
  const auto set = [&](const ConfigurableInteger& outrate, const ConfigurableInteger& margin) {
    const unsigned rate = ComputeOutputRate(modrate, Setting(outrate));
    const unsigned around = Setting(margin) * kMicrosecondsPerSecond / rate;
    // Protocol: a multiphase flash carries the duration of the rectangular one, and has no use for
    // it.
    SetFlashRates(timing, modrate, rate, cfg.Rectflash().Duration().get(), around, around);
  };
  switch (flash_mode) {
    case FlashMode::kRect:
      return set(cfg.Rectflash().Outrate(), cfg.Rectflash().Margin());
    case FlashMode::kMultiPhase:
      return set(cfg.Multiphaseflash().Outrate(), cfg.Multiphaseflash().Margin());
    case FlashMode::kZero:
      return SetFlashRates(timing, kFullModrate, 100, 50, 0, 0);
    case FlashMode::kInduction: {
      const ConfigCfgInductionFlash& flash = cfg.Inductionflash();
      const unsigned before = Setting(flash.Margin()) * kMicrosecondsPerSecond / kFullModrate;
      return SetFlashRates(timing, kFullModrate, kFullModrate, flash.Duration().get(), before,
                           before * 10'000);
    }
  }
}

// The DAC counts for the lights of flashes and dark pulses: each has a setting in percent and one
// for its flux, and the way in which actinic light is set decides which of them counts.
class Levels {
 public:
  Levels(const ConfigTavo& tavo, const LightCalibration& calibration)
      : calibration(calibration),
        in_percent(tavo.Cfg().Lightsource().Control().get() == ConfigLightSourceModeTavo::Percent) {
  }

  bool InPercent() const { return in_percent; }
  std::uint16_t Red(float percent, float flux) const { return Of(percent, flux, calibration.red); }
  std::uint16_t FarRed(float percent, float flux) const {
    return Of(percent, flux, calibration.farred);
  }

 private:
  std::uint16_t Of(float percent, float flux, const LightSourceCalibration& source) const {
    return in_percent ? PercentToDac(percent) : DacOf(flux, source);
  }

  const LightCalibration& calibration;
  bool in_percent;
};

template <class Flash>
std::uint16_t FlashRed(const Levels& levels, const Flash& flash) {
  return levels.Red(flash.DRedPercent().get(), flash.QRedSetpoint().get());
}

void SetFlashLight(TimingConfig& timing, const ConfigCfgTavo& cfg, FlashMode flash_mode,
                   const Levels& levels, float actinic_red_q) {
  const ConfigCfgMultiPhaseFlash& multiphase = cfg.Multiphaseflash();
  if (flash_mode != FlashMode::kZero) {
    timing.flash_red = flash_mode == FlashMode::kMultiPhase ? FlashRed(levels, multiphase)
                       : flash_mode == FlashMode::kInduction
                           ? FlashRed(levels, cfg.Inductionflash())
                           : FlashRed(levels, cfg.Rectflash());
    timing.flash_blue = timing.measure_blue;
  }
  // The ramp ends at the flash's level if it is 0, and at the actinic one if it is 100.
  const float above = 1 - multiphase.Ramp().get() / 100;
  const float percent = cfg.Lightsource().DRedPercent().get();
  timing.ramp_end_red =
      levels.Red((multiphase.DRedPercent().get() - percent) * above + percent,
                 (multiphase.QRedSetpoint().get() - actinic_red_q) * above + actinic_red_q);
  timing.phase1_duration = Field(multiphase.Phase1Duration().get());
  timing.phase2_duration = Field(multiphase.Phase2Duration().get());
  timing.phase3_duration = Field(multiphase.Phase3Duration().get());
}

void SetDarkPulse(TimingConfig& timing, const ConfigCfgDarkPulse& dark, const Levels& levels) {
  timing.dark_outrate = ComputeOutputRate(timing.dark_modrate, Setting(dark.Outrate()));
  timing.dark_margin_before = Setting(dark.Margin()) * kMicrosecondsPerSecond / timing.dark_outrate;
  timing.dark_margin_after = timing.dark_margin_before;
  timing.dark_duration = Field(dark.Duration().get());
  timing.dark_before = Field(dark.Before().get());
  timing.dark_after = timing.dark_duration == 0
                          ? std::uint16_t{0}
                          : Field(std::min(dark.After().get(), timing.dark_duration - 1));
  timing.dark_red = timing.measure_red;
  timing.dark_blue = timing.measure_blue;
  timing.dark_modred = timing.measure_modred;
  timing.dark_farred = levels.FarRed(dark.DFarredPercent().get(), dark.QFarredSetpoint().get());
}

}  // namespace

std::uint16_t PercentToDac(float percent) { return RoundToWord((percent * 65536.0F) / 100.0F); }

std::uint16_t FluxToDac(float q, float F, float u, float zero) {
  return q <= 0 ? 0 : RoundToWord(q / (F * u) + zero);
}

unsigned ComputeOutputRate(unsigned modulation_rate, unsigned requested) {
  if (requested == 0) return 1;
  const unsigned divisor = std::clamp(modulation_rate / requested, 1U, modulation_rate);
  const unsigned nearest = modulation_rate / divisor;
  if (divisor * nearest == modulation_rate) return nearest;
  // The search goes both ways from the request, and tries the smaller divisor first.
  unsigned up = nearest + 1;
  for (unsigned down = divisor - 1; down > 0 && up <= modulation_rate; --down, ++up) {
    if (modulation_rate % down == 0) return modulation_rate / down;
    if (modulation_rate % up == 0) return up;
  }
  return nearest;
}

TimingConfig ComputeTiming(const ConfigTavo& tavo, FlashMode flash_mode,
                           const std::array<std::uint16_t, 3>& controller_dacs) {
  const ConfigCfgTavo& cfg = tavo.Cfg();
  const ConfigCfgMeasure& measure = cfg.Measure();
  const LightCalibration calibration = LightCalibrationOf(tavo);
  const Levels levels(tavo, calibration);

  TimingConfig timing;
  timing.measure_modred = MeasureModred(measure, calibration.modred);
  const bool no_modred =
      flash_mode == FlashMode::kZero || measure.Control().get() == ConfigControlMode::Off;
  timing.flash_modred = no_modred ? 0 : timing.measure_modred;

  timing.dark_modrate = measure.DarkModrate().Hz();
  const unsigned light_modrate = measure.LightModrate().Hz();
  const Actinic actinic = [&]() -> Actinic {
    if (cfg.Lightsource().Control().get() == ConfigLightSourceModeTavo::Off)
      return {.measure_modrate = timing.dark_modrate};
    if (levels.InPercent())
      return PercentActinic(cfg.Lightsource(), timing.dark_modrate, light_modrate);
    return FluxActinic(cfg.Lightsource(), calibration, timing.measure_modred, timing.dark_modrate,
                       light_modrate, controller_dacs);
  }();
  timing.measure_modrate = actinic.measure_modrate;
  timing.measure_red = actinic.red;
  timing.measure_blue = actinic.blue;
  timing.measure_farred = actinic.farred;

  SetFlashLight(timing, cfg, flash_mode, levels, actinic.red_q);
  SetFlashTiming(timing, cfg, flash_mode);
  SetDarkPulse(timing, cfg.Darkpulse(), levels);

  timing.measure_outrate = ComputeOutputRate(timing.measure_modrate, Setting(measure.Outrate()));
  timing.measure_batch = BatchSize(timing.measure_outrate);
  timing.flash_batch = BatchSize(timing.flash_outrate);
  timing.dark_batch = BatchSize(timing.dark_outrate);
  timing.red_precharge_time = RoundToWord(tavo.Factory().Bias().RedPrechargeTime().get() * 100.0F);
  return timing;
}
