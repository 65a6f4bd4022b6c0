// The current time and the local time zone. Used by the date conversions of the format engine and by actions
// that need the time of day.
#pragma once

#include "base/calendar.h"

extern "C" {

/// Returns the seconds since 1970 (UTC), computed from the local time and the zone offset. Within one
/// interval of 1,024 ms of the tick count, all calls return the same value.
uint32_t CurrentTimeLocal();

/// Returns the seconds since 1970 (UTC), computed from the system time.
uint32_t CurrentTimeUtc();

/// Stores the offset of the local time zone from UTC in minutes, positive east of Greenwich: local time minus
/// the offset is UTC. Includes the daylight bias during daylight saving time. Returns false and stores 0 if
/// Windows does not report the zone.
bool ZoneOffsetMinutes(int32_t* minutes);

}  // extern "C"

/// Converts a UTC stamp to local time: adds the zone offset. The result is limited to the range of stamps:
/// times before 1970 become 1970, and times after the largest stamp become the largest stamp.
uint32_t LocalTimeOf(int64_t seconds);

/// Limits `seconds` to the range that SecondsToDate takes.
constexpr uint32_t ClampStamp(int64_t seconds) {
  return seconds < 0 ? 0 : seconds > kNoStamp ? kNoStamp : static_cast<uint32_t>(seconds);
}
