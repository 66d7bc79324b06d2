#include "configurable/xml_text.h"

#include <utility>

namespace xml_text {

namespace {

constexpr std::array<std::pair<std::string_view, char>, 5> kEntities = {
    {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}}};

// The character for which an entity stands; 0 for another entity.
char Translation(std::string_view entity) {
  for (const auto& [name, byte] : kEntities)
    if (entity == name) return byte;
  return 0;
}

// A plain text, from `at` up to a '<', to which `at` moves: without the white space around it.
// Nothing if the text ends otherwise before `end`, or holds something that is translated.
inline std::optional<std::string_view> PlainText(const char*& at, const char* end) {
  const char* next = at;
  while (next != end && Is(*next, kSpace)) ++next;
  const char* const first = next;
  const char* last = first;  // after the last one that is no space
  while (true) {
    const char* const run = next;
    while (next != end && !Is(*next, kTextStop)) ++next;
    if (next == end) return {};
    if (next != run) last = next;
    if (*next == '<') break;
    if (Is(*next, kSpace)) {
      ++next;
      continue;
    }
    if (*next != '&') return {};
    const std::string_view entity = EntityIn({next, static_cast<std::size_t>(end - next)});
    if (entity.empty() || Translation(entity) != 0) return {};
    last = next += entity.size();
  }
  at = next;
  return std::string_view(first, static_cast<std::size_t>(last - first));
}

// Reads on after a '&'.
// Protocol: white space ends a malformed entity and is consumed.
void ReadEntity(CharSource& source, std::string& text) {
  const std::size_t start = text.size();
  text += '&';
  source.TakeWhile([](char byte) { return byte != ';' && !Is(byte, kTextStop); }, text);
  const int stop = source.Peek();
  if (stop == CharSource::kEnd) return;
  if (stop == ';') {
    source.Skip();
    text += ';';
    if (const char byte = Translation(std::string_view(text).substr(start)); byte != 0) {
      text.resize(start);
      text += byte;
    }
  } else if (Is(static_cast<char>(stop), kSpace)) {
    source.Skip();
  }
}

bool ReadQuoted(CharSource& source, char quote, std::string& text) {
  while (true) {
    source.TakeWhile(
        [quote](char byte) { return byte != quote && byte != '<' && byte != '>' && byte != '&'; },
        text);
    const int stop = source.Peek();
    if (stop == CharSource::kEnd) return false;
    if (stop == '<' || stop == '>') return true;
    source.Skip();
    if (stop == quote) return true;
    ReadEntity(source, text);
  }
}

void ReadPlain(CharSource& source, std::string& text) {
  // Text and inner white space are taken as they come; trailing white space is removed again.
  const std::size_t start = text.size();
  std::size_t kept = start;
  while (true) {
    source.TakeWhile([](char byte) { return !Is(byte, kTextStop); }, text);
    const int stop = source.Peek();
    if (stop == '&') {
      source.Skip();
      ReadEntity(source, text);
      kept = text.size();
    } else if (stop != CharSource::kEnd && Is(static_cast<char>(stop), kSpace)) {
      if (!Is(text.back(), kSpace)) kept = text.size();
      source.TakeWhile([](char byte) { return Is(byte, kSpace); }, text);
    } else {
      break;
    }
  }
  if (text.size() > start && Is(text.back(), kSpace)) text.resize(kept);
}

}  // namespace

void CharSource::Load() {
  has_single = false;
  next = buffer != nullptr ? Area::Next(*buffer) : nullptr;
  end = buffer != nullptr ? Area::End(*buffer) : nullptr;
}

void CharSource::GiveBack() {
  if (has_single && next == end)
    buffer->sbumpc();
  else if (!has_single && buffer != nullptr)
    Area::Advance(*buffer, static_cast<int>(next - Area::Next(*buffer)));
}

int CharSource::Refill() {
  GiveBack();
  const int byte = buffer != nullptr ? buffer->sgetc() : std::streambuf::traits_type::eof();
  Load();
  if (byte == std::streambuf::traits_type::eof()) {
    in.setstate(std::ios_base::eofbit);
    return kEnd;
  }
  if (next == end) {
    has_single = true;
    single = static_cast<char>(byte);
    next = &single;
    end = next + 1;
  }
  return byte;
}

std::optional<std::string_view> CharSource::TakePlainText() {
  const char* at = next;
  const auto text = PlainText(at, end);
  if (text) next = at;
  return text;
}

bool CharSource::TakeLeaf(std::string_view name, Leaf& leaf) {
  const char* at = next;
  if (at == end || *at != '>') return false;
  ++at;
  // White space there is that of an indented composite.
  if (at == end || Is(*at, kSpace)) return false;
  leaf.has_text = *at != '<';
  if (leaf.has_text) {
    const auto text = PlainText(at, end);
    if (!text) return false;
    leaf.text = *text;
  }
  // The text ends at a '<'.
  if (static_cast<std::size_t>(end - at) < name.size() + 3 || at[1] != '/' ||
      at[name.size() + 2] != '>' || std::memcmp(at + 2, name.data(), name.size()) != 0)
    return false;
  next = at + name.size() + 3;
  return true;
}

void ReadName(CharSource& source, std::string& name) {
  if (const std::string_view whole = source.TakeName(); !whole.empty()) {
    name.append(whole);
    return;
  }
  const int first = source.Peek();
  if (first == CharSource::kEnd || !Is(static_cast<char>(first), kNameStart)) return;
  source.Skip();
  name += static_cast<char>(first);
  source.TakeWhile([](char byte) { return Is(byte, kNamePart); }, name);
  if (source.Peek() != ';') return;
  source.Skip();
  name += ';';
}

bool ReadString(CharSource& source, std::string& text) {
  source.SkipSpace();
  const int first = source.Peek();
  switch (first) {
    case CharSource::kEnd:
      return false;
    case '<':
    case '>':
      return true;
    case '"':
    case '\'':
      source.Skip();
      return ReadQuoted(source, static_cast<char>(first), text);
    default:
      ReadPlain(source, text);
      return true;
  }
}

std::string_view NameIn(std::string_view text) {
  if (text.empty() || !Is(text.front(), kNameStart)) return {};
  std::size_t length = 1;
  while (length < text.size() && Is(text[length], kNamePart)) ++length;
  if (length < text.size() && text[length] == ';') ++length;
  return text.substr(0, length);
}

std::string_view EntityIn(std::string_view text) {
  std::size_t length = 1;
  while (length < text.size() && !Is(text[length], kTextStop) && text[length] != ';') ++length;
  const bool whole = length < text.size() && text[length] == ';';
  return whole ? text.substr(0, length + 1) : std::string_view();
}

std::string_view EntityOf(char byte) {
  for (const auto& [name, translated] : kEntities)
    if (translated == byte) return name;
  return {};
}

}  // namespace xml_text
