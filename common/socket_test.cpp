#include "common/socket.h"

#include <netinet/in.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "common/network_interface.h"
#include "common/temporary_directory.h"
#include "common/test_registry.h"

namespace {

using namespace self_test;

void AddressCases() {
  const struct {
    const char* text;
    int family;
    socklen_t length;
    bool link_local;
  } rows[] = {
      {"/run/a:b", AF_UNIX, 10, false},   {"::1", AF_INET6, 28, false},
      {"fe80::2", AF_INET6, 28, true},    {"fe90::2", AF_INET6, 28, false},
      {"169.254.3.4", AF_INET, 16, true}, {"169.253.3.4", AF_INET, 16, false},
  };
  for (const auto& row : rows) {
    SocketAddress address{std::string(row.text)};
    ExpectEqual(address.Family(), row.family, row.text);
    ExpectEqual(address.Length(), row.length, row.text);
    ExpectEqual(address.IsLinkLocal(), row.link_local, row.text);
    ExpectEqual(address.ToString(), row.text);
    address.SetPort(7246);
    ExpectEqual(address.GetPort(), row.family == AF_UNIX ? 0 : 7246, row.text);
    ExpectTrue(SocketAddress(address.Raw()) == address, "a copy from raw bytes");
  }
  ExpectEqual(SocketAddress("/" + std::string(200, 'a')).Length(), socklen_t{109}, "a long path");
  for (const char* text : {"fe80::1%eth0", "1.2.3", "", "localhost"})
    ExpectThrows<SocketError>([&] { SocketAddress{std::string(text)}; },
                              std::string("SocketAddress: illegal address ") + text);

  SocketAddress scoped(std::string("fe80::1"));
  scoped.SetScopeId(3);
  ExpectEqual(scoped.GetScopeId(), 3U);
  const SocketAddress host(std::string("192.168.1.17"));
  ExpectTrue(SocketAddress("/b") < host && host < scoped, "order by family");
  ExpectTrue(SocketAddress("/a") < SocketAddress("/ab"), "order of paths");
  ExpectEqual(
      SocketAddress::Broadcast(host, SocketAddress(std::string("255.255.255.0"))).ToString(),
      "192.168.1.255");

  struct sockaddr strange = {};
  strange.sa_family = AF_APPLETALK;
  ExpectThrows<SocketError>([&] { SocketAddress{&strange}; },
                            "SocketAddress: unknown socket family");
  ExpectEqual(SocketAddress("::1", AF_INET6).ToString(), "::1", "a resolved literal");
}

void ConnectionCases() {
  const TemporaryDirectory directory;
  const std::string path = directory.Path() + "/socket";
  Socket listener(AF_UNIX, SOCK_STREAM, 0);
  listener.Bind(SocketAddress(path));
  ExpectTrue((std::filesystem::status(path).permissions() & std::filesystem::perms::others_write) !=
                 std::filesystem::perms::none,
             "full permissions of a socket file");
  ExpectThrows<ErrnoError>([&] { Socket(AF_UNIX, SOCK_STREAM, 0).Bind(SocketAddress(path)); },
                           "Socket: unable to bind to " + path + ": Address already in use");
  listener.Listen(0);
  ExpectThrows<ErrnoError>([&] { Socket(listener, nullptr); },
                           "Socket: accept error: Resource temporarily unavailable");

  Socket client(AF_UNIX, SOCK_STREAM, 0);
  client.Connect(SocketAddress(path), 5);
  client.CheckConnected();
  {
    // The queue of the listener is full, so a further connection waits, and then gives up.
    Socket late(AF_UNIX, SOCK_STREAM, 0);
    ExpectThrows<SocketConnectionTimedOut>(
        [&] { late.Connect(SocketAddress(path), 1); },
        "Socket: unable to connect to " + path + ": Interrupted system call: timed out");
    ExpectEqual(alarm(0), 0U, "the alarm after a connect");
  }
  // The peer takes the connection and is gone; a signal here would end the process.
  Socket(listener, nullptr).Close();
  const auto before = std::signal(SIGPIPE, SIG_DFL);
  ExpectThrows<ErrnoError>([&] { client.Send("x", 1, 0); }, "Socket: error in Send: Broken pipe");
  std::signal(SIGPIPE, before);
  std::filesystem::remove(path);
  ExpectThrows<ErrnoError>([&] { Socket(AF_UNIX, SOCK_STREAM, 0).Connect(SocketAddress(path), 5); },
                           "Socket: unable to connect to " + path + ": No such file or directory");
}

// An interface that every machine has, with bridges as the kernel would show them.
void InterfaceCases() {
  const TemporaryDirectory directory;
  const std::string all = directory.Path() + "/";
  const NetworkInterface alone = NetworkInterface::Read("lo", all);
  ExpectTrue(alone.up && alone.running && alone.hasAddress && alone.index > 0, "lo");
  ExpectEqual(alone.address.ToString() + " " + alone.hardwareAddress,
              "127.0.0.1 00:00:00:00:00:00");
  ExpectTrue(!alone.isBridge && !alone.isBridgePort, "no bridge near it");
  const NetworkInterface none = NetworkInterface::Read("none", all);
  ExpectTrue(!none.up && none.hardwareAddress.empty(), "no interface");
  ExpectEqual(none.address.ToString(), "0.0.0.0");

  directory.Write("lo/brport/bridge/bridge/bridge_id", "8000.02\n");
  directory.Write("br0/bridge/bridge_id", "8000.01\n");
  directory.Write("br1/bridge/bridge_id", "8000.02\n");
  directory.Write("br1/bridge/topology_change_timer", "17\n");
  directory.Write("br1/brif/lo/x", "");
  for (const char* other : {".hidden/x", "file"}) directory.Write(other, "");
  const NetworkInterface port = NetworkInterface::Read("lo", all);
  ExpectTrue(port.isBridgePort && !port.isBridge, "a port");
  ExpectEqual(port.bridgeName, "br1");
  std::string names;
  for (const NetworkInterface& interface : NetworkInterface::ReadAll(all))
    names += interface.name + " ";
  ExpectEqual(names, "br0 br1 lo ");
  const NetworkBridge bridge = NetworkBridge::Read("br1", all);
  ExpectEqual(bridge.ports.at(0) + bridge.topology_change_timer + bridge.topology_change, "lo17");
  ExpectThrows<ErrnoError>(
      [&] { NetworkInterface::ReadAll(all + "none/"); },
      "Unable to list directory contents of: " + all + "none/: No such file or directory");
}

}  // namespace

void SocketCases() {
  InterfaceCases();
  AddressCases();
  ConnectionCases();
}
