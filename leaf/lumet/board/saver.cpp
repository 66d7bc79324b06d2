#include "leaf/lumet/board/saver.h"

#include <algorithm>
#include <utility>

#include "common/print_exception.h"

namespace {

constexpr int kRetryMs = 10'000;
// Changes that go on coming are saved after this long at the latest.
constexpr auto kLongestWait = std::chrono::milliseconds(50);

template <class Act>
void Try(Act act) {
  try {
    act();
  } catch (...) {
    PrintCurrentException();
  }
}

}  // namespace

Saver::Saver(SettingsFiles& files, SystemSettings& system_settings,
             std::function<void()> send_commands)
    : PollTimer(kRetryMs, true),
      files(files),
      system_settings(system_settings),
      send_commands(std::move(send_commands)) {}

void Saver::Changed(SettingsFiles::Parts parts) {
  if (!files.HasChanges()) first_change = std::chrono::steady_clock::now();
  changed_in_this_turn = true;
  files.SaveLater(parts);
}

void Saver::Save() {
  if (!files.HasChanges()) return;
  waiting.clear();
  Try(send_commands);
  Try([this] { files.SaveChanges(); });
}

void Saver::Told(const SocketClient* client) {
  if (files.HasChanges() && !Waits(client)) waiting.push_back(client);
}

bool Saver::MayLeave(const SocketClient* client) {
  if (!Waits(client)) return true;
  if (changed_in_this_turn && std::chrono::steady_clock::now() - first_change < kLongestWait)
    return false;
  Save();
  return true;
}

bool Saver::Waits(const SocketClient* client) const {
  return std::find(waiting.begin(), waiting.end(), client) != waiting.end();
}

void Saver::EndTurn() {
  if (!std::exchange(changed_in_this_turn, false)) Save();
}

void Saver::Expired() {
  Extend(kRetryMs);
  Try([this] { files.SaveAgain(); });
  Try([this] { system_settings.SaveAgain(); });
}
