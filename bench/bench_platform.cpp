#include "bench/bench_platform.h"

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

Platform BenchPlatform(const std::string& root) {
  Platform platform;
  for (std::string* file : platform.Files()) {
    *file = root + *file;
    MakeDirectoriesTo(*file);
  }
  // A user without a name stays who it is all the same.
  const struct passwd* user = getpwuid(geteuid());
  platform.account = user != nullptr ? user->pw_name : "";
  platform.console_address = "::1";
  // Whoever runs the bench may write to its directory; there are no other rights to take.
  platform.set_effective_user = [](uid_t) { return 0; };
  platform.set_scheduler = [](int policy, int priority) {
    std::cout << "lumet-bench: would ask for scheduling policy " << policy << ", priority "
              << priority << "\n";
    return 0;
  };
  platform.lock_memory = [](int) {
    std::cout << "lumet-bench: would lock all memory\n";
    return 0;
  };
  platform.delete_route = [](Socket&, const struct msghdr&) {
    std::cout << "lumet-bench: would ask the kernel to remove that route\n";
  };
  platform.discovery = false;
  platform.set_system_time = [](const struct timeval& time) {
    std::cout << "lumet-bench: would set the system time to " << time.tv_sec << "\n";
    return 0;
  };
  platform.set_hardware_clock = [](int, const struct rtc_time& time) {
    std::cout << "lumet-bench: would set the hardware clock to " << time.tm_year + 1900 << "-"
              << time.tm_mon + 1 << "-" << time.tm_mday << " " << time.tm_hour << ":" << time.tm_min
              << ":" << time.tm_sec << " UTC\n";
    return 0;
  };
  // Its zone is that of the head, and not of the desk, once it has one.
  platform.take_zone = [link = platform.localtime] {
    if (!std::filesystem::exists(link)) return;
    // The file itself: the library would not look at a link again whose name is the same.
    setenv("TZ", (":" + std::filesystem::canonical(link).string()).c_str(), 1);
    tzset();
  };
  platform.take_zone();
  std::ofstream(platform.clock_device, std::ios::app);
  platform.run_command = [](const std::string& command) {
    std::cout << "lumet-bench: would run " << command << "\n";
    return 0;
  };
  return platform;
}
