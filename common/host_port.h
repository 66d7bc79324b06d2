#pragma once

#include <string>

// A machine and a port, as "HOST", "HOST:PORT", "[ADDRESS]:PORT" or an IPv6 address. Throws
// std::invalid_argument.
struct HostPort {
  static HostPort Parse(const std::string& text, int default_port);

  std::string host;
  int port = 0;
};

// A port of a machine as text, such as "[::1]:7246".
std::string Place(const std::string& host, int port);
