#include "common/timestamp.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <iomanip>

#include "common/errno_error.h"

namespace {

constexpr int kFirstYear = 1989;
constexpr int kLastYear = 2099;
constexpr std::int64_t kDaySeconds = 86400;
// The calendar runs in blocks of four years, of which the last is a leap year.
constexpr int kBlockDays = 1461;
constexpr int kYearDays = 365;

// Days before each month, and in the whole year.
constexpr std::array<std::array<int, 13>, 2> kDaysBefore = {{
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
}};

bool IsLeap(int years_since_first) { return years_since_first % 4 == 3; }

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

// Seconds to add to UTC for local time, read once in the life of the process.
double ZoneOffset() {
  static const double offset = [] {
    const std::time_t now = std::time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    return static_cast<double>(local.tm_gmtoff);
  }();
  return offset;
}

// The format in one word, which is 0 on a stream that was never given one.
constexpr long kFormatSet = 1L << 24;
constexpr long kQuoted = 1L << 25;

// Reads a separator; another character stays in the stream.
bool TakeSeparator(std::istream& in, char separator) {
  const int byte = in.get();
  if (byte == std::istream::traits_type::eof()) return false;
  if (byte == static_cast<unsigned char>(separator)) return true;
  in.putback(static_cast<char>(byte));
  return false;
}

void PassQuote(std::istream& in) {
  char byte = 0;
  if (in >> byte && byte != '"') in.putback(byte);
}

struct Fields {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  double second = 0;
};

bool ReadDate(std::istream& in, char separator, Fields& fields) {
  if (separator == 0) {
    int digits = 0;
    if (!(in >> digits)) return false;
    fields.year = digits / 10000;
    fields.month = digits / 100 % 100;
    fields.day = digits % 100;
    return true;
  }
  return in >> fields.year && TakeSeparator(in, separator) && in >> fields.month &&
         TakeSeparator(in, separator) && in >> fields.day;
}

// Whatever is missing stays 0.
void ReadTime(std::istream& in, char separator, Fields& fields) {
  if (separator == 0) {
    double digits = 0;
    constexpr double kMost = 1e9;
    if (!(in >> digits) || !(std::fabs(digits) < kMost)) return;
    const int whole = static_cast<int>(digits);
    fields.hour = whole / 10000;
    const int whole_minutes = whole / 100;
    fields.minute = whole_minutes % 100;
    fields.second = digits - whole_minutes * 100;
    return;
  }
  // Any one character serves between these.
  char between = 0;
  if (in >> fields.hour && in.get(between) && in >> fields.minute && in.get(between) &&
      !(in >> fields.second))
    fields.second = 0;
}

}  // namespace

Timestamp::Timestamp(int year, int month, int day, int hour, int minute, double second) {
  std::int64_t full_year = year;
  if (full_year < 100) full_year += full_year > 88 ? 1900 : 2000;
  const std::int64_t months = std::int64_t{month} - 1;
  const std::int64_t years = full_year + FloorDiv(months, 12) - kFirstYear;
  if (years < 0 || years > kLastYear - kFirstYear) return;
  const auto month_index = static_cast<std::size_t>(months - FloorDiv(months, 12) * 12);
  const int block_year = static_cast<int>(years % 4);
  const std::int64_t days = years / 4 * kBlockDays + std::int64_t{block_year} * kYearDays +
                            kDaysBefore[IsLeap(block_year) ? 1 : 0][month_index] + day - 1;
  seconds = static_cast<double>(days * kDaySeconds + std::int64_t{hour} * 3600 +
                                std::int64_t{minute} * 60) +
            second;
}

Timestamp Timestamp::Now() {
  struct timeval now = {};
  struct tm local = {};
  if (gettimeofday(&now, nullptr) != 0 || localtime_r(&now.tv_sec, &local) == nullptr)
    throw ErrnoError("Unable to get current time");
  const Timestamp whole(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                        local.tm_min, local.tm_sec);
  return whole + static_cast<double>(now.tv_usec) / 1e6;
}

std::int64_t Timestamp::WholeSeconds() const {
  // Any number may have been put in; a number far outside every calendar reads as the epoch.
  constexpr double kMost = 1e15;
  return std::fabs(seconds) < kMost ? static_cast<std::int64_t>(std::floor(seconds)) : 0;
}

