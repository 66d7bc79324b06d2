#pragma once

#include <functional>
#include <vector>

// Thins rows of samples for the eye: what comes no faster than `spacing` passes as it is. Of what
// comes faster, the rows with the least and the highest F in each span of twice the spacing pass,
// in their order, so that no peak is lost and no more than one row per spacing remains.
class Thinner {
 public:
  // The row's values, TIME first; valid during the call.
  using Sink = std::function<void(const std::vector<double>&)>;

  // `spacing` in seconds.
  Thinner(double spacing, Sink sink) : spacing(spacing), sink(std::move(sink)) {}

  // Takes a row whose F stands at `f_column`. A clock that was set back begins anew.
  void Put(const std::vector<double>& row, std::size_t f_column);

 private:
  void Release();

  double spacing;
  Sink sink;
  double last_time = 0;
  double span_start = 0;
  std::size_t f = 0;
  std::vector<double> least;    // of the open span; empty if there is none
  std::vector<double> highest;  // the same
};
