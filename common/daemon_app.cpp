#include "common/daemon_app.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "common/errno_error.h"
#include "common/signals.h"

DaemonApp::DaemonApp(std::string path) : pid_path(std::move(path)) {}

DaemonApp::~DaemonApp() {
  if (pid_fd >= 0 && close(pid_fd) == 0) unlink(pid_path.c_str());
}

void DaemonApp::LockPidFile() {
  pid_fd = open(pid_path.c_str(), O_WRONLY | O_CREAT, 0644);
  if (pid_fd < 0) throw ErrnoError("Unable to open pid file");
  lock_file();
  if (ftruncate(pid_fd, 0) != 0) throw ErrnoError("Unable to truncate pid file");
  const std::string pid = std::to_string(getpid()) + "\n";
  if (write(pid_fd, pid.data(), pid.size()) != static_cast<ssize_t>(pid.size()))
    throw ErrnoError("Unable to write to pid file");
  const int flags = fcntl(pid_fd, F_GETFD);
  if (flags < 0) throw ErrnoError("Unable to read close-on-exec flag for pid file");
  if (fcntl(pid_fd, F_SETFD, flags | FD_CLOEXEC) < 0)
    throw ErrnoError("Unable to set close-on-exec flag for pid file");
}

void DaemonApp::lock_file() {
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (fcntl(pid_fd, F_SETLK, &whole) == 0) return;
  const int errnum = errno;
  close(pid_fd);
  pid_fd = -1;
  const bool taken = errnum == EAGAIN || errnum == EACCES;
  throw ErrnoError(taken ? "Another process is already running" : "Unable to lock pid file",
                   errnum);
}

void DaemonApp::SignalRunning(int signo) {
  std::ifstream file(pid_path);
  if (!file) throw std::runtime_error("PID file not found: " + pid_path);
  int pid = 0;
  // Zero and negative numbers would address whole groups of processes.
  if (!(file >> pid) || pid <= 0) throw std::runtime_error("Unable to read PID file: " + pid_path);
  if (kill(pid, signo) != 0) throw ErrnoError("Unable to signal");
}

bool DaemonApp::Daemonize() {
  const pid_t first = fork();
  if (first < 0) throw ErrnoError("Unable to fork first time");
  if (first > 0) return false;
  setsid();
  // The exit of this first child must not reach the second.
  ignore_signal(pending_signals(), SIGHUP);
  const pid_t second = fork();
  if (second < 0) throw ErrnoError("Unable to fork second time");
  if (second > 0) return false;
  if (chdir("/") != 0) throw ErrnoError("Unable to change to the root directory");
  umask(0);
  for (int fd = 0; fd < 64; ++fd) close(fd);
  return true;
}
