#include "configurable/number_text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <type_traits>

#include "common/number_format.h"
#include "configurable/text_stream.h"

namespace {

constexpr std::ios_base::fmtflags kDefaultFlags = std::ios_base::skipws | std::ios_base::dec;

bool DefaultFormat(const std::ostream& out) {
  return out.flags() == kDefaultFlags && out.precision() == 6 && out.width() == 0 && out.good();
}

bool IsDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool IsSpace(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// The characters that the operators take for a number at the start of `text`: a sign, digits, and
// for a real number one point and one exponent. Empty if they make no complete number, as in "1e".
std::string_view NumberAtHead(std::string_view text, bool real) {
  std::size_t at = 0;
  const auto sign = [&] {
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  };
  const auto digits = [&] {
    const std::size_t from = at;
    while (at < text.size() && IsDigit(text[at])) ++at;
    return at - from;
  };
  sign();
  std::size_t count = digits();
  if (real && at < text.size() && text[at] == '.') {
    ++at;
    count += digits();
  }
  if (count == 0) return {};
  if (real && at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    sign();
    if (digits() == 0) return {};
  }
  return text.substr(0, at);
}

// Reads a plain number straight from the text; false leaves the stream as it was.
template <class Number>
bool ReadPlain(TextInput& in, Number& value) {
  std::string_view rest = in.Rest();
  std::size_t space = 0;
  while (space < rest.size() && IsSpace(rest[space])) ++space;
  rest.remove_prefix(space);
  std::string_view number = NumberAtHead(rest, std::is_floating_point_v<Number>);
  const std::size_t taken = space + number.size();
  if (number.starts_with('+')) number.remove_prefix(1);
  Number parsed = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), parsed);
  if (error != std::errc() || end != number.data() + number.size()) return false;
  value = parsed;
  in.Skip(taken);
  if (in.Rest().empty()) in.setstate(std::ios_base::eofbit);
  return true;
}

template <class Number>
void Read(std::istream& in, Number& value) {
  TextInput* text = TextInput::From(in);
  const bool plain = text != nullptr && in.good() && in.flags() == kDefaultFlags;
  if (!plain || !ReadPlain(*text, value)) in >> value;
}

}  // namespace

void WriteNumber(std::ostream& out, double value) {
  if (!DefaultFormat(out)) {
    out << (std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value);
    return;
  }
  std::array<char, 32> text;
  out.rdbuf()->sputn(text.data(), PutGeneral(text.data(), value) - text.data());
}

void WriteNumber(std::ostream& out, int value) {
  if (!DefaultFormat(out)) {
    out << value;
    return;
  }
  std::array<char, 16> text;
  const char* end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  out.rdbuf()->sputn(text.data(), end - text.data());
}

void WriteText(std::ostream& out, std::string_view text) {
  if (!DefaultFormat(out))
    out << text;
  else
    out.rdbuf()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

void ReadNumber(std::istream& in, float& value) { Read(in, value); }
void ReadNumber(std::istream& in, double& value) { Read(in, value); }
void ReadNumber(std::istream& in, int& value) { Read(in, value); }
