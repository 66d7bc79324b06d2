#pragma once

#include <cstddef>

// Numbers as the C library's printf writes them, to the byte, for the few forms that rows and
// settings use, at a tenth of the cost. nan alone differs: it never shows a sign, which processors
// don't agree on. Each writes to `to`, which must have room, and returns the end of what it wrote.

// As "%g", six significant digits. At most kLongestGeneral characters.
constexpr std::size_t kLongestGeneral = 13;
char* PutGeneral(char* to, double value);
// As "%.*g" with `precision`, of at most 17. At most 24 characters.
char* PutGeneral(char* to, double value, int precision);
// As "%.6f". At most kLongestFixed6 characters.
constexpr std::size_t kLongestFixed6 = 317;
char* PutFixed6(char* to, double value);
// As "%u". At most 10 characters.
char* PutUnsigned(char* to, unsigned value);
