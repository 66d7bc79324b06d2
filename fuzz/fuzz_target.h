#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// What the fuzz targets have in common. Include it in the one file of a target.

// How an input that shows a fault is kept.
inline void Check(bool holds) {
  if (!holds) std::abort();
}

// The texts of an input that has several: it is cut at each byte `separator`, into `most` at most.
inline std::vector<std::string> Pieces(const std::uint8_t* data, std::size_t size, std::size_t most,
                                       char separator = '\0') {
  std::vector<std::string> pieces = {""};
  for (const char c : std::string_view(reinterpret_cast<const char*>(data), size))
    if (c == separator && pieces.size() < most)
      pieces.emplace_back();
    else
      pieces.back() += c;
  return pieces;
}

// Calls `take` with pieces of `text` that end at places which the text itself chooses.
template <class Take>
void ForEachPart(std::string_view text, Take take) {
  while (!text.empty()) {
    const std::size_t length = 1 + static_cast<unsigned char>(text[text.size() / 2]) % 29;
    take(text.substr(0, length));
    text.remove_prefix(std::min(length, text.size()));
  }
}

// What the code under test prints does not reach the fuzzer's own output.
class Quiet {
 public:
  Quiet() : before(std::cout.rdbuf(text.rdbuf())) {}
  ~Quiet() { std::cout.rdbuf(before); }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

  std::string Text() const { return text.str(); }

 private:
  std::ostringstream text;
  std::streambuf* before;
};

// Nothing here need outlast the power. In place of the C library's, and so not inline: a target is
// one file.
// NOLINTBEGIN(misc-definitions-in-headers)
extern "C" int fsync(int) { return 0; }
extern "C" void sync() noexcept {}
// NOLINTEND(misc-definitions-in-headers)
