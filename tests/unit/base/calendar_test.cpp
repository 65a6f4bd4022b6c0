// Time stamps and dates.

#include "base/calendar.h"

#include "rig/internals_test.h"

namespace calendar_test {

HX_INTERNAL(DateToSeconds);
HX_INTERNAL(SecondsToDate);

class CalendarTest : public rig::InternalsTest {
 protected:
  static BrokenDownDate DateOf(uint32_t seconds) {
    BrokenDownDate date;
    memset(&date, 0xCC, sizeof date);
    SecondsToDate(seconds, &date);
    return date;
  }
  static uint32_t SecondsOf(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    const BrokenDownDate date{static_cast<uint16_t>(year),
                              static_cast<uint16_t>(month),
                              static_cast<uint16_t>(day),
                              static_cast<uint16_t>(hour),
                              static_cast<uint16_t>(minute),
                              static_cast<uint16_t>(second),
                              99};
    return DateToSeconds(&date);
  }
};

TEST_F(CalendarTest, EveryDayFrom1970To2099) {
  static const int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const auto toDate = SecondsToDate.Get();
  const auto toSeconds = DateToSeconds.Get();
  uint32_t seconds = 0;
  int weekday = 4;
  int wrong = 0;
  for (int year = 1970; year <= 2099; ++year) {
    for (int month = 1; month <= 12; ++month) {
      const int length = kLengths[month - 1] + (month == 2 && year % 4 == 0 ? 1 : 0);
      for (int day = 1; day <= length; ++day) {
        for (const bool atEnd : {false, true}) {
          const uint32_t stamp = seconds + (atEnd ? 86399 : 0);
          BrokenDownDate date;
          memset(&date, 0xCC, sizeof date);
          toDate(stamp, &date);
          const bool right = date.year == year && date.month == month && date.day == day &&
                             date.hour == (atEnd ? 23 : 0) && date.minute == (atEnd ? 59 : 0) &&
                             date.second == (atEnd ? 59 : 0) && date.weekday == weekday &&
                             toSeconds(&date) == stamp;
          if (!right && ++wrong < 10) ADD_FAILURE() << year << '-' << month << '-' << day << " is " << stamp;
        }
        seconds += 86400;
        weekday = (weekday + 1) % 7;
      }
    }
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(seconds, 4102444800u);
}

TEST_F(CalendarTest, KnownStamps) {
  const BrokenDownDate leapDay = DateOf(951782400);
  EXPECT_EQ(leapDay.year, 2000);
  EXPECT_EQ(leapDay.month, 2);
  EXPECT_EQ(leapDay.day, 29);
  EXPECT_EQ(leapDay.weekday, 2);
  EXPECT_EQ(SecondsOf(2000, 2, 29), 951782400u);
  EXPECT_EQ(SecondsOf(1970, 1, 1), 0u);
  EXPECT_EQ(SecondsOf(2026, 11, 13, 14, 15, 16), 1794579316u);
  EXPECT_EQ(SecondsOf(2099, 12, 31, 23, 59, 59), 4102444799u);
}

TEST_F(CalendarTest, ThePartsOfADay) {
  for (uint32_t second = 0; second < 86400; second += 7) {
    const BrokenDownDate date = DateOf(1000000000 - 1000000000 % 86400 + second);
    ASSERT_EQ(date.hour * 3600u + date.minute * 60u + date.second, second);
    ASSERT_LT(date.minute, 60);
    ASSERT_LT(date.second, 60);
  }
}

TEST_F(CalendarTest, DatesWithoutAStamp) {
  EXPECT_EQ(SecondsOf(2100, 1, 1), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(2100, 6, 15), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(65535, 1, 1), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(1969, 12, 31, 23, 59, 59), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(1900, 1, 1), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(2026, 0, 1), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(2026, 13, 1), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(1970, 1, 0), 0xFFFFFFFFu);
  // Fields that overflow can carry a date past the last second, too.
  EXPECT_EQ(SecondsOf(2099, 12, 32), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(2099, 12, 31, 24, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(2099, 12, 31, 23, 59, 60), 0xFFFFFFFFu);
}

TEST_F(CalendarTest, ShortYears) {
  EXPECT_EQ(SecondsOf(0, 1, 1), SecondsOf(2000, 1, 1));
  EXPECT_EQ(SecondsOf(69, 1, 1), SecondsOf(2069, 1, 1));
  EXPECT_EQ(SecondsOf(70, 1, 1), 0u);
  EXPECT_EQ(SecondsOf(99, 12, 31), SecondsOf(1999, 12, 31));
  EXPECT_EQ(SecondsOf(126, 11, 13), SecondsOf(2026, 11, 13));
  EXPECT_EQ(SecondsOf(199, 1, 1), SecondsOf(2099, 1, 1));
  EXPECT_EQ(SecondsOf(200, 1, 1), 0xFFFFFFFFu);
  EXPECT_EQ(SecondsOf(1899, 1, 1), 0xFFFFFFFFu);
}

TEST_F(CalendarTest, StampsAfterTheLastYear) {
  // SecondsToDate gives them a date, but DateToSeconds gives no date such a stamp.
  const BrokenDownDate date = DateOf(0xFFFFFFFF);
  EXPECT_EQ(date.year, 2106);
  EXPECT_EQ(DateToSeconds(&date), 0xFFFFFFFFu);
}

}  // namespace calendar_test
