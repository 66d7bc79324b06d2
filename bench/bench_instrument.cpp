#include "bench/bench_instrument.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "common/errno_error.h"
#include "common/text_file.h"

namespace {

// Makes the directory for its owner alone. One that is there already may have been prepared by
// somebody else, with links to what is not theirs.
void MakeOwnDirectory(const std::string& path) {
  MakeDirectoriesTo(path);
  if (mkdir(path.c_str(), 0700) == 0) return;
  struct stat status = {};
  if (errno != EEXIST || lstat(path.c_str(), &status) != 0)
    throw ErrnoError("unable to make " + path);
  const auto refuse = [&](const std::string& why) {
    throw std::runtime_error("the directory " + path + " is not safe to use: " + why +
                             "; remove it, or name another one with --root");
  };
  if (!S_ISDIR(status.st_mode)) refuse("it is a link or a file");
  if (status.st_uid != geteuid())
    refuse("it belongs to user " + std::to_string(status.st_uid) + " and not to you");
  if ((status.st_mode & 077) != 0) refuse("its mode gives rights to others");
}

// Without the slashes at the end, by which a link would be followed.
std::string WithoutSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::string DefaultBenchRoot() {
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0')
    return std::filesystem::path(runtime) / "lumet-bench";
  return std::filesystem::temp_directory_path() / ("lumet-bench-" + std::to_string(geteuid()));
}

Instrument BenchInstrument(const std::string& root) {
  MakeOwnDirectory(WithoutSlashes(root));
  Instrument instrument(root);
  // The system's directories that the head expects to be there.
  for (const char* directory :
       {"/proc/cpu/", "/sys/devices/system/cpu/cpu0/cpufreq/", "/sys/bus/i2c/devices/", "/run/",
        "/etc/network/", "/var/log/", "/dev/"})
    MakeDirectoriesTo(root + directory);
  for (const std::string& path : {instrument.ptp_options, instrument.ptp_script})
    MakeDirectoriesTo(path);
  const std::ofstream clock_device(instrument.clock_device, std::ios::app);
  instrument.zoneinfo = Instrument().zoneinfo;
  // A user without a name keeps working as itself.
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
