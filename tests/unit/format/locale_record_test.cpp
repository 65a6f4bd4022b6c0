// The user's locale as the engine stores it.

#include "format/locale_record.h"

#include "format/locale_date.h"
#include "unit/format/format_support.h"

namespace format_test {
namespace {

HX_INTERNAL(UserLocale);
HX_INTERNAL(FormatLocaleDate);

class LocaleRecordTest : public FormatTest {};

TEST_F(LocaleRecordTest, EveryFieldIsRead) {
  culture = {{LOCALE_SPOSITIVESIGN, L"p"}, {LOCALE_SNEGATIVESIGN, L"n"}, {LOCALE_SDECIMAL, L"d"},
             {LOCALE_STHOUSAND, L"t"},     {LOCALE_SGROUPING, L"4;2;0"}, {LOCALE_SCURRENCY, L"\u20AC"},
             {LOCALE_SDATE, L"-"},         {LOCALE_STIME, L"."},         {LOCALE_S1159, L"morning"},
             {LOCALE_S2359, L"evening"},   {LOCALE_IDATE, L"2"},         {LOCALE_ITIME, L"1"}};
  for (LCTYPE i = 0; i < 12; ++i) {
    culture[LOCALE_SMONTHNAME1 + i] = L"month \u00E9" + std::to_wstring(i);
    culture[LOCALE_SABBREVMONTHNAME1 + i] = L"m" + std::to_wstring(i);
  }
  for (LCTYPE i = 0; i < 7; ++i) {
    culture[LOCALE_SDAYNAME1 + i] = L"day " + std::to_wstring(i);
    culture[LOCALE_SABBREVDAYNAME1 + i] = L"d" + std::to_wstring(i);
  }
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->positiveSign, "p");
  EXPECT_STREQ(record->negativeSign, "n");
  EXPECT_STREQ(record->decimalPoint, "d");
  EXPECT_STREQ(record->thousandsSeparator, "t");
  EXPECT_STREQ(record->currencySymbol, "\xE2\x82\xAC");
  EXPECT_STREQ(record->monetaryDecimalPoint, "d");
  EXPECT_STREQ(record->monetaryThousandsSeparator, "t");
  const uint8_t grouping[] = {4, 2, 0, 255};
  EXPECT_EQ(memcmp(record->grouping, grouping, sizeof grouping), 0);
  EXPECT_EQ(memcmp(record->monetaryGrouping, grouping, sizeof grouping), 0);
  EXPECT_STREQ(record->dateSeparator, "-");
  EXPECT_STREQ(record->timeSeparator, ".");
  EXPECT_STREQ(record->morning, "morning");
  EXPECT_STREQ(record->afternoon, "evening");
  EXPECT_EQ(record->dateOrder, 2);
  EXPECT_EQ(record->timeOrder, 1);
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(record->months[i], "month \u00E9" + std::to_string(i));
    EXPECT_EQ(record->shortMonths[i], "m" + std::to_string(i));
  }
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(record->weekdays[i], "day " + std::to_string(i));
    EXPECT_EQ(record->shortWeekdays[i], "d" + std::to_string(i));
  }
}

TEST_F(LocaleRecordTest, ItIsReadOnce) {
  EXPECT_EQ(localeQuestions, 0);
  const LocaleRecord* record = UserLocale();
  const int questions = localeQuestions;
  EXPECT_EQ(questions, 12 + 12 + 12 + 7 + 7);
  culture.clear();
  EXPECT_EQ(UserLocale(), record);
  EXPECT_EQ(localeQuestions, questions);
  EXPECT_STREQ(record->months[0], "January");
}

