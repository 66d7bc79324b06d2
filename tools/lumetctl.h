#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/bus.h"
#include "client/console.h"
#include "client/setting.h"
#include "common/host_port.h"
#include "tools/terminal.h"

// The commands of lumetctl. Each prints its result on standard output and throws when something
// goes wrong: ClientError, NoConnection, FileError, or Failed.

// What a command has found wrong, thrown after it has printed all that it had to say.
class Failed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// How to reach a head, and how to answer.
struct Ctl {
  HostPort head = {"::1", LineClient::kConsolePort};
  std::optional<HostPort> broker;  // the head's machine if none is named
  Timeout timeout = std::chrono::seconds(20);
  bool json = false;

  // Each throws as client/ does, but its NoConnection also says what to do about it.
  ConsoleClient Connect() const;
  HostPort Broker() const;
  BusClient ConnectBus(const std::vector<std::string>& topics) const;
};

// Prints a line that begins with the program's name on standard error.
void Warn(const std::string& text);

// Settings. Paths may be those of branches; no path stands for all settings.
void GetSettings(const Ctl& ctl, const std::vector<std::string>& paths);
void SetSettings(const Ctl& ctl, const std::vector<std::string>& assignments);
void PrintTree(const Ctl& ctl, const std::string& path);
void WatchSettings(const Ctl& ctl, const std::vector<std::string>& paths, Timeout duration);
void SaveSettings(const Ctl& ctl, const std::string& file, const std::vector<std::string>& paths);
void RestoreSettings(const Ctl& ctl, const std::string& file, bool dry_run);
// Those of all settings that are at the paths. Throws ClientError, with the paths of similar
// names, for a path that the head does not have.
std::vector<Setting> Select(const std::vector<Setting>& all, const std::vector<std::string>& paths);

struct RowsOptions {
  std::string csv = "-";
  std::vector<std::string> columns;  // all if none is named
  Timeout duration = kNoLimit;
  std::size_t count = 0;  // 0 for no limit
  bool status = false;    // DATASTAT instead of DATA
};
void PrintRows(const Ctl& ctl, const RowsOptions& options);

struct FlashOptions {
  std::string command;  // the setting below "cmd"
  std::string plot;
  std::string save;
  Timeout before = std::chrono::seconds(1);  // of F before the flash
  bool is_dark_adapted = false;
  std::string reference;  // file; by the head's serial number if none is named
  std::optional<double> Fo;
  std::optional<double> Fm;
};
void Flash(const Ctl& ctl, const FlashOptions& options);
// `detector` is "dc" or "pc".
void Zero(const Ctl& ctl, const std::string& detector);
// Ends after `count` events, or never for 0.
void PrintEvents(const Ctl& ctl, const std::string& directory, Timeout duration, std::size_t count);

void PrintStatus(const Ctl& ctl);
void Discover(const Ctl& ctl, Timeout duration);

// Ways to listen to a head.

// Passes what comes from the head to `take` until that returns false, the deadline, or an
// interrupt; `turn` is called at least twenty times a second. Damaged rows are reported and
// skipped; returns how many there were.
std::size_t Listen(ConsoleClient& head, const Deadline& end,
                   const std::function<bool(const ConsoleMessage&)>& take,
                   const std::function<bool()>& turn = {});
// Sets one setting of "cmd" to true. Throws Refused, or prints what the head said if it took the
// order all the same.
void Order(ConsoleClient& head, const std::string& command);
