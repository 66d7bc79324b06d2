#include "common/base64.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kForeign = 64;

constexpr std::array<std::uint8_t, 128> MakeDecoding() {
  std::array<std::uint8_t, 128> table = {};
  table.fill(kForeign);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i)
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  return table;
}
constexpr std::array<std::uint8_t, 128> kDecoding = MakeDecoding();

std::uint8_t Decoded(char character) {
  const auto code = static_cast<unsigned char>(character);
  return code < kDecoding.size() ? kDecoding[code] : kForeign;
}

// The four characters of up to three bytes.
std::array<char, 4> EncodeGroup(std::span<const std::uint8_t> bytes) {
  unsigned bits = 0;
  for (std::size_t i = 0; i < 3; ++i) bits = bits << 8 | (i < bytes.size() ? bytes[i] : 0U);
  std::array<char, 4> characters = {};
  for (std::size_t i = 0; i < 4; ++i)
    characters[i] = i <= bytes.size() ? kAlphabet[bits >> (18 - 6 * i) & 63U] : '=';
  return characters;
}

// Calls `put` with each group, until it says that there is no room. Returns the bytes read.
template <class Put>
std::size_t EncodeGroups(std::span<const std::uint8_t> input, bool last, Put put) {
  std::size_t read = 0;
  while (input.size() - read >= 3 || (last && read < input.size())) {
    const std::size_t size = std::min<std::size_t>(3, input.size() - read);
    if (!put(EncodeGroup(input.subspan(read, size)))) break;
    read += size;
  }
  return read;
}

// Calls `put` with the bytes of each group, until it says that there is no room or the data ends.
// Returns the characters read.
template <class Put>
std::size_t DecodeGroups(std::span<const char> input, Put put) {
  std::size_t read = 0;
  for (; input.size() - read >= 4; read += 4) {
    unsigned bits = 0;
    std::size_t characters = 0;
    while (characters < 4 && Decoded(input[read + characters]) != kForeign)
      bits = bits << 6 | Decoded(input[read + characters++]);
    bits <<= 6 * (4 - characters);
    const std::array<std::uint8_t, 3> bytes = {static_cast<std::uint8_t>(bits >> 16),
                                               static_cast<std::uint8_t>(bits >> 8),
                                               static_cast<std::uint8_t>(bits)};
    if (!put(std::span(bytes).first(characters > 0 ? characters - 1 : 0))) return read;
    if (characters < 4) return input.size();
  }
  return read;
}

}  // namespace

Base64Progress Base64Encode(std::span<const std::uint8_t> input, std::span<char> output,
                            bool last) {
  std::size_t written = 0;
  const std::size_t read = EncodeGroups(input, last, [&](const std::array<char, 4>& group) {
    if (output.size() - written < group.size()) return false;
    std::copy(group.begin(), group.end(), output.begin() + static_cast<std::ptrdiff_t>(written));
    written += group.size();
    return true;
  });
  return {read, written};
}

std::size_t Base64AppendEncoded(std::span<const std::uint8_t> input, std::string& output,
                                bool last) {
  return EncodeGroups(input, last, [&](const std::array<char, 4>& group) {
    output.append(group.data(), group.size());
    return true;
  });
}

Base64Progress Base64Decode(std::span<const char> input, std::span<std::uint8_t> output) {
  std::size_t written = 0;
  const std::size_t read = DecodeGroups(input, [&](std::span<const std::uint8_t> bytes) {
    if (output.size() - written < bytes.size()) return false;
    std::copy(bytes.begin(), bytes.end(), output.begin() + static_cast<std::ptrdiff_t>(written));
    written += bytes.size();
    return true;
  });
  return {read, written};
}

std::size_t Base64AppendDecoded(std::span<const char> input, std::vector<std::uint8_t>& output) {
  return DecodeGroups(input, [&](std::span<const std::uint8_t> bytes) {
    output.insert(output.end(), bytes.begin(), bytes.end());
    return true;
  });
}
