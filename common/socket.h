#pragma once

#include <sys/socket.h>

#include <string>

#include "common/errno_error.h"
#include "common/socket_address.h"
#include "common/stream_file.h"

// A connect that hit its time limit.
class SocketConnectionTimedOut : public SocketError {
 public:
  using SocketError::SocketError;
};

// The socket calls over a StreamFileBase. Every failed call throws ErrnoError with a text of its
// own; a closed socket throws "StreamFileBase: file is closed". Nothing is retried.
class Socket : public StreamFileBase {
 public:
  // The peer of an accepted connection was gone already.
  class EConnAborted : public ErrnoError {
   public:
    using ErrnoError::ErrnoError;
  };

  Socket() = default;
  explicit Socket(int descriptor) : StreamFileBase(descriptor) {}
  Socket(int family, int type, int protocol);
  // Accepts from `listener`; the peer's address goes to `peer` unless that is null. Throws
  // EConnAborted.
  explicit Socket(const Socket& listener, SocketAddress* peer);

  // Closes any previous descriptor. SO_REUSEADDR is set on every socket.
  void Create(int family, int type, int protocol);
  // A connection that is under way on a non-blocking socket counts as success.
  void Connect(const SocketAddress& address);
  // Gives up after `seconds` with SocketConnectionTimedOut. Uses the alarm of the process, so no
  // two may overlap.
  void Connect(const SocketAddress& address, unsigned seconds);
  // Throws if a connection under way has failed.
  void CheckConnected();
  // AF_UNIX socket files get full permissions.
  void Bind(const SocketAddress& address);
  // Makes the socket non-blocking too.
  void Listen(int backlog);
  void Shutdown(int how);
  // Notices a peer that is gone while nothing is sent: after `idle_s` seconds of silence the system
  // asks it every `interval_s` seconds, and gives up after `count` unanswered questions. Has no
  // effect where there is no TCP.
  void SetKeepAlive(int idle_s, int interval_s, int count);
  // Makes what is sent leave at once, however little it is. Has no effect on a socket that never
  // waits for more.
  void SetNoDelay();
  void GetSockName(SocketAddress& address);
  void GetPeerName(SocketAddress& address);

  // Each returns the bytes sent or received. Sending to a peer that is gone fails with EPIPE, and
  // never raises SIGPIPE.
  int Send(const void* buffer, std::size_t length, int flags);
  // Sends what the system takes without waiting, which may be nothing.
  std::size_t SendSome(const void* buffer, std::size_t length);
  int SendTo(const void* buffer, std::size_t length, int flags, const SocketAddress& address);
  int SendMsg(const struct msghdr* message, int flags);
  int Recv(void* buffer, std::size_t length, int flags);
  int RecvFrom(void* buffer, std::size_t length, int flags, SocketAddress& address);
  int RecvMsg(struct msghdr* message, int flags);
};