TEST_F(LocaleRecordTest, FieldsThatTheSystemDoesNotReportHaveDefaults) {
  culture.clear();
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->positiveSign, "+");
  EXPECT_STREQ(record->negativeSign, "-");
  EXPECT_STREQ(record->decimalPoint, ".");
  EXPECT_STREQ(record->thousandsSeparator, ",");
  EXPECT_STREQ(record->currencySymbol, "$");
  EXPECT_STREQ(record->monetaryDecimalPoint, ".");
  EXPECT_STREQ(record->monetaryThousandsSeparator, ",");
  const uint8_t grouping[] = {3, 0, 255};
  EXPECT_EQ(memcmp(record->grouping, grouping, sizeof grouping), 0);
  EXPECT_STREQ(record->dateSeparator, "/");
  EXPECT_STREQ(record->timeSeparator, ":");
  EXPECT_STREQ(record->morning, "AM");
  EXPECT_STREQ(record->afternoon, "PM");
  EXPECT_EQ(record->dateOrder, 0);
  EXPECT_EQ(record->timeOrder, 0);
  EXPECT_STREQ(record->months[11], "");
  EXPECT_STREQ(record->shortWeekdays[6], "");
}

TEST_F(LocaleRecordTest, FieldsHaveSixteenBytes) {
  culture[LOCALE_SCURRENCY] = L"123456789012345";
  culture[LOCALE_SDECIMAL] = L"1234567890123456";
  // Not cut within a character: the last one would end at byte 16.
  culture[LOCALE_STHOUSAND] = L"1234567890123\u20AC";
  culture[LOCALE_SDATE] = L"123456789012\u20AC";
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->currencySymbol, "123456789012345");
  EXPECT_STREQ(record->decimalPoint, "123456789012345");
  EXPECT_STREQ(record->thousandsSeparator, "1234567890123");
  EXPECT_STREQ(record->dateSeparator, "123456789012\xE2\x82\xAC");
}

TEST_F(LocaleRecordTest, GroupSizesAreAtMostFifteen) {
  culture[LOCALE_SGROUPING] = L"1;2;3;4;5;6;7;8";
  const uint8_t eight[] = {1, 2, 3, 4, 5, 6, 7, 8, 255};
  EXPECT_EQ(memcmp(UserLocale()->grouping, eight, sizeof eight), 0);
}

TEST_F(LocaleRecordTest, FifteenGroupSizesFillAField) {
  culture[LOCALE_SGROUPING] = L";;;;;;;;;;;;;;;";
  uint8_t fifteen[16] = {};
  fifteen[15] = 255;
  EXPECT_EQ(memcmp(UserLocale()->grouping, fifteen, sizeof fifteen), 0);
}

TEST_F(LocaleRecordTest, ASemicolonAtTheEndBeginsNoGroup) {
  culture[LOCALE_SGROUPING] = L"3;0;";
  const uint8_t grouping[] = {3, 0, 255};
  EXPECT_EQ(memcmp(UserLocale()->grouping, grouping, sizeof grouping), 0);
}

TEST_F(LocaleRecordTest, TheRestOfAGroupAfterItsDigitsIsSkipped) {
  culture[LOCALE_SGROUPING] = L"3 ;0x5; 2";
  const uint8_t grouping[] = {3, 0, 0, 255};
  EXPECT_EQ(memcmp(UserLocale()->grouping, grouping, sizeof grouping), 0);
}

TEST_F(LocaleRecordTest, AnOrderIsADigit) {
  culture[LOCALE_IDATE] = L"9";
  culture[LOCALE_ITIME] = L"0";
  EXPECT_EQ(UserLocale()->dateOrder, 9);
  EXPECT_EQ(UserLocale()->timeOrder, 0);
}

// The neighbours of the digits.
TEST_F(LocaleRecordTest, AnOrderThatIsNoDigitCountsAsZero) {
  culture[LOCALE_IDATE] = L":";
  culture[LOCALE_ITIME] = L"/";
  EXPECT_EQ(UserLocale()->dateOrder, 0);
  EXPECT_EQ(UserLocale()->timeOrder, 0);
}

