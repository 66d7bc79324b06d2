#include "configurable/xml_parser.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>
#include <typeinfo>

#include "configurable/text_stream.h"
#include "configurable/xml_text.h"

using xml_text::CharSource;

namespace {

// Skips everything up to and including `end`, or the end of the stream.
void SkipPast(CharSource& source, std::string_view end) {
  std::string last;
  while (last != end) {
    const int byte = source.Take();
    if (byte == CharSource::kEnd) return;
    if (last.size() == end.size()) last.erase(0, 1);
    last += static_cast<char>(byte);
  }
}

// Skips a comment or a declaration, from its '!' on.
void SkipDeclaration(CharSource& source) {
  source.Skip();
  if (source.Peek() != '-') {
    SkipPast(source, ">");
    return;
  }
  source.Skip();
  SkipPast(source, "-->");
}

// Whether the characters of a stream lie in memory, all of them, and stay there.
bool IsInMemory(const std::istream& stream) {
  const std::streambuf* buffer = stream.rdbuf();
  return TextInput::Is(stream) || (buffer != nullptr && typeid(*buffer) == typeid(std::stringbuf));
}

}  // namespace

XMLParser::XMLParser(std::istream& stream)
    : in(stream), source(stream), document(IsInMemory(stream) ? source.Place() : nullptr) {
  // What is at hand shows how much is to come, within limits.
  const std::size_t expected = std::clamp<std::size_t>(source.Available(), 128, 16384);
  tokens.reserve(expected / 8);
  if (document == nullptr) texts.reserve(expected);
  tokens.push_back({START_DOC, false, 0, 0, 0});
}

XMLParser::Token XMLParser::ReadNext() {
  if (GetCurrToken() == ERROR) return ERROR;
  constexpr std::size_t kMany = 1024;
  if (mark >= kMany) Forget();
  reading = {START_DOC, false, static_cast<std::uint32_t>(texts.size()), 0, 0};
  reading.kind = in.fail() ? EndOrError() : ReadToken();
  if (reading.kind == ERROR) {
    had_error = true;
    in.setstate(std::ios_base::failbit);
  }
  tokens.push_back(reading);
  ++current;
  // Most elements are leaves, whose tokens are quickly read together. The root's are not, so that
  // one that is not wanted stays in the stream.
  if (reading.kind == START_ELEMENT && reading.in_document && depth > 1) ReadLeaf();
  return reading.kind;
}

void XMLParser::ReadLeaf() {
  const std::string_view name(document + reading.start, reading.string_length);
  CharSource::Leaf leaf;
  if (!source.TakeLeaf(name, leaf)) return;
  if (leaf.has_text) tokens.push_back(TokenOf(STRING, leaf.text));
  tokens.push_back(reading);
  tokens.back().kind = END_ELEMENT;
  in_tag = false;
  CloseTag();
}

bool XMLParser::EndString() {
  reading.string_length = static_cast<std::uint32_t>(texts.size()) - reading.start;
  return reading.string_length > 0;
}

XMLParser::TokenInfo XMLParser::TokenOf(Token kind, std::string_view piece) const {
  return {kind, true, static_cast<std::uint32_t>(piece.data() - document),
          static_cast<std::uint32_t>(piece.size()), 0};
}

void XMLParser::DropString() {
  if (!reading.in_document) texts.resize(reading.start);
  reading = {START_DOC, false, static_cast<std::uint32_t>(texts.size()), 0, 0};
}

void XMLParser::OpenTag() {
  last_tag = reading;
  if (reading.in_document && depth < open_tags.size())
    open_tags[depth] = {document + reading.start, reading.string_length};
  ++depth;
}

void XMLParser::CloseTag() {
  if (depth > 0) --depth;
}

bool XMLParser::Rewind() {
  current = mark = 0;
  return !had_error;
}

void XMLParser::ClearError() {
  in.clear();
  if (GetCurrToken() != ERROR) return;
  // The error is not part of the document: whoever reads this element again does not meet it.
  tokens.resize(current);
  --current;
}

void XMLParser::Forget() {
  tokens.erase(tokens.begin(), tokens.begin() + static_cast<std::ptrdiff_t>(mark));
  // The end of the element that began last finds its name in the texts.
  auto end = static_cast<std::uint32_t>(texts.size());
  const auto keep = [&end](const TokenInfo& token) {
    if (!token.in_document) end = std::min(end, token.start);
  };
  const auto move = [&end](TokenInfo& token) {
    if (!token.in_document) token.start -= end;
  };
  keep(last_tag);
  std::for_each(tokens.begin(), tokens.end(), keep);
  texts.erase(0, end);
  move(last_tag);
  std::for_each(tokens.begin(), tokens.end(), move);
  current -= mark;
  mark = 0;
}

XMLParser::Token XMLParser::SkipElement() {
  return EndElement([this] { return NextToken(); });
}

XMLParser::Token XMLParser::PassElement() {
  return EndElement([this] {
    SavePosition();
    return NextToken();
  });
}

