#pragma once

#include <csignal>

// The signals of the process. Whoever wants one has the catcher installed for it; the catcher only
// adds the signal's number to the process-wide pending set, and PollProcessor takes it out again.
//
// The functions below throw ErrnoError when the system refuses. None of them may be called from a
// signal handler.

// The process-wide set of signals that have come and are not handled yet.
sigset_t* pending_signals();

// Each removes `signo` from `pending`, so that no earlier delivery counts.
void catch_signal(sigset_t* pending, int signo);
void ignore_signal(sigset_t* pending, int signo);
void default_signal(sigset_t* pending, int signo);

// Gives every signal its default action and blocks none; for a child, before it becomes another
// program.
void default_all_signals();

// Sleeps until `signo` is in `pending`; returns at once if it does already.
void wait_signal(sigset_t* pending, int signo);
