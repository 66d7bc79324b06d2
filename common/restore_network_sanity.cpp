#include "common/restore_network_sanity.h"

#include <linux/rtnetlink.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

constexpr std::size_t kBufferSize = 4124;
constexpr std::uint32_t kUsualMetric = 2048;
constexpr int kDelayMs = 3000;
constexpr std::size_t kMessageHeader = NLMSG_HDRLEN;
constexpr std::size_t kAttributesAt = kMessageHeader + sizeof(struct rtmsg);

// The kernel writes its messages in the byte order and layout of these structs.
template <class Struct>
Struct Read(std::span<const std::uint8_t> bytes) {
  Struct value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

template <class Struct>
void Write(std::span<std::uint8_t> bytes, const Struct& value) {
  std::memcpy(bytes.data(), &value, sizeof value);
}

constexpr std::size_t RoundUp(std::size_t length) { return (length + 3) & ~std::size_t{3}; }

// Appends an attribute to the request in `buffer`, whose length its header tells.
void AddAttr32(std::span<std::uint8_t> buffer, unsigned short type, std::uint32_t value) {
  auto header = Read<struct nlmsghdr>(buffer);
  const std::size_t at = RoundUp(header.nlmsg_len);
  constexpr unsigned short kLength = sizeof(struct rtattr) + sizeof value;
  if (at + kLength > buffer.size())
    throw std::runtime_error("addattr32 ERROR: message exceeded maxlen\n");
  Write(buffer.subspan(at), rtattr{kLength, type});
  Write(buffer.subspan(at + sizeof(struct rtattr)), value);
  header.nlmsg_len = static_cast<std::uint32_t>(at + kLength);
  Write(buffer, header);
}

// Calls `take` with the type and the value of each attribute in `rest`.
template <class Take>
void ForEachAttribute(std::span<const std::uint8_t> rest, Take take) {
  while (rest.size() >= sizeof(struct rtattr)) {
    const auto attribute = Read<struct rtattr>(rest);
    if (attribute.rta_len < sizeof attribute || attribute.rta_len > rest.size()) return;
    take(attribute.rta_type, rest.subspan(sizeof attribute, attribute.rta_len - sizeof attribute));
    rest = rest.subspan(std::min(RoundUp(attribute.rta_len), rest.size()));
  }
}

// RTA_VIA is a gateway of another address family.
bool IsGateway(unsigned short type) { return type == RTA_GATEWAY || type == RTA_VIA; }

// Whether any of a route's several next hops has a gateway.
bool AnyHopHasGateway(std::span<const std::uint8_t> hops) {
  bool found = false;
  while (hops.size() >= sizeof(struct rtnexthop)) {
    const auto hop = Read<struct rtnexthop>(hops);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > hops.size()) break;
    ForEachAttribute(hops.subspan(sizeof hop, hop.rtnh_len - sizeof hop),
                     [&](unsigned short type, auto) { found = found || IsGateway(type); });
    hops = hops.subspan(std::min(RoundUp(hop.rtnh_len), hops.size()));
  }
  return found;
}

SocketAddress NetlinkAddress(std::uint32_t process, std::uint32_t groups) {
  struct sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = process;
  address.nl_groups = groups;
  return SocketAddress(reinterpret_cast<const struct sockaddr*>(&address));
}

}  // namespace

RestoreNetworkSanity::RestoreNetworkSanity(const Machine& machine)
    : PollItem(POLLIN, true),
      PollTimer(-1, true),
      machine(machine),
      socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE),
      buffer(kBufferSize),
      zeroRouteMetric(kUsualMetric) {
  socket.Bind(NetlinkAddress(static_cast<std::uint32_t>(getpid()), RTMGRP_IPV4_ROUTE));
  RestoreNetworkSanity::Expired();
}

void RestoreNetworkSanity::HandleRead() {
  try {
    const int received = socket.Recv(buffer.data(), buffer.size(), 0);
    std::span<const std::uint8_t> rest(buffer.data(), static_cast<std::size_t>(received));
    while (rest.size() >= kMessageHeader) {
      const std::size_t length = Read<struct nlmsghdr>(rest).nlmsg_len;
      if (length < kMessageHeader || length > rest.size()) break;
      HandleMessage(rest.first(length));
      rest = rest.subspan(std::min(RoundUp(length), rest.size()));
    }
  } catch (const std::exception& error) {
    // For instance, the kernel had more to report than fits. The next route will do as well.
    std::cout << "Error while watching routes: " << error.what() << "\n";
  }
}

void RestoreNetworkSanity::HandleMessage(std::span<const std::uint8_t> message) {
  if (message.size() < kAttributesAt) return;
  const auto route = Read<struct rtmsg>(message.subspan(kMessageHeader));
  // A route that refuses traffic, for example, was made on purpose.
  if (route.rtm_table != RT_TABLE_MAIN || route.rtm_type != RTN_UNICAST) return;
  bool zero_route = true;
  std::uint32_t metric = 0;
  ForEachAttribute(message.subspan(kAttributesAt), [&](unsigned short type, auto value) {
    if (type == RTA_DST || IsGateway(type) || (type == RTA_MULTIPATH && AnyHopHasGateway(value)))
      zero_route = false;
    if (type == RTA_PRIORITY && value.size() >= sizeof metric) metric = Read<std::uint32_t>(value);
  });
  if (Read<struct nlmsghdr>(message).nlmsg_type != RTM_NEWROUTE || metric == 0 || !zero_route)
    return;
  zeroRouteMetric = metric;
  SetTimeout(kDelayMs);
}

void RestoreNetworkSanity::Expired() {
  if (zeroRouteMetric == 0) return;
  try {
    DeleteRoute();
  } catch (const std::exception& error) {
    std::cout << "Error while deleting zero route: " << error.what() << "\n";
  }
}

void RestoreNetworkSanity::DeleteRoute() {
  std::cout << "Deleting IPv4 zero route with metric: " << zeroRouteMetric << "\n";
  buffer.assign(kBufferSize, 0);
  struct nlmsghdr header = {};
  header.nlmsg_len = kAttributesAt;
  header.nlmsg_type = RTM_DELROUTE;
  header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  Write(buffer, header);
  struct rtmsg route = {};
  route.rtm_family = AF_INET;
  route.rtm_table = RT_TABLE_MAIN;
  route.rtm_scope = RT_SCOPE_NOWHERE;
  Write(std::span(buffer).subspan(kMessageHeader), route);
  AddAttr32(buffer, RTA_PRIORITY, zeroRouteMetric);

  const uid_t before = geteuid();
  if (machine.set_effective_user(0) != 0)
    throw std::runtime_error(std::string("Unable to gain super user priviledges: ") +
                             std::strerror(errno));
  const SocketAddress kernel = NetlinkAddress(0, 0);
  struct iovec part = {buffer.data(), Read<struct nlmsghdr>(buffer).nlmsg_len};
  struct msghdr message = {};
  message.msg_name = const_cast<struct sockaddr*>(kernel.Raw());
  message.msg_namelen = kernel.Length();
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  machine.delete_route(socket, message);
  zeroRouteMetric = 0;
  // Protocol: a send that fails leaves the raised rights.
  machine.set_effective_user(before);
}
