#include "leaf/lumet/board/run_time_event_logger.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include "common/poll_processor.h"
#include "common/safe_file.h"

namespace {

constexpr const char* kEventId = "event_id";

// Passes the lines of `file`, the last one first, to `take` until that returns true. The log may
// have grown for years, and its end is all that counts.
template <class Take>
void ForEachLineFromTheEnd(std::ifstream& file, Take take) {
  file.seekg(0, std::ios::end);
  std::string rest;  // what was read and not passed on
  for (std::streamoff start = file.tellg(); start > 0;) {
    // Twice as much each time, so that a line of any length costs no more than its length.
    const auto size =
        std::min<std::streamoff>(start, 4096 + static_cast<std::streamoff>(rest.size()));
    start -= size;
    std::string block(static_cast<std::size_t>(size), '\0');
    file.seekg(start);
    if (!file.read(block.data(), static_cast<std::streamsize>(size))) return;
    rest.insert(0, block);
    for (std::size_t feed = 0; (feed = rest.rfind('\n')) != std::string::npos; rest.resize(feed))
      if (take(std::string_view(rest).substr(feed + 1))) return;
  }
  take(std::string_view(rest));
}

// The snapshot that a line holds, if it is whole.
std::optional<Json::Value> Snapshot(std::string_view line) {
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value parsed;
  try {
    if (reader->parse(line.data(), line.data() + line.size(), &parsed, nullptr) &&
        parsed.isObject())
      return parsed;
  } catch (const Json::Exception&) {
    // This is no better than a line that does not parse.
  }
  return std::nullopt;
}

// The highest event number that a torn line shows; 0 without one.
int EventIdIn(std::string_view line) {
  const std::string key = std::string("\"") + kEventId + "\":";
  int highest = 0;
  for (std::size_t at = 0; (at = line.find(key, at)) != std::string_view::npos;) {
    at += key.size();
    int value = 0;
    std::from_chars(line.data() + at, line.data() + line.size(), value);
    highest = std::max(highest, value);
  }
  return highest;
}

// Whether what is appended to the file gets a line of its own.
bool EndsInALine(const std::string& path) {
  std::ifstream file(path, std::ios::ate);
  if (!file || file.tellg() <= 0) return true;
  file.seekg(-1, std::ios::end);
  return file.get() == '\n';
}

}  // namespace

class RunTimeEventLogger::RunTimeEventLoggerImpl : public PollTimer {
 public:
  explicit RunTimeEventLoggerImpl(std::string path)
      : PollTimer(kPeriodMs, true), path(std::move(path)) {
    state[kMinutes] = 0;
    ReadLastSnapshot();
    NextValue("powercycle_count");
    WriteSnapshot();
  }
  ~RunTimeEventLoggerImpl() override { WriteSnapshot(); }
  RunTimeEventLoggerImpl(const RunTimeEventLoggerImpl&) = delete;
  RunTimeEventLoggerImpl& operator=(const RunTimeEventLoggerImpl&) = delete;

  int NextValue(const std::string& key) {
    Json::Value& counter = state[key];
    // What is no count restarts at 1: somebody may have edited the line.
    const bool goes_on =
        counter.isInt() && counter.asInt() >= 0 && counter.asInt() < Json::Value::maxInt;
    const int next = goes_on ? counter.asInt() + 1 : 1;
    counter = next;
    return next;
  }

  void Expired() override {
    constexpr int kTicksBetweenLines = 14;
    NextValue(kMinutes);
    if (++ticks_since_write > kTicksBetweenLines) {
      WriteSnapshot();
      ticks_since_write = 0;
    }
    SetTimeout(kPeriodMs);
  }
  const char* GetName() override { return "RunTimeEventLogger"; }

 private:
  static constexpr int kPeriodMs = 60'000;
  static constexpr const char* kMinutes = "runtime_minutes";

  void ReadLastSnapshot() {
    std::ifstream file(path);
    int torn_event_id = 0;
    ForEachLineFromTheEnd(file, [&](std::string_view line) {
      const auto snapshot = Snapshot(line);
      if (snapshot)
        state = *snapshot;
      else
        torn_event_id = std::max(torn_event_id, EventIdIn(line));
      return snapshot.has_value();
    });
    // There may be records with numbers up to that one.
    const Json::Value& event_id = std::as_const(state)[kEventId];
    if (torn_event_id > (event_id.isInt() ? event_id.asInt() : 0)) state[kEventId] = torn_event_id;
  }

  void WriteSnapshot() {
    const std::time_t now = std::time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    std::array<char, 32> text = {};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local);
    state["timestamp"] = text.data();
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    // After a power cut or with a full disk, an earlier failure is no reason not to try again.
    AppendToLog(path, (EndsInALine(path) ? "" : "\n") + Json::writeString(compact, state) + "\n");
  }

  std::string path;
  Json::Value state;
  int ticks_since_write = 0;
};

RunTimeEventLogger::RunTimeEventLogger(const std::string& path)
    : impl(std::make_unique<RunTimeEventLoggerImpl>(path)) {}
RunTimeEventLogger::~RunTimeEventLogger() = default;

int RunTimeEventLogger::NextValue(const std::string& key) { return impl->NextValue(key); }
