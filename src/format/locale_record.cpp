#include "format/locale_record.h"

#include <windows.h>

#include "base/text.h"

namespace {

/// The most characters of one answer from the system.
constexpr uint32_t kAnswerSize = 256;
/// The most UTF-8 bytes of a UTF-16 unit.
constexpr uint32_t kBytesPerUnit = 3;
/// Space for all names at their longest, including those of the halves of the day. Only the used part is ever
/// touched.
constexpr uint32_t kHalves = 2;
constexpr uint32_t kNames = kHalves + 2 * (kMonths + kWeekdays);
constexpr uint32_t kNamePoolSize = kNames * kAnswerSize * kBytesPerUnit;
/// The length of a missing answer; an empty answer has length 0.
constexpr uint32_t kNoAnswer = 0xFFFFFFFF;

struct State {
  bool isRead;
  LocaleRecord record;
  uint32_t namesUsed;
  char names[kNamePoolSize];
};
State state;

/// Asks the system for `type` and stores the answer in UTF-8, terminated and cut to whole characters, in
/// `size` bytes. Returns its length, or kNoAnswer, and then the text is empty.
uint32_t ReadText(LCTYPE type, char* text, uint32_t size) {
  wchar_t wide[kAnswerSize];
  char converted[kAnswerSize * kBytesPerUnit];
  text[0] = 0;
  if (GetLocaleInfoW(LOCALE_USER_DEFAULT, type, wide, kAnswerSize) <= 0) return kNoAnswer;
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide, -1, converted, sizeof converted, nullptr, nullptr);
  if (bytes <= 0) return kNoAnswer;
  uint32_t length = static_cast<uint32_t>(bytes) - 1;
  if (length > size - 1) {
    length = size - 1;
    while (length > 0 && (converted[length] & 0xC0) == 0x80) --length;
  }
  for (uint32_t i = 0; i < length; ++i) text[i] = converted[i];
  text[length] = 0;
  return length;
}

/// How an empty answer is treated: it is kept, or it counts as no answer.
enum class Empty { kStands, kIsNone };

void ReadField(LCTYPE type, const char* fallback, Empty empty, char (&field)[kLocaleFieldSize]) {
  const uint32_t length = ReadText(type, field, kLocaleFieldSize);
  if (length != kNoAnswer && (length != 0 || empty == Empty::kStands)) return;
  // Each fallback fits.
  TxtCopyA(field, fallback);
}

/// Reads a whole name into the pool and returns it; `fallback` if there is no answer.
const char* ReadName(LCTYPE type, const char* fallback) {
  char* name = state.names + state.namesUsed;
  const uint32_t length = ReadText(type, name, kNamePoolSize - state.namesUsed);
  if (length == kNoAnswer) return fallback;
  state.namesUsed += length + 1;
  return name;
}

void ReadNames(LCTYPE first, const char** names, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) names[i] = ReadName(first + i, "");
}

/// Reads the group sizes, which ";" separates.
void ReadGrouping(uint8_t (&grouping)[kMaxGroupSizes + 1]) {
  char field[kLocaleFieldSize];
  ReadField(LOCALE_SGROUPING, "3;0", Empty::kIsNone, field);
  uint32_t count = 0;
  // Each group takes at least one character of the field.
  static_assert(kMaxGroupSizes >= kLocaleFieldSize - 1);
  for (const char* at = field; *at; ++at) {
    uint32_t size = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
      size = size * 10 + static_cast<uint32_t>(*at - '0');
      if (size >= kGroupSizesEnd) size = kGroupSizesEnd - 1;
    }
    grouping[count++] = static_cast<uint8_t>(size);
    while (*at && *at != ';') ++at;
    if (*at == 0) break;
  }
  grouping[count] = kGroupSizesEnd;
}

uint8_t ReadOrder(LCTYPE type) {
  char field[kLocaleFieldSize];
  ReadField(type, "0", Empty::kIsNone, field);
  return field[0] >= '0' && field[0] <= '9' ? static_cast<uint8_t>(field[0] - '0') : uint8_t{0};
}

void Read(LocaleRecord* record) {
  ReadField(LOCALE_SPOSITIVESIGN, "+", Empty::kIsNone, record->positiveSign);
  ReadField(LOCALE_SNEGATIVESIGN, "-", Empty::kIsNone, record->negativeSign);
  ReadField(LOCALE_SDECIMAL, ".", Empty::kIsNone, record->decimalPoint);
  ReadField(LOCALE_STHOUSAND, ",", Empty::kIsNone, record->thousandsSeparator);
  ReadField(LOCALE_SCURRENCY, "$", Empty::kIsNone, record->currencySymbol);
  ReadGrouping(record->grouping);
  __builtin_memcpy(record->monetaryDecimalPoint, record->decimalPoint, kLocaleFieldSize);
  __builtin_memcpy(record->monetaryThousandsSeparator, record->thousandsSeparator, kLocaleFieldSize);
  __builtin_memcpy(record->monetaryGrouping, record->grouping, sizeof record->grouping);

  ReadField(LOCALE_SDATE, "/", Empty::kStands, record->dateSeparator);
  ReadField(LOCALE_STIME, ":", Empty::kStands, record->timeSeparator);
  record->morning = ReadName(LOCALE_S1159, "AM");
  record->afternoon = ReadName(LOCALE_S2359, "PM");
  record->dateOrder = ReadOrder(LOCALE_IDATE);
  record->timeOrder = ReadOrder(LOCALE_ITIME);
  ReadNames(LOCALE_SMONTHNAME1, record->months, kMonths);
  ReadNames(LOCALE_SABBREVMONTHNAME1, record->shortMonths, kMonths);
  ReadNames(LOCALE_SDAYNAME1, record->weekdays, kWeekdays);
  ReadNames(LOCALE_SABBREVDAYNAME1, record->shortWeekdays, kWeekdays);
}

}  // namespace

const LocaleRecord* UserLocale() {
  if (!state.isRead) {
    Read(&state.record);
    state.isRead = true;
  }
  return &state.record;
}
