#include "common/memory.h"

#include <malloc.h>

#include <utility>

void ReturnLargeMemory() {
  // A threshold that was set stays; otherwise it grows with the pieces that are freed.
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
  // Assigning an empty string would leave it its memory.
  if (text.capacity() > small_change) text.shrink_to_fit();
}
