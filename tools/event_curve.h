#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "client/event_record.h"

// What is taken from the samples of an event for a drawing and a table.

struct Points {
  std::vector<double> x;
  std::vector<double> y;
};

// No more than about `most` points that look the same as a line through all: of each of as many
// equal runs the lowest and the highest, in their order. Points that are no numbers are left out.
Points Thinned(const Points& all, std::size_t most);
// For a logarithmic axis: the means over steps of x, `per_decade` of them in each tenfold. Points
// without a positive x are left out.
Points ThinnedByDecade(const Points& all, int per_decade);

// F in the margin before the light or the dark of an event.
struct BeforeEvent {
  double F = 0;        // mean, counts
  double F_error = 0;  // its standard error
  double PFD = 0;      // mean, µmol/m²/s
  // The part of it that is measuring light, which is at the rate of the event already: F is higher
  // in it than it was before the margin.
  double measuring = 0;
  std::size_t samples = 0;
};
// Nothing for an event without a margin.
std::optional<BeforeEvent> BeforeOf(const EventRecord& event);

// The fast rise of F in an induction, with its steps: O at 20 µs of light or at the first sample
// after that, J at 2 ms, I at 30 ms, and P, the highest F (Strasser, Srivastava and Govindjee
// 1995). F is the mean over a tenth of the time before and after each, so that the noise of single
// samples does not show.
struct FastRise {
  struct Step {
    const char* name = "";
    double time = 0;  // s of light
    double F = 0;     // counts
  };

  Points curve;  // F over seconds of light, in steps of a hundredth of a decade
  Points light;  // PFD, likewise
  std::array<Step, 4> steps;

  // How far F has risen at a step: 0 at O, 1 at P.
  double V(const Step& step) const {
    return (step.F - steps.front().F) / (steps.back().F - steps.front().F);
  }
};
// Nothing for another event, and for one that is over before I.
std::optional<FastRise> FastRiseOf(const EventRecord& event);
