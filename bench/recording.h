#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <vector>

// A recorded link between head and processor: every packet in either direction with its time, as
// docs/recording.md describes.

struct RecordedPacket {
  enum Direction : std::uint16_t { kFromProcessor = 0, kToProcessor = 1 };

  std::uint64_t elapsed = 0;  // microseconds after the start
  Direction direction = kFromProcessor;
  std::vector<std::uint8_t> bytes;
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
