// The user's locale for the format engine and the date patterns, read once for the process. Used by the
// number, floating-point and date writers.
#pragma once

#include <stdint.h>

/// The bytes of a short field including its terminator.
constexpr uint32_t kLocaleFieldSize = 16;
/// The most group sizes that are kept.
constexpr uint32_t kMaxGroupSizes = 15;
/// Ends the group sizes.
constexpr uint8_t kGroupSizesEnd = 255;
constexpr uint32_t kMonths = 12;   ///< months in a year
constexpr uint32_t kWeekdays = 7;  ///< days in a week

/// One user's number and date conventions. All text is UTF-8 and terminated. A field has the default listed
/// here if the system does not report it; a number field also if the system's answer is empty.
struct LocaleRecord {
  char positiveSign[kLocaleFieldSize];                ///< "+"
  char negativeSign[kLocaleFieldSize];                ///< "-"
  char decimalPoint[kLocaleFieldSize];                ///< "."
  char thousandsSeparator[kLocaleFieldSize];          ///< ","
  char currencySymbol[kLocaleFieldSize];              ///< "$"
  char monetaryDecimalPoint[kLocaleFieldSize];        ///< a copy of `decimalPoint`
  char monetaryThousandsSeparator[kLocaleFieldSize];  ///< a copy of `thousandsSeparator`
  /// Sizes of the digit groups from the right, ended by kGroupSizesEnd; a 0 repeats the size before it.
  /// Default: 3, 0.
  uint8_t grouping[kMaxGroupSizes + 1];
  /// A copy of `grouping`.
  uint8_t monetaryGrouping[kMaxGroupSizes + 1];

  char dateSeparator[kLocaleFieldSize];  ///< "/"
  char timeSeparator[kLocaleFieldSize];  ///< ":"
  uint8_t dateOrder;                     ///< 0 month-day-year, 1 day-month-year, 2 year-month-day; default 0
  uint8_t timeOrder;                     ///< 0 twelve hours, 1 twenty-four hours; default 0

  const char* morning;                   ///< "AM"
  const char* afternoon;                 ///< "PM"
  const char* months[kMonths];           ///< January first; default ""
  const char* shortMonths[kMonths];      ///< January first; default ""
  const char* weekdays[kWeekdays];       ///< Monday first; default ""
  const char* shortWeekdays[kWeekdays];  ///< Monday first; default ""
};

extern "C" {

/// Returns the user's locale, which the first call reads from the system. Never freed.
const LocaleRecord* UserLocale();

}  // extern "C"
