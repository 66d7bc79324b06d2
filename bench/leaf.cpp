#include "bench/leaf.h"

#include <algorithm>
#include <cmath>

namespace {

struct NamedLeaf {
  const char* name;
  Leaf::Parameters parameters;
};

const std::vector<NamedLeaf>& NamedLeaves() {
  static const std::vector<NamedLeaf> leaves = {
      {"dark-adapted", {}},
      {"sunlit", {.adapted_to = 800}},
      // Harmed by too much light: less to rise to, and most of it quenched.
      {"stressed",
       {.k_px = 180,
        .k_p700 = 600,
        .k_x = 400,
        .n_max = 4,
        .n_half = 400,
        .health = 0.42,
        .adapted_to = 1200}},
      // Grown in the shade: large antennae, few carriers of electrons, quenches early. Rested.
      {"shade",
       {.sigma = 0.5,
        .k_px = 240,
        .k_p700 = 850,
        .k_x = 1300,
        .n_x = 24,
        .phi_r = 0.3,
        .phi_e = 0.14,
        .n_max = 1.8,
        .n_half = 450}},
      // Grown in the sun: the reverse. Rested.
      {"sun",
       {.sigma = 0.45,
        .k_px = 328,
        .k_p700 = 1300,
        .k_x = 5200,
        .n_x = 33,
        .n_max = 3,
        .n_half = 1100,
        .activation_dark = 0.0085}},
      // Absorbs nothing.
      {"none", {.fo = 0, .sigma = 0, .n_max = 0}},
  };
  return leaves;
}

double Square(double x) { return x * x; }

// `x` after `dt` of dx/dt = gain (1 - x) - loss x.
double Relax(double x, double gain, double loss, double dt) {
  const double rate = gain + loss;
  if (rate == 0) return x;
  const double target = gain / rate;
  return target + (x - target) * std::exp(-rate * dt);
}

// `x` on its way to `target` after `dt`, which is short compared with `time`.
double Approach(double x, double target, double time, double dt) {
  return x + (target - x) * dt / (time + dt / 2);
}

Leaf::Pools Moved(const Leaf::Pools& from, const Leaf::Pools& by, double times) {
  return {from.qa + times * by.qa, from.pq + times * by.pq, from.psi + times * by.psi};
}

double Warmth(double temperature) {
  constexpr double kReference = 25;  // °C
  constexpr double kOptimum = 35;    // °C
  constexpr double kWidth = 18;      // °C
  return std::exp(Square((kReference - kOptimum) / kWidth) -
                  Square((temperature - kOptimum) / kWidth));
}

}  // namespace

std::vector<std::string> Leaf::Names() {
  std::vector<std::string> names;
  for (const NamedLeaf& leaf : NamedLeaves()) names.emplace_back(leaf.name);
  return names;
}

std::optional<Leaf> Leaf::Named(const std::string& name) {
  for (const NamedLeaf& leaf : NamedLeaves())
    if (name == leaf.name) return Leaf(leaf.parameters);
  return std::nullopt;
}

Leaf::Leaf(const Parameters& parameters)
    : parameters(parameters), activation(parameters.activation_dark) {
  SetEnvironment({});
  constexpr double kLong = 3600;  // s
  if (parameters.adapted_to > 0) Advance(kLong, parameters.adapted_to, 0);
}

void Leaf::SetEnvironment(const Environment& environment) {
  health = parameters.health * environment.health;
  warmth = Warmth(environment.temperature);
}

void Leaf::Advance(double seconds, double q, double q_farred) {
  constexpr double kLongestStep = 0.1;  // s, in which what is slow hardly changes
  while (seconds > 0) {
    const double sigma = parameters.sigma * (1 - Fo() / Fm()) / (1 - parameters.fo);
    const double absorbed = parameters.k_psi * q + parameters.k_farred * q_farred;
    const double light_psi = absorbed / (1 + absorbed / parameters.k_p700);
    const double dt = FillPools(std::min(seconds, kLongestStep), sigma * q, light_psi);
    FollowLight(dt, q);
    seconds -= dt;
  }
}

// Changes of A, P and X, 1/s, and their derivatives: those by other than neighbours are 0.
struct Leaf::Slopes {
  Slopes(const Leaf& leaf, const Pools& at, double light, double light_psi);
  // Solves (1 - h J) k = right, with J the derivatives.
  Pools Solve(double h, const Pools& right) const;

  Pools change;
  double qa_by_qa, qa_by_pq, pq_by_qa, pq_by_pq, pq_by_psi, psi_by_pq, psi_by_psi;
};

