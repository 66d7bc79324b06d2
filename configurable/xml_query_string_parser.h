#pragma once

#include <cstddef>
#include <ostream>
#include <string_view>

// Splits the text of one element or attribute into query entities, doctypes in braces, and plain
// text. Never throws on bad input.
class XMLQueryStringParser {
 public:
  enum Token {
    QUERY,                  // "&query_item;"
    QUERY_CONTEXT,          // "&query;", "&query_context;"
    QUERY_CHANGES,          // "&query_changes_item;"
    QUERY_CHANGES_CONTEXT,  // "&query_changes;", "&query_changes_context;"
    QUERY_DOCTYPE,          // "&query_doctype_item;"
    QUERY_DOCTYPE_CONTEXT,  // "&query_doctype;", "&query_doctype_context;"
    STRING,                 // text, with its blanks
    DOCTYPE,                // text that stood in braces, without them
    START_STRING,
    END_STRING,
    ERROR,  // any other "&query...;"
  };

  // `text` must outlive this.
  explicit XMLQueryStringParser(std::string_view text) : text(text) {}

  // Moves on and returns the kind of the next token; the first is START_STRING.
  Token NextToken();
  Token GetCurrToken() const { return current; }
  std::string_view GetTokenString() const { return token; }

 private:
  Token TakeEntity(std::size_t end);
  Token TakeText(std::size_t end);

  std::string_view text;
  std::size_t position = 0;
  Token current = START_STRING;
  std::string_view token;
  bool first = true;
};

// The kind's name, for traces.
std::ostream& operator<<(std::ostream& out, XMLQueryStringParser::Token token);
