// What a long event costs the head: an induction flash of 3 s at 250 000 samples a second. How long
// its loop stands still at a time while the record is made, first for its length and then for the
// broker, and how much memory all that takes.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "benchmarks/figure.h"
#include "leaf/lumet/events/event_recorder.h"

namespace {

double PeakBytes() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

}  // namespace

int main() {
  constexpr int kSamples = 750'000;
  const double before = PeakBytes();
  EventRecorder events;
  for (int i = 0; i < kSamples; ++i) {
    DataSample sample;
    sample.time = 1795248523.25 + i * 4e-6;
    sample.code = 3;
    sample.values = {400 + static_cast<float>(i % 997) * 0.913F, 16055.6F, 16055.8F,
                     8265.6F + static_cast<float>(i % 31), 242.05F};
    events.Gather(sample);
  }
  const double gathered = PeakBytes() - before;

  ConfigTavo tavo;
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const auto record = events.WriteEvent(tavo, {1, FlashMode::kInduction, 250'000, 50});
  double longest = std::chrono::duration<double>(Clock::now() - start).count();
  double total = longest;
  std::size_t length = 0;
  for (int pass = 0; pass < 2; ++pass) {
    length = 0;
    record->Rewind();
    while (true) {
      const auto begin = Clock::now();
      const std::size_t more = record->Next().size();
      const double taken = std::chrono::duration<double>(Clock::now() - begin).count();
      longest = std::max(longest, taken);
      total += taken;
      length += more;
      if (more == 0) break;
    }
  }
  const double peak = PeakBytes() - before;

  Tell(WithLimit({.name = "event-standstill",
                  .meaning = "standstill of the loop at a time",
                  .kind = Figure::Kind::kTime,
                  .unit = "s",
                  .ours = longest},
                 0.10));
  Tell({.name = "event-writing",
        .meaning = "making the record, in all",
        .kind = Figure::Kind::kTime,
        .unit = "s",
        .ours = total});
  const auto tell_memory = [](const char* name, const char* meaning, double bytes, double limit) {
    Tell(WithLimit({.name = name,
                    .meaning = meaning,
                    .kind = Figure::Kind::kMemory,
                    .unit = "bytes a sample",
                    .ours = bytes / kSamples},
                   limit));
  };
  tell_memory("event-record", "its record's text", static_cast<double>(length), 0);
  tell_memory("event-gathered", "to gather it", gathered, 36);
  tell_memory("event-peak", "at most, with text and library", peak, 60);
}
