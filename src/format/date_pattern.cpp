#include "format/date_pattern.h"

#include <windows.h>

#include "base/clock.h"
#include "format/locale_date.h"
#include "format/locale_record.h"
#include "format/number_writer.h"

namespace {

constexpr uint32_t kNoon = 12;
constexpr uint32_t kMonthsPerQuarter = 3;
constexpr uint32_t kYearsPerCentury = 100;
constexpr uint32_t kMinutesPerHour = 60;

/// Letters that mean other patterns, which are written with "%".
constexpr struct {
  char letter;
  const char* pattern;
} kComposites[] = {
    {'c', "%a %b %e %H:%M:%S %Y"},
    {'D', "%m/%d/%y"},
    {'F', "%Y-%m-%d"},
    {'R', "%H:%M"},
    {'T', "%H:%M:%S"},
    {'r', "%I:%M:%S %p"},
    {'v', "%e-%b-%Y"},
    {'+', "%a, %d %b %Y %H:%M:%S %z"},
};

uint32_t DaysOfYear(uint32_t year) {
  return IsLeapYear(year) ? 366 : 365;
}

/// Returns Monday 0 to Sunday 6: the order in which the locale names the days.
uint32_t DayFromMonday(const BrokenDownDate& date) {
  return (date.weekday + 6u) % kDaysPerWeek;
}

struct IsoWeek {
  uint32_t year;
  uint32_t week;
};

/// Returns the ISO week. A week belongs to the year that contains its Thursday.
IsoWeek IsoWeekOf(const BrokenDownDate& date) {
  constexpr uint32_t kThursday = 3;
  uint32_t year = FullYear(date.year);
  // The week's Thursday as a day of the year; it may fall into the previous or the next year.
  int32_t thursday =
      static_cast<int32_t>(DayOfYear(date) + kThursday) - static_cast<int32_t>(DayFromMonday(date));
  if (thursday < 0) {
    --year;
    thursday += static_cast<int32_t>(DaysOfYear(year));
  } else if (thursday >= static_cast<int32_t>(DaysOfYear(year))) {
    thursday -= static_cast<int32_t>(DaysOfYear(year));
    ++year;
  }
  return {year, static_cast<uint32_t>(thursday) / kDaysPerWeek + 1};
}

/// A number of a date: written with at least `digits` digits, with `pad` before the number.
struct Number {
  uint32_t value;
  uint8_t digits;
  char pad;
};

/// Stores the number that `letter` means; false if it does not mean a number.
bool NumberOf(char letter, const BrokenDownDate& date, Number* number) {
  const uint32_t year = FullYear(date.year);
  const uint32_t hour12 = (date.hour + kNoon - 1) % kNoon + 1;
  switch (letter) {
    case 'C':
      *number = {year / kYearsPerCentury, 2, '0'};
      return true;
    case 'd':
      *number = {date.day, 2, '0'};
      return true;
    case 'e':
      *number = {date.day, 2, ' '};
      return true;
    case 'f':
      *number = {0, 6, '0'};
      return true;
    case 'g':
      *number = {IsoWeekOf(date).year % kYearsPerCentury, 2, '0'};
      return true;
    case 'G':
      *number = {IsoWeekOf(date).year, 1, '0'};
      return true;
    case 'H':
      *number = {date.hour, 2, '0'};
      return true;
    case 'I':
      *number = {hour12, 2, '0'};
      return true;
    case 'j':
      *number = {DayOfYear(date) + 1, 3, '0'};
      return true;
    case 'k':
      *number = {date.hour, 2, ' '};
      return true;
    case 'l':
      *number = {hour12, 2, ' '};
      return true;
    case 'm':
      *number = {date.month, 2, '0'};
      return true;
    case 'M':
      *number = {date.minute, 2, '0'};
      return true;
    case 'Q':
      *number = {(date.month + kMonthsPerQuarter - 1) / kMonthsPerQuarter, 1, '0'};
      return true;
    case 's':
      *number = {DateToSeconds(&date), 1, '0'};
      return true;
    case 'S':
      *number = {date.second, 2, '0'};
      return true;
    case 'u':
      *number = {DayFromMonday(date) + 1, 1, '0'};
      return true;
    case 'U':
      *number = {(DayOfYear(date) + kDaysPerWeek - date.weekday % kDaysPerWeek) / kDaysPerWeek, 2, '0'};
      return true;
    case 'V':
      *number = {IsoWeekOf(date).week, 2, '0'};
      return true;
    case 'w':
      *number = {date.weekday % kDaysPerWeek, 1, '0'};
      return true;
    case 'W':
      *number = {(DayOfYear(date) + kDaysPerWeek - DayFromMonday(date)) / kDaysPerWeek, 2, '0'};
      return true;
    case 'y':
      *number = {year % kYearsPerCentury, 2, '0'};
      return true;
    case 'Y':
      *number = {year, 1, '0'};
      return true;
    default:
      return false;
  }
}

/// Writes a number, padded to at least `digits` digits.
void PutNumber(TextSink* sink, const Number& number) {
  char text[kMaxDecimalDigits];
  uint32_t count = CountDecimalDigits(number.value);
  for (uint32_t i = count; i < number.digits; ++i) sink->Put(&number.pad, 1);
  StoreDecimal(text, number.value, count);
  sink->Put(text, count);
}

/// Returns the text that `letter` means, in the form of the locale, or null.
const char* LocaleTextOf(char letter, const BrokenDownDate& date) {
  const LocaleRecord* locale = UserLocale();
  const bool hasMonth = date.month >= 1 && date.month <= kMonths;
  switch (letter) {
    case 'a':
      return locale->shortWeekdays[DayFromMonday(date)];
    case 'A':
      return locale->weekdays[DayFromMonday(date)];
    case 'b':
    case 'h':
      return hasMonth ? locale->shortMonths[date.month - 1] : "";
    case 'B':
      return hasMonth ? locale->months[date.month - 1] : "";
    case 'p':
      return date.hour < kNoon ? locale->morning : locale->afternoon;
    case '/':
      return locale->dateSeparator;
    case ':':
      return locale->timeSeparator;
    case 'n':
      return "\n";
    case 't':
      return "\t";
    default:
      return nullptr;
  }
}

void PutLocaleDate(TextSink* sink, const BrokenDownDate& date, unsigned style) {
  char text[kLocaleDateSize];
  sink->Put(text, FormatLocaleDate(&date, style, text, sizeof text));
}

void PutZone(TextSink* sink) {
  const ZoneText zone = CurrentZone();
  sink->Put(&zone.sign, 1);
  PutNumber(sink, {zone.hours, 2, '0'});
  PutNumber(sink, {zone.minutes, 2, '0'});
}

/// Writes the current name of the zone; nothing if Windows does not report it.
void PutZoneName(TextSink* sink) {
  TIME_ZONE_INFORMATION zone;
  const DWORD kind = GetTimeZoneInformation(&zone);
  if (kind == TIME_ZONE_ID_INVALID) return;
  constexpr int kBytesPerUnit = 3;
  constexpr int kUnits = sizeof zone.StandardName / sizeof zone.StandardName[0];
  char text[kUnits * kBytesPerUnit + 1];
  const wchar_t* name = kind == TIME_ZONE_ID_DAYLIGHT ? zone.DaylightName : zone.StandardName;
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, name, -1, text, sizeof text, nullptr, nullptr);
  if (bytes > 0) sink->Put(text, static_cast<uint32_t>(bytes) - 1);
}

