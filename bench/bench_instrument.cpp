#include "bench/bench_instrument.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "common/text_file.h"

std::string DefaultBenchRoot() {
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0')
    return std::filesystem::path(runtime) / "lumet-bench";
  return std::filesystem::temp_directory_path() / ("lumet-bench-" + std::to_string(geteuid()));
}

Instrument BenchInstrument(const std::string& root) {
  Instrument instrument(root);
  // What of a system's directories the head expects to be there.
  for (const char* directory :
       {"/proc/cpu/", "/sys/devices/system/cpu/cpu0/cpufreq/", "/sys/bus/i2c/devices/", "/run/",
        "/etc/network/", "/etc/sysconfig/", "/etc/rc.d/init.d/", "/var/log/", "/dev/"})
    MakeDirectoriesTo(root + directory);
  std::ofstream(instrument.clock_device, std::ios::app);
  instrument.zoneinfo = Instrument().zoneinfo;
  // A user without a name stays who it is all the same.
  const struct passwd* user = getpwuid(geteuid());
  instrument.account = user != nullptr ? user->pw_name : "";
  instrument.console_address = "::1";
  instrument.discovery = false;
  return instrument;
}

Machine BenchMachine(const Instrument& instrument) {
  Machine machine;
  // Whoever runs the bench may write to its directory; there are no other rights to take.
  machine.set_effective_user = [](uid_t) { return 0; };
  machine.set_scheduler = [](int policy, int priority) {
    std::cout << "lumet-bench: would ask for scheduling policy " << policy << ", priority "
              << priority << "\n";
    return 0;
  };
  machine.lock_memory = [](int) {
    std::cout << "lumet-bench: would lock all memory\n";
    return 0;
  };
  machine.delete_route = [](Socket&, const struct msghdr&) {
    std::cout << "lumet-bench: would ask the kernel to remove that route\n";
  };
  machine.set_system_time = [](const struct timeval& time) {
    std::cout << "lumet-bench: would set the system time to " << time.tv_sec << "\n";
    return 0;
  };
  machine.set_hardware_clock = [](int, const struct rtc_time& time) {
    std::cout << "lumet-bench: would set the hardware clock to " << time.tm_year + 1900 << "-"
              << time.tm_mon + 1 << "-" << time.tm_mday << " " << time.tm_hour << ":" << time.tm_min
              << ":" << time.tm_sec << " UTC\n";
    return 0;
  };
  // Its zone is that of the head, and not of the desk, once it has one.
  machine.take_zone = [link = instrument.localtime] {
    if (!std::filesystem::exists(link)) return;
    // The file itself: the library would not look at a link again whose name is the same.
    setenv("TZ", (":" + std::filesystem::canonical(link).string()).c_str(), 1);
    tzset();
  };
  machine.take_zone();
  machine.run_command = [](const std::string& command) {
    std::cout << "lumet-bench: would run " << command << "\n";
    return 0;
  };
  return machine;
}
