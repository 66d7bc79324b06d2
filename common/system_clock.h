#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/machine.h"
#include "common/timestamp.h"

// The machine's clock: the system time, the hardware clock behind it, and the time zone.
class SystemClock {
 public:
  // Walks the zones that the system knows. Throws ErrnoError when their directory can't be read.
  // `machine` must outlive this.
  SystemClock(std::string zoneinfo_directory, std::string localtime_path, std::string timezone_path,
              std::string clock_device, const Machine& machine);

  // Seconds and nanoseconds since 1970. Throws ErrnoError.
  static std::pair<std::time_t, long> GetTime();

  // Each sets the system time and the hardware clock. Throws ErrnoError, and std::runtime_error
  // when rights can't be had.
  void SetTime(std::time_t seconds);
  // A local time; the system decides whether daylight saving applies then.
  void SetTime(const Timestamp& local);

  // Seconds since 1970. Throws as SetTime.
  std::time_t ReadHardwareClock();

  // Sorted within each directory, with paths relative to that of all zones.
  const std::vector<std::string>& Zones() const { return zones; }
  const std::string& CurrentZone() const { return currentZone; }
  bool IsZone(const std::string& name) const;
  // Throws std::runtime_error for a zone that is not known, and as SetTime.
  void SetZone(const std::string& name);
  // The zone in force, or the one that should be, but could not be set completely yet.
  const std::string& WantedZone() const { return unsaved_zone ? *unsaved_zone : currentZone; }
  // Sets a zone that could not be set completely. Throws as SetZone.
  void SaveAgain();
  // Seconds to add to UTC, without daylight saving.
  static long GetOffset();

 private:
  void FindZones(const std::string& directory, const std::string& prefix);
  void Set(std::time_t seconds, long microseconds);

  const std::string zoneinfo_directory;
  const std::string localtime_path;
  const std::string timezone_path;
  const std::string clock_device;
  const Machine& machine;
  std::vector<std::string> zones;
  std::string currentZone = "UTC";
  std::optional<std::string> unsaved_zone;
};
