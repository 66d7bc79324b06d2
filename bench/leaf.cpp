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
      {"stressed", {.fo = 0.38, .k_x = 60, .n_max = 4, .n_half = 300, .adapted_to = 1200}},
      // Absorbs nothing.
      {"none", {.fo = 0, .sigma = 0, .n_max = 0}},
  };
  return leaves;
}

// One step of dx/dt = gain (1 - x) - loss x that is stable for any length.
double Relax(double x, double gain, double loss, double dt) {
  return (x + dt * gain) / (1 + dt * (gain + loss));
}

// What `x` comes to after `dt` on its way to `target`.
double Approach(double x, double target, double time, double dt) {
  return target + (x - target) * std::exp(-dt / time);
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

Leaf::Leaf(const Parameters& leaf_parameters) : parameters(leaf_parameters) {
  constexpr double kLong = 3600;  // s
  Advance(kLong, parameters.adapted_to, 0);
}

void Leaf::Advance(double seconds, double q, double q_farred) {
  constexpr double kLongestStep = 1e-3;  // s
  constexpr double kPoolsSettle = 1;     // s
  constexpr double kLongestStretch = 5;  // s, in which what is slow stands nearly still
  for (; seconds > kLongestStretch; seconds -= kLongestStretch)
    Advance(kLongestStretch, q, q_farred);
  // The pools follow within a second; of a longer time only the end counts for them.
  const double followed = std::min(seconds, kPoolsSettle);
  const double steps = std::ceil(followed / kLongestStep);
  for (double i = 0; i < steps; ++i) StepPools(followed / steps, q, q_farred);

  const double acidified = q * q / (q * q + parameters.n_half * parameters.n_half);
  acidity = Approach(acidity, acidified, parameters.acidity_time, seconds);
  const double quenched = parameters.n_max * acidity;
  quenching = Approach(quenching, quenched,
                       quenched > quenching ? parameters.n_rise : parameters.n_fall, seconds);
  const double activated =
      std::max(parameters.activation_dark, q / (q + parameters.activation_half));
  activation = Approach(activation, activated, parameters.activation_time, seconds);
}

void Leaf::StepPools(double dt, double q, double q_farred) {
  qa = Relax(qa, parameters.sigma * q, parameters.k_ap * (1 - pq), dt);
  const double into_pq = parameters.k_ap * qa / parameters.n_p;
  const double out_of_pq =
      (parameters.k_px * (1 - psi) + parameters.k_farred * q_farred) / parameters.n_p;
  pq = Relax(pq, into_pq, out_of_pq, dt);
  psi = Relax(psi, parameters.k_px * pq / parameters.n_x,
              parameters.k_x * activation / parameters.n_x, dt);
}

double Leaf::Fo() const {
  const double fv_to_fm = 1 - parameters.fo;
  return parameters.fo / (fv_to_fm + parameters.fo / Fm());
}

double Leaf::Fluorescence() const {
  if (parameters.sigma == 0) return 0;
  const double closed = (1 - parameters.connectivity) * qa / (1 - parameters.connectivity * qa);
  return Fo() + (Fm() - Fo()) * closed;
}
