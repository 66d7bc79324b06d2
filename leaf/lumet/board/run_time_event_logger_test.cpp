#include "leaf/lumet/board/run_time_event_logger.h"

#include <sys/resource.h>

#include <utility>

#include "common/temporary_directory.h"
#include "common/test_registry.h"

using namespace self_test;

void RunTimeEventLoggerCases() {
  const TemporaryDirectory directory;
  const std::string path = directory.Path() + "/log";
  // What was there, and the last line up to its timestamp.
  const std::pair<const char*, const char*> rows[] = {
      {"", R"({"event_id":1,"powercycle_count":1,"runtime_minutes":0,)"},
      {"{\"event_id\":41,\"powercycle_count\":5,\"runtime_minutes\":90}\n",
       R"({"event_id":42,"powercycle_count":6,"runtime_minutes":90,)"},
      {"{\"event_id\":41}\n{\"powercycle_count\":\"x\",\"runtime_minutes\":3}\n",
       R"({"event_id":1,"powercycle_count":1,"runtime_minutes":3,)"},
      // Torn lines.
      {"{\"event_id\":41,\"powercycle_count\":5}\n[1]\n\n{\"event_id\":4",
       R"({"event_id":42,"powercycle_count":6,)"},
      {"{\"event_id\":41,\"powercycle_count\":5}\n{\"event_id\":44,\"pow{\"event_id\":43}\n",
       R"({"event_id":45,"powercycle_count":6,)"},
      {"{\"event_id\":44,\"powercycle_c",
       R"({"event_id":45,"powercycle_count":1,"runtime_minutes":0,)"},
  };
  for (const auto& [before, after] : rows) {
    directory.Write("log", before);
    { RunTimeEventLogger(path).NextValue("event_id"); }
    std::istringstream file(directory.Read("log"));
    std::string last;
    for (std::string line; std::getline(file, line);) last = line;
    ExpectEqual(last.substr(0, last.find("\"timestamp\"")), after, before);
  }

  // A torn line stays by itself, and a disk that is full for a while costs the lines of that time.
  const std::string torn = "{\"event_id\":41}\n" + std::string(5000, 'x');
  directory.Write("log", torn);
  struct rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  {
    const struct rlimit full = {torn.size() + 10, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    const RunTimeEventLogger logger(path);
    setrlimit(RLIMIT_FSIZE, &before);
  }
  const std::string start = torn + "\n{\"event_i\n{\"event_id\":41,";
  ExpectEqual(directory.Read("log").substr(0, start.size()), start);
}
