// Dates and times in the user's own style. Used by the date patterns and by the date conversions.
#pragma once

#include "base/calendar.h"

/// The styles of FormatLocaleDate.
enum LocaleDateStyle : unsigned {
  kShortDate = 3,           ///< the date in figures
  kLongDate = 4,            ///< the date with the month's name
  kTimeWithoutSeconds = 5,  ///< hours and minutes
  kTime = 6,                ///< the time of day
};

/// The bytes of any FormatLocaleDate text, its terminator included: 256 characters of UTF-16 in UTF-8.
constexpr uint32_t kLocaleDateSize = 256 * 3;

extern "C" {

/// Writes `date` in the user's style `style` into `buffer` in UTF-8, cut to `size` - 1 bytes (not within a
/// character) and terminated, and returns its length in bytes without the terminator. With a null buffer
/// returns the length of the whole text. An unknown style, and a date that the system refuses, give an empty
/// text.
unsigned FormatLocaleDate(const BrokenDownDate* date, unsigned style, char* buffer, unsigned size);

}  // extern "C"
