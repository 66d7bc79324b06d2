#include "bench/broker.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "common/socket.h"

namespace {

std::string WriteConfiguration(const std::string& directory, int port) {
  std::filesystem::create_directories(directory);
  const std::string path = directory + "/mosquitto.conf";
  std::ofstream(path) << "listener " << port << " ::1\n"
                      << "allow_anonymous true\n"
                      << "persistence false\n"
                      << "log_dest none\n";
  return path;
}

}  // namespace

bool Broker::Listens(int port) {
  SocketAddress address("::1");
  address.SetPort(port);
  try {
    Socket(AF_INET6, SOCK_STREAM, 0).Connect(address);
    return true;
  } catch (const ErrnoError&) {
    return false;
  }
}

Broker::Broker(const std::string& directory, int port)
    : process({"mosquitto", "-c", WriteConfiguration(directory, port)}) {
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  while (!Listens(port)) {
    if (process.HasEnded() || std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("the broker does not start: mosquitto -c " + directory +
                               "/mosquitto.conf");
    usleep(10'000);
  }
}
