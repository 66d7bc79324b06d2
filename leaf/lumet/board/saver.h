#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include "common/poll_processor.h"
#include "leaf/lumet/board/settings_files.h"
#include "leaf/lumet/board/system_settings.h"

class SocketClient;

// Says when settings are saved: once for all changes that come together, after the commands to the
// processor that they have caused, and before anybody is told that they are in force. What could
// not be saved, of the settings and of the system's files, is tried again every ten seconds until
// it succeeds; each failure is a line on standard output.
class Saver : public PollTimer {
 public:
  // The files and the settings must outlive this. `send_commands` gives the processor what is
  // queued for it.
  Saver(SettingsFiles& files, SystemSettings& system_settings, std::function<void()> send_commands);

  // Something in `parts` has changed. Throws std::runtime_error when rights to save can't be had;
  // it is then saved later.
  void Changed(SettingsFiles::Parts parts);
  // Saves now what has changed. Lets no exception out.
  void Save();

  // `client` has been told something. What is sent to it waits until what has changed is saved.
  void Told(const SocketClient* client);
  // Whether what is queued for `client` may leave, after a save if it waits for one. False while
  // more changes may belong to those that have just come: then ask again in the next turn.
  bool MayLeave(const SocketClient* client);
  // To be called after each turn of the loop. A change that nobody waits for is saved one turn
  // after it has come.
  void EndTurn();
  // Whether the next turn is to wait for nothing.
  bool IsUrgent() const { return files.HasChanges(); }

  void Expired() override;
  const char* GetName() override { return "Saver"; }

 private:
  bool Waits(const SocketClient* client) const;

  SettingsFiles& files;
  SystemSettings& system_settings;
  const std::function<void()> send_commands;
  std::vector<const SocketClient*> waiting;
  bool changed_in_this_turn = false;
  std::chrono::steady_clock::time_point first_change;  // of those that are not saved yet
};
