#pragma once

#include <cstdint>

#include "leaf/lumet/link/dsp_records.h"

// Turns the processor's 32-bit microsecond tick into seconds of the system clock.
//
// Sample times keep the processor's own spacing, across wraps of the tick, and are pulled to the
// system clock only when they are a full second or more away from it: at start, and after a step
// of the system clock.
class SampleClock {
 public:
  // Time of a sample with tick `tick`, in seconds; keeps track of wraps.
  double Unwrap(std::uint32_t tick);

  // The same, and resynchronises to `stamp`, the time of the sample's record: at most once in each
  // second of the stamps.
  double Synchronise(std::uint32_t tick, const RecordTime& stamp);

 private:
  // Goes to turn `w`, and works out the time at its tick 0.
  void SetTurn(std::uint32_t w);

  bool near_wrap = false;   // in the 10 s before a wrap, or not 10 s past it
  std::uint32_t wraps = 0;  // completed and 10 s past
  double clock_offset = 0;  // seconds to add to the unwrapped tick
  std::int32_t last_second = 0;
  // The turn of the latest sample, and the time at its start, in seconds; also in units of 2^-22 s,
  // or 0 outside the years 2004 to 2038.
  std::uint32_t turn = 0;
  double turn_start = 0;
  std::uint64_t turn_start_units = 0;
};
