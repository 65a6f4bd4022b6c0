// How a format is parsed: ordinary text, the parts of a directive, the cursor over the arguments, the cut at
// the buffer's end.

#include "unit/format/format_support.h"

namespace format_test {
namespace {

class FormatParseTest : public FormatTest {};

TEST_F(FormatParseTest, OrdinaryTextIsCopied) {
  EXPECT_EQ(Formatted(""), "");
  EXPECT_EQ(Formatted("a"), "a");
  for (size_t length = 0; length < 70; ++length) {
    const std::string text(length, 'x');
    EXPECT_EQ(Formatted(text.c_str()), text);
    EXPECT_EQ(Formatted((text + "%%" + text).c_str()), text + "%" + text);
  }
  EXPECT_EQ(Formatted("\x01\x7F\x80\xFF{}$"), "\x01\x7F\x80\xFF{}$");
}

TEST_F(FormatParseTest, NothingAfterAFormatIsRead) {
  // The format ends where its memory ends, at every alignment.
  for (size_t length = 0; length < 40; ++length) {
    const auto format = rig::GuardedBuffer::Of(std::string(length, 'y'));
    EXPECT_EQ(Formatted(format.Data()), std::string(length, 'y'));
    const auto directive = rig::GuardedBuffer::Of(std::string(length, 'y') + "%s");
    const auto argument = rig::GuardedBuffer::Of(std::string(length, 'z'));
    EXPECT_EQ(Formatted(directive.Data(), argument.Data()),
              std::string(length, 'y') + std::string(length, 'z'));
  }
}

TEST_F(FormatParseTest, TheTextIsCutAtTheBuffersEnd) {
  const std::string whole = "0123456789abcdefghijklmnopqrstuvwxyz";
  for (unsigned size = 1; size <= whole.size() + 5; ++size) {
    EXPECT_EQ(Cut(size, whole.c_str()), whole.substr(0, size - 1));
    EXPECT_EQ(Cut(size, "%s", whole.c_str()), whole.substr(0, size - 1));
    EXPECT_EQ(Cut(size, "0123456789%s", whole.c_str() + 10), whole.substr(0, size - 1));
    EXPECT_EQ(Cut(size, "0123456789%ls", L"abcdefghijklmnopqrstuvwxyz"), whole.substr(0, size - 1));
    EXPECT_EQ(Cut(size, "01234%d%s", 56789, whole.c_str() + 10), whole.substr(0, size - 1));
  }
}

TEST_F(FormatParseTest, ABufferOfOneByteReceivesOnlyTheTerminator) {
  EXPECT_EQ(Cut(1, "abc"), "");
  EXPECT_EQ(Cut(1, "%d%s%f%%", 1, "a", 1.0), "");
  EXPECT_EQ(Cut(1, ""), "");
}

TEST_F(FormatParseTest, ABufferOfNoBytesReceivesNothing) {
  char untouched = 'u';
  EXPECT_EQ(FormatString(&untouched, 0, "abc%d", 1), 0u);
  EXPECT_EQ(FormatString(&untouched, 0, ""), 0u);
  EXPECT_EQ(untouched, 'u');
}

TEST_F(FormatParseTest, NothingAfterTheTextIsTouched) {
  for (unsigned length = 0; length < 30; ++length) {
    const std::string text(length, 'q');
    rig::GuardedBuffer buffer(64);
    buffer.Fill('-');
    EXPECT_EQ(FormatString(buffer.Data(), 64, "%s", text.c_str()), length);
    EXPECT_EQ(std::string(buffer.Data(), 64), text + std::string(1, '\0') + std::string(63 - length, '-'));
    buffer.Fill('-');
    EXPECT_EQ(FormatString(buffer.Data(), 64, text.c_str()), length);
    EXPECT_EQ(std::string(buffer.Data(), 64), text + std::string(1, '\0') + std::string(63 - length, '-'));
  }
}

TEST_F(FormatParseTest, MeasuringNeedsNoSize) {
  EXPECT_EQ(FormatString(nullptr, 0, "abc%d", 12), 5u);
  EXPECT_EQ(FormatString(nullptr, 3, "abc%d", 12), 5u);
}

TEST_F(FormatParseTest, AFormatThatEndsInsideADirectiveWritesNothingForIt) {
  for (const char* format :
       {"ab%", "ab%5", "ab%-", "ab%5.", "ab%5.3", "ab%l", "ab%ll", "ab%I64", "ab%t", "ab%+#0", "ab%1$"}) {
    EXPECT_EQ(Formatted(format, 1, 2, 3), "ab") << format;
  }
  EXPECT_EQ(Formatted("ab%*", 7), "ab");
  EXPECT_EQ(Formatted("ab%.*", 7), "ab");
}

TEST_F(FormatParseTest, PercentSigns) {
  EXPECT_EQ(Formatted("%%"), "%");
  EXPECT_EQ(Formatted("100%%, %d%%", 5), "100%, 5%");
  EXPECT_EQ(Formatted("%5%|%-5%|%05%"), "%|%|%");
  EXPECT_EQ(Formatted("%.0%|%.1%"), "|%");
}

TEST_F(FormatParseTest, OtherLettersAreWrittenAndTakeNoArgument) {
  for (char letter : std::string("BCIJKLMNQRUVWYbjkmnqrvwy!\"&(){}/:;<=>?@[\\]^_`|~")) {
    const std::string format = std::string("<%") + letter + ">%d";
    if (letter == 'I') continue;
    EXPECT_EQ(Formatted(format.c_str(), 7), std::string("<") + letter + ">7") << format;
  }
  EXPECT_EQ(Formatted("%I|%d", 7), "I|7");
  EXPECT_EQ(Formatted("%I32|%d", 7), "I32|7");
  EXPECT_EQ(Formatted("%I6%d", 7), "I67");
  EXPECT_EQ(Formatted("%\xE9|%d", 7), "\xE9|7");
  EXPECT_EQ(Formatted("%5k|%-5k|%05k"), "k|k|k");
  EXPECT_EQ(Formatted("%.0k|%.1k"), "|k");
  EXPECT_EQ(Formatted("%5-d"), "-d");
}

TEST_F(FormatParseTest, TheLettersOfHexadecimalFloatsSkipAnArgument) {
  EXPECT_EQ(Formatted("%a%d", 1.5, 7), "a7");
  EXPECT_EQ(Formatted("%A%d", 1.5, 7), "A7");
  EXPECT_EQ(Formatted("%.0a%d", 1.5, 7), "7");
}

TEST_F(FormatParseTest, Positions) {
  EXPECT_EQ(Formatted("%2$s %1$s", "a", "b"), "b a");
  EXPECT_EQ(Formatted("%2$s %s", "a", "b", "c"), "b c");
  EXPECT_EQ(Formatted("%s %s %1$s %s", "a", "b"), "a b a b");
  EXPECT_EQ(Formatted("%s %0$s", "a", "b"), "a b");
  EXPECT_EQ(Formatted("%3$d %1$d %d", 1, 2, 3), "3 1 2");
  EXPECT_EQ(Formatted("%2$5d|%1$-5d|", 1, 2), "    2|1    |");
  EXPECT_EQ(Formatted("%2$.2s", "abc", "def"), "de");
  EXPECT_EQ(Formatted("%2$*d", 1, 4, 7), "   7");
  EXPECT_EQ(Formatted("%02$d", 1, 2), "2");
  // The argument slots are counted, not the directives.
  EXPECT_EQ(Formatted("%3$d", 3, "abc", 7), "7");
  EXPECT_EQ(Formatted("%3$d%1$S", 3, "abc", 7), "7abc");
  EXPECT_EQ(Formatted("%1$%%d", 7), "%7");
}

TEST_F(FormatParseTest, DigitsWithoutAPositionAreFlagsAndWidth) {
  EXPECT_EQ(Formatted("%05d", 42), "00042");
  EXPECT_EQ(Formatted("%5d", 42), "   42");
  EXPECT_EQ(Formatted("%0d", 42), "42");
  EXPECT_EQ(Formatted("%00005d", 42), "00042");
  EXPECT_EQ(Formatted("%1$05d", 42), "00042");
  EXPECT_EQ(Formatted("%0$05d", 42), "00042");
}

TEST_F(FormatParseTest, FlagsInAnyNumberAndOrder) {
  EXPECT_EQ(Formatted("%-05d|", 42), "42   |");
  EXPECT_EQ(Formatted("%0-5d|", 42), "42   |");
  EXPECT_EQ(Formatted("%--5d|", 42), "42   |");
  EXPECT_EQ(Formatted("%#0#8x", 255), "0x0000ff");
  EXPECT_EQ(Formatted("%+++d", 42), "+42");
  EXPECT_EQ(Formatted("%0',d", 1234567), "1,234,567");
  EXPECT_EQ(Formatted("% h|%+ h|% +h", 2, "ab", 2, "ab", 2, "ab"), "61 62|6162|6162");
}

TEST_F(FormatParseTest, WidthsFromArguments) {
  EXPECT_EQ(Formatted("%*d|", 5, 42), "   42|");
  EXPECT_EQ(Formatted("%-*d|", 5, 42), "42   |");
  EXPECT_EQ(Formatted("%*d|", -5, 42), "42   |");
  EXPECT_EQ(Formatted("%0*d|", -5, 42), "42   |");
  EXPECT_EQ(Formatted("%0*d|", 5, 42), "00042|");
  EXPECT_EQ(Formatted("%*s|", -5, "ab"), "ab   |");
  // Only 32 bits of the argument count.
  EXPECT_EQ(Formatted("%*d|", 0x7000000000000005LL, 42), "   42|");
}

TEST_F(FormatParseTest, PrecisionsLimitTheBytesOfAConversion) {
  EXPECT_EQ(Formatted("%.3d", 12345), "123");
  EXPECT_EQ(Formatted("%.3d", -12345), "-12");
  EXPECT_EQ(Formatted("%.1d", -12345), "-");
  EXPECT_EQ(Formatted("%+.3d", 12345), "+12");
  EXPECT_EQ(Formatted("%.3u|%.3x|%.3o|%.3p", 12345u, 0x12345u, 012345u, reinterpret_cast<void*>(0x12345)),
            "123|123|123|0x1");
  EXPECT_EQ(Formatted("%#.3x", 0x12345), "0x1");
  EXPECT_EQ(Formatted("%.3s", "abcdef"), "abc");
  EXPECT_EQ(Formatted("%.3ls", L"abcdef"), "abc");
  EXPECT_EQ(Formatted("%.3S", 6, "abcdef"), "abc");
  EXPECT_EQ(Formatted("%.3P",
                      "\x06"
                      "abcdef"),
            "abc");
  EXPECT_EQ(Formatted("%.3T", 0x64636261), "abc");
  EXPECT_EQ(Formatted("%.3h", 2, "ab"), "616");
  EXPECT_EQ(Formatted("%.0c|%.1c", 'a', 'b'), "|b");
  EXPECT_EQ(Formatted("%.2f|%.3f", 3.14159, 3.14159), "3.|3.1");
  EXPECT_EQ(Formatted("%.s|%.d|%.f", "abc", 5, 1.5), "||");
  EXPECT_EQ(Formatted("%.99s|", "abc"), "abc|");
  EXPECT_EQ(Formatted("%.99999999999999999999d|", 5), "5|");
}

// 2^32 and a little more: in 32 bits these would be small numbers.
TEST_F(FormatParseTest, ANumberThatIsTooLargeIsTheLargestOne) {
  for (const char* format : {"%.2147483647s|", "%.2147483648s|", "%.4294967295s|", "%.4294967296s|",
                             "%.4294967297s|", "%.18446744073709551616s|", "%.18446744073709551618s|"}) {
    EXPECT_EQ(Formatted(format, "abc"), "abc|") << format;
  }
  for (const char* format :
       {"%2147483647d", "%2147483648d", "%4294967296d", "%4294967298d", "%18446744073709551617d"}) {
    EXPECT_EQ(Cut(8, format, 5), std::string(7, ' ')) << format;
    EXPECT_EQ(FormatString(nullptr, 0, format, 5), 0x7FFFFFFFu) << format;
  }
}

TEST_F(FormatParseTest, APrecisionCutsThePaddingToo) {
  // The padding is that of the whole text.
  EXPECT_EQ(Formatted("%10.3d|", 12345), "   |");
  EXPECT_EQ(Formatted("%10.7d|", 12345), "     12|");
  EXPECT_EQ(Formatted("%-10.7d|", 12345), "12345  |");
  EXPECT_EQ(Formatted("%010.7d|", 12345), "0000012|");
  EXPECT_EQ(Formatted("%10.3s|", "abcdef"), "   |");
  EXPECT_EQ(Formatted("%-10.3s|", "abcdef"), "abc|");
  EXPECT_EQ(Formatted("%10.6s|", "abcdef"), "    ab|");
}

TEST_F(FormatParseTest, PrecisionsFromArguments) {
  EXPECT_EQ(Formatted("%.*d|", 3, 12345), "123|");
  EXPECT_EQ(Formatted("%.*d|", 0, 12345), "|");
  EXPECT_EQ(Formatted("%.*d|", -1, 12345), "12345|");
  EXPECT_EQ(Formatted("%.*s|", -1, "abc"), "abc|");
  EXPECT_EQ(Formatted("%.*f|", -1, 1.5), "1.500000|");
  EXPECT_EQ(Formatted("%*.*d|", 8, 6, 12345), "   123|");
}

TEST_F(FormatParseTest, InputLengthsFromArguments) {
  const auto six = rig::GuardedBuffer::Of("abcdef", false);
  EXPECT_EQ(Formatted("%.*s|", 2, "abcdef"), "ab|");
  EXPECT_EQ(Formatted("%*s|", 3, "abcdef"), "abc|");
  EXPECT_EQ(Formatted("%.*s|", 6, six.Data()), "abcdef|");
  EXPECT_EQ(Formatted("%*s|", 6, six.Data()), "abcdef|");
  EXPECT_EQ(Formatted("%*.*s|", 3, 5, "abcdef"), "abc|");
  EXPECT_EQ(Formatted("%*.*s|", 5, 3, "abcdef"), "  a|");
  EXPECT_EQ(Formatted("%-*.*s|", 5, 3, "abcdef"), "abc|");
  EXPECT_EQ(Formatted("%*.*s|", -5, 3, "abcdef"), "abc|");
  EXPECT_EQ(Formatted("%*.*s|", 3, -1, "abcdef"), "abc|");
  EXPECT_EQ(Formatted("%0*.*s|", 0, 3, "abcdef"), "|");
  // A number in digits never sets it.
  EXPECT_EQ(Formatted("%3s|", "abcdef"), "abcdef|");
  EXPECT_EQ(Formatted("%*.4s|", 5, "abcdef"), "abcd|");
  EXPECT_EQ(Formatted("%5.*s|", 3, "abcdef"), "  a|");
  EXPECT_EQ(Formatted("%.*p{s}|%*p{s}|", 2, "abcdef", 3, "abcdef"), "ab|abc|");
  EXPECT_EQ(Formatted("%.*ls|%*ls|", 2, L"abcdef", 3, L"abcdef"), "ab|abc|");
  // For wide text it counts units, while the precision counts bytes.
  EXPECT_EQ(Formatted("%*ls|", 2, L"\u00E4\u00F6\u00FC"), "\u00E4\u00F6|");
  EXPECT_EQ(Formatted("%.*ls|", 2, L"\u00E4\u00F6\u00FC"), "\u00E4|");
  // Zero bytes inside are dropped, and not counted.
  EXPECT_EQ(Formatted("%*s|", 5, "ab\0cd"), " abcd|");
  EXPECT_EQ(Formatted("%.*s|", 5, "ab\0cd"), "abcd|");
}

TEST_F(FormatParseTest, LengthModifiers) {
  const long long big = 0x123456789ABCDEF0;
  EXPECT_EQ(Formatted("%lld %I64d %td", big, big, big),
            "1311768467463790320 1311768467463790320 1311768467463790320");
  EXPECT_EQ(Formatted("%llx %I64X %tx", big, big, big), "123456789abcdef0 123456789ABCDEF0 123456789abcdef0");
  EXPECT_EQ(Formatted("%d %u %x", big, big, big), "-1698898192 2596069104 9abcdef0");
  EXPECT_EQ(Formatted("%ld %lu %lx", big, big, big), "-1698898192 2596069104 9abcdef0");
  EXPECT_EQ(Formatted("%ltd %tlu", big, big), "-1698898192 2596069104");
  EXPECT_EQ(Formatted("%lltd", big), "1311768467463790320");
  EXPECT_EQ(Formatted("%lls", "8-bit"), "8-bit");
  // "h" and "z" are conversions here.
  EXPECT_EQ(Formatted("%hd", 1, "a"), "61d");
}

TEST_F(FormatParseTest, BracesSelectVariants) {
  EXPECT_EQ(Formatted("%p{s}", "text"), "text");
  EXPECT_EQ(Formatted("%x{T}%X{T}%d{T}", 0x41, 0x42, 0x43), "ABC");
  // A variant without a meaning skips an argument and writes its letter.
  EXPECT_EQ(Formatted("%p{q}%d", nullptr, 7), "q7");
  EXPECT_EQ(Formatted("%d{q}%d", 1, 7), "q7");
  EXPECT_EQ(Formatted("%x{q}%X{s}%d", 1, 2, 7), "qs7");
  EXPECT_EQ(Formatted("%e{q}%f{q}%E{q}%F{z}%d", 1.0, 2.0, 3.0, 4.0, 7), "qqqz7");
  EXPECT_EQ(Formatted("%.0p{q}%d", nullptr, 7), "7");
  EXPECT_EQ(Formatted("%p{}}%d", nullptr, 7), "}7");
  EXPECT_EQ(Formatted("%p{{}%d", nullptr, 7), "{7");
}

TEST_F(FormatParseTest, AfterOtherLettersTheBraceLetterIsIgnored) {
  EXPECT_EQ(Formatted("%s{s}%d", "text", 7), "text7");
  EXPECT_EQ(Formatted("%i{z}%d", 5, 7), "57");
  EXPECT_EQ(Formatted("%u{z}%o{T}%d", 5, 8, 7), "5107");
  EXPECT_EQ(Formatted("%g{q}%d", 1.5, 7), "1.57");
  EXPECT_EQ(Formatted("%c{q}%d", 'c', 7), "c7");
  EXPECT_EQ(Formatted("%ls{q}%d", L"wide", 7), "wide7");
  EXPECT_EQ(Formatted("%k{q}%d", 7), "k7");
  EXPECT_EQ(Formatted("%%{q}%d", 7), "%7");
  EXPECT_EQ(Formatted("%a{q}%d", 1.5, 7), "a7");
  // Here "<" is a letter, not a modifier.
  EXPECT_EQ(Formatted("%s{<:}", "a<b"), "a<b");
}

TEST_F(FormatParseTest, OtherBracesAreOrdinaryText) {
  EXPECT_EQ(Formatted("%d{", 7), "7{");
  EXPECT_EQ(Formatted("%d{z", 7), "7{z");
  EXPECT_EQ(Formatted("%d{zz}", 7), "7{zz}");
  EXPECT_EQ(Formatted("%d{}", 7), "7{}");
  EXPECT_EQ(Formatted("%d{} %s{xx:}", 7, "s"), "7{} s{xx:}");
  EXPECT_EQ(Formatted("{%d}", 7), "{7}");
  EXPECT_EQ(Formatted("{%s}{z}", "s"), "{s}{z}");
}

TEST_F(FormatParseTest, ModifiersWithoutALetter) {
  EXPECT_EQ(Formatted("%s{:^}", "text"), "TEXT");
  EXPECT_EQ(Formatted("%s{q:^}", "text"), "TEXT");
  EXPECT_EQ(Formatted("%p{s:^}", "text"), "TEXT");
  EXPECT_EQ(Formatted("%s{:}|%s{::ignored}|", "text", "text"), "text|text|");
  // Characters that are not modifiers are ignored.
  EXPECT_EQ(Formatted("%s{:?x^!}|", "text"), "TEXT|");
  EXPECT_EQ(Formatted("%d{:$}|%x{:^}", 1234567, 0xABCDEF), "1,234,567|ABCDEF");
}

TEST_F(FormatParseTest, AnOpenExtensionEndsWithTheFormat) {
  EXPECT_EQ(Formatted("%s{:", "text"), "text");
  EXPECT_EQ(Formatted("%s{:^", "text"), "TEXT");
  EXPECT_EQ(Formatted("%s{:^:abc", "text"), "TEXT");
  EXPECT_EQ(Formatted("%O{::abc", nullptr), "abc");
}

TEST_F(FormatParseTest, TheArgumentListIsUnchanged) {
  uint64_t slots[] = {1, 2, 3};
  va_list list = reinterpret_cast<va_list>(slots);
  char text[16];
  EXPECT_EQ(FormatStringV(text, sizeof text, "%d %d %d", list), 5u);
  EXPECT_STREQ(text, "1 2 3");
  EXPECT_EQ(reinterpret_cast<uint64_t*>(list), slots);
}

TEST_F(FormatParseTest, TheMessagesOfTheLibrary) {
  EXPECT_EQ(Formatted("Task install failed:  %ld", -34L), "Task install failed:  -34");
  EXPECT_EQ(Formatted("failure %ld (0x%08lX) setting ACL for %ls", 5L, 5L, L"caf\u00E9"),
            "failure 5 (0x00000005) setting ACL for caf\u00E9");
  EXPECT_EQ(Formatted("failure %ld (0x%08lX) adding account", -2147024891L, -2147024891L),
            "failure -2147024891 (0x80070005) adding account");
  EXPECT_EQ(Formatted("set ACL (%ld) for %s=%03lo", 0L, "LocalSystem", 493L),
            "set ACL (0) for LocalSystem=755");
  EXPECT_EQ(Formatted("%03lo", 7L), "007");
  EXPECT_EQ(Formatted("agent restart:  session %ld (%ls) failed:  %ld", 2L, L"Console", 1314L),
            "agent restart:  session 2 (Console) failed:  1314");
}

}  // namespace
}  // namespace format_test
