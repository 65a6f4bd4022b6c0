#include "format/float_digits.h"

#include "format/number_writer.h"

namespace {

using Wide = unsigned __int128;

// ---- doubles as integers: value = mantissa * 2^exponent

struct BinaryNumber {
  uint64_t mantissa;
  int32_t exponent;
};

BinaryNumber TakeApart(double value) {
  constexpr int32_t kMantissaBits = 52;
  constexpr int32_t kBias = 1023 + kMantissaBits;
  const uint64_t bits = __builtin_bit_cast(uint64_t, value);
  const uint64_t fraction = bits & ((uint64_t{1} << kMantissaBits) - 1);
  const int32_t biased = static_cast<int32_t>(bits >> kMantissaBits);
  if (biased == 0) return {fraction, 1 - kBias};
  return {fraction | uint64_t{1} << kMantissaBits, biased - kBias};
}

int32_t BitLength(uint64_t value) {
  return 64 - __builtin_clzll(value | 1);
}

void SetZero(DecimalDigits* result) {
  result->exponent = 0;
  result->count = 1;
  result->digits[0] = '0';
}

// ---- the exact way: the number as an integer of limbs times a power of ten

/// A limb holds 9 decimal digits; the lowest limb comes first.
constexpr uint32_t kLimbBase = 1000000000;
constexpr uint32_t kLimbDigits = 9;
constexpr uint32_t kMaxLimbs = (kMaxExactDigits + kLimbDigits - 1) / kLimbDigits + 2;

struct BigNumber {
  uint32_t limbs[kMaxLimbs];
  uint32_t count;
};

void SetBig(BigNumber* number, uint64_t value) {
  number->count = 0;
  do {
    number->limbs[number->count++] = static_cast<uint32_t>(value % kLimbBase);
    value /= kLimbBase;
  } while (value != 0);
}

/// Multiplies by a factor of at most 2^33.
void Multiply(BigNumber* number, uint64_t factor) {
  uint64_t carry = 0;
  for (uint32_t i = 0; i < number->count; ++i) {
    const uint64_t product = number->limbs[i] * factor + carry;
    carry = product / kLimbBase;
    number->limbs[i] = static_cast<uint32_t>(product - carry * kLimbBase);
  }
  while (carry != 0) {
    number->limbs[number->count++] = static_cast<uint32_t>(carry % kLimbBase);
    carry /= kLimbBase;
  }
}

/// Stores all digits of `value`, which must not be 0.
void Expand(double value, DecimalDigits* result) {
  constexpr int32_t kTwos = 32;
  constexpr int32_t kFives = 14;
  constexpr uint64_t kPowerOfFives = 6103515625;
  auto [mantissa, exponent] = TakeApart(value);
  const int32_t trailing = __builtin_ctzll(mantissa);
  mantissa >>= trailing;
  exponent += trailing;

  BigNumber number;
  SetBig(&number, mantissa);
  int32_t twos = exponent > 0 ? exponent : 0;
  for (; twos >= kTwos; twos -= kTwos) Multiply(&number, uint64_t{1} << kTwos);
  if (twos > 0) Multiply(&number, uint64_t{1} << twos);
  // m / 2^k is m * 5^k / 10^k.
  const int32_t tens = exponent < 0 ? -exponent : 0;
  int32_t fives = tens;
  for (; fives >= kFives; fives -= kFives) Multiply(&number, kPowerOfFives);
  for (; fives > 0; --fives) Multiply(&number, 5);

  uint32_t i = number.count - 1;
  uint32_t length = CountDecimalDigits(number.limbs[i]);
  StoreDecimal(result->digits, number.limbs[i], length);
  while (i-- > 0) {
    StoreDecimal(result->digits + length, number.limbs[i], kLimbDigits);
    length += kLimbDigits;
  }
  result->count = length;
  result->exponent = static_cast<int32_t>(length) - 1 - tens;
}

/// True if any digit from `from` on is not 0.
bool HasRest(const DecimalDigits& number, uint32_t from) {
  for (uint32_t i = from; i < number.count; ++i) {
    if (number.digits[i] != '0') return true;
  }
  return false;
}

/// Rounds an exact number to its first `keep` digits. With `keep` 0 the result is 0 or a 1 before the digits.
void RoundExact(DecimalDigits* number, uint32_t keep) {
  if (keep >= number->count) return;
  const char next = number->digits[keep];
  const bool isOdd = keep > 0 && ((number->digits[keep - 1] - '0') & 1) != 0;
  const bool up = next > '5' || (next == '5' && (isOdd || HasRest(*number, keep + 1)));
  if (up) {
    uint32_t i = keep;
    while (i > 0 && number->digits[i - 1] == '9') number->digits[--i] = '0';
    if (i > 0) {
      ++number->digits[i - 1];
    } else {
      // All nines become 1 and zeros; the last zero is dropped.
      number->digits[0] = '1';
      ++number->exponent;
      if (keep == 0) keep = 1;
    }
  } else if (keep == 0) {
    SetZero(number);
    return;
  }
  number->count = keep;
}

// ---- the fast way to significant digits: powers of five with 128 bits, and a check that they suffice

/// The step between the powers in the table, and the index of 5^0 in it.
constexpr int32_t kPowerStep = 27;
constexpr int32_t kPowerZero = 12;
/// The powers up to this index, from 5^0 on, are exact.
constexpr int32_t kLastExactPower = kPowerZero + 2;

/// A number of 128 bits, of which the first one is set unless it is 0.
struct Power {
  uint64_t high;
  uint64_t low;
};

struct PowerTable {
  /// 5^(27 (i - 12)): the first 128 bits, truncated.
  Power large[2 * kPowerZero + 1];
  /// The powers of 5 below the step.
  uint64_t small[kPowerStep];
};

/// Returns the first 128 bits of a number of 32-bit limbs, the lowest limb first; a shorter number is filled
/// up with zeros.
consteval Power FirstBits(const uint32_t* limbs, int32_t count) {
  constexpr int32_t kLimbBits = 32;
  int32_t bit = count * kLimbBits - 1;
  while (((limbs[bit / kLimbBits] >> (bit % kLimbBits)) & 1) == 0) --bit;
  Wide first = 0;
  for (int32_t i = 0; i < 128; ++i, --bit) {
    first = first << 1 | (bit >= 0 ? (limbs[bit / kLimbBits] >> (bit % kLimbBits)) & 1 : 0);
  }
  return {static_cast<uint64_t>(first >> 64), static_cast<uint64_t>(first)};
}

/// Computes the positive powers by exact multiplication, the negative ones by dividing a large power of two.
/// Truncating after every division gives the same result as a single division.
consteval PowerTable MakePowersOfFive() {
  constexpr int32_t kLimbs = 36;
  constexpr uint32_t kStepFactors[] = {1220703125, 1220703125, 5};  // 5^13 5^13 5
  PowerTable table{};
  uint32_t product[kLimbs] = {1};
  uint32_t quotient[kLimbs] = {};
  quotient[kLimbs - 1] = 1;
  for (int32_t step = 0; step <= kPowerZero; ++step) {
    table.large[kPowerZero + step] = FirstBits(product, kLimbs);
    table.large[kPowerZero - step] = FirstBits(quotient, kLimbs);
    for (const uint64_t factor : kStepFactors) {
      uint64_t carry = 0;
      uint64_t remainder = 0;
      for (int32_t i = 0; i < kLimbs; ++i) {
        carry += product[i] * factor;
        product[i] = static_cast<uint32_t>(carry);
        carry >>= 32;
        remainder = remainder << 32 | quotient[kLimbs - 1 - i];
        quotient[kLimbs - 1 - i] = static_cast<uint32_t>(remainder / factor);
        remainder %= factor;
      }
    }
  }
  table.small[0] = 1;
  for (int32_t i = 1; i < kPowerStep; ++i) table.small[i] = table.small[i - 1] * 5;
  return table;
}
constexpr PowerTable kPowersOfFive = MakePowersOfFive();

/// floor(log2(5^power)), for powers from -1,700 to 1,700.
constexpr int32_t Log2OfPowerOfFive(int32_t power) {
  return (power * 1217359) >> 19;
}
/// floor(log10(2^power)), for powers from -1,100 to 1,100.
constexpr int32_t Log10OfPowerOfTwo(int32_t power) {
  return (power * 78913) >> 18;
}

/// A scaled number: `whole` and a fraction of `bits` + 64 bits; further bits are cut off.
struct Scaled {
  uint64_t whole;
  /// The fraction: the low `bits` of `fractionHigh`, then all of `fractionLow`.
  uint64_t fractionHigh;
  uint64_t fractionLow;
  uint32_t bits;
  /// True if the number is known exactly; then `rest` is true if anything was cut off below the fraction.
  /// Otherwise the true number may be larger by up to two units of the fraction's last bit.
  bool exact;
  bool rest;
};

/// Returns value * 10^power, which must be below 2^62.
Scaled Scale(BinaryNumber value, int32_t power) {
  // The table's last power that does not exceed the wanted one.
  const int32_t step = (power + kPowerStep * kPowerZero) / kPowerStep;
  const int32_t small = power - (step - kPowerZero) * kPowerStep;
  const Power& power5 = kPowersOfFive.large[step];

  Wide factor = static_cast<Wide>(value.mantissa) * kPowersOfFive.small[small];
  const uint64_t top = static_cast<uint64_t>(factor >> 64);
  const int32_t zeros = top ? __builtin_clzll(top) : 64 + __builtin_clzll(static_cast<uint64_t>(factor));
  factor <<= zeros;
  const uint64_t factorHigh = static_cast<uint64_t>(factor >> 64);
  const uint64_t factorLow = static_cast<uint64_t>(factor);

  // 128 by 128 bits
  const Wide lowLow = static_cast<Wide>(factorLow) * power5.low;
  const Wide lowHigh = static_cast<Wide>(factorLow) * power5.high;
  const Wide highLow = static_cast<Wide>(factorHigh) * power5.low;
  const Wide highHigh = static_cast<Wide>(factorHigh) * power5.high;
  const Wide middle = (lowLow >> 64) + static_cast<uint64_t>(lowHigh) + static_cast<uint64_t>(highLow);
  const Wide high = highHigh + (lowHigh >> 64) + (highLow >> 64) + (middle >> 64);

  // The product is high * 2^128 + ..., and that times 2^binary is the number.
  const int32_t binary =
      value.exponent - zeros + power + Log2OfPowerOfFive((step - kPowerZero) * kPowerStep) - 127;
  const uint32_t bits = static_cast<uint32_t>(-binary - 192);
  const uint64_t first = static_cast<uint64_t>(high >> 64);
  Scaled scaled;
  scaled.whole = first >> bits;
  scaled.fractionHigh = first & ((uint64_t{1} << bits) - 1);
  scaled.fractionLow = static_cast<uint64_t>(high);
  scaled.bits = bits;
  scaled.exact = step >= kPowerZero && step <= kLastExactPower;
  scaled.rest = static_cast<uint64_t>(middle) != 0 || static_cast<uint64_t>(lowLow) != 0;
  return scaled;
}

enum class Comparison { kBelow, kEqual, kAbove, kUnknown };

/// Compares the true fraction with the point `pointHigh`, `pointLow`.
Comparison CompareFraction(const Scaled& scaled, uint64_t pointHigh, uint64_t pointLow) {
  const Wide fraction = static_cast<Wide>(scaled.fractionHigh) << 64 | scaled.fractionLow;
  const Wide point = static_cast<Wide>(pointHigh) << 64 | pointLow;
  if (fraction > point) return Comparison::kAbove;
  if (scaled.exact) {
    if (fraction < point) return Comparison::kBelow;
    return scaled.rest ? Comparison::kAbove : Comparison::kEqual;
  }
  return point - fraction >= 2 ? Comparison::kBelow : Comparison::kUnknown;
}

/// Like RoundToSignificant; false if 128 bits do not suffice.
bool RoundFast(double value, uint32_t significant, DecimalDigits* result) {
  const BinaryNumber number = TakeApart(value);
  int32_t exponent = Log10OfPowerOfTwo(BitLength(number.mantissa) + number.exponent - 1);
  const Scaled scaled = Scale(number, static_cast<int32_t>(significant) - 1 - exponent);

  uint64_t whole = scaled.whole;
  Comparison half;
  const uint64_t limit = kPowersOfTen[significant];
  if (whole >= limit) {
    // One digit too many: use it for the rounding.
    const uint64_t digit = whole % 10;
    whole /= 10;
    ++exponent;
    if (digit == 4 || digit == 5) {
      const uint64_t one = uint64_t{1} << scaled.bits;
      half = digit == 5 ? CompareFraction(scaled, 0, 0) : CompareFraction(scaled, one, 0);
    } else {
      half = digit > 5 ? Comparison::kAbove : Comparison::kBelow;
    }
  } else {
    half = CompareFraction(scaled, uint64_t{1} << (scaled.bits - 1), 0);
  }
  if (half == Comparison::kUnknown) return false;
  if (half == Comparison::kAbove || (half == Comparison::kEqual && (whole & 1))) ++whole;
  if (whole == limit) {
    whole /= 10;
    ++exponent;
  }
  StoreDecimal(result->digits, whole, significant);
  result->count = significant;
  result->exponent = exponent;
  return true;
}

}  // namespace

