#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace xml_text {
class CharSource;
}

// Turns a stream into the tokens of the XML language. It is no validating parser and builds no
// document: the settings tree drives the walk, and several items of one name can read the same
// element again. The dialect is loose; names may hold '&' and ';', and text may stand outside the
// root.
//
// Never throws on bad input. Reads no further than the token that was asked for. The text of all
// tokens is kept until the parser goes, since they may be read again.
class XMLParser {
 public:
  enum Token {
    START_ELEMENT,         // string: the tag
    END_ELEMENT,           // string: the tag
    ATTRIBUTE,             // string: the attribute
    ATTRIBUTE_VALUE_PAIR,  // string: the attribute; value: its value
    STRING,                // string: the text
    START_DOC,
    END_DOC,  // the stream has ended
    ERROR,    // string: what is wrong; sticky until ClearError
  };

  // `stream` must outlive this.
  explicit XMLParser(std::istream& stream);

  // Moves on and returns the kind of the next token. An ERROR also sets the stream's failbit.
  Token NextToken();
  // The token that the parser stands on: START_DOC at first. The texts are valid until the parser
  // moves.
  Token GetCurrToken() const { return tokens[current].kind; }
  const std::string& GetTokenString() const { return token_string; }
  const std::string& GetTokenValue() const { return token_value; }

  // Restoring goes back to the token of the last SavePosition.
  void SavePosition() { mark = current; }
  void RestorePosition() { MoveTo(mark); }
  // Takes an error away, from the stream too, so that reading goes on behind it.
  void ClearError();
  // Passes the rest of the element that is open. Returns the kind at which it stopped.
  Token SkipElement();

 private:
  // A token: where its texts stand in `texts`, the value behind the string.
  struct TokenInfo {
    Token kind;
    std::uint32_t start;
    std::uint32_t string_length;
    std::uint32_t value_length;
  };

  void MoveTo(std::size_t place);
  Token ReadToken(xml_text::CharSource& source);
  Token ReadInsideTag(xml_text::CharSource& source);
  Token ReadOutsideTags(xml_text::CharSource& source);
  Token ReadStartTag(xml_text::CharSource& source);
  Token ReadEndTag(xml_text::CharSource& source);
  Token ReadAttribute(xml_text::CharSource& source);
  // The stream has ended: END_DOC, or ERROR for another reason.
  Token EndOrError();
  Token Error(std::string_view message);

  std::istream& in;
  std::vector<TokenInfo> tokens;
  std::string texts;
  std::size_t current = 0;
  std::size_t mark = 0;
  std::string token_string;  // of the token at `current`
  std::string token_value;
  std::string tag_name;  // of the start tag that is being read
  bool in_tag = false;   // between the name of a start tag and its '>'
};

// The kind's name, for traces.
std::ostream& operator<<(std::ostream& out, XMLParser::Token token);
