#include "leaf/lumet/board/save_retry.h"

#include "common/print_exception.h"

namespace {

constexpr int kPeriodMs = 10'000;

template <class Saver>
void Try(Saver& saver) {
  try {
    saver.SaveAgain();
  } catch (...) {
    PrintCurrentException();
  }
}

}  // namespace

SaveRetry::SaveRetry(SettingsFiles& settings_files, SystemSettings& settings_of_system)
    : PollTimer(kPeriodMs, true), files(settings_files), system_settings(settings_of_system) {}

void SaveRetry::Expired() {
  Extend(kPeriodMs);
  Try(files);
  Try(system_settings);
}
