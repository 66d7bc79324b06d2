#pragma once

#include <optional>

#include "bench/child_process.h"
#include "leaf/lumet/instrument.h"

// lumet-view in front of the bench's head; ended with this.
class BenchPage {
 public:
  // Starts the program that stands beside this one, for the head on `console_port`, and prints
  // where its page is. Throws std::runtime_error.
  void Start(const Instrument& instrument, int console_port);

 private:
  std::optional<ChildProcess> view;
};
