#include "bench/recording.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "common/little_endian.h"

namespace {

constexpr std::string_view kMagic = "LUMETREC1\n";
// Time, direction, two unused bytes, length.
constexpr std::size_t kEntryHeader = 16;

}  // namespace

RecordingWriter::RecordingWriter(const std::string& path)
    : path(path), file(path, std::ios::binary) {
  file << kMagic << std::flush;
  if (!file) throw std::runtime_error("unable to write " + path);
}

void RecordingWriter::Write(std::uint64_t elapsed, RecordedPacket::Direction direction,
                            std::span<const std::uint8_t> bytes) {
  std::array<std::uint8_t, kEntryHeader> header = {};
  PutU32(&header[0], static_cast<std::uint32_t>(elapsed));
  PutU32(&header[4], static_cast<std::uint32_t>(elapsed >> 32));
  PutU16(&header[8], direction);
  PutU32(&header[12], static_cast<std::uint32_t>(bytes.size()));
  file.write(reinterpret_cast<const char*>(header.data()), header.size());
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.flush();
  if (!file) throw std::runtime_error("unable to write " + path);
}

std::vector<RecordedPacket> ReadRecording(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> text(std::istreambuf_iterator<char>(file), {});
  if (!std::string_view(text.data(), text.size()).starts_with(kMagic))
    throw std::runtime_error(path + " is not a recording");
  std::vector<RecordedPacket> packets;
  std::span<const std::uint8_t> rest(reinterpret_cast<const std::uint8_t*>(text.data()),
                                     text.size());
  rest = rest.subspan(kMagic.size());
  while (!rest.empty()) {
    const std::size_t length = rest.size() < kEntryHeader ? 0 : GetU32(&rest[12]);
    if (rest.size() < kEntryHeader || rest.size() - kEntryHeader < length)
      throw std::runtime_error(path + " is cut off");
    RecordedPacket& packet = packets.emplace_back();
    packet.elapsed = GetU32(&rest[0]) | std::uint64_t{GetU32(&rest[4])} << 32;
    packet.direction = RecordedPacket::Direction{GetU16(&rest[8])};
    const auto bytes = rest.subspan(kEntryHeader, length);
    packet.bytes.assign(bytes.begin(), bytes.end());
    rest = rest.subspan(kEntryHeader + length);
  }
  return packets;
}
