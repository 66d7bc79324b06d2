#include "leaf/lumet/link/sample_clock.h"

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "common/test_registry.h"

namespace {

using namespace self_test;

// Times are the sums of doubles, however they are worked out.
void SumCases() {
  std::mt19937_64 random(3);
  for (const std::uint32_t second : {5U, 1'073'741'000U, 1'795'235'804U, 2'147'480'000U}) {
    SampleClock clock;
    const auto nanoseconds = static_cast<std::int32_t>(random() % 1'000'000'000);
    const RecordTime stamp = {second, nanoseconds};
    const double start = clock.Synchronise(0, stamp);
    for (int i = 0; i < 20'000; ++i) {
      const auto tick = static_cast<std::uint32_t>(random() % 0xFF676980);
      ExpectTrue(clock.Unwrap(tick) == start + tick / 1e6, "time of tick " + std::to_string(tick));
    }
  }
}

void SynchroniseCases() {
  // Each step: the tick and the record's second; the time that comes out, in milliseconds.
  constexpr std::uint32_t kLast = 0xFFFFFFFF;
  const struct {
    const char* name;
    std::vector<std::array<std::uint64_t, 3>> steps;
  } rows[] = {
      {"pulled once, then the processor's own spacing",
       {{1'000'000, 1000, 1'000'000}, {1'500'000, 1000, 1'000'500}, {2'100'000, 1001, 1'001'100}}},
      {"less than a second off stays", {{1'001'000, 2, 1001}, {2'001'000, 3, 2001}}},
      {"a full second off is pulled", {{1'000'000, 2, 2000}, {2'000'000, 2, 3000}}},
      {"no second pull in one second", {{1'000'000, 5, 5000}, {500'000'000, 5, 504'000}}},
      {"a step back of the system clock", {{0, 100, 100'000}, {1'000'000, 50, 50'000}}},
      // 0xFF676980 is 10 s before the wrap exactly, and not yet near it.
      {"not near the wrap", {{0xFF676980, 4284, 4284'967}, {0, 4284, 0}}},
      {"a tick from before the wrap, after it",
       {{0xFF676981, 4284, 4284'967},
        {10'000'000, 4284, 4304'967},
        {kLast, 4284, 4294'967},
        {10'000'001, 4284, 4304'967},
        {20'000'000, 4284, 4314'967},
        {5, 4284, 4294'967}}},
      {"two wraps",
       {{kLast, 4294, 4294'967},
        {20'000'000, 4294, 4314'967},
        {kLast, 4294, 8589'934},
        {0, 4294, 8589'934}}},
  };
  for (const auto& row : rows) {
    SampleClock clock;
    for (const auto& [tick, second, ms] : row.steps) {
      const double time = clock.Synchronise(static_cast<std::uint32_t>(tick),
                                            {static_cast<std::uint32_t>(second), 0});
      ExpectEqual(static_cast<std::uint64_t>(time * 1000 + 0.001), ms, row.name);
    }
  }
}

}  // namespace

void SampleClockCases() {
  SynchroniseCases();
  SumCases();
}
