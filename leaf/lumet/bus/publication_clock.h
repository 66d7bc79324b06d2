#pragma once

// Tells when to publish, by the time of the samples, in seconds: once a period, and when that time
// steps back by more than a second. Small steps are waited out. True once for each publication;
// `last_time` is the time of the latest.
inline bool PublicationIsDue(double& last_time, double time, double period) {
  const double passed = time - last_time;
  if (passed < period && passed >= -1.0) return false;
  last_time = time;
  return true;
}
