#include "bench/settings_watch.h"

#include <filesystem>

#include "common/text_file.h"

SettingsWatch::SettingsWatch(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) files.push_back({path, ""});
}

std::vector<RecordedSettings> SettingsWatch::Changed() {
  constexpr std::chrono::milliseconds kBetweenLooks(200);
  const auto now = std::chrono::steady_clock::now();
  if (looked && now - *looked < kBetweenLooks) return {};
  looked = now;
  std::vector<RecordedSettings> changed;
  for (File& file : files) {
    std::string text = ReadFile(file.path);
    if (text.empty() || text == file.text) continue;
    file.text = std::move(text);
    changed.push_back({std::filesystem::path(file.path).filename().string(), file.text});
  }
  return changed;
}
