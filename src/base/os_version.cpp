#include "base/os_version.h"

#include <stdint.h>
#include <windows.h>

namespace {

constexpr uint32_t PackVersion(uint32_t major, uint32_t minor, uint32_t build) {
  return (major << 24) + ((minor & 0xFF) << 16) + (build & 0xFFFF);
}

constexpr uint32_t kFirstNtVersion = PackVersion(3, 5, 0);
/// The top bit of the result of GetVersion marks the 9x family.
constexpr uint32_t kFamily9x = 0x80000000;
/// The size passed to GetVersionExA: that of the extended structure. Only the first fields are read.
constexpr DWORD kVersionInfoSize = 156;
static_assert(sizeof(OSVERSIONINFOEXA) == kVersionInfoSize);

/// The packed version; 0 until the system has reported it.
uint32_t cachedVersion;

uint32_t SystemVersion() {
  const uint32_t packed = GetVersion();
  if (packed & kFamily9x) {
    constexpr uint32_t kMajor95 = 4;
    return (packed & 0xFF) < kMajor95 ? PackVersion(1, 0, 0) : PackVersion(2, 0, 0);
  }
  OSVERSIONINFOEXA info{};
  info.dwOSVersionInfoSize = kVersionInfoSize;
  if (!GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info))) return kFirstNtVersion;
  cachedVersion = PackVersion(info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber);
  return cachedVersion;
}

/// Returns the packed version, from the cache if it is there.
uint32_t KnownVersion() {
  return cachedVersion != 0 ? cachedVersion : SystemVersion();
}

}  // namespace

bool IsNtPlatform() {
  return KnownVersion() >= kFirstNtVersion;
}

bool IsVersionAtLeast(uint32_t major, uint32_t minor) {
  return KnownVersion() >= PackVersion(major, minor, 0);
}
