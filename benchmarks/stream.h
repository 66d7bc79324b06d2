#pragma once

#include <cstdint>

#include "bench/record_writer.h"

// The samples that a benchmark sends as the signal processor.

// What changes from sample to sample.
enum class Stream {
  kRealistic,    // the signals; levels stand still
  kEveryColumn,  // those as well
  kTies,         // the signals, which end in ties of the seventh digit, as averages of counts do
  kSmall,        // the signals, below 1e-4
  kFlash,        // the signals, within an event
};

// How samples come: so many in each read of the processor.
struct Rate {
  std::uint32_t period_us;  // of the samples
  int in_read;
};
inline constexpr Rate k250kHz = {4, 390};
inline constexpr Rate k1kHz = {1000, 10};
inline constexpr Rate k10Hz = {100'000, 1};

// The time of the sample with the number 0, in seconds.
inline constexpr std::uint32_t kFirstSecond = 1'700'000'000;

// What one read of the processor brings, from the sample with the number `first` on: batches of
// ten, or one sample alone.
RecordWriter ReadOf(Stream stream, const Rate& rate, int first);
