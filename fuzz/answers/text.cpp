// Conversions between UTF-8 and UTF-16, comparisons, the locale and the clock.

#include "image.h"
#include "require.h"
#include "world.h"

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// One step of the decoder: a character and the bytes that it takes. Damaged bytes are replaced one by one.
struct Decoded {
  uint32_t character;
  size_t length;
};

Decoded DecodeOne(std::string_view text) {
  const auto lead = static_cast<uint8_t>(text[0]);
  if (lead < 0x80) return {lead, 1};
  constexpr struct {
    uint8_t mask, lead;
    uint32_t smallest;
  } kForms[] = {{0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
  size_t length = 1;
  for (const auto& form : kForms) {
    ++length;
    if ((lead & form.mask) != form.lead) continue;
    if (text.size() < length) break;
    uint32_t character = lead & static_cast<uint8_t>(~form.mask);
    bool isWhole = true;
    for (size_t i = 1; i < length; ++i) {
      isWhole = isWhole && (static_cast<uint8_t>(text[i]) & 0xC0) == 0x80;
      character = character << 6 | (static_cast<uint8_t>(text[i]) & 0x3F);
    }
    bool isSurrogate = character >= 0xD800 && character < 0xE000;
    if (!isWhole || isSurrogate || character < form.smallest || character > 0x10FFFF) break;
    return {character, length};
  }
  return {kReplacement, 1};
}

void AppendUtf8(std::string* text, uint32_t character) {
  auto put = [text](uint32_t byte) { text->push_back(static_cast<char>(byte)); };
  if (character < 0x80) {
    put(character);
  } else if (character < 0x800) {
    put(0xC0 | character >> 6);
    put(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    put(0xE0 | character >> 12);
    put(0x80 | (character >> 6 & 0x3F));
    put(0x80 | (character & 0x3F));
  } else {
    put(0xF0 | character >> 18);
    put(0x80 | (character >> 12 & 0x3F));
    put(0x80 | (character >> 6 & 0x3F));
    put(0x80 | (character & 0x3F));
  }
}

bool IsHighHalf(char16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
bool IsLowHalf(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

// Copies a result with the rules that both conversions share.
template <typename Unit, typename Text>
int Deliver(const Text& result, Unit* to, int capacity) {
  if (capacity == 0) return static_cast<int>(result.size());
  if (result.size() > static_cast<size_t>(capacity)) return WithError(ERROR_INSUFFICIENT_BUFFER, 0);
  std::copy(result.begin(), result.end(), to);
  return static_cast<int>(result.size());
}

int WINAPI AnswerMultiByteToWideChar(UINT page, DWORD flags, LPCCH text, int length, LPWSTR wide,
                                     int capacity) {
  REQUIRE(page == CP_UTF8 && flags == 0, "MultiByteToWideChar is called with page %u, flags %u", page, flags);
  if (length == 0 || capacity < 0) return WithError(ERROR_INVALID_PARAMETER, 0);
  if (MustFail()) return WithError(ERROR_INVALID_PARAMETER, 0);
  size_t size = length < 0 ? strlen(text) + 1 : static_cast<size_t>(length);
  return Deliver(WideOf({text, size}), wide, capacity);
}

int WINAPI AnswerWideCharToMultiByte(UINT page, DWORD flags, LPCWCH text, int length, LPSTR narrow,
                                     int capacity, LPCCH replacement, LPBOOL) {
  REQUIRE(page == CP_UTF8 && flags == 0, "WideCharToMultiByte is called with page %u, flags %u", page, flags);
  REQUIRE(!replacement, "WideCharToMultiByte is called with a replacement, which UTF-8 does not allow");
  if (length == 0 || capacity < 0) return WithError(ERROR_INVALID_PARAMETER, 0);
  if (MustFail()) return WithError(ERROR_INVALID_PARAMETER, 0);
  std::u16string_view units = length < 0 ? ViewOf(text) : std::u16string_view{};
  // The terminator is converted, too.
  units = {reinterpret_cast<const char16_t*>(text),
           length < 0 ? units.size() + 1 : static_cast<size_t>(length)};
  return Deliver(NarrowOf(units), narrow, capacity);
}

template <typename Text>
int Compare(Text a, Text b, bool foldsCase) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
    auto left = static_cast<char16_t>(a[i]), right = static_cast<char16_t>(b[i]);
    if (foldsCase) left = FoldedUnit(left), right = FoldedUnit(right);
    if (left != right) return left < right ? CSTR_LESS_THAN : CSTR_GREATER_THAN;
  }
  if (a.size() == b.size()) return CSTR_EQUAL;
  return a.size() < b.size() ? CSTR_LESS_THAN : CSTR_GREATER_THAN;
}

std::u16string_view Units(LPCWCH text, int length) {
  return length < 0
             ? ViewOf(text)
             : std::u16string_view(reinterpret_cast<const char16_t*>(text), static_cast<size_t>(length));
}
std::string_view Bytes(LPCCH text, int length) {
  return length < 0 ? std::string_view(text) : std::string_view(text, static_cast<size_t>(length));
}

int WINAPI AnswerCompareStringOrdinal(LPCWCH a, int aLength, LPCWCH b, int bLength, BOOL ignoresCase) {
  if (MustFail()) return WithError(ERROR_INVALID_PARAMETER, 0);
  return Compare(Units(a, aLength), Units(b, bLength), ignoresCase);
}

int WINAPI AnswerCompareStringW(LCID, DWORD flags, LPCWCH a, int aLength, LPCWCH b, int bLength) {
  if (MustFail()) return WithError(ERROR_INVALID_PARAMETER, 0);
  return Compare(Units(a, aLength), Units(b, bLength), flags & NORM_IGNORECASE);
}

int WINAPI AnswerCompareStringA(LCID, DWORD flags, LPCCH a, int aLength, LPCCH b, int bLength) {
  if (MustFail()) return WithError(ERROR_INVALID_PARAMETER, 0);
  return Compare(Bytes(a, aLength), Bytes(b, bLength), flags & NORM_IGNORECASE);
}

// ---- the locale

// Delivers an answer of the locale functions: with its terminator, and not at all if it does not fit.
int DeliverTerminated(const std::u16string& text, LPWSTR to, int capacity) {
  std::u16string whole = text;
  whole.push_back(0);
  return Deliver(whole, to, capacity);
}

int WINAPI AnswerGetLocaleInfoW(LCID locale, LCTYPE type, LPWSTR text, int capacity) {
  REQUIRE(locale == LOCALE_USER_DEFAULT, "GetLocaleInfoW is called for another locale");
  if (MustFail()) return WithError(ERROR_INVALID_FLAGS, 0);
  auto found = world.locale.find(type);
  if (found == world.locale.end()) return WithError(ERROR_INVALID_FLAGS, 0);
  return DeliverTerminated(found->second, text, capacity);
}

// Windows refuses a date that does not exist.
bool IsDate(const SYSTEMTIME& time) {
  constexpr WORD kFirstYear = 1601, kLastYear = 30827, kMonths = 12, kMostDays = 31;
  return time.wYear >= kFirstYear && time.wYear <= kLastYear && time.wMonth >= 1 && time.wMonth <= kMonths &&
         time.wDay >= 1 && time.wDay <= kMostDays;
}

bool IsTime(const SYSTEMTIME& time) {
  constexpr WORD kHours = 24, kSixty = 60;
  return time.wHour < kHours && time.wMinute < kSixty && time.wSecond < kSixty;
}

int WINAPI AnswerGetDateFormatW(LCID, DWORD, const SYSTEMTIME* date, LPCWSTR, LPWSTR text, int capacity) {
  if (MustFail() || !IsDate(*date)) return WithError(ERROR_INVALID_PARAMETER, 0);
  return DeliverTerminated(world.date, text, capacity);
}

int WINAPI AnswerGetTimeFormatW(LCID, DWORD, const SYSTEMTIME* time, LPCWSTR, LPWSTR text, int capacity) {
  if (MustFail() || !IsTime(*time)) return WithError(ERROR_INVALID_PARAMETER, 0);
  return DeliverTerminated(world.time, text, capacity);
}

// ---- the clock

void WINAPI AnswerGetLocalTime(LPSYSTEMTIME time) {
  *time = world.local;
}

void WINAPI AnswerGetSystemTime(LPSYSTEMTIME time) {
  *time = world.system;
}

DWORD WINAPI AnswerGetTimeZoneInformation(LPTIME_ZONE_INFORMATION zone) {
  if (MustFail()) return TIME_ZONE_ID_INVALID;
  *zone = world.zone;
  return world.zoneResult;
}

DWORD WINAPI AnswerGetTickCount() {
  return world.ticks;
}

void WINAPI AnswerSleep(DWORD milliseconds) {
  world.ticks += milliseconds;
}

const Answers kText{
    ANSWER(CompareStringA, AnswerCompareStringA),
    ANSWER(CompareStringOrdinal, AnswerCompareStringOrdinal),
    ANSWER(CompareStringW, AnswerCompareStringW),
    ANSWER(GetDateFormatW, AnswerGetDateFormatW),
    ANSWER(GetLocalTime, AnswerGetLocalTime),
    ANSWER(GetLocaleInfoW, AnswerGetLocaleInfoW),
    ANSWER(GetSystemTime, AnswerGetSystemTime),
    ANSWER(GetTickCount, AnswerGetTickCount),
    ANSWER(GetTimeFormatW, AnswerGetTimeFormatW),
    ANSWER(GetTimeZoneInformation, AnswerGetTimeZoneInformation),
    ANSWER(MultiByteToWideChar, AnswerMultiByteToWideChar),
    ANSWER(Sleep, AnswerSleep),
    ANSWER(WideCharToMultiByte, AnswerWideCharToMultiByte),
};

}  // namespace

// Letters a to z, and those of Latin-1, Greek and Cyrillic that a fixed distance separates.
char16_t FoldedUnit(char16_t unit) {
  if (unit >= u'a' && unit <= u'z') return static_cast<char16_t>(unit - 32);
  if ((unit >= 0xE0 && unit <= 0xFE && unit != 0xF7) || (unit >= 0x3B1 && unit <= 0x3C9 && unit != 0x3C2) ||
      (unit >= 0x430 && unit <= 0x44F)) {
    return static_cast<char16_t>(unit - 32);
  }
  return unit;
}

bool IsSameName(std::u16string_view a, std::u16string_view b) {
  return Compare(a, b, true) == CSTR_EQUAL;
}

DWORD DeliverPath(const std::u16string& text, DWORD capacity, LPWSTR buffer) {
  if (text.size() >= capacity) return static_cast<DWORD>(text.size()) + 1;
  memcpy(buffer, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  return static_cast<DWORD>(text.size());
}

std::u16string WideOf(std::string_view text) {
  std::u16string wide;
  while (!text.empty()) {
    Decoded decoded = DecodeOne(text);
    text.remove_prefix(decoded.length);
    if (decoded.character < 0x10000) {
      wide.push_back(static_cast<char16_t>(decoded.character));
    } else {
      wide.push_back(static_cast<char16_t>(0xD7C0 + (decoded.character >> 10)));
      wide.push_back(static_cast<char16_t>(0xDC00 | (decoded.character & 0x3FF)));
    }
  }
  return wide;
}

std::string NarrowOf(std::u16string_view text) {
  std::string narrow;
  for (size_t i = 0; i < text.size(); ++i) {
    char16_t unit = text[i];
    if (IsHighHalf(unit) && i + 1 < text.size() && IsLowHalf(text[i + 1])) {
      AppendUtf8(&narrow, 0x10000 + (static_cast<uint32_t>(unit & 0x3FF) << 10) + (text[++i] & 0x3FFu));
    } else {
      AppendUtf8(&narrow, IsHighHalf(unit) || IsLowHalf(unit) ? kReplacement : unit);
    }
  }
  return narrow;
}
