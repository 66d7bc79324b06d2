#include "bench/simulated_process.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <iostream>

#include "common/errno_error.h"

SimulatedProcess::SimulatedProcess(const std::function<void(int descriptor)>& play) {
  std::array<int, 2> ends = {};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    throw ErrnoError("lumet-bench: unable to create the link to the processor");
  pid = fork();
  if (pid < 0) throw ErrnoError("lumet-bench: unable to start the simulated processor");
  if (pid > 0) {
    close(ends[1]);
    head_descriptor = ends[0];
    return;
  }
  close(ends[0]);
  prctl(PR_SET_NAME, "simulated-dsp");
  // An interrupt from the keyboard is for the head, which still has to reach its processor.
  signal(SIGINT, SIG_IGN);
  int exit_status = 0;
  try {
    play(ends[1]);
  } catch (const std::exception& error) {
    std::cerr << "lumet-bench: " << error.what() << "\n";
    exit_status = 1;
  }
  _exit(exit_status);
}

SimulatedProcess::~SimulatedProcess() {
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
}
