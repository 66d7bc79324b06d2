#include "leaf/lumet/link/dsp_device.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <optional>
#include <sstream>
#include <utility>

#include "common/errno_error.h"
#include "common/little_endian.h"

namespace {

constexpr std::size_t kReadSize = 16384;  // bytes

constexpr int kWriteAgainMs = 20;   // after a write that failed
constexpr int kLookAgainMs = 1000;  // at a device that has hung up, or falsely says it has data
constexpr int kReadsInVain = 2;     // in a row, until the device is given that pause

// Whether a call may well work at once the next time.
bool IsMomentary(const std::exception& error) {
  const auto* failure = dynamic_cast<const ErrnoError*>(&error);
  return failure != nullptr &&
         (failure->ErrorNumber() == EAGAIN || failure->ErrorNumber() == EINTR);
}

bool IsRegisterCommand(std::uint16_t code) {
  return code == static_cast<std::uint16_t>(DSPCode::ReadRegister) ||
         code == static_cast<std::uint16_t>(DSPCode::WriteRegister);
}

std::vector<std::uint16_t> Words(const std::uint8_t* from, std::size_t bytes) {
  std::vector<std::uint16_t> words(bytes / 2);
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = GetU16(from + 2 * i);
  return words;
}

}  // namespace

DSPDevice::DSPDevice(const std::string& path, const Machine* machine)
    : PollItem(POLLIN, false), PollTimer(-1, true), file(path, machine), read_buffer(kReadSize) {
  PollItem::Add();
}

DSPDevice::DSPDevice(int descriptor)
    : PollItem(POLLIN, false), PollTimer(-1, true), file(descriptor), read_buffer(kReadSize) {
  PollItem::Add();
}

