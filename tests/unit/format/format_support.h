// Shared by the tests of the format engine, the dates and the clock: a fixture with a locale and a time that
// the test chooses, and calls that check what holds for every text.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "format/format.h"
#include "rig/internals_test.h"

namespace format_test {

HX_INTERNAL(FormatString);
HX_INTERNAL(FormatStringV);

/// Formats by measuring first, then into a buffer of exactly the measured size, then into a larger one (which
/// allows the fast paths). Checks what holds for every text: all three agree, and the text is terminated.
template <class... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
  const unsigned needed = FormatString(nullptr, 0, format, arguments...);
  rig::GuardedBuffer buffer(needed + 1);
  const unsigned written = FormatString(buffer.Data(), needed + 1, format, arguments...);
  EXPECT_EQ(written, needed) << format;
  EXPECT_EQ(buffer.Data()[written], 0) << format;
  const std::string text(buffer.Data(), written);
  constexpr unsigned kSpare = 100;
  rig::GuardedBuffer ample(needed + kSpare);
  const unsigned again = FormatString(ample.Data(), needed + kSpare, format, arguments...);
  EXPECT_EQ(std::string(ample.Data(), again), text) << format;
  EXPECT_EQ(ample.Data()[again], 0) << format;
  return text;
}

/// Formats into a buffer of `size` bytes, which cuts the text, and checks that it is terminated.
template <class... Arguments>
std::string Cut(unsigned size, const char* format, Arguments... arguments) {
  rig::GuardedBuffer buffer(size);
  const unsigned written = FormatString(buffer.Data(), size, format, arguments...);
  EXPECT_LT(written, size) << format;
  if (written >= size) return {};
  EXPECT_EQ(buffer.Data()[written], 0) << format;
  return {buffer.Data(), written};
}

/// The bytes of a random sequence, which is the same for the same seed everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 2 + 1) {}
  uint64_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return state_ * 0x2545F4914F6CDD1D;
  }
  /// Returns a number below `limit`.
  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>((Next() >> 32) * limit >> 32); }
  bool OneIn(uint32_t count) { return Below(count) == 0; }

 private:
  uint64_t state_;
};

/// Returns a seed that differs from run to run and is printed, or the one in HX_SEED.
inline uint64_t RunSeed() {
  const char* given = std::getenv("HX_SEED");
  const uint64_t seed = given ? std::strtoull(given, nullptr, 10) : GetTickCount64() + 1;
  printf("random seed %llu (HX_SEED repeats it)\n", static_cast<unsigned long long>(seed));
  return seed;
}

/// A library in a locale like that of the United States and at a fixed moment. A test may change both before
/// it uses them.
class FormatTest : public rig::InternalsTest {
 protected:
  void SetUp() override {
    rig::InternalsTest::SetUp();
    culture = {{LOCALE_SPOSITIVESIGN, L""}, {LOCALE_SNEGATIVESIGN, L"-"}, {LOCALE_SDECIMAL, L"."},
               {LOCALE_STHOUSAND, L","},    {LOCALE_SGROUPING, L"3;0"},   {LOCALE_SCURRENCY, L"$"},
               {LOCALE_SDATE, L"/"},        {LOCALE_STIME, L":"},         {LOCALE_S1159, L"AM"},
               {LOCALE_S2359, L"PM"},       {LOCALE_IDATE, L"0"},         {LOCALE_ITIME, L"0"}};
    const wchar_t* months[] = {L"January", L"February", L"March",     L"April",   L"May",      L"June",
                               L"July",    L"August",   L"September", L"October", L"November", L"December"};
    const wchar_t* days[] = {L"Monday", L"Tuesday",  L"Wednesday", L"Thursday",
                             L"Friday", L"Saturday", L"Sunday"};
    for (LCTYPE i = 0; i < 12; ++i) {
      culture[LOCALE_SMONTHNAME1 + i] = months[i];
      culture[LOCALE_SABBREVMONTHNAME1 + i] = std::wstring(months[i], 3);
    }
    for (LCTYPE i = 0; i < 7; ++i) {
      culture[LOCALE_SDAYNAME1 + i] = days[i];
      culture[LOCALE_SABBREVDAYNAME1 + i] = std::wstring(days[i], 3);
    }
    TheRig().On<::GetLocaleInfoW>([this](LCID locale, LCTYPE type, LPWSTR text, int size) -> int {
      ++localeQuestions;
      EXPECT_EQ(locale, static_cast<LCID>(LOCALE_USER_DEFAULT));
      const auto found = culture.find(type);
      if (found == culture.end() || static_cast<int>(found->second.size()) + 1 > size) return 0;
      memcpy(text, found->second.c_str(), (found->second.size() + 1) * sizeof(wchar_t));
      return static_cast<int>(found->second.size()) + 1;
    });
    TheRig().On<::GetDateFormatW>(
        [](LCID, DWORD flags, const SYSTEMTIME* time, LPCWSTR, LPWSTR text, int size) {
          const int length = swprintf(text, static_cast<size_t>(size),
                                      flags == DATE_LONGDATE ? L"<%04d/%02d/%02d %d>" : L"%04d/%02d/%02d",
                                      time->wYear, time->wMonth, time->wDay, time->wDayOfWeek);
          return length < 0 ? 0 : length + 1;
        });
    TheRig().On<::GetTimeFormatW>([](LCID, DWORD flags, const SYSTEMTIME* time, LPCWSTR, LPWSTR text,
                                     int size) {
      const int length = flags == TIME_NOSECONDS ? swprintf(text, static_cast<size_t>(size), L"%d.%02d",
                                                            time->wHour, time->wMinute)
                                                 : swprintf(text, static_cast<size_t>(size), L"%d.%02d.%02d",
                                                            time->wHour, time->wMinute, time->wSecond);
      return length < 0 ? 0 : length + 1;
    });
    TheRig().On<::GetTickCount>([this] { return ticks; });
    TheRig().On<::GetLocalTime>([this](SYSTEMTIME* time) {
      ++clockQuestions;
      *time = localTime;
    });
    TheRig().On<::GetSystemTime>([this](SYSTEMTIME* time) { *time = systemTime; });
    TheRig().On<::GetTimeZoneInformation>([this](TIME_ZONE_INFORMATION* result) {
      *result = zone;
      return zoneKind;
    });
  }

  /// The answers of GetLocaleInfoW; it fails for any other question.
  std::map<LCTYPE, std::wstring> culture;
  int localeQuestions = 0;
  /// The clock, in a zone one hour and a half east: Friday, 13 November 2026, 14:15:16 UTC.
  DWORD ticks = 5000;
  SYSTEMTIME systemTime{2026, 11, 5, 13, 14, 15, 16, 500};
  SYSTEMTIME localTime{2026, 11, 5, 13, 15, 45, 16, 500};
  int clockQuestions = 0;
  TIME_ZONE_INFORMATION zone = MakeZone();
  DWORD zoneKind = TIME_ZONE_ID_UNKNOWN;

 private:
  static TIME_ZONE_INFORMATION MakeZone() {
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = -90;
    zone.StandardBias = 0;
    zone.DaylightBias = -60;
    wcscpy(zone.StandardName, L"Here");
    wcscpy(zone.DaylightName, L"Here in summer");
    return zone;
  }
};

}  // namespace format_test
