#include "leaf/lumet/events/event_analysis.h"

#include <algorithm>

#include "leaf/lumet/events/linear_fit.h"

void ValueRange::Add(float value) {
  if (skip >= 0) {
    --skip;
    max = min = value;
  } else if (value > max) {
    max = value;
  } else if (value < min) {
    min = value;
  }
}

float EventAnalysis::FMax() const {
  if (kind == kFlash) return rect.max;
  return p2_intercept < p1.max ? p1.max : p2_intercept;
}

EventAnalysis AnalyseEvent(const EventSamples& samples) {
  constexpr float kReciprocal = 10000;
  EventAnalysis result;
  RunningFit f_fit;  // of F on the reciprocal of Q
  RunningFit q_fit;  // of Q on the time
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const EventSamples::Block& block = samples.BlockOf(i);
    const std::size_t place = i % EventSamples::kBlock;
    const float F = block.lumet[place];
    const float Q = block.pfd[place];
    const std::uint16_t code = block.code[place];
    switch (code) {
      case kFlash:
        result.kind = EventAnalysis::kFlash;
        result.q_max = std::max(result.q_max, Q);
        result.rect.Add(F);
        break;
      case kPhase1:
      case kPhase2:
      case kPhase3:
        result.kind = EventAnalysis::kMultiPhase;
        result.q_max = std::max(result.q_max, Q);
        if (code == kPhase1) {
          result.p1.Add(F);
        } else if (code == kPhase3) {
          result.p3_q = std::max(result.p3_q, Q);
          result.p3.Add(F);
        } else {
          f_fit.Add(kReciprocal / Q, F);
          q_fit.Add(static_cast<float>(block.time[place] - samples.Start()), Q);
        }
        break;
      case kDarkBeforeFarRed:
      case kDarkFarRed:
      case kDarkAfterFarRed:
        result.kind = EventAnalysis::kDark;
        result.q_min = std::min(result.q_min, Q);
        if (code == kDarkAfterFarRed) result.dark.Add(F);
        break;
      default:
        break;
    }
  }
  if (result.kind != EventAnalysis::kMultiPhase) return result;
  f_fit.Results(&result.p2_slope, &result.p2_intercept, &result.p2_r2, &result.p2_slope_se,
                &result.p2_intercept_se);
  float q_slope = 0;
  q_fit.Results(&q_slope, nullptr, nullptr, nullptr, nullptr);
  result.p2_dqdt = static_cast<float>(double{q_slope} * 1e-6);
  result.p3_predicted_f = (result.p2_slope * kReciprocal) / result.p3_q + result.p2_intercept;
  return result;
}
