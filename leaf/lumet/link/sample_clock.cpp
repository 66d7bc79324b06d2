#include "leaf/lumet/link/sample_clock.h"

#include <bit>
#include <cmath>

namespace {

// Doubles from 2^30 to 2^31, the seconds of 2004 to 2038: their last bit is 2^-22.
constexpr std::uint64_t kEpochBits = std::uint64_t{1023 + 30} << 52;
constexpr std::uint64_t kMantissa = (std::uint64_t{1} << 52) - 1;

// tick / 1e6 in units of 2^-22, rounded. It is never halfway between two: that would take a
// fraction of 15625 equal to one half.
std::uint64_t TickUnits(std::uint32_t tick) {
  // 2^22 / 1e6 = 4 + kMore / 2^56, to more bits than a 32-bit tick can affect.
  constexpr std::uint64_t kMore = 14001078751945550;
  const std::uint64_t upper =
      std::uint64_t{tick} * (kMore >> 32) + (std::uint64_t{tick} * (kMore & 0xFFFF'FFFF) >> 32);
  return (std::uint64_t{tick} << 2) + ((upper + (1U << 23)) >> 24);
}

}  // namespace

void SampleClock::SetTurn(std::uint32_t w) {
  constexpr double kWrapSeconds = 4294.967296;
  turn = w;
  turn_start = clock_offset + w * kWrapSeconds;
  const auto bits = std::bit_cast<std::uint64_t>(turn_start);
  turn_start_units = (bits & ~kMantissa) == kEpochBits ? (bits & kMantissa) | (kMantissa + 1) : 0;
}

double SampleClock::Unwrap(std::uint32_t tick) {
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
  if (w != turn) SetTurn(w);
  // The sum of doubles below, without floating point, which the head's processor does not have.
  const std::uint64_t units = turn_start_units + TickUnits(tick);
  if (turn_start_units != 0 && units >> 53 == 0)
    return std::bit_cast<double>(kEpochBits | (units & kMantissa));
  return turn_start + tick / 1e6;
}

double SampleClock::Synchronise(std::uint32_t tick, const RecordTime& stamp) {
  const double value = Unwrap(tick);
  const auto second = static_cast<std::int32_t>(stamp.seconds);
  if (second == last_second) return value;
  last_second = second;
  const double difference = stamp.InSeconds() - value;
  if (std::fabs(difference) < 1.0) return value;
  clock_offset += difference;
  SetTurn(turn);
  return stamp.InSeconds();
}
