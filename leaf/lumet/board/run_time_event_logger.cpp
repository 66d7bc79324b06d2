#include "leaf/lumet/board/run_time_event_logger.h"

#include <json/json.h>

#include <array>
#include <ctime>
#include <fstream>

#include "common/poll_processor.h"

class RunTimeEventLogger::RunTimeEventLoggerImpl : public PollTimer {
 public:
  explicit RunTimeEventLoggerImpl(const std::string& path)
      : PollTimer(kPeriodMs, true), output(path, std::ios::app) {
    state[kMinutes] = 0;
    ReadLastLine(path);
    NextValue("powercycle_count");
    WriteSnapshot();
  }
  ~RunTimeEventLoggerImpl() override { WriteSnapshot(); }
  RunTimeEventLoggerImpl(const RunTimeEventLoggerImpl&) = delete;
  RunTimeEventLoggerImpl& operator=(const RunTimeEventLoggerImpl&) = delete;

  int NextValue(const std::string& key) {
    Json::Value& counter = state[key];
    // What is no number, as in a line that somebody has edited, starts anew.
    const int next =
        counter.isInt() && counter.asInt() < Json::Value::maxInt ? counter.asInt() + 1 : 1;
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

  void ReadLastLine(const std::string& path) {
    std::ifstream file(path);
    std::string last;
    for (std::string line; std::getline(file, line);) last = line;
    Json::Value parsed;
    try {
      const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
      if (reader->parse(last.data(), last.data() + last.size(), &parsed, nullptr) &&
          parsed.isObject())
        state = parsed;
    } catch (const Json::Exception&) {
      // As good as a line that does not parse: the counters start anew.
    }
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
    output << Json::writeString(compact, state) << std::endl;
  }

  std::ofstream output;
  Json::Value state;
  int ticks_since_write = 0;
};

RunTimeEventLogger::RunTimeEventLogger(const std::string& path)
    : impl(std::make_unique<RunTimeEventLoggerImpl>(path)) {}
RunTimeEventLogger::~RunTimeEventLogger() = default;

int RunTimeEventLogger::NextValue(const std::string& key) { return impl->NextValue(key); }
