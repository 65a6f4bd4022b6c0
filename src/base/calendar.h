// Conversion between time stamps and dates. Used by the clock, the date patterns and the date conversions of
// the format engine.
#pragma once

#include <stdint.h>

/// The result of DateToSeconds for a date that has no stamp.
constexpr uint32_t kNoStamp = 0xFFFFFFFF;

constexpr uint32_t kSecondsPerMinute = 60;  ///< seconds in a minute
constexpr uint32_t kSecondsPerHour = 3600;  ///< seconds in an hour
constexpr uint32_t kSecondsPerDay = 86400;  ///< seconds in a day
constexpr uint32_t kDaysPerWeek = 7;        ///< days in a week

/// A date and time of day.
struct BrokenDownDate {
  /// 0 to 69 mean 2000 to 2069; 70 to 1899 are years after 1900; from 1900 on, the year itself.
  uint16_t year;
  uint16_t month;    ///< 1 to 12
  uint16_t day;      ///< 1 to 31
  uint16_t hour;     ///< 0 to 23
  uint16_t minute;   ///< 0 to 59
  uint16_t second;   ///< 0 to 59
  uint16_t weekday;  ///< 0 is Sunday
};

/// Returns the year that the year field of a date means.
constexpr uint32_t FullYear(uint16_t year) {
  return year < 70 ? year + 2000 : year < 1900 ? year + 1900 : year;
}

/// True for a leap year. Every fourth year counts as one, which is right from 1970 to 2099.
constexpr bool IsLeapYear(uint32_t year) {
  return year % 4 == 0;
}

/// Returns the zero-based day of the year; 0 if the month is not 1 to 12.
uint32_t DayOfYear(const BrokenDownDate& date);

extern "C" {

/// Returns the seconds from 1 January 1970 to `date`, or kNoStamp if the date is before 1970 or after 2099 or
/// its month is not 1 to 12. The weekday is ignored.
uint32_t DateToSeconds(const BrokenDownDate* date);

/// Fills every field of `date` from the seconds since 1 January 1970.
void SecondsToDate(uint32_t seconds, BrokenDownDate* date);

}  // extern "C"
