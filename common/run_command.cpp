#include "common/run_command.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

namespace {

void DoNothing(int) {}

// Another program inherits what is ignored, but not what is caught: for the duration of a scope
// each ignored signal is caught, to the same effect here, and none is blocked.
class PlainSignals {
 public:
  PlainSignals() {
    struct sigaction caught = {};
    caught.sa_handler = DoNothing;
    caught.sa_flags = SA_RESTART;
    for (int signo = 1; signo <= SIGRTMAX; ++signo) {
      struct sigaction action = {};
      if (sigaction(signo, nullptr, &action) != 0 || action.sa_handler != SIG_IGN) continue;
      sigaction(signo, &caught, nullptr);
      ignored.emplace_back(signo, action);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, &mask);
  }
  ~PlainSignals() {
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    for (const auto& [signo, action] : ignored) sigaction(signo, &action, nullptr);
  }
  PlainSignals(const PlainSignals&) = delete;
  PlainSignals& operator=(const PlainSignals&) = delete;

 private:
  std::vector<std::pair<int, struct sigaction>> ignored;
  sigset_t mask;
};

// For the length of a scope standard output and error are a file in memory, whose contents are
// printed at the end: a command never waits for whoever reads the daemon's output. What the command
// leaves running can't write there any longer. Without a descriptor to spare nothing is changed.
class GatheredOutput {
 public:
  GatheredOutput()
      : memory(memfd_create("command", MFD_CLOEXEC | MFD_ALLOW_SEALING)),
        before{fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)} {
    std::cout.flush();
    if (memory < 0 || before[0] < 0 || before[1] < 0) return;
    dup2(memory, STDOUT_FILENO);
    dup2(memory, STDERR_FILENO);
  }
  ~GatheredOutput() {
    if (before[0] >= 0) dup2(before[0], STDOUT_FILENO);
    if (before[1] >= 0) dup2(before[1], STDERR_FILENO);
    fcntl(memory, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW);
    std::array<char, 4096> text{};
    off_t printed = 0;
    for (ssize_t count = 0; printed < kMostPrinted; printed += count) {
      count = pread(memory, text.data(), text.size(), printed);
      if (count <= 0) break;
      std::cout.write(text.data(), count);
    }
    std::cout.flush();
    for (const int fd : {memory, before[0], before[1]})
      if (fd >= 0) close(fd);
  }
  GatheredOutput(const GatheredOutput&) = delete;
  GatheredOutput& operator=(const GatheredOutput&) = delete;

 private:
  static constexpr off_t kMostPrinted = off_t{64} * 1024;

  int memory;
  std::array<int, 2> before;  // copies of standard output and error
};

}  // namespace

void KeepDescriptorsFromChildren() {
  namespace fs = std::filesystem;
  std::error_code error;
  for (fs::directory_iterator entry("/proc/self/fd", error); entry != fs::directory_iterator();
       entry.increment(error)) {
    const int fd = std::atoi(entry->path().filename().c_str());
    if (fd > STDERR_FILENO) fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
}

int RunCommand(const std::string& command) {
  KeepDescriptorsFromChildren();
  const PlainSignals plain_signals;
  const GatheredOutput gathered_output;
  return std::system(command.c_str());
}
