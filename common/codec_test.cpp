// Text and codec helpers.

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "common/base64.h"
#include "common/delimparser.h"
#include "common/str_util.h"
#include "common/test_registry.h"
#include "common/zlib.h"

void TestStrUtil(std::ostream& out);
void TestBase64(std::ostream& out);
void TestZlib(std::ostream& out);
void TestDelimParser(std::ostream& out);

namespace {

using self_test::ExpectEqual;
using self_test::ExpectThrows;
using self_test::ExpectTrue;

// Half noise, half runs, so that it is neither incompressible nor trivial.
std::vector<std::uint8_t> TestBytes(std::size_t size) {
  std::mt19937 random(5);
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(i % 512 < 256 ? random() : i / 512);
  return bytes;
}

int Sign(int number) { return (number > 0) - (number < 0); }

}  // namespace

void TestStrUtil(std::ostream&) {
  const struct {
    const char* a;
    const char* b;
    int sign;
  } pairs[] = {{"hello", "HELLO", 0},        {"hello1", "HELLO2", -1}, {"HELLO2", "hello1", 1},
               {"hello", "hello again", -1}, {"abc", "cba", -1},       {"", "", 0}};
  for (const auto& pair : pairs) {
    ExpectEqual(Sign(CaseInsensitiveStringCompare(pair.a, pair.b)), pair.sign, pair.a);
    ExpectEqual(Sign(CaseInsensitiveStringCompare(pair.b, pair.a)), -pair.sign, pair.b);
  }
  const std::string header = "Host: x\r\ncontent-TYPE: y\r\n";
  ExpectEqual(CaseInsensitiveStringFind(header, "Content-Type", 0), 9);
  ExpectEqual(CaseInsensitiveStringFind(header, "Content-Type", 10), -1);
  ExpectEqual(CaseInsensitiveStringFind(header, "", header.size()), -1);
  const std::string spaced = " \t a \n b  c\t\n";
  ExpectEqual(StripEndWS(spaced), "a \n b  c");
  ExpectEqual(StripEndWS(" \n"), "");
  ExpectEqual(FirstNonSpace(spaced), 'a');
  ExpectEqual(FirstNonSpace(" \n"), '\0');
  ExpectEqual(RemoveSpaceExceptBlanks(spaced), "  a  b  c");
  ExpectEqual(CollapseSpace(spaced), " a b c");
  ExpectEqual(RemoveChar("banana", 'a'), "bnn");

  const struct {
    const char* line;
    const char* words;
  } lines[] = {{"one two three four", "one|two|three|four|"},
               {" one  two  three four ", "one|two|three|four|"},
               {"a \"b  c\" 'd \"e'", "a|b  c|d \"e|"},
               {"'one phrase'", "one phrase|"},
               {"\"unended phrase", "unended phrase|"},
               {"", ""}};
  for (const auto& row : lines) {
    std::vector<std::string> words;
    SplitCommandLine(row.line, words);
    std::string joined;
    for (const std::string& word : words) joined += word + "|";
    ExpectEqual(joined, row.words, row.line);
  }
}

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
  const std::vector<std::uint8_t> whole = TestBytes(1000);
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

void TestZlib(std::ostream&) {
  for (const std::size_t size : {0U, 1024U, 32766U, 32768U, 36864U, 90000U, 98304U, 1024001U}) {
    const std::vector<std::uint8_t> bytes = TestBytes(size);
    const std::vector<std::uint8_t> packed = ZlibDeflate(bytes);
    ExpectTrue(ZlibInflate(packed) == bytes, "a round trip of " + std::to_string(size));
    std::stringbuf packed_buffer;
    ZlibDeflate(bytes, packed_buffer);
    const std::string packed_text = packed_buffer.str();
    ExpectTrue(std::equal(packed.begin(), packed.end(), packed_text.begin(), packed_text.end(),
                          [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }),
               "the same bytes through a stream buffer");
    ExpectTrue(ZlibInflate(packed_buffer) == bytes, "back from a stream buffer");
    std::stringbuf plain_buffer;
    ZlibInflate(packed, plain_buffer);
    ExpectEqual(plain_buffer.str().size(), size);
    ExpectTrue(ZlibDeflate(plain_buffer) == packed, "from a stream buffer");
  }
  // Fed by hand, finished, and begun again.
  ZlibDeflater deflater;
  for (int round = 0; round < 2; ++round) {
    std::vector<std::uint8_t> packed;
    deflater.Input()[0] = 'x';
    deflater.Commit(1);
    deflater.Run(false);
    while (!deflater.Finished() || !deflater.Output().empty()) {
      deflater.Run(true);
      packed.insert(packed.end(), deflater.Output().begin(), deflater.Output().end());
      deflater.Consume(deflater.Output().size());
    }
    ExpectTrue(ZlibInflate(packed) == std::vector<std::uint8_t>{'x'}, "one byte by hand");
    deflater.Reset();
  }
  ExpectThrows<std::runtime_error>([] { ZlibInflate(TestBytes(100)); },
                                   "inflate() failed: data error");
}

void TestDelimParser(std::ostream&) {
  const struct {
    std::vector<std::string> delimiters;
    std::string bytes;
    std::string messages;
  } rows[] = {
      {{"\n"}, "one\ntwo\n\nrest", "one\n|two\n|\n|"},
      {{"ab", "\r\n", "a"}, "xab1a2\r\n3", "xab|1a|2\r\n|"},
      {{"<>", ">"}, "<><a>", "<>|<a>|"},
      {{"\n", "end"}, "en\nend", "en\n|end|"},
  };
  for (const auto& row : rows) {
    // Adds it whole, and in pieces of every size.
    for (std::size_t piece = 1; piece <= row.bytes.size(); ++piece) {
      DelimParser parser(row.delimiters[0]);
      for (std::size_t i = 1; i < row.delimiters.size(); ++i)
        parser.AddDelimiter(row.delimiters[i]);
      std::string messages;
      for (std::size_t at = 0; at < row.bytes.size(); at += piece) {
        // Two delimiters that share a beginning can't be told apart before both are there.
        parser.Add(std::string_view(row.bytes).substr(at, piece));
        if (row.delimiters[0] == "ab" && at + piece < row.bytes.size()) continue;
        std::string delimiter;
        for (std::string message; parser.Next(message, delimiter); messages += message + "|")
          ExpectTrue(message.ends_with(delimiter), message);
      }
      ExpectEqual(messages, row.messages, row.bytes);
    }
  }
}
