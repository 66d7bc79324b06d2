#include "common/number_format.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

// Both powers that a product below can need are exact in a double.
constexpr std::array<double, 12> kPowersOfTen = {1e0, 1e1, 1e2, 1e3, 1e4,  1e5,
                                                 1e6, 1e7, 1e8, 1e9, 1e10, 1e11};
constexpr int kDigits = 6;  // significant, or behind the point

constexpr std::array<char, 200> MakePairs() {
  std::array<char, 200> pairs = {};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kPairs = MakePairs();

void PutPair(char* to, std::uint32_t number) { std::memcpy(to, &kPairs[2 * number], 2); }

void PutSixDigits(char* to, std::uint32_t number) {
  PutPair(to, number / 10000);
  PutPair(to + 2, number / 100 % 100);
  PutPair(to + 4, number % 100);
}

// Rounds a number of up to 1e6 that carries an error of less than 1e-9. False if the error could
// decide which way it goes; such a number lies near the middle between two integers.
bool RoundSurely(double scaled, std::uint32_t& rounded) {
  rounded = static_cast<std::uint32_t>(scaled);
  const double fraction = scaled - rounded;
  if (std::fabs(fraction - 0.5) < 1e-8) return false;
  rounded += fraction > 0.5 ? 1 : 0;
  return true;
}

char* PutSlowly(char* to, std::size_t room, double value, std::chars_format format, int precision) {
  if (std::isnan(value)) return static_cast<char*>(std::memcpy(to, "nan", 3)) + 3;
  return std::to_chars(to, to + room, value, format, precision).ptr;
}

char* PutGeneralSlowly(char* to, double value) {
  return PutSlowly(to, kLongestGeneral, value, std::chars_format::general, kDigits);
}

char* PutFixed6Slowly(char* to, double value) {
  return PutSlowly(to, kLongestFixed6, value, std::chars_format::fixed, kDigits);
}

}  // namespace

char* PutGeneral(char* to, double value) {
  if (value == 0) {
    if (std::signbit(value)) *to++ = '-';
    *to++ = '0';
    return to;
  }
  const double magnitude = std::fabs(value);
  // Beyond these the form has an exponent.
  if (!(magnitude >= 1e-4 && magnitude < 999999)) return PutGeneralSlowly(to, value);
  // The place of the first digit: 0 for 1 to 9, -1 for 0.1.
  int exponent = magnitude >= 1 ? 0 : -1;
  if (magnitude >= 1)
    while (magnitude >= kPowersOfTen[static_cast<std::size_t>(exponent + 1)]) ++exponent;
  else
    while (magnitude * kPowersOfTen[static_cast<std::size_t>(-exponent)] < 1) --exponent;
  std::uint32_t digits = 0;
  const double scaled = magnitude * kPowersOfTen[static_cast<std::size_t>(kDigits - 1 - exponent)];
  if (!RoundSurely(scaled, digits)) return PutGeneralSlowly(to, value);
  if (digits == 1'000'000) {
    digits = 100'000;
    ++exponent;
  }
  if (value < 0) *to++ = '-';
  // Read past its digits below, in copies of a constant size.
  std::array<char, 2 * kDigits> text{};
  PutSixDigits(text.data(), digits);
  int length = kDigits;
  while (length > 1 && text[static_cast<std::size_t>(length - 1)] == '0') --length;
  if (exponent < 0) {
    std::memcpy(to, "0.0000", 6);
    to += 1 - exponent;
    std::memcpy(to, text.data(), kDigits);
    return to + length;
  }
  const int before_point = exponent + 1;
  std::memcpy(to, text.data(), kDigits);
  if (length <= before_point) return to + before_point;
  std::memcpy(to + before_point + 1, text.data() + before_point, kDigits);
  to[before_point] = '.';
  return to + length + 1;
}

char* PutGeneral(char* to, double value, int precision) {
  return PutSlowly(to, 24, value, std::chars_format::general, precision);
}

char* PutFixed6(char* to, double value) {
  constexpr double kMost = 4e9;
  std::uint32_t micros = 0;
  if (!(value >= 0 && value < kMost)) return PutFixed6Slowly(to, value);
  auto whole = static_cast<std::uint32_t>(value);
  // The difference is exact.
  if (!RoundSurely((value - whole) * 1e6, micros)) return PutFixed6Slowly(to, value);
  if (micros == 1'000'000) {
    micros = 0;
    ++whole;
  }
  to = PutUnsigned(to, whole);
  *to++ = '.';
  PutSixDigits(to, micros);
  return to + kDigits;
}

char* PutUnsigned(char* to, unsigned value) {
  std::array<char, 10> text;
  char* from = text.data() + text.size();
  for (; value >= 100; value /= 100) PutPair(from -= 2, value % 100);
  if (value >= 10)
    PutPair(from -= 2, value);
  else
    *--from = static_cast<char>('0' + value);
  const auto length = static_cast<std::size_t>(text.data() + text.size() - from);
  std::memcpy(to, from, length);
  return to + length;
}
