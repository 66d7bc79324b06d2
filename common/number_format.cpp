#include "common/number_format.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace {

// Powers that are exact in a double.
constexpr std::array<double, 12> kPowersOfTen = {1e0, 1e1, 1e2, 1e3, 1e4,  1e5,
                                                 1e6, 1e7, 1e8, 1e9, 1e10, 1e11};
constexpr int kDigits = 6;  // significant, or after the point
constexpr std::uint32_t kPastDigits = 1'000'000;
constexpr std::uint32_t kHalf = 0x8000'0000;

constexpr std::array<char, 200> MakePairs() {
  std::array<char, 200> pairs = {};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kPairs = MakePairs();

// Copies so few bytes that a call of the library would cost more, which is what compilers make of
// memcpy for processors that want every word in its place.
template <std::size_t kBytes>
void CopyFew(const char* from, char* to) {
#if defined(__arm__) && !defined(__ARM_FEATURE_UNALIGNED)
  [&]<std::size_t... kAt>(std::index_sequence<kAt...>) {
    const char bytes[] = {from[kAt]...};
    ((to[kAt] = bytes[kAt]), ...);
  }
  (std::make_index_sequence<kBytes>());
#else
  std::array<char, kBytes> bytes;
  std::memcpy(bytes.data(), from, kBytes);
  std::memcpy(to, bytes.data(), kBytes);
#endif
}

void PutPair(char* to, std::uint32_t number) { CopyFew<2>(&kPairs[std::size_t{2} * number], to); }

// The three digits of every number below 1000, with one byte more, since four are moved at once.
using Triple = std::array<char, 4>;
constexpr std::array<Triple, 1000> MakeTriples() {
  std::array<Triple, 1000> triples = {};
  for (std::size_t i = 0; i < triples.size(); ++i)
    triples[i] = {static_cast<char>('0' + i / 100), static_cast<char>('0' + i / 10 % 10),
                  static_cast<char>('0' + i % 10)};
  return triples;
}
constexpr std::array<Triple, 1000> kTriples = MakeTriples();

// Writes one character more.
void PutTriple(char* to, std::uint32_t number) {
  CopyFew<sizeof(Triple)>(kTriples[number].data(), to);
}

// A product of a number of 32 bits with one of 64: its 32 bits before the point, which stands
// above the lower 64, and those after it.
struct Product {
  std::uint32_t whole;
  std::uint32_t fraction;
  std::uint32_t rest;

  Product(std::uint32_t number, std::uint32_t high, std::uint32_t low) {
    const std::uint64_t lower = std::uint64_t{number} * low;
    const std::uint64_t upper = std::uint64_t{number} * high + (lower >> 32);
    whole = static_cast<std::uint32_t>(upper >> 32);
    fraction = static_cast<std::uint32_t>(upper);
    rest = static_cast<std::uint32_t>(lower);
  }

  // Rounds to the nearest, and from the middle to the even one. The product may be above the true
  // one by less than `excess` units of the last bit, and the true one has no value in between that
  // is not the middle.
  std::uint32_t Rounded(std::uint32_t excess) const {
    if (fraction != kHalf) return whole + (fraction > kHalf ? 1 : 0);
    return rest >= excess ? whole + 1 : whole + (whole & 1U);
  }
};

// 10^k as a fixed-point number of six words, the lowest first, times 2^exponent. The highest bit is
// set. Exact for every k above 0 that is used, and below 0 far more exact than anybody needs.
struct PowerOfTen {
  std::array<std::uint32_t, 6> words = {0, 0, 0, 0, 0, kHalf};
  int exponent = -191;

  // Moves the words by up to 31 bits.
  constexpr void ShiftLeft(int bits) {
    for (std::size_t i = words.size(); i-- > 0;) {
      const std::uint64_t pair = std::uint64_t{words[i]} << 32 | (i > 0 ? words[i - 1] : 0);
      words[i] = static_cast<std::uint32_t>(pair >> (32 - bits));
    }
    exponent -= bits;
  }
  constexpr void TimesTen() {
    // Room for the product at the top.
    std::uint32_t carry = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::uint64_t pair =
          std::uint64_t{i + 1 < words.size() ? words[i + 1] : 0} << 32 | words[i];
      const std::uint64_t product =
          std::uint64_t{static_cast<std::uint32_t>(pair >> 4)} * 10 + carry;
      words[i] = static_cast<std::uint32_t>(product);
      carry = static_cast<std::uint32_t>(product >> 32);
    }
    exponent += 4;
    if ((words.back() & kHalf) == 0) ShiftLeft(1);
  }
  constexpr void ByTen() {
    std::uint32_t remainder = 0;
    for (std::size_t i = words.size(); i-- > 0;) {
      const std::uint64_t pair = std::uint64_t{remainder} << 32 | words[i];
      words[i] = static_cast<std::uint32_t>(pair / 10);
      remainder = static_cast<std::uint32_t>(pair % 10);
    }
    ShiftLeft(std::countl_zero(words.back()));
  }
};

