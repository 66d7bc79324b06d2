#include "common/host_port.h"

#include <charconv>
#include <stdexcept>

HostPort HostPort::Parse(const std::string& text, int default_port) {
  HostPort place = {text, default_port};
  std::string port;
  const std::size_t bracket = text.find(']');
  const std::size_t colon = text.rfind(':');
  if (text.starts_with('[') && bracket != std::string::npos) {
    place.host = text.substr(1, bracket - 1);
    if (bracket + 1 < text.size()) port = text.substr(bracket + 1);
  } else if (colon != std::string::npos && text.find(':') == colon) {
    place.host = text.substr(0, colon);
    port = text.substr(colon);
  }
  if (!port.empty()) {
    const char* const end = port.data() + port.size();
    const auto [rest, error] = std::from_chars(port.data() + 1, end, place.port);
    constexpr int kHighestPort = 65535;
    if (port.front() != ':' || error != std::errc() || rest != end || place.port < 1 ||
        place.port > kHighestPort)
      throw std::invalid_argument(text + " names no TCP port");
  }
  if (place.host.empty()) throw std::invalid_argument(text + " names no machine");
  return place;
}

std::string Place(const std::string& host, int port) {
  const bool is_bare = host.find(':') == std::string::npos;
  return (is_bare ? host : "[" + host + "]") + ":" + std::to_string(port);
}
