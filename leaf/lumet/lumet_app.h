#pragma once

#include <string>

#include "common/daemon_app.h"
#include "common/machine.h"
#include "leaf/lumet/instrument.h"

// Turns the command line into one of four outcomes: show the usage, signal a running instance, run
// the self-tests, or run the measurement service. The process stays in the foreground.
class LumetApp : public DaemonApp {
 public:
  // Both must outlive this.
  LumetApp(const Instrument& instrument, const Machine& machine);

  // All of the program between start and clean-up; returns the exit status. Sets `reboot` or
  // `poweroff` when the machine is to go down after it. Failures are exceptions; one that ends
  // the service has taken the processor to its safe state.
  int run(bool* reboot, bool* poweroff, int argc, char** argv);

 private:
  // True: go on. False: stop with `exit_status`. Options -k and -r act as they are met.
  bool parse_options(int argc, char** argv, int* exit_status);
  // Signal a running instance. Return 1, or 0 after a line that says why it failed.
  int shutdown();
  int readconfig();
  int Signal(int signo, const char* who);

  void pin_processor();
  void set_cpu_alignment();
  // Lowest real-time priority, all memory locked.
  void set_real_time_priority();
  // Goes on as the account of the instrument; the real user stays, so rights can be regained.
  void drop_privileges();

  const Instrument& instrument;
  const Machine& machine;
  bool real_time = false;
  bool debug = false;
  bool unit_tests = false;
};

// Truncates `path` and writes `text` and a line feed; a failure goes unnoticed.
void write_text_file(const std::string& path, const std::string& text);

// The whole of `main` for an instrument on a machine: runs a LumetApp, reports what it throws, and
// last of all takes the machine down if that was ordered. Returns the exit status.
int RunLumet(const Instrument& instrument, const Machine& machine, int argc, char** argv);
