#pragma once

#include <string>

// A machine and a port, as "HOST", "HOST:PORT", "[ADDRESS]:PORT" or an IPv6 address. Throws
// std::invalid_argument.
struct HostPort {
  static HostPort Parse(const std::string& text, int default_port);

  std::string host;
  int port = 0;
};
