#include "leaf/lumet/link/command_queue.h"

namespace {

// Memory that is kept for ordinary work, in bytes.
constexpr std::size_t kUsualSize = 16384;

}  // namespace

CommandQueue::CommandQueue() { records.reserve(kUsualSize); }

bool CommandQueue::Push(std::uint16_t code, std::span<const std::uint8_t> payload,
                        std::size_t limit) {
  RecordHeader header;
  header.code = code;
  header.length = static_cast<std::uint16_t>(payload.size());
  const std::size_t padded = PaddedLength(header.length);
  if (Size() + RecordHeader::kSize + padded > limit) return false;
  const auto head = header.Encode();
  records.insert(records.end(), head.begin(), head.end());
  records.insert(records.end(), payload.begin(), payload.end());
  records.resize(records.size() + padded - payload.size());
  return true;
}

std::span<const std::uint8_t> CommandQueue::Packet(std::size_t size) const {
  const std::size_t start = begin + begun;
  std::size_t end = begin;
  while (end < records.size() && end + RecordSize(end) - start <= size) end += RecordSize(end);
  return end > start ? std::span(records).subspan(start, end - start)
                     : std::span<const std::uint8_t>();
}

void CommandQueue::Written(std::size_t count) {
  begun += count;
  while (begin < records.size() && begun >= RecordSize(begin)) {
    const std::size_t whole = RecordSize(begin);
    begin += whole;
    begun -= whole;
  }
  Compact();
}

void CommandQueue::Clear() {
  begin = records.size();
  begun = 0;
  Compact();
}

std::size_t CommandQueue::RecordSize(std::size_t at) const {
  return RecordHeader::kSize + PaddedLength(RecordHeader::Decode(&records[at]).length);
}

void CommandQueue::Compact() {
  // A long queue is not moved for each packet.
  if (begin * 2 < records.size()) return;
  records.erase(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(begin));
  begin = 0;
  if (records.empty() && records.capacity() > kUsualSize) {
    records.shrink_to_fit();
    records.reserve(kUsualSize);
  }
}
