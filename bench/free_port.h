#pragma once

#include <string>

#include "common/socket.h"

// A port of a loopback address on which nobody listens. While this lives, the system gives it to
// nobody who asks for any port; whoever knows it can listen on it, as often as they like.
class FreePort {
 public:
  // `wanted` if it is free, or else any. Throws ErrnoError.
  explicit FreePort(const std::string& address = "::1", int wanted = 0)
      : holder(SocketAddress(address).Family(), SOCK_STREAM | SOCK_CLOEXEC, 0) {
    SocketAddress bound(address);
    bound.SetPort(wanted);
    if (!TryBind(bound)) {
      bound.SetPort(0);
      holder.Bind(bound);
    }
    holder.GetSockName(bound);
    port = bound.GetPort();
  }

  operator int() const { return port; }

 private:
  bool TryBind(const SocketAddress& address) {
    try {
      holder.Bind(address);
      return true;
    } catch (const ErrnoError&) {
      return false;
    }
  }

  // Bound and not listening: with SO_REUSEADDR on both sides, which Socket sets, that bars no
  // listener.
  Socket holder;
  int port = 0;
};
