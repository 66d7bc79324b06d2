#include "leaf/lumet/lumet_app.h"

#include <pwd.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "common/errno_error.h"
#include "common/log_output.h"
#include "common/print_exception.h"
#include "common/run_command.h"
#include "common/signals.h"
#include "leaf/lumet/lumet.h"
#include "leaf/lumet/self_tests.h"
#include "leaf/lumet/version.h"

namespace {

// Gives the process back its effective user at the end of a scope.
class EffectiveUserKeeper {
 public:
  explicit EffectiveUserKeeper(const Machine& machine) : machine(machine), user(geteuid()) {}
  ~EffectiveUserKeeper() { machine.set_effective_user(user); }
  EffectiveUserKeeper(const EffectiveUserKeeper&) = delete;
  EffectiveUserKeeper& operator=(const EffectiveUserKeeper&) = delete;

 private:
  const Machine& machine;
  uid_t user;
};

void PrintUsage() {
  std::cout << "lumet " << kLumetVersion << "\n";
  std::cout << "usage: lumet [options]\n\n";
  std::cout << "  -h   Show this help\n";
  std::cout << "  -t   Run as a real-time process (superuser only)\n";
  std::cout << "  -k   Kill lumet\n";
  std::cout << "  -r   Reread configuration file\n";
  std::cout << "  -d   Debug mode: output lots of debug info\n";
  std::cout << "  -u   Run unit tests\n";
  std::cout << "\n";
}

}  // namespace

LumetApp::LumetApp(const Instrument& instrument, const Machine& machine)
    : DaemonApp(instrument.pid_file), instrument(instrument), machine(machine) {}

int LumetApp::run(bool* reboot, bool* poweroff, int argc, char** argv) {
  // An interrupt during start-up must not skip the clean-up.
  catch_signal(pending_signals(), SIGINT);
  // A write to a peer that is gone is an error like any other.
  ignore_signal(pending_signals(), SIGPIPE);
  // So is a file that has reached its limit.
  ignore_signal(pending_signals(), SIGXFSZ);
  pin_processor();

  int exit_status = 0;
  if (!parse_options(argc, argv, &exit_status)) return exit_status;
  if (unit_tests) {
    RunSelfTests(std::cout);
    return 0;
  }
  // From here on others know whom to signal; the loop sees their signals once it turns.
  for (const int signo : {SIGTERM, SIGUSR1}) catch_signal(pending_signals(), signo);
  LockPidFile();
  if (real_time) set_real_time_priority();

  Lumet lumet(instrument, machine, debug, reboot, poweroff);
  KeepDescriptorsFromChildren();
  const EffectiveUserKeeper keeper(machine);
  drop_privileges();
  lumet.run();
  return 0;
}

bool LumetApp::parse_options(int argc, char** argv, int* exit_status) {
  optind = 1;
  int option = 0;
  while ((option = getopt(argc, argv, "tkrdhu")) != -1) {
    switch (option) {
      case 't':
        real_time = true;
        break;
      case 'd':
        debug = true;
        break;
      case 'u':
        unit_tests = true;
        break;
      case 'k':
        *exit_status = shutdown() - 1;
        return false;
      case 'r':
        *exit_status = readconfig() - 1;
        return false;
      default:
        PrintUsage();
        *exit_status = 0;
        return false;
    }
  }
  return true;
}

int LumetApp::shutdown() { return Signal(SIGINT, "shutdown"); }

int LumetApp::readconfig() { return Signal(SIGUSR1, "readconfig"); }

int LumetApp::Signal(int signo, const char* who) {
  try {
    SignalRunning(signo);
    return 1;
  } catch (const std::exception& error) {
    std::cout << who << ": Got exception: " << error.what() << "\n";
    return 0;
  }
}

void LumetApp::pin_processor() {
  set_cpu_alignment();
  write_text_file(instrument.cpu_governor, "userspace");
  write_text_file(instrument.cpu_speed, "456000");
}

void LumetApp::set_cpu_alignment() { write_text_file(instrument.cpu_alignment, "3"); }

void LumetApp::set_real_time_priority() {
  if (machine.set_scheduler(SCHED_FIFO, sched_get_priority_min(SCHED_FIFO)) != 0)
    throw ErrnoError("set_real_time_priority: Unable to set real-time priority");
  if (machine.lock_memory(MCL_CURRENT | MCL_FUTURE) != 0)
    throw ErrnoError("set_real_time_priority: Unable to lock memory pages");
}

void LumetApp::drop_privileges() {
  if (instrument.account.empty()) return;
  const std::string failure = "Unable to drop priviledges: ";
  errno = 0;
  const struct passwd* account = getpwnam(instrument.account.c_str());
  if (account == nullptr) {
    if (errno != 0) throw std::runtime_error(failure + std::strerror(errno));
    throw std::runtime_error(failure + "Username '" + instrument.account + "' not found");
  }
  if (machine.set_effective_user(account->pw_uid) != 0)
    throw std::runtime_error(failure + std::strerror(errno));
}

void write_text_file(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::trunc);
  file << text << "\n" << std::flush;
}

int RunLumet(const Instrument& instrument, const Machine& machine, int argc, char** argv) {
  const LogOutput log_output;
  bool reboot = false;
  bool poweroff = false;
  int exit_status = -1;
  try {
    LumetApp app(instrument, machine);
    exit_status = app.run(&reboot, &poweroff, argc, argv);
  } catch (...) {
    PrintCurrentException();
  }
  if (reboot)
    machine.run_command(instrument.reboot);
  else if (poweroff)
    machine.run_command(instrument.poweroff);
  return exit_status;
}
