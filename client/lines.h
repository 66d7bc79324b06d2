#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/deadline.h"
#include "common/delimparser.h"
#include "common/socket.h"

// Connects `socket` to `port` of `host`, a name or an address, by IPv6 or else by IPv4. The socket
// does not block then, and is closed in programs that are started. With `receive_buffer` above 0
// the system keeps no more than about that many bytes for it. Throws TimedOut or ClientError. A
// name is looked up with the system's own time limit.
void ConnectWithin(Socket& socket, const std::string& host, int port, Timeout timeout,
                   int receive_buffer = 0);

// A connection to the console service of a head as the lines that go over it. ConsoleClient uses
// this; use it directly for the protocol to the byte.
//
// Each wait takes `timeout` at most.
class LineClient {
 public:
  static constexpr int kConsolePort = 7246;

  // Connects as ConnectWithin does.
  explicit LineClient(int port, const std::string& host = "::1", Timeout timeout = kDefaultTimeout,
                      int receive_buffer = 0);

  // Sends `text`, waiting for room where there is none. Throws TimedOut, or ClientError when the
  // head is gone.
  void Send(std::string_view text);

  // The next line, without its line feed. Throws TimedOut, or ClientError at the end of the
  // connection.
  std::string ReadLine();
  // Lines up to the first that begins with `start`, which is returned.
  std::string ReadLineThatBegins(std::string_view start);

  // The next line if it has come. Throws ClientError at the end of the connection.
  std::optional<std::string> TakeLine();
  // The same, but waits for it until `deadline`.
  std::optional<std::string> NextLine(const Deadline& deadline);
  // Throws away what has come.
  void Drop();
  // Whether the head has ended the connection; says no while there is something left to take.
  bool IsClosed();
  // To poll for reading. Lines may be left over from an earlier read, so take until there is none.
  int Descriptor() const { return socket.GetFD(); }
  Socket& Connection() { return socket; }
  const std::string& Peer() const { return peer; }

  Timeout WaitLimit() const { return timeout; }
  void SetWaitLimit(Timeout limit) { timeout = limit; }

 private:
  bool ReadChunk();

  std::string peer;
  Timeout timeout;
  Socket socket;
  DelimParser parser{"\n"};
};
