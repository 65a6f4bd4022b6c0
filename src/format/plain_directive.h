// The fast path for the directives of most messages: converts them without parsing them into a Directive. The
// result is the same as from the full path, ParseDirective and Convert, which converts everything else. Used
// by the format engine's loop.
#pragma once

#include <stdint.h>

#include "format/directive.h"
#include "format/number_writer.h"
#include "format/output.h"

/// A parsed plain directive: an integer with at most one flag and a width of at most two digits, a byte, a
/// string or "%".
struct PlainDirective {
  uint32_t width = 0;     ///< the least bytes to write, without the sign; 0 if not given
  bool zero = false;      ///< "0"
  bool left = false;      ///< "-"
  bool plus = false;      ///< "+"
  bool isLong = false;    ///< "l"
  bool isWide64 = false;  ///< "ll"
  const char* letter;     ///< the place of the conversion letter

  /// Parses the directive at `at`, after its "%". If it is not plain, `letter` points to a character that is
  /// not a letter of a plain directive.
  explicit PlainDirective(const char* at) {
    if (*at < 'A') {
      if (*at == '0') {
        zero = true;
        ++at;
      } else if (*at == '-') {
        left = true;
        ++at;
      } else if (*at == '+') {
        plus = true;
        ++at;
      }
      if (*at >= '1' && *at <= '9') {
        width = static_cast<uint32_t>(*at++ - '0');
        if (*at >= '0' && *at <= '9') width = width * 10 + static_cast<uint32_t>(*at++ - '0');
      }
    }
    if (*at == 'l') {
      isLong = true;
      if (*++at == 'l') {
        isLong = false;
        isWide64 = true;
        ++at;
      }
    }
    letter = at;
  }
};

/// Writes a number of `count` digits with its padding at `at`, and returns the place after it. `shift` is 0
/// for decimal, otherwise the bits of a digit. There must be space for all of it.
inline char* StorePlainNumber(char* at, uint64_t value, uint32_t count, uint32_t shift, bool capital,
                              const PlainDirective& plain) {
  uint32_t after = 0;
  if (plain.width > count) {
    const uint32_t padding = plain.width - count;
    after = plain.left ? padding : 0;
    FillShort(at, plain.zero ? '0' : ' ', padding - after);
    at += padding - after;
  }
  if (count == 1 && shift == 0) {
    *at = static_cast<char>('0' + value);
  } else if (shift == 0) {
    StoreDecimal(at, value, count);
  } else {
    StoreBitDigits(at, value, count, shift, capital);
  }
  at += count;
  if (after != 0) FillShort(at, ' ', after);
  return at + after;
}

/// Converts the directive at `*format`, its "%", if it is plain: writes at `*at`, and advances `at`, `room`,
/// `format` and `arguments`. `*room` must be at least kMaxNumberLength. Returns false and changes nothing for
/// every other directive, and if `*at` is null because the text is only measured. Static, so that the
/// compiler inlines it into its only caller, the engine's inner loop.
static inline bool ConvertPlain(char** at, uint32_t* room, const char** format, ArgumentCursor* arguments) {
  const PlainDirective plain(*format + 1);
  const char letter = *plain.letter;
  // The width does not count the sign.
  if (!*at || letter == 0 || plain.letter[1] == '{' || plain.width >= *room) return false;
  uint32_t shift = 0;
  char* start = *at;
  // Only signed numbers have a plus sign; for texts the flag means an escape.
  if (plain.plus && letter != 'd' && letter != 'i') return false;
  switch (letter) {
    case '%':
      *(*at)++ = '%';
      --*room;
      *format = plain.letter + 1;
      return true;
    case 'd':
    case 'i':
    case 'u': {
      const uint64_t slot = arguments->Peek();
      uint64_t value = plain.isWide64 ? slot : static_cast<uint32_t>(slot);
      const int64_t number = plain.isWide64 ? static_cast<int64_t>(slot) : static_cast<int32_t>(slot);
      if (letter != 'u' && number < 0) {
        if (number == INT64_MIN) return false;
        *(*at)++ = '-';
        value = static_cast<uint64_t>(-number);
      } else if (plain.plus) {
        *(*at)++ = '+';
      }
      *at = StorePlainNumber(*at, value, CountDecimalDigits(value), 0, false, plain);
      break;
    }
    case 'o':
      shift = 3;
      [[fallthrough]];
    case 'x':
    case 'X': {
      if (shift == 0) shift = 4;
      const uint64_t slot = arguments->Peek();
      const uint64_t value = plain.isWide64 ? slot : static_cast<uint32_t>(slot);
      *at = StorePlainNumber(*at, value, CountBitDigits(value, shift), shift, letter == 'X', plain);
      break;
    }
    case 'c':
      if (plain.isLong) return false;
      *(*at)++ = static_cast<char>(arguments->Peek());
      break;
    case 's': {
      if (plain.isLong || plain.width != 0) return false;
      if (const char* text = reinterpret_cast<const char*>(arguments->Peek())) CopyRun<0>(at, room, text);
      start = *at;
      break;
    }
    default:
      return false;
  }
  arguments->Take();
  *room -= static_cast<uint32_t>(*at - start);
  *format = plain.letter + 1;
  return true;
}
