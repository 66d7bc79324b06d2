#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "common/zlib.h"

// Turns a capture of raw detector data into rows: one zlib stream for each capture, in Base64 over
// as many rows as it takes, and an empty row at its end.
class RawCapture {
 public:
  // Takes the bytes of one record; none end the capture. Returns the rows that are due, or nothing
  // until they are worth sending. A record larger than the compressor has room for, which is many
  // times what the processor sends in one, is lost in part. Throws std::runtime_error when
  // compression fails.
  std::string Take(std::span<const std::uint8_t> bytes);

 private:
  void Feed(std::span<const std::uint8_t> bytes);

  ZlibDeflater raw_deflater;
  bool raw_flush_pending = false;  // from the end of the capture until its last row
};