Timestamp::Date Timestamp::GetDate() const {
  const std::int64_t days = FloorDiv(WholeSeconds(), kDaySeconds);
  const std::int64_t blocks = FloorDiv(days, kBlockDays);
  const int block_day = static_cast<int>(days - blocks * kBlockDays);
  const int block_year = std::min(block_day / kYearDays, 3);
  const bool leap = IsLeap(block_year);
  const int year_day = block_day - block_year * kYearDays;
  const auto& before = kDaysBefore[leap ? 1 : 0];
  const auto month = std::upper_bound(before.begin(), before.end(), year_day) - before.begin();
  return {static_cast<int>(kFirstYear + blocks * 4 + block_year), static_cast<int>(month),
          year_day - before[static_cast<std::size_t>(month) - 1] + 1, leap};
}

double Timestamp::GetSecond() const {
  const std::int64_t whole = WholeSeconds();
  const double fraction = std::fabs(seconds - static_cast<double>(whole)) < 1
                              ? seconds - static_cast<double>(whole)
                              : 0;
  return static_cast<double>(whole - FloorDiv(whole, 60) * 60) + fraction;
}

int Timestamp::GetMinute() const {
  const std::int64_t minutes = FloorDiv(WholeSeconds(), 60);
  return static_cast<int>(minutes - FloorDiv(minutes, 60) * 60);
}

int Timestamp::GetHour() const {
  const std::int64_t hours = FloorDiv(WholeSeconds(), 3600);
  return static_cast<int>(hours - FloorDiv(hours, 24) * 24);
}

int Timestamp::GetDay() const { return GetDate().day; }
int Timestamp::GetMonth() const { return GetDate().month; }
int Timestamp::GetYear() const { return GetDate().year; }
bool Timestamp::IsLeapYear() const { return GetDate().leap; }

int Timestamp::GetWeekDay() const {
  const std::int64_t days = FloorDiv(WholeSeconds(), kDaySeconds);
  return static_cast<int>(days - FloorDiv(days, 7) * 7) + 1;
}

Timestamp Timestamp::ToUTC() const { return *this - ZoneOffset(); }
Timestamp Timestamp::ToLocal() const { return *this + ZoneOffset(); }

void SetTimestampFormat(std::ios_base& stream, const TimestampFormat& format) {
  const auto byte = [](char separator) { return long{static_cast<unsigned char>(separator)}; };
  stream.iword(TimestampFormatWord()) =
      kFormatSet | (format.quoted ? kQuoted : 0) | byte(format.date_separator) |
      byte(format.time_separator) << 8 | byte(format.date_time_separator) << 16;
}

void ClearTimestampFormat(std::ios_base& stream) { stream.iword(TimestampFormatWord()) = 0; }

TimestampFormat GetTimestampFormat(std::ios_base& stream) {
  const long word = stream.iword(TimestampFormatWord());
  if ((word & kFormatSet) == 0) return {};
  return {static_cast<char>(word & 0xFF), static_cast<char>(word >> 8 & 0xFF),
          static_cast<char>(word >> 16 & 0xFF), (word & kQuoted) != 0};
}

std::ostream& operator<<(std::ostream& out, const Timestamp& time) {
  const TimestampFormat format = GetTimestampFormat(out);
  const auto separator = [&](char byte) {
    if (byte != 0) out << byte;
  };
  if (format.quoted) out << '"';
  out << std::setfill('0') << std::setw(4) << time.GetYear();
  separator(format.date_separator);
  out << std::setw(2) << time.GetMonth();
  separator(format.date_separator);
  out << std::setw(2) << time.GetDay();
  separator(format.date_time_separator);
  out << std::setw(2) << time.GetHour();
  separator(format.time_separator);
  out << std::setw(2) << time.GetMinute();
  separator(format.time_separator);
  out << std::setfill(' ');
  if (time.GetSecond() < 10) out << '0';
  out << time.GetSecond();
  if (format.quoted) out << '"';
  return out;
}

std::istream& operator>>(std::istream& in, Timestamp& time) {
  const TimestampFormat format = GetTimestampFormat(in);
  if (format.quoted) PassQuote(in);
  Fields fields;
  if (!ReadDate(in, format.date_separator, fields)) {
    in.setstate(std::ios_base::failbit);
    return in;
  }
  if (format.date_time_separator == 0 || TakeSeparator(in, format.date_time_separator))
    ReadTime(in, format.time_separator, fields);
  if (format.quoted) PassQuote(in);
  // Running out of input while reading the time is no failure.
  in.clear();
  time =
      Timestamp(fields.year, fields.month, fields.day, fields.hour, fields.minute, fields.second);
  return in;
}
