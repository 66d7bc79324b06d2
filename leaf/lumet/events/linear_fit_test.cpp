#include "leaf/lumet/events/linear_fit.h"

#include <vector>

#include "common/test_registry.h"

using namespace self_test;

void LinearFitCases() {
  // By hand: the sums of squares about the means are 5 and 18.75, that of products 9.5.
  const struct {
    std::vector<float> x, y;
    const char* expected;
  } rows[] = {
      {{1, 2, 3, 4, 99}, {3, 5, 6, 9}, "1.9 1 0.962667 0.264575 0.724569"},
      {{1, 3}, {5, 1}, "-2 7 1 0 0"},
      {{7}, {5}, "0 0 0 0 0"},
      {{}, {}, "0 0 0 0 0"},
  };
  for (const auto& row : rows) {
    float slope = -1;
    float intercept = -1;
    float r2 = -1;
    float slope_se = -1;
    float intercept_se = -1;
    LinearFit(row.x, row.y, &slope, &intercept, &r2, &slope_se, &intercept_se);
    std::ostringstream fit;
    fit << slope << " " << intercept << " " << r2 << " " << slope_se << " " << intercept_se;
    ExpectEqual(fit.str(), row.expected);
  }
  float alone = 0;
  LinearFit({1, 2}, {1, 3}, &alone, nullptr, nullptr, nullptr, nullptr);
  ExpectEqual(alone, 2.0F);
}
