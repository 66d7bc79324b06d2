#pragma once

#include <bit>
#include <cstdint>

#include "leaf/lumet/link/dsp_device.h"
#include "leaf/lumet/link/sample.h"
#include "liborrel/doctavo/doc_tavo.h"

// DIAG after a look at the console and the highest temperature, °C. The warning is set from 70 on,
// the fault from 75 until it is below 70 again.
std::uint32_t NextDiagnostics(std::uint32_t diag_word, bool console_connected,
                              float max_temperature);
// Whether a temperature that is a number is at least `bound`, above 0: asked for every sample, and
// so without floating point, which the head's processor does not have.
constexpr bool IsAtLeast(float temperature, float bound) {
  return std::bit_cast<std::int32_t>(temperature) >= std::bit_cast<std::int32_t>(bound);
}
// Whether a temperature shuts the light off.
constexpr bool IsTooHot(float max_temperature) { return IsAtLeast(max_temperature, 75.0F); }

// Drives the fan by its mode: not at all, at a set duty, or by temperature in four steps.
class FanStepper {
 public:
  // Both must outlive this.
  FanStepper(DSPDevice& dsp, const DocTavo& doc) : dsp(dsp), doc(doc) {}

  // Once a second or so, with the highest temperature in °C.
  void Step(float max_temperature);

  // The step that follows `step` at this temperature: one up or down at most, with a margin of two
  // degrees on both sides.
  static int NextStep(int step, float max_temperature);

 private:
  DSPDevice& dsp;
  const DocTavo& doc;
  int step = 0;
};
