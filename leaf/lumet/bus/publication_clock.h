#pragma once

#include <bit>
#include <cstdint>

// Says when the next publication is due by the time of the samples, in seconds: once a period, and
// when that time steps back by more than a second. Smaller steps are waited out.
class PublicationClock {
 public:
  explicit PublicationClock(double period_s) : period(period_s) {}

  // True once for each publication. Asked for every sample: by far most times lie so surely within
  // the period that a look at their bits, which are in the order of the numbers, will do.
  bool NextIsDue(double time) {
    const auto bits = std::bit_cast<std::uint64_t>(time);
    return (bits < quiet_from || bits >= quiet_until) && HasPassed(time);
  }

 private:
  bool HasPassed(double time) {
    const double passed = time - last_time;
    if (passed < period && passed >= -1.0) return false;
    last_time = time;
    quiet_from = std::bit_cast<std::uint64_t>(last_time);
    quiet_until = last_time > 0 ? std::bit_cast<std::uint64_t>(last_time + 0.99 * period) : 0;
    return true;
  }

  double period;
  double last_time = 0;
  std::uint64_t quiet_from = 0;
  std::uint64_t quiet_until = 0;
};
