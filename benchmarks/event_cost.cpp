// What a long event costs the head: an induction flash of 3 s at 250 000 samples a second. How long
// its loop stands still while the record is made, and how much memory that takes beyond the record.

#include <sys/resource.h>

#include <chrono>
#include <sstream>
#include <string>
#include <utility>

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
  const auto start = std::chrono::steady_clock::now();
  std::string room;
  room.reserve(events.RecordRoom());
  std::ostringstream out(std::move(room));
  events.WriteEvent(out, tavo, {1, FlashMode::kInduction, 250'000, 50});
  const std::string record = std::move(out).str();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  const double peak = PeakBytes() - before;

  const auto length = static_cast<double>(record.size());
  Tell(WithLimit({.name = "event-standstill",
                  .meaning = "standstill of the loop",
                  .kind = Figure::Kind::kTime,
                  .unit = "s",
                  .ours = taken.count()},
                 0.10));
  const auto tell_memory = [](const char* name, const char* meaning, double bytes, double limit) {
    Tell(WithLimit({.name = name,
                    .meaning = meaning,
                    .kind = Figure::Kind::kMemory,
                    .unit = "bytes a sample",
                    .ours = bytes / kSamples},
                   limit));
  };
  tell_memory("event-record", "its record's text", length, 0);
  tell_memory("event-gathered", "to gather it", gathered, 36);
  tell_memory("event-peak", "at most, beyond the record's text", peak - length, 0);
}
