#include "leaf/lumet/link/dsp_device.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <sstream>
#include <string_view>
#include <utility>

#include "common/little_endian.h"

namespace {

constexpr std::size_t kBufferSize = 16384;
constexpr std::size_t kMaxPayload = 404;

std::vector<std::uint16_t> Words(const std::uint8_t* from, std::size_t bytes) {
  std::vector<std::uint16_t> words(bytes / 2);
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = GetU16(from + 2 * i);
  return words;
}

}  // namespace

DSPDevice::DSPDevice(const std::string& path)
    : PollItem(POLLIN, false), file(path, O_RDWR), borrowed_end(false), read_buffer(kBufferSize) {
  write_queue.reserve(kBufferSize);
  Add();
}

DSPDevice::DSPDevice(int descriptor)
    : PollItem(POLLIN, false), file(descriptor), borrowed_end(true), read_buffer(kBufferSize) {
  write_queue.reserve(kBufferSize);
  Add();
}

DSPDevice::Listener* DSPDevice::SetListener(Listener* new_listener) {
  return std::exchange(listener, new_listener);
}

void DSPDevice::RequestVersion() { SendBytes(DSPCode::RequestVersion, {}); }

void DSPDevice::SetTimingConfig(const TimingConfig& config) {
  SendBytes(DSPCode::SetTimingConfig, config.Encode());
}

void DSPDevice::SetBiasConfig(const BiasConfig& config) {
  SendBytes(DSPCode::SetBiasConfig, config.Encode());
}

void DSPDevice::StartRectFlash() { SendBytes(DSPCode::StartRectFlash, {}); }
void DSPDevice::StartMultiPhaseFlash() { SendBytes(DSPCode::StartMultiPhaseFlash, {}); }
void DSPDevice::StartInductionFlash() { SendBytes(DSPCode::StartInductionFlash, {}); }
void DSPDevice::StartDarkPulse() { SendBytes(DSPCode::StartDarkPulse, {}); }
void DSPDevice::BreakSequence() { SendBytes(DSPCode::BreakSequence, {}); }
void DSPDevice::ResetSequencer() { SendBytes(DSPCode::ResetSequencer, {}); }

void DSPDevice::WriteRegister(std::uint16_t address, std::uint16_t value) {
  SendPair(DSPCode::WriteRegister, address, value);
}

void DSPDevice::ReadRegister(std::uint16_t address) {
  std::array<std::uint8_t, 2> payload = {};
  PutU16(payload.data(), address);
  SendBytes(DSPCode::ReadRegister, payload);
}

void DSPDevice::StartRawCapture(std::uint32_t size, std::uint32_t when) {
  std::array<std::uint8_t, 8> payload = {};
  PutU32(payload.data(), size);
  PutU32(payload.data() + 4, when > 3 ? 0 : when);
  SendBytes(DSPCode::StartRawCapture, payload);
}

void DSPDevice::SetOutputFormat(std::uint32_t format) {
  SendWord(DSPCode::SetOutputFormat, format);
}

void DSPDevice::RedModulationOn() { SendWord(DSPCode::SetRedModulation, 1); }
void DSPDevice::RedModulationOff() { SendWord(DSPCode::SetRedModulation, 0); }

void DSPDevice::SetGpio(std::uint16_t line, std::uint16_t value) {
  SendPair(DSPCode::SetGpio, line, value);
}

void DSPDevice::TestVectorOn() { SendWord(DSPCode::SetTestVector, 1); }
void DSPDevice::TestVectorOff() { SendWord(DSPCode::SetTestVector, 0); }

void DSPDevice::AllOff() {
  TimingConfig off;
  off.measure_modrate = off.flash_modrate = off.dark_modrate = 1;
  off.measure_outrate = off.flash_outrate = off.dark_outrate = 1;
  off.flash_margin_before = off.flash_margin_after = 1;
  off.dark_margin_before = off.dark_margin_after = 1;
  off.measure_batch = off.flash_batch = off.dark_batch = 1;
  off.phase1_duration = off.phase2_duration = off.phase3_duration = 1;
  off.flash_duration = off.dark_duration = 1;
  off.dark_before = off.dark_after = off.red_precharge_time = 1;
  ResetSequencer();
  SetTimingConfig(off);
  HandleWrite();
}

void DSPDevice::SendBytes(DSPCode code, std::span<const std::uint8_t> payload) {
  Send(static_cast<std::uint16_t>(code), payload.data(), payload.size());
}

void DSPDevice::SendWord(DSPCode code, std::uint32_t word) {
  std::array<std::uint8_t, 4> payload = {};
  PutU32(payload.data(), word);
  SendBytes(code, payload);
}

void DSPDevice::SendPair(DSPCode code, std::uint16_t first, std::uint16_t second) {
  SendWord(code, first | std::uint32_t{second} << 16);
}

void DSPDevice::Send(std::uint16_t code, const void* payload, std::size_t length) {
  RecordHeader header;
  header.code = code;
  header.length = static_cast<std::uint16_t>(std::min(length, kMaxPayload));
  const auto head = header.Encode();
  const auto* bytes = static_cast<const std::uint8_t*>(payload);
  write_queue.insert(write_queue.end(), head.begin(), head.end());
  write_queue.insert(write_queue.end(), bytes, bytes + header.length);
  write_queue.resize(write_queue.size() + PaddedLength(header.length) - header.length);
  SetEvents(POLLIN | POLLOUT);
}

