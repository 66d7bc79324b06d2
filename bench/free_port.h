#pragma once

#include "common/socket.h"

// A port of ::1 on which nobody listens. While this lives, the system gives it to nobody who asks
// for any port; whoever knows it can listen on it, as often as they like.
class FreePort {
 public:
  // Throws ErrnoError.
  FreePort() {
    holder.Bind(SocketAddress("::1"));
    SocketAddress bound(AF_INET6);
    holder.GetSockName(bound);
    port = bound.GetPort();
  }

  operator int() const { return port; }

 private:
  // Bound and not listening: with SO_REUSEADDR on both sides, which Socket sets, that bars no
  // listener.
  Socket holder{AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0};
  int port = 0;
};
