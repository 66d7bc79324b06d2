#include "tools/event_curve.h"

#include <algorithm>
#include <cmath>

#include "leaf/lumet/link/sample.h"

namespace {

bool IsNumber(const Points& points, std::size_t i) {
  return std::isfinite(points.x[i]) && std::isfinite(points.y[i]);
}

// The mean of y where x is within a tenth of `x`; where nothing is, the next y after it.
double Around(const Points& points, double x) {
  const auto place = [&](double at) {
    return std::lower_bound(points.x.begin(), points.x.end(), at) - points.x.begin();
  };
  const auto from = place(x / 1.1);
  const auto to = std::max(place(x * 1.1), from + 1);
  double sum = 0;
  for (auto i = from; i < to; ++i) sum += points.y[static_cast<std::size_t>(i)];
  return sum / static_cast<double>(to - from);
}

}  // namespace

Points Thinned(const Points& all, std::size_t most) {
  Points few;
  const std::size_t run = std::max<std::size_t>(1, 2 * all.x.size() / most);
  for (std::size_t first = 0; first < all.x.size(); first += run) {
    std::optional<std::size_t> low;
    std::optional<std::size_t> high;
    for (std::size_t i = first; i < std::min(first + run, all.x.size()); ++i) {
      if (!IsNumber(all, i)) continue;
      if (!low || all.y[i] < all.y[*low]) low = i;
      if (!high || all.y[i] > all.y[*high]) high = i;
    }
    if (!low) continue;
    for (const std::size_t i : {std::min(*low, *high), std::max(*low, *high)}) {
      few.x.push_back(all.x[i]);
      few.y.push_back(all.y[i]);
      if (low == high) break;
    }
  }
  return few;
}

Points ThinnedByDecade(const Points& all, int per_decade) {
  Points few;
  double last_step = 0;
  double count = 0;
  for (std::size_t i = 0; i < all.x.size(); ++i) {
    if (!IsNumber(all, i) || all.x[i] <= 0) continue;
    const double step = std::floor(std::log10(all.x[i]) * per_decade);
    if (count == 0 || step != last_step) {
      few.x.push_back(0);
      few.y.push_back(0);
      count = 0;
    }
    last_step = step;
    ++count;
    few.x.back() += (all.x[i] - few.x.back()) / count;
    few.y.back() += (all.y[i] - few.y.back()) / count;
  }
  return few;
}

std::optional<BeforeEvent> BeforeOf(const EventRecord& event) {
  BeforeEvent before;
  double squares = 0;
  for (std::size_t i = 0; i < event.curve.code.size(); ++i) {
    const int code = event.curve.code[i];
    const double F = event.curve.fluorescence[i];
    if (code != kBeforeFlash && code != kBeforeDark) break;
    if (!std::isfinite(F)) continue;
    const auto count = static_cast<double>(++before.samples);
    const double change = F - before.F;
    before.F += change / count;
    squares += change * (F - before.F);
    before.PFD += (event.curve.pfd[i] - before.PFD) / count;
    before.measuring += (event.curve.redmodavg[i] - before.measuring) / count;
  }
  if (before.samples == 0) return std::nullopt;
  const auto count = static_cast<double>(before.samples);
  if (count > 1) before.F_error = std::sqrt(squares / (count - 1) / count);
  return before;
}

std::optional<FastRise> FastRiseOf(const EventRecord& event) {
  constexpr double kO = 20e-6;
  constexpr double kJ = 2e-3;
  constexpr double kI = 30e-3;
  constexpr int kPerDecade = 100;
  const EventRecord::Curve& curve = event.curve;
  const auto lit = std::find(curve.code.begin(), curve.code.end(), kFlash) - curve.code.begin();
  const auto first = static_cast<std::size_t>(lit);
  if (event.type != "INDUCTION" || first + 1 >= curve.code.size()) return std::nullopt;
  // A sample is the mean of the time since the one before it.
  const double start =
      first > 0 ? curve.seconds[first - 1] : 2 * curve.seconds[first] - curve.seconds[first + 1];
  Points all;
  Points light;
  for (std::size_t i = first; i < curve.code.size() && curve.code[i] == kFlash; ++i) {
    if (!std::isfinite(curve.fluorescence[i])) continue;
    all.x.push_back(curve.seconds[i] - start);
    all.y.push_back(curve.fluorescence[i]);
    light.x.push_back(all.x.back());
    light.y.push_back(curve.pfd[i]);
  }
  if (all.x.empty() || all.x.back() < kI) return std::nullopt;
  FastRise rise{ThinnedByDecade(all, kPerDecade), ThinnedByDecade(light, kPerDecade / 10), {}};
  const auto highest = static_cast<std::size_t>(
      std::max_element(rise.curve.y.begin(), rise.curve.y.end()) - rise.curve.y.begin());
  const double o = std::max(kO, all.x.front());
  rise.steps = {{{"O", o, Around(all, o)},
                 {"J", kJ, Around(all, kJ)},
                 {"I", kI, Around(all, kI)},
                 {"P", rise.curve.x[highest], rise.curve.y[highest]}}};
  return rise;
}
