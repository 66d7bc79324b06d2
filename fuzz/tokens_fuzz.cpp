// The tokenizers take any bytes, and make no more tokens than there are characters. A document in
// memory gives the same tokens as one that comes by and by.

#include "configurable/text_stream.h"
#include "configurable/xml_parser.h"
#include "configurable/xml_query_string_parser.h"
#include "fuzz/fuzz_target.h"

namespace {

void SplitText(std::string_view text) {
  XMLQueryStringParser parser(text);
  std::string together;
  while (parser.NextToken() != XMLQueryStringParser::END_STRING) {
    const bool doctype = parser.GetCurrToken() == XMLQueryStringParser::DOCTYPE;
    together.append(doctype ? "{" : "").append(parser.GetTokenString()).append(doctype ? "}" : "");
  }
  // The tokens of a text are the text.
  Check(together == text);
}

// Gives its characters one after another.
class Characters : public std::streambuf {
 public:
  explicit Characters(std::string_view text) : text(text) {}

 protected:
  int_type underflow() override {
    return text.empty() ? traits_type::eof() : traits_type::to_int_type(text.front());
  }
  int_type uflow() override {
    const int_type byte = underflow();
    if (!text.empty()) text.remove_prefix(1);
    return byte;
  }

 private:
  std::string_view text;
};

void CompareTokens(const XMLParser& a, const XMLParser& b) {
  Check(a.GetCurrToken() == b.GetCurrToken() && a.GetTokenString() == b.GetTokenString() &&
        a.GetTokenValue() == b.GetTokenValue());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view document(reinterpret_cast<const char*>(data), size);
  TextInput in;
  in.Open(document);
  XMLParser parser(in);
  // The same for a stream without memory of its own.
  Characters characters(document);
  std::istream single(&characters);
  XMLParser other(single);
  // Errors and restored positions come at places that the input itself chooses.
  std::size_t taken = 0;
  std::size_t restored = 0;
  while (parser.GetCurrToken() != XMLParser::END_DOC) {
    const std::uint8_t choice = size == 0 ? 0 : data[taken % size];
    parser.NextToken();
    other.NextToken();
    CompareTokens(parser, other);
    if (parser.GetCurrToken() == XMLParser::ERROR) {
      Check(parser.NextToken() == XMLParser::ERROR);
      for (XMLParser* each : {&parser, &other}) {
        if (choice % 2 == 0)
          each->SkipElement();
        else
          each->ClearError();
      }
      CompareTokens(parser, other);
    }
    SplitText(parser.GetTokenString());
    SplitText(parser.GetTokenValue());
    const bool restores = choice % 16 == 2 && ++restored <= 16;
    for (XMLParser* each : {&parser, &other}) {
      if (choice % 16 == 1) each->SavePosition();
      if (restores) each->RestorePosition();
    }
    Check(++taken <= 40 * (size + 2));
  }
  return 0;
}
