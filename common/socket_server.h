#pragma once

#include <chrono>
#include <cstddef>
#include <limits>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "common/http_parser.h"
#include "common/poll_processor.h"
#include "common/socket.h"
#include "common/socket_address.h"
#include "common/socket_client.h"

// What a SocketServer tells an application. All calls come from inside events of the loop; a
// listener may send on the client and may close it.
class SocketServerListener {
 public:
  virtual ~SocketServerListener() = default;
  // Inside the accept, before anything was read.
  virtual void ClientConnected(SocketClient* /*client*/) {}
  // The first read or write event of this client.
  virtual void ClientActive(SocketClient* /*client*/) {}
  // One message, with its delimiter; without a delimiter, one chunk of bytes.
  virtual void GotRequest(SocketClient* /*client*/, const std::string& /*text*/) {}
  // The client is about to be closed, since its message grows too long.
  virtual void ClientSentTooMuch(SocketClient* /*client*/) {}
  // Whether what is queued for this client may be written now. If not, it is asked again in the
  // next turn of the loop.
  virtual bool ClientMayWrite(SocketClient* /*client*/) { return true; }
  // The peer shut down its sending side.
  virtual void ClientInputEnded(SocketClient* /*client*/) {}
  // This side has shut down its sending side.
  virtual void ClientOutputEnded(SocketClient* /*client*/) {}
  // The client is about to close.
  virtual void ClientDisconnected(SocketClient* /*client*/) {}
  // A whole HTTP message, on a server in HTTP mode.
  virtual void GotHTTPRequest(SocketClient* /*client*/, const std::string& /*url*/,
                              const HTTPParser::Headers& /*headers*/, const std::string& /*body*/) {
  }
  virtual void GotHTTPResponse(SocketClient* /*client*/, const HTTPParser::Headers& /*headers*/,
                               const std::string& /*body*/) {}
};

// Puts a listening stream socket on the loop and owns the clients that it accepts. Listeners are
// not owned; add them before Listen, so that no client appears unseen.
class SocketServer : public PollItem, public PollTimer {
 public:
  // An empty delimiter means no splitting. Throws ErrnoError without a socket of that family.
  SocketServer(const std::string& message_delimiter, int address_family);
  // In HTTP mode.
  SocketServer(HTTPParser::Kind kind, int address_family);
  explicit SocketServer(int address_family);
  // Closes each client, which listeners hear.
  ~SocketServer() override;

  // On the wildcard address of the family. Throws ErrnoError.
  void Listen(int listening_port);
  // On one address; port 0 lets the system choose.
  void Listen(const SocketAddress& address);
  // The port listened on; -1 before Listen.
  int GetPort() const { return port; }

  void AddListener(SocketServerListener* listener);
  // Every entry of it.
  void RemoveListener(SocketServerListener* listener);

  // Closes a client that sends this many bytes without a delimiter, with a line on standard output.
  // Without a limit, which is the start, a message may grow for ever.
  void SetMessageLimit(std::size_t bytes) { message_limit = bytes; }
  // Closes the client with the longest message that has not ended, with a line on standard output,
  // when all of them together have more bytes than this. Without a limit at the start.
  void SetUnfinishedLimit(std::size_t bytes) { unfinished_limit = bytes; }

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
  // Reaps closed clients, then accepts one connection.
  void HandleRead() override;
  // The keep-alive tick.
  void Expired() override;
  const char* GetName() override { return "SocketServer"; }

 private:
  friend class SocketClient;

  template <class... Connection>
  std::unique_ptr<SocketClient> MakeClient(const Connection&... connection);
  SocketClient* Adopt(std::unique_ptr<SocketClient> client);

  void LimitUnfinished();

  // Tells every listener; one may take itself off the list meanwhile.
  template <class Call>
  void Tell(Call call) {
    for (auto next = listeners.begin(); next != listeners.end();) call(**next++);
  }

  std::string keep_alive_text;
  int keep_alive_period_ms = 0;
  std::string delimiter;
  std::size_t message_limit = std::numeric_limits<std::size_t>::max();
  std::size_t unfinished_limit = std::numeric_limits<std::size_t>::max();
  std::optional<HTTPParser::Kind> http_kind;
  std::list<SocketServerListener*> listeners;
  std::list<std::unique_ptr<SocketClient>> clients;
  Socket socket;
  int port = -1;
  int family;
};

template <class Call>
void SocketClient::Tell(Call call) {
  server.Tell(call);
}
