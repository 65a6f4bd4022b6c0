// Writes integers, and provides the decimal digits and the digit grouping for other writers. Used by the
// conversions "d", "i", "u", "o", "x", "X" and "p", by the floating-point writer and by the dates.
#pragma once

#include "format/directive.h"
#include "format/output.h"

/// Capacity for any number without padding and grouping: 22 octal digits and a prefix.
constexpr uint32_t kMaxNumberLength = 24;
/// The decimal digits of the largest 64-bit number.
constexpr uint32_t kMaxDecimalDigits = 20;

/// The powers of ten from 10^0 on that fit in 64 bits.
inline constexpr uint64_t kPowersOfTen[kMaxDecimalDigits] = {1,
                                                             10,
                                                             100,
                                                             1000,
                                                             10000,
                                                             100000,
                                                             1000000,
                                                             10000000,
                                                             100000000,
                                                             1000000000,
                                                             10000000000,
                                                             100000000000,
                                                             1000000000000,
                                                             10000000000000,
                                                             100000000000000,
                                                             1000000000000000,
                                                             10000000000000000,
                                                             100000000000000000,
                                                             1000000000000000000,
                                                             10000000000000000000u};

/// Returns the number of decimal digits of `value`; 1 for 0.
inline uint32_t CountDecimalDigits(uint64_t value) {
  // log10(2) is about 1233 / 4096: the guess is right or one too low. With the lowest bit set, 0 has one
  // digit.
  value |= 1;
  const uint32_t guess = (64 - static_cast<uint32_t>(__builtin_clzll(value))) * 1233 >> 12;
  return guess + (value >= kPowersOfTen[guess] ? 1 : 0);
}

/// Writes `count` decimal digits of `value` to `to`, with leading zeros if `value` has fewer.
[[gnu::noinline]] void StoreDecimal(char* to, uint64_t value, uint32_t count);

/// Returns the number of digits of `shift` bits that `value` has; 1 for 0.
inline uint32_t CountBitDigits(uint64_t value, uint32_t shift) {
  const uint32_t bits = 64 - static_cast<uint32_t>(__builtin_clzll(value | 1));
  return (bits + shift - 1) / shift;
}

/// Writes the `count` lowest digits of `shift` bits of `value` to `to`.
[[gnu::noinline]] void StoreBitDigits(char* to, uint64_t value, uint32_t count, uint32_t shift, bool capital);

/// Writes a signed number in decimal. On purpose: the sign comes first and the directive's width counts only
/// the digits. "%5d" of -3 is "-    3".
void WriteSigned(Output* output, int64_t value, const Directive& directive);

/// Writes an unsigned number. `shift` is 3 for octal, 4 for hexadecimal and 0 for decimal; with `capital`,
/// digits and prefix are capital.
void WriteUnsigned(Output* output, uint64_t value, uint32_t shift, bool capital, const Directive& directive);

/// Returns the bytes of `count` digits with the locale's separators between their groups.
[[gnu::cold]] uint64_t GroupedLength(uint32_t count);

/// Writes `count` digits with the locale's separators between their groups.
[[gnu::cold]] void PutGrouped(Output* output, const char* digits, uint32_t count);
