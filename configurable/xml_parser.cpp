#include "configurable/xml_parser.h"

#include <array>
#include <cstdlib>

#include "configurable/xml_text.h"

using xml_text::CharSource;

namespace {

// Passes everything up to and including `end`, or the end of the stream.
void SkipPast(CharSource& source, std::string_view end) {
  std::string last;
  while (last != end) {
    const int byte = source.Take();
    if (byte == CharSource::kEnd) return;
    if (last.size() == end.size()) last.erase(0, 1);
    last += static_cast<char>(byte);
  }
}

// Passes a comment or a declaration, from its '!' on.
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

XMLParser::XMLParser(std::istream& stream) : in(stream) {
  tokens.reserve(512);
  texts.reserve(4096);
  tokens.push_back({START_DOC, 0, 0, 0});
}

XMLParser::Token XMLParser::NextToken() {
  if (GetCurrToken() == ERROR) return ERROR;
  if (current + 1 < tokens.size()) {
    MoveTo(current + 1);
    return GetCurrToken();
  }
  token_string.clear();
  token_value.clear();
  Token kind = EndOrError();
  if (!in.fail()) {
    CharSource source(in);
    kind = ReadToken(source);
  }
  if (kind == ERROR) in.setstate(std::ios_base::failbit);
  tokens.push_back({kind, static_cast<std::uint32_t>(texts.size()),
                    static_cast<std::uint32_t>(token_string.size()),
                    static_cast<std::uint32_t>(token_value.size())});
  texts.append(token_string).append(token_value);
  current = tokens.size() - 1;
  return kind;
}

void XMLParser::MoveTo(std::size_t place) {
  current = place;
  const TokenInfo& token = tokens[place];
  token_string.assign(texts, token.start, token.string_length);
  token_value.assign(texts, token.start + token.string_length, token.value_length);
}

void XMLParser::ClearError() {
  in.clear();
  if (GetCurrToken() != ERROR) return;
  // The error is no part of the document: who reads this element again does not meet it.
  tokens.resize(current);
  MoveTo(current - 1);
}

XMLParser::Token XMLParser::SkipElement() {
  ClearError();
  std::size_t depth = 1;
  while (true) {
    const Token kind = NextToken();
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

XMLParser::Token XMLParser::ReadToken(CharSource& source) {
  source.SkipSpace();
  return in_tag ? ReadInsideTag(source) : ReadOutsideTags(source);
}

XMLParser::Token XMLParser::ReadInsideTag(CharSource& source) {
  switch (source.Peek()) {
    case CharSource::kEnd:
      return EndOrError();
    case '<':
      source.Skip();
      return Error("Cannot start new element inside start tag");
    case '>':
      source.Skip();
      in_tag = false;
      return ReadOutsideTags(source);
    case '/': {
      source.Skip();
      const int next = source.Take();
      if (next == CharSource::kEnd) return EndOrError();
      if (next != '>') return Error("Invalid XML tag end sequence");
      in_tag = false;
      token_string = tag_name;
      return END_ELEMENT;
    }
    default:
      return ReadAttribute(source);
  }
}

XMLParser::Token XMLParser::ReadAttribute(CharSource& source) {
  xml_text::ReadName(source, token_string);
  const int next = source.Peek();
  if (next == CharSource::kEnd) return EndOrError();
  if (token_string.empty()) {
    source.Skip();
    return Error("Empty XML tag name");
  }
  if (next != '=') return ATTRIBUTE;
  source.Skip();
  return xml_text::ReadString(source, token_value) ? ATTRIBUTE_VALUE_PAIR : EndOrError();
}

XMLParser::Token XMLParser::ReadOutsideTags(CharSource& source) {
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
        return xml_text::ReadString(source, token_string) ? STRING : EndOrError();
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
        return ReadEndTag(source);
      default:
        return ReadStartTag(source);
    }
  }
}

XMLParser::Token XMLParser::ReadStartTag(CharSource& source) {
  xml_text::ReadName(source, token_string);
  if (token_string.empty()) return Error("Empty XML tag name");
  in_tag = true;
  tag_name = token_string;
  return START_ELEMENT;
}

XMLParser::Token XMLParser::ReadEndTag(CharSource& source) {
  source.Skip();
  xml_text::ReadName(source, token_string);
  const int next = source.Take();
  if (next == CharSource::kEnd) return EndOrError();
  if (token_string.empty()) return Error("Empty XML tag name");
  if (next != '>') return Error("Invalid XML tag end sequence");
  return END_ELEMENT;
}

XMLParser::Token XMLParser::EndOrError() {
  token_string.clear();
  token_value.clear();
  return in.eof() ? END_DOC : ERROR;
}

XMLParser::Token XMLParser::Error(std::string_view message) {
  token_string = message;
  token_value.clear();
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
