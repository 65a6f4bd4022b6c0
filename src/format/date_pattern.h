// Dates by pattern, like C's strftime. Used by the date conversions of the format engine and by actions.
//
// In a pattern, one of these letters follows the escape character; any other character after it is written
// unchanged. The letters mean the same as in C's strftime, with the names and designators of the user's
// locale:
//
//   a A   the weekday's short and full name      b h B the month's short and full name
//   C     the century                            d e   the day: 01, or with a blank
//   f     microseconds: always 000000            g G   the year of the ISO week: two digits, in full
//   H k   the hour to 23: 00, or with a blank    I l   the hour to 12: 01, or with a blank
//   j     the day of the year, from 001          m     the month, from 01
//   M     the minute                             n t   a line feed, a tab
//   p     the AM or PM designator                Q     the quarter of the year, from 1
//   s     seconds since 1970                     S     the second
//   u w   the weekday: Monday 1 to Sunday 7, Sunday 0 to Saturday 6
//   U W   the week of the year from 00, weeks beginning with Sunday and with Monday
//   V     the ISO week, from 01                  x X   the locale's long date, the locale's time
//   y Y   the year: two digits, in full          z Z   the zone offset ("+0130"), the zone's name
//   / :   the locale's date and time separator
//   c     %a %b %e %H:%M:%S %Y                   D     %m/%d/%y
//   F     %Y-%m-%d                               r     %I:%M:%S %p
//   R     %H:%M                                  T     %H:%M:%S
//   v     %e-%b-%Y                               +     %a, %d %b %Y %H:%M:%S %z
#pragma once

#include "base/calendar.h"
#include "format/text_sink.h"

extern "C" {

/// Writes `date` in the form of `pattern` into `buffer`, cut to `size` - 1 bytes and terminated, and returns
/// the length in bytes without the terminator; writes nothing if `size` is 0. With a null buffer returns the
/// length of the whole text. `patternLength` is in bytes; kToTerminator means up to the terminator. `escape`
/// 0 means "%".
unsigned FormatDatePattern(char* buffer, unsigned size, const char* pattern, unsigned patternLength,
                           const BrokenDownDate* date, char escape);

}  // extern "C"

/// Like FormatDatePattern, but writes into a sink. `escape` 0 does not mean "%" here.
void PutDatePattern(TextSink* sink, const char* pattern, uint32_t patternLength, const BrokenDownDate& date,
                    char escape);

/// A zone offset in its written form: sign, hours and minutes.
struct ZoneText {
  char sign;         ///< "+" east of Greenwich, "-" west of it
  uint32_t hours;    ///< whole hours
  uint32_t minutes;  ///< the remaining minutes
};

/// Returns the local zone's offset; "+", 0 and 0 if Windows does not report it.
ZoneText CurrentZone();
