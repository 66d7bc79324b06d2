#pragma once

#include <cstddef>
#include <cstdint>

// Numbers as the C library's printf writes them, to the byte, for the few forms that rows and
// settings use, at a tenth of the cost. nan alone differs: it never shows a sign, on which
// processors don't agree. Each writes to `to`, which must have room, and returns the end of what it
// wrote.

// As "%g", six significant digits. At most kLongestGeneral characters; nothing is written after
// that many. A float takes integer arithmetic alone, which is quick on processors without floating
// point.
constexpr std::size_t kLongestGeneral = 13;
char* PutFloat(char* to, float value);
char* PutGeneral(char* to, double value);
// As "%.*g" with `precision`, of at most 17. At most 24 characters.
char* PutGeneral(char* to, double value, int precision);
// As "%.6f", with integer arithmetic alone from 2^-12 to 2^32. At most kLongestFixed6 characters.
constexpr std::size_t kLongestFixed6 = 317;
char* PutFixed6(char* to, double value);
// The two parts of that, such as seconds and microseconds. False for numbers beyond that range.
bool SplitMicros(double value, std::uint32_t& whole, std::uint32_t& micros);
// As "%06u", of a number below 1e6. Writes one character more, which stands for nothing.
void PutSixDigits(char* to, std::uint32_t number);
