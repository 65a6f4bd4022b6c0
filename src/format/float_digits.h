// The decimal digits of a double, correctly rounded (to nearest, ties to even) for every value. Used by the
// floating-point writer.
#pragma once

#include <stdint.h>

/// Significant digits that the longest exact double has.
constexpr uint32_t kMaxExactDigits = 767;
/// The largest number of digits behind the point that a double has.
constexpr uint32_t kMaxFractionDigits = 1074;

/// A decimal number: digits[0].digits[1]digits[2]... times 10^exponent. Zeros follow behind the last digit.
struct DecimalDigits {
  /// Power of ten of the first digit.
  int32_t exponent;
  /// Digits present, at least 1.
  uint32_t count;
  /// '0' to '9', not terminated. With room for what whole limbs of the exact number add.
  char digits[kMaxExactDigits + 18];
};

extern "C" {

/// The digits of a finite double that is not negative, rounded to `significant` digits, which is at least 1.
/// The first digit is 0 only for 0.
void RoundToSignificant(double value, uint32_t significant, DecimalDigits* result);

/// The digits of a finite double that is not negative, rounded to `places` digits behind the point. There may
/// be leading zeros, and none of the digits present lies further behind the point.
void RoundToPlaces(double value, uint32_t places, DecimalDigits* result);

}  // extern "C"
