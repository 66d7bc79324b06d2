#include "leaf/lumet/link/raw_capture.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "common/base64.h"
#include "common/test_registry.h"
#include "common/zlib.h"

namespace {

using namespace self_test;

// The bytes of a capture from its rows.
std::vector<std::uint8_t> Unpacked(const std::string& rows) {
  std::vector<std::uint8_t> packed;
  std::istringstream lines(rows);
  for (std::string line; std::getline(lines, line);) {
    ExpectTrue(line.starts_with("DATAFLRAW\t"), line);
    const std::string text = line.substr(line.find('\t') + 1);
    ExpectEqual(Base64AppendDecoded(text, packed), text.size(), "whole groups");
  }
  return ZlibInflate(packed);
}

// The rows of a capture that comes in records, as from the processor.
std::string Captured(RawCapture& capture, std::span<const std::uint8_t> bytes) {
  std::string rows;
  for (std::span<const std::uint8_t> rest = bytes; !rest.empty();) {
    const auto record = rest.first(std::min<std::size_t>(rest.size(), 396));
    rows += capture.Take(record);
    rest = rest.subspan(record.size());
  }
  ExpectTrue(bytes.size() > 400 || rows.empty(), "small records pile up");
  rows += capture.Take({});
  ExpectTrue(rows.ends_with("\nDATAFLRAW\t\n"), "the empty row");
  return rows;
}

}  // namespace

// Words of a detector at rest: bytes that can barely be compressed, in runs of every length, so
// that the compressor's output comes in pieces of every size.
void RawCaptureCases() {
  constexpr std::size_t kLargest = 2'000'000;
  RawCapture capture;
  for (unsigned seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    // Most are small, so that this is soon over.
    const std::size_t most = seed % 4 == 0 ? kLargest : kLargest / 20;
    std::normal_distribution<float> words(2000, std::array{3.0F, 30.0F, 300.0F}[seed % 3]);
    std::vector<std::uint8_t> bytes(random() % most);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
      const auto word = static_cast<unsigned>(words(random));
      bytes[i] = static_cast<std::uint8_t>(word);
      bytes[i + 1] = static_cast<std::uint8_t>(word >> 8);
    }
    ExpectTrue(Unpacked(Captured(capture, bytes)) == bytes,
               std::to_string(bytes.size()) + " bytes of seed " + std::to_string(seed));
  }
  for (const std::size_t size : {396U, 1U, 0U})
    ExpectEqual(Unpacked(Captured(capture, std::vector<std::uint8_t>(size, 7))).size(), size);
}
