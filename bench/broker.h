#pragma once

#include <string>
#include <vector>

#include "bench/child_process.h"

// A broker of the message bus.
class Broker {
 public:
  // Starts it on `port` of a loopback address, with its files in `directory`, and waits until it
  // listens. Throws std::runtime_error.
  Broker(const std::string& directory, int port, const std::string& address = "::1");
  // The same on every address of the machine that the command `wrapper` leads to, without the wait.
  Broker(const std::string& directory, int port, std::vector<std::string> wrapper);

  ChildProcess& Process() { return process; }

 private:
  ChildProcess process;
};
