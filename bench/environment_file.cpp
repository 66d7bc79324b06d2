#include "bench/environment_file.h"

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "common/text_file.h"

namespace {

Surroundings Read(const std::string& text) {
  Surroundings surroundings;
  Environment& environment = surroundings.environment;
  ProcessorFaults& faults = surroundings.faults;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    double number = 0;
    if (!(words >> word)) continue;
    const bool complete = words >> number && (words >> std::ws).eof();
    const auto is = [&](const char* name, double low, double high) {
      return complete && word == name && number >= low && number <= high;
    };
    if (is("temperature", -10, 60))
      environment.temperature = number;
    else if (is("health", 0.01, 1))
      environment.health = number;
    else if (is("silent", 0, 1))
      faults.is_silent = number != 0;
    else if (is("damage", 0, 1))
      faults.damage = number;
    else if (is("resets", 0, 1e9))
      faults.resets = static_cast<int>(number);
    else if (is("count", 0, 1e9))
      faults.count_every = static_cast<int>(number);
    else
      throw std::invalid_argument("'" + line +
                                  "' is neither 'temperature' with -10 to 60 (°C), 'health' with "
                                  "0.01 to 1, 'silent' or 'damage' with 0 to 1, nor 'resets' or "
                                  "'count' with a number");
  }
  return surroundings;
}

}  // namespace

void EnvironmentFile::Provide(const std::string& path) {
  if (!std::filesystem::exists(path)) WriteFile(path, "temperature 25\nhealth 1\n");
}

std::optional<Surroundings> EnvironmentFile::Changed() {
  constexpr std::chrono::milliseconds kBetweenLooks(200);
  const auto now = std::chrono::steady_clock::now();
  if (looked && now - *looked < kBetweenLooks) return std::nullopt;
  looked = now;
  std::error_code missing;
  const auto time_now = std::filesystem::last_write_time(path, missing);
  const std::uintmax_t size_now = std::filesystem::file_size(path, missing);
  if (time_now == written && size_now == size) return std::nullopt;
  written = time_now;
  size = size_now;
  try {
    return Read(ReadFile(path));
  } catch (const std::invalid_argument& error) {
    std::cerr << "lumet-bench: " << path << ": " << error.what() << "\n";
    return std::nullopt;
  }
}
