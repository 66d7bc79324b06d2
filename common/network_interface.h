#pragma once

#include <string>
#include <vector>

#include "common/socket_address.h"

// What the system knows about one network interface, as it was when it was read.
struct NetworkInterface {
  // Where the kernel shows the interfaces.
  static constexpr const char* kSystemDirectory = "/sys/class/net/";

  // An interface that is down, or that does not exist, has nothing but its name. Throws ErrnoError
  // when `directory` can't be listed.
  static NetworkInterface Read(const std::string& interface_name,
                               const std::string& directory = kSystemDirectory);
  // All of them, in the order of their names. Throws ErrnoError.
  static std::vector<NetworkInterface> ReadAll(const std::string& directory = kSystemDirectory);

  std::string name;
  bool up = false;
  bool running = false;
  bool hasAddress = false;
  unsigned index = 0;
  SocketAddress address{AF_INET};  // IPv4; the wildcard if there is none
  std::string hardwareAddress;     // "00:16:3e:00:00:01"
  bool isBridge = false;
  bool isBridgePort = false;
  std::string bridgeName;  // of a port
};

// A bridge's ports, in the order of their names, and the state of its topology, as the kernel
// reports them.
struct NetworkBridge {
  // What can't be read stays empty. Throws ErrnoError when the ports can't be listed.
  static NetworkBridge Read(const std::string& bridge_name,
                            const std::string& directory = NetworkInterface::kSystemDirectory);

  std::vector<std::string> ports;
  std::string topology_change;
  std::string topology_change_detected;
  std::string topology_change_timer;
};