void PutLetter(TextSink* sink, char letter, const BrokenDownDate& date) {
  for (const auto& composite : kComposites) {
    if (composite.letter == letter) {
      PutDatePattern(sink, composite.pattern, kToTerminator, date, '%');
      return;
    }
  }
  Number number;
  if (NumberOf(letter, date, &number)) {
    PutNumber(sink, number);
  } else if (const char* text = LocaleTextOf(letter, date)) {
    sink->Put(text, kToTerminator);
  } else if (letter == 'x') {
    PutLocaleDate(sink, date, kLongDate);
  } else if (letter == 'X') {
    PutLocaleDate(sink, date, kTime);
  } else if (letter == 'z') {
    PutZone(sink);
  } else if (letter == 'Z') {
    PutZoneName(sink);
  } else {
    sink->Put(&letter, 1);
  }
}

}  // namespace

ZoneText CurrentZone() {
  int32_t offset;
  ZoneOffsetMinutes(&offset);
  const uint32_t magnitude = static_cast<uint32_t>(offset < 0 ? -offset : offset);
  return {offset < 0 ? '-' : '+', magnitude / kMinutesPerHour, magnitude % kMinutesPerHour};
}

void PutDatePattern(TextSink* sink, const char* pattern, uint32_t patternLength, const BrokenDownDate& date,
                    char escape) {
  if (patternLength == kToTerminator) {
    patternLength = 0;
    while (pattern[patternLength]) ++patternLength;
  }
  const char* end = pattern + patternLength;
  while (pattern < end && !sink->Full()) {
    const char* plain = pattern;
    while (pattern < end && *pattern != escape) ++pattern;
    sink->Put(plain, static_cast<uint32_t>(pattern - plain));
    // An escape character at the very end of a pattern writes nothing.
    if (end - pattern < 2) break;
    PutLetter(sink, pattern[1], date);
    pattern += 2;
  }
}

unsigned FormatDatePattern(char* buffer, unsigned size, const char* pattern, unsigned patternLength,
                           const BrokenDownDate* date, char escape) {
  constexpr uint32_t kUnlimited = 0xFFFFFFFE;
  if (buffer && size == 0) return 0;
  const uint32_t room = buffer ? size - 1 : kUnlimited;
  Output output{buffer, room};
  TextSink sink(&output, 0);
  PutDatePattern(&sink, pattern, patternLength, *date, escape ? escape : '%');
  if (buffer) *output.at = 0;
  return room - output.room;
}
