#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <span>

#include "bench/leaf.h"
#include "bench/light_path.h"
#include "bench/record_writer.h"
#include "leaf/lumet/link/dsp_records.h"

// A signal processor for the desk, with a leaf in front of it: takes the head's commands, runs
// flashes and dark pulses as they say, and makes its records. It has no clock and no descriptor of
// its own; RunSimulatedDSP gives it both.
class SimulatedDSP {
 public:
  // `rate` is the output rate, Hz, until the head sets another. Noise comes from `seed`.
  SimulatedDSP(std::uint32_t rate, std::uint64_t seed, const Leaf& leaf);

  // Sets the leaf's, from now on.
  void SetEnvironment(const Environment& environment);

  // The records that wait to be sent.
  RecordWriter& Output() { return output; }

  // Says that the processor has started.
  void Start(const RecordTime& now);
  // Starts anew: what was set and what runs is forgotten, but for the output format, and ticks
  // count from 0 again.
  void Reset(const RecordTime& now);
  // From now on, it says after about each `samples` how many it has sent since the start; 0: never.
  void CountEvery(std::uint64_t samples) { count_every = samples; }
  // Takes one packet of commands.
  void HandleCommands(const RecordTime& now, std::span<const std::uint8_t> packet);

  // Makes every sample that is due `elapsed` microseconds after the start. What is more than 0.9 s
  // late in plain measuring, since nobody took the records, is left out and counted in a debug
  // text.
  void Advance(const RecordTime& now, std::uint64_t elapsed);
  // Microseconds after the start at which the next record will be ready.
  std::uint64_t NextRecordDue() const;

 private:
  // A stretch of time in which the processor does one thing. The light goes from `from` to `to`.
  struct Segment {
    enum class Kind { kMeasure = 1, kFlash, kDark };  // as a raw capture waits for it
    Kind kind = Kind::kMeasure;
    std::uint16_t code = kMeasuring;
    std::uint64_t duration = 0;  // microseconds; ignored in plain measuring
    LightDrive from;
    LightDrive to;
    std::uint32_t outrate = 1;  // Hz
    std::uint16_t batch = 1;
  };

  void HandleCommand(const RecordTime& now, const RecordHeader& header,
                     std::span<const std::uint8_t> payload);
  void StartFlash(const RecordTime& now, bool multi_phase);
  void StartDarkPulse(const RecordTime& now);
  Segment FlashSegment(std::uint16_t code, std::uint64_t duration) const;
  Segment DarkSegment(std::uint16_t code, std::uint64_t duration) const;
  void SetTiming(const RecordTime& now, const TimingConfig& new_timing);
  Segment MeasureSegment() const;

  const Segment& Current() const { return sequence.empty() ? measure : sequence.front(); }
  // Begins what waits in `sequence`.
  void Begin(const RecordTime& now);
  std::uint64_t SegmentEnd() const;
  std::uint64_t SampleTime(std::uint64_t number) const;
  std::size_t BatchLimit() const;
  LeafLight LightAt(std::uint64_t elapsed, LightDrive& drive) const;
  // Brings the leaf to this time.
  void AdvanceLeaf(std::uint64_t elapsed);
  WireSample MakeSample(std::uint64_t elapsed);
  void FlushBatch(const RecordTime& now);
  void SendRawCapture(const RecordTime& now);
  float Noise(float deviation);

  RecordWriter output;
  std::mt19937_64 random;
  std::normal_distribution<float> normal;
  const std::uint32_t start_rate;  // Hz
  std::map<std::uint16_t, std::uint16_t> registers;
  Leaf leaf;
  LightPath optics;
  bool streaming = false;  // the output format is known
  bool red_modulation = true;
  TimingConfig timing;
  Segment measure;
  std::deque<Segment> sequence;  // the front runs; empty while measuring

  std::uint64_t segment_since = 0;  // microseconds after the start
  std::uint64_t made = 0;           // samples since then
  std::uint64_t leaf_at = 0;        // how far the leaf has come
  std::uint64_t last_elapsed = 0;
  std::uint64_t tick_start = 0;  // when ticks were 0
  std::uint64_t sent = 0;        // samples, since the start
  std::uint64_t count_every = 0;

  std::array<WireSample, WireBatch::kSlots> batch;
  std::size_t gathered = 0;

  // A raw capture that waits for its moment.
  struct {
    bool wanted = false;
    std::uint32_t size = 0;  // bytes
    std::uint32_t when = 0;
  } raw;
};
