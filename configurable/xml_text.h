#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <istream>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>

// The lexical rules of the XML language: which characters make names and texts, and how both are
// read from a stream without a formatted extraction for each character.

namespace xml_text {

enum CharClass : std::uint8_t {
  kSpace = 1,
  kNameStart = 2,
  kNamePart = 4,     // after the first character; a ';' ends a name and belongs to it
  kTextStop = 8,     // ends or interrupts a run of plain text: < > " ' & and white space
  kNeedsEscape = 16  // " ' < > &
};

constexpr std::array<std::uint8_t, 256> MakeClasses() {
  std::array<std::uint8_t, 256> classes = {};
  const auto mark = [&](std::string_view bytes, int bits) {
    for (const char byte : bytes) {
      std::uint8_t& entry = classes[static_cast<unsigned char>(byte)];
      entry = static_cast<std::uint8_t>(entry | bits);
    }
  };
  mark(" \t\n\v\f\r", kSpace | kTextStop);
  mark("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz:_", kNameStart | kNamePart);
  mark("&", kNameStart);
  mark("0123456789-.", kNamePart);
  mark("\"'<>&", kTextStop | kNeedsEscape);
  return classes;
}

inline constexpr std::array<std::uint8_t, 256> kClasses = MakeClasses();

inline bool Is(char byte, CharClass wanted) {
  return (kClasses[static_cast<unsigned char>(byte)] & wanted) != 0;
}

// Reads the characters of a stream in place, in its buffer's own memory. What was taken leaves the
// stream when this goes out of scope; until then nobody else may read the stream.
class CharSource {
 public:
  static constexpr int kEnd = -1;

  // A stream without a buffer is at its end.
  explicit CharSource(std::istream& stream) : in(stream), buffer(stream.rdbuf()) { Load(); }
  ~CharSource() { GiveBack(); }
  CharSource(const CharSource&) = delete;
  CharSource& operator=(const CharSource&) = delete;

  // The next character's place in the buffer's memory.
  const char* Place() const { return next; }
  // Characters that are in the buffer's memory.
  std::size_t Available() const { return static_cast<std::size_t>(end - next); }
  // The next character, which stays; kEnd at the end, where the stream's eofbit is set.
  int Peek() { return next != end ? static_cast<unsigned char>(*next) : Refill(); }
  // The same, and moves past it.
  int Take() {
    const int byte = Peek();
    if (byte != kEnd) ++next;
    return byte;
  }
  // Moves past the character that Peek has shown.
  void Skip() { ++next; }
  void SkipSpace() {
    while (Peek() != kEnd && Is(*next, kSpace)) ++next;
  }
  // Takes a name that is wholly in the buffer's memory; empty if there is none, or not all of it.
  std::string_view TakeName() {
    const char* at = next;
    if (at == end || !Is(*at, kNameStart)) return {};
    do ++at;
    while (at != end && Is(*at, kNamePart));
    if (at == end) return {};
    if (*at == ';') ++at;
    const std::string_view name(next, static_cast<std::size_t>(at - next));
    next = at;
    return name;
  }
  // Takes a plain text up to a tag, with the white space around it, if all of it is in the buffer's
  // memory and nothing in it is translated. Returns it without that space; nothing if there is
  // none.
  std::optional<std::string_view> TakePlainText();
  // Takes the rest of an element that holds but such a text, after its name in the start tag, if
  // there is no white space before it. False takes nothing.
  struct Leaf {
    bool has_text = false;
    std::string_view text;
  };
  bool TakeLeaf(std::string_view name, Leaf& leaf);
  // Takes `name` and `last` after it, if they come next and are wholly in the buffer's memory.
  bool TakeBoth(std::string_view name, char last) {
    if (name.empty() || Available() <= name.size() || next[name.size()] != last ||
        std::memcmp(next, name.data(), name.size()) != 0)
      return false;
    next += name.size() + 1;
    return true;
  }
  // Appends characters for as long as `goes_on` holds.
  template <class Condition>
  void TakeWhile(Condition goes_on, std::string& text) {
    while (Peek() != kEnd) {
      const char* from = next;
      while (next != end && goes_on(*next)) ++next;
      text.append(from, static_cast<std::size_t>(next - from));
      if (next != end) return;
    }
  }

 private:
  // A stream buffer's get area is open to derived classes only.
  struct Area : std::streambuf {
    static const char* Next(const std::streambuf& area) { return (area.*(&Area::gptr))(); }
    static const char* End(const std::streambuf& area) { return (area.*(&Area::egptr))(); }
    static void Advance(std::streambuf& area, int bytes) { (area.*(&Area::gbump))(bytes); }
  };

  void Load();
  void GiveBack();
  int Refill();

  std::istream& in;
  std::streambuf* buffer;
  const char* next = nullptr;
  const char* end = nullptr;
  // For a buffer without memory of its own, such as a console's: the one character it has shown.
  bool has_single = false;
  char single = 0;
};

// Appends a name to `name`; nothing if none begins here. A ';' ends a name and belongs to it, so
// that an entity can be in the place of a name.
void ReadName(CharSource& source, std::string& name);

// Appends a text to `text`: the text between quotes, or plain text up to a tag or a quote, with the
// white space around it dropped. The five entities of XML are translated, others stay. False if the
// stream ended first, in the middle of a quoted text or before any text.
bool ReadString(CharSource& source, std::string& text);

// The part of `text` that is a name; empty if it does not begin with one.
std::string_view NameIn(std::string_view text);

// The whole entity with which a text begins that begins with '&'; empty if there is none.
std::string_view EntityIn(std::string_view text);
// The entity for one of the characters that need one.
std::string_view EntityOf(char byte);

// Calls `put` with the pieces of the escaped text. An '&' that begins an entity stays as it is.
template <class Put>
void Escape(std::string_view text, Put put) {
  std::size_t plain = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!Is(text[at], kNeedsEscape)) continue;
    // A lone "&;" is none.
    if (text[at] == '&' && EntityIn(text.substr(at)).size() > 2) continue;
    put(text.substr(plain, at - plain));
    put(EntityOf(text[at]));
    plain = at + 1;
  }
  put(text.substr(plain));
}

}  // namespace xml_text
