// The conversions of floating-point numbers: their form, and the exactness of every digit.

#include <cfloat>
#include <cmath>
#include <vector>

#include "format/float_digits.h"
#include "unit/format/format_support.h"

namespace format_test {
namespace {

HX_INTERNAL(RoundToSignificant);
HX_INTERNAL(RoundToPlaces);

class FormatFloatTest : public FormatTest {};

TEST_F(FormatFloatTest, Fixed) {
  EXPECT_EQ(Formatted("%f %f %f", 0.0, 1.5, -1.5), "0.000000 1.500000 -1.500000");
  EXPECT_EQ(Formatted("%f", -0.0), "-0.000000");
  EXPECT_EQ(Formatted("%f %f", 0.9999995, 0.99999949999999997), "1.000000 0.999999");
  EXPECT_EQ(Formatted("%f %f", 9.9999999, 999999.9999999), "10.000000 1000000.000000");
  EXPECT_EQ(Formatted("%f %f", 1e-6, 4e-7), "0.000001 0.000000");
  EXPECT_EQ(Formatted("%f", 5e-324), "0.000000");
  EXPECT_EQ(Formatted("%f", 18446744073709551616.0), "18446744073709551616.000000");
  EXPECT_EQ(Formatted("%f", 1e22), "10000000000000000000000.000000");
  EXPECT_EQ(Formatted("%f", 1e23), "99999999999999991611392.000000");
  EXPECT_EQ(Formatted("%f", DBL_MAX),
            "179769313486231570814527423731704356798070567525844996598917476803157260780028538760589558632766"
            "87817154"
            "045895351438246423432132688946418276846754670353751698604991057655128207624549009038932894407586"
            "85084551"
            "339423045832369032229481658085593321233482747978262041447231687381771809192998812504040261841248"
            "58368.000000");
}

TEST_F(FormatFloatTest, Exponents) {
  EXPECT_EQ(Formatted("%e %E", 0.0, 123456.789), "0.000000e+00 1.234568E+05");
  EXPECT_EQ(Formatted("%e %e %e", 1e99, 1e100, 1e-100), "1.000000e+99 1.000000e+100 1.000000e-100");
  EXPECT_EQ(Formatted("%e %e", 9.9999996, 9.9999994e-10), "1.000000e+01 9.999999e-10");
  EXPECT_EQ(Formatted("%e %e %e", DBL_MAX, DBL_MIN, 5e-324), "1.797693e+308 2.225074e-308 4.940656e-324");
}

TEST_F(FormatFloatTest, Shortest) {
  EXPECT_EQ(Formatted("%g %g %g %g", 0.0, 1.0, 0.5, -2.25), "0 1 0.5 -2.25");
  EXPECT_EQ(Formatted("%g %g %g %g", 100000.0, 1000000.0, 999999.5, 123456.7), "100000 1e+06 1e+06 123457");
  EXPECT_EQ(Formatted("%g %g %g", 0.0001, 0.00001, 0.000099999995), "0.0001 1e-05 0.0001");
  EXPECT_EQ(Formatted("%G %G", 1e-10, 1e10), "1E-10 1E+10");
  EXPECT_EQ(Formatted("%.17g", 0.5), "0.5");
  EXPECT_EQ(Formatted("%.1g|%.2g|%.3g", 7.0, 42.0, 123.6), "7|42|124");
  EXPECT_EQ(Formatted("%.5g|%.5g", 99999.6, 123456.0), "1e+05|1.234");
  EXPECT_EQ(Formatted("%#g %#g %#G", 1.0, 0.0, 1e10), "1.00000 0.00000 1.00000E+10");
  EXPECT_EQ(Formatted("%#.3g|%#.5g|%#.9g", 1.0, 1.0, 1e10), "1.0|1.000|1.0000000");
}

TEST_F(FormatFloatTest, ThePrecisionAlsoLimitsTheBytes) {
  EXPECT_EQ(Formatted("%.2f|%.3f|%.9f|%.0f|%.f|", 3.14159, 3.14159, 3.14159, 3.14159, 3.14159),
            "3.|3.1|3.1415900|||");
  EXPECT_EQ(Formatted("%.3e|%.0e|%.0g|", 3.14159, 3.14159, 3.14159), "3.1|||");
  EXPECT_EQ(Formatted("%.*f|%.*f|", 4, 3.14159, -4, 3.14159), "3.14|3.141590|");
  EXPECT_EQ(Formatted("%.1f|%.2f|", 9.99, 9.999), "1|10|");
  EXPECT_EQ(Formatted("%.17g", 0.1), "0.100000000000000");
  EXPECT_EQ(Formatted("%8.4f|%-8.4f|%08.4f|", 3.14159, 3.14159, 3.14159), "  3.|3.14|003.|");
  // Digits that no double has are zeros; the cut leaves "1." and 1,998 of them.
  EXPECT_EQ(Formatted("%.2000f", 1.0), "1." + std::string(1998, '0'));
  EXPECT_EQ(Formatted("%.2000e", 1.0), "1." + std::string(1998, '0'));
  EXPECT_EQ(Formatted("%#.2000g", 1.0), "1." + std::string(1998, '0'));
  EXPECT_EQ(FormatString(nullptr, 0, "%.2147483647f", 1.0), 2147483647u);
  EXPECT_EQ(FormatString(nullptr, 0, "%.2147483647e|%.2147483647g", 1.0, 1.0), 2147483649u);
}

TEST_F(FormatFloatTest, WidthsAndSigns) {
  EXPECT_EQ(Formatted("%10f|%-10f|%010f|", 1.5, 1.5, 1.5), "  1.500000|1.500000  |001.500000|");
  EXPECT_EQ(Formatted("%10f|%-10f|%010f|", -1.5, -1.5, -1.5), " -1.500000|-1.500000 |-01.500000|");
  EXPECT_EQ(Formatted("%+f|% f|%+ f|% f|", 1.5, 1.5, 1.5, -1.5), "+1.500000| 1.500000|+1.500000|-1.500000|");
  EXPECT_EQ(Formatted("%+012f|% 012f|", 1.5, 1.5), "+0001.500000| 0001.500000|");
  EXPECT_EQ(Formatted("%14e|%-14e|%014e|", 1.5, 1.5, 1.5), "  1.500000e+00|1.500000e+00  |001.500000e+00|");
  EXPECT_EQ(Formatted("%6g|%-6g|%06g|", -1.5, -1.5, -1.5), "  -1.5|-1.5  |-001.5|");
}

TEST_F(FormatFloatTest, NotANumberAndInfinities) {
  const double inf = HUGE_VAL;
  const double nan = std::nan("");
  EXPECT_EQ(Formatted("%f %e %g %F %E %G", nan, nan, nan, nan, nan, nan), "nan nan nan NAN NAN NAN");
  EXPECT_EQ(Formatted("%f|%+f|% f|%5f|%-5f|%05f|", -nan, nan, nan, nan, nan, nan),
            "nan|nan|nan|  nan|nan  |  nan|");
  EXPECT_EQ(Formatted("%f %e %g %F %E %G", inf, inf, inf, inf, inf, inf), "inf inf inf INF INF INF");
  EXPECT_EQ(Formatted("%f|%+f|% f|%+ F|", -inf, inf, inf, -inf), "-inf|+inf| inf|-INF|");
  EXPECT_EQ(Formatted("%6f|%-6f|%06f|%+06f|", -inf, -inf, -inf, inf), "  -inf|-inf  |  -inf|  +inf|");
  EXPECT_EQ(Formatted("%.2f|%.3f|%.0f|", inf, -inf, nan), "in|-in||");
}

TEST_F(FormatFloatTest, SignsAndPointOfTheLocale) {
  culture[LOCALE_SPOSITIVESIGN] = L"plus ";
  culture[LOCALE_SNEGATIVESIGN] = L"\u2212";
  culture[LOCALE_SDECIMAL] = L"\u066B";
  EXPECT_EQ(Formatted("%f|%+f|% f|%8f|", -HUGE_VAL, HUGE_VAL, HUGE_VAL, -HUGE_VAL),
            "\u2212inf|plus inf| inf|  \u2212inf|");
  EXPECT_EQ(Formatted("%f|%+f|%g|%e|", -1.5, 1.5, 0.25, 2.5),
            "-1\u066B500000|+1\u066B500000|0\u066B25|2\u066B500000e+00|");
  EXPECT_EQ(Formatted("%6g|%g|", 2.5, 100.0), "  2\u066B5|100|");
}

TEST_F(FormatFloatTest, Grouping) {
  EXPECT_EQ(Formatted("%'f|%,g|%f{:$}|", 1234567.0, 12345.0, 999.0), "1,234,567.000000|12,345|999.000000|");
  EXPECT_EQ(Formatted("%'16f|%-'16f|%0'16f|", 12345.5, 12345.5, 12345.5),
            "   12,345.500000|12,345.500000   |00012,345.500000|");
  EXPECT_EQ(Formatted("%'e|%'f|%'g", 1234567.0, 0.5, 1e5), "1.234567e+06|0.500000|100,000");
  EXPECT_EQ(Formatted("%'.9g|%'.7g|%#'g", 12340000.0, 999999.96, 1e5), "12,340,00|1,000,0|100,000.");
  EXPECT_EQ(Formatted("%'f", 1e22), "10,000,000,000,000,000,000,000.000000");
}

TEST_F(FormatFloatTest, AWidthCountsTheBytesOfTheSeparators) {
  culture[LOCALE_STHOUSAND] = L"\u202F";
  EXPECT_EQ(Formatted("%'21f|%-'21f|%0'21f|", 1234567.5, 1234567.5, 1234567.5),
            " 1\u202F234\u202F567.500000|1\u202F234\u202F567.500000 |01\u202F234\u202F567.500000|");
}

TEST_F(FormatFloatTest, ModifiersDoNotChangeNumbers) {
  EXPECT_EQ(Formatted("%f{:^~}|%e{:^}|%5g{:&}", 1.5, 1.5, 1.5), "1.500000|1.500000e+00|  1.5");
}

// ---- digits, checked by a different exact arithmetic: a binary number of 32-bit limbs

class Binary {
 public:
  explicit Binary(uint64_t value) : limbs_{static_cast<uint32_t>(value), static_cast<uint32_t>(value >> 32)} {
    Trim();
  }
  void MultiplyAdd(uint32_t factor, uint32_t addend) {
    uint64_t carry = addend;
    for (uint32_t& limb : limbs_) {
      carry += static_cast<uint64_t>(limb) * factor;
      limb = static_cast<uint32_t>(carry);
      carry >>= 32;
    }
    if (carry) limbs_.push_back(static_cast<uint32_t>(carry));
  }
  void TimesPower(uint32_t base, int power, uint32_t block, int blockPower) {
    for (; power >= blockPower; power -= blockPower) MultiplyAdd(block, 0);
    for (; power > 0; --power) MultiplyAdd(base, 0);
  }
  void ShiftLeft(int bits) {
    if (limbs_.empty() || bits <= 0) return;
    limbs_.insert(limbs_.begin(), static_cast<size_t>(bits / 32), 0u);
    MultiplyAdd(uint32_t{1} << (bits % 32), 0);
  }
  int Compare(const Binary& other) const {
    if (limbs_.size() != other.limbs_.size()) return limbs_.size() < other.limbs_.size() ? -1 : 1;
    for (size_t i = limbs_.size(); i-- > 0;) {
      if (limbs_[i] != other.limbs_[i]) return limbs_[i] < other.limbs_[i] ? -1 : 1;
    }
    return 0;
  }
  /// Returns the distance of two numbers.
  static Binary Distance(const Binary& a, const Binary& b) {
    const Binary& large = a.Compare(b) >= 0 ? a : b;
    const Binary& small = &large == &a ? b : a;
    Binary result(0);
    int64_t borrow = 0;
    for (size_t i = 0; i < large.limbs_.size(); ++i) {
      int64_t difference = static_cast<int64_t>(large.limbs_[i]) + borrow;
      if (i < small.limbs_.size()) difference -= small.limbs_[i];
      result.limbs_.push_back(static_cast<uint32_t>(difference));
      borrow = difference < 0 ? -1 : 0;
    }
    result.Trim();
    return result;
  }

