#include "leaf/lumet/board/diagnostics.h"

#include <cstdint>

#include "common/test_registry.h"

using namespace self_test;

void DiagnosticsCases() {
  const struct {
    float temperature;
    bool console;
    std::uint32_t expected;
  } steps[] = {{69.9F, false, 0x2000}, {70, true, 0x3001},  {74.9F, true, 0x3001},
               {75, false, 0xB000},    {72, false, 0xB000}, {70, false, 0xB000},
               {69.9F, true, 0x2001},  {-40, false, 0x2000}};
  std::uint32_t diag = REDMODOFF;
  for (const auto& step : steps) {
    diag = NextDiagnostics(diag, step.console, step.temperature);
    ExpectEqual(diag, step.expected, std::to_string(step.temperature));
  }
  const struct {
    int step;
    float temperature;
    int next;
  } fan[] = {{0, 32, 0}, {0, 32.1F, 1}, {0, 90, 1},    {1, 28, 1},  {1, 27.9F, 0},
             {1, 42, 1}, {1, 42.1F, 2}, {3, 47.9F, 2}, {3, 100, 3}, {0, -20, 0}};
  for (const auto& row : fan)
    ExpectEqual(FanStepper::NextStep(row.step, row.temperature), row.next,
                std::to_string(row.step) + " at " + std::to_string(row.temperature));
}
