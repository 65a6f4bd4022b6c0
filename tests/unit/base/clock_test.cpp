// The current time and the zone.

#include "base/clock.h"

#include "unit/format/format_support.h"

namespace format_test {
namespace {

HX_INTERNAL(CurrentTimeLocal);
HX_INTERNAL(CurrentTimeUtc);
HX_INTERNAL(ZoneOffsetMinutes);

constexpr uint32_t kNow = 1794579316;  // 2026-11-13 14:15:16 UTC

class ClockTest : public FormatTest {};

TEST_F(ClockTest, TheUtcTime) {
  EXPECT_EQ(CurrentTimeUtc(), kNow);
  systemTime.wSecond = 17;
  EXPECT_EQ(CurrentTimeUtc(), kNow + 1);
}

TEST_F(ClockTest, TheTimeFromTheLocalClock) {
  EXPECT_EQ(CurrentTimeLocal(), kNow);
}

TEST_F(ClockTest, TheTimeFromTheLocalClockIsKeptForATickInterval) {
  ticks = 5 * 1024;
  EXPECT_EQ(CurrentTimeLocal(), kNow);
  localTime.wSecond += 1;
  ticks = 6 * 1024 - 1;
  EXPECT_EQ(CurrentTimeLocal(), kNow);
  EXPECT_EQ(clockQuestions, 1);
  ticks = 6 * 1024;
  EXPECT_EQ(CurrentTimeLocal(), kNow + 1);
  EXPECT_EQ(clockQuestions, 2);
  ticks = 7 * 1024;
  EXPECT_EQ(CurrentTimeLocal(), kNow + 1);
  EXPECT_EQ(clockQuestions, 3);
}

TEST_F(ClockTest, TheFirstTickIntervalIsCachedLikeAnyOther) {
  ticks = 0;
  EXPECT_EQ(CurrentTimeLocal(), kNow);
  localTime.wSecond += 1;
  EXPECT_EQ(CurrentTimeLocal(), kNow);
  EXPECT_EQ(clockQuestions, 1);
  ticks = 0xFFFFFFFF;
  EXPECT_EQ(CurrentTimeLocal(), kNow + 1);
}

TEST_F(ClockTest, WithoutAZoneTheLocalTimeCountsAsUtc) {
  zoneKind = TIME_ZONE_ID_INVALID;
  EXPECT_EQ(CurrentTimeLocal(), kNow + 5400);
}

TEST_F(ClockTest, TheRealClocksAgree) {
  TheRig().UseReal<::GetLocalTime>();
  TheRig().UseReal<::GetSystemTime>();
  TheRig().UseReal<::GetTimeZoneInformation>();
  TheRig().UseReal<::GetTickCount>();
  const uint32_t utc = CurrentTimeUtc();
  const uint32_t local = CurrentTimeLocal();
  EXPECT_GE(local, utc);
  // A busy machine may take its time between two calls.
  EXPECT_LE(local, CurrentTimeUtc());
  EXPECT_GT(utc, 1700000000u);
}

struct ZoneCase {
  DWORD kind;
  LONG bias, standard, daylight;
  int offset;
};

class ZoneTest : public FormatTest, public testing::WithParamInterface<ZoneCase> {};

TEST_P(ZoneTest, Offset) {
  const ZoneCase& row = GetParam();
  zoneKind = row.kind;
  zone.Bias = row.bias;
  zone.StandardBias = row.standard;
  zone.DaylightBias = row.daylight;
  int32_t minutes = 12345;
  EXPECT_TRUE(ZoneOffsetMinutes(&minutes));
  EXPECT_EQ(minutes, row.offset);
}

const ZoneCase kZones[] = {
    {TIME_ZONE_ID_UNKNOWN, 0, 0, 0, 0},         {TIME_ZONE_ID_UNKNOWN, -60, 7, -60, 60},
    {TIME_ZONE_ID_STANDARD, -60, 0, -60, 60},   {TIME_ZONE_ID_STANDARD, -60, 15, -60, 45},
    {TIME_ZONE_ID_DAYLIGHT, -60, 0, -60, 120},  {TIME_ZONE_ID_DAYLIGHT, 300, 7, -60, -240},
    {TIME_ZONE_ID_STANDARD, 300, 0, -60, -300}, {TIME_ZONE_ID_UNKNOWN, -345, 0, 0, 345},
};
INSTANTIATE_TEST_SUITE_P(Zones, ZoneTest, testing::ValuesIn(kZones));

TEST_F(ClockTest, AZoneThatTheSystemDoesNotReport) {
  zoneKind = TIME_ZONE_ID_INVALID;
  int32_t minutes = 12345;
  EXPECT_FALSE(ZoneOffsetMinutes(&minutes));
  EXPECT_EQ(minutes, 0);
}

}  // namespace
}  // namespace format_test
