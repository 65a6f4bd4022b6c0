// The user's locale as the format engine and the date patterns need it, read once for the process. Used by
// the number, floating-point and date writers.
#pragma once

#include <stdint.h>

/// The bytes of a short field, its terminator included.
constexpr uint32_t kLocaleFieldSize = 16;
/// Group sizes that are kept at most.
constexpr uint32_t kMaxGroupSizes = 15;
/// Ends the group sizes.
constexpr uint8_t kGroupSizesEnd = 255;
constexpr uint32_t kMonths = 12;   ///< months of a year
constexpr uint32_t kWeekdays = 7;  ///< days of a week

/// One user's number and date conventions. All text is UTF-8 and terminated. A field that the system cannot
/// tell has the default named here; the number fields have it also where the system's answer is empty.
struct LocaleRecord {
  char positiveSign[kLocaleFieldSize];                ///< "+"
  char negativeSign[kLocaleFieldSize];                ///< "-"
  char decimalPoint[kLocaleFieldSize];                ///< "."
  char thousandsSeparator[kLocaleFieldSize];          ///< ","
  char currencySymbol[kLocaleFieldSize];              ///< "$"
  char monetaryDecimalPoint[kLocaleFieldSize];        ///< the copy of `decimalPoint`
  char monetaryThousandsSeparator[kLocaleFieldSize];  ///< the copy of `thousandsSeparator`
  /// Sizes of the digit groups from the right, ended by kGroupSizesEnd; a 0 repeats the size before it.
  /// Default: 3, 0.
  uint8_t grouping[kMaxGroupSizes + 1];
  /// The copy of `grouping`.
  uint8_t monetaryGrouping[kMaxGroupSizes + 1];

  char dateSeparator[kLocaleFieldSize];  ///< "/"
  char timeSeparator[kLocaleFieldSize];  ///< ":"
  uint8_t dateOrder;                     ///< 0 month-day-year, 1 day-month-year, 2 year-month-day; 0
  uint8_t timeOrder;                     ///< 0 twelve hours, 1 twenty-four hours; 0

  const char* morning;                   ///< "AM"
  const char* afternoon;                 ///< "PM"
  const char* months[kMonths];           ///< January first; ""
  const char* shortMonths[kMonths];      ///< January first; ""
  const char* weekdays[kWeekdays];       ///< Monday first; ""
  const char* shortWeekdays[kWeekdays];  ///< Monday first; ""
};

extern "C" {

/// The user's locale, read from the system at the first call. Never freed.
const LocaleRecord* UserLocale();

}  // extern "C"
