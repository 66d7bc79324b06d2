#include "common/base64.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "common/test_registry.h"

using namespace self_test;

void TestBase64(std::ostream&) {
  const std::pair<std::string, std::string> pairs[] = {
      {"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
      {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFB\xFF\xFE", "+//+"}};
  const auto as_bytes = [](const std::string& text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
  };
  for (const auto& [plain, coded] : pairs) {
    std::string text;
    ExpectEqual(Base64AppendEncoded(as_bytes(plain), text, true), plain.size());
    ExpectEqual(text, coded);
    std::vector<std::uint8_t> bytes;
    ExpectEqual(Base64AppendDecoded(coded, bytes), coded.size());
    ExpectTrue(bytes == as_bytes(plain), coded);
  }
  std::vector<std::uint8_t> bytes;
  ExpectEqual(Base64AppendDecoded(std::string("Zm9vZ!9vZm"), bytes), std::size_t{10});
  ExpectEqual(bytes.size(), std::size_t{3}, "bytes ahead of a foreign character");

  // As many whole groups as the room takes.
  std::array<char, 7> text_room;
  Base64Progress progress = Base64Encode(as_bytes("foobar"), text_room, true);
  ExpectTrue(progress.read == 3 && progress.written == 4, "one group of text");
  std::array<std::uint8_t, 5> byte_room;
  progress = Base64Decode(std::string("Zm9vYmFy"), byte_room);
  ExpectTrue(progress.read == 4 && progress.written == 3, "one group of bytes");
}
