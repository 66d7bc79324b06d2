#pragma once

#include <cstddef>
#include <limits>
#include <list>
#include <string>

#include "common/broadcast.h"
#include "common/http_parser.h"
#include "common/poll_processor.h"

class SocketClient;

// What a SocketServer reports to an application. All calls come from inside events of the loop; a
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

// What the clients of one server have in common: those who are told about them, a limit, what all
// of them are sent, and a flush at the end of the pass in which one has something to send.
class SocketClientOwner : public PollFlushHandler {
 public:
  SocketClientOwner() = default;
  SocketClientOwner(const SocketClientOwner&) = delete;
  SocketClientOwner& operator=(const SocketClientOwner&) = delete;

  void AddListener(SocketServerListener* listener) { listeners.push_back(listener); }
  // Removes every entry of it.
  void RemoveListener(SocketServerListener* listener) { listeners.remove(listener); }
  // Calls `call` with every listener; one may take itself off the list meanwhile.
  template <class Call>
  void Tell(Call call) {
    for (auto next = listeners.begin(); next != listeners.end();) call(**next++);
  }

  // Closes a client that sends this many bytes without a delimiter, with a line on standard output.
  // No limit by default.
  void SetMessageLimit(std::size_t bytes) { message_limit = bytes; }
  std::size_t GetMessageLimit() const { return message_limit; }
  // Closes the client with the longest message that has not ended, with a line on standard output,
  // when all of them together have more bytes than this. No limit by default.
  void SetUnfinishedLimit(std::size_t bytes) { unfinished_limit = bytes; }

  // The descriptor of a client is free again.
  virtual void ClientClosed() {}
  // A client has more of a message than before.
  virtual void LimitUnfinished() {}

 protected:
  friend class SocketClient;
  Broadcast broadcast;
  bool all_follow = true;  // every open client follows it
  std::string received;    // by the client that is being read
  std::size_t unfinished_limit = std::numeric_limits<std::size_t>::max();

 private:
  std::list<SocketServerListener*> listeners;
  std::size_t message_limit = std::numeric_limits<std::size_t>::max();
};
