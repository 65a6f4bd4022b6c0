#include "client/number_text.h"

namespace {

constexpr unsigned kDecimal = 10;
constexpr unsigned kHexadecimal = 16;

// Returns the value of a hexadecimal digit of either case; kHexadecimal for any other character.
unsigned DigitValue(char character) {
  if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a') + kDecimal;
  if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A') + kDecimal;
  return kHexadecimal;
}

DWORD ParseDigits(const char* text, unsigned base) {
  DWORD value = 0;
  for (; DigitValue(*text) < base; ++text) value = value * base + DigitValue(*text);
  return value;
}

}  // namespace

int ParseDigitsA(const char* text) {
  return static_cast<int>(ParseDigits(text, kDecimal));
}

int ParseIntervalA(const char* text) {
  bool isNegative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  bool isHexadecimal = text[0] == '0' && text[1] == 'x';
  DWORD value = isHexadecimal ? ParseDigits(text + 2, kHexadecimal) : ParseDigits(text, kDecimal);
  return static_cast<int>(isNegative ? 0 - value : value);
}