void DSPDevice::HandleWrite() {
  try {
    if (!write_queue.empty()) {
      const int written = file.Write(write_queue.data(), static_cast<unsigned>(write_queue.size()));
      write_queue.erase(write_queue.begin(), write_queue.begin() + written);
    }
    if (write_queue.empty()) SetEvents(POLLIN);
  } catch (const std::exception& error) {
    std::cout << "DSPDevice::HandleWrite(): ERROR: " << error.what() << "\n";
  }
}

void DSPDevice::HandleRead() {
  try {
    const int count = file.Read(read_buffer.data(), static_cast<unsigned>(read_buffer.size()));
    if (count == 0 && borrowed_end) EndOfFile();
    if (count <= 0 || listener == nullptr) return;
    std::span<const std::uint8_t> rest(read_buffer.data(), static_cast<std::size_t>(count));
    while (rest.size() >= RecordHeader::kSize)
      rest = rest.subspan(std::min(DecodeRecord(rest), rest.size()));
  } catch (const std::exception& error) {
    std::cout << "DSPDevice::HandleRead(): ERROR: " << error.what() << "\n";
  }
}

void DSPDevice::EndOfFile() {
  std::cout << "DSPDevice: the signal processor has closed its end of the link\n";
  Remove();
  PollProcessor::Instance()->Quit();
}

std::size_t DSPDevice::DecodeRecord(std::span<const std::uint8_t> bytes) {
  const RecordHeader header = RecordHeader::Decode(bytes.data());
  if (RecordHeader::kSize + header.length > bytes.size()) return bytes.size();
  const std::uint8_t* payload = bytes.data() + RecordHeader::kSize;
  listener->GotRecord(header.time, header.code, payload, header.length);
  // A listener may take itself off inside a call.
  if (listener != nullptr) Dispatch(header, payload);
  return RecordHeader::kSize + PaddedLength(header.length);
}

void DSPDevice::Dispatch(const RecordHeader& header, const std::uint8_t* payload) {
  const std::uint16_t length = header.length;
  const auto text = [&] { return std::string(reinterpret_cast<const char*>(payload), length); };
  switch (static_cast<DSPCode>(header.code)) {
    case DSPCode::PongRecord:
      return listener->GotPong(text());
    case DSPCode::DebugTextRecord:
      return listener->GotDebugMessage(text());
    case DSPCode::InitTextRecord:
      return listener->GotInitMessage(text());
    case DSPCode::InfoTextRecord:
      return listener->GotInfoMessage(text());
    case DSPCode::BadCommandRecord:
      return listener->GotBadCommand(text());
    case DSPCode::FatalTextRecord:
      return listener->GotFatalMessage(text());
    case DSPCode::VersionRecord: {
      std::istringstream words(text());
      std::string dsp;
      std::string fpga;
      words >> dsp >> fpga;
      return listener->GotVersion(dsp, fpga);
    }
    case DSPCode::LegacyStatusRecord: {
      if (length < LegacySample::kMinimumSize) return;
      LegacySample sample = LegacySample::Decode(header.time, payload);
      return listener->GotLegacyData(sample);
    }
    case DSPCode::WordListARecord:
      if (length >= 9 && length <= kMaxPayload)
        listener->GotWordListA(header.time, Words(payload + 4, length - 4U));
      return;
    case DSPCode::WordListBRecord:
      if (length >= 9 && length <= kMaxPayload)
        listener->GotWordListB(header.time, Words(payload + 4, length - 4U));
      return;
    case DSPCode::WordListCRecord:
      return listener->GotWordListC(Words(payload, length));
    case DSPCode::CounterRecord:
      if (length >= 4) listener->GotCounter(GetU32(payload));
      return;
    case DSPCode::RegisterWrittenRecord:
      if (length >= 4) listener->GotRegisterWritten(GetU16(payload), GetU16(payload + 2));
      return;
    case DSPCode::RegisterValueRecord:
      if (length >= 4) listener->GotRegisterValue(GetU16(payload), GetU16(payload + 2));
      return;
    case DSPCode::DataSampleRecord: {
      if (length < WireSample::kSize) return;
      const WireSample wire = WireSample::Decode(payload);
      DataSample sample = ToDataSample(wire, sample_clock.Synchronise(wire.tick, header.time));
      return listener->GotData(sample);
    }
    case DSPCode::DataBatchRecord:
      if (length >= WireBatch::kSize) DispatchBatch(header.time, payload);
      return;
    case DSPCode::RawCaptureRecord: {
      // An index and a count of bytes stand before the bytes.
      if (length < 8) return;
      const std::uint32_t count = GetU32(payload + 4);
      if (count > std::min<std::size_t>(length, kMaxPayload) - 8) return;
      return listener->GotRawCapture(GetU32(payload), payload + 8, count);
    }
    default:
      return listener->GotUnknownMessage(header.code, payload, length);
  }
}

void DSPDevice::DispatchBatch(const RecordTime& stamp, const std::uint8_t* payload) {
  const std::size_t count = GetU16(payload + WireBatch::kCountOffset);
  if (count == 0 || count > WireBatch::kSlots) return;
  // The record is stamped when its last sample is there.
  const std::uint8_t* last = payload + (count - 1) * WireSample::kSize;
  sample_clock.Synchronise(WireSample::Decode(last).tick, stamp);
  for (const std::uint8_t* slot = payload; slot <= last && listener != nullptr;
       slot += WireSample::kSize) {
    const WireSample wire = WireSample::Decode(slot);
    DataSample sample = ToDataSample(wire, sample_clock.Unwrap(wire.tick));
    listener->GotData(sample);
  }
}
