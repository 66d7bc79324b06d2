#include "leaf/lumet/events/linear_fit.h"

#include <algorithm>
#include <cmath>

namespace {

void Give(float* to, double value) {
  if (to != nullptr) *to = static_cast<float>(value);
}

}  // namespace

void RunningFit::Add(float x, float y) {
  const auto n = static_cast<double>(++count);
  if (count == 1) {
    mean_x = x;
    mean_y = y;
    return;
  }
  const double k = static_cast<double>(count - 1) / n;
  const double dx = x - mean_x;
  const double dy = y - mean_y;
  sxx += (k * dx * dx - sxx) / n;
  syy += (k * dy * dy - syy) / n;
  sxy += (dy * (k * dx) - sxy) / n;
  mean_x += dx / n;
  mean_y += dy / n;
}

void RunningFit::Results(float* slope, float* intercept, float* r2, float* slope_se,
                         float* intercept_se) const {
  for (float* result : {slope, intercept, r2, slope_se, intercept_se}) Give(result, 0);
  if (count < 2) return;
  const auto n = static_cast<double>(count);
  const auto fitted_slope = static_cast<float>(sxy / sxx);
  const auto r = static_cast<float>((n * sxy) / (std::sqrt(n * sxx) * std::sqrt(n * syy)));
  const float r_squared = r * r;
  Give(slope, fitted_slope);
  Give(r2, r_squared);
  Give(intercept, mean_y - fitted_slope * mean_x);
  if (count == 2) return;
  const auto variance = static_cast<float>((1 - double{r_squared}) * syy / (n - 2));
  Give(slope_se, std::sqrt(variance / sxx));
  Give(intercept_se, std::sqrt(variance * (mean_x * mean_x / sxx + 1)));
}

void LinearFit(const std::vector<float>& x, const std::vector<float>& y, float* slope,
               float* intercept, float* r2, float* slope_se, float* intercept_se) {
  RunningFit fit;
  for (std::size_t i = 0; i < std::min(x.size(), y.size()); ++i) fit.Add(x[i], y[i]);
  fit.Results(slope, intercept, r2, slope_se, intercept_se);
}