void RoundToSignificant(double value, uint32_t significant, DecimalDigits* result) {
  // With so many digits, the scaled number is below 2 * 10^18, as Scale requires.
  constexpr uint32_t kMostFastDigits = 18;
  if (value == 0) {
    SetZero(result);
    return;
  }
  if (significant <= kMostFastDigits && RoundFast(value, significant, result)) return;
  Expand(value, result);
  RoundExact(result, significant);
}

void RoundToPlaces(double value, uint32_t places, DecimalDigits* result) {
  // 10^19 is the largest power in 64 bits, so a mantissa times it stays below 2^117.
  constexpr uint32_t kMostFastPlaces = 19;
  const BinaryNumber number = TakeApart(value);
  const bool isSmall = BitLength(number.mantissa) + number.exponent <= 64;
  if (places <= kMostFastPlaces && isSmall) {
    uint64_t whole = 0;
    uint64_t fraction = 0;
    if (number.exponent >= 0) {
      whole = number.mantissa << number.exponent;
    } else {
      // From a shift of 128 on the fraction is 0: the scaled mantissa has at most 117 bits.
      const int32_t shift = -number.exponent;
      uint64_t rest = number.mantissa;
      if (shift < 64) {
        whole = rest >> shift;
        rest &= (uint64_t{1} << shift) - 1;
      }
      const uint64_t power = kPowersOfTen[places];
      if (shift < 128) {
        const Wide scaled = static_cast<Wide>(rest) * power;
        const Wide half = static_cast<Wide>(1) << (shift - 1);
        fraction = static_cast<uint64_t>(scaled >> shift);
        const Wide below = scaled - (static_cast<Wide>(fraction) << shift);
        const bool isOdd = ((places == 0 ? whole : fraction) & 1) != 0;
        if (below > half || (below == half && isOdd)) ++fraction;
      }
      if (fraction == power) {
        fraction = 0;
        ++whole;
      }
    }
    const uint32_t wholeDigits = CountDecimalDigits(whole);
    StoreDecimal(result->digits, whole, wholeDigits);
    StoreDecimal(result->digits + wholeDigits, fraction, places);
    result->count = wholeDigits + places;
    result->exponent = static_cast<int32_t>(wholeDigits) - 1;
    return;
  }
  if (value == 0) {
    SetZero(result);
    return;
  }
  Expand(value, result);
  const int64_t keep = int64_t{result->exponent} + 1 + places;
  if (keep < 0) {
    SetZero(result);
  } else {
    RoundExact(result,
               keep > kMaxFractionDigits + kMaxExactDigits ? result->count : static_cast<uint32_t>(keep));
  }
}