 private:
  void Trim() {
    while (!limbs_.empty() && limbs_.back() == 0) limbs_.pop_back();
  }
  std::vector<uint32_t> limbs_;
};

/// True if `number`, with digits down to 10^`last`, is the double rounded to nearest, ties to even.
bool IsNearest(double value, const DecimalDigits& number, int last) {
  int binary;
  const uint64_t mantissa = static_cast<uint64_t>(std::ldexp(std::frexp(value, &binary), 53));
  binary -= 53;
  // The digits as an integer N times 10^last.
  Binary printed(0);
  const int count = number.exponent - last + 1;
  int lastDigit = 0;
  for (int i = 0; i < count; ++i) {
    lastDigit = i < static_cast<int>(number.count) ? number.digits[i] - '0' : 0;
    printed.MultiplyAdd(10, static_cast<uint32_t>(lastDigit));
  }
  // There must be no digits after the last place.
  if (static_cast<int>(number.count) > (count > 0 ? count : 0) &&
      !(number.count == 1 && number.digits[0] == '0')) {
    return false;
  }
  Binary twice(mantissa);
  Binary unit(1);
  if (binary > 0) twice.ShiftLeft(binary);
  if (binary < 0) {
    printed.ShiftLeft(-binary);
    unit.ShiftLeft(-binary);
  }
  if (last < 0) twice.TimesPower(10, -last, 1000000000, 9);
  if (last > 0) {
    printed.TimesPower(10, last, 1000000000, 9);
    unit.TimesPower(10, last, 1000000000, 9);
  }
  twice.ShiftLeft(1);
  printed.ShiftLeft(1);
  const int order = Binary::Distance(twice, printed).Compare(unit);
  return order < 0 || (order == 0 && lastDigit % 2 == 0);
}

std::string Describe(double value, const DecimalDigits& number) {
  char text[64];
  snprintf(text, sizeof text, "%a: ", value);
  return text + std::string(number.digits, number.count) + " from 10^" + std::to_string(number.exponent);
}

void CheckSignificant(double value, uint32_t significant) {
  DecimalDigits number;
  (*RoundToSignificant.Get())(value, significant, &number);
  EXPECT_NE(number.digits[0], '0') << Describe(value, number);
  EXPECT_TRUE(IsNearest(value, number, number.exponent + 1 - static_cast<int>(significant)))
      << significant << " digits of " << Describe(value, number);
}

void CheckPlaces(double value, uint32_t places) {
  DecimalDigits number;
  (*RoundToPlaces.Get())(value, places, &number);
  EXPECT_TRUE(IsNearest(value, number, -static_cast<int>(places)))
      << places << " places of " << Describe(value, number);
}

TEST_F(FormatFloatTest, TheExactCheckRejectsWrongDigits) {
  DecimalDigits number{0, 2, {'2', '5'}};
  EXPECT_TRUE(IsNearest(2.5, number, -1));
  EXPECT_FALSE(IsNearest(2.5, number, 0));
  EXPECT_FALSE(IsNearest(2.6, number, -1));
  number = {0, 1, {'2'}};
  EXPECT_TRUE(IsNearest(2.5, number, 0));
  EXPECT_FALSE(IsNearest(2.51, number, 0));
  number = {0, 1, {'3'}};
  EXPECT_FALSE(IsNearest(2.5, number, 0));
  EXPECT_TRUE(IsNearest(3.5, DecimalDigits{0, 1, {'4'}}, 0));
}

TEST_F(FormatFloatTest, DigitsOfHardNumbersAreExact) {
  const double hard[] = {5e-324,
                         DBL_MIN,
                         DBL_MAX,
                         DBL_EPSILON,
                         1e22,
                         1e23,
                         9007199254740993.0,
                         0.1,
                         0.3,
                         2.0 / 3,
                         9.5,
                         99.5,
                         0.95,
                         0.5,
                         1.5,
                         2.5,
                         0.25,
                         0.125,
                         0.375,
                         1e-5,
                         1e15 + 0.5,
                         4503599627370497.5,
                         5e-5,
                         0.000244140625,
                         123456789012345678.0,
                         1e300,
                         1e-300,
                         8.5,
                         3.0518509447574615e-05,
                         9214843084008499.0,
                         6929495644600919.5,
                         1.8446744073709552e19,
                         2.2250738585072009e-308};
  for (double value : hard) {
    for (uint32_t digits = 1; digits < 30; ++digits) CheckSignificant(value, digits);
    for (uint32_t places = 0; places < 30; ++places) CheckPlaces(value, places);
    for (uint32_t digits : {50u, 300u, 766u, 767u, 768u, 1100u}) {
      CheckSignificant(value, digits);
      CheckPlaces(value, digits);
    }
  }
}

TEST_F(FormatFloatTest, DigitsOfTiesAreEven) {
  // Numbers that end in 5 exactly at the place where they are rounded.
  for (uint64_t whole = 0; whole < 300; ++whole) {
    for (int bits = 1; bits < 24; ++bits) {
      const double value = static_cast<double>(whole) + std::ldexp(1.0, -bits);
      for (int places = bits - 1; places <= bits; ++places) CheckPlaces(value, static_cast<uint32_t>(places));
    }
  }
  for (int digits = 1; digits < 17; ++digits) {
    for (int i = 0; i < 20; ++i) {
      // The numbers n * 10 + 5 at every magnitude, exact in doubles.
      const double value = std::floor(std::pow(10.0, digits) * (0.1 + 0.045 * i)) * 10 + 5;
      if (value < 9007199254740992.0) CheckSignificant(value, static_cast<uint32_t>(digits));
      if (value < 9007199254740992.0) CheckSignificant(value * 1024, static_cast<uint32_t>(digits));
    }
  }
}

TEST_F(FormatFloatTest, DigitsOfRandomNumbersAreExact) {
  Random random(RunSeed());
  for (int run = 0; run < 15000; ++run) {
    const uint64_t bits = random.Next() & ~(uint64_t{1} << 63);
    double value;
    memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value) || value == 0) continue;
    CheckSignificant(value, 1 + random.Below(19));
    if (random.OneIn(8)) CheckSignificant(value, 19 + random.Below(800));
    if (random.OneIn(8)) CheckPlaces(value, random.Below(1100));
    // Numbers of everyday size, including short ones.
    const double usual = std::ldexp(static_cast<double>(random.Next() >> random.Below(63)),
                                    -static_cast<int>(random.Below(70)));
    if (usual != 0) {
      CheckPlaces(usual, random.Below(22));
      CheckSignificant(usual, 1 + random.Below(19));
    }
  }
}

