#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
// After sys/socket.h, which it needs.
#include <linux/netlink.h>

#include <string>

#include "common/stream_file.h"

// Problems with addresses.
class SocketError : public StreamFileBaseError {
 public:
  using StreamFileBaseError::StreamFileBaseError;
};

// A name that could not be resolved.
class HostNotFound : public SocketError {
 public:
  using SocketError::SocketError;
};

// One address of the families AF_UNIX, AF_INET, AF_INET6 or AF_NETLINK, as a value. Any other
// family makes every operation throw SocketError.
class SocketAddress {
 public:
  // The wildcard of the family, with port 0.
  explicit SocketAddress(int family);
  explicit SocketAddress(const struct sockaddr* raw_address);
  // As Parse.
  explicit SocketAddress(const std::string& text);
  // Resolves `host`, with port 0. Throws HostNotFound.
  SocketAddress(const std::string& host, int family);

  int Family() const { return address.any.sa_family; }
  // Valid bytes in Raw().
  socklen_t Length() const;
  const struct sockaddr* Raw() const { return &address.any; }

  void SetAny();
  // In host byte order. AF_UNIX and AF_NETLINK have no port: setting one is ignored, and it reads
  // as 0.
  void SetPort(int port);
  int GetPort() const;
  // AF_INET6 alone has one; the others ignore setting one and read as 0.
  void SetScopeId(unsigned id);
  unsigned GetScopeId() const;
  // Protocol: of fe80::/10 only addresses that begin with fe80 count.
  bool IsLinkLocal() const;
  // Without the port.
  std::string ToString() const;
  // A text with a '/' is a path (cut to 107 bytes), else one with a ':' is IPv6, else it is IPv4.
  // Throws SocketError.
  void Parse(const std::string& text);
  // The broadcast address of an AF_INET network; for other families the wildcard.
  static SocketAddress Broadcast(const SocketAddress& host, const SocketAddress& netmask);

  bool operator==(const SocketAddress& other) const;
  // By family, then by raw bytes.
  bool operator<(const SocketAddress& other) const;

  // Zeroed room of kRawBufferSize bytes for the system to write an address into.
  struct sockaddr* RawBuffer();
  static constexpr socklen_t kRawBufferSize = sizeof(struct sockaddr_storage);

 private:
  union {
    struct sockaddr any;
    struct sockaddr_un local;
    struct sockaddr_in v4;
    struct sockaddr_in6 v6;
    struct sockaddr_nl netlink;
    struct sockaddr_storage storage;
  } address;
};
