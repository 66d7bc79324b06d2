#include "bench/simulated_dsp.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string>
#include <vector>

#include "common/errno_error.h"
#include "common/little_endian.h"

namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;

// Light levels before the head sets any: a moderate red light with some blue.
TimingConfig StartTiming(std::uint32_t rate) {
  TimingConfig timing;
  timing.measure_outrate = rate;
  timing.measure_modrate = std::max<std::uint32_t>(rate, 1000);
  timing.measure_batch = BatchSize(rate);
  timing.measure_red = 20000;
  timing.measure_blue = 2000;
  timing.measure_modred = 8000;
  return timing;
}

// How long to sleep when it is `now` and the next record is due at `due`, both in microseconds.
int PauseMs(std::uint64_t now, std::uint64_t due) {
  constexpr std::uint64_t kLongest = 1000;
  const std::uint64_t pause = due > now ? (due - now) / 1000 + 1 : 1;
  return static_cast<int>(std::min(pause, kLongest));
}

// Whether a call on the link failed for good.
bool PeerGone(ssize_t result) { return result < 0 && errno != EAGAIN && errno != EINTR; }

RecordTime SystemNow() {
  struct timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return {static_cast<std::uint32_t>(now.tv_sec), static_cast<std::int32_t>(now.tv_nsec)};
}

}  // namespace

SimulatedDSP::SimulatedDSP(std::uint32_t rate, std::uint64_t seed)
    : random(seed), timing(StartTiming(rate)) {
  SetRate(rate);
}

void SimulatedDSP::Start(const RecordTime& now) {
  output.Text(now, DSPCode::InitTextRecord, "simulated processor ready");
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
      if (!streaming) break;
      return SetRate(timing.measure_outrate);
    case DSPCode::SetTimingConfig:
      if (!holds(TimingConfig::kSize)) break;
      FlushBatch(now);
      timing = TimingConfig::Decode(payload.data());
      return SetRate(timing.measure_outrate);
    case DSPCode::BreakSequence:
    case DSPCode::ResetSequencer:
      return FlushBatch(now);
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
    case DSPCode::SetBiasConfig:
    case DSPCode::SetRedModulation:
    case DSPCode::SetGpio:
    case DSPCode::SetTestVector:
      return;
    case DSPCode::StartRectFlash:
    case DSPCode::StartMultiPhaseFlash:
    case DSPCode::StartInductionFlash:
    case DSPCode::StartDarkPulse:
    case DSPCode::StartRawCapture:
      return output.Text(now, DSPCode::InfoTextRecord, "no leaf in front of the processor");
    default:
      break;
  }
  output.Text(now, DSPCode::BadCommandRecord,
              "code " + std::to_string(header.code) + ", length " + std::to_string(header.length));
}

void SimulatedDSP::SetRate(std::uint32_t rate) {
  output_rate = std::clamp<std::uint32_t>(rate, 1, 250'000);
  batch_size = std::clamp<std::size_t>(timing.measure_batch, 1, WireBatch::kSlots);
  rate_since = last_elapsed;
  made = 0;
}

std::uint64_t SimulatedDSP::SampleTime(std::uint64_t number) const {
  return rate_since + (number + 1) * kMicrosecondsPerSecond / output_rate;
}

std::uint64_t SimulatedDSP::NextRecordDue() const {
  return SampleTime(made + batch_size - gathered - 1);
}

void SimulatedDSP::Advance(const RecordTime& now, std::uint64_t elapsed) {
  last_elapsed = elapsed;
  if (!streaming) return;
  std::uint64_t lost = 0;
  for (; SampleTime(made) + kMicrosecondsPerSecond < elapsed; ++made) ++lost;
  if (lost > 0) output.Text(now, DSPCode::DebugTextRecord, std::to_string(lost) + " samples lost");
  for (; SampleTime(made) <= elapsed; ++made) {
    batch[gathered++] = MakeSample(SampleTime(made));
    if (gathered == batch_size) FlushBatch(now);
  }
}

WireSample SimulatedDSP::MakeSample(std::uint64_t elapsed) {
  WireSample sample;
  sample.tick = static_cast<std::uint32_t>(elapsed);
  sample.red_dac = timing.measure_red;
  sample.blue_dac = timing.measure_blue;
  sample.farred_dac = timing.measure_farred;
  sample.modred_dac = timing.measure_modred;
  sample.modulation_rate = timing.measure_modrate;
  sample.code = 1;
  const float light = sample.red_dac + sample.blue_dac + sample.farred_dac;
  sample.dc = 150 + 0.02F * light + Noise(0.5F);
  sample.lumet = 0.05F * sample.modred_dac + Noise(0.8F);
  sample.pc = 0.015F * light + Noise(0.2F);
  return sample;
}

float SimulatedDSP::Noise(float deviation) { return deviation * normal(random); }

void SimulatedDSP::FlushBatch(const RecordTime& now) {
  if (gathered == 0) return;
  if (batch_size == 1)
    output.Sample(now, batch[0]);
  else
    output.Batch(now, std::span(batch).first(gathered));
  gathered = 0;
}

void RunSimulatedDSP(int descriptor, SimulatedDSP& dsp) {
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    const auto since = std::chrono::steady_clock::now() - start;
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(since).count());
  };
  std::vector<std::uint8_t> packet(65536);
  auto& waiting = dsp.Output().packets;
  dsp.Start(SystemNow());
  while (true) {
    // While the head is behind, time passes and samples are lost, as they are with the device.
    if (waiting.empty()) dsp.Advance(SystemNow(), elapsed());
    const auto wanted = static_cast<short>(waiting.empty() ? POLLIN : POLLIN | POLLOUT);
    struct pollfd link = {descriptor, wanted, 0};
    if (poll(&link, 1, PauseMs(elapsed(), dsp.NextRecordDue())) < 0 && errno != EINTR)
      throw ErrnoError("simulated processor: error calling poll()");

    if ((link.revents & POLLOUT) != 0) {
      const auto& next = waiting.front();
      const ssize_t sent = send(descriptor, next.data(), next.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (PeerGone(sent)) return;
      if (sent >= 0) waiting.pop_front();
    }
    if ((link.revents & (POLLIN | POLLHUP)) != 0) {
      const ssize_t count = recv(descriptor, packet.data(), packet.size(), MSG_DONTWAIT);
      if (count == 0 || PeerGone(count)) return;
      if (count > 0)
        dsp.HandleCommands(SystemNow(), std::span(packet).first(static_cast<std::size_t>(count)));
    }
  }
}
