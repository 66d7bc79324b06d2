#include "common/socket_address.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>

namespace {

[[noreturn]] void ThrowUnknownFamily() {
  throw SocketError("SocketAddress: unknown socket family");
}

}  // namespace

SocketAddress::SocketAddress(int family) : address() {
  address.any.sa_family = static_cast<sa_family_t>(family);
  SetAny();
}

SocketAddress::SocketAddress(const struct sockaddr* raw_address) : address() {
  address.any.sa_family = raw_address->sa_family;
  if (raw_address->sa_family == AF_UNIX) {
    // Its own path, not the empty one here, gives its length.
    const auto* local = reinterpret_cast<const struct sockaddr_un*>(raw_address);
    std::memcpy(address.local.sun_path, local->sun_path,
                strnlen(local->sun_path, sizeof address.local.sun_path - 1));
  } else {
    std::memcpy(&address, raw_address, Length());
  }
}

SocketAddress::SocketAddress(const std::string& text) : address() { Parse(text); }

SocketAddress::SocketAddress(const std::string& host, int family) : address() {
  struct addrinfo hints = {};
  hints.ai_family = family;
  struct addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (error != 0)
    throw HostNotFound("SocketAddress: " + host + " not found: " + gai_strerror(error));
  const std::unique_ptr<struct addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  while (found != nullptr && found->ai_socktype != SOCK_STREAM && found->ai_socktype != SOCK_DGRAM)
    found = found->ai_next;
  if (found == nullptr) throw HostNotFound("SocketAddress: " + host + " not found");
  *this = SocketAddress(found->ai_addr);
  SetPort(0);
}

socklen_t SocketAddress::Length() const {
  switch (Family()) {
    case AF_UNIX:
      return static_cast<socklen_t>(std::strlen(address.local.sun_path) + 2);
    case AF_INET:
      return sizeof address.v4;
    case AF_INET6:
      return sizeof address.v6;
    case AF_NETLINK:
      return sizeof address.netlink;
    default:
      ThrowUnknownFamily();
  }
}

struct sockaddr* SocketAddress::RawBuffer() {
  std::memset(&address, 0, sizeof address);
  return &address.any;
}

void SocketAddress::SetAny() {
  switch (Family()) {
    case AF_UNIX:
      std::memset(address.local.sun_path, 0, sizeof address.local.sun_path);
      break;
    case AF_INET:
      address.v4.sin_addr.s_addr = htonl(INADDR_ANY);
      break;
    case AF_INET6:
      address.v6.sin6_addr = in6addr_any;
      break;
    case AF_NETLINK:
      break;
    default:
      ThrowUnknownFamily();
  }
}

void SocketAddress::SetPort(int port) {
  const in_port_t in_network_order = htons(static_cast<std::uint16_t>(port));
  switch (Family()) {
    case AF_INET:
      address.v4.sin_port = in_network_order;
      break;
    case AF_INET6:
      address.v6.sin6_port = in_network_order;
      break;
    case AF_UNIX:
    case AF_NETLINK:
      break;
    default:
      ThrowUnknownFamily();
  }
}

int SocketAddress::GetPort() const {
  switch (Family()) {
    case AF_INET:
      return ntohs(address.v4.sin_port);
    case AF_INET6:
      return ntohs(address.v6.sin6_port);
    case AF_UNIX:
    case AF_NETLINK:
      return 0;
    default:
      ThrowUnknownFamily();
  }
}

void SocketAddress::SetScopeId(unsigned id) {
  Length();  // for its check of the family
  if (Family() == AF_INET6) address.v6.sin6_scope_id = id;
}

unsigned SocketAddress::GetScopeId() const {
  Length();  // for its check of the family
  return Family() == AF_INET6 ? address.v6.sin6_scope_id : 0;
}

bool SocketAddress::IsLinkLocal() const {
  switch (Family()) {
    case AF_INET:
      return ntohl(address.v4.sin_addr.s_addr) >> 16 == 0xA9FE;  // 169.254
    case AF_INET6:
      return address.v6.sin6_addr.s6_addr[0] == 0xFE && address.v6.sin6_addr.s6_addr[1] == 0x80;
    case AF_UNIX:
    case AF_NETLINK:
      return false;
    default:
      ThrowUnknownFamily();
  }
}

std::string SocketAddress::ToString() const {
  std::array<char, 52> text = {};
  switch (Family()) {
    case AF_UNIX:
      return address.local.sun_path;
    case AF_INET:
      return inet_ntop(AF_INET, &address.v4.sin_addr, text.data(), text.size());
    case AF_INET6:
      if (inet_ntop(AF_INET6, &address.v6.sin6_addr, text.data(), text.size()) == nullptr)
        throw SocketError("SocketAddress: bad IPv6 address");
      return text.data();
    case AF_NETLINK:
      return "NetLink Socket";
    default:
      ThrowUnknownFamily();
  }
}

void SocketAddress::Parse(const std::string& text) {
  RawBuffer();
  int parsed = 1;
  if (text.find('/') != std::string::npos) {
    address.any.sa_family = AF_UNIX;
    text.copy(address.local.sun_path, sizeof address.local.sun_path - 1);
  } else if (text.find(':') != std::string::npos) {
    address.any.sa_family = AF_INET6;
    parsed = inet_pton(AF_INET6, text.c_str(), &address.v6.sin6_addr);
  } else {
    address.any.sa_family = AF_INET;
    parsed = inet_pton(AF_INET, text.c_str(), &address.v4.sin_addr);
  }
  // The system's functions would stop at a NUL and take what comes before it.
  if (parsed != 1 || text.find('\0') != std::string::npos)
    throw SocketError("SocketAddress: illegal address " + text);
}

SocketAddress SocketAddress::Broadcast(const SocketAddress& host, const SocketAddress& netmask) {
  SocketAddress result(host.Family());
  if (host.Family() == AF_INET) {
    const in_addr_t mask = netmask.address.v4.sin_addr.s_addr;
    result.address.v4.sin_addr.s_addr = (host.address.v4.sin_addr.s_addr & mask) | ~mask;
  }
  return result;
}

bool SocketAddress::operator==(const SocketAddress& other) const {
  return Family() == other.Family() && Length() == other.Length() &&
         std::memcmp(&address, &other.address, Length()) == 0;
}

bool SocketAddress::operator<(const SocketAddress& other) const {
  if (Family() != other.Family()) return Family() < other.Family();
  const int order = std::memcmp(&address, &other.address, std::min(Length(), other.Length()));
  return order != 0 ? order < 0 : Length() < other.Length();
}
