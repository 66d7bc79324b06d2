#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "leaf/lumet/link/dsp_records.h"

// A recorded link between head and processor: every packet in either direction with its time, and
// the settings of the head, as docs/recording.md describes.

struct RecordedPacket {
  enum Direction : std::uint16_t { kFromProcessor = 0, kToProcessor = 1, kSettings = 2 };

  std::uint64_t elapsed = 0;  // microseconds after the start
  Direction direction = kFromProcessor;
  std::vector<std::uint8_t> bytes;
};

// A file of the head's settings, as it is from some moment on.
struct RecordedSettings {
  std::string name;  // without directories
  std::string text;

  // Of a packet with direction kSettings. Throws std::runtime_error for one that names no file.
  static RecordedSettings Of(const RecordedPacket& packet);
  std::vector<std::uint8_t> Bytes() const;
};

class RecordingWriter {
 public:
  // Throws std::runtime_error when the file can't be written.
  explicit RecordingWriter(const std::string& path);
  // What can't be written throws std::runtime_error.
  void Write(std::uint64_t elapsed, RecordedPacket::Direction direction,
             std::span<const std::uint8_t> bytes);

 private:
  std::string path;
  std::ofstream file;
};

// Throws std::runtime_error for a file that is not a recording, or is cut off.
std::vector<RecordedPacket> ReadRecording(const std::string& path);

// The files of settings, text by name, at the start of a recording; none in an old one.
std::map<std::string, std::string> SettingsAtStart(const std::vector<RecordedPacket>& packets);

// Takes records apart: calls `handle(header, payload)` for each whole record in `bytes`.
template <class Handle>
void ForEachRecord(std::span<const std::uint8_t> bytes, Handle handle) {
  while (bytes.size() >= RecordHeader::kSize) {
    const RecordHeader header = RecordHeader::Decode(bytes.data());
    const std::size_t padded = RecordHeader::kSize + PaddedLength(header.length);
    if (padded > bytes.size()) return;
    handle(header, bytes.subspan(RecordHeader::kSize, header.length));
    bytes = bytes.subspan(padded);
  }
}
