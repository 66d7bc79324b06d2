#pragma once

#include <sys/types.h>

#include <cstdint>

// The simulated signal processor in a process of its own, so that the head can be measured and
// debugged alone. The process ends when the head's end of the link is closed, or with this.
class SimulatedProcess {
 public:
  // Starts it. Throws ErrnoError.
  SimulatedProcess(std::uint32_t rate, std::uint64_t seed);
  ~SimulatedProcess();
  SimulatedProcess(const SimulatedProcess&) = delete;
  SimulatedProcess& operator=(const SimulatedProcess&) = delete;

  // The head's end of the link, for the head to take over.
  int HeadDescriptor() const { return head_descriptor; }

 private:
  pid_t pid = -1;
  int head_descriptor = -1;
};
