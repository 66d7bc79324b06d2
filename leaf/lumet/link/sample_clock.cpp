#include "leaf/lumet/link/sample_clock.h"

#include <cmath>

double SampleClock::Unwrap(std::uint32_t tick) {
  constexpr double kWrapSeconds = 4294.967296;
  constexpr std::uint32_t kNearWrap = 0xFF676981;  // 9,999,999 microseconds before the wrap
  constexpr std::uint32_t kPastWrap = 10'000'000;
  std::uint32_t w = wraps;
  if (tick >= kNearWrap) {
    near_wrap = true;
  } else if (near_wrap) {
    // Not stored at once: ticks from just before the wrap may still come.
    ++w;
    if (tick > kPastWrap) {
      wraps = w;
      near_wrap = false;
    }
  }
  return clock_offset + w * kWrapSeconds + tick / 1e6;
}

double SampleClock::Synchronise(std::uint32_t tick, const RecordTime& stamp) {
  const double value = Unwrap(tick);
  const auto second = static_cast<std::int32_t>(stamp.seconds);
  if (second == last_second) return value;
  last_second = second;
  const double difference = stamp.InSeconds() - value;
  if (std::fabs(difference) < 1.0) return value;
  clock_offset += difference;
  return stamp.InSeconds();
}
