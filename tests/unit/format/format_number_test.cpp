// The conversions of integers, and digit grouping.

#include <climits>

#include "unit/format/format_support.h"

namespace format_test {
namespace {

class FormatNumberTest : public FormatTest {};

TEST_F(FormatNumberTest, Decimal) {
  EXPECT_EQ(Formatted("%d %i %u", 0, 0, 0), "0 0 0");
  EXPECT_EQ(Formatted("%d %d %d", 1, -1, 42), "1 -1 42");
  EXPECT_EQ(Formatted("%d %d %u", INT_MAX, INT_MIN, UINT_MAX), "2147483647 -2147483648 4294967295");
  EXPECT_EQ(Formatted("%ld %li %lu", LONG_MAX, LONG_MIN, ULONG_MAX), "2147483647 -2147483648 4294967295");
  EXPECT_EQ(Formatted("%lld %lld %llu", LLONG_MAX, LLONG_MIN + 1, ULLONG_MAX),
            "9223372036854775807 -9223372036854775807 18446744073709551615");
}

TEST_F(FormatNumberTest, EveryNumberOfDigits) {
  unsigned long long value = 0;
  std::string digits;
  for (int i = 1; i <= 19; ++i) {
    value = value * 10 + static_cast<unsigned>(i % 10);
    digits += static_cast<char>('0' + i % 10);
    EXPECT_EQ(Formatted("%llu", value), digits);
    EXPECT_EQ(Formatted("%lld", -static_cast<long long>(value)), "-" + digits);
  }
  unsigned long long power = 1;
  for (int i = 0; i < 20; ++i, power *= 10) {
    EXPECT_EQ(Formatted("%llu", power), "1" + std::string(static_cast<size_t>(i), '0'));
    EXPECT_EQ(Formatted("%llu", power - 1), i == 0 ? "0" : std::string(static_cast<size_t>(i), '9'));
  }
}

TEST_F(FormatNumberTest, TheWidthOfASignedNumberCountsItsDigits) {
  EXPECT_EQ(Formatted("%5d|%-5d|%05d|", -3, -3, -3), "-    3|-3    |-00003|");
  EXPECT_EQ(Formatted("%+5d|%+-5d|%+05d|", 3, 3, 3), "+    3|+3    |+00003|");
  EXPECT_EQ(Formatted("%5d|%-5d|%05d|", 3, 3, 3), "    3|3    |00003|");
  EXPECT_EQ(Formatted("%.3d|%5.4d|", -12345, -3), "-12|-   |");
}

TEST_F(FormatNumberTest, Signs) {
  EXPECT_EQ(Formatted("%+d %+d %+d", 5, 0, -5), "+5 +0 -5");
  EXPECT_EQ(Formatted("%+u %+x %+o", 5, 5, 5), "5 5 5");
  // A blank does not reserve a place for the sign of integers.
  EXPECT_EQ(Formatted("% d|% 3d|", 5, 5), "5|  5|");
}

TEST_F(FormatNumberTest, TheSmallestNumberLosesItsLastTwoDigits) {
  const char* smallest =
      "\xE2\x88\x92"
      "92233720368547758";
  EXPECT_EQ(Formatted("%lld", LLONG_MIN), smallest);
  EXPECT_EQ(Formatted("%I64i|%td", LLONG_MIN, LLONG_MIN), std::string(smallest) + "|" + smallest);
  EXPECT_EQ(Formatted("%+lld", LLONG_MIN), smallest);
  EXPECT_EQ(Formatted("%22lld|%-22lld|", LLONG_MIN, LLONG_MIN),
            "  " + std::string(smallest) + "|" + smallest + "  |");
  EXPECT_EQ(Formatted("%.5lld|", LLONG_MIN),
            "\xE2\x88\x92"
            "92|");
  EXPECT_EQ(Formatted("%'lld", LLONG_MIN), smallest);
}

TEST_F(FormatNumberTest, OctalAndHexadecimal) {
  EXPECT_EQ(Formatted("%o %o %o", 0, 8, -1), "0 10 37777777777");
  EXPECT_EQ(Formatted("%x %X %x", 0, 0xABCDEF, -1), "0 ABCDEF ffffffff");
  EXPECT_EQ(Formatted("%llo", ULLONG_MAX), "1777777777777777777777");
  EXPECT_EQ(Formatted("%llx %llX", ULLONG_MAX, 0x123456789ABCDEFull), "ffffffffffffffff 123456789ABCDEF");
  EXPECT_EQ(Formatted("%03lo %03lo", 493L, 7L), "755 007");
  EXPECT_EQ(Formatted("%08lX %08lx", 0xABCL, 0xABCL), "00000ABC 00000abc");
  for (int shift = 0; shift < 64; ++shift) {
    char expected[64];
    snprintf(expected, sizeof expected, "%llx %llo", 1ull << shift, 1ull << shift);
    EXPECT_EQ(Formatted("%llx %llo", 1ull << shift, 1ull << shift), expected);
  }
}

TEST_F(FormatNumberTest, Prefixes) {
  EXPECT_EQ(Formatted("%#o %#x %#X", 8, 255, 255), "010 0xff 0XFF");
  EXPECT_EQ(Formatted("%#o %#x %#X", 0, 0, 0), "0 0 0");
  EXPECT_EQ(Formatted("%#8x|%#-8x|%#08x|", 255, 255, 255), "    0xff|0xff    |0x0000ff|");
  EXPECT_EQ(Formatted("%#8o|%#-8o|%#08o|", 8, 8, 8), "     010|010     |00000010|");
  EXPECT_EQ(Formatted("%#01x|%#02x|%#03x|%#04x|%#05x|", 255, 255, 255, 255, 255),
            "0xff|0xff|0xff|0xff|0x0ff|");
  EXPECT_EQ(Formatted("%#05x|%#0.3x|%#08.4x|", 0, 0xABCD, 0xABCD), "00000|0xa|0x00|");
  EXPECT_EQ(Formatted("%#d %#u", 5, 5), "5 5");
}

TEST_F(FormatNumberTest, Pointers) {
  EXPECT_EQ(Formatted("%p %p", nullptr, reinterpret_cast<void*>(0x1234ABCD5678EF09)), "0 0x1234abcd5678ef09");
  EXPECT_EQ(Formatted("%10p|%-10p|%010p|", reinterpret_cast<void*>(0xAB), reinterpret_cast<void*>(0xAB),
                      reinterpret_cast<void*>(0xAB)),
            "      0xab|0xab      |0x000000ab|");
  EXPECT_EQ(Formatted("%P{q}|%p{:^}", nullptr, reinterpret_cast<void*>(0xAB)), "|0XAB");
}

TEST_F(FormatNumberTest, ModifiersApplyToDigits) {
  EXPECT_EQ(Formatted("%x{:^}|%X{:_}|%#x{:^}|%#010x{:^}", 0xAB, 0xAB, 0xAB, 0xAB), "AB|ab|0XAB|0X000000AB");
  EXPECT_EQ(Formatted("%+d{:&}|%d{:/}", 5, -5), "+5|-5");
}

TEST_F(FormatNumberTest, Grouping) {
  EXPECT_EQ(Formatted("%'d %,d %d{:$}", 1234567, 1234567, 1234567), "1,234,567 1,234,567 1,234,567");
  EXPECT_EQ(Formatted("%'d %'d %'d %'d", 0, 12, 123, 1234), "0 12 123 1,234");
  EXPECT_EQ(Formatted("%'d %+'d", -123456, 123456), "-123,456 +123,456");
  EXPECT_EQ(Formatted("%'llu", ULLONG_MAX), "18,446,744,073,709,551,615");
  EXPECT_EQ(Formatted("%'x %#'x %'o %#'o", 0xABCDEF, 0xABCDEF, 01234567, 0123456),
            "abc,def 0xabc,def 1,234,567 0123,456");
  EXPECT_EQ(Formatted("%'10d|%-'10d|%0'10d|%.4'd|", 12345, 12345, 12345, 1),
            "    12,345|12,345    |000012,345|'d|");
  EXPECT_EQ(Formatted("%'.4d|%'.3d|", 12345, 12345), "12,3|12,|");
  EXPECT_EQ(Formatted("%#'010x|", 0xABCDEF), "0x0abc,def|");
  EXPECT_EQ(Formatted("%'d{:&}", 1234), "1,234");
}

struct Grouping {
  const wchar_t* sizes;
  const wchar_t* separator;
  const char* expected;
};

class FormatGroupingTest : public FormatTest, public testing::WithParamInterface<Grouping> {};

TEST_P(FormatGroupingTest, FollowsTheLocale) {
  culture[LOCALE_SGROUPING] = GetParam().sizes;
  culture[LOCALE_STHOUSAND] = GetParam().separator;
  EXPECT_EQ(Formatted("%'llu", 12345678901234567890ull), GetParam().expected);
}

const Grouping kGroupings[] = {
    {L"3;0", L".", "12.345.678.901.234.567.890"},
    {L"3", L".", "12.345.678.901.234.567.890"},
    {L"3;2;0", L",", "1,23,45,67,89,01,23,45,67,890"},
    {L"3;2", L",", "1,23,45,67,89,01,23,45,67,890"},
    {L"4;0", L"'", "1234'5678'9012'3456'7890"},
    {L"1;2;3;0", L"-", "12-345-678-901-234-567-89-0"},
    {L"1;1;1;1;1;1;1;1", L"_", "1_2_3_4_5_6_7_8_9_0_1_2_3_4_5_6_7_8_9_0"},
    {L"0", L",", "12345678901234567890"},
    {L"0;3", L",", "12345678901234567890"},
    {L"9;0;3", L",", "12,345678901,234567890"},
    {L"20", L",", "12345678901234567890"},
    {L"19", L",", "1,2345678901234567890"},
    {L"999", L",", "12345678901234567890"},
    {L"", L",", "12,345,678,901,234,567,890"},
    {L"3;0", L"", "12,345,678,901,234,567,890"},
    {L"3;0", L"\u202F", "12\u202F345\u202F678\u202F901\u202F234\u202F567\u202F890"},
};
INSTANTIATE_TEST_SUITE_P(Locales, FormatGroupingTest, testing::ValuesIn(kGroupings));

TEST_F(FormatNumberTest, TheLongestGroupedNumber) {
  culture[LOCALE_SGROUPING] = L"1;0";
  culture[LOCALE_STHOUSAND] = L"fifteen bytes!!";
  std::string expected = "1";
  for (int i = 0; i < 21; ++i) expected += "fifteen bytes!!7";
  EXPECT_EQ(Formatted("%'llo", ULLONG_MAX), expected);
}

TEST_F(FormatNumberTest, SeparatorsAreEscapedLikeText) {
  culture[LOCALE_STHOUSAND] = L"'";
  EXPECT_EQ(Formatted("%d{:$'}|%10d{:$'}|", 1234, 1234), "1\\'234|    1\\'234|");
}

TEST_F(FormatNumberTest, TheLocaleIsReadOnlyWhenItIsNeeded) {
  Formatted("%d %s %x %5d", 1, "a", 2, 3);
  EXPECT_EQ(localeQuestions, 0);
  Formatted("%'d", 1);
  const int questions = localeQuestions;
  EXPECT_GT(questions, 0);
  Formatted("%'d", 1);
  EXPECT_EQ(localeQuestions, questions);
}

TEST_F(FormatNumberTest, WithoutALocaleTheDefaultsHold) {
  culture.clear();
  EXPECT_EQ(Formatted("%'d|%f|%+f|%f", 1234567, 1.5, __builtin_inf(), -__builtin_inf()),
            "1,234,567|1.500000|+inf|-inf");
}

}  // namespace
}  // namespace format_test
