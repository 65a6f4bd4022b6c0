#include "base/clock.h"

#include <windows.h>

namespace {

/// A tick count shifted right by this number gives the number of its 1,024 ms interval.
constexpr uint32_t kTickShift = 10;

/// The time computed in one tick interval.
struct CachedTime {
  bool isValid;
  uint32_t interval;
  uint32_t seconds;
};
CachedTime cachedTime;

uint32_t ToSeconds(const SYSTEMTIME& time) {
  const BrokenDownDate date{time.wYear,   time.wMonth,  time.wDay,      time.wHour,
                            time.wMinute, time.wSecond, time.wDayOfWeek};
  return DateToSeconds(&date);
}

}  // namespace

uint32_t CurrentTimeLocal() {
  const uint32_t interval = GetTickCount() >> kTickShift;
  if (!cachedTime.isValid || cachedTime.interval != interval) {
    SYSTEMTIME time;
    GetLocalTime(&time);
    int32_t minutes;
    ZoneOffsetMinutes(&minutes);
    cachedTime.seconds = ClampStamp(int64_t{ToSeconds(time)} - int64_t{minutes} * kSecondsPerMinute);
    cachedTime.interval = interval;
    cachedTime.isValid = true;
  }
  return cachedTime.seconds;
}

uint32_t CurrentTimeUtc() {
  SYSTEMTIME time;
  GetSystemTime(&time);
  return ToSeconds(time);
}

bool ZoneOffsetMinutes(int32_t* minutes) {
  *minutes = 0;
  TIME_ZONE_INFORMATION zone;
  const DWORD kind = GetTimeZoneInformation(&zone);
  if (kind == TIME_ZONE_ID_INVALID) return false;
  LONG bias = zone.Bias;
  if (kind == TIME_ZONE_ID_DAYLIGHT) {
    bias += zone.DaylightBias;
  } else if (kind == TIME_ZONE_ID_STANDARD) {
    bias += zone.StandardBias;
  }
  *minutes = -bias;
  return true;
}

uint32_t LocalTimeOf(int64_t seconds) {
  int32_t minutes;
  ZoneOffsetMinutes(&minutes);
  // No zone offset is larger than a day.
  constexpr int64_t kEarliest = -int64_t{kSecondsPerDay};
  if (seconds < kEarliest) seconds = kEarliest;
  if (seconds > kNoStamp) seconds = kNoStamp;
  return ClampStamp(seconds + int64_t{minutes} * kSecondsPerMinute);
}
