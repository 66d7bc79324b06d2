#include "common/socket_server.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <functional>
#include <stdexcept>
#include <utility>

#include "common/poll_processor.h"
#include "common/temporary_directory.h"
#include "common/test_registry.h"

namespace {

using namespace self_test;
using namespace std::string_literals;

// Writes down what it hears.
struct Recorder : SocketServerListener {
  void ClientConnected(SocketClient* connected) override {
    client = connected;
    log += "connected ";
  }
  void ClientActive(SocketClient*) override { log += "active "; }
  void GotRequest(SocketClient*, const std::string& text) override {
    log += "'" + text + "' ";
    request();
  }
  void GotHTTPRequest(SocketClient*, const std::string& url, const HTTPParser::Headers&,
                      const std::string& body) override {
    log += "'" + url + "' '" + body + "' ";
  }
  void ClientInputEnded(SocketClient*) override { log += "input-ended "; }
  void ClientOutputEnded(SocketClient*) override { log += "output-ended "; }
  void ClientDisconnected(SocketClient*) override { log += "disconnected "; }

  std::string Taken() { return std::exchange(log, ""); }

  SocketClient* client = nullptr;  // the latest
  std::string log;
  std::function<void()> request = [] {};
};

// A server, and the far end of its latest connection.
struct Service {
  template <class Mode>
  explicit Service(Mode mode) : server(mode, AF_INET6) {
    server.AddListener(&listener);
    address.SetPort(0);
    server.Listen(address);
    address.SetPort(server.GetPort());
    Connect();
  }

  void Connect() {
    peer.Create(AF_INET6, SOCK_STREAM, 0);
    peer.Connect(address);
    Turn();
  }
  void Say(const std::string& text) {
    peer.Write(text);
    Turn();
  }
  // What the peer can read by now, and with `until` bytes awaited at least that much.
  std::string Heard(std::size_t until = 0) {
    std::string heard;
    do {
      Turn();
      Hear(peer, heard);
    } while (heard.size() < until);
    return heard;
  }
  // Adds what `peer` can read at once.
  static void Hear(Socket& peer, std::string& heard) {
    std::array<char, 65536> chunk;
    for (ssize_t count = 1; count > 0;) {
      count = recv(peer.GetFD(), chunk.data(), chunk.size(), MSG_DONTWAIT);
      if (count > 0) heard.append(chunk.data(), static_cast<std::size_t>(count));
    }
  }
  static void Turn() {
    for (int i = 0; i < 4; ++i) PollProcessor::Instance()->Process(1);
  }

