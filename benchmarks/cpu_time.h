#pragma once

#include <sys/types.h>

#include <ctime>
#include <stdexcept>

// Seconds that a process has had of any processor, user and system together. Throws
// std::runtime_error for one that is no more.
inline double CpuSeconds(pid_t pid) {
  clockid_t clock = 0;
  struct timespec time = {};
  if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0)
    throw std::runtime_error("the system does not tell the time of a process");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}
