// The decimal digits of a double, correctly rounded (to nearest, ties to even) for every value. Used by the
// floating-point writer.
#pragma once

#include <stdint.h>

/// The largest number of significant digits in the exact value of a double.
constexpr uint32_t kMaxExactDigits = 767;
/// The largest number of digits after the point in the exact value of a double.
constexpr uint32_t kMaxFractionDigits = 1074;

/// A decimal number: digits[0].digits[1]digits[2]... times 10^exponent. After the last digit come zeros.
struct DecimalDigits {
  /// The power of ten of the first digit.
  int32_t exponent;
  /// The number of digits, at least 1.
  uint32_t count;
  /// '0' to '9', not terminated. Has space for the digits that whole limbs of the exact number add.
  char digits[kMaxExactDigits + 18];
};

extern "C" {

/// Stores the digits of a finite, non-negative double, rounded to `significant` digits (at least 1). The
/// first digit is 0 only if the value is 0.
void RoundToSignificant(double value, uint32_t significant, DecimalDigits* result);

/// Stores the digits of a finite, non-negative double, rounded to `places` digits after the point. There may
/// be leading zeros; no stored digit lies beyond those places.
void RoundToPlaces(double value, uint32_t places, DecimalDigits* result);

}  // extern "C"
