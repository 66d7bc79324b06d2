#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "leaf/lumet/link/recording.h"

// Sees when the files of a head's settings change.
class SettingsWatch {
 public:
  explicit SettingsWatch(const std::vector<std::string>& paths);

  // The files that are not as they were at the last look; at the first one, those that exist.
  // Looks a few times a second at most.
  std::vector<RecordedSettings> Changed();

 private:
  struct File {
    std::string path;
    std::string text;
  };

  std::vector<File> files;
  std::optional<std::chrono::steady_clock::time_point> looked;
};