// What six digits of a float take: its 24 bits times `scale`, in units of 2^-64, are the digits
// before the point.
struct Scale {
  std::uint32_t high;
  std::uint32_t low;
};
// The floats of one exponent. A power of ten may stand among them: from there on the second scale
// holds.
struct Binade {
  std::array<Scale, 2> scales;
  std::int32_t exponent;  // the place of the first digit with the first scale
};

// A scale is at most a unit too large, and there are 24 bits. Between the middle of two numbers of
// six digits and this far above there is no float, so what is found there is the middle.
constexpr std::uint32_t kScaleExcess = 1U << 24;

// Of the positive floats with all their bits, in units of the last one.
constexpr std::uint32_t kSmallestNormal = 0x0080'0000;
constexpr std::uint32_t kInfinity = 0x7F80'0000;
constexpr int kBinades = (kInfinity - kSmallestNormal) >> 23;

// power × 2^binary, rounded up.
constexpr Scale MakeScale(const PowerOfTen& power, int binary, bool exact) {
  const int shift = -(power.exponent + binary) - 128;
  const std::uint64_t top = std::uint64_t{power.words[5]} << 32 | power.words[4];
  const bool dropped = !exact || (top & ((std::uint64_t{1} << shift) - 1)) != 0 ||
                       (power.words[0] | power.words[1] | power.words[2] | power.words[3]) != 0;
  const std::uint64_t scale = (top >> shift) + (dropped ? 1 : 0);
  return {static_cast<std::uint32_t>(scale >> 32), static_cast<std::uint32_t>(scale)};
}

constexpr std::array<Binade, kBinades> MakeBinades() {
  constexpr int kLargestExponent = 38;
  constexpr int kSmallestExponent = -38;
  // 10^(5 - exponent) for every exponent and one more.
  constexpr int kLowestPower = kDigits - 2 - kLargestExponent;
  constexpr int kHighestPower = kDigits - 1 - kSmallestExponent;
  std::array<PowerOfTen, kHighestPower - kLowestPower + 1> powers = {};
  const auto power = [&](int k) -> PowerOfTen& {
    return powers[static_cast<std::size_t>(k - kLowestPower)];
  };
  for (int k = 1; k <= kHighestPower; ++k) (power(k) = power(k - 1)).TimesTen();
  for (int k = -1; k >= kLowestPower; --k) (power(k) = power(k + 1)).ByTen();

  std::array<Binade, kBinades> binades = {};
  int exponent = kSmallestExponent;
  for (int i = 0; i < kBinades; ++i) {
    // Of the last of the 24 bits.
    const int binary = i + 1 - 127 - 23;
    const auto scale = [&](int at_exponent) {
      const int k = kDigits - 1 - at_exponent;
      return MakeScale(power(k), binary + 64, k >= 0);
    };
    // The smallest of these floats has a one and 23 zeros.
    const auto digits = [&](int at_exponent) { return scale(at_exponent).high >> 9; };
    while (exponent < kLargestExponent && digits(exponent + 1) >= kPastDigits / 10) ++exponent;
    binades[static_cast<std::size_t>(i)] = {{scale(exponent), scale(exponent + 1)}, exponent};
  }
  return binades;
}
constexpr std::array<Binade, kBinades> kBinadeTable = MakeBinades();

