#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "bench/leaf.h"

// What is wrong with the signal processor.
struct ProcessorFaults {
  bool is_silent = false;  // says nothing, while its time goes on
  double damage = 0;       // share of its packets that come damaged, 0 to 1
  int resets = 0;          // it restarts whenever this number changes
  int count_every = 0;     // no fault: says after about so many samples how many it has sent
};

struct Surroundings {
  Environment environment;
  ProcessorFaults faults;
};

// The file through which what surrounds the head changes while the bench runs. Each line is a word
// and a number:
//   temperature 25   of the leaf, °C, -10 to 60
//   health 1         of the leaf, 0.01 to 1
//   silent 0, damage 0, resets 0, count 0   of the processor, see ProcessorFaults
// What no line names is as in Surroundings{}, and so is all of it without the file.
class EnvironmentFile {
 public:
  // Writes one that changes nothing if there is none.
  static void Provide(const std::string& path);

  explicit EnvironmentFile(std::string path) : path(std::move(path)) {}

  // What the file says, if it has changed since the last look. Looks a few times a second at most.
  // Says on standard error what is wrong with a file that it can't read, and returns nothing.
  std::optional<Surroundings> Changed();

 private:
  std::string path;
  std::optional<std::chrono::steady_clock::time_point> looked;
  std::filesystem::file_time_type written = {};
  std::uintmax_t size = 0;
};
