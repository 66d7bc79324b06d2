#include "common/service_manager.h"

#ifdef LUMET_SYSTEMD

#include <systemd/sd-daemon.h>

#include <cstdint>

// A state that can't be told is missed by the service manager, which then acts on that.
void TellServiceManager(const std::string& state) { sd_notify(0, state.c_str()); }

std::chrono::microseconds WatchdogTime() {
  std::uint64_t time_us = 0;
  if (sd_watchdog_enabled(0, &time_us) <= 0) return {};
  return std::chrono::microseconds(time_us);
}

#else

void TellServiceManager(const std::string&) {}

std::chrono::microseconds WatchdogTime() { return {}; }

#endif
