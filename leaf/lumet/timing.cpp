#include "leaf/lumet/timing.h"

#include <algorithm>

unsigned ComputeOutputRate(unsigned modulation_rate, unsigned requested) {
  if (requested == 0) return 1;
  const unsigned divisor = std::clamp(modulation_rate / requested, 1U, modulation_rate);
  const unsigned nearest = modulation_rate / divisor;
  if (divisor * nearest == modulation_rate) return nearest;
  // Both ways from the request, the smaller divisor first.
  unsigned up = nearest + 1;
  for (unsigned down = divisor - 1; down > 0 && up <= modulation_rate; --down, ++up) {
    if (modulation_rate % down == 0) return modulation_rate / down;
    if (modulation_rate % up == 0) return up;
  }
  return nearest;
}
