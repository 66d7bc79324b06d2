#include "common/timestamp.h"

#include <chrono>
#include <cmath>
#include <random>
#include <utility>

#include "common/test_registry.h"

namespace {

using namespace self_test;

std::string Printed(double value, const TimestampFormat& format = {}) {
  std::ostringstream out;
  SetTimestampFormat(out, format);
  out << Timestamp(value);
  return out.str();
}

// The value that `text` reads as, or -1 if it does not.
double Parsed(const std::string& text, const TimestampFormat& format = {}) {
  std::istringstream in(text);
  SetTimestampFormat(in, format);
  Timestamp time(-1);
  in >> time;
  return time.get();
}

void TextCases() {
  const struct {
    const char* text;
    double value;
    bool printed;  // or only read
  } rows[] = {
      {"1989-01-01 00:00:00", 0, true},
      {"1989-01-01 00:00:00.001", 0.001, true},
      {"1989-01-01 00:00:09.999", 9.999, true},
      {"1992-02-29 00:00:00", 99705600, true},
      {"2099-12-31 23:59:59.999", 3502828799.999, true},
      {"1989-12-31 23", 31532400, false},
      {"1989-12-31T23:59:00", 31449600, false},
      {"1989-12-31 23.59", 31535940, false},
      {"1989-12-31 23h59 30.5", 31535970.5, false},
      {"1989-12-31 23 :59", 31532400, false},
      {"1989-12-31 x", 31449600, false},
      {"89-1-1", 0, false},
      {"88-01-01", 3124137600, false},
      {"1990-13-01", 63072000, false},
      {"1990-00-01", 31536000 - 31 * 86400, false},
      {"2100-01-01", 0, false},
      {"1988-12-31", 0, false},
      {"2147483647-2147483647-2147483647 2147483647:2147483647:1e308", 0, false},
      {"", -1, false},
      {"1989", -1, false},
      {"1989/01/01", -1, false},
      {"1989-01 01", -1, false},
      {"99999999999-01-01", -1, false},
  };
  const TimestampFormat quoted = {'-', ':', ' ', true};
  for (const auto& row : rows) {
    ExpectTrue(std::fabs(Parsed(row.text) - row.value) < 1e-4, row.text);
    const std::string quote = std::string("\"") + row.text;
    ExpectTrue(std::fabs(Parsed(quote, quoted) - row.value) < 1e-4, quote);
    if (!row.printed) continue;
    ExpectEqual(Printed(row.value), row.text);
    ExpectEqual(Printed(row.value, quoted), quote + "\"");
  }
  for (const auto& [format, text] :
       {std::pair{TimestampFormat{0, ':', ' '}, "20991231 23:59:59.999"},
        std::pair{TimestampFormat{'-', 0, 'T'}, "2099-12-31T235959.999"},
        std::pair{TimestampFormat{0, 0, ' '}, "20991231 235959.999"}}) {
    ExpectEqual(Printed(3502828799.999, format), text);
    ExpectTrue(std::fabs(Parsed(text, format) - 3502828799.999) < 1e-4, text);
  }
}

void StreamStateCases() {
  // A bad date leaves the stream bad at its place; a short time leaves it good.
  std::istringstream in("1989/1989-02-03 04 rest");
  Timestamp time;
  ExpectTrue(!(in >> time), "a bad date");
  in.clear();
  ExpectEqual(in.get(), int{'/'});
  std::string rest;
  ExpectTrue(static_cast<bool>(in >> time >> rest), "a short time");
  ExpectEqual(rest, "rest");
}

// Compares with the calendar of the standard library.
void CalendarCases() {
  using namespace std::chrono;
  std::mt19937_64 random(1);
  for (int i = 0; i < 20'000; ++i) {
    const auto seconds_since_1989 = static_cast<std::int64_t>(random() % 3502828800);
    const sys_days first = 1989y / January / 1;
    const auto days_since = seconds_since_1989 / 86400;
    const year_month_day date(first + days(days_since));
    const Timestamp time(static_cast<double>(seconds_since_1989) + 0.25);
    ExpectEqual(time.GetYear(), int{date.year()});
    ExpectEqual(time.GetMonth(), static_cast<int>(unsigned{date.month()}));
    ExpectEqual(time.GetDay(), static_cast<int>(unsigned{date.day()}));
    ExpectEqual(time.IsLeapYear(), date.year().is_leap());
    ExpectEqual(time.GetWeekDay(),
                static_cast<int>(weekday(first + days(days_since)).c_encoding()) + 1);
    ExpectEqual(Timestamp(time.GetYear(), time.GetMonth(), time.GetDay(), time.GetHour(),
                          time.GetMinute(), time.GetSecond())
                    .get(),
                time.get());
  }
  // No number is too strange to be shown.
  for (const double value : {-1.0, 1e300, -1e300, std::nan(""), 1e14}) Printed(value);
  ExpectEqual(Printed(-1), "1988-12-31 23:59:59");
  const Timestamp now = Timestamp::Now();
  ExpectEqual(now.ToUTC().ToLocal().get(), now.get());
}

}  // namespace

void TestTimestamp(std::ostream&) {
  TextCases();
  StreamStateCases();
  CalendarCases();
}
