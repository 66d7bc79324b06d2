#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "leaf/lumet/link/dsp_records.h"

// The commands that wait for the signal processor, as records. They leave in packets of whole
// records; a record that a short write has cut is always finished before anything else.
class CommandQueue {
 public:
  CommandQueue();

  bool Empty() const { return Size() == 0; }
  // Bytes that have not been written.
  std::size_t Size() const { return records.size() - begin - begun; }

  // Appends a record. Returns false, and leaves it out, if the queue would then be longer than
  // `limit` bytes.
  bool Push(std::uint16_t code, std::span<const std::uint8_t> payload, std::size_t limit);

  // What to write next: as many whole records as fit into `size` bytes. If a record has been cut,
  // its rest comes first. Valid until the next call that changes the queue.
  std::span<const std::uint8_t> Packet(std::size_t size) const;
  // `count` bytes of it were written.
  void Written(std::size_t count);

  // Removes all but the rest of a record that has been cut; calls `visit(code)` for each record
  // that was removed.
  template <class Visit>
  void RemoveWaiting(Visit visit) {
    const std::size_t keep = begun > 0 ? begin + RecordSize(begin) : begin;
    for (std::size_t at = keep; at < records.size(); at += RecordSize(at)) visit(CodeAt(at));
    records.resize(keep);
    Compact();
  }
  // Removes everything.
  void Clear();

 private:
  std::uint16_t CodeAt(std::size_t at) const { return RecordHeader::Decode(&records[at]).code; }
  // With header and padding.
  std::size_t RecordSize(std::size_t at) const;
  void Compact();

  std::vector<std::uint8_t> records;
  std::size_t begin = 0;  // of the first record that has not been fully written
  std::size_t begun = 0;  // bytes of that record which have been written
};