char* PutText(char* to, const char* text, std::size_t length) {
  std::memcpy(to, text, length);
  return to + length;
}

// Writes the digits of a number below 1e6, with the first at the place `exponent`, without trailing
// zeros.
char* PutDigits(char* to, std::uint32_t digits, int exponent) {
  if (exponent >= 0 && exponent < kDigits) {
    PutSixDigits(to, digits);
    // As many as there are at most are moved, since that takes fewer steps than to count them.
    char* const point = to + exponent + 1;
    CopyFew<kDigits - 1>(point, point + 1);
    *point = '.';
    char* last = to + kDigits;
    while (*last == '0') --last;
    return last == point ? last : last + 1;
  }
  if (exponent < 0 && exponent >= -4) {
    CopyFew<5>("0.000", to);
    to += 1 - exponent;
    PutSixDigits(to, digits);
    char* last = to + kDigits - 1;
    while (*last == '0') --last;
    return last + 1;
  }
  PutSixDigits(to + 1, digits);
  to[0] = to[1];
  to[1] = '.';
  char* last = to + kDigits;
  while (*last == '0') --last;
  to = last == to + 1 ? last : last + 1;
  *to++ = 'e';
  *to++ = exponent < 0 ? '-' : '+';
  PutPair(to, static_cast<std::uint32_t>(exponent < 0 ? -exponent : exponent));
  return to + 2;
}

// mantissa × scale to the nearest, from the middle to the even one.
inline std::uint32_t Scaled(std::uint32_t mantissa, const Scale& scale) {
  // The higher part of the scale alone gives less than the product, by less than this. That is
  // enough unless the middle may lie in between.
  constexpr std::uint32_t kMissing = 1U << 24;
  const std::uint64_t product = std::uint64_t{mantissa} * scale.high;
  if (static_cast<std::uint32_t>(product) - (kHalf - kMissing) <= kMissing) [[unlikely]]
    return Product(mantissa, scale.high, scale.low).Rounded(kScaleExcess);
  return static_cast<std::uint32_t>((product + kHalf) >> 32);
}

char* PutSlowly(char* to, std::size_t room, double value, std::chars_format format, int precision) {
  if (std::isnan(value)) return PutText(to, "nan", 3);
  return std::to_chars(to, to + room, value, format, precision).ptr;
}

// All floats but the positive ones with all their bits.
char* PutUnusual(char* to, float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  if ((bits & ~kHalf) == 0) return PutText(to, bits == 0 ? "0" : "-0", bits == 0 ? 1 : 2);
  if (value < 0 && -value >= std::numeric_limits<float>::min() && !std::isinf(value)) {
    *to = '-';
    return PutFloat(to + 1, -value);
  }
  return PutSlowly(to, kLongestGeneral, double{value}, std::chars_format::general, kDigits);
}

// The bits as a float of a double that is a float as well; 0 if it is not.
std::uint32_t BitsAsFloat(std::uint64_t bits) {
  constexpr std::uint64_t kMore = (std::uint64_t{1} << 29) - 1;
  const auto exponent = static_cast<std::uint32_t>(bits >> 52 & 0x7FF);
  if ((bits & kMore) != 0 || exponent <= 1023 - 127 || exponent > 1023 + 127) return 0;
  return static_cast<std::uint32_t>(bits >> 32 & kHalf) | (exponent - (1023 - 127)) << 23 |
         static_cast<std::uint32_t>(bits >> 29 & 0x7F'FFFF);
}

}  // namespace

