#include "common/system_clock.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "common/errno_error.h"
#include "common/privilege_guard.h"
#include "common/safe_file.h"
#include "common/stream_file.h"

namespace {

namespace fs = std::filesystem;

StreamFile OpenClock(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) throw ErrnoError("Unable to open clock device: " + path);
  return StreamFile(fd);
}

// Both structs have the same fields for the calendar.
template <class To, class From>
To CopyCalendar(const From& from) {
  To to = {};
  to.tm_sec = from.tm_sec;
  to.tm_min = from.tm_min;
  to.tm_hour = from.tm_hour;
  to.tm_mday = from.tm_mday;
  to.tm_mon = from.tm_mon;
  to.tm_year = from.tm_year;
  to.tm_wday = from.tm_wday;
  to.tm_yday = from.tm_yday;
  to.tm_isdst = from.tm_isdst;
  return to;
}

}  // namespace

SystemClock::SystemClock(std::string zoneinfo_directory, std::string localtime_path,
                         std::string timezone_path, std::string clock_device,
                         const Machine& machine)
    : zoneinfo_directory(std::move(zoneinfo_directory)),
      localtime_path(std::move(localtime_path)),
      timezone_path(std::move(timezone_path)),
      clock_device(std::move(clock_device)),
      machine(machine) {
  FindZones(this->zoneinfo_directory, "");
  std::ifstream file(this->timezone_path);
  std::string name;
  if (std::getline(file, name) && IsZone(name)) currentZone = name;
}

void SystemClock::FindZones(const std::string& directory, const std::string& prefix) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
  const auto fail = [&] { throw ErrnoError("Unable to open timezone directory: " + directory); };
  if (!entries) fail();
  std::map<std::string, bool> found;  // whether it is a directory, by name
  errno = 0;
  while (const struct dirent* entry = readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name.starts_with('.')) continue;
    // There are hundreds, and the system tells of nearly all what they are.
    const bool is_told = entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN;
    std::error_code error;
    found[name] =
        is_told ? entry->d_type == DT_DIR : fs::is_directory(directory + "/" + name, error);
    errno = 0;
  }
  if (errno != 0) fail();
  for (const auto& [name, is_directory] : found) {
    if (is_directory)
      FindZones(directory + "/" + name, prefix + name + "/");
    else
      zones.push_back(prefix + name);
  }
}

bool SystemClock::IsZone(const std::string& name) const {
  return std::find(zones.begin(), zones.end(), name) != zones.end();
}

std::pair<std::time_t, long> SystemClock::GetTime() {
  struct timespec now = {};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) throw ErrnoError("Unable to get current time");
  return {now.tv_sec, now.tv_nsec};
}

void SystemClock::SetTime(std::time_t seconds) { Set(seconds, 0); }

void SystemClock::SetTime(const Timestamp& local) {
  struct tm fields = {};
  fields.tm_year = local.GetYear() - 1900;
  fields.tm_mon = local.GetMonth() - 1;
  fields.tm_mday = local.GetDay();
  fields.tm_hour = local.GetHour();
  fields.tm_min = local.GetMinute();
  const double second = local.GetSecond();
  fields.tm_sec = static_cast<int>(second);
  fields.tm_isdst = -1;
  Set(mktime(&fields), static_cast<long>((second - std::floor(second)) * 1e6));
}

void SystemClock::Set(std::time_t seconds, long microseconds) {
  const PrivilegeGuard rights(machine);
  struct timeval time = {};
  time.tv_sec = seconds;
  time.tv_usec = static_cast<suseconds_t>(microseconds);
  if (machine.set_system_time(time) != 0) throw ErrnoError("Unable to set system time");
  StreamFile device = OpenClock(clock_device);
  struct tm utc = {};
  gmtime_r(&seconds, &utc);
  if (machine.set_hardware_clock(device.GetFD(), CopyCalendar<struct rtc_time>(utc)) != 0)
    throw ErrnoError("Unable to set hardware clock: " + clock_device);
}

std::time_t SystemClock::ReadHardwareClock() {
  const PrivilegeGuard rights(machine);
  StreamFile device = OpenClock(clock_device);
  struct rtc_time fields = {};
  if (machine.read_hardware_clock(device.GetFD(), fields) != 0)
    throw ErrnoError("Unable to read hardware clock: " + clock_device);
  auto utc = CopyCalendar<struct tm>(fields);
  const std::time_t seconds = timegm(&utc);
  if (seconds == -1) throw ErrnoError("Invalid time returned from hardware clock: " + clock_device);
  return seconds;
}

void SystemClock::SetZone(const std::string& given_name) {
  const std::string name = given_name.starts_with('/') ? given_name.substr(1) : given_name;
  if (!IsZone(name)) throw std::runtime_error("Invalid timezone \"" + name + "\"");
  unsaved_zone = name;
  const PrivilegeGuard rights(machine);
  if (!ReplaceLink(localtime_path, zoneinfo_directory + "/" + name))
    throw ErrnoError("Unable to set timezone");
  machine.take_zone();
  currentZone = name;
  if (!ReplaceFile(timezone_path, [&](std::ostream& out) { out << name << "\n"; }))
    throw ErrnoError("Unable to save timezone string to file: " + timezone_path);
  unsaved_zone.reset();
}

void SystemClock::SaveAgain() {
  if (unsaved_zone) SetZone(std::string(*unsaved_zone));
}

long SystemClock::GetOffset() {
  tzset();
  return -timezone;
}
