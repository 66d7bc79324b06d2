#pragma once

#include <cstdint>
#include <ios>
#include <istream>
#include <ostream>

// Calendar time without a zone: seconds since 1989-01-01 00:00:00, years 1989 to 2099. A value is
// the reading of a wall clock; readings of local time and UTC differ by the zone's offset. The
// calendar is this class's own, and does not depend on the width of time_t.
class Timestamp {
 public:
  constexpr Timestamp() = default;
  constexpr explicit Timestamp(double seconds_since_1989) : seconds(seconds_since_1989) {}
  // A year below 100 means 1989 to 2088; a month outside 1 to 12 carries into the year. A year that
  // is then out of range gives 0.
  Timestamp(int year, int month, int day, int hour, int minute, double second);

  // The local time, to the microsecond. Throws ErrnoError "Unable to get current time".
  static Timestamp Now();

  // Seconds since 1989.
  double get() const { return seconds; }
  Timestamp operator+(double more) const { return Timestamp(seconds + more); }
  Timestamp operator-(double less) const { return Timestamp(seconds - less); }

  double GetSecond() const;  // within the minute, with fraction
  int GetMinute() const;
  int GetHour() const;
  int GetDay() const;
  int GetMonth() const;
  int GetYear() const;
  int GetWeekDay() const;  // 1 to 7; 1989 began with a 1, a Sunday
  bool IsLeapYear() const;

  // From local time to UTC and back.
  // Protocol: the zone's offset, with daylight saving or without, is that of the first call in the
  // process.
  Timestamp ToUTC() const;
  Timestamp ToLocal() const;

 private:
  struct Date {
    int year;
    int month;
    int day;
    bool leap;
  };
  Date GetDate() const;
  std::int64_t WholeSeconds() const;

  double seconds = 0;
};

// How a stream writes and reads timestamps. A separator of 0 means none.
struct TimestampFormat {
  char date_separator = '-';
  char time_separator = ':';
  char date_time_separator = ' ';
  bool quoted = false;
};

void SetTimestampFormat(std::ios_base& stream, const TimestampFormat& format);
// Leaves the stream as if it had never been given one.
void ClearTimestampFormat(std::ios_base& stream);
TimestampFormat GetTimestampFormat(std::ios_base& stream);
// Where a stream keeps it.
inline int TimestampFormatWord() {
  static const int index = std::ios_base::xalloc();
  return index;
}
inline bool HasTimestampFormat(std::ios_base& stream) {
  return stream.iword(TimestampFormatWord()) != 0;
}

// "1989-01-01 00:00:00.001" in the default format; the seconds are in the stream's own number
// format.
std::ostream& operator<<(std::ostream& out, const Timestamp& time);
// Minutes, seconds and the whole time of day may be missing, and any one character may stand
// between hour, minute and second. A bad date sets the failbit and stores nothing; anything else
// that is wrong does not.
std::istream& operator>>(std::istream& in, Timestamp& time);