  Recorder listener;
  SocketServer server;
  SocketAddress address{std::string("::1")};
  Socket peer;
};

void MessageCases() {
  Service service("\n");
  const std::string large(10'000, 'x');
  for (const std::string& packet : {"one\ntw"s, "o\n\n"s, large, "\n"s, "lost"s})
    service.Say(packet);
  ExpectEqual(service.listener.Taken(), "connected active 'one\n' 'two\n' '\n' '" + large + "\n' ");
  // The end of the input is not the end of the client.
  service.peer.Shutdown(SHUT_WR);
  service.Turn();
  ExpectEqual(service.listener.Taken(), "input-ended ");
  service.listener.client->Send("still served");
  ExpectEqual(service.Heard(12), "still served");
  // A peer that vanishes then is noticed, though nothing is sent to it.
  const struct linger reset = {1, 0};
  setsockopt(service.peer.GetFD(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  service.peer.Close();
  service.Turn();
  ExpectEqual(service.listener.Taken(), "disconnected ");

  Service plain("");
  plain.Say("one\ntwo");
  ExpectEqual(plain.listener.Taken(), "connected active 'one\ntwo' ");
}

void CloseCases() {
  Service service("\n");
  Recorder& listener = service.listener;
  SocketClient* first = listener.client;
  listener.request = [&] { first->Close(); };
  service.Say("one\ntwo\n");
  ExpectEqual(listener.Taken(), "connected active 'one\n' disconnected ");
  // It stays, and ignores everything, until the next client comes.
  first->Send("unheard");
  first->Close();
  first->CloseAfterSend();
  ExpectEqual(first->Backlog() + service.server.Clients().size(), std::size_t{1});
  service.Connect();
  ExpectEqual(service.server.Clients().size(), std::size_t{1}, "clients after the reaping");

  listener.request = [] { throw std::runtime_error("a listener's error"); };
  service.Say("one\n");
  ExpectEqual(listener.Taken(), "connected active 'one\n' disconnected ");

  // Closing after the queue: the peer reads everything, and has the last word.
  service.Connect();
  listener.client->Send("farewell");
  listener.client->CloseAfterSend();
  listener.client->Send("unheard");
  ExpectEqual(service.Heard(8), "farewell");
  ExpectEqual(listener.Taken(), "connected active output-ended ");
  service.peer.Close();
  service.Turn();
  ExpectEqual(listener.Taken(), "input-ended disconnected ");
}

// Descriptors run out: others wait, and neither the loop nor whoever needs the last few suffers.
void ShortageCases() {
  Service service("\n");
  struct rlimit before = {};
  getrlimit(RLIMIT_NOFILE, &before);
  const struct rlimit few = {100, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  {
    std::deque<Socket> taken;
    while (taken.empty() || taken.back().GetFD() < 90) taken.emplace_back(AF_INET6, SOCK_STREAM, 0);
    Socket& late = taken.emplace_back(AF_INET6, SOCK_STREAM, 0);
    late.Connect(service.address);
    service.listener.Taken();
    service.Turn();
    ExpectEqual(service.listener.Taken(), "", "a client that waits");
    ExpectEqual(service.server.GetEvents(), 0, "events that are awaited meanwhile");
    taken.erase(taken.begin(), taken.end() - 1);
    service.listener.client->Close();
    service.Turn();
    ExpectEqual(service.listener.Taken(), "disconnected connected ");
  }
  setrlimit(RLIMIT_NOFILE, &before);
}

const std::string kTwoRequests =
    "POST /a?b HTTP/1.1\r\nHost: x\r\nX: 1\r\nX: 2\r\nContent-Length: 3\r\n\r\nabc"
    "GET /c HTTP/1.1\r\nHost: y\r\n\r\n";

void HTTPParserCases() {
  const std::string endless_response = "HTTP/1.1 200 OK\r\nServer: z\r\n\r\nall the rest";
  const struct {
    HTTPParser::Kind kind;
    std::string bytes;
    std::string heard;
  } rows[] = {
      {HTTPParser::kBoth, kTwoRequests, "/a?b(Content-Length=3 Host=x X=2 )abc; /c(Host=y ); end"},
      {HTTPParser::kResponses, endless_response, "response(Server=z )all the rest; end"},
      {HTTPParser::kRequests, "GET / HTTP/1.1\r\nUpgrade: u\r\nConnection: upgrade\r\n\r\n\1\2",
       "/(Connection=upgrade Upgrade=u ); end"},
      {HTTPParser::kResponses, kTwoRequests, "ERROR in HTTPParser"},
      {HTTPParser::kRequests, kTwoRequests.substr(0, kTwoRequests.size() - 1),
       "/a?b(Content-Length=3 Host=x X=2 )abc; end"},
  };
  struct Heard : HTTPParser::Listener {
    void GotHTTPRequest(const std::string& url, const HTTPParser::Headers& headers,
                        const std::string& body) override {
      log += url + "(";
      for (const auto& [field, value] : headers) log += field + "=" + value + " ";
      log += ")" + body + "; ";
    }
    void GotHTTPResponse(const HTTPParser::Headers& headers, const std::string& body) override {
      GotHTTPRequest("response", headers, body);
    }
    std::string log;
  };
  for (const auto& row : rows) {
    Heard heard;
    HTTPParser parser(heard, row.kind);
    try {
      parser.Parse(row.bytes);
      parser.Finish();
      heard.log += "end";
    } catch (const HTTPParser::Error& error) {
      heard.log += error.what();
    }
    ExpectEqual(heard.log, row.heard, row.bytes);
  }
}

void HTTPServerCases() {
  Service service(HTTPParser::kRequests);
  service.Say(kTwoRequests);
  ExpectEqual(service.listener.Taken(),
              "connected active '" + kTwoRequests + "' '/a?b' 'abc' '/c' '' ");
  service.Say("no request\r\n");
  ExpectTrue(!service.listener.client->IsOpen(), "a client that speaks no HTTP");
}

void SendCases() {
  const TemporaryDirectory directory;
  const std::string file_text(100'000, 'f');
  directory.Write("file", file_text);
  Service service("\n");
  SocketClient& client = *service.listener.client;
  // More than the system takes at once, so that writes are partial, and a file in between.
  const std::string large(8'000'000, 'a');
  client.Send(large);
  service.Turn();
  ExpectTrue(client.Backlog() > 0 && client.Backlog() < large.size(), "a partial write");
  client.Send("b");
  client.SendFile(directory.Path() + "/file");
  client.Send("c");
  const std::string expected = large + "b" + file_text + "c";
  ExpectTrue(service.Heard(expected.size()) == expected, "order of texts and file");
  ExpectEqual(client.Backlog(), std::size_t{0});

  // Only a silent client is kept alive.
  service.server.SetKeepAlive("alive\n", 20);
  ExpectEqual(service.Heard(12).substr(0, 12), "alive\nalive\n");
  service.server.SetKeepAlive("", 20);
  service.Heard();
  usleep(30'000);
  ExpectEqual(service.Heard(), "", "after the end of keep-alive");

  // A connection that the server opens, to itself here.
  service.listener.Taken();
  SocketClient* outgoing = service.server.Connect(service.address, 5);
  outgoing->Send("hello\n");
  service.Turn();
  ExpectEqual(service.listener.Taken(), "connected active connected active 'hello\n' ");
}

// What all are sent reaches each client whole and in order, except those that are too far behind,
// however it is mixed with what each alone is sent.
void BroadcastCases() {
  constexpr std::size_t kLimit = 200'000;
  Service service("\n");
  struct End {
    SocketClient* client;
    Socket peer;
    std::string expected;
    std::string heard;
    void Send(const std::string& text) {
      client->Send(text);
      expected += text;
    }
    void Hear() { Service::Hear(peer, heard); }
  };
  End stalled = {service.listener.client, std::exchange(service.peer, Socket()), "", ""};
  service.Connect();
  End served = {service.listener.client, std::exchange(service.peer, Socket()), "", ""};
  for (End* end : {&stalled, &served}) end->Send("first\n");
  bool lost = false;
  for (int i = 0; i < 12'000; ++i) {
    const std::string row = std::to_string(i) + std::string(1000, 'r') + "\n";
    const bool taken = stalled.client->Backlog() < kLimit;
    if (taken) stalled.expected += row;
    lost |= !taken;
    served.expected += row;
    service.server.SendToAll(row, kLimit);
    if (i % 7 == 0) served.Send("answer\n");
    if (i % 1000 == 0) stalled.Send("answer\n");
    if (i % 5 != 0) continue;
    Service::Turn();
    served.Hear();
    // It wakes up once in between.
    if (i > 9000 && i < 10'000) stalled.Hear();
  }
  ExpectTrue(lost, "rows for a client at its limit");
  for (int turns = 0; turns < 10'000 && stalled.heard.size() < stalled.expected.size(); ++turns) {
    Service::Turn();
    for (End* end : {&stalled, &served}) end->Hear();
  }
  ExpectTrue(stalled.heard == stalled.expected, "what the stalled client heard");
  ExpectTrue(served.heard == served.expected, "what the other client heard");
  ExpectEqual(stalled.client->Backlog() + served.client->Backlog(), std::size_t{0});
}

}  // namespace

void SocketServerCases() {
  MessageCases();
  CloseCases();
  ShortageCases();
  HTTPParserCases();
  HTTPServerCases();
  SendCases();
  BroadcastCases();
}