DSPDevice::Listener* DSPDevice::SetListener(Listener* listener) {
  return std::exchange(this->listener, listener);
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

bool DSPDevice::WriteRegister(std::uint16_t address, std::uint16_t value) {
  return SendPair(DSPCode::WriteRegister, address, value);
}

bool DSPDevice::ReadRegister(std::uint16_t address) {
  std::array<std::uint8_t, 2> payload = {};
  PutU16(payload.data(), address);
  return SendBytes(DSPCode::ReadRegister, payload);
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
  std::size_t reads = 0;
  write_queue.RemoveWaiting([&](std::uint16_t code) {
    if (code == static_cast<std::uint16_t>(DSPCode::ReadRegister)) ++reads;
    orders.Owe(code);
  });
  // Even to a device that has hung up: nothing is left untried.
  Push(static_cast<std::uint16_t>(DSPCode::ResetSequencer), {});
  SetTimingConfig(kSafeTiming);
  if (is_away) Push(static_cast<std::uint16_t>(DSPCode::SetTimingConfig), kSafeTiming.Encode());
  orders.Forgive(static_cast<std::uint16_t>(DSPCode::SetTimingConfig));
  HandleWrite();
  if (reads > 0 && listener != nullptr) listener->LostRegisterReads(reads);
}

bool DSPDevice::Drain(std::chrono::steady_clock::time_point end) {
  using Milliseconds = std::chrono::milliseconds;
  while (true) {
    HandleWrite();
    if (write_queue.Empty()) return true;
    const auto left =
        std::chrono::duration_cast<Milliseconds>(end - std::chrono::steady_clock::now());
    if (has_ended || left <= Milliseconds(0)) return false;
    // Wait for room, or pause.
    const bool can_wait = !is_away && !is_resting;
    struct pollfd entry = {file.GetFD(), POLLOUT, 0};
    poll(&entry, can_wait ? 1 : 0,
         static_cast<int>(std::min<std::int64_t>(left.count(), kWriteAgainMs)));
    if (is_away) file.Reopen();
  }
}

bool DSPDevice::SendBytes(DSPCode code, std::span<const std::uint8_t> payload) {
  return Send(static_cast<std::uint16_t>(code), payload.data(), payload.size());
}

bool DSPDevice::SendWord(DSPCode code, std::uint32_t word) {
  std::array<std::uint8_t, 4> payload = {};
  PutU32(payload.data(), word);
  return SendBytes(code, payload);
}

bool DSPDevice::SendPair(DSPCode code, std::uint16_t first, std::uint16_t second) {
  return SendWord(code, first | std::uint32_t{second} << 16);
}

bool DSPDevice::Send(std::uint16_t code, const void* payload, std::size_t length) {
  const std::span bytes(static_cast<const std::uint8_t*>(payload),
                        std::min(length, Bounds::kPayload));
  orders.Keep(code, bytes);
  return !is_away && Push(code, bytes);
}

bool DSPDevice::Push(std::uint16_t code, std::span<const std::uint8_t> payload) {
  const bool is_register = IsRegisterCommand(code);
  const bool fits =
      write_queue.Push(code, payload, is_register ? Bounds::kRegisterQueue : Bounds::kQueue);
  if (!fits && !is_register && !is_overfull) {
    is_overfull = true;
    std::cout << "DSPDevice: the queue to the signal processor is full; commands are dropped\n";
  }
  if (!fits) orders.Owe(code);
  UpdateEvents();
  return fits;
}

void DSPDevice::SendOwed() {
  orders.SendOwed(
      [this](std::uint16_t code, std::span<const std::uint8_t> payload) { Push(code, payload); });
  UpdateEvents();
}

void DSPDevice::Rest() {
  is_resting = true;
  if (!is_away) SetTimeout(kWriteAgainMs);
}

void DSPDevice::UpdateEvents() {
  unsigned mask = 0;
  if (!is_deaf) mask |= POLLIN;
  if (!is_resting && (orders.AnyOwed() || !write_queue.Empty())) mask |= POLLOUT;
  // An item without events is not polled, whatever its descriptor says.
  SetEvents(static_cast<unsigned short>(is_away ? 0 : mask));
}

void DSPDevice::HandleWrite() {
  try {
    const std::span<const std::uint8_t> packet = write_queue.Packet(Bounds::kPacket);
    if (!packet.empty()) {
      const int written = file.Write(packet.data(), static_cast<unsigned>(packet.size()));
      write_queue.Written(static_cast<std::size_t>(written));
      is_resting = false;
      if (written == 0) Rest();
      if (write_failed) std::cout << "DSPDevice::HandleWrite(): writing works again\n";
      write_failed = false;
    }
  } catch (const std::exception& error) {
    Rest();
    if (!write_failed && !is_away && !IsMomentary(error)) {
      std::cout << "DSPDevice::HandleWrite(): ERROR: " << error.what() << "\n";
      write_failed = true;
    }
  }
  if (write_queue.Empty()) is_overfull = false;
  UpdateEvents();
}

void DSPDevice::HandleEvents(int revents) {
  PollItem::HandleEvents(revents);
  if (write_queue.Empty() && !is_away) SendOwed();
  // As long as there is something to read, it is read first.
  const bool had_data = (revents & POLLIN) != 0 && reads_in_vain == 0;
  if (DeviceFile::HasHungUp(revents) && !had_data) HungUp();
}

void DSPDevice::HandleRead() {
  int count = 0;
  try {
    count = file.Read(read_buffer.data(), static_cast<unsigned>(read_buffer.size()));
  } catch (const std::exception& error) {
    if (IsMomentary(error)) return;
    if (!read_failed) std::cout << "DSPDevice::HandleRead(): ERROR: " << error.what() << "\n";
    read_failed = true;
    return NothingRead();
  }
  read_failed = false;
  if (count == 0) return file.IsEndOfPair() ? EndOfFile() : NothingRead();
  reads_in_vain = 0;
  DecodeRecords(static_cast<std::size_t>(count));
}

void DSPDevice::NothingRead() {
  if (++reads_in_vain < kReadsInVain) return;
  is_deaf = true;
  SetTimeout(is_resting ? kWriteAgainMs : kLookAgainMs);
  UpdateEvents();
}

void DSPDevice::HungUp() {
  if (is_away || has_ended) return;
  if (file.IsEndOfPair()) return EndOfFile();
  std::cout << "DSPDevice: the signal processor's device has hung up\n";
  is_away = true;
  is_resting = is_deaf = write_failed = read_failed = is_overfull = false;
  write_queue.Clear();
  UpdateEvents();
  SetTimeout(kLookAgainMs);
  if (listener != nullptr) listener->LostDevice();
}

void DSPDevice::EndOfFile() {
  std::cout << "DSPDevice: the signal processor has closed its end of the link\n";
  has_ended = true;
  PollItem::Remove();
  PollProcessor::Instance()->Quit();
}

void DSPDevice::Expired() {
  if (is_away) {
    if (!GoOn()) SetTimeout(kLookAgainMs);
  } else {
    is_resting = is_deaf = false;
    UpdateEvents();
  }
}

bool DSPDevice::GoOn() {
  const std::optional<std::size_t> count = file.LookAgain(read_buffer);
  if (!count) return false;
  std::cout << "DSPDevice: the signal processor's device is back\n";
  is_away = false;
  reads_in_vain = 0;
  write_queue.Clear();
  SetUpAgain();
  if (*count > 0) DecodeRecords(*count);
  return true;
}

void DSPDevice::SetUpAgain() {
  ResetSequencer();
  orders.OweAll();
  SendOwed();
  RequestVersion();
}

void DSPDevice::DecodeRecords(std::size_t count) {
  if (listener == nullptr) return;
  try {
    std::span<const std::uint8_t> rest(read_buffer.data(), count);
    while (rest.size() >= RecordHeader::kSize && listener != nullptr)
      rest = rest.subspan(std::min(DecodeRecord(rest), rest.size()));
  } catch (const std::exception& error) {
    std::cout << "DSPDevice::HandleRead(): ERROR: " << error.what() << "\n";
  }
}

std::size_t DSPDevice::DecodeRecord(std::span<const std::uint8_t> bytes) {
  const RecordHeader header = RecordHeader::Decode(bytes.data());
  if (RecordHeader::kSize + header.length > bytes.size()) return bytes.size();
  const std::uint8_t* payload = bytes.data() + RecordHeader::kSize;
  listener->GotRecord(header.time, header.code, payload, header.length);
  // A listener may remove itself inside a call.
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
    case DSPCode::VersionRecord:
      return DispatchVersion(text());
    case DSPCode::LegacyStatusRecord: {
      if (length < LegacySample::kMinimumSize) return;
      LegacySample sample = LegacySample::Decode(header.time, payload);
      return listener->GotLegacyData(sample);
    }
    case DSPCode::WordListARecord:
      if (length >= 9 && length <= Bounds::kPayload)
        listener->GotWordListA(header.time, Words(payload + 4, length - 4U));
      return;
    case DSPCode::WordListBRecord:
      if (length >= 9 && length <= Bounds::kPayload)
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
    case DSPCode::DataSampleRecord:
      if (length >= WireSample::kSize) DispatchSample(header.time, payload);
      return;
    case DSPCode::DataBatchRecord:
      if (length >= WireBatch::kSize) DispatchBatch(header.time, payload);
      return;
    case DSPCode::RawCaptureRecord:
      return DispatchRawCapture(payload, length);
    default:
      return listener->GotUnknownMessage(header.code, payload, length);
  }
}

void DSPDevice::DispatchVersion(const std::string& text) {
  std::istringstream words(text);
  std::string dsp;
  std::string fpga;
  words >> dsp >> fpga;
  listener->GotVersion(dsp, fpga);
}

void DSPDevice::DispatchSample(const RecordTime& stamp, const std::uint8_t* payload) {
  const WireSample wire = WireSample::Decode(payload);
  DataSample sample = ToDataSample(wire, sample_clock.Synchronise(wire.tick, stamp));
  listener->GotData(sample);
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

void DSPDevice::DispatchRawCapture(const std::uint8_t* payload, std::uint16_t length) {
  // An index and a count of bytes stand before the bytes.
  if (length < 8) return;
  const std::uint32_t count = GetU32(payload + 4);
  if (count > std::min<std::size_t>(length, Bounds::kPayload) - 8) return;
  listener->GotRawCapture(GetU32(payload), payload + 8, count);
}
