// The common library's HTTP service, with a client that is not ours.

#include <gtest/gtest.h>

#include <string>

#include "bench/child_process.h"
#include "common/socket_server.h"

namespace {

TEST(Http, ServesCurl) {
  struct Echo : SocketServerListener {
    void GotHTTPRequest(SocketClient* client, const std::string& url,
                        const HTTPParser::Headers& headers, const std::string& body) override {
      const std::string text = url + " " + headers.at("X-Unit") + " " + body + "\n";
      client->Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(text.size()) +
                   "\r\n\r\n" + text);
    }
    void ClientConnected(SocketClient*) override { ++connections; }
    int connections = 0;
  } echo;
  SocketServer server(HTTPParser::kRequests, AF_INET6);
  server.AddListener(&echo);
  SocketAddress address("::1");
  server.Listen(address);
  const std::string base = "http://[::1]:" + std::to_string(server.GetPort());
  // A body in chunks, larger than a read, and two messages on one connection.
  const std::string body(100'000, 'b');
  ChildProcess curl({"sh", "-c",
                     "head -c 100000 /dev/zero | tr '\\0' b | curl --silent --max-time 20 --header "
                     "'X-Unit: a' --header 'Transfer-Encoding: chunked' --data-binary @- " +
                         base + "/first --next --silent --max-time 20 --header 'X-Unit: b' " +
                         base + "/second?q"});
  while (!curl.HasEnded() && !curl.HasSaid("/second?q b \n"))
    PollProcessor::Instance()->Process(10);
  EXPECT_EQ(curl.Wait(), 0);
  EXPECT_EQ(curl.Output(), "/first a " + body + "\n/second?q b \n");
  EXPECT_EQ(echo.connections, 1);
}

}  // namespace