TEST_F(LocaleRecordTest, AnswersThatCannotBeConvertedAreMissing) {
  TheRig().On<::WideCharToMultiByte>([](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; });
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->positiveSign, "+");
  EXPECT_STREQ(record->thousandsSeparator, ",");
  const uint8_t grouping[] = {3, 0, 255};
  EXPECT_EQ(memcmp(record->grouping, grouping, sizeof grouping), 0);
  EXPECT_STREQ(record->dateSeparator, "/");
  EXPECT_STREQ(record->morning, "AM");
  EXPECT_STREQ(record->months[0], "");
}

// A text that is no UTF-8 is cut to nothing, not to the bytes before it.
TEST_F(LocaleRecordTest, AFieldWithoutAnyWholeCharacterIsEmpty) {
  TheRig().On<::WideCharToMultiByte>([](UINT, DWORD, LPCWCH, int, LPSTR text, int, LPCCH, LPBOOL) {
    memcpy(text, "\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80", 18);
    return 18;
  });
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->decimalPoint, ".");
  EXPECT_STREQ(record->dateSeparator, "");
  EXPECT_EQ(std::string(record->months[0]), std::string(17, '\x80'));
}

TEST_F(LocaleRecordTest, LongNamesAreKeptAsFarAsTheyFit) {
  for (LCTYPE i = 0; i < 12; ++i)
    culture[LOCALE_SMONTHNAME1 + i] = std::wstring(200, static_cast<wchar_t>(L'a' + i));
  const LocaleRecord* record = UserLocale();
  for (int i = 0; i < 12; ++i) EXPECT_EQ(record->months[i], std::string(200, static_cast<char>('a' + i)));
  EXPECT_STREQ(record->weekdays[0], "Monday");
}

TEST_F(LocaleRecordTest, TheLongestNamesAreAllKeptWhole) {
  const std::wstring name(255, L'\u20AC');
  for (LCTYPE i = 0; i < 12; ++i)
    culture[LOCALE_SMONTHNAME1 + i] = culture[LOCALE_SABBREVMONTHNAME1 + i] = name;
  for (LCTYPE i = 0; i < 7; ++i) culture[LOCALE_SDAYNAME1 + i] = culture[LOCALE_SABBREVDAYNAME1 + i] = name;
  std::string longest;
  for (int i = 0; i < 255; ++i) longest += "\xE2\x82\xAC";
  const LocaleRecord* record = UserLocale();
  for (int i = 0; i < 12; ++i) EXPECT_EQ(record->months[i], longest);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(record->shortMonths[i], longest);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(record->weekdays[i], longest);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(record->shortWeekdays[i], longest);
}

TEST_F(LocaleRecordTest, TheHalvesOfTheDayAreKeptWholeAndTheSeparatorsCut) {
  const std::wstring longest(255, L'\u20AC');
  std::string longestUtf8;
  for (int i = 0; i < 255; ++i) longestUtf8 += "\xE2\x82\xAC";
  culture[LOCALE_S1159] = L"before noon, sharp";
  culture[LOCALE_S2359] = longest;
  culture[LOCALE_SDATE] = L"0123456789abcdef";
  culture[LOCALE_STIME] = L"0123456789abcdef";
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->morning, "before noon, sharp");
  EXPECT_EQ(record->afternoon, longestUtf8);
  EXPECT_STREQ(record->dateSeparator, "0123456789abcde");
  EXPECT_STREQ(record->timeSeparator, "0123456789abcde");
  EXPECT_STREQ(record->months[0], "January");
}