TEST_F(FormatFloatTest, DigitsNearPowersOfTenAreExact) {
  for (int power = -323; power <= 308; ++power) {
    const double value = std::strtod(("1e" + std::to_string(power)).c_str(), nullptr);
    for (double close : {std::nextafter(value, 0.0), value, std::nextafter(value, HUGE_VAL)}) {
      if (close == 0) continue;
      for (uint32_t digits : {1u, 2u, 6u, 7u, 15u, 16u, 17u, 18u}) CheckSignificant(close, digits);
      for (int places = -power - 2; places <= -power + 2; ++places) {
        if (places >= 0) CheckPlaces(close, static_cast<uint32_t>(places));
      }
    }
  }
}

TEST_F(FormatFloatTest, SeventeenDigitsIdentifyEveryNumber) {
  Random random(RunSeed());
  char text[64];
  const auto format = FormatString.Get();
  for (int run = 0; run < 50000; ++run) {
    const uint64_t bits = random.Next();
    double value;
    memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) continue;
    // The precision cuts the text, so the form used here leaves space for all digits.
    DecimalDigits number;
    (*RoundToSignificant.Get())(std::fabs(value), 17, &number);
    snprintf(text, sizeof text, "%s%.*se%d", std::signbit(value) ? "-" : "", static_cast<int>(number.count),
             number.digits, number.exponent - static_cast<int>(number.count) + 1);
    const double back = std::strtod(text, nullptr);
    EXPECT_EQ(memcmp(&back, &value, sizeof value), 0) << text;
    // The C library on ARM64 prints subnormal numbers wrongly.
    if (std::fpclassify(value) == FP_SUBNORMAL) continue;
    (*format)(text, sizeof text, "%e", value);
    char expected[64];
    snprintf(expected, sizeof expected, "%.6e", value);
    EXPECT_STREQ(text, expected);
  }
}

}  // namespace
}  // namespace format_test