template <class Move>
XMLParser::Token XMLParser::EndElement(Move move) {
  ClearError();
  std::size_t depth = 1;
  while (true) {
    const Token kind = move();
    switch (kind) {
      case START_ELEMENT:
        ++depth;
        break;
      case END_ELEMENT:
        if (--depth == 0) return kind;
        break;
      case END_DOC:
        return kind;
      case ERROR:
        ClearError();
        break;
      default:
        break;
    }
  }
}

XMLParser::Token XMLParser::ReadToken() {
  source.SkipSpace();
  return in_tag ? ReadInsideTag() : ReadOutsideTags();
}

XMLParser::Token XMLParser::ReadInsideTag() {
  switch (source.Peek()) {
    case CharSource::kEnd:
      return EndOrError();
    case '<':
      source.Skip();
      return Error("Cannot start new element inside start tag");
    case '>':
      source.Skip();
      in_tag = false;
      return ReadOutsideTags();
    case '/': {
      source.Skip();
      const int next = source.Take();
      if (next == CharSource::kEnd) return EndOrError();
      if (next != '>') return Error("Invalid XML tag end sequence");
      in_tag = false;
      return EndOfTag();
    }
    default:
      return ReadAttribute();
  }
}

XMLParser::Token XMLParser::ReadAttribute() {
  xml_text::ReadName(source, texts);
  const bool named = EndString();
  const int next = source.Peek();
  if (next == CharSource::kEnd) return EndOrError();
  if (!named) {
    source.Skip();
    return Error("Empty XML tag name");
  }
  if (next != '=') return ATTRIBUTE;
  source.Skip();
  if (!xml_text::ReadString(source, texts)) return EndOrError();
  reading.value_length =
      static_cast<std::uint32_t>(texts.size()) - reading.start - reading.string_length;
  return ATTRIBUTE_VALUE_PAIR;
}

XMLParser::Token XMLParser::ReadOutsideTags() {
  while (true) {
    switch (source.Peek()) {
      case CharSource::kEnd:
        return EndOrError();
      case '>':
        source.Skip();
        return Error("Invalid '>' character outside XML tags");
      case '<':
        break;
      default:
        return ReadText();
    }
    source.Skip();
    switch (source.Peek()) {
      case CharSource::kEnd:
        return EndOrError();
      case '?':
        SkipPast(source, "?>");
        break;
      case '!':
        SkipDeclaration(source);
        break;
      case '/':
        return ReadEndTag();
      default:
        return ReadStartTag();
    }
  }
}

XMLParser::Token XMLParser::ReadText() {
  if (document != nullptr) {
    if (const auto plain = source.TakePlainText()) {
      reading = TokenOf(STRING, *plain);
      return STRING;
    }
  }
  if (!xml_text::ReadString(source, texts)) return EndOrError();
  EndString();
  return STRING;
}

bool XMLParser::ReadName() {
  const std::string_view whole = document != nullptr ? source.TakeName() : std::string_view();
  if (!whole.empty()) {
    reading = TokenOf(START_DOC, whole);
    return true;
  }
  xml_text::ReadName(source, texts);
  return EndString();
}

XMLParser::Token XMLParser::ReadStartTag() {
  const bool named = ReadName();
  // A name that the end of the stream cuts off does not count.
  if (source.Peek() == CharSource::kEnd) return EndOrError();
  if (!named) return Error("Empty XML tag name");
  in_tag = true;
  OpenTag();
  return START_ELEMENT;
}

XMLParser::Token XMLParser::ReadEndTag() {
  source.Skip();
  // Most often it ends the element that is open, whose name need not be looked at again.
  if (document != nullptr && depth > 0 && depth <= open_tags.size()) {
    const std::string_view expected = open_tags[depth - 1];
    if (source.TakeBoth(expected, '>')) {
      CloseTag();
      reading = TokenOf(END_ELEMENT, expected);
      return END_ELEMENT;
    }
  } else if (!last_tag.in_document &&
             source.TakeBoth({texts.data() + last_tag.start, last_tag.string_length}, '>')) {
    return EndOfTag();
  }
  const bool named = ReadName();
  const int next = source.Take();
  if (next == CharSource::kEnd) return EndOrError();
  if (!named) return Error("Empty XML tag name");
  if (next != '>') return Error("Invalid XML tag end sequence");
  CloseTag();
  return END_ELEMENT;
}

XMLParser::Token XMLParser::EndOfTag() {
  reading = last_tag;
  CloseTag();
  return END_ELEMENT;
}

XMLParser::Token XMLParser::EndOrError() {
  DropString();
  return in.eof() ? END_DOC : ERROR;
}

XMLParser::Token XMLParser::Error(std::string_view message) {
  DropString();
  texts.append(message);
  EndString();
  return ERROR;
}

std::ostream& operator<<(std::ostream& out, XMLParser::Token token) {
  constexpr std::array kNames = {
      "START_ELEMENT", "END_ELEMENT", "ATTRIBUTE", "ATTRIBUTE_VALUE_PAIR",
      "STRING",        "START_DOC",   "END_DOC",   "ERROR"};
  const auto number = static_cast<std::size_t>(token);
  if (number < kNames.size()) return out << kNames[number];
  out << "UNKNOWN ELEMENT!" << std::flush;
  std::abort();
}
