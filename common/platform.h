#pragma once

#include <linux/rtc.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "common/socket.h"

// Everything outside the process that the head touches: files and devices, the account, the port,
// and the acts that change the machine. The defaults are the instrument's. One value, made in main
// and handed down, says where a daemon lives; the bench keeps it inside one directory.
struct Platform {
  // Files of the kernel that set the processor up.
  std::string cpu_alignment = "/proc/cpu/alignment";
  std::string cpu_governor = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor";
  std::string cpu_speed = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_setspeed";

  std::string pid_file = "/run/lumet.pid";

  // Settings: of the factory, the zeros with their history, and all the rest.
  std::string factory_settings = "/etc/factorytavo.conf";
  std::string cal_settings = "/etc/caltavo.conf";
  std::string main_settings = "/etc/tavo.conf";

  // Logs: the counters of the head, and the zeros that were taken.
  std::string run_time_log = "/var/log/lumet.log";
  std::string calibration_log = "/var/log/cal";

  // The system's time: its zones, the zone in force as a link and as a name, the hardware clock,
  // and the service that keeps it, options and script.
  std::string zoneinfo = "/usr/share/zoneinfo/posix";
  std::string localtime = "/etc/localtime";
  std::string timezone = "/etc/timezone";
  std::string clock_device = "/dev/rtc0";
  std::string ptp_options = "/etc/sysconfig/ptpd";
  std::string ptp_script = "/etc/rc.d/init.d/ptpd";

  // The system's network, for its next start.
  std::string hostname_path = "/etc/hostname";
  std::string interfaces_path = "/etc/network/interfaces";

  // Where the kernel shows the devices of the board's I2C buses.
  std::string i2c_devices = "/sys/bus/i2c/devices";

  // The signal processor: its device, or a descriptor that is open already. The daemon takes the
  // descriptor over; with -1 it opens the device.
  std::string dsp_device = "/dev/dsporrel";
  int dsp_fd = -1;

  // Who the daemon works as once it is set up; empty: who it was started as.
  std::string account = "nemra";

  // Where the console service listens. Port 0 lets the system choose.
  std::string console_address = "::";
  int console_port = 7246;
  // Hears the port once the service listens.
  std::function<void(int port)> console_listens = [](int) {};

  // The interface by which the head is known on its network.
  std::string network_interface = "eth0";
  // Where the broker of the message bus listens, on whichever machine it is.
  int broker_port = 1883;
  // Whether the head announces itself on the network, and looks for its console unit there.
  bool discovery = true;

  // Acts that change the machine. Results and errno are those of the calls that they stand for.
  std::function<int(int policy, int priority)> set_scheduler = [](int policy, int priority) {
    struct sched_param parameters = {};
    parameters.sched_priority = priority;
    return sched_setscheduler(0, policy, &parameters);
  };
  std::function<int(uid_t user)> set_effective_user = [](uid_t user) { return seteuid(user); };
  std::function<int(int flags)> lock_memory = [](int flags) { return mlockall(flags); };
  std::function<int(const std::string& command)> run_command = [](const std::string& command) {
    return std::system(command.c_str());
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
  // The zone in force is another one.
  std::function<void()> take_zone = [] { tzset(); };

  // Every file and device above, for whoever moves them elsewhere; the zones are only read.
  std::vector<std::string*> Files() {
    return {&cpu_alignment,   &cpu_governor,  &cpu_speed,    &pid_file,        &factory_settings,
            &cal_settings,    &main_settings, &run_time_log, &calibration_log, &localtime,
            &timezone,        &clock_device,  &ptp_options,  &ptp_script,      &hostname_path,
            &interfaces_path, &i2c_devices,   &dsp_device};
  }
};
