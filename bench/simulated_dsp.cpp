#include "bench/simulated_dsp.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "common/little_endian.h"
#include "leaf/lumet/link/recording.h"

namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
constexpr std::uint64_t kMicrosecondsPerMs = 1000;
// Records are stamped when they are passed on. A second after its sample, a stamp would be a step
// of the system clock for the head.
constexpr std::uint64_t kMostLate = 900'000;

// Before the head sets any light there is measuring light alone, so that the leaf starts in the
// dark.
TimingConfig StartTiming(std::uint32_t rate) {
  TimingConfig timing;
  timing.measure_outrate = rate;
  timing.measure_modrate = std::max<std::uint32_t>(rate, 1000);
  timing.measure_batch = BatchSize(rate);
  timing.measure_modred = 8000;
  return timing;
}

std::uint32_t Hz(std::uint32_t rate) { return std::clamp<std::uint32_t>(rate, 1, 250'000); }

float Between(float from, float to, float share) { return from + (to - from) * share; }

}  // namespace

SimulatedDSP::SimulatedDSP(std::uint32_t rate, std::uint64_t seed, const Leaf& leaf)
    : random(seed), start_rate(rate), leaf(leaf), timing(StartTiming(rate)) {
  measure = MeasureSegment();
}

void SimulatedDSP::SetEnvironment(const Environment& environment) {
  AdvanceLeaf(last_elapsed);
  leaf.SetEnvironment(environment);
}

void SimulatedDSP::Start(const RecordTime& now) {
  output.Text(now, DSPCode::InitTextRecord, "simulated processor ready");
}

void SimulatedDSP::Reset(const RecordTime& now) {
  AdvanceLeaf(last_elapsed);
  gathered = 0;
  sequence.clear();
  registers.clear();
  raw = {};
  red_modulation = true;
  timing = StartTiming(start_rate);
  measure = MeasureSegment();
  tick_start = last_elapsed;
  Start(now);
  Begin(now);
}

void SimulatedDSP::HandleCommands(const RecordTime& now, std::span<const std::uint8_t> packet) {
  ForEachRecord(packet, [&](const RecordHeader& header, std::span<const std::uint8_t> payload) {
    HandleCommand(now, header, payload);
  });
}

void SimulatedDSP::HandleCommand(const RecordTime& now, const RecordHeader& header,
                                 std::span<const std::uint8_t> payload) {
  const auto holds = [&](std::size_t size) { return payload.size() >= size; };
  switch (static_cast<DSPCode>(header.code)) {
    case DSPCode::RequestVersion:
      return output.Text(now, DSPCode::VersionRecord, "bench-1.0 bench-1.0");
    case DSPCode::SetOutputFormat:
      if (!holds(4)) break;
      streaming = GetU32(payload.data()) == 2;
      return Begin(now);
    case DSPCode::SetTimingConfig:
      if (!holds(TimingConfig::kSize)) break;
      return SetTiming(now, TimingConfig::Decode(payload.data()));
    case DSPCode::SetBiasConfig:
      if (!holds(BiasConfig::kSize)) break;
      AdvanceLeaf(last_elapsed);
      return optics.Calibrate(BiasConfig::Decode(payload.data()));
    case DSPCode::StartRectFlash:
    case DSPCode::StartInductionFlash:
      return StartFlash(now, false);
    case DSPCode::StartMultiPhaseFlash:
      return StartFlash(now, true);
    case DSPCode::StartDarkPulse:
      return StartDarkPulse(now);
    case DSPCode::BreakSequence:
    case DSPCode::ResetSequencer:
      if (sequence.empty()) return;
      AdvanceLeaf(last_elapsed);
      sequence.clear();
      return Begin(now);
    case DSPCode::SetRedModulation:
      if (!holds(4)) break;
      AdvanceLeaf(last_elapsed);
      red_modulation = GetU32(payload.data()) != 0;
      return;
    case DSPCode::StartRawCapture:
      if (!holds(8)) break;
      raw = {true, GetU32(payload.data()), GetU32(payload.data() + 4)};
      return SendRawCapture(now);
    case DSPCode::ReadRegister: {
      if (!holds(2)) break;
      const std::uint16_t address = GetU16(payload.data());
      return output.RegisterRecord(now, DSPCode::RegisterValueRecord, address, registers[address]);
    }
    case DSPCode::WriteRegister: {
      if (!holds(4)) break;
      const std::uint16_t address = GetU16(payload.data());
      registers[address] = GetU16(payload.data() + 2);
      return output.RegisterRecord(now, DSPCode::RegisterWrittenRecord, address,
                                   registers[address]);
    }
    case DSPCode::SetGpio:
    case DSPCode::SetTestVector:
      return;
    default:
      break;
  }
  output.Text(now, DSPCode::BadCommandRecord,
              "code " + std::to_string(header.code) + ", length " + std::to_string(header.length));
}

void SimulatedDSP::SetTiming(const RecordTime& now, const TimingConfig& new_timing) {
  timing = new_timing;
  AdvanceLeaf(last_elapsed);
  // A sequence that runs goes on as it began.
  if (sequence.empty()) FlushBatch(now);
  measure = MeasureSegment();
  if (sequence.empty()) Begin(now);
}

SimulatedDSP::Segment SimulatedDSP::MeasureSegment() const {
  Segment segment;
  segment.from = {static_cast<float>(timing.measure_red), static_cast<float>(timing.measure_blue),
                  static_cast<float>(timing.measure_farred),
                  static_cast<float>(timing.measure_modred), timing.measure_modrate};
  segment.to = segment.from;
  segment.outrate = Hz(timing.measure_outrate);
  segment.batch = timing.measure_batch;
  return segment;
}

// With the light of the steady state.
SimulatedDSP::Segment SimulatedDSP::FlashSegment(std::uint16_t code, std::uint64_t duration) const {
  Segment segment = MeasureSegment();
  segment.kind = Segment::Kind::kFlash;
  segment.code = code;
  segment.duration = duration;
  segment.outrate = Hz(timing.flash_outrate);
  segment.batch = timing.flash_batch;
  segment.from.modred = timing.flash_modred;
  segment.from.modrate = timing.flash_modrate;
  segment.to = segment.from;
  return segment;
}

void SimulatedDSP::StartFlash(const RecordTime& now, bool multi_phase) {
  const auto lit = [&](std::uint16_t code, std::uint16_t duration_ms, float red_from,
                       float red_to) {
    Segment segment = FlashSegment(code, duration_ms * kMicrosecondsPerMs);
    segment.from.red = red_from;
    segment.from.blue = timing.flash_blue;
    segment.from.farred = timing.flash_farred;
    segment.to = segment.from;
    segment.to.red = red_to;
    return segment;
  };
  const float red = timing.flash_red;
  AdvanceLeaf(last_elapsed);
  sequence = {FlashSegment(kBeforeFlash, timing.flash_margin_before)};
  if (multi_phase) {
    const float ramp_end = timing.ramp_end_red;
    sequence.push_back(lit(kPhase1, timing.phase1_duration, red, red));
    sequence.push_back(lit(kPhase2, timing.phase2_duration, red, ramp_end));
    sequence.push_back(lit(kPhase3, timing.phase3_duration, red, red));
  } else {
    sequence.push_back(lit(kFlash, timing.flash_duration, red, red));
  }
  sequence.push_back(FlashSegment(kAfterFlash, timing.flash_margin_after));
  Begin(now);
}

// In the dark but for the measuring light.
SimulatedDSP::Segment SimulatedDSP::DarkSegment(std::uint16_t code, std::uint64_t duration) const {
  Segment segment;
  segment.kind = Segment::Kind::kDark;
  segment.code = code;
  segment.duration = duration;
  segment.outrate = Hz(timing.dark_outrate);
  segment.batch = timing.dark_batch;
  segment.from.modred = timing.dark_modred;
  segment.from.modrate = timing.dark_modrate;
  segment.to = segment.from;
  return segment;
}

void SimulatedDSP::StartDarkPulse(const RecordTime& now) {
  const auto margin = [&](std::uint16_t code, std::uint64_t duration) {
    Segment segment = DarkSegment(code, duration);
    segment.from.red = timing.dark_red;
    segment.from.blue = timing.dark_blue;
    segment.to = segment.from;
    return segment;
  };
  const std::uint64_t before = std::min(timing.dark_before, timing.dark_duration);
  const std::uint64_t after = std::max<std::uint64_t>(before, timing.dark_after);
  Segment farred = DarkSegment(kDarkFarRed, (after - before) * kMicrosecondsPerSecond);
  farred.from.farred = farred.to.farred = timing.dark_farred;
  AdvanceLeaf(last_elapsed);
  sequence = {
      margin(kBeforeDark, timing.dark_margin_before),
      DarkSegment(kDarkBeforeFarRed, before * kMicrosecondsPerSecond), farred,
      DarkSegment(kDarkAfterFarRed, (timing.dark_duration - after) * kMicrosecondsPerSecond),
      margin(kAfterDark, timing.dark_margin_after)};
  Begin(now);
}

void SimulatedDSP::Begin(const RecordTime& now) {
  FlushBatch(now);
  segment_since = last_elapsed;
  made = 0;
  SendRawCapture(now);
}

std::uint64_t SimulatedDSP::SegmentEnd() const {
  return sequence.empty() ? std::numeric_limits<std::uint64_t>::max()
                          : segment_since + sequence.front().duration;
}

std::uint64_t SimulatedDSP::SampleTime(std::uint64_t number) const {
  return segment_since + (number + 1) * kMicrosecondsPerSecond / Current().outrate;
}

std::size_t SimulatedDSP::BatchLimit() const {
  return std::clamp<std::size_t>(Current().batch, 1, WireBatch::kSlots);
}

std::uint64_t SimulatedDSP::NextRecordDue() const {
  return std::min(SegmentEnd(), SampleTime(made + BatchLimit() - gathered - 1));
}

void SimulatedDSP::Advance(const RecordTime& now, std::uint64_t elapsed) {
  last_elapsed = elapsed;
  if (!streaming) return;
  std::uint64_t lost = 0;
  if (sequence.empty())
    for (; SampleTime(made) + kMostLate < elapsed; ++made) ++lost;
  if (lost > 0) output.Text(now, DSPCode::DebugTextRecord, std::to_string(lost) + " samples lost");
  while (true) {
    const std::uint64_t next = SampleTime(made);
    if (next <= SegmentEnd()) {
      if (next > elapsed) return;
      batch[gathered++] = MakeSample(next);
      ++made;
      if (gathered == BatchLimit()) FlushBatch(now);
    } else {
      const std::uint64_t end = SegmentEnd();
      if (end > elapsed) return;
      AdvanceLeaf(end);
      FlushBatch(now);
      sequence.pop_front();
      last_elapsed = end;
      Begin(now);
      last_elapsed = elapsed;
    }
  }
}

LeafLight SimulatedDSP::LightAt(std::uint64_t elapsed, LightDrive& drive) const {
  const Segment& segment = Current();
  const auto since = static_cast<float>(elapsed - segment_since);
  const float share =
      segment.duration == 0 ? 0 : std::min(1.0F, since / static_cast<float>(segment.duration));
  drive = segment.from;
  drive.red = Between(segment.from.red, segment.to.red, share);
  if (!red_modulation) drive.modred = 0;
  return optics.At(drive);
}

void SimulatedDSP::AdvanceLeaf(std::uint64_t elapsed) {
  // A ramp is taken in pieces, each with the light of its middle.
  const bool ramps = Current().from.red != Current().to.red;
  const std::uint64_t longest = ramps ? kMicrosecondsPerMs : elapsed;
  while (leaf_at < elapsed) {
    const std::uint64_t span = std::min(elapsed - leaf_at, longest);
    LightDrive drive;
    const LeafLight light = LightAt(std::max(leaf_at + span / 2, segment_since), drive);
    leaf.Advance(static_cast<double>(span) / kMicrosecondsPerSecond, light.OnPSII(), light.farred);
    leaf_at += span;
  }
}

WireSample SimulatedDSP::MakeSample(std::uint64_t elapsed) {
  AdvanceLeaf(elapsed);
  LightDrive drive;
  const LeafLight light = LightAt(elapsed, drive);
  WireSample sample;
  sample.tick = static_cast<std::uint32_t>(elapsed - tick_start);
  sample.red_dac = std::round(drive.red);
  sample.blue_dac = drive.blue;
  sample.farred_dac = drive.farred;
  sample.modred_dac = drive.modred;
  sample.modulation_rate = drive.modrate;
  sample.code = Current().code;
  optics.Read(
      light, leaf.Fluorescence(), drive, [this](float deviation) { return Noise(deviation); },
      sample);
  return sample;
}

float SimulatedDSP::Noise(float deviation) { return deviation * normal(random); }

void SimulatedDSP::FlushBatch(const RecordTime& now) {
  if (gathered == 0) return;
  if (gathered == 1)
    output.Sample(now, batch[0]);
  else
    output.Batch(now, std::span(batch).first(gathered));
  const std::uint64_t before = sent;
  sent += gathered;
  gathered = 0;
  if (count_every > 0 && before / count_every != sent / count_every)
    output.Text(now, DSPCode::InfoTextRecord, std::to_string(sent) + " samples sent");
}

void SimulatedDSP::SendRawCapture(const RecordTime& now) {
  constexpr std::uint32_t kMost = 1 << 20;  // bytes
  const bool is_due = raw.when == 0 || raw.when == static_cast<std::uint32_t>(Current().kind);
  if (!raw.wanted || !is_due) return;
  raw.wanted = false;
  // The detector's converter, 16 bits a time, over pulses of the measuring light.
  constexpr std::uint32_t kPulse = 64;  // conversions from one to the next
  std::vector<std::uint8_t> bytes(std::min(raw.size, kMost));
  for (std::uint32_t i = 0; i + 1 < bytes.size(); i += 2) {
    const float pulse = i / 2 % kPulse < 4 ? 900 : 0;
    PutU16(&bytes[i], static_cast<std::uint16_t>(150 + pulse + std::fabs(Noise(3))));
  }
  std::uint32_t index = 0;
  for (std::span<const std::uint8_t> rest = bytes; !rest.empty(); ++index) {
    const std::size_t count = std::min(rest.size(), RecordWriter::kRawPiece);
    output.RawCapture(now, index, rest.first(count));
    rest = rest.subspan(count);
  }
  output.RawCapture(now, index, {});
}
