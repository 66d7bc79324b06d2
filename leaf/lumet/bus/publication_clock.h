#pragma once

// Tells when to publish, by the time of the samples: once a period, and when that time steps back
// by more than a second. Small steps are waited out.
class PublicationClock {
 public:
  // In seconds.
  explicit PublicationClock(double seconds) : period(seconds) {}

  // True once for each publication.
  bool IsDue(double time) {
    const double passed = time - last;
    if (passed < period && passed >= -1.0) return false;
    last = time;
    return true;
  }

 private:
  double period;
  double last = 0;
};
