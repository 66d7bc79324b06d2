#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/memory.h"

// Text on its way to many readers, kept once for all of them: bytes are appended at the end, and
// forgotten at the front when the last reader has passed them.
class Broadcast {
 public:
  // Bytes since the start, by which readers keep their places; it wraps, so that only differences
  // of places mean anything.
  using Place = std::size_t;

  Place End() const { return end; }
  void Append(std::string_view text) {
    bytes.append(text);
    end += text.size();
  }
  // The bytes after `place`, which must not be forgotten yet; valid until the next change.
  std::string_view From(Place place) const {
    const std::size_t length = end - place;
    return {bytes.data() + (bytes.size() - length), length};
  }
  // Forgets all but the last `length` bytes.
  void Keep(std::size_t length) {
    constexpr std::size_t kMostKeptRoom = std::size_t{128} << 10;
    if (length == 0) {
      Release(bytes, kMostKeptRoom);
    } else if (bytes.size() / 2 >= length) {
      // Only once moving the rest is cheap compared with what has gone.
      bytes.erase(0, bytes.size() - length);
    }
  }

 private:
  std::string bytes;
  Place end = 0;
};
