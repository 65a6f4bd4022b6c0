// Conversion between time stamps and dates. Used by the clock, the date patterns and the date conversions of
// the format engine.
#pragma once

#include <stdint.h>

/// What DateToSeconds yields for a date that no stamp stands for.
constexpr uint32_t kNoStamp = 0xFFFFFFFF;

constexpr uint32_t kSecondsPerMinute = 60;  ///< seconds of a minute
constexpr uint32_t kSecondsPerHour = 3600;  ///< seconds of an hour
constexpr uint32_t kSecondsPerDay = 86400;  ///< seconds of a day
constexpr uint32_t kDaysPerWeek = 7;        ///< days of a week

/// A date and time of day.
struct BrokenDownDate {
  /// 0 to 69 stand for 2000 to 2069, 70 to 1899 for so many years after 1900; from 1900 on the year itself.
  uint16_t year;
  uint16_t month;    ///< 1 to 12
  uint16_t day;      ///< 1 to 31
  uint16_t hour;     ///< 0 to 23
  uint16_t minute;   ///< 0 to 59
  uint16_t second;   ///< 0 to 59
  uint16_t weekday;  ///< 0 is Sunday
};

/// The year that a date's year field stands for.
constexpr uint32_t FullYear(uint16_t year) {
  return year < 70 ? year + 2000 : year < 1900 ? year + 1900 : year;
}

/// Leap years as the calendar has them: every fourth year, which is right from 1970 to 2099.
constexpr bool IsLeapYear(uint32_t year) {
  return year % 4 == 0;
}

/// The zero-based day of the year.
uint32_t DayOfYear(const BrokenDownDate& date);

extern "C" {

/// The seconds from 1 January 1970 to `date`, or kNoStamp when it lies before that day, past 2099, or in no
/// month. The weekday is not looked at.
uint32_t DateToSeconds(const BrokenDownDate* date);

/// Fills every field of `date` from the seconds since 1 January 1970.
void SecondsToDate(uint32_t seconds, BrokenDownDate* date);

}  // extern "C"
