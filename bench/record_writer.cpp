#include "bench/record_writer.h"

#include <algorithm>
#include <array>

#include "common/little_endian.h"

namespace {

// What the head reads at once.
constexpr std::size_t kPacketSize = 16384;

std::span<const std::uint8_t> Bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

void RecordWriter::Text(const RecordTime& stamp, DSPCode code, std::string_view text) {
  Record(stamp, static_cast<std::uint16_t>(code), Bytes(text));
}

void RecordWriter::RegisterRecord(const RecordTime& stamp, DSPCode code, std::uint16_t address,
                                  std::uint16_t value) {
  std::array<std::uint8_t, 4> payload = {};
  PutU16(payload.data(), address);
  PutU16(payload.data() + 2, value);
  Record(stamp, static_cast<std::uint16_t>(code), payload);
}

void RecordWriter::Sample(const RecordTime& stamp, const WireSample& sample) {
  Record(stamp, static_cast<std::uint16_t>(DSPCode::DataSampleRecord), sample.Encode());
}

void RecordWriter::Batch(const RecordTime& stamp, std::span<const WireSample> samples) {
  std::array<std::uint8_t, WireBatch::kSize> payload = {};
  std::uint8_t* slot = payload.data();
  for (const WireSample& sample : samples) {
    const auto encoded = sample.Encode();
    slot = std::copy(encoded.begin(), encoded.end(), slot);
  }
  PutU16(payload.data() + WireBatch::kCountOffset, static_cast<std::uint16_t>(samples.size()));
  Record(stamp, static_cast<std::uint16_t>(DSPCode::DataBatchRecord), payload);
}

void RecordWriter::RawCapture(const RecordTime& stamp, std::uint32_t index,
                              std::span<const std::uint8_t> bytes) {
  std::vector<std::uint8_t> payload(8);
  PutU32(payload.data(), index);
  PutU32(payload.data() + 4, static_cast<std::uint32_t>(bytes.size()));
  payload.insert(payload.end(), bytes.begin(), bytes.end());
  Record(stamp, static_cast<std::uint16_t>(DSPCode::RawCaptureRecord), payload);
}

void RecordWriter::Record(const RecordTime& stamp, std::uint16_t code,
                          std::span<const std::uint8_t> payload) {
  const auto length = static_cast<std::uint16_t>(payload.size());
  const auto header = RecordHeader{stamp, code, length}.Encode();
  const std::size_t whole = header.size() + PaddedLength(length);
  if (packets.empty() || packets.back().size() + whole > kPacketSize)
    packets.emplace_back().reserve(kPacketSize);
  std::vector<std::uint8_t>& packet = packets.back();
  const std::size_t end = packet.size() + whole;
  packet.insert(packet.end(), header.begin(), header.end());
  packet.insert(packet.end(), payload.begin(), payload.end());
  packet.resize(end);
}
