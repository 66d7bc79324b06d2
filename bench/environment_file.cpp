#include "bench/environment_file.h"

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "common/text_file.h"

namespace {

Environment Read(const std::string& text) {
  Environment environment;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    double number = 0;
    if (!(words >> word)) continue;
    const bool complete = words >> number && (words >> std::ws).eof();
    if (complete && word == "temperature" && number >= -10 && number <= 60)
      environment.temperature = number;
    else if (complete && word == "health" && number >= 0.01 && number <= 1)
      environment.health = number;
    else
      throw std::invalid_argument("'" + line +
                                  "' is neither 'temperature' with -10 to 60 (°C) nor 'health' "
                                  "with 0.01 to 1");
  }
  return environment;
}

}  // namespace

void EnvironmentFile::Provide(const std::string& path) {
  if (!std::filesystem::exists(path)) WriteFile(path, "temperature 25\nhealth 1\n");
}

std::optional<Environment> EnvironmentFile::Changed() {
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
