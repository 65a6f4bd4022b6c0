// Date patterns: any pattern with any date; and for the letters that C's strftime knows, the text of
// strftime.

#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"
#include "targets/texts.h"

#include "base/calendar.h"
#include "format/date_pattern.h"

namespace {

OPERATION(FormatDatePattern);
OPERATION(DateToSeconds);
OPERATION(SecondsToDate);

// The letters whose text does not depend on the locale or the zone.
constexpr char kPlainLetters[] = "CdegGHIjklmMSuUVwWyYDFRT";

std::string OfStrftime(time_t seconds, const std::string& pattern) {
  tm date;
  gmtime_r(&seconds, &date);
  constexpr size_t kMost = 4096;
  std::string text(kMost, '\0');
  text.resize(strftime(text.data(), text.size(), pattern.c_str(), &date));
  return text;
}

// Compares the letters of one date with those of strftime.
void CheckAgainstStrftime(Data* data) {
  const auto seconds = data->Take<uint32_t>();
  auto* date = static_cast<BrokenDownDate*>(GuardedBuffer(sizeof(BrokenDownDate)));
  callSecondsToDate(seconds, date);
  // The last years of the numbers are past those that the library knows.
  constexpr uint32_t kEndOfYears = 4102444800;
  REQUIRE(seconds >= kEndOfYears || callDateToSeconds(date) == seconds, "%u seconds become %u", seconds,
          callDateToSeconds(date));
  if (seconds >= kEndOfYears) return;
  std::string pattern = "|";
  for (uint32_t count = data->Below(12); count; --count) {
    pattern += "%";
    pattern += kPlainLetters[data->Below(sizeof kPlainLetters - 1)];
    pattern += "|";
  }
  const char* place = GuardedText(pattern);
  std::string text = CheckText(
      [&](char* buffer, unsigned size) {
        return callFormatDatePattern(buffer, size, place, kToTerminator, date, 0);
      },
      data->Byte(), 0, 0);
  std::string expected = OfStrftime(seconds, pattern);
  REQUIRE(text == expected, "%u seconds are \"%s\", not \"%s\"", seconds, text.c_str(), expected.c_str());
}

}  // namespace

void RunDates(Data* data) {
  if (data->Flag()) {
    CheckAgainstStrftime(data);
    return;
  }
  TakeFailure(data);
  ChooseClock(data);
  if (data->Flag()) ChooseLocale(data);
  const unsigned size = data->Take<uint16_t>();
  const char escape = data->Flag() ? '#' : static_cast<char>(data->Byte());
  auto* date = static_cast<BrokenDownDate*>(GuardedBuffer(sizeof(BrokenDownDate)));
  *date = data->Take<BrokenDownDate>();
  const bool isTerminated = data->Flag();
  std::string pattern = data->Rest();
  pattern.resize(std::min<size_t>(pattern.size(), 200));
  const char* place = isTerminated ? GuardedText(pattern) : GuardedBytes(pattern);
  const unsigned length = isTerminated ? kToTerminator : static_cast<unsigned>(pattern.size());
  // The first call reads the locale, and may fail where the next ones do not.
  callFormatDatePattern(nullptr, 0, place, length, date, escape);
  if (HasFailed() && world.failsOn) return;
  world.failing = 0;
  CheckText(
      [&](char* buffer, unsigned capacity) {
        return callFormatDatePattern(buffer, capacity, place, length, date, escape);
      },
      size, 0, 0);
}
