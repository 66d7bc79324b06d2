#pragma once

#include "common/poll_processor.h"
#include "leaf/lumet/board/settings_files.h"
#include "leaf/lumet/board/system_settings.h"

// Saves what could not be saved, of the settings and of the system's files: tries it every ten
// seconds until it succeeds. What fails is a line on standard output each time.
class SaveRetry : public PollTimer {
 public:
  // Both must outlive this.
  SaveRetry(SettingsFiles& settings_files, SystemSettings& settings_of_system);

  void Expired() override;
  const char* GetName() override { return "SaveRetry"; }

 private:
  SettingsFiles& files;
  SystemSettings& system_settings;
};
