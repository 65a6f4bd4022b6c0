// Dates and times in the user's own style. Used by the date patterns and by the date conversions.
#pragma once

#include "base/calendar.h"

/// The styles of FormatLocaleDate.
enum LocaleDateStyle : unsigned {
  kShortDate = 3,           ///< the date in digits
  kLongDate = 4,            ///< the date with the month's name
  kTimeWithoutSeconds = 5,  ///< hours and minutes
  kTime = 6,                ///< the time of day
};

/// The bytes of the longest FormatLocaleDate text including its terminator: 256 UTF-16 characters in UTF-8.
constexpr uint32_t kLocaleDateSize = 256 * 3;

extern "C" {

/// Writes `date` in the user's style `style` into `buffer` in UTF-8, cut to `size` - 1 bytes (not within a
/// character) and terminated. Returns its length in bytes without the terminator; with a null buffer returns
/// the length of the whole text. The text is empty if the style is unknown or the system refuses the date.
unsigned FormatLocaleDate(const BrokenDownDate* date, unsigned style, char* buffer, unsigned size);

}  // extern "C"
