#pragma once

#include <memory>
#include <string>

#include "bench/child_process.h"

// A broker of the message bus, for this machine alone.
class Broker {
 public:
  // Whether somebody listens on `port` of ::1.
  static bool Listens(int port);

  // Starts it on `port` of ::1, with its files in `directory`, and waits until it listens. Throws
  // std::runtime_error.
  Broker(const std::string& directory, int port);

  ChildProcess& Process() { return process; }

 private:
  ChildProcess process;
};
