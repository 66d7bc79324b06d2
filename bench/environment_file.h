#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "bench/leaf.h"

// The file through which the leaf's environment changes while the bench runs. Each line is a word
// and a number: "temperature 25" (°C, -10 to 60) or "health 1" (0.01 to 1). What no line names is
// as in Environment{}, and so is all of it without the file.
class EnvironmentFile {
 public:
  // Writes one that changes nothing if there is none.
  static void Provide(const std::string& path);

  explicit EnvironmentFile(std::string path) : path(std::move(path)) {}

  // What the file says, if it has changed since the last look. Looks a few times a second at most.
  // Says on standard error what is wrong with a file that it can't read, and returns nothing.
  std::optional<Environment> Changed();

 private:
  std::string path;
  std::optional<std::chrono::steady_clock::time_point> looked;
  std::filesystem::file_time_type written = {};
  std::uintmax_t size = 0;
};
