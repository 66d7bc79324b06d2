#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <span>

#include "bench/record_writer.h"
#include "leaf/lumet/dsp_records.h"

// A signal processor for the desk: takes the head's commands and makes its records, at the rate
// asked for. It has no clock and no descriptor of its own; RunSimulatedDSP gives it both.
//
// The signal is a steady one: detector and light sensor follow the DAC levels, with noise from a
// seed. There is no leaf in front of it yet, so flashes and dark pulses are declined with a text.
class SimulatedDSP {
 public:
  // `rate` is the output rate, Hz, until the head sets another.
  SimulatedDSP(std::uint32_t rate, std::uint64_t seed);

  // The records that wait to be sent.
  RecordWriter& Output() { return output; }

  // Says that the processor has started.
  void Start(const RecordTime& now);
  // Takes one packet of commands.
  void HandleCommands(const RecordTime& now, std::span<const std::uint8_t> packet);

  // Makes every sample that is due `elapsed` microseconds after the start. What is more than a
  // second late, since nobody took the records, is left out and counted in a debug text.
  void Advance(const RecordTime& now, std::uint64_t elapsed);
  // Microseconds after the start at which the next record will be ready.
  std::uint64_t NextRecordDue() const;

 private:
  void HandleCommand(const RecordTime& now, const RecordHeader& header,
                     std::span<const std::uint8_t> payload);
  // Samples come at `rate` from now on, in records as `timing` says.
  void SetRate(std::uint32_t rate);
  // When sample `number` since the last SetRate is due.
  std::uint64_t SampleTime(std::uint64_t number) const;
  WireSample MakeSample(std::uint64_t elapsed);
  void FlushBatch(const RecordTime& now);
  float Noise(float deviation);

  RecordWriter output;
  std::mt19937_64 random;
  std::normal_distribution<float> normal;
  std::map<std::uint16_t, std::uint16_t> registers;
  bool streaming = false;  // the output format is known
  TimingConfig timing;

  std::uint32_t output_rate = 1;  // Hz
  std::uint64_t rate_since = 0;   // microseconds after the start
  std::uint64_t made = 0;         // samples since then
  std::uint64_t last_elapsed = 0;

  std::array<WireSample, WireBatch::kSlots> batch;
  std::size_t batch_size = 1;
  std::size_t gathered = 0;
};

// Plays the processor on `descriptor`, one end of a SOCK_SEQPACKET pair, until the other end
// closes. Header stamps are the system clock.
void RunSimulatedDSP(int descriptor, SimulatedDSP& dsp);
