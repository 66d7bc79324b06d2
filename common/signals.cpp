#include "common/signals.h"

#include "common/errno_error.h"

namespace {

// The kernel's name for "interrupt system calls"; it has no bit in today's C libraries, and the
// kernel ignores it: what counts is that SA_RESTART is not set.
constexpr int kInterruptSystemCalls = 0x20000000;

void Catcher(int signo) { sigaddset(pending_signals(), signo); }

void SetAction(int signo, void (*handler)(int), const char* failure) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = signo == SIGALRM ? kInterruptSystemCalls : SA_RESTART;
  if (sigaction(signo, &action, nullptr) != 0) throw ErrnoError(failure);
}

}  // namespace

sigset_t* pending_signals() {
  static sigset_t pending = [] {
    sigset_t empty;
    sigemptyset(&empty);
    return empty;
  }();
  return &pending;
}

void catch_signal(sigset_t* pending, int signo) {
  sigdelset(pending, signo);
  SetAction(signo, Catcher, "Unable to install signal handler");
}

void ignore_signal(sigset_t* pending, int signo) {
  SetAction(signo, SIG_IGN, "Unable to ignore signal");
  sigdelset(pending, signo);
}

void default_signal(sigset_t* pending, int signo) {
  SetAction(signo, SIG_DFL, "Unable to set default action on signal");
  sigdelset(pending, signo);
}

void default_all_signals() {
  for (int signo = 1; signo <= SIGRTMAX; ++signo) std::signal(signo, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void wait_signal(sigset_t* pending, int signo) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, signo);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  if (sigismember(pending, signo) == 0) {
    sigset_t waiting = before;
    sigdelset(&waiting, signo);
    sigsuspend(&waiting);
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
}
