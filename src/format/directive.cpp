#include "format/directive.h"

namespace {

constexpr bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Reads the decimal digits at `at`, if any, and returns the place after them. A number that is too large
/// becomes the largest signed 32-bit number.
const char* ParseNumber(const char* at, uint32_t* value) {
  constexpr uint32_t kLargest = 0x7FFFFFFF;
  uint64_t number = 0;
  for (; IsDigit(*at); ++at) {
    number = number * 10 + static_cast<uint32_t>(*at - '0');
    if (number > kLargest) number = kLargest;
  }
  *value = static_cast<uint32_t>(number);
  return at;
}

/// Returns the flag of a brace modifier, 0 for any other character. The caller counts "'".
uint32_t ModifierFlag(char c) {
  static constexpr struct {
    char letter;
    uint32_t flag;
  } kModifiers[] = {{'`', kBacktick}, {'<', kCdata},     {'~', kTilde},     {'&', kEntity}, {'@', kHexAt},
                    {'/', kHexSlash}, {'^', kUpperCase}, {'_', kLowerCase}, {'$', kGroup}};
  for (const auto& modifier : kModifiers) {
    if (modifier.letter == c) return modifier.flag;
  }
  return 0;
}

/// Reads a brace extension at its "{", if it is one, and returns the place after it. If the closing brace is
/// missing, the extension ends with the format.
[[gnu::noinline, gnu::cold]] const char* ParseBraces(const char* at, Directive* directive) {
  static constexpr uint32_t kQuoteFlags[] = {0, kEscapeQuote, kDoubleQuote, kEscapeDouble};
  const char* inside = at + 1;
  if (*inside == 0) return at;
  if (*inside != ':') {
    if (inside[1] != ':' && inside[1] != '}') return at;
    directive->variant = *inside++;
  }
  if (*inside == ':') {
    uint32_t quotes = 0;
    for (++inside; *inside && *inside != ':' && *inside != '}'; ++inside) {
      if (*inside == '\'' && quotes < 3) ++quotes;
      directive->flags |= ModifierFlag(*inside);
    }
    directive->flags |= kQuoteFlags[quotes];
  }
  if (*inside == ':') {
    const char* text = ++inside;
    while (*inside && *inside != '}') ++inside;
    directive->textLength = static_cast<uint32_t>(inside - text);
    if (directive->textLength) directive->text = text;
  }
  return *inside ? inside + 1 : inside;
}

/// Reads the flags at `at`, in any number and order, and drops " " if "+" is given.
const char* ParseFlags(const char* at, Directive* directive) {
  uint32_t flags = 0;
  for (;; ++at) {
    switch (*at) {
      case '#':
        flags |= kAlternate;
        continue;
      case '-':
        flags |= kLeft;
        continue;
      case '+':
        flags |= kPlus;
        continue;
      case ' ':
        flags |= kSpace;
        continue;
      case '0':
        flags |= kZero;
        continue;
      case '\'':
      case ',':
        flags |= kGroup;
        continue;
      default:
        break;
    }
    break;
  }
  if (flags & kPlus) flags &= ~kSpace;
  directive->flags = flags;
  return at;
}

/// Reads the width at `at`, if there is one. A negative argument means "-" and its absolute value.
const char* ParseWidth(const char* at, ArgumentCursor* arguments, Directive* directive) {
  if (*at != '*') return ParseNumber(at, &directive->width);
  const uint32_t argument = arguments->Take32();
  if (static_cast<int32_t>(argument) < 0) {
    directive->flags |= kLeft;
    directive->width = 0u - argument;
  } else {
    directive->width = argument;
    directive->inputLength = argument;
  }
  return at + 1;
}

/// Reads the precision after its ".". A negative argument means no precision.
const char* ParsePrecision(const char* at, ArgumentCursor* arguments, Directive* directive) {
  if (*at != '*') return ParseNumber(at, &directive->precision);
  const uint32_t argument = arguments->Take32();
  if (static_cast<int32_t>(argument) >= 0) {
    directive->flags |= kPrecisionArgument;
    directive->precision = argument;
    if (directive->inputLength > argument) directive->inputLength = argument;
  }
  return at + 1;
}

/// Reads the length modifiers at `at`: "l", "ll", "I64" and "t"; "l" makes "t" narrow.
const char* ParseLength(const char* at, Directive* directive) {
  bool pointerSized = false;
  for (;;) {
    if (at[0] == 'l' && at[1] == 'l') {
      directive->flags |= kWide64;
      at += 2;
    } else if (at[0] == 'l') {
      directive->flags |= kLong;
      ++at;
    } else if (at[0] == 'I' && at[1] == '6' && at[2] == '4') {
      directive->flags |= kWide64;
      at += 3;
    } else if (at[0] == 't') {
      pointerSized = true;
      ++at;
    } else {
      break;
    }
  }
  if (pointerSized && !(directive->flags & kLong)) directive->flags |= kWide64;
  return at;
}

}  // namespace

const char* ParseDirective(const char* at, ArgumentCursor* arguments, Directive* directive) {
  directive->flags = 0;
  directive->width = 0;
  directive->precision = kNoPrecision;
  directive->inputLength = kToTerminator;
  directive->text = nullptr;
  directive->textLength = 0;
  directive->variant = 0;

  // All characters of position, flags, width and precision come before the letters.
  if (*at < 'A') {
    if (IsDigit(*at)) {
      uint32_t position;
      const char* behind = ParseNumber(at, &position);
      if (*behind == '$') {
        if (position != 0) arguments->MoveTo(position);
        at = behind + 1;
      }
    }
    at = ParseFlags(at, directive);
    at = ParseWidth(at, arguments, directive);
    if (*at == '.') at = ParsePrecision(at + 1, arguments, directive);
    if (directive->flags & kLeft) directive->flags &= ~static_cast<uint32_t>(kZero);
  }
  if (*at == 'l' || *at == 'I' || *at == 't') at = ParseLength(at, directive);

  directive->letter = *at;
  if (*at) ++at;
  directive->afterLetter = at;
  return *at == '{' ? ParseBraces(at, directive) : at;
}
