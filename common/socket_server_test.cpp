#include "common/socket_server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/poll_processor.h"
#include "common/test_registry.h"

void SocketServerCases();

namespace {

using self_test::ExpectEqual;
using self_test::ExpectTrue;

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
  explicit Service(const std::string& delimiter) : server(delimiter, AF_INET6) {
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
    std::array<char, 65536> chunk;
    do {
      Turn();
      const ssize_t count = recv(peer.GetFD(), chunk.data(), chunk.size(), MSG_DONTWAIT);
      if (count > 0) heard.append(chunk.data(), static_cast<std::size_t>(count));
    } while (heard.size() < until);
    return heard;
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
  const struct {
    std::vector<std::string> packets;
    std::string heard;
  } rows[] = {
      {{"one\ntwo\n"}, "'one\n' 'two\n' "},
      {{"o", "n", "e\n"}, "'one\n' "},
      {{"one\ntw", "o\n\n", "lost"}, "'one\n' 'two\n' '\n' "},
      {{std::string(10'000, 'x'), "\n"}, "'" + std::string(10'000, 'x') + "\n' "},
  };
  for (const auto& row : rows) {
    Service service("\n");
    for (const std::string& packet : row.packets) service.Say(packet);
    ExpectEqual(service.listener.Taken(), "connected active " + row.heard);
    // The end of the input is not the end of the client.
    service.peer.Shutdown(SHUT_WR);
    service.Turn();
    ExpectEqual(service.listener.Taken(), "input-ended ");
    service.listener.client->Send("still served");
    ExpectEqual(service.Heard(12), "still served");
  }
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

  // Closing behind the queue: the peer reads everything, and has the last word.
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

void SendCases() {
  const std::string path =
      std::filesystem::temp_directory_path() / ("lumet-test-" + std::to_string(getpid()));
  const std::string file_text(100'000, 'f');
  std::ofstream(path) << file_text;
  Service service("\n");
  SocketClient& client = *service.listener.client;
  // More than the system takes at once, so that writes are partial, and a file in between.
  const std::string large(8'000'000, 'a');
  client.Send(large);
  service.Turn();
  ExpectTrue(client.Backlog() > 0 && client.Backlog() < large.size(), "a partial write");
  client.Send("b");
  client.SendFile(path);
  client.Send("c");
  const std::string expected = large + "b" + file_text + "c";
  ExpectTrue(service.Heard(expected.size()) == expected, "order of texts and file");
  ExpectEqual(client.Backlog(), std::size_t{0});
  std::filesystem::remove(path);

  // Only a silent client is kept alive.
  service.server.SetKeepAlive("alive\n", 20);
  ExpectEqual(service.Heard(12).substr(0, 12), "alive\nalive\n");
  service.server.SetKeepAlive("", 20);
  service.Heard();
  usleep(30'000);
  ExpectEqual(service.Heard(), "", "behind the end of keep-alive");

  // A connection that the server opens, to itself here.
  service.listener.Taken();
  SocketClient* outgoing = service.server.Connect(service.address, 5);
  outgoing->Send("hello\n");
  service.Turn();
  ExpectEqual(service.listener.Taken(), "connected connected active active 'hello\n' ");
}

}  // namespace

void SocketServerCases() {
  MessageCases();
  CloseCases();
  SendCases();
}
