#include "common/run_command.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
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
  return std::system(command.c_str());
}
