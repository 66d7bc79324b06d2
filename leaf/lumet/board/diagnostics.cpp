#include "leaf/lumet/board/diagnostics.h"

#include <array>

namespace {

struct FanStep {
  float lower_bound;   // °C
  std::uint16_t duty;  // percent
};
constexpr std::array<FanStep, 4> kFanSteps = {{{0, 0}, {30, 25}, {40, 50}, {50, 100}}};

}  // namespace

std::uint32_t NextDiagnostics(std::uint32_t diag_word, bool console_connected,
                              float max_temperature) {
  diag_word = console_connected ? diag_word | CONSOLECONNECTED : diag_word & ~CONSOLECONNECTED;
  if (IsAtLeast(max_temperature, 70.0F))
    diag_word |= TEMP_WARNING;
  else
    diag_word &= ~(TEMP_WARNING | TEMP_FAULT);
  return IsTooHot(max_temperature) ? diag_word | TEMP_FAULT : diag_word;
}

int FanStepper::NextStep(int step, float max_temperature) {
  constexpr float kMargin = 2;
  constexpr int kLast = kFanSteps.size() - 1;
  const auto lower_bound = [](int of) {
    return kFanSteps[static_cast<std::size_t>(of)].lower_bound;
  };
  if (lower_bound(step) - kMargin > max_temperature) return step == 0 ? step : step - 1;
  if (step < kLast && max_temperature > lower_bound(step + 1) + kMargin) return step + 1;
  return step;
}

void FanStepper::Step(float max_temperature) {
  const ConfigCfgTavo& cfg = doc.Conf().Cfg();
  const auto frequency = static_cast<std::uint16_t>(cfg.FanFreq().get());
  switch (cfg.FanMode().get()) {
    case ConfigFanMode::Percent:
      return dsp.SetGpio(frequency, static_cast<std::uint16_t>(cfg.FanDuty().get()));
    case ConfigFanMode::Auto:
      step = NextStep(step, max_temperature);
      return dsp.SetGpio(frequency, kFanSteps[static_cast<std::size_t>(step)].duty);
    default:
      return dsp.SetGpio(frequency, 0);
  }
}
