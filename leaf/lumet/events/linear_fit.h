#pragma once

#include <cstddef>
#include <vector>

// Least squares of y on x in one pass of running means in double precision (the updating formulas
// of Welford 1962 and of Chan, Golub and LeVeque 1983).
// Protocol: the moments are kept as means, and the standard errors are worked out from them as they
// are; readers of records compare them over the years.
class RunningFit {
 public:
  void Add(float x, float y);

  // Each result may be null. With fewer than two points all are 0, with two the standard errors
  // are. The intercept goes with the slope as it is returned, in single precision.
  void Results(float* slope, float* intercept, float* r2, float* slope_se,
               float* intercept_se) const;

 private:
  std::size_t count = 0;
  double mean_x = 0;
  double mean_y = 0;
  double sxx = 0;
  double syy = 0;
  double sxy = 0;
};

// The same for `y` on `x`, over as many points as both have.
void LinearFit(const std::vector<float>& x, const std::vector<float>& y, float* slope,
               float* intercept, float* r2, float* slope_se, float* intercept_se);
