#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

// Collects HTTP messages from a stream of bytes, split anywhere, and hands each over whole.
class HTTPParser {
 public:
  using Headers = std::map<std::string, std::string>;

  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void GotHTTPRequest(const std::string& /*url*/, const Headers& /*headers*/,
                                const std::string& /*body*/) {}
    virtual void GotHTTPResponse(const Headers& /*headers*/, const std::string& /*body*/) {}
  };

  class Error : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  // Which messages are taken.
  enum Kind { kRequests = 0, kResponses = 1, kBoth = 2 };

  // `listener` must outlive this.
  HTTPParser(Listener& listener, Kind kind);
  ~HTTPParser();
  HTTPParser(const HTTPParser&) = delete;
  HTTPParser& operator=(const HTTPParser&) = delete;

  // Throws Error for anything that is not HTTP; what follows an upgrade is ignored. Of two headers
  // with the same name the later one wins.
  void Parse(std::string_view text);
  // The input has ended, and with it a body without a length. An incomplete message is dropped.
  void Finish();

 private:
  struct State;
  std::unique_ptr<State> state;
};
