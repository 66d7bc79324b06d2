#pragma once

#include <string>

// Base of an application that runs as a system service. Owns the pid file that marks the single
// running instance, signals that instance, and can detach the process from its terminal.
class DaemonApp {
 public:
  // Opens nothing.
  explicit DaemonApp(std::string path);
  // Closes and removes the pid file if it is held.
  virtual ~DaemonApp();
  DaemonApp(const DaemonApp&) = delete;
  DaemonApp& operator=(const DaemonApp&) = delete;

  // Takes the pid file: creates it if it is missing, locks it, writes the process id into it and
  // keeps it open. The lock, not the file, shows that an instance is running, so a stale file is
  // taken over. Call it after any forking. Throws ErrnoError, "Another process is already running"
  // for a second instance, whose predecessor's file stays as it was.
  void LockPidFile();

  // Sends `signo` to the instance that the pid file names. Throws std::runtime_error when there is
  // no readable pid file, ErrnoError when the process can't be signalled.
  void SignalRunning(int signo);

  // Forks twice, detaches from the terminal and closes the descriptors 0 to 63. False in each
  // parent, which should then exit; true in the final child. Throws ErrnoError.
  static bool Daemonize();

 protected:
  // The lock step of LockPidFile alone; closes the descriptor before it throws.
  void lock_file();

 private:
  std::string pid_path;
  int pid_fd = -1;
};
