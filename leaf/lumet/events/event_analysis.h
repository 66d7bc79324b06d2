#pragma once

#include <limits>

#include "leaf/lumet/events/event_samples.h"

// What the samples of one flash or dark pulse show.

// The highest and the lowest of a run of values, of which the first few count for nothing.
struct ValueRange {
  explicit ValueRange(int skip) : skip(skip) {}
  void Add(float value);

  int skip;
  float max = std::numeric_limits<float>::lowest();
  float min = std::numeric_limits<float>::max();
};

// The results of a phase that never came keep their initial values. F is fluorescence (LUMET), Q is
// PFD in µmol/m²/s.
struct EventAnalysis {
  // The family of the last sample that belongs to one.
  enum Kind { kNone = 0, kFlash = 3, kMultiPhase = 4, kDark = 12 };
  Kind kind = kNone;

  float q_max = std::numeric_limits<float>::lowest();  // of a flash
  float q_min = std::numeric_limits<float>::max();     // of a dark pulse
  ValueRange rect{5};
  ValueRange dark{2};  // after the far-red light

  // Of a multiphase flash: F in the phases of full light, and the fit of F on 10000/Q while the
  // light ramps down in phase 2. The intercept, at infinite light, is the best estimate of Fm'
  // (Loriaux et al. 2013, Plant Cell Environ. 36:1755).
  ValueRange p1{5};
  ValueRange p3{5};
  float p2_slope = 0;
  float p2_intercept = 0;
  float p2_r2 = 0;
  float p2_slope_se = 0;
  float p2_intercept_se = 0;
  float p2_dqdt = 0;  // mol/m²/s per second
  float p3_q = std::numeric_limits<float>::lowest();
  float p3_predicted_f = 0;  // by the fit, at p3_q

  float FMax() const;
  float P3DeltaF() const { return p3.max - p3_predicted_f; }
};

EventAnalysis AnalyseEvent(const EventSamples& samples);
