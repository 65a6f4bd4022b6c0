#include "format/locale_date.h"

#include <windows.h>

namespace {

/// The size of the work buffer in characters.
constexpr int kWorkSize = 256;

constexpr struct {
  unsigned style;
  bool isTime;
  DWORD flags;
} kStyles[] = {
    {kShortDate, false, DATE_SHORTDATE},
    {kLongDate, false, DATE_LONGDATE},
    {kTimeWithoutSeconds, true, TIME_NOSECONDS},
    {kTime, true, 0},
};

/// Stores the text in `style` in wide characters, terminated, and returns their number; 0 on failure.
int AskSystem(const BrokenDownDate& date, unsigned style, wchar_t* text) {
  const SYSTEMTIME time{static_cast<WORD>(FullYear(date.year)),
                        date.month,
                        date.weekday,
                        date.day,
                        date.hour,
                        date.minute,
                        date.second,
                        0};
  for (const auto& entry : kStyles) {
    if (entry.style != style) continue;
    return entry.isTime ? GetTimeFormatW(LOCALE_USER_DEFAULT, entry.flags, &time, nullptr, text, kWorkSize)
                        : GetDateFormatW(LOCALE_USER_DEFAULT, entry.flags, &time, nullptr, text, kWorkSize);
  }
  return 0;
}

}  // namespace

unsigned FormatLocaleDate(const BrokenDownDate* date, unsigned style, char* buffer, unsigned size) {
  wchar_t wide[kWorkSize];
  char text[kLocaleDateSize];
  if (buffer && size == 0) return 0;
  unsigned length = 0;
  if (AskSystem(*date, style, wide) > 0) {
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof text, nullptr, nullptr);
    if (bytes > 0) length = static_cast<unsigned>(bytes) - 1;
  }
  if (!buffer) return length;
  if (length > size - 1) {
    length = size - 1;
    while (length > 0 && (text[length] & 0xC0) == 0x80) --length;
  }
  for (unsigned i = 0; i < length; ++i) buffer[i] = text[i];
  buffer[length] = 0;
  return length;
}
