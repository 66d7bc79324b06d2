#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "configurable/xml_text.h"

// Turns a stream into the tokens of the XML language. It does not validate and builds no document:
// the settings tree drives the walk, and several items of one name can read the same element again.
// The dialect is loose; names may hold '&' and ';', and text may be outside the root.
//
// Never throws on bad input. Reads no further than the token that was asked for, except that it may
// read a leaf at once, below the root. Tokens are kept from the saved position on, since they may
// be read again.
class XMLParser {
 public:
  enum Token : std::uint8_t {
    START_ELEMENT,         // string: the tag
    END_ELEMENT,           // string: the tag
    ATTRIBUTE,             // string: the attribute
    ATTRIBUTE_VALUE_PAIR,  // string: the attribute; value: its value
    STRING,                // string: the text
    START_DOC,
    END_DOC,  // the stream has ended
    ERROR,    // string: what is wrong; sticky until ClearError
  };

  // `stream` must outlive this, and must not be read by others meanwhile.
  explicit XMLParser(std::istream& stream);

  // Moves on and returns the kind of the next token. An ERROR also sets the stream's failbit.
  Token NextToken() {
    if (current + 1 == tokens.size()) return ReadNext();
    return tokens[++current].kind;
  }
  // The current token: START_DOC at first. The texts are valid until the parser moves.
  Token GetCurrToken() const { return tokens[current].kind; }
  std::string_view GetTokenString() const {
    const TokenInfo& token = tokens[current];
    return {TextOf(token), token.string_length};
  }
  std::string_view GetTokenValue() const {
    const TokenInfo& token = tokens[current];
    return {TextOf(token) + token.string_length, token.value_length};
  }

  // Restoring goes back to the token of the last SavePosition.
  void SavePosition() { mark = current; }
  void RestorePosition() { current = mark; }
  // Goes back to the start of the document, without reading it again. False if there was an error
  // in it, since an error that was cleared is not met again.
  bool Rewind();
  // Where among its siblings the next element probably is: documents mostly hold them in order.
  std::size_t LikelyPlace() const { return likely_place; }
  void SetLikelyPlace(std::size_t place) { likely_place = place; }
  // Clears an error, in the stream too, so that reading goes on after it.
  void ClearError();
  // Skips the rest of the element that is open. Returns the kind at which it stopped.
  Token SkipElement();
  // The same for an element that nobody reads again: no position is saved then.
  Token PassElement();

 private:
  // Where the texts of a token are: its string in the document, if that is whole in memory and has
  // it as it is, or in `texts`, with the value after it.
  struct TokenInfo {
    Token kind;
    bool in_document;
    std::uint32_t start;
    std::uint32_t string_length;
    std::uint32_t value_length;
  };

  const char* TextOf(const TokenInfo& token) const {
    return (token.in_document ? document : texts.data()) + token.start;
  }
  template <class Move>
  Token EndElement(Move move);
  // Frees the tokens before the saved position.
  void Forget();
  Token ReadNext();
  Token ReadToken();
  Token ReadInsideTag();
  Token ReadOutsideTags();
  // Adds the other tokens of the element that has just begun, if it holds a plain text at most.
  void ReadLeaf();
  Token ReadText();
  Token ReadStartTag();
  Token ReadEndTag();
  Token ReadAttribute();
  // Makes a name the string of the token that is being read; false if there is none.
  bool ReadName();
  // Makes what the token that is being read has put into `texts` its string; false if that is
  // empty.
  bool EndString();
  // A token whose string is a piece of the document.
  TokenInfo TokenOf(Token kind, std::string_view piece) const;
  // Forgets what the token that is being read has got so far.
  void DropString();
  // The end of the element that began last.
  Token EndOfTag();
  // Notes that an element of the document has begun, or that one has ended.
  void OpenTag();
  void CloseTag();
  // The stream has ended: END_DOC, or ERROR for another reason.
  Token EndOrError();
  Token Error(std::string_view message);

  std::istream& in;
  xml_text::CharSource source;
  // The start of a document that is whole in memory and stays there; null for another.
  const char* const document;
  std::vector<TokenInfo> tokens;
  std::string texts;
  std::size_t current = 0;
  std::size_t mark = 0;
  std::size_t likely_place = 0;
  TokenInfo reading = {};  // the token that is being read
  // The start tag that was read last.
  TokenInfo last_tag = {};
  // The names of the outermost elements of the document that are open, as many as are kept.
  std::array<std::string_view, 16> open_tags;
  std::size_t depth = 0;
  bool had_error = false;
  bool in_tag = false;  // between the name of a start tag and its '>'
};

// The kind's name, for traces.
std::ostream& operator<<(std::ostream& out, XMLParser::Token token);
