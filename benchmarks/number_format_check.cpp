// Compares the texts of numbers with those of the C library, over more numbers than a self-test has
// time for: all floats with `all`, otherwise every float of three binades in each decade, every
// float whose six digits end in a tie, all denormals near the ends of their binades, and as many
// seeded floats and times as the argument says.

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <random>
#include <string>

#include "common/number_format.h"

namespace {

std::uint64_t compared = 0;

void Compare(const char* text, const char* end, const char* expected, int length) {
  ++compared;
  if (end - text == length && std::memcmp(text, expected, static_cast<std::size_t>(length)) == 0)
    return;
  std::cerr << "number_format_check: " << std::string(text, end) << " instead of " << expected
            << "\n";
  std::exit(1);
}

void CheckFloat(std::uint32_t bits) {
  const auto value = std::bit_cast<float>(bits);
  if (std::isnan(value)) return;
  std::array<char, 32> text;
  std::array<char, 32> expected;
  const int length = std::snprintf(expected.data(), expected.size(), "%g", double{value});
  Compare(text.data(), PutFloat(text.data(), value), expected.data(), length);
  Compare(text.data(), PutGeneral(text.data(), double{value}), expected.data(), length);
}

void CheckTime(double value) {
  std::array<char, kLongestFixed6 + 8> text;
  std::array<char, kLongestFixed6 + 8> expected;
  const int length = std::snprintf(expected.data(), expected.size(), "%.6f", value);
  Compare(text.data(), PutFixed6(text.data(), value), expected.data(), length);
}

// Every float whose seventh digit is a five with nothing after it.
void CheckTies() {
  for (int exponent = -45; exponent <= 38; ++exponent)
    for (std::uint32_t digits = 100'000; digits < 1'000'000; ++digits) {
      // Exact in a long double only as far as floats can be ties at all.
      const long double tie =
          (digits + 0.5L) * std::pow(10.0L, static_cast<long double>(exponent - 5));
      const auto near = static_cast<float>(tie);
      for (const float value : {std::nextafter(near, 0.0F), near, std::nextafter(near, INFINITY)})
        CheckFloat(std::bit_cast<std::uint32_t>(value));
    }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string argument = argc == 2 ? argv[1] : "100000000";
  constexpr std::uint32_t kInfinity = 0x7F80'0000;
  if (argument == "all") {
    for (std::uint32_t bits = 0; bits <= kInfinity; ++bits) CheckFloat(bits);
    std::cout << compared << " texts agree with the C library's\n";
    return 0;
  }
  const long seeded = std::stol(argument);
  if (seeded >= 100'000'000) {
    // A decade has three or four binades.
    for (std::uint32_t exponent = 0; exponent < 255; exponent += 10)
      for (std::uint32_t bits = exponent << 23; bits < (exponent + 3) << 23; ++bits)
        CheckFloat(bits);
    CheckTies();
  }
  for (std::uint32_t bits = 0; bits < 1U << 23; bits += bits < 1U << 16 ? 1 : 97) CheckFloat(bits);
  std::mt19937_64 random(11);
  for (long i = 0; i < seeded; ++i) {
    const std::uint64_t number = random();
    CheckFloat(static_cast<std::uint32_t>(number));
    // Near the present, near the ends of the range, and where halves of a microsecond are exact.
    CheckTime(1.7e9 + static_cast<double>(number >> 12) / 4096 / 65536);
    CheckTime(std::ldexp(static_cast<double>(number >> 11), -20 - static_cast<int>(number % 60)));
    CheckTime(std::ldexp(static_cast<double>(number >> 32), -static_cast<int>(number % 24)));
  }
  std::cout << compared << " texts agree with the C library's\n";
}
