// The current time and the local time zone. Used by the format engine's date conversions and by actions that
// need the time of day.
#pragma once

#include "base/calendar.h"

extern "C" {

/// Seconds since 1970 (UTC) computed from the local time and the zone offset. Computed anew at most once in
/// 1,024 ms.
uint32_t CurrentTimeLocal();

/// Seconds since 1970 (UTC) computed from the system time.
uint32_t CurrentTimeUtc();

/// Stores the local zone's distance from UTC in minutes, east of Greenwich positive: subtracted from local
/// time it gives UTC. Includes the daylight bias while daylight time is in force. Returns false, and stores
/// 0, when the system cannot tell.
bool ZoneOffsetMinutes(int32_t* minutes);

}  // extern "C"

/// The seconds `seconds` later or earlier by the zone offset: local time of a UTC stamp. Times before 1970
/// become 1970, times past the largest stamp that stamp.
uint32_t LocalTimeOf(int64_t seconds);

/// A stamp in the range that SecondsToDate takes.
constexpr uint32_t ClampStamp(int64_t seconds) {
  return seconds < 0 ? 0 : seconds > kNoStamp ? kNoStamp : static_cast<uint32_t>(seconds);
}
