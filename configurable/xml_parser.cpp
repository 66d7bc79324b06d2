#include "configurable/xml_parser.h"

#include <algorithm>
#include <array>
#include <cstdlib>

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

}  // namespace

XMLParser::XMLParser(std::istream& stream) : in(stream), source(stream) {
  // What is at hand shows how much is to come, within limits.
  const std::size_t expected = std::clamp<std::size_t>(source.Available(), 128, 16384);
  tokens.reserve(expected / 8);
  texts.reserve(expected);
  tokens.push_back({START_DOC, 0, 0, 0});
}

XMLParser::Token XMLParser::NextToken() {
  if (GetCurrToken() == ERROR) return ERROR;
  if (current + 1 < tokens.size()) {
    ++current;
    return GetCurrToken();
  }
  constexpr std::size_t kMany = 1024;
  if (mark >= kMany) Forget();
  reading = {START_DOC, static_cast<std::uint32_t>(texts.size()), 0, 0};
  reading.kind = in.fail() ? EndOrError() : ReadToken();
  if (reading.kind == ERROR) {
    had_error = true;
    in.setstate(std::ios_base::failbit);
  }
  tokens.push_back(reading);
  return tokens[++current].kind;
}

bool XMLParser::EndString() {
  reading.string_length = static_cast<std::uint32_t>(texts.size()) - reading.start;
  return reading.string_length > 0;
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
  // The end of the element that began last finds its name there.
  const std::uint32_t end = std::min(tokens[mark].start, tag_name.start);
  texts.erase(0, end);
  tokens.erase(tokens.begin(), tokens.begin() + static_cast<std::ptrdiff_t>(mark));
  for (TokenInfo& token : tokens) token.start -= end;
  tag_name.start -= end;
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
        if (!xml_text::ReadString(source, texts)) return EndOrError();
        EndString();
        return STRING;
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

XMLParser::Token XMLParser::ReadStartTag() {
  xml_text::ReadName(source, texts);
  // A name that the end of the stream cuts off does not count.
  if (source.Peek() == CharSource::kEnd) return EndOrError();
  if (!EndString()) return Error("Empty XML tag name");
  in_tag = true;
  tag_name.start = reading.start;
  tag_name.length = reading.string_length;
  return START_ELEMENT;
}

XMLParser::Token XMLParser::ReadEndTag() {
  source.Skip();
  // Most often it ends the element that began last, whose name need not be kept again.
  if (source.TakeBoth({texts.data() + tag_name.start, tag_name.length}, '>')) return EndOfTag();
  xml_text::ReadName(source, texts);
  const int next = source.Take();
  if (next == CharSource::kEnd) return EndOrError();
  if (!EndString()) return Error("Empty XML tag name");
  if (next != '>') return Error("Invalid XML tag end sequence");
  return END_ELEMENT;
}

XMLParser::Token XMLParser::EndOfTag() {
  reading.start = tag_name.start;
  reading.string_length = tag_name.length;
  return END_ELEMENT;
}

XMLParser::Token XMLParser::EndOrError() {
  texts.resize(reading.start);
  reading.string_length = 0;
  return in.eof() ? END_DOC : ERROR;
}

XMLParser::Token XMLParser::Error(std::string_view message) {
  texts.resize(reading.start);
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
