#pragma once

#include <string>

#include "common/http_parser.h"
#include "common/socket_client.h"

// A client whose bytes are HTTP. Listeners get the bytes as they come by GotRequest, and then each
// message.
class SocketHTTPClient : public SocketClient, public HTTPParser::Listener {
 public:
  template <class... Connection>
  SocketHTTPClient(HTTPParser::Kind kind, SocketClientOwner& owner, const Connection&... connection)
      : SocketClient(owner, connection...), parser(*this, kind) {}

  void GotHTTPRequest(const std::string& url, const HTTPParser::Headers& headers,
                      const std::string& body) override;
  void GotHTTPResponse(const HTTPParser::Headers& headers, const std::string& body) override;

 protected:
  void GotData(const std::string& text) override;
  void GotEndOfInput() override;

 private:
  HTTPParser parser;
};
