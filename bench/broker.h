#pragma once

#include <string>
#include <vector>

#include "bench/child_process.h"

// A port of ::1 that nobody listens on.
int FreePort();

// A broker of the message bus.
class Broker {
 public:
  // Whether somebody listens on `port` of ::1.
  static bool Listens(int port);

  // Starts it on `port` of ::1, with its files in `directory`, and waits until it listens. Throws
  // std::runtime_error.
  Broker(const std::string& directory, int port);
  // The same on every address of the machine that the command `wrapper` leads to, without the wait.
  Broker(const std::string& directory, int port, std::vector<std::string> wrapper);

  ChildProcess& Process() { return process; }

 private:
  ChildProcess process;
};
