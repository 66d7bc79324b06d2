#include "bench/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "common/errno_error.h"
#include "common/signals.h"

using Clock = std::chrono::steady_clock;

void WaitReadable(int fd, Clock::time_point deadline, const std::string& awaited) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  struct pollfd entry = {fd, POLLIN, 0};
  if (left <= 0 || poll(&entry, 1, static_cast<int>(left)) <= 0)
    throw std::runtime_error("waited in vain for " + awaited);
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, int inherited) {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw ErrnoError("unable to make a pipe");
  output.Attach(ends[0]);
  const StreamFileBase child_output(ends[1]);
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const char* path = std::getenv("PATH");
  const std::string search = std::string(path != nullptr ? path : "/usr/bin:/bin") + ":/usr/sbin";
  pid = fork();
  if (pid < 0) throw ErrnoError("unable to start " + command[0]);
  if (pid > 0) return;
  default_all_signals();
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  dup2(ends[1], STDOUT_FILENO);
  if (inherited >= 0) fcntl(inherited, F_SETFD, 0);
  setenv("PATH", search.c_str(), 1);
  execvp(argv[0], argv.data());
  dprintf(STDERR_FILENO, "unable to run %s: %s\n", argv[0], strerror(errno));
  _exit(127);
}

ChildProcess::~ChildProcess() {
  if (pid > 0) Stop(SIGKILL);
}

bool ChildProcess::HasEnded() const {
  siginfo_t info = {};
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
  return info.si_pid != 0;
}

const std::string& ChildProcess::WaitForOutput(std::string_view text, std::size_t from) {
  const auto deadline = Clock::now() + kDeadline;
  while (said.find(text, from) == std::string::npos) {
    // What was searched once need not be searched again.
    from = std::max(from, said.size() - std::min(said.size(), text.size()));
    WaitReadable(output.GetFD(), deadline, "'" + std::string(text) + "' in the output:\n" + Tail());
    std::string chunk;
    if (output.ReadString(chunk) == 0)
      throw std::runtime_error("a program ended, saying\n" + Tail());
    said += chunk;
  }
  return said;
}

std::string ChildProcess::Tail() const {
  constexpr std::size_t kShown = 4000;
  return said.substr(said.size() - std::min(said.size(), kShown));
}

bool ChildProcess::HasSaid(std::string_view text) {
  struct pollfd entry = {output.GetFD(), POLLIN, 0};
  std::string chunk;
  while (poll(&entry, 1, 0) > 0 && output.ReadString(chunk) > 0) said += chunk;
  return said.find(text) != std::string::npos;
}

int ChildProcess::Stop(int signo) {
  kill(pid, signo);
  return Wait();
}

int ChildProcess::Wait() {
  std::string chunk;
  while (output.ReadString(chunk) > 0) said += chunk;
  int status = 0;
  waitpid(pid, &status, 0);
  pid = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
