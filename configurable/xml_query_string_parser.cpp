#include "configurable/xml_query_string_parser.h"

#include <array>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view kEntityStart = "&query";

constexpr std::array<std::pair<std::string_view, XMLQueryStringParser::Token>, 9> kEntities = {{
    {"&query;", XMLQueryStringParser::QUERY_CONTEXT},
    {"&query_context;", XMLQueryStringParser::QUERY_CONTEXT},
    {"&query_changes;", XMLQueryStringParser::QUERY_CHANGES_CONTEXT},
    {"&query_changes_context;", XMLQueryStringParser::QUERY_CHANGES_CONTEXT},
    {"&query_item;", XMLQueryStringParser::QUERY},
    {"&query_changes_item;", XMLQueryStringParser::QUERY_CHANGES},
    {"&query_doctype;", XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT},
    {"&query_doctype_context;", XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT},
    {"&query_doctype_item;", XMLQueryStringParser::QUERY_DOCTYPE},
}};

}  // namespace

XMLQueryStringParser::Token XMLQueryStringParser::NextToken() {
  if (first) {
    first = false;
    return current;
  }
  if (position >= text.size()) {
    token = {};
    return current = END_STRING;
  }
  const std::size_t entity = text.substr(position).starts_with(kEntityStart)
                                 ? position
                                 : text.find(kEntityStart, position);
  const std::size_t end = entity == std::string_view::npos ? entity : text.find(';', entity);
  if (end == std::string_view::npos) return TakeText(text.size());
  return entity == position ? TakeEntity(end + 1) : TakeText(entity);
}

XMLQueryStringParser::Token XMLQueryStringParser::TakeEntity(std::size_t end) {
  token = text.substr(position, end - position);
  position = end;
  for (const auto& [name, kind] : kEntities)
    if (token == name) return current = kind;
  return current = ERROR;
}

XMLQueryStringParser::Token XMLQueryStringParser::TakeText(std::size_t end) {
  token = text.substr(position, end - position);
  position = end;
  if (token.size() > 1 && token.front() == '{' && token.back() == '}') {
    token = token.substr(1, token.size() - 2);
    return current = DOCTYPE;
  }
  return current = STRING;
}

std::ostream& operator<<(std::ostream& out, XMLQueryStringParser::Token token) {
  constexpr std::array kNames = {"QUERY",         "QUERY_CONTEXT",
                                 "QUERY_CHANGES", "QUERY_CHANGES_CONTEXT",
                                 "QUERY_DOCTYPE", "QUERY_DOCTYPE_CONTEXT",
                                 "STRING",        "DOCTYPE",
                                 "START_STRING",  "END_STRING",
                                 "ERROR"};
  return out << kNames.at(static_cast<std::size_t>(token));
}
