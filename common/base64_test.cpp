#include "common/base64.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "common/test_registry.h"

using namespace self_test;

void TestBase64(std::ostream&) {
  const struct {
    std::string bytes;
    std::string text;
  } pairs[] = {{"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
               {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFB\xFF\xFE", "+//+"}};
  const auto as_bytes = [](const std::string& text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
  };
  for (const auto& pair : pairs) {
    std::string text;
    ExpectEqual(Base64AppendEncoded(as_bytes(pair.bytes), text, true), pair.bytes.size());
    ExpectEqual(text, pair.text);
    std::vector<std::uint8_t> bytes;
    ExpectEqual(Base64AppendDecoded(pair.text, bytes), pair.text.size());
    ExpectTrue(bytes == as_bytes(pair.bytes), pair.text);
  }
  std::vector<std::uint8_t> bytes;
  ExpectEqual(Base64AppendDecoded(std::string("Zm9vZ!9vZm"), bytes), std::size_t{10});
  ExpectEqual(bytes.size(), std::size_t{3}, "bytes ahead of a foreign character");

  // Converts pieces of any size, into output rooms of any size.
  std::vector<std::uint8_t> whole(1000);
  std::generate(whole.begin(), whole.end(), std::mt19937(5));
  std::string expected;
  Base64AppendEncoded(whole, expected, true);
  for (std::size_t piece = 1; piece < 40; ++piece) {
    std::string text;
    std::vector<std::uint8_t> pending;
    for (std::size_t at = 0; at < whole.size(); at += piece) {
      const std::size_t size = std::min(piece, whole.size() - at);
      pending.insert(pending.end(), &whole[at], &whole[at] + size);
      const bool last = at + size == whole.size();
      std::vector<char> room(3 + piece);
      while (true) {
        const Base64Progress progress = Base64Encode(pending, room, last);
        if (progress.read == 0) break;
        text.append(room.data(), progress.written);
        pending.erase(pending.begin(), pending.begin() + static_cast<int>(progress.read));
      }
    }
    ExpectEqual(text, expected);
    std::vector<std::uint8_t> decoded;
    std::vector<std::uint8_t> room(2 + piece);
    for (std::size_t at = 0; at < text.size();) {
      const Base64Progress progress = Base64Decode(std::span(text).subspan(at), room);
      decoded.insert(decoded.end(), room.begin(),
                     room.begin() + static_cast<int>(progress.written));
      at += progress.read;
    }
    ExpectTrue(decoded == whole, "pieces of " + std::to_string(piece));
  }
}
