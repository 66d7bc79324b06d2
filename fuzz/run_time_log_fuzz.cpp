// Whatever a cut of the power or a hand leaves of the run-time log, the counts go on, and nothing
// that stands there is lost.

#include "common/temporary_directory.h"
#include "fuzz/fuzz_target.h"
#include "leaf/lumet/board/run_time_event_logger.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory directory;
  const std::string before(reinterpret_cast<const char*>(data), size);
  directory.Write("log", before);
  int event = 0;
  const auto start = [&] {
    RunTimeEventLogger log(directory.Path() + "/log");
    event = log.NextValue("event_id");
    return log.NextValue("powercycle_count");
  };
  const int count = start();
  const int first_event = event;
  Check(count >= 1 && first_event >= 1);
  const std::string after = directory.Read("log");
  Check(after.starts_with(before) && after.ends_with("}\n"));

  // What it has written, it reads; counters that have come to their end begin anew.
  const int next = start();
  Check(event - 1 == first_event || event == 1);
  Check(next - 2 == count || next <= 2);
  // A torn line does not stop that, and its number is not given again.
  directory.Write("log", directory.Read("log") + "{\"event_id\":" + std::to_string(event));
  Check(start() >= 1);
  return 0;
}
