#include "common/network_interface.h"

#include <net/if.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "common/errno_error.h"
#include "common/socket.h"

namespace {

namespace fs = std::filesystem;

// False if there is no such file, or nothing in it.
bool ReadFirstLine(const std::string& path, std::string& line) {
  std::ifstream file(path);
  return static_cast<bool>(std::getline(file, line));
}

// The interfaces in `directory`, in the order of their names.
std::vector<std::string> ListInterfaces(const std::string& directory) {
  std::error_code error;
  fs::directory_iterator entry(directory, error);
  if (error) throw ErrnoError("Unable to list directory contents of: " + directory, error.value());
  std::vector<std::string> names;
  while (entry != fs::directory_iterator()) {
    const std::string name = entry->path().filename();
    const fs::file_type type = entry->symlink_status().type();
    if (!name.starts_with('.') &&
        (type == fs::file_type::directory || type == fs::file_type::symlink))
      names.push_back(name);
    entry.increment(error);
    if (error) throw ErrnoError("Unable to enumerate network interfaces", error.value());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void ReadBridgeRole(NetworkInterface& interface, const std::string& directory) {
  std::string id;
  interface.isBridge = ReadFirstLine(directory + interface.name + "/bridge/bridge_id", id);
  std::string own_bridge;
  // This goes through the port's link to its bridge.
  if (!ReadFirstLine(directory + interface.name + "/brport/bridge/bridge/bridge_id", own_bridge))
    return;
  for (const std::string& name : ListInterfaces(directory)) {
    if (!ReadFirstLine(directory + name + "/bridge/bridge_id", id) || id != own_bridge) continue;
    interface.bridgeName = name;
    interface.isBridgePort = true;
    return;
  }
}

std::string HardwareAddressText(const struct sockaddr& address) {
  std::string text;
  for (std::size_t i = 0; i < 6; ++i) {
    std::array<char, 4> pair = {};
    std::snprintf(pair.data(), pair.size(), "%02x",
                  unsigned{static_cast<unsigned char>(address.sa_data[i])});
    text.append(i == 0 ? "" : ":").append(pair.data());
  }
  return text;
}

}  // namespace

NetworkInterface NetworkInterface::Read(const std::string& interface_name,
                                        const std::string& directory) {
  NetworkInterface interface;
  interface.name = interface_name;
  Socket socket(AF_INET, SOCK_DGRAM, 0);
  struct ifreq request = {};
  interface_name.copy(request.ifr_name, sizeof request.ifr_name);
  const auto ask = [&](unsigned long what) { return ioctl(socket.GetFD(), what, &request) == 0; };
  if (!ask(SIOCGIFFLAGS) || (request.ifr_flags & IFF_UP) == 0) return interface;
  interface.up = true;
  interface.index = if_nametoindex(interface_name.c_str());
  interface.running = (request.ifr_flags & IFF_RUNNING) != 0;
  request.ifr_addr.sa_family = AF_INET;
  if (ask(SIOCGIFADDR)) {
    interface.hasAddress = true;
    interface.address = SocketAddress(&request.ifr_addr);
  }
  if (ask(SIOCGIFHWADDR)) interface.hardwareAddress = HardwareAddressText(request.ifr_hwaddr);
  ReadBridgeRole(interface, directory);
  return interface;
}

std::vector<NetworkInterface> NetworkInterface::ReadAll(const std::string& directory) {
  std::vector<NetworkInterface> interfaces;
  for (const std::string& name : ListInterfaces(directory))
    interfaces.push_back(Read(name, directory));
  return interfaces;
}

NetworkBridge NetworkBridge::Read(const std::string& bridge_name, const std::string& directory) {
  const std::string own = directory + bridge_name;
  NetworkBridge bridge;
  bridge.ports = ListInterfaces(own + "/brif");
  ReadFirstLine(own + "/bridge/topology_change", bridge.topology_change);
  ReadFirstLine(own + "/bridge/topology_change_detected", bridge.topology_change_detected);
  ReadFirstLine(own + "/bridge/topology_change_timer", bridge.topology_change_timer);
  return bridge;
}
