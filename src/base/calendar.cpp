#include "base/calendar.h"

namespace {

constexpr uint32_t kFirstYear = 1970;
constexpr uint32_t kLastYear = 2099;
constexpr uint32_t kLastStamp = 4102444799;  // the last second of kLastYear
constexpr uint32_t kMonthsPerYear = 12;
constexpr uint32_t kCommonYear = 31536000;
constexpr uint32_t kLeapYear = 31622400;
/// 1 January 1970 was a Thursday.
constexpr uint32_t kFirstWeekday = 4;
/// 29 February as the zero-based day of a leap year; later days are one higher than in a common year.
constexpr uint32_t kLeapDay = 59;
constexpr uint32_t kFebruary = 2;

/// The zero-based day of a common year on which each month ends; -1 before January.
constexpr int16_t kMonthEnds[kMonthsPerYear + 1] = {-1,  30,  58,  89,  119, 150, 180,
                                                    211, 242, 272, 303, 333, 364};

constexpr uint32_t YearLength(uint32_t year) {
  return IsLeapYear(year) ? kLeapYear : kCommonYear;
}

/// Returns the zero-based day of the year; `month` is 1 to 12.
int32_t DayInYear(uint32_t year, uint32_t month, uint32_t day) {
  const int32_t shift = IsLeapYear(year) && month > kFebruary ? 1 : 0;
  return kMonthEnds[month - 1] + static_cast<int32_t>(day) + shift;
}

}  // namespace

uint32_t DayOfYear(const BrokenDownDate& date) {
  if (date.month < 1 || date.month > kMonthsPerYear) return 0;
  const int32_t day = DayInYear(FullYear(date.year), date.month, date.day);
  return day < 0 ? 0 : static_cast<uint32_t>(day);
}

uint32_t DateToSeconds(const BrokenDownDate* date) {
  const uint32_t year = FullYear(date->year);
  if (year < kFirstYear || year > kLastYear || date->month < 1 || date->month > kMonthsPerYear)
    return kNoStamp;
  const uint32_t years = year - kFirstYear;
  const int64_t leapDays = (years + 1) / 4;
  const int64_t days = int64_t{years} * 365 + leapDays + DayInYear(year, date->month, date->day);
  const int64_t seconds =
      days * kSecondsPerDay + date->hour * kSecondsPerHour + date->minute * kSecondsPerMinute + date->second;
  return seconds < 0 || seconds > kLastStamp ? kNoStamp : static_cast<uint32_t>(seconds);
}

void SecondsToDate(uint32_t seconds, BrokenDownDate* date) {
  date->weekday = static_cast<uint16_t>((seconds / kSecondsPerDay + kFirstWeekday) % kDaysPerWeek);

  uint32_t year = kFirstYear;
  while (seconds >= YearLength(year)) seconds -= YearLength(year++);
  date->year = static_cast<uint16_t>(year);

  uint32_t day = seconds / kSecondsPerDay;
  const bool isLeapDay = IsLeapYear(year) && day == kLeapDay;
  if (IsLeapYear(year) && day >= kLeapDay) --day;
  uint32_t month = 1;
  while (static_cast<int32_t>(day) > kMonthEnds[month]) ++month;
  date->month = static_cast<uint16_t>(month);
  date->day = static_cast<uint16_t>(static_cast<int32_t>(day) - kMonthEnds[month - 1] + (isLeapDay ? 1 : 0));

  seconds %= kSecondsPerDay;
  date->hour = static_cast<uint16_t>(seconds / kSecondsPerHour);
  date->minute = static_cast<uint16_t>(seconds % kSecondsPerHour / kSecondsPerMinute);
  date->second = static_cast<uint16_t>(seconds % kSecondsPerMinute);
}
