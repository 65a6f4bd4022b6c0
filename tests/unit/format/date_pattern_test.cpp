// Dates by pattern, and the date conversions of the format engine.

#include "format/date_pattern.h"

#include <ctime>

#include "base/clock.h"
#include "unit/format/format_support.h"

namespace format_test {
namespace {

HX_INTERNAL(FormatDatePattern);
HX_INTERNAL(SecondsToDate);

constexpr uint32_t kStamp = 1794561307;  // Friday, 2026-11-13 09:15:07

class DatePatternTest : public FormatTest {
 protected:
  static std::string Expand(const std::string& pattern, const BrokenDownDate& date, char escape = 0) {
    const unsigned length = static_cast<unsigned>(pattern.size());
    const auto guarded = rig::GuardedBuffer::Of(pattern, false);
    const unsigned needed = FormatDatePattern(nullptr, 0, guarded.Data(), length, &date, escape);
    rig::GuardedBuffer buffer(needed + 1);
    EXPECT_EQ(FormatDatePattern(buffer.Data(), needed + 1, guarded.Data(), length, &date, escape), needed);
    EXPECT_EQ(buffer.Data()[needed], 0);
    return {buffer.Data(), needed};
  }
  static BrokenDownDate DateOf(uint32_t seconds) {
    BrokenDownDate date;
    SecondsToDate(seconds, &date);
    return date;
  }
};

struct PatternCase {
  const char* pattern;
  const char* expected;
};
class DateLetterTest : public DatePatternTest, public testing::WithParamInterface<PatternCase> {};

TEST_P(DateLetterTest, Expands) {
  EXPECT_EQ(Expand(GetParam().pattern, DateOf(kStamp)), GetParam().expected);
}

const PatternCase kLetters[] = {
    {"%a", "Fri"},
    {"%A", "Friday"},
    {"%b", "Nov"},
    {"%B", "November"},
    {"%c", "Fri Nov 13 09:15:07 2026"},
    {"%C", "20"},
    {"%d", "13"},
    {"%D", "11/13/26"},
    {"%e", "13"},
    {"%f", "000000"},
    {"%F", "2026-11-13"},
    {"%g", "26"},
    {"%G", "2026"},
    {"%h", "Nov"},
    {"%H", "09"},
    {"%I", "09"},
    {"%j", "317"},
    {"%k", " 9"},
    {"%l", " 9"},
    {"%m", "11"},
    {"%M", "15"},
    {"%n", "\n"},
    {"%p", "AM"},
    {"%Q", "4"},
    {"%r", "09:15:07 AM"},
    {"%R", "09:15"},
    {"%s", "1794561307"},
    {"%S", "07"},
    {"%t", "\t"},
    {"%T", "09:15:07"},
    {"%u", "5"},
    {"%U", "45"},
    {"%v", "13-Nov-2026"},
    {"%V", "46"},
    {"%w", "5"},
    {"%W", "45"},
    {"%x", "<2026/11/13 5>"},
    {"%X", "9.15.07"},
    {"%y", "26"},
    {"%Y", "2026"},
    {"%z", "+0130"},
    {"%Z", "Here"},
    {"%/", "/"},
    {"%:", ":"},
    {"%+", "Fri, 13 Nov 2026 09:15:07 +0130"},
    {"%%", "%"},
    {"%E%O%i%?%#", "EOi?#"},
    {"%", ""},
    {"a%", "a"},
    {"", ""},
    {"plain #F", "plain #F"},
    {"%Y%m%d", "20261113"},
    {"<%d.%m.>", "<13.11.>"},
};
INSTANTIATE_TEST_SUITE_P(Letters, DateLetterTest, testing::ValuesIn(kLetters));

TEST_F(DatePatternTest, OneDigitNumbers) {
  const BrokenDownDate date = DateOf(1767580507);  // Monday, 2026-01-05 02:35:07
  EXPECT_EQ(Expand("%d|%e|%m|%H|%k|%I|%l|%j|%D|%v|%c", date),
            "05| 5|01|02| 2|02| 2|005|01/05/26| 5-Jan-2026|Mon Jan  5 02:35:07 2026");
  EXPECT_EQ(Expand("%Q%u%w%U%W%V", date), "111010102");
}

TEST_F(DatePatternTest, HoursOfHalfDays) {
  BrokenDownDate date = DateOf(kStamp);
  const char* expected[] = {"12", "01", "02", "03", "04", "05", "06", "07", "08", "09", "10", "11"};
  for (uint16_t hour = 0; hour < 24; ++hour) {
    date.hour = hour;
    EXPECT_EQ(Expand("%I %p", date), std::string(expected[hour % 12]) + (hour < 12 ? " AM" : " PM"));
  }
}

TEST_F(DatePatternTest, Weekdays) {
  const char* names[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  BrokenDownDate date = DateOf(kStamp);
  for (uint16_t day = 0; day < 7; ++day) {
    date.weekday = day;
    EXPECT_EQ(Expand("%A %a %w %u", date), std::string(names[day]) + " " + std::string(names[day], 3) + " " +
                                               std::to_string(day) + " " +
                                               std::to_string(day == 0 ? 7 : day));
  }
}

TEST_F(DatePatternTest, MonthsAndQuarters) {
  BrokenDownDate date = DateOf(kStamp);
  for (uint16_t month = 1; month <= 12; ++month) {
    date.month = month;
    const std::wstring wide = culture[LOCALE_SMONTHNAME1 + month - 1u];
    const std::string name(wide.begin(), wide.end());
    EXPECT_EQ(Expand("%B %b %h %Q", date), name + " " + name.substr(0, 3) + " " + name.substr(0, 3) + " " +
                                               std::to_string((month + 2) / 3));
  }
}

TEST_F(DatePatternTest, ADateWithAnInvalidMonthIsHarmless) {
  for (uint16_t month : {0, 13, 65535}) {
    const BrokenDownDate date{2026, month, 13, 99, 99, 99, 65535};
    for (char letter = 1; letter < 127; ++letter) Expand(std::string("%") + letter, date);
    EXPECT_EQ(Expand("[%b%B]", date), "[]");
  }
  const BrokenDownDate nothing{};
  for (char letter = 1; letter < 127; ++letter) Expand(std::string("%") + letter, nothing);
}

TEST_F(DatePatternTest, TheDayBeforeTheFirstCountsAsTheFirst) {
  EXPECT_EQ(Expand("%j %d %F", {2026, 1, 0, 0, 0, 0, 4}), "001 00 2026-01-00");
  EXPECT_EQ(Expand("%j %d %F", {2026, 2, 0, 0, 0, 0, 6}), "031 00 2026-02-00");
}

/// Compares every day with the C library's strftime.
TEST_F(DatePatternTest, EveryDayAsInTheCLibrary) {
  const auto expand = FormatDatePattern.Get();
  const auto toDate = SecondsToDate.Get();
  const std::string pattern = "%Y-%m-%d %j %u %w %U %W %V %G %g %C %y %H:%M:%S %I %p %a %A %b %B %e";
  // Letters that this system's C library does not have are computed from others.
  int wrong = 0;
  for (uint32_t day = 0; day < 47482; ++day) {
    const uint32_t seconds = day * 86400 + day * 7919 % 86400;
    BrokenDownDate date;
    toDate(seconds, &date);
    char text[256];
    expand(text, sizeof text, pattern.data(), static_cast<unsigned>(pattern.size()), &date, '%');
    const time_t stamp = seconds;
    const tm* utc = gmtime(&stamp);
    // The ISO week: the one of the week's Thursday.
    const time_t thursdayStamp = stamp + (3 - (utc->tm_wday + 6) % 7) * time_t{86400};
    tm parts = *utc;
    const tm thursday = *gmtime(&thursdayStamp);
    char most[256];
    strftime(most, sizeof most, "%Y-%m-%d %j", &parts);
    char rest[256];
    strftime(rest, sizeof rest, "%H:%M:%S %I %p %a %A %b %B", &parts);
    char weeks[16];
    strftime(weeks, sizeof weeks, "%U %W", &parts);
    char expected[512];
    snprintf(expected, sizeof expected, "%s %d %d %s %02d %d %02d %02d %02d %s %2d", most,
             parts.tm_wday == 0 ? 7 : parts.tm_wday, parts.tm_wday, weeks, thursday.tm_yday / 7 + 1,
             thursday.tm_year + 1900, thursday.tm_year % 100, (parts.tm_year + 1900) / 100,
             parts.tm_year % 100, rest, parts.tm_mday);
    if (strcmp(text, expected) != 0 && ++wrong < 10) ADD_FAILURE() << text << " should be " << expected;
  }
  EXPECT_EQ(wrong, 0);
}

TEST_F(DatePatternTest, OtherEscapeCharacters) {
  const BrokenDownDate date = DateOf(kStamp);
  EXPECT_EQ(Expand("#F|%F|##", date, '#'), "2026-11-13|%F|#");
  EXPECT_EQ(Expand("#T #+ #c", date, '#'),
            "09:15:07 Fri, 13 Nov 2026 09:15:07 +0130 Fri Nov 13 09:15:07 2026");
  EXPECT_EQ(Expand("%F", date, '%'), "2026-11-13");
}

TEST_F(DatePatternTest, PatternsWithoutALength) {
  const BrokenDownDate date = DateOf(kStamp);
  char text[32];
  EXPECT_EQ(FormatDatePattern(text, sizeof text, "%F", kToTerminator, &date, 0), 10u);
  EXPECT_STREQ(text, "2026-11-13");
}

TEST_F(DatePatternTest, TheTextIsCut) {
  const BrokenDownDate date = DateOf(kStamp);
  for (unsigned size = 1; size < 30; ++size) {
    rig::GuardedBuffer buffer(size);
    const std::string whole = "x2026-11-13 Friday%";
    EXPECT_EQ(FormatDatePattern(buffer.Data(), size, "x%F %A%%", 8, &date, 0),
              std::min<size_t>(size - 1, whole.size()));
    EXPECT_EQ(buffer.Data(), whole.substr(0, size - 1));
  }
  char untouched = 'u';
  EXPECT_EQ(FormatDatePattern(&untouched, 0, "%F", 2, &date, 0), 0u);
  EXPECT_EQ(untouched, 'u');
}

TEST_F(DatePatternTest, ShortYearsAreCompleted) {
  BrokenDownDate date = DateOf(kStamp);
  date.year = 26;
  EXPECT_EQ(Expand("%Y %y %C %G %s", date), "2026 26 20 2026 1794561307");
  date.year = 126;
  EXPECT_EQ(Expand("%Y", date), "2026");
}

TEST_F(DatePatternTest, Zones) {
  const BrokenDownDate date = DateOf(kStamp);
  zone.Bias = 210;
  zoneKind = TIME_ZONE_ID_STANDARD;
  EXPECT_EQ(Expand("%z %Z", date), "-0330 Here");
  zoneKind = TIME_ZONE_ID_DAYLIGHT;
  EXPECT_EQ(Expand("%z %Z", date), "-0230 Here in summer");
  zone.Bias = -720;
  EXPECT_EQ(Expand("%z", date), "+1300");
  zoneKind = TIME_ZONE_ID_INVALID;
  EXPECT_EQ(Expand("%z[%Z]", date), "+0000[]");
}

TEST_F(DatePatternTest, ANameOfTheZoneThatCannotBeConvertedIsLeftOut) {
  TheRig().On<::WideCharToMultiByte>([](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; });
  EXPECT_EQ(Expand("[%Z]", DateOf(kStamp)), "[]");
}

TEST_F(DatePatternTest, NamesOfTheLocale) {
  culture[LOCALE_SABBREVDAYNAME1 + 4] = L"ven.";
  culture[LOCALE_SMONTHNAME1 + 7] = L"ao\u00FBt";
  culture[LOCALE_SDATE] = L".";
  culture[LOCALE_STIME] = L"h";
  culture[LOCALE_S1159] = L"matin";
  EXPECT_EQ(Expand("%a %/ %: %p", DateOf(kStamp)), "ven. . h matin");
  EXPECT_EQ(Expand("%B", DateOf(kStamp - 90 * 86400)), "ao\u00FBt");
}

// ---- the conversions of the format engine

class FormatDateTest : public FormatTest {};

TEST_F(FormatDateTest, PatternsInBraces) {
  EXPECT_EQ(Formatted("%d{z::#F}", kStamp), "2026-11-13");
  EXPECT_EQ(Formatted("%D{::#F #T}|%z{::#F}|%D{x::#F}", kStamp, kStamp, kStamp),
            "2026-11-13 09:15:07|2026-11-13|2026-11-13");
  EXPECT_EQ(Formatted("%x{z::#Y}%X{z::-#m}", kStamp, kStamp), "2026-11");
  EXPECT_EQ(Formatted("%d{z::#d.#m.#Y %F}", kStamp), "13.11.2026 %F");
  EXPECT_EQ(Formatted("%d{Z::#F #T}|%Z{::#F #T}|%x{Z::#T}|%X{Z::#T}", kStamp, kStamp, kStamp, kStamp),
            "2026-11-13 10:45:07|2026-11-13 10:45:07|10:45:07|10:45:07");
  EXPECT_EQ(Formatted("%d{z::}|%d{z:}|%d{z:x:}", kStamp, kStamp, kStamp), "2026/11/13|2026/11/13|2026/11/13");
  // Flags that choose a form have no effect on a pattern.
  EXPECT_EQ(Formatted("%#d{z::#F}|%+d{z::#a, #d}", kStamp, kStamp), "2026-11-13|Fri, 13");
}

TEST_F(FormatDateTest, PatternsArePaddedAndChangedLikeText) {
  EXPECT_EQ(Formatted("%12d{z::#F}|%-12d{z::#F}|%012d{z::#F}|%.4d{z::#F}|", kStamp, kStamp, kStamp, kStamp),
            "  2026-11-13|2026-11-13  |002026-11-13|2026|");
  EXPECT_EQ(Formatted("%d{z:^:#b}|%d{z:~:#n}|%8d{z:<:<#d>}|%20d{z:<:<#d>}", kStamp, kStamp, kStamp, kStamp),
            "NOV|\\n|<![CDATA[<13>]]>|    <![CDATA[<13>]]>");
  const std::string longPattern = "%d{z::" + std::string(3000, 'x') + "#F}";
  EXPECT_EQ(Formatted(longPattern.c_str(), kStamp), std::string(3000, 'x') + "2026-11-13");
}

TEST_F(FormatDateTest, TheLocalesDateAndTime) {
  EXPECT_EQ(Formatted("%D|%z|%d{z}|%x{z}|%X{z}", kStamp, kStamp, kStamp, kStamp, kStamp),
            "2026/11/13|2026/11/13|2026/11/13|2026/11/13|2026/11/13");
  EXPECT_EQ(Formatted("%+D|%+z|%+d{z}", kStamp, kStamp, kStamp),
            "2026/11/13 9.15.07|2026/11/13 9.15.07|2026/11/13 9.15.07");
  EXPECT_EQ(Formatted("%Z|%+Z|%d{Z}|%+d{Z}", kStamp, kStamp, kStamp, kStamp),
            "2026/11/13|2026/11/13 10.45.07|2026/11/13|2026/11/13 10.45.07");
  EXPECT_EQ(Formatted("%Z", kStamp + 14 * 3600), "2026/11/14");
  EXPECT_EQ(Formatted("%12D|%-12D|%.4D|%+21D|", kStamp, kStamp, kStamp, kStamp),
            "  2026/11/13|2026/11/13  |2026|   2026/11/13 9.15.07|");
}

TEST_F(FormatDateTest, CompactStamps) {
  EXPECT_EQ(Formatted("%#D|%#z|%#d{z}|", kStamp, kStamp, kStamp),
            "20261113091507+0130|20261113091507+0130|20261113091507+0130|");
  EXPECT_EQ(Formatted("%#Z|%#d{Z}|", kStamp, kStamp), "20261113091507Z|20261113091507Z|");
  EXPECT_EQ(Formatted("%#+D|%#+Z|", kStamp, kStamp), "20261113091507+0130|20261113091507Z|");
  zone.Bias = 210;
  EXPECT_EQ(Formatted("%#D|", kStamp), "20261113091507-0330|");
  zoneKind = TIME_ZONE_ID_INVALID;
  EXPECT_EQ(Formatted("%#D|", kStamp), "20261113091507+0000|");
}

TEST_F(FormatDateTest, CompactStampsNeedSpace) {
  EXPECT_EQ(Cut(20, "%#D", kStamp), "");
  EXPECT_EQ(Cut(21, "%#D", kStamp), "20261113091507+0130");
  EXPECT_EQ(Cut(16, "%#Z", kStamp), "");
  EXPECT_EQ(Cut(17, "%#Z", kStamp), "20261113091507Z");
  EXPECT_EQ(Cut(18, "a%#Zb", kStamp), "a20261113091507Zb");
  EXPECT_EQ(Cut(17, "a%#Zb", kStamp), "ab");
  EXPECT_EQ(Formatted("%.19#D|%.0#D|", kStamp, kStamp), "#D|D|");
  EXPECT_EQ(Formatted("%#.19D|%#.20D|%#.15Z|%#.16Z|", kStamp, kStamp, kStamp, kStamp),
            "|20261113091507+0130||20261113091507Z|");
  EXPECT_EQ(Formatted("%#21D|%#-21D|%#17Z|", kStamp, kStamp, kStamp),
            "  20261113091507+0130|20261113091507+0130  |  20261113091507Z|");
}

TEST_F(FormatDateTest, AStampOfZeroIsNow) {
  EXPECT_EQ(Formatted("%d{z::#F #T}", 0), "2026-11-13 15:45:16");
  EXPECT_EQ(Formatted("%D{::#F #T}|%z{::#T}|%lld{z::#T}", 0, 0, 0LL),
            "2026-11-13 15:45:16|15:45:16|15:45:16");
  EXPECT_EQ(Formatted("%d{Z::#F #T}|%Z{::#T}|%lZ{::#T}|%lld{Z::#T}", 0, 0, 0, 0LL),
            "2026-11-13 15:45:16|15:45:16|15:45:16|15:45:16");
  EXPECT_EQ(Formatted("%#D|%#Z|%+D|%+Z|", 0, 0, 0, 0),
            "20261113154516+0130|20261113141516Z|2026/11/13 15.45.16|2026/11/13 15.45.16|");
  EXPECT_EQ(Formatted(" %d{z::#F}", 0), " 2026-11-13");
}

TEST_F(FormatDateTest, SizesAndSignsOfStamps) {
  // 32-bit stamps are unsigned, but signed with "l" for "Z"; 64-bit stamps are signed.
  EXPECT_EQ(Formatted("%D{::#Y}|%lD{::#Y}|%Z{::#Y}", 4000000000u, 4000000000u, 4000000000u),
            "2096|2096|2096");
  EXPECT_EQ(Formatted("%lZ{::#F #T}", -1), "1970-01-01 01:29:59");
  EXPECT_EQ(Formatted("%lZ{::#F #T}|%#lZ|", -86400, -86400), "1970-01-01 00:00:00|19700101000000Z|");
  EXPECT_EQ(Formatted("%lZ{::#Y}", 4000000000u), "1970");
  EXPECT_EQ(Formatted("%D{::#F}", 0x700000000000000ALL + kStamp - 10), "2026-11-13");
  EXPECT_EQ(Formatted("%lld{z::#F}|%I64d{z::#F}|%td{z::#F}", 4000000000LL, 4000000000LL, 4000000000LL),
            "2096-10-02|2096-10-02|2096-10-02");
  // A time outside the range of stamps becomes the nearest stamp; every fourth year is a leap year, also
  // 2100.
  EXPECT_EQ(Formatted("%lld{z::#F}|%lld{Z::#F}|%lld{z::#F}", -5LL, -86400LL, 0x7FFFFFFFFFFFFFFFLL),
            "1970-01-01|1970-01-01|2106-02-06");
  EXPECT_EQ(Formatted("%lld{Z::#F}|%#lld{Z}|", 0x7FFFFFFFFFFFFF00LL, 0x7FFFFFFFFFFFFFFFLL),
            "2106-02-06|21060206062815Z|");
}

TEST_F(FormatDateTest, UtcStampsFollowTheZone) {
  zone.Bias = 300;
  EXPECT_EQ(Formatted("%Z{::#F #T}", kStamp), "2026-11-13 04:15:07");
  zoneKind = TIME_ZONE_ID_DAYLIGHT;
  EXPECT_EQ(Formatted("%Z{::#F #T #z}", kStamp), "2026-11-13 05:15:07 -0400");
  zoneKind = TIME_ZONE_ID_INVALID;
  EXPECT_EQ(Formatted("%Z{::#F #T}", kStamp), "2026-11-13 09:15:07");
}

}  // namespace
}  // namespace format_test