// Many locales have no AM and PM, and no positive sign.
TEST_F(LocaleRecordTest, AnEmptyAnswerIsKeptOnlyForDates) {
  for (LCTYPE type :
       {LOCALE_SPOSITIVESIGN, LOCALE_SNEGATIVESIGN, LOCALE_SDECIMAL, LOCALE_STHOUSAND, LOCALE_SCURRENCY,
        LOCALE_SGROUPING, LOCALE_SDATE, LOCALE_STIME, LOCALE_S1159, LOCALE_S2359}) {
    culture[type] = L"";
  }
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->positiveSign, "+");
  EXPECT_STREQ(record->negativeSign, "-");
  EXPECT_STREQ(record->decimalPoint, ".");
  EXPECT_STREQ(record->thousandsSeparator, ",");
  EXPECT_STREQ(record->currencySymbol, "$");
  EXPECT_EQ(record->grouping[0], 3);
  EXPECT_STREQ(record->dateSeparator, "");
  EXPECT_STREQ(record->timeSeparator, "");
  EXPECT_STREQ(record->morning, "");
  EXPECT_STREQ(record->afternoon, "");
}

TEST_F(LocaleRecordTest, OneMissingAnswerLeavesTheOthers) {
  culture.erase(LOCALE_SDECIMAL);
  culture[LOCALE_STHOUSAND] = L"\u00A0";
  culture.erase(LOCALE_SMONTHNAME1 + 1);
  const LocaleRecord* record = UserLocale();
  EXPECT_STREQ(record->decimalPoint, ".");
  EXPECT_STREQ(record->thousandsSeparator, "\xC2\xA0");
  EXPECT_STREQ(record->months[0], "January");
  EXPECT_STREQ(record->months[1], "");
  EXPECT_STREQ(record->months[2], "March");
}

TEST_F(LocaleRecordTest, TheRealLocale) {
  TheRig().UseReal<::GetLocaleInfoW>();
  wchar_t wide[256];
  char text[1024];
  const auto real = [&](LCTYPE type) -> std::string {
    if (!GetLocaleInfoW(LOCALE_USER_DEFAULT, type, wide, 256)) return {};
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof text, nullptr, nullptr);
    return text;
  };
  const LocaleRecord* record = UserLocale();
  EXPECT_EQ(record->decimalPoint, real(LOCALE_SDECIMAL));
  EXPECT_EQ(record->thousandsSeparator, real(LOCALE_STHOUSAND));
  EXPECT_EQ(record->months[0], real(LOCALE_SMONTHNAME1));
  EXPECT_EQ(record->shortMonths[11], real(LOCALE_SABBREVMONTHNAME12));
  EXPECT_EQ(record->weekdays[6], real(LOCALE_SDAYNAME7));
  EXPECT_STRNE(record->months[0], "");
}

class LocaleDateTest : public FormatTest {
 protected:
  BrokenDownDate date{2026, 11, 13, 9, 5, 7, 5};
};

TEST_F(LocaleDateTest, Styles) {
  char text[64];
  EXPECT_EQ(FormatLocaleDate(&date, 3, text, sizeof text), 10u);
  EXPECT_STREQ(text, "2026/11/13");
  EXPECT_EQ(FormatLocaleDate(&date, 4, text, sizeof text), 14u);
  EXPECT_STREQ(text, "<2026/11/13 5>");
  EXPECT_EQ(FormatLocaleDate(&date, 5, text, sizeof text), 4u);
  EXPECT_STREQ(text, "9.05");
  EXPECT_EQ(FormatLocaleDate(&date, 6, text, sizeof text), 7u);
  EXPECT_STREQ(text, "9.05.07");
  for (unsigned style : {0u, 1u, 2u, 7u, 100u}) {
    EXPECT_EQ(FormatLocaleDate(&date, style, text, sizeof text), 0u);
    EXPECT_STREQ(text, "");
  }
}