void PutSixDigits(char* to, std::uint32_t number) {
  PutTriple(to, number / 1000);
  PutTriple(to + 3, number % 1000);
}

char* PutFloat(char* to, float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  if (bits - kSmallestNormal >= kInfinity - kSmallestNormal) return PutUnusual(to, value);
  const Binade& binade = kBinadeTable[(bits >> 23) - 1];
  const std::uint32_t mantissa = (bits & 0x7F'FFFF) | 0x80'0000;
  const std::uint32_t digits = Scaled(mantissa, binade.scales[0]);
  if (digits < kPastDigits) return PutDigits(to, digits, binade.exponent);
  return PutDigits(to, Scaled(mantissa, binade.scales[1]), binade.exponent + 1);
}

char* PutGeneral(char* to, double value) {
  // Most doubles that are printed were floats once.
  if (const std::uint32_t bits = BitsAsFloat(std::bit_cast<std::uint64_t>(value)))
    return PutFloat(to, std::bit_cast<float>(bits));
  const double magnitude = std::fabs(value);
  // Beyond these the form has an exponent.
  if (!(magnitude >= 1e-4 && magnitude < 999999)) return PutGeneral(to, value, kDigits);
  // The place of the first digit: 0 for 1 to 9, -1 for 0.1.
  int exponent = magnitude >= 1 ? 0 : -1;
  if (magnitude >= 1)
    while (magnitude >= kPowersOfTen[static_cast<std::size_t>(exponent) + 1]) ++exponent;
  else
    while (magnitude * kPowersOfTen[static_cast<std::size_t>(-exponent)] < 1) --exponent;
  // The error is less than 1e-9, and matters only when this is so near the middle.
  const double scaled = magnitude * kPowersOfTen[static_cast<std::size_t>(kDigits - 1 - exponent)];
  auto digits = static_cast<std::uint32_t>(scaled);
  const double fraction = scaled - digits;
  if (std::fabs(fraction - 0.5) < 1e-8) return PutGeneral(to, value, kDigits);
  digits += fraction > 0.5 ? 1 : 0;
  if (digits == kPastDigits) {
    digits = kPastDigits / 10;
    ++exponent;
  }
  if (value < 0) *to++ = '-';
  return PutDigits(to, digits, exponent);
}

char* PutGeneral(char* to, double value, int precision) {
  return PutSlowly(to, 24, value, std::chars_format::general, precision);
}

bool SplitMicros(double value, std::uint32_t& whole, std::uint32_t& micros) {
  constexpr int kMantissaBits = 52;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  // The place of the highest bit; out of range for negative numbers and nan.
  const int place = static_cast<int>(bits >> kMantissaBits) - 1023;
  const std::uint64_t mantissa =
      (bits & ((std::uint64_t{1} << kMantissaBits) - 1)) | std::uint64_t{1} << kMantissaBits;
  std::uint64_t fraction = 0;  // in units of 2^-64
  whole = 0;
  if (place >= 0 && place < 32) {
    whole = static_cast<std::uint32_t>(mantissa >> (kMantissaBits - place));
    fraction = mantissa << (64 - kMantissaBits + place);
  } else if (place < 0 && place >= -12) {
    fraction = mantissa << 11 >> (-1 - place);
  } else if (bits != 0) {
    return false;
  }
  micros = Product(kPastDigits, static_cast<std::uint32_t>(fraction >> 32),
                   static_cast<std::uint32_t>(fraction))
               .Rounded(1);
  if (micros != kPastDigits) return true;
  micros = 0;
  return ++whole != 0;
}

char* PutFixed6(char* to, double value) {
  std::uint32_t whole = 0;
  std::uint32_t micros = 0;
  if (!SplitMicros(value, whole, micros))
    return PutSlowly(to, kLongestFixed6, value, std::chars_format::fixed, kDigits);
  to = std::to_chars(to, to + kLongestFixed6, whole).ptr;
  *to++ = '.';
  PutSixDigits(to, micros);
  return to + kDigits;
}
