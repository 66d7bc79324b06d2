#include "common/memory.h"

#include <malloc.h>

#include <utility>

void ReturnLargeMemory() {
  // Set by hand, it stays where it is: left alone, it grows with the pieces that are freed.
  constexpr int kLarge = 128 * 1024;
  mallopt(M_MMAP_THRESHOLD, kLarge);
  mallopt(M_TRIM_THRESHOLD, 4 * kLarge);
}

void TrimMemory() { malloc_trim(0); }

void MemoryTrimmer::Soon() {
  constexpr int kMomentMs = 1000;
  if (!std::exchange(asked, true)) SetTimeout(kMomentMs);
}

void MemoryTrimmer::Expired() {
  asked = false;
  TrimMemory();
}

void Release(std::string& text, std::size_t small_change) {
  text.clear();
  // An empty string that is assigned would leave it what it has.
  if (text.capacity() > small_change) text.shrink_to_fit();
}
