// Numbers in the properties of the scheduled tasks.
#include "client/number_text.h"

#include "rig/internals_test.h"

namespace number_text_test {

HX_INTERNAL(ParseDigitsA);
HX_INTERNAL(ParseIntervalA);

class NumberTextTest : public rig::InternalsTest {
 protected:
  // Reads the digits up to the terminator, and not a byte further.
  static int Digits(const std::string& text) { return ParseDigitsA(rig::GuardedBuffer::Of(text).Data()); }
  static int Interval(const std::string& text) { return ParseIntervalA(rig::GuardedBuffer::Of(text).Data()); }
};

TEST_F(NumberTextTest, DigitsEndAtTheFirstOtherCharacter) {
  EXPECT_EQ(Digits("7pm"), 7);
  EXPECT_EQ(Digits("0019"), 19);
  EXPECT_EQ(Digits("26"), 26);
  EXPECT_EQ(Digits(""), 0);
  EXPECT_EQ(Digits(" 7"), 0);
  EXPECT_EQ(Digits("+7"), 0);
  EXPECT_EQ(Digits("-7"), 0);
  EXPECT_EQ(Digits("0x0A"), 0);
  EXPECT_EQ(Digits("1a"), 1);
  EXPECT_EQ(Digits("9:"), 9);
  EXPECT_EQ(Digits("9/"), 9);
}

TEST_F(NumberTextTest, DigitsWrapAround) {
  EXPECT_EQ(Digits("4294967295"), -1);
  EXPECT_EQ(Digits("2147483647"), 2147483647);
  EXPECT_EQ(Digits("2147483648"), -2147483647 - 1);
  EXPECT_EQ(Digits("4294967296"), 0);
  EXPECT_EQ(Digits("4294967303"), 7);
  EXPECT_EQ(Digits("99999999999999999999"), 1661992959);
}

TEST_F(NumberTextTest, IntervalsAreDecimalOrHexadecimal) {
  EXPECT_EQ(Interval("7"), 7);
  EXPECT_EQ(Interval("010"), 10);
  EXPECT_EQ(Interval("7 days"), 7);
  EXPECT_EQ(Interval("0x0A"), 10);
  EXPECT_EQ(Interval("0xfF"), 255);
  EXPECT_EQ(Interval("0x1g"), 1);
  EXPECT_EQ(Interval("0x"), 0);
  EXPECT_EQ(Interval("0xg"), 0);
  EXPECT_EQ(Interval("0X5"), 0);
  EXPECT_EQ(Interval("00x5"), 0);
  EXPECT_EQ(Interval("x5"), 0);
  EXPECT_EQ(Interval("abc"), 0);
  EXPECT_EQ(Interval(""), 0);
  EXPECT_EQ(Interval(" 7"), 0);
  EXPECT_EQ(Interval("1F"), 1);
}

TEST_F(NumberTextTest, IntervalsTakeOneSign) {
  EXPECT_EQ(Interval("+3"), 3);
  EXPECT_EQ(Interval("-3"), -3);
  EXPECT_EQ(Interval("+0x10"), 16);
  EXPECT_EQ(Interval("-0x10"), -16);
  EXPECT_EQ(Interval("+-3"), 0);
  EXPECT_EQ(Interval("--3"), 0);
  EXPECT_EQ(Interval("++3"), 0);
  EXPECT_EQ(Interval("-"), 0);
  EXPECT_EQ(Interval("+"), 0);
}

TEST_F(NumberTextTest, IntervalsWrapAround) {
  EXPECT_EQ(Interval("2147483647"), 2147483647);
  EXPECT_EQ(Interval("2147483648"), -2147483647 - 1);
  EXPECT_EQ(Interval("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(Interval("4294967295"), -1);
  EXPECT_EQ(Interval("-4294967295"), 1);
  EXPECT_EQ(Interval("4294967303"), 7);
  EXPECT_EQ(Interval("0x80000000"), -2147483647 - 1);
  EXPECT_EQ(Interval("0xFFFFFFFFF"), -1);
  EXPECT_EQ(Interval("0x100000005"), 5);
}

}  // namespace number_text_test
