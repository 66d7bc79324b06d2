#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/delimparser.h"
#include "common/file_reader.h"
#include "common/poll_processor.h"
#include "common/socket.h"
#include "common/socket_address.h"
#include "common/socket_server_listener.h"

// What an application attaches to a client, by deriving from this.
class SocketClientContext {
 public:
  SocketClientContext() = default;
  virtual ~SocketClientContext() = default;
  SocketClientContext(const SocketClientContext&) = delete;
  SocketClientContext& operator=(const SocketClientContext&) = delete;
};

// One connection of a SocketServer, which owns it: a read path that hands bytes on as they come,
// and a queued write path. What happens is told to the server's listeners.
//
// What is queued is sent at the end of the pass of the loop, and what the system does not take then
// as soon as it takes more. A client that has been served follows the server's broadcast: what all
// clients are sent is kept there, and a client's own queue holds what it alone is sent, with all
// that comes after that until it is served again.
//
// A closed client stays a valid object, which ignores what it is asked, until the server's next
// accept. A read or write error, and an exception from a listener, closes the client with a line
// on standard output.
class SocketClient : public PollItem {
 public:
  // Accepts from `listening`. Throws as the accepting constructor of Socket does.
  SocketClient(SocketClientOwner& server, const Socket& listening);
  // Connects to `address` within `seconds`. Throws as Socket::Connect does.
  SocketClient(SocketClientOwner& server, const SocketAddress& address, unsigned seconds);

  bool IsOpen() const { return socket.IsOpen(); }
  // Queues `text`, however much is queued already. Ignored when the client is closed, or its output
  // is closed or about to be.
  void Send(std::string_view text);
  // Sends a file after what is queued. Throws ErrnoError when it can't be opened; ignored as Send
  // is.
  void SendFile(const std::string& path);
  // Shuts the output down once the queue has drained, and closes if the peer has done the same.
  void CloseAfterSend();
  // Tells ClientDisconnected, then closes at once; what is queued is lost.
  void Close();
  // Bytes queued and not yet taken by the system.
  std::size_t Backlog() const {
    return follows ? Unread() : pending.size() + inFlight.size() - written;
  }

  // Bytes of memory that the queue takes.
  std::size_t QueueMemory() const { return pending.capacity() + inFlight.capacity(); }
  // Bytes of a message that has not ended yet.
  virtual std::size_t Unfinished() const { return 0; }

  const std::shared_ptr<SocketClientContext>& GetContext() const { return context; }
  void SetContext(std::shared_ptr<SocketClientContext> context);

  int GetFD() override { return socket.GetFD(); }
  void HandleRead() override;
  void HandleWrite() override;
  void HandleError() override;
  void HandleInvalid() override;
  void HandleHangup() override;
  const char* GetName() override { return "SocketClient"; }

 protected:
  // Takes the bytes of one read, and passes them on by GotRequest.
  virtual void GotData(const std::string& text);
  // The peer has shut down its sending side.
  virtual void GotEndOfInput() {}
  void TellRequest(const std::string& text);
  // The client closes: what was received and not handed on is dropped.
  virtual void DropInput() {}
  // Closes this or another client when too much is unfinished.
  void LimitUnfinished();
  // Calls `call` with every listener of the server.
  template <class Call>
  void Tell(Call call) {
    server.Tell(call);
  }

 private:
  friend class SocketServer;
  enum State : unsigned {
    kActive = 1,
    kCloseWhenDrained = 2,
    kConnecting = 4,
    kInputEnded = 16,
    kOutputShutDown = 32,
  };

  bool AcceptsText() const;
  // Bytes of the broadcast that a client that follows it has still to send.
  std::size_t Unread() const;
  void StartFollowing();
  void StopFollowing();
  // Whether nothing was queued since the last keep-alive tick; begins the next one.
  bool TickWasSilent();
  // Sends what is queued, unless the system is known to take nothing now.
  void Flush();
  bool FlightEmpty() const { return written == inFlight.size(); }
  void WantWrite(bool want);
  // Runs the work of an event on an open client; what it throws closes the client.
  template <class Act>
  void Guarded(const char* event, Act act);
  void NoteActive();
  void ReadChunk();
  void WriteChunk();
  void FinishWriting();
  void CloseOn(const char* event);
  // Tells the listeners, prints a line with the `reason`, and closes.
  void CloseForLength(const char* reason);

  SocketClientOwner& server;
  Socket socket;
  std::string pending;      // accepted for sending, after inFlight
  std::string inFlight;     // being written
  std::size_t written = 0;  // bytes of inFlight that are gone
  unsigned state = 0;
  std::shared_ptr<SocketClientContext> context;
  FileReader file;
  bool follows = false;             // the broadcast; the queues above are empty
  std::size_t next_place = 0;       // in the broadcast, of the first byte that is not gone
  std::size_t tick_place = 0;       // and of the first one since the last keep-alive tick
  std::uint32_t sentSinceTick = 0;  // bytes queued here since then
};

// A client whose bytes are cut into messages at a delimiter; GotRequest gets each, with its
// delimiter at its end.
class SocketClientParseData : public SocketClient {
 public:
  template <class... Connection>
  SocketClientParseData(const std::string& delimiter, SocketClientOwner& owner,
                        const Connection&... connection)
      : SocketClient(owner, connection...), parser(delimiter) {}

  std::size_t Unfinished() const override { return parser.Pending(); }

 protected:
  void GotData(const std::string& text) override;
  void DropInput() override;

 private:
  DelimParser parser;
  std::string message;
};
