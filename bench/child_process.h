#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include "common/stream_file.h"

// How long any wait for a program on the bench may take.
constexpr auto kDeadline = std::chrono::seconds(20);

// Waits until `fd` can be read, until `deadline` at the latest. Throws std::runtime_error, naming
// what was `awaited`, when the time is over.
void WaitReadable(int fd, std::chrono::steady_clock::time_point deadline,
                  const std::string& awaited);

// Another program, started here and ended with this. Keys pressed at the terminal don't reach it.
class ChildProcess {
 public:
  // Finds the program by its name as a shell does, in /usr/sbin too. Its standard output is
  // read here. The descriptor `inherited` stays open in it. Throws ErrnoError.
  explicit ChildProcess(const std::vector<std::string>& command, int inherited = -1);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Pid() const { return pid; }
  bool HasEnded() const;
  // All that it has said so far, once that holds `text` after the first `from` bytes. Throws
  // std::runtime_error at the deadline or at its end.
  const std::string& WaitForOutput(std::string_view text, std::size_t from = 0);
  // Whether it has said `text`, without waiting.
  bool HasSaid(std::string_view text);
  // Sends `signo` and waits for the end.
  int Stop(int signo = SIGTERM);
  // Waits for the end; returns the exit status, or -1 for a process that a signal ended.
  int Wait();
  const std::string& Output() const { return said; }

 private:
  // The end of what it has said, for error texts.
  std::string Tail() const;

  StreamFileBase output;
  pid_t pid = -1;
  std::string said;
};
