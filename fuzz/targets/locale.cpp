// Answers of the locale of any form. The record that the library keeps is well-formed, and numbers and dates
// that use it are.

#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"
#include "targets/texts.h"

#include "format/locale_date.h"
#include "format/locale_record.h"

namespace {

constinit Operation<unsigned(char*, unsigned, const char*, const uint64_t*)> callFormat("FormatStringV");
OPERATION(UserLocale);
OPERATION(FormatLocaleDate);

// True if the text consists of whole characters of UTF-8; damaged ones of the answer have become U+FFFD.
bool IsWholeUtf8(const std::string& text) {
  return NarrowOf(WideOf(text)) == text;
}

void CheckField(const char (&field)[kLocaleFieldSize], const char* name) {
  const size_t length = strnlen(field, sizeof field);
  REQUIRE(length < sizeof field, "the field %s is not terminated", name);
  REQUIRE(IsWholeUtf8(field), "the field %s ends within a character", name);
}

// Checks a name of the locale: the whole answer, or `fallback` if there is none.
void CheckName(const char* name, DWORD type, const char* fallback) {
  auto found = world.locale.find(type);
  std::u16string answer = found == world.locale.end() ? WideOf(fallback) : found->second;
  answer.resize(std::min(answer.find(u'\0'), answer.size()));
  REQUIRE(name == NarrowOf(answer), "the name of type %x is '%s'", type, name);
}

void CheckGrouping(const uint8_t (&grouping)[kMaxGroupSizes + 1]) {
  const auto* end = std::find(std::begin(grouping), std::end(grouping), kGroupSizesEnd);
  REQUIRE(end != std::end(grouping), "the group sizes have no end");
}

void CheckRecord(const LocaleRecord& record) {
  CheckField(record.positiveSign, "positiveSign");
  CheckField(record.negativeSign, "negativeSign");
  CheckField(record.decimalPoint, "decimalPoint");
  CheckField(record.thousandsSeparator, "thousandsSeparator");
  CheckField(record.currencySymbol, "currencySymbol");
  CheckField(record.monetaryDecimalPoint, "monetaryDecimalPoint");
  CheckField(record.monetaryThousandsSeparator, "monetaryThousandsSeparator");
  CheckField(record.dateSeparator, "dateSeparator");
  CheckField(record.timeSeparator, "timeSeparator");
  CheckGrouping(record.grouping);
  CheckGrouping(record.monetaryGrouping);
  constexpr uint8_t kLargestOrder = 9;
  REQUIRE(record.dateOrder <= kLargestOrder && record.timeOrder <= kLargestOrder, "an order is not a digit");
  if (HasFailed()) return;
  CheckName(record.morning, LOCALE_S1159, "AM");
  CheckName(record.afternoon, LOCALE_S2359, "PM");
  for (DWORD i = 0; i < kMonths; ++i) {
    CheckName(record.months[i], LOCALE_SMONTHNAME1 + i, "");
    CheckName(record.shortMonths[i], LOCALE_SABBREVMONTHNAME1 + i, "");
  }
  for (DWORD i = 0; i < kWeekdays; ++i) {
    CheckName(record.weekdays[i], LOCALE_SDAYNAME1 + i, "");
    CheckName(record.shortWeekdays[i], LOCALE_SABBREVDAYNAME1 + i, "");
  }
}

}  // namespace

void RunLocale(Data* data) {
  TakeFailure(data);
  ChooseClock(data);
  const unsigned size = data->Take<uint16_t>();
  const uint64_t number = data->Take<uint64_t>();
  const unsigned width = data->Below(100);
  ChooseLocale(data);
  const LocaleRecord* record = callUserLocale();
  REQUIRE(callUserLocale() == record, "the locale is read twice into different places");
  CheckRecord(*record);

  constexpr const char* kFormats[] = {"%'*lld", "%'0*llu", "%'-*llo", "%,#*llX", "%+,*lld"};
  const uint64_t slots[] = {width, number};
  const char* format = GuardedText(kFormats[size % std::size(kFormats)]);
  CheckText([&](char* buffer, unsigned capacity) { return callFormat(buffer, capacity, format, slots); },
            size, 0, 0);

  BrokenDownDate date{};
  memcpy(&date, &number, sizeof number);
  auto* place = static_cast<BrokenDownDate*>(GuardedBuffer(sizeof date));
  *place = date;
  constexpr unsigned kStyles = 9;
  constexpr unsigned kLongestCharacter = 3;
  if (HasFailed()) return;
  world.failing = 0;
  std::string text = CheckText(
      [&](char* buffer, unsigned capacity) {
        return callFormatLocaleDate(place, width % kStyles, buffer, capacity);
      },
      size, 0, kLongestCharacter);
  REQUIRE(IsWholeUtf8(text), "a date ends within a character");
}
