#pragma once

#include <sys/types.h>

#include <functional>

// The processor's side of the link in a process of its own, so that the head can be measured and
// debugged alone. The process ends when the head's end of the link is closed, or with this.
class SimulatedProcess {
 public:
  // Starts it: runs `play` on its end of the link. Throws ErrnoError.
  explicit SimulatedProcess(const std::function<void(int descriptor)>& play);
  ~SimulatedProcess();
  SimulatedProcess(const SimulatedProcess&) = delete;
  SimulatedProcess& operator=(const SimulatedProcess&) = delete;

  // The head's end of the link, for the head to take over.
  int HeadDescriptor() const { return head_descriptor; }

 private:
  pid_t pid = -1;
  int head_descriptor = -1;
};
