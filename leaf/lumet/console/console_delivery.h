#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/socket_client.h"
#include "common/socket_server.h"

// What the head keeps for each client. Clients of the console service have no other context.
class LumetSocketContext : public SocketClientContext {
 public:
  // Streams that a client can switch on and off.
  enum Output : std::uint32_t {
    kStatus = 1,
    kWaveforms = 2,
    kDataClock = 4,
    kDataTest = 8,
    kDataRawCapture = 16,
  };

  // That of a client of this service; null until it has one.
  static LumetSocketContext* Of(const SocketClient& client) {
    return static_cast<LumetSocketContext*>(client.GetContext().get());
  }

  std::uint32_t outputFlags = kDataTest;
};

// Backlog in bytes at which a client no longer gets a text of each kind.
struct BacklogLimit {
  static constexpr std::size_t kReply = 1572864;  // also events and messages
  static constexpr std::size_t kData = 1048576;
  static constexpr std::size_t kStatus = 786432;
  static constexpr std::size_t kDiagnostic = 524288;
};

// How every text reaches console clients. A client whose backlog has reached `limit` silently
// loses the text and stays connected, and so does one that is behind while too much waits for all.
class ConsoleDelivery {
 public:
  // `server` must outlive this.
  explicit ConsoleDelivery(SocketServer& server) : server(server) {}

  // A null client is ignored.
  void SendToClient(SocketClient* client, std::string_view text, std::size_t limit);
  // Bytes that may be queued for this client now.
  std::size_t Room(const SocketClient& client);
  // To a client that is about to be closed: what it takes at once.
  static void SendLast(SocketClient* client, std::string_view text);
  // To every client, in the order of connection.
  void SendToAll(std::string_view text, std::size_t limit);
  // How many clients there are.
  std::size_t Count() const { return server.Clients().size(); }
  // Whether there is any client to send to.
  bool AnyoneListens() const { return !server.Clients().empty(); }
  // Whether any client has `output` on.
  bool AnyoneWants(LumetSocketContext::Output output) const;
  // To the clients whose `outputFlags` have `output`.
  void SendToFlagged(std::string_view text, LumetSocketContext::Output output, std::size_t limit);

 private:
  static bool Wants(const SocketClient& client, LumetSocketContext::Output output);

  SocketServer& server;
  // Memory of all queues, or more: what was sent since it was counted is added.
  std::size_t queued = 0;
  bool crowded = false;  // it was printed that too much waits
};
