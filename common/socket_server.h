#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/broadcast.h"
#include "common/http_parser.h"
#include "common/poll_processor.h"
#include "common/socket.h"
#include "common/socket_address.h"
#include "common/socket_client.h"
#include "common/socket_server_listener.h"

// Puts a listening stream socket on the loop and owns the clients that it accepts. Listeners are
// not owned; add them before Listen, so that no client appears unseen.
class SocketServer : public PollItem, public PollTimer, public SocketClientOwner {
 public:
  // An empty delimiter means no splitting. Throws ErrnoError without a socket of that family.
  SocketServer(const std::string& delimiter, int family);
  // In HTTP mode; SocketHTTPClient's file defines it.
  SocketServer(HTTPParser::Kind kind, int family);
  explicit SocketServer(int family);
  // Closes each client, which listeners hear.
  ~SocketServer() override;

  // On the wildcard address of the family. Throws ErrnoError.
  void Listen(int port);
  // On one address; port 0 lets the system choose.
  void Listen(const SocketAddress& address);
  // The port listened on; -1 before Listen.
  int GetPort() const { return port; }

  // Sends `text` to every client whose backlog is below `limit` bytes; the others lose it. It is
  // kept once for all who are served.
  void SendToAll(std::string_view text, std::size_t limit);

  // Sends `text` every `period_ms` to each client that was sent nothing since the last time. An
  // empty text, or a period of 0 or less, stops that.
  void SetKeepAlive(const std::string& text, int period_ms);

  // Opens a connection of its own, as one more client. Throws as Socket::Connect does.
  SocketClient* Connect(const SocketAddress& address, unsigned seconds);

  // Lets the clients take what is queued for them, until `deadline` at most; for the end of a
  // process, when the loop no longer turns.
  void Drain(std::chrono::steady_clock::time_point deadline);

  // In the order of connection. Closed clients stay until the next accept.
  const std::list<std::unique_ptr<SocketClient>>& Clients() const { return clients; }

  int GetFD() override { return socket.GetFD(); }
  // Reaps closed clients, then accepts one connection. A failure of that one alone is ignored.
  // While only the last few descriptors of the process are free, which others need, or the system
  // has no room, accepting pauses: until a client closes, or for a second. The first pause in a
  // minute says so on standard output.
  void HandleRead() override;
  // The keep-alive tick.
  void Expired() override;
  // Sends what the clients have queued, as far as the system takes it.
  void Flush() override;
  // The descriptor of a client is free again.
  void ClientClosed() override { ResumeAccepting(); }
  void LimitUnfinished() override;
  const char* GetName() override { return "SocketServer"; }

 private:
  // Each makes a client of the kind that the server has.
  struct ClientMaker {
    std::function<std::unique_ptr<SocketClient>(SocketServer& owner, const Socket& listening)>
        accept;
    std::function<std::unique_ptr<SocketClient>(SocketServer& owner, const SocketAddress& address,
                                                unsigned seconds)>
        connect;
  };
  // For clients that are constructed with `argument` in front of the rest.
  template <class Client, class... Argument>
  static ClientMaker MakerOf(const Argument&... argument) {
    return {[=](SocketServer& owner, const Socket& listening) {
              return std::make_unique<Client>(argument..., owner, listening);
            },
            [=](SocketServer& owner, const SocketAddress& address, unsigned seconds) {
              return std::make_unique<Client>(argument..., owner, address, seconds);
            }};
  }
  static ClientMaker MakerFor(const std::string& delimiter);
  SocketServer(ClientMaker make_client, int family);

  // Ends a pause of accepting.
  class ResumeTimer : public PollTimer {
   public:
    explicit ResumeTimer(SocketServer& server) : PollTimer(-1, true), server(server) {}
    void Expired() override { server.ResumeAccepting(); }

   private:
    SocketServer& server;
  };

  SocketClient* Adopt(std::unique_ptr<SocketClient> client);
  std::unique_ptr<SocketClient> Accept();
  void PauseAccepting(int errnum);
  void ResumeAccepting();

  ResumeTimer resume{*this};
  std::optional<std::chrono::steady_clock::time_point> latest_pause;
  std::string keep_alive_text;
  int keep_alive_period_ms = 0;
  ClientMaker make_client;
  std::list<std::unique_ptr<SocketClient>> clients;
  // The most of the broadcast that a client still had to send after the latest flush, and the
  // broadcast's end then. Those that follow it now have all been served, or had no more to send.
  std::size_t longest_unread = 0;
  Broadcast::Place flushed_place = 0;
  Socket socket;
  int port = -1;
  int family;
};
