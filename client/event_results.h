#pragma once

#include <string>
#include <vector>

// What the results of events are, for their readers.

// One line of a record's results.
struct Result {
  const char* name;
  const char* unit;
  const char* meaning;
};

// Those of the records of a type, such as "MPF".
const std::vector<Result>& Results(const std::string& type);
// Whether a result was measured at all: a phase that never came leaves the largest or smallest
// float.
bool IsMeasured(double value);
// The phase of samples with this code.
std::string PhaseName(int code);
