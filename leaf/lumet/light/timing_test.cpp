#include "leaf/lumet/light/timing.h"

#include "common/test_registry.h"

using namespace self_test;

void OutputRateCases() {
  const struct {
    unsigned modulation_rate, requested, expected;
  } rows[] = {{250000, 25, 25}, {250000, 0, 1}, {250000, 200000, 250000}, {250000, 300000, 250000},
              {250000, 3, 4},   {30000, 3, 3},  {30000, 301, 375},        {250, 126, 250},
              {250, 125, 125},  {1, 2, 1}};
  for (const auto& row : rows)
    ExpectEqual(ComputeOutputRate(row.modulation_rate, row.requested), row.expected,
                std::to_string(row.modulation_rate) + " " + std::to_string(row.requested));
}
