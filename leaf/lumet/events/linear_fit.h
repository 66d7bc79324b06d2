#pragma once

#include <vector>

// Least squares of `y` on `x`, over as many points as both have, in one pass of running means in
// double precision (the updating formulas of Welford 1962 and of Chan, Golub and LeVeque 1983).
// Protocol: the moments are kept as means, and the standard errors are worked out from them as they
// are; readers of records compare them over the years.
//
// Each result may be null. With fewer than two points all are 0, with two the standard errors are.
// The intercept goes with the slope as it is returned, in single precision.
void LinearFit(const std::vector<float>& x, const std::vector<float>& y, float* slope,
               float* intercept, float* r2, float* slope_se, float* intercept_se);
