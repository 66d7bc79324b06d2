#include "client/json_text.h"

#include <sstream>
#include <string_view>

#include "client/deadline.h"

namespace {

// Spells them as jsoncpp does.
std::string WithNamedNumbers(const std::string& text) {
  std::string named;
  named.reserve(text.size());
  bool in_quotes = false;
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view rest = std::string_view(text).substr(at);
    if (rest[0] == '"') in_quotes = !in_quotes;
    if (!in_quotes && (rest.starts_with("nan") || rest.starts_with("-nan"))) {
      named += "NaN";
      at += rest.find('n') + 3;
    } else if (!in_quotes && rest.starts_with("inf")) {
      named += "Infinity";
      at += 3;
    } else {
      named += rest[0];
      ++at;
    }
  }
  return named;
}

}  // namespace

Json::Value ReadJson(const std::string& text, const std::string& what) {
  Json::CharReaderBuilder reader;
  reader["allowSpecialFloats"] = true;
  Json::Value value;
  std::string errors;
  std::istringstream in(WithNamedNumbers(text));
  if (!Json::parseFromStream(reader, in, &value, &errors))
    throw ClientError("this is no " + what + ": " + errors);
  if (!value.isObject()) throw ClientError("this is no " + what + ": " + Quoted(text));
  return value;
}
