#include "common/service_status.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

ServiceStatus::ServiceStatus(const Machine& machine) : PollTimer(-1, true), machine(machine) {}

void ServiceStatus::Ready() {
  machine.tell_service_manager("READY=1");
  const auto time = WatchdogTime();
  if (time <= std::chrono::microseconds::zero()) return;
  constexpr std::int64_t kLongestMs = 60'000;
  const std::int64_t third_ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(time / 3).count();
  feed_ms = static_cast<int>(std::clamp<std::int64_t>(third_ms, 1, kLongestMs));
  Expired();
}

void ServiceStatus::Stopping() {
  SetTimeout(-1);
  machine.tell_service_manager("STOPPING=1");
}

void ServiceStatus::Expired() {
  machine.tell_service_manager("WATCHDOG=1");
  SetTimeout(feed_ms);
}