TEST_F(LocaleDateTest, TheSystemIsCalledAsDocumented) {
  std::vector<std::string> questions;
  TheRig().On<::GetDateFormatW>(
      [&](LCID locale, DWORD flags, const SYSTEMTIME* time, LPCWSTR format, LPWSTR, int size) {
        EXPECT_EQ(locale, static_cast<LCID>(LOCALE_USER_DEFAULT));
        EXPECT_EQ(format, nullptr);
        EXPECT_EQ(size, 256);
        EXPECT_EQ(time->wMilliseconds, 0);
        questions.push_back("date " + std::to_string(flags));
        return 0;
      });
  TheRig().On<::GetTimeFormatW>(
      [&](LCID locale, DWORD flags, const SYSTEMTIME*, LPCWSTR format, LPWSTR, int size) {
        EXPECT_EQ(locale, static_cast<LCID>(LOCALE_USER_DEFAULT));
        EXPECT_EQ(format, nullptr);
        EXPECT_EQ(size, 256);
        questions.push_back("time " + std::to_string(flags));
        return 0;
      });
  char text[64];
  for (unsigned style : {3u, 4u, 5u, 6u}) {
    strcpy(text, "old");
    EXPECT_EQ(FormatLocaleDate(&date, style, text, sizeof text), 0u);
    EXPECT_STREQ(text, "");
  }
  EXPECT_EQ(questions, (std::vector<std::string>{"date 1", "date 2", "time 2", "time 0"}));
}

TEST_F(LocaleDateTest, TheTextIsCutAndMeasured) {
  EXPECT_EQ(FormatLocaleDate(&date, 3, nullptr, 0), 10u);
  rig::GuardedBuffer buffer(5);
  EXPECT_EQ(FormatLocaleDate(&date, 3, buffer.Data(), 5), 4u);
  EXPECT_STREQ(buffer.Data(), "2026");
  char untouched = 'u';
  EXPECT_EQ(FormatLocaleDate(&date, 3, &untouched, 0), 0u);
  EXPECT_EQ(untouched, 'u');
  TheRig().On<::GetDateFormatW>([](LCID, DWORD, const SYSTEMTIME*, LPCWSTR, LPWSTR text, int) {
    wcscpy(text, L"a\u20AC");
    return 3;
  });
  EXPECT_EQ(FormatLocaleDate(&date, 3, buffer.Data(), 4), 1u);
  EXPECT_STREQ(buffer.Data(), "a");
  EXPECT_EQ(FormatLocaleDate(&date, 3, buffer.Data(), 5), 4u);
  EXPECT_STREQ(buffer.Data(), "a\xE2\x82\xAC");
}

TEST_F(LocaleDateTest, OneByteReceivesOnlyTheTerminator) {
  for (const wchar_t* answer : {L"2026", L"\u20AC", L""}) {
    TheRig().On<::GetDateFormatW>([answer](LCID, DWORD, const SYSTEMTIME*, LPCWSTR, LPWSTR text, int) {
      wcscpy(text, answer);
      return static_cast<int>(wcslen(answer)) + 1;
    });
    rig::GuardedBuffer buffer(1);
    buffer.Data()[0] = 'x';
    EXPECT_EQ(FormatLocaleDate(&date, 3, buffer.Data(), 1), 0u);
    EXPECT_EQ(buffer.Data()[0], 0);
  }
}

TEST_F(LocaleDateTest, ATextThatCannotBeConvertedIsEmpty) {
  TheRig().On<::WideCharToMultiByte>([](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; });
  char text[64] = "old";
  EXPECT_EQ(FormatLocaleDate(&date, 3, text, sizeof text), 0u);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(FormatLocaleDate(&date, 3, nullptr, 0), 0u);
}

TEST_F(LocaleDateTest, ShortYearsAreCompleted) {
  date.year = 126;
  char text[64];
  FormatLocaleDate(&date, 3, text, sizeof text);
  EXPECT_STREQ(text, "2026/11/13");
}

TEST_F(LocaleDateTest, TheRealSystemAnswers) {
  TheRig().UseReal<::GetDateFormatW>();
  TheRig().UseReal<::GetTimeFormatW>();
  char text[256];
  for (unsigned style : {3u, 4u, 5u, 6u})
    EXPECT_GT(FormatLocaleDate(&date, style, text, sizeof text), 3u) << style;
}

}  // namespace
}  // namespace format_test
