#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "bench/simulated_dsp.h"
#include "leaf/lumet/link/recording.h"

// How a simulated or recorded processor runs.
struct LinkOptions {
  static constexpr double kMaxSpeed = std::numeric_limits<double>::infinity();

  // How many times faster than real time; kMaxSpeed: as fast as the head takes it.
  double speed = 1;
  // Where to record the link; empty: nowhere.
  std::string record;
  // The leaf's environment, see EnvironmentFile; empty: it stays as it is.
  std::string environment;
  // The head's settings files, which are recorded too.
  std::vector<std::string> settings;
};

// Plays the processor on `descriptor`, one end of a SOCK_SEQPACKET pair, until the other end
// closes. Header stamps are the system clock at the start, and go on with simulated time.
void RunSimulatedDSP(int descriptor, SimulatedDSP& dsp, const LinkOptions& options);

// What a replay tells besides packets.
struct ReplayListener {
  // From now on the head had other settings. Those of the start are not told.
  std::function<void(const RecordedSettings&)> settings_changed;
  // The head has read the last packet.
  std::function<void()> ended;
};

// Plays back what the processor sent in a recording, at the times in it, and takes whatever
// commands come; then waits for the other end to close.
void RunReplay(int descriptor, const std::string& recording, const LinkOptions& options,
               const ReplayListener& listener);
