#include "bench/broker.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "common/socket.h"

namespace {

// `listener` is a port, and an address if it has one.
std::vector<std::string> BrokerCommand(const std::string& directory, const std::string& listener,
                                       std::vector<std::string> command) {
  std::filesystem::create_directories(directory);
  const std::string path = directory + "/mosquitto.conf";
  std::ofstream(path) << "listener " << listener << "\n"
                      << "allow_anonymous true\n"
                      << "persistence false\n"
                      << "log_dest none\n";
  command.insert(command.end(), {"mosquitto", "-c", path});
  return command;
}

bool Listens(const SocketAddress& address) {
  try {
    Socket(address.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0).Connect(address);
    return true;
  } catch (const ErrnoError&) {
    return false;
  }
}

}  // namespace

Broker::Broker(const std::string& directory, int port, const std::string& address)
    : process(BrokerCommand(directory, std::to_string(port) + " " + address, {})) {
  SocketAddress place(address);
  place.SetPort(port);
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  while (!Listens(place)) {
    if (process.HasEnded() || std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error(
          "the broker of the message bus does not start. Is mosquitto installed? To see what it "
          "says: mosquitto -c " +
          directory + "/mosquitto.conf. Without a bus: --no-broker");
    usleep(10'000);
  }
}

Broker::Broker(const std::string& directory, int port, std::vector<std::string> wrapper)
    : process(BrokerCommand(directory, std::to_string(port), std::move(wrapper))) {}
