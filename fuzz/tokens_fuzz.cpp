// The tokenizers take any bytes, and make no more tokens than there are characters.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "configurable/xml_parser.h"
#include "configurable/xml_query_string_parser.h"

namespace {

void SplitText(std::string_view text) {
  XMLQueryStringParser parser(text);
  std::string together;
  while (parser.NextToken() != XMLQueryStringParser::END_STRING) {
    const bool doctype = parser.GetCurrToken() == XMLQueryStringParser::DOCTYPE;
    together += doctype ? "{" + parser.GetTokenString() + "}" : parser.GetTokenString();
  }
  // The tokens of a text are the text.
  if (together != text) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  XMLParser parser(in);
  // Errors and restored positions come at places that the input itself chooses.
  std::size_t taken = 0;
  std::size_t restored = 0;
  while (parser.GetCurrToken() != XMLParser::END_DOC) {
    const std::uint8_t choice = size == 0 ? 0 : data[taken % size];
    if (parser.NextToken() == XMLParser::ERROR) {
      if (parser.NextToken() != XMLParser::ERROR) std::abort();
      if (choice % 2 == 0)
        parser.SkipElement();
      else
        parser.ClearError();
    }
    SplitText(parser.GetTokenString());
    SplitText(parser.GetTokenValue());
    if (choice % 16 == 1) parser.SavePosition();
    if (choice % 16 == 2 && restored < 16) {
      parser.RestorePosition();
      ++restored;
    }
    if (++taken > 40 * (size + 2)) std::abort();
  }
  return 0;
}
