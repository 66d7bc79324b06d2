#pragma once

#include <cstddef>
#include <string>

#include "common/poll_processor.h"

// How the process holds the memory that it no longer needs.

// Makes large pieces of memory go back to the system as soon as they are freed. Call it once,
// before there are any.
void ReturnLargeMemory();
// Gives back what is free in all other pieces; takes a moment for each megabyte that is in use.
void TrimMemory();

// Trims memory a moment after it is asked to, once for all who ask in the meantime.
class MemoryTrimmer : public PollTimer {
 public:
  MemoryTrimmer() : PollTimer(-1, true) {}
  void Soon();
  void Expired() override;
  const char* GetName() override { return "MemoryTrimmer"; }

 private:
  bool asked = false;
};

// Empties `text`, and frees its memory if that is more than this many bytes, which are small change
// for what there is once.
void Release(std::string& text, std::size_t small_change = 16384);
