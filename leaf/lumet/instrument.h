#pragma once

#include <functional>
#include <string>

// Where a head lives: its files and devices, its account, and its ports. All paths lie below one
// directory: the system's root on an instrument, a directory of its own on the bench.
struct Instrument {
  explicit Instrument(std::string root_directory = "");

  const std::string root;

  // Kernel files that set up the processor.
  std::string cpu_alignment = root + "/proc/cpu/alignment";
  std::string cpu_governor = root + "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor";
  std::string cpu_speed = root + "/sys/devices/system/cpu/cpu0/cpufreq/scaling_setspeed";

  std::string pid_file = root + "/run/lumet.pid";

  // Settings: those of the factory, the zeros with their history, and all the rest.
  std::string factory_settings = root + "/etc/factorytavo.conf";
  std::string cal_settings = root + "/etc/caltavo.conf";
  std::string main_settings = root + "/etc/tavo.conf";

  // Logs: the counters of the head, and the zeros that were taken.
  std::string run_time_log = root + "/var/log/lumet.log";
  std::string calibration_log = root + "/var/log/cal";

  // The system's time: its zones, the zone in force as a link and as a name, the hardware clock,
  // and the service that keeps it: its options and its script, which the build may place elsewhere.
  std::string zoneinfo = root + "/usr/share/zoneinfo/posix";
  std::string localtime = root + "/etc/localtime";
  std::string timezone = root + "/etc/timezone";
  std::string clock_device = root + "/dev/rtc0";
  std::string ptp_options;
  std::string ptp_script;

  // The programs that take the machine down, as the build names them.
  std::string reboot;
  std::string poweroff;

  // The system's network, for its next start.
  std::string hostname_path = root + "/etc/hostname";
  std::string interfaces_path = root + "/etc/network/interfaces";

  // Where the kernel shows the devices of the board's I2C buses.
  std::string i2c_devices = root + "/sys/bus/i2c/devices";

  // The signal processor: its device, or a descriptor that is open already. The daemon takes the
  // descriptor over; with -1 it opens the device.
  std::string dsp_device = root + "/dev/dsporrel";
  int dsp_fd = -1;

  // The account that the daemon works as once it is set up; if empty, the one that started it.
  std::string account = "nemra";

  // Where the console service listens. Port 0 lets the system choose.
  std::string console_address = "::";
  int console_port = 7246;
  // Called with the port once the service listens.
  std::function<void(int port)> console_listens = [](int) {};

  // The interface by which the head is known on its network.
  std::string network_interface = "eth0";
  // The broker of the message bus: the address of the first one, and the port of every one.
  std::string broker_address = "::1";
  int broker_port = 1883;
  // Whether the head announces itself on the network, and looks for its console unit there.
  bool discovery = true;
};
