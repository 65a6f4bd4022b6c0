// The conversions of binary data: hexadecimal dumps, base64 and GUIDs.

#include "unit/format/format_support.h"

namespace format_test {
namespace {

class FormatDumpTest : public FormatTest {};

TEST_F(FormatDumpTest, CountedHexDumps) {
  const auto data = rig::GuardedBuffer::Of(std::string("\x00\x7F\xAB\xFF", 4), false);
  EXPECT_EQ(Formatted("%h %H", 4, data.Data(), 4, data.Data()), "007fabff 007FABFF");
  EXPECT_EQ(Formatted("% h|% H|", 4, data.Data(), 1, data.Data() + 2), "00 7f ab ff|AB|");
  EXPECT_EQ(Formatted("%h|%h|%5h|%5h|", 0, data.Data(), 4, nullptr, 0, data.Data(), 4, nullptr), "||||");
  EXPECT_EQ(Formatted("%10h|%-10h|%010h|%3h|", 2, "ab", 2, "ab", 2, "ab", 2, "ab"),
            "      6162|6162      |0000006162|6162|");
  EXPECT_EQ(Formatted("%.3h|%.*h|% .4h|", 2, "ab", 3, 2, "ab", 2, "ab"), "616|616|61 6|");
  EXPECT_EQ(Formatted("%h{:^}|%H{:_}|%+h", 1, "\xAB", 1, "\xAB", 1, "\xAB"), "AB|ab|ab");
}

TEST_F(FormatDumpTest, HexDumpsWithALengthFromAnArgument) {
  const auto data = rig::GuardedBuffer::Of(std::string("\x00\x7F\xAB\xFF", 4), false);
  EXPECT_EQ(Formatted("%.*p{h} %.*p{H}", 4, data.Data(), 4, data.Data()), "007fabff 007FABFF");
  EXPECT_EQ(Formatted("% .*p{h}", 4, data.Data()), "00 7f ab ff");
  EXPECT_EQ(Formatted("%*p{h}|%*.*p{h}|%*.*p{h}|", 4, data.Data(), 2, 4, data.Data(), 4, 2, data.Data()),
            "007fabff|007f|007f|");
  // The width is always twice the length; a width in the directive is ignored.
  EXPECT_EQ(Formatted("%20.*p{h}|%-20.*p{h}|%020.*p{h}|", 2, "ab", 2, "ab", 2, "ab"), "6162|6162|6162|");
  EXPECT_EQ(Formatted("%.*p{h}|%.*p{h}|", 0, data.Data(), 4, nullptr), "||");
  EXPECT_EQ(Formatted("%.*p{h:^}", 1, "\xAB"), "AB");
  // A precision in digits cuts as usual; the length then ends at the zero byte.
  EXPECT_EQ(Formatted("%.3p{h}|%*.3p{h}|", "ab", 2, "abcd"), "616|616|");
  EXPECT_EQ(Formatted("%p{h}|%.*p{h}|", "abc", -1, "abc"), "616263|616263|");
  // The buffer's size cuts too.
  EXPECT_EQ(Cut(6, "%.*p{h}", 4, data.Data()), "007fa");
}

std::string Base64(bool urlSafe, const std::string& data) {
  const auto guarded = rig::GuardedBuffer::Of(data, false);
  const char* format = urlSafe ? "%.*p{B}" : "%.*p{b}";
  const unsigned size = static_cast<unsigned>(data.size()) * 2 + 5;
  rig::GuardedBuffer buffer(size);
  const unsigned written =
      FormatString(buffer.Data(), size, format, static_cast<int>(data.size()), guarded.Data());
  // When measured, both alphabets need the length of the padded form.
  EXPECT_EQ(FormatString(nullptr, 0, format, static_cast<int>(data.size()), guarded.Data()),
            4 * ((data.size() + 2) / 3));
  return {buffer.Data(), written};
}

TEST_F(FormatDumpTest, StandardBase64) {
  EXPECT_EQ(Base64(false, ""), "");
  EXPECT_EQ(Base64(false, "f"), "Zg==");
  EXPECT_EQ(Base64(false, "fo"), "Zm8=");
  EXPECT_EQ(Base64(false, "foo"), "Zm9v");
  EXPECT_EQ(Base64(false, "foob"), "Zm9vYg==");
  EXPECT_EQ(Base64(false, "fooba"), "Zm9vYmE=");
  EXPECT_EQ(Base64(false, "foobar"), "Zm9vYmFy");
  EXPECT_EQ(Base64(false, "\xFB\xEF\xFF\xFE"), "++///g==");
}

TEST_F(FormatDumpTest, UrlSafeBase64) {
  EXPECT_EQ(Base64(true, ""), "");
  EXPECT_EQ(Base64(true, "f"), "Zg");
  EXPECT_EQ(Base64(true, "fo"), "Zm8");
  EXPECT_EQ(Base64(true, "foo"), "Zm9v");
  EXPECT_EQ(Base64(true, "foob"), "Zm9vYg");
  EXPECT_EQ(Base64(true, "\xFB\xEF\xFF\xFE"), "--___g");
}

TEST_F(FormatDumpTest, EveryCharacterOfTheAlphabets) {
  std::string data;
  for (uint32_t i = 0; i < 64; i += 4) {
    const uint32_t bits = i << 18 | (i + 1) << 12 | (i + 2) << 6 | (i + 3);
    for (int shift : {16, 8, 0}) data += static_cast<char>(bits >> shift);
  }
  const std::string common = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  EXPECT_EQ(Base64(false, data), common + "+/");
  EXPECT_EQ(Base64(true, data), common + "-_");
}

TEST_F(FormatDumpTest, Base64IgnoresWidthsAndModifiers) {
  EXPECT_EQ(Formatted("%20.*p{b}|%-20.*p{b:^}|%+.*p{b}|", 2, "fo", 2, "fo", 2, "fo"), "Zm8=|Zm8=|Zm8=|");
  EXPECT_EQ(Formatted("%*p{b}|%*.*p{b}|%.*p{b}|", 3, "foo", 2, 3, "foo", 3, nullptr), "Zm9v|Zm8=||");
  EXPECT_EQ(Formatted("%.3p{b}|%p{b}|", "foobar", "foo"), "Zm9|Zm9v|");
  EXPECT_EQ(Cut(4, "%.*p{b}", 1, "f"), "Zg=");
  EXPECT_EQ(Cut(4, "%.*p{B}", 1, "f"), "Zg");
  EXPECT_EQ(Cut(3, "%.*p{b}", 6, "foobar"), "Zm");
  EXPECT_EQ(FormatString(nullptr, 0, "%.3p{B}", "foobar"), 3u);
}

TEST_F(FormatDumpTest, Guids) {
  const unsigned char guid[] = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                                0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  const std::string text = "00112233-4455-6677-8899-AABBCCDDEEFF";
  // It needs space for 37 bytes to write its 36.
  char buffer[64];
  EXPECT_EQ(FormatString(buffer, 38, "%p{U}", guid), 36u);
  EXPECT_EQ(buffer, text);
  EXPECT_EQ(FormatString(buffer, 37, "%p{U}", guid), 0u);
  EXPECT_EQ(FormatString(nullptr, 0, "%p{U}", guid), 36u);
  EXPECT_EQ(Formatted("%p{U}|", guid), text + "|");
  EXPECT_EQ(Formatted("{%p{U}}", guid), "{" + text + "}");
  EXPECT_EQ(Formatted("%.37p{U}|%.36p{U}|", guid, guid), text + "||");
  EXPECT_EQ(Formatted("%38p{U}|%-38p{U}|", guid, guid), "  " + text + "|" + text + "  |");
  EXPECT_EQ(Formatted("%p{U:_}|", guid), "00112233-4455-6677-8899-aabbccddeeff|");
  EXPECT_EQ(Formatted("%p{U}|", nullptr), "|");
}

}  // namespace
}  // namespace format_test
