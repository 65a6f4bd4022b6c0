#include "format/date_writer.h"

#include "base/clock.h"
#include "format/date_pattern.h"
#include "format/format.h"
#include "format/locale_date.h"
#include "format/text_writer.h"

namespace {

/// The escape character of patterns inside a format.
constexpr char kPatternEscape = '#';

struct DatedPattern {
  const Directive* directive;
  const BrokenDownDate* date;
};

void PutPattern(TextSink* sink, const void* context) {
  const auto* dated = static_cast<const DatedPattern*>(context);
  PutDatePattern(sink, dated->directive->text, dated->directive->textLength, *dated->date, kPatternEscape);
}

/// Writes the text of a date. "+" has chosen the form of the date and escapes nothing.
void WriteDateText(Output* output, const char* text, uint32_t length, const Directive& directive) {
  WriteOwnText(output, text, length, directive.flags, directive.width);
}

/// Writes a date in any form but the compact one.
void WriteDate(Output* output, uint32_t seconds, const Directive& directive) {
  BrokenDownDate date;
  SecondsToDate(seconds, &date);
  if (directive.text) {
    const DatedPattern dated{&directive, &date};
    WriteComposed(output, PutPattern, &dated, directive.flags & ~static_cast<uint32_t>(kPlus),
                  directive.width);
    return;
  }
  char text[2 * kLocaleDateSize];
  uint32_t length = FormatLocaleDate(&date, kShortDate, text, kLocaleDateSize);
  if (directive.flags & kPlus) {
    text[length++] = ' ';
    length += FormatLocaleDate(&date, kTime, text + length, kLocaleDateSize);
  }
  WriteDateText(output, text, length, directive);
}

/// Writes a compact stamp, if it fits with a terminator.
void WriteCompact(Output* output, uint32_t seconds, bool isUtc, const Directive& directive) {
  constexpr uint32_t kUtcSize = 16;
  constexpr uint32_t kZonedSize = 20;
  const uint32_t size = isUtc ? kUtcSize : kZonedSize;
  if (output->room < size) return;
  BrokenDownDate date;
  SecondsToDate(seconds, &date);
  char text[kZonedSize];
  if (isUtc) {
    FormatString(text, sizeof text, "%04d%02d%02d%02d%02d%02dZ", date.year, date.month, date.day, date.hour,
                 date.minute, date.second);
  } else {
    const ZoneText zone = CurrentZone();
    const char sign[] = {zone.sign, 0};
    FormatString(text, sizeof text, "%04d%02d%02d%02d%02d%02d%s%02ld%02ld", date.year, date.month, date.day,
                 date.hour, date.minute, date.second, sign, zone.hours, zone.minutes);
  }
  WriteDateText(output, text, size - 1, directive);
}

}  // namespace

void WriteStamp(Output* output, int64_t seconds, const Directive& directive) {
  const uint32_t stamp = seconds != 0 ? ClampStamp(seconds) : LocalTimeOf(CurrentTimeLocal());
  if ((directive.flags & kAlternate) && !directive.text) {
    WriteCompact(output, stamp, false, directive);
  } else {
    WriteDate(output, stamp, directive);
  }
}

void WriteUtcStamp(Output* output, int64_t seconds, const Directive& directive) {
  const int64_t stamp = seconds != 0 ? seconds : CurrentTimeUtc();
  if ((directive.flags & kAlternate) && !directive.text) {
    WriteCompact(output, ClampStamp(stamp), true, directive);
  } else {
    WriteDate(output, LocalTimeOf(stamp), directive);
  }
}
