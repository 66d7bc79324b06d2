// Whatever comes as HTTP is taken or refused, and the same wherever the reads have cut it.

#include "common/http_parser.h"
#include "fuzz/fuzz_target.h"

namespace {

// What was made of the bytes.
class Messages : public HTTPParser::Listener {
 public:
  void GotHTTPRequest(const std::string& url, const HTTPParser::Headers& headers,
                      const std::string& body) override {
    text << "request " << url << "\n";
    Add(headers, body);
  }
  void GotHTTPResponse(const HTTPParser::Headers& headers, const std::string& body) override {
    text << "response\n";
    Add(headers, body);
  }
  std::ostringstream text;

 private:
  void Add(const HTTPParser::Headers& headers, const std::string& body) {
    for (const auto& [name, value] : headers) text << name << ": " << value << "\n";
    text << body << "\n";
  }
};

template <class Feed>
std::string Parse(HTTPParser::Kind kind, Feed feed) {
  Messages messages;
  HTTPParser parser(messages, kind);
  try {
    feed(parser);
    parser.Finish();
  } catch (const HTTPParser::Error& error) {
    messages.text << error.what();
  }
  return messages.text.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const auto kind : {HTTPParser::kRequests, HTTPParser::kResponses, HTTPParser::kBoth}) {
    const std::string whole = Parse(kind, [&](HTTPParser& parser) { parser.Parse(bytes); });
    const std::string parts = Parse(kind, [&](HTTPParser& parser) {
      ForEachPart(bytes, [&](std::string_view part) { parser.Parse(part); });
    });
    Check(whole == parts);
    // A header counts once for each message that it stands in.
    Check(whole.size() <= 64 + 16 * size);
  }
  return 0;
}
