#include "common/socket_http_client.h"

#include "common/socket_server.h"

SocketServer::SocketServer(HTTPParser::Kind kind, int family)
    : SocketServer(MakerOf<SocketHTTPClient>(kind), family) {}

void SocketHTTPClient::GotData(const std::string& text) {
  TellRequest(text);
  parser.Parse(text);
}

void SocketHTTPClient::GotEndOfInput() { parser.Finish(); }

void SocketHTTPClient::GotHTTPRequest(const std::string& url, const HTTPParser::Headers& headers,
                                      const std::string& body) {
  Tell([&](SocketServerListener& listener) { listener.GotHTTPRequest(this, url, headers, body); });
}

void SocketHTTPClient::GotHTTPResponse(const HTTPParser::Headers& headers,
                                       const std::string& body) {
  Tell([&](SocketServerListener& listener) { listener.GotHTTPResponse(this, headers, body); });
}
