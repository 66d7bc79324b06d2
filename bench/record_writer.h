#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string_view>
#include <vector>

#include "leaf/lumet/link/dsp_records.h"

// The processor's side of the wire: puts records into packets of whole records, none longer than
// the head reads at once.
class RecordWriter {
 public:
  void Text(const RecordTime& stamp, DSPCode code, std::string_view text);
  void RegisterRecord(const RecordTime& stamp, DSPCode code, std::uint16_t address,
                      std::uint16_t value);
  void Sample(const RecordTime& stamp, const WireSample& sample);
  // One batch of up to ten samples.
  void Batch(const RecordTime& stamp, std::span<const WireSample> samples);
  // A piece of a raw capture; an empty one ends it.
  void RawCapture(const RecordTime& stamp, std::uint32_t index,
                  std::span<const std::uint8_t> bytes);
  static constexpr std::size_t kRawPiece = 396;  // bytes at most
  void Record(const RecordTime& stamp, std::uint16_t code, std::span<const std::uint8_t> payload);

  // Packets not yet taken off, the oldest at the front.
  std::deque<std::vector<std::uint8_t>> packets;
};
