#pragma once

#include "common/machine.h"
#include "common/poll_processor.h"

// What the service manager hears of a daemon: that it serves, that its loop still turns, and that
// it is about to end.
class ServiceStatus : public PollTimer {
 public:
  // `machine` must outlive this.
  explicit ServiceStatus(const Machine& machine);

  // The daemon serves from now on. Where a watchdog waits for that, the loop feeds it until
  // Stopping, three times as often as it must; otherwise the loop has nothing to do.
  void Ready();
  void Stopping();

  void Expired() override;
  const char* GetName() override { return "ServiceStatus"; }

 private:
  const Machine& machine;
  int feed_ms = -1;  // negative: no watchdog
};
