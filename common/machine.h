#pragma once

#include <linux/rtc.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>
#include <functional>
#include <string>

#include "common/run_command.h"
#include "common/service_manager.h"
#include "common/socket.h"

// The acts by which a daemon changes the machine that it runs on. The defaults do them; whoever
// must not touch the machine puts others in their place. One value, made in main and handed down.
// Results and errno are those of the calls that they stand for.
struct Machine {
  std::function<int(int policy, int priority)> set_scheduler = [](int policy, int priority) {
    struct sched_param parameters = {};
    parameters.sched_priority = priority;
    return sched_setscheduler(0, policy, &parameters);
  };
  std::function<int(uid_t user)> set_effective_user = [](uid_t user) { return seteuid(user); };
  std::function<int(int flags)> lock_memory = [](int flags) { return mlockall(flags); };
  std::function<int(const std::string& command)> run_command = [](const std::string& command) {
    return RunCommand(command);
  };
  // Sends the kernel a request to remove a route. Throws ErrnoError.
  std::function<void(Socket& netlink, const struct msghdr& request)> delete_route =
      [](Socket& netlink, const struct msghdr& request) { netlink.SendMsg(&request, 0); };
  std::function<int(const struct timeval& time)> set_system_time = [](const struct timeval& time) {
    return settimeofday(&time, nullptr);
  };
  std::function<int(int device, const struct rtc_time& time)> set_hardware_clock =
      [](int device, const struct rtc_time& time) { return ioctl(device, RTC_SET_TIME, &time); };
  std::function<int(int device, struct rtc_time& time)> read_hardware_clock =
      [](int device, struct rtc_time& time) { return ioctl(device, RTC_RD_TIME, &time); };
  // Changes nothing by itself, so that a head on the desk does it too.
  std::function<void(const std::string& state)> tell_service_manager =
      [](const std::string& state) { TellServiceManager(state); };
  // Called when the zone in force has changed.
  std::function<void()> take_zone = [] { tzset(); };
};
