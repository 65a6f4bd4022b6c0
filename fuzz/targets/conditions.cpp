#include "targets/conditions.h"

namespace {

SYSTEMTIME TakeTime(Data* data) {
  SYSTEMTIME time{};
  time.wYear = static_cast<WORD>(1970 + data->Below(140));
  time.wMonth = static_cast<WORD>(1 + data->Below(12));
  time.wDay = static_cast<WORD>(1 + data->Below(28));
  time.wDayOfWeek = static_cast<WORD>(data->Below(7));
  time.wHour = static_cast<WORD>(data->Below(24));
  time.wMinute = static_cast<WORD>(data->Below(60));
  time.wSecond = static_cast<WORD>(data->Below(60));
  return time;
}

// The longest answer of the locale functions, without its terminator.
constexpr uint32_t kLongestAnswer = 255;

}  // namespace

void ChooseClock(Data* data) {
  world.local = TakeTime(data);
  world.system = TakeTime(data);
  world.ticks = data->Take<DWORD>();
  world.zone.Bias = static_cast<LONG>(data->Below(2001)) - 1000;
  world.zone.StandardBias = static_cast<LONG>(data->Below(121)) - 60;
  world.zone.DaylightBias = static_cast<LONG>(data->Below(121)) - 60;
  for (WCHAR& unit : world.zone.StandardName) unit = data->WideUnit();
  world.zone.StandardName[std::size(world.zone.StandardName) - 1] = 0;
  for (WCHAR& unit : world.zone.DaylightName) unit = data->WideUnit();
  world.zone.DaylightName[std::size(world.zone.DaylightName) - 1] = 0;
  world.zoneResult = data->Below(3);
  world.date = data->Wide(kLongestAnswer);
  world.time = data->Wide(kLongestAnswer);
}

void ChooseLocale(Data* data) {
  world.locale[LOCALE_SDECIMAL] = u".";
  world.locale[LOCALE_STHOUSAND] = u",";
  world.locale[LOCALE_SGROUPING] = u"3;0";
  static constexpr LCTYPE kTypes[] = {
      LOCALE_SPOSITIVESIGN,
      LOCALE_SNEGATIVESIGN,
      LOCALE_SDECIMAL,
      LOCALE_STHOUSAND,
      LOCALE_SCURRENCY,
      LOCALE_SGROUPING,
      LOCALE_SDATE,
      LOCALE_STIME,
      LOCALE_S1159,
      LOCALE_S2359,
      LOCALE_IDATE,
      LOCALE_ITIME,
      LOCALE_SMONTHNAME1,
      LOCALE_SMONTHNAME12,
      LOCALE_SDAYNAME1,
      LOCALE_SDAYNAME7,
      LOCALE_SABBREVMONTHNAME1,
      LOCALE_SABBREVMONTHNAME12,
      LOCALE_SABBREVDAYNAME1,
      LOCALE_SABBREVDAYNAME7,
  };
  for (uint32_t count = data->Below(12); count; --count) {
    world.locale[data->OneOf(kTypes) + data->Below(3)] = data->Wide(kLongestAnswer);
  }
}
