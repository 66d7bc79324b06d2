#pragma once

#include <limits>
#include <string>

#include "bench/simulated_dsp.h"

// How a simulated or recorded processor runs.
struct LinkOptions {
  static constexpr double kMaxSpeed = std::numeric_limits<double>::infinity();

  // How many times faster than real time; kMaxSpeed: as fast as the head takes it.
  double speed = 1;
  // Where to record the link; empty: nowhere.
  std::string record;
  // The leaf's environment, see EnvironmentFile; empty: it stays as it is.
  std::string environment;
};

// Plays the processor on `descriptor`, one end of a SOCK_SEQPACKET pair, until the other end
// closes. Header stamps are the system clock at the start, and go on with simulated time.
void RunSimulatedDSP(int descriptor, SimulatedDSP& dsp, const LinkOptions& options);

// Plays back what the processor sent in a recording, at the times in it, and takes whatever
// commands come; then waits for the other end to close.
void RunReplay(int descriptor, const std::string& recording, const LinkOptions& options);