Leaf::Slopes::Slopes(const Leaf& leaf, const Pools& at, double light, double light_psi) {
  const Parameters& c = leaf.parameters;
  const double spread = 1 - c.connectivity * at.qa;
  const double bound = (1 + c.k_m) / (1 - at.pq + c.k_m);
  const double to_pq = c.k_ap * (at.qa * (1 - at.pq) * bound - at.pq * (1 - at.qa) / c.k_eq);
  const double to_pq_by_qa = c.k_ap * ((1 - at.pq) * bound + at.pq / c.k_eq);
  const double to_pq_by_pq =
      -c.k_ap * (at.qa * bound * c.k_m / (1 - at.pq + c.k_m) + (1 - at.qa) / c.k_eq);
  // The share of each of the two that limit the flow to PSI.
  const double drawn = light_psi * (1 - at.psi);
  const double k_px = c.k_px * leaf.warmth;
  const double both = drawn + k_px * at.pq;
  const double share_of_drawn = both > 0 ? drawn / both : 0;
  const double share_of_pq = both > 0 ? 1 - share_of_drawn : 0;
  const double to_psi = k_px * at.pq * share_of_drawn;
  const double to_psi_by_pq = k_px * share_of_drawn * share_of_drawn;
  const double to_psi_by_psi = -light_psi * share_of_pq * share_of_pq;
  const double k_x = c.k_x * leaf.warmth * leaf.activation;

  change = {light * (1 - at.qa) / spread - to_pq, (to_pq - to_psi - c.k_ox * at.pq) / c.n_p,
            (to_psi - k_x * at.psi) / c.n_x};
  qa_by_qa = -light * (1 - c.connectivity) / (spread * spread) - to_pq_by_qa;
  qa_by_pq = -to_pq_by_pq;
  pq_by_qa = to_pq_by_qa / c.n_p;
  pq_by_pq = (to_pq_by_pq - to_psi_by_pq - c.k_ox) / c.n_p;
  pq_by_psi = -to_psi_by_psi / c.n_p;
  psi_by_pq = to_psi_by_pq / c.n_x;
  psi_by_psi = (to_psi_by_psi - k_x) / c.n_x;
}

Leaf::Pools Leaf::Slopes::Solve(double h, const Pools& right) const {
  const double qa_pivot = 1 - h * qa_by_qa;
  const double pq_pivot = 1 - h * pq_by_pq - h * qa_by_pq * h * pq_by_qa / qa_pivot;
  const double psi_pivot = 1 - h * psi_by_psi - h * pq_by_psi * h * psi_by_pq / pq_pivot;
  const double pq_right = right.pq + h * pq_by_qa * right.qa / qa_pivot;
  Pools k;
  k.psi = (right.psi + h * psi_by_pq * pq_right / pq_pivot) / psi_pivot;
  k.pq = (pq_right + h * pq_by_psi * k.psi) / pq_pivot;
  k.qa = (right.qa + h * qa_by_pq * k.pq) / qa_pivot;
  return k;
}

// Filling runs from microseconds to seconds, and the equations are stiff: a Rosenbrock method of
// second order, L-stable, that estimates its error (ROS2; Verwer et al. 1999, SIAM J. Sci.
// Comput. 20:1456).
double Leaf::FillPools(double longest, double light, double light_psi) {
  constexpr double kTolerance = 1e-4;             // of all pools together, in one step
  constexpr double kGamma = 0.29289321881345254;  // 1 - sqrt(1/2)
  const Slopes slopes(*this, pools, light, light_psi);
  double dt = std::min(step, longest);
  Pools filled;
  for (bool good = false; !good;) {
    const Pools k1 = slopes.Solve(kGamma * dt, slopes.change);
    const Pools ahead = Moved(pools, k1, dt);
    const Pools f = Slopes(*this, ahead, light, light_psi).change;
    const Pools k2 = slopes.Solve(kGamma * dt, Moved(f, k1, -2));
    filled = Moved(Moved(pools, k1, 1.5 * dt), k2, 0.5 * dt);
    const double error = std::abs(filled.qa - ahead.qa) + std::abs(filled.pq - ahead.pq) +
                         std::abs(filled.psi - ahead.psi);
    good = error <= kTolerance;
    // What went out of all bounds is NaN, and is also tried again with a shorter step.
    step =
        dt * (std::isnan(error) ? 0.2 : std::clamp(0.9 * std::sqrt(kTolerance / error), 0.2, 5.0));
    if (!good) dt = step;
  }
  // The pools on average over the step.
  const Pools mean = {(pools.qa + filled.qa) / 2, (pools.pq + filled.pq) / 2,
                      (pools.psi + filled.psi) / 2};
  const Parameters& c = parameters;
  ready = Relax(ready, c.k_r * mean.qa * mean.pq * mean.pq, c.k_open * (1 - mean.qa), dt);
  energised = Relax(energised, c.k_e * mean.psi, c.k_rest, dt);
  pools = filled;
  return dt;
}

void Leaf::FollowLight(double dt, double q) {
  const double excess = Square(Square(q / (parameters.n_half * warmth)));
  acidity = Approach(acidity, excess / (1 + excess), parameters.acidity_time, dt);
  const double quenched = parameters.n_max * acidity;
  quenching = Approach(quenching, quenched,
                       quenched > quenching ? parameters.n_rise : parameters.n_fall, dt);
  const double activated =
      std::max(parameters.activation_dark, q / (q + parameters.activation_half));
  activation = Approach(activation, activated, parameters.activation_time, dt);
}

double Leaf::Fo() const {
  const double fv_to_fm = 1 - parameters.fo;
  return parameters.fo / (fv_to_fm + parameters.fo / Fm());
}

double Leaf::Fluorescence() const {
  if (parameters.sigma == 0) return 0;
  const double closed =
      (1 - parameters.connectivity) * pools.qa / (1 - parameters.connectivity * pools.qa);
  const double yield = 1 - parameters.phi_r * (1 - ready) - parameters.phi_e * (1 - energised);
  return Fo() + (Fm() - Fo()) * closed * yield;
}
