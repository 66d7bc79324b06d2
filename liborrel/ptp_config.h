#pragma once

#include <string>

#include "common/machine.h"

// Runs the script of a system service, with rights for the duration of the call. Its result is
// ignored. Throws std::runtime_error when rights can't be had.
class ServiceControl {
 public:
  // `machine` must outlive this.
  ServiceControl(std::string script_path, const Machine& machine);

  void start() { Run("start"); }
  void stop() { Run("stop"); }
  void restart() { Run("restart"); }
  void startgps() { Run("startgps"); }
  void restartgps() { Run("restartgps"); }

 private:
  void Run(const std::string& word);

  std::string path;
  const Machine& machine;
};

// How the system's PTP service takes part in keeping time, in its options file.
class PtpConfig {
 public:
  enum Mode { kAuto, kSlaveOnly, kPreferred };

  // Reads the file; without one the mode is auto. `machine` must outlive this.
  PtpConfig(std::string options_path, std::string script_path, const Machine& machine);

  int GetMode() const { return mode; }
  // Writes the file and restarts the service, unless the mode is that already. A file that can't be
  // written is reported in a line on standard output, and left for SaveAgain. Throws
  // std::runtime_error when rights can't be had.
  void Set(int wanted);
  // Writes what could not be written, and restarts the service after that. Fails as Set does.
  void SaveAgain();

 private:
  void write(int wanted);

  std::string path;
  const Machine& machine;
  ServiceControl script;
  int mode = kAuto;
  bool unsaved = false;
};
