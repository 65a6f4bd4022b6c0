// The conversions of text: strings of every kind, padding, escapes and folding.

#include <functional>
#include <vector>

#include "unit/format/format_support.h"

namespace format_test {
namespace {

class FormatTextTest : public FormatTest {};

TEST_F(FormatTextTest, Strings) {
  EXPECT_EQ(Formatted("%s", "text"), "text");
  EXPECT_EQ(Formatted("%s|%5s|", nullptr, nullptr), "||");
  EXPECT_EQ(Formatted("%s|%5s|%-5s|", "", "", ""), "|     |     |");
  EXPECT_EQ(Formatted("%5s|%-5s|%2s|%-2s|", "abc", "abc", "abc", "abc"), "  abc|abc  |abc|abc|");
  EXPECT_EQ(Formatted("%05s|%-05s|", "abc", "abc"), "00abc|abc  |");
  EXPECT_EQ(Formatted("%p{s}|%5p{s}|%p{s}|", "abc", "abc", nullptr), "abc|  abc||");
  EXPECT_EQ(Formatted("%s", "\xFF\x80 stays"), "\xFF\x80 stays");
}

TEST_F(FormatTextTest, StringsOfEveryLengthAtEveryPlace) {
  for (size_t length = 0; length < 40; ++length) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
    const auto guarded = rig::GuardedBuffer::Of(text);
    for (size_t offset = 0; offset < 9 && offset <= length; ++offset) {
      EXPECT_EQ(Formatted("%s", guarded.Data() + offset), text.substr(offset));
    }
  }
}

TEST_F(FormatTextTest, WideStrings) {
  EXPECT_EQ(Formatted("%ls", L"text"), "text");
  EXPECT_EQ(Formatted("%ls|%5ls|", nullptr, nullptr), "||");
  EXPECT_EQ(Formatted("%ls|%3ls|", L"", L""), "|   |");
  EXPECT_EQ(Formatted("%ls", L"\u00E9\u20AC\U0001F600"), "\u00E9\u20AC\U0001F600");
  // The width counts bytes.
  EXPECT_EQ(Formatted("%4ls|%-4ls|", L"\u20AC", L"\u20AC"), " \u20AC|\u20AC |");
  // Lone surrogates become U+FFFD.
  const wchar_t lone[] = {L'a', 0xD800, L'b', 0xDC00, 0};
  EXPECT_EQ(Formatted("%ls", lone),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  EXPECT_EQ(Formatted("%ls{:^}|%+ls", L"a\u00E9", L"a b"), "A\u00E9|a%20b");
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FormatTextTest, ALongWideStringNeedsNoMoreThanFourBytesACharacter) {
  const std::wstring wide(1000, L'\uFFFD');
  std::string narrow;
  for (int i = 0; i < 1000; ++i) narrow += "\xEF\xBF\xBD";
  rig::GuardedBuffer block(4001);
  TheRig().On<::HeapAlloc>([&](HANDLE, DWORD flags, SIZE_T size) -> LPVOID {
    EXPECT_EQ(flags, static_cast<DWORD>(HEAP_ZERO_MEMORY));
    EXPECT_EQ(size, block.Size());
    block.Fill(0);
    return block.Data();
  });
  TheRig().On<::HeapFree>([](HANDLE, DWORD, LPVOID) { return TRUE; });
  EXPECT_EQ(Formatted("%ls", wide.c_str()), narrow);
}

TEST_F(FormatTextTest, WideStringsWithoutMemoryWriteNothing) {
  TheRig().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> LPVOID { return nullptr; });
  EXPECT_EQ(Formatted("<%ls|%5ls|%lc|%d>", L"text", L"text", 'c', 7), "<|||7>");
}

TEST_F(FormatTextTest, Characters) {
  EXPECT_EQ(Formatted("%c%c", 'a', 0x141), "aA");
  EXPECT_EQ(Formatted("%5c|%-5c|%05c|", 'a', 'b', 'c'), "a|b|c|");
  EXPECT_EQ(Formatted("%c{:^}", 'a'), "a");
  EXPECT_EQ(Formatted("%c", 0xE9), "\xE9");
  EXPECT_EQ(Formatted("a%cb", 0), std::string("a\0b", 3));
}

TEST_F(FormatTextTest, WideCharacters) {
  EXPECT_EQ(Formatted("%lc%lc%lc", 'a', 0xE9, 0x20AC), "a\u00E9\u20AC");
  EXPECT_EQ(Formatted("%lc", 0x1F600), "\U0001F600");
  EXPECT_EQ(Formatted("%lc", 0x10FFFF), "\xF4\x8F\xBF\xBF");
  EXPECT_EQ(Formatted("%lc|%lc|%lc|%lc", 0xD800, 0xDFFF, 0x110000, -1),
            "\xEF\xBF\xBD|\xEF\xBF\xBD|\xEF\xBF\xBD|\xEF\xBF\xBD");
  // Written as a string: padded, escaped, without zero bytes.
  EXPECT_EQ(Formatted("%5lc|%-5lc|", 0x20AC, 'a'), "  \u20AC|a    |");
  EXPECT_EQ(Formatted("%lc|%2lc|", 0, 0), "|  |");
  EXPECT_EQ(Formatted("%+lc|%lc{:&}", ' ', '<'), "%20|%lt;");
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FormatTextTest, CountedStrings) {
  const auto text = rig::GuardedBuffer::Of("abcdef", false);
  EXPECT_EQ(Formatted("%S|%S|", 6, text.Data(), 2, text.Data()), "abcdef|ab|");
  EXPECT_EQ(Formatted("%S|%S|%5S|%5S|", 0, text.Data(), 3, nullptr, 0, text.Data(), 3, nullptr), "||||");
  EXPECT_EQ(Formatted("%5S|%-5S|", 2, text.Data(), 2, text.Data()), "   ab|ab   |");
  // Zero bytes are dropped and not counted.
  EXPECT_EQ(Formatted("%S|%6S|%-6S|", 5, "a\0b\0c", 5, "a\0b\0c", 5, "a\0b\0c"), "abc|   abc|abc   |");
  EXPECT_EQ(Formatted("%.2S|", 5, "a\0b\0c"), "ab|");
  EXPECT_EQ(Formatted("%S{:^}", 3, "a\0b"), "AB");
  // Only 32 bits of the length count.
  EXPECT_EQ(Formatted("%S", 0x7000000000000002LL, text.Data()), "ab");
  // A length from an argument is for other conversions.
  EXPECT_EQ(Formatted("%*S|", 2, 6, text.Data()), "abcdef|");
}

TEST_F(FormatTextTest, PascalStrings) {
  const auto text = rig::GuardedBuffer::Of(
      "\x03"
      "abc",
      false);
  EXPECT_EQ(Formatted("%P|%5P|%-5P|%P|%5P|", text.Data(), text.Data(), text.Data(), nullptr, nullptr),
            "abc|  abc|abc  |||");
  EXPECT_EQ(Formatted("%P|%3P|", "\0", "\0"), "|   |");
  std::string longest(256, 'x');
  longest[0] = '\xFF';
  const auto guarded = rig::GuardedBuffer::Of(longest, false);
  EXPECT_EQ(Formatted("%P", guarded.Data()), longest.substr(1));
}

TEST_F(FormatTextTest, FourCharacterCodes) {
  EXPECT_EQ(Formatted("%T|%6T|%-6T|", 0x64636261, 0x64636261, 0x64636261), "abcd|  abcd|abcd  |");
  EXPECT_EQ(Formatted("%T|%5T|", 0, 0), "||");
  EXPECT_EQ(Formatted("%T|%T|%5T|", 0x61, 0x61000000, 0x00620061), "a|a|   ab|");
  EXPECT_EQ(Formatted("%d{T}%x{T}%X{T}", 0x61, 0x62, 0x63), "abc");
  EXPECT_EQ(Formatted("%T{:^}|%+T", 0x64636261, 0x20), "ABCD|%20");
  EXPECT_EQ(Formatted("%T", 0x7000000000000061LL), "a");
}

struct EscapeCase {
  const char* format;
  const char* text;
  const char* expected;
};

class FormatEscapeTest : public FormatTest, public testing::WithParamInterface<EscapeCase> {};

TEST_P(FormatEscapeTest, IsWrittenEscaped) {
  const EscapeCase& row = GetParam();
  EXPECT_EQ(Formatted(row.format, row.text), row.expected) << row.format << " of " << row.text;
}

const EscapeCase kQuotes[] = {
    {"%s{:'}", "a'b\\c\"d", "a\\'b\\\\c\"d"},
    {"%s{:''}", "a'b\\c\"d", "a''b\\c\"d"},
    {"%s{:'''}", "a'b\\c\"d", "a'b\\\\c\\\"d"},
    {"%s{:'^''}", "a'b\"", "A'B\\\""},
    {"%s{:''''}", "'\"", "'\\\""},
    {"%s{:`}",
     "a'b`c\td\ne\x01"
     "f\x1Fg",
     "a`b`c\td e f g"},
    {"%s{:`}", "\x7F\x80\xFF", "\x7F\x80\xFF"},
};
INSTANTIATE_TEST_SUITE_P(Quotes, FormatEscapeTest, testing::ValuesIn(kQuotes));

const EscapeCase kCdata[] = {
    {"%s{:<}", "a<b", "<![CDATA[a<b]]>"},
    {"%s{:<}", "a>b", "<![CDATA[a>b]]>"},
    {"%s{:<}", "a&b", "<![CDATA[a&b]]>"},
    {"%s{:<}", "ab", "ab"},
    {"%s{:<}", "", ""},
    {"%s{:<}", "\"'", "\"'"},
    {"%s{:<}", "a]]>b", "<![CDATA[a]] b]]>"},
    {"%s{:<}", "a]]]>b", "<![CDATA[a]]] b]]>"},
    {"%s{:<}", "]>]]x>", "<![CDATA[]>]]x>]]>"},
    {"%s{:<}", "]]>>", "<![CDATA[]] >]]>"},
    {"%s{:<}", "&]]", "<![CDATA[&]]]]>"},
    {"%16s{:<}|", "a<b", " <![CDATA[a<b]]>|"},
    {"%-17s{:<}|", "a<b", "<![CDATA[a<b]]>  |"},
    {"%5s{:<}|", "ab", "   ab|"},
    {"%s{:<^}", "a<b", "<![CDATA[A<B]]>"},
    {"%.12s{:<}|", "a<b", "<![CDATA[]]>|"},
    {"%.14s{:<}|", "a<b", "<![CDATA[a<]]>|"},
    {"%.11s{:<}|", "a<b", "|"},
    {"%.11s{:<}|", "ab", "ab|"},
    {"%20.16s{:<}|", "a<b", "|"},
    {"%20.17s{:<}|", "a<b", "     <![CDATA[]]>|"},
    {"%-20.12s{:<}|", "a<b", "<![CDATA[]]>|"},
    {"%-20.17s{:<}|", "a<b", "<![CDATA[a<b]]>  |"},
    {"%s{:<}", "\xE9<", "<![CDATA[\xE9<]]>"},
};
INSTANTIATE_TEST_SUITE_P(Cdata, FormatEscapeTest, testing::ValuesIn(kCdata));

const EscapeCase kTilde[] = {
    {"%s{:~}", "a\"b\\c'd", "a\\\"b\\\\c'd"},
    {"%s{:~}", "a\tb\nc\rd\r\ne\n\rf\r\r\n", "a\\tb\\nc\\nd\\ne\\n\\nf\\n\\n"},
    {"%s{:~}", "\x01\x1F\x7F", "  \x7F"},
    {"%s{:~}", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
    {"%s{:~}", "\xF8\x80\x80\x80\x80|\xFC\x80\x80\x80\x80\x80",
     "\xF8\x80\x80\x80\x80|\xFC\x80\x80\x80\x80\x80"},
    {"%s{:~}", "\xE9|\xC3|\xE2\x82|\x80|\xFE\x80|\xFF", "?|?|??|?|??|?"},
    {"%s{:~}", "\xE2\x82", "??"},
    {"%s{:~}", "\xC3\xA9\xA9", "\xC3\xA9?"},
};
INSTANTIATE_TEST_SUITE_P(Tilde, FormatEscapeTest, testing::ValuesIn(kTilde));

const EscapeCase kEntities[] = {
    {"%s{:&}", "<a & 'b'>", "%lt;a %amp; %#39;b%#39;%gt;"},
    {"%s{:&}", "\"%\t\x01", "%dquo;%\t\x01"},
    {"%s{:&}", "\xC3\xA9\xE9\x80", "\xC3\xA9&#233;&#128;"},
    {"%s{:@}", "\"%&'<>|a b\n", "%22%25%26%27%3C%3E|a b\n"},
    {"%s{:/}", "\"%&'<>|a b\n", "%22%25%26%27%3C%3E|a b\n"},
    {"%s{:@}", "\xC3\xA9\xE9\xFF", "\xC3\xA9&#233;&#255;"},
    {"%s{:/}", "\xC3\xA9\xE9\xFF", "\xC3\xA9%e9%ff"},
    {"%s{:/@}", "\xE9", "&#233;"},
};
INSTANTIATE_TEST_SUITE_P(Entities, FormatEscapeTest, testing::ValuesIn(kEntities));

const EscapeCase kUrl[] = {
    {"%+s", "a b/c", "a%20b%2Fc"},
    {"%+s", "AZaz09-._~", "AZaz09-._~"},
    {"%+s", "@[`{/:!\"%&'<>", "%40%5B%60%7B%2F%3A%21%22%25%26%27%3C%3E"},
    {"%+s", "\n\x7F\xC3\xA9", "%0A%7F%C3%A9"},
    {"%+8s|", "a b", "   a%20b|"},
    {"%-+8s|", "a b", "a%20b   |"},
};
INSTANTIATE_TEST_SUITE_P(Url, FormatEscapeTest, testing::ValuesIn(kUrl));

const EscapeCase kFolding[] = {
    {"%s{:^}", "azAZ@[`{09\xC3\xA9", "AZAZ@[`{09\xC3\xA9"},
    {"%s{:_}", "azAZ@[`{09\xC3\xA9", "azaz@[`{09\xC3\xA9"},
    {"%s{:^_}", "aZ", "AZ"},
    {"%s{:_^}", "aZ", "AZ"},
    {"%s{:^&}", "a<b", "A%lt;B"},
    {"%+s{:^}", "a b", "A%20B"},
    {"%+s{:_}", "A/B", "a%2Fb"},
};
INSTANTIATE_TEST_SUITE_P(Folding, FormatEscapeTest, testing::ValuesIn(kFolding));

// Only one escape applies: + ~ & @ < ` ''' '' ' in this order.
const EscapeCase kPrecedence[] = {
    {"%+s{:~&@/<`'}", "\"<'", "%22%3C%27"},
    {"%s{:'`</@&~}", "\"<'", "\\\"<'"},
    {"%s{:'`</@&}", "\"<'", "%dquo;%lt;%#39;"},
    {"%s{:'`</@}", "\"<'\xE9", "%22%3C%27&#233;"},
    {"%s{:'`</}", "\"<'\xE9", "%22%3C%27%e9"},
    {"%s{:'`<}", "\"<'", "<![CDATA[\"<']]>"},
    {"%s{:'`<}", "\"'", "\"'"},
    {"%s{:'`}", "\"<'\\", "\"<`\\"},
};
INSTANTIATE_TEST_SUITE_P(Precedence, FormatEscapeTest, testing::ValuesIn(kPrecedence));

TEST_F(FormatTextTest, PaddingIsMeasuredByTheEscapedText) {
  EXPECT_EQ(Formatted("%8s{:&}|%-8s{:&}|", "a<b", "a<b"), "  a%lt;b|a%lt;b  |");
  EXPECT_EQ(Formatted("%5s{:&}|", "a<b"), "a%lt;b|");
  EXPECT_EQ(Formatted("%08s{:&}|", "a<b"), "00a%lt;b|");
  EXPECT_EQ(Formatted("%6s{:~}|", "\r\n"), "    \\n|");
}

TEST_F(FormatTextTest, EscapesAreWrittenWholeOrNotAtAll) {
  EXPECT_EQ(Formatted("%.4s{:&}|", "ab<c"), "ab|");
  EXPECT_EQ(Formatted("%.6s{:&}|", "ab<c"), "ab%lt;|");
  EXPECT_EQ(Formatted("%.2s{:'}|", "a'b"), "a|");
  EXPECT_EQ(Formatted("%.2s{:''}|", "a'b"), "a|");
  EXPECT_EQ(Formatted("%.2s{:~}|", "a\nb"), "a|");
  EXPECT_EQ(Formatted("%.3+s|", "x"), "+s|");
  EXPECT_EQ(Formatted("%+.3s|", "a b"), "a|");
  EXPECT_EQ(Formatted("%.3s{:@}|", "a<b"), "a|");
  EXPECT_EQ(Formatted("%.6s{:@}|",
                      "a\xE9"
                      "b"),
            "a|");
  // So are UTF-8 sequences if the escape knows them; the text ends there.
  EXPECT_EQ(Formatted("%.2s{:~}|",
                      "a\xC3\xA9"
                      "b"),
            "a|");
  EXPECT_EQ(Formatted("%.3s{:~}|",
                      "a\xC3\xA9"
                      "b"),
            "a\xC3\xA9|");
  EXPECT_EQ(Formatted("%.3s{:&}|", "a\xE2\x82\xAC"), "a|");
  // Without such an escape they are ordinary bytes.
  EXPECT_EQ(Formatted("%.2s|", "a\xC3\xA9"), "a\xC3|");
  EXPECT_EQ(Formatted("%.2s{:'}|", "a\xC3\xA9"), "a\xC3|");
  // A text that ends early is not padded on the right.
  EXPECT_EQ(Formatted("%-10.4s{:&}|", "ab<c"), "ab|");
  // The same at the buffer's end.
  EXPECT_EQ(Cut(6, "a%s{:&}b", "<"), "a%lt;");
  EXPECT_EQ(Cut(5, "a%s{:&}b", "<"), "ab");
}

TEST_F(FormatTextTest, ACdataWrapperIsWrittenWholeOrTheTextNotAtAll) {
  EXPECT_EQ(Cut(13, "%s{:<}", "a<b"), "<![CDATA[]]>");
  EXPECT_EQ(Cut(14, "%s{:<}", "a<b"), "<![CDATA[a]]>");
  EXPECT_EQ(Cut(12, "%s{:<}", "a<b"), "");
  EXPECT_EQ(Cut(14, "ab%s{:<}c", "a<b"), "abc");
  EXPECT_EQ(Cut(15, "ab%s{:<}c", "a<b"), "ab<![CDATA[]]>");
}

/// The escapes, implemented a second time: one function for each syntax, without a limit.
std::string Escaped(char modifier, const std::string& text) {
  std::string result;
  const auto hex = [&](unsigned char c, const char* format) {
    char digits[8];
    snprintf(digits, sizeof digits, format, c);
    result += digits;
  };
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == 0) continue;
    if (c >= 0x80 && strchr("~&@/", modifier)) {
      size_t length = c >= 0xFE   ? 0
                      : c >= 0xFC ? 6
                      : c >= 0xF8 ? 5
                      : c >= 0xF0 ? 4
                      : c >= 0xE0 ? 3
                      : c >= 0xC0 ? 2
                                  : 0;
      for (size_t k = 1; k < length; ++k) {
        if (i + k >= text.size() || (text[i + k] & 0xC0) != 0x80) length = 0;
      }
      if (length) {
        result += text.substr(i, length);
        i += length - 1;
      } else if (modifier == '~') {
        result += '?';
      } else {
        hex(c, modifier == '/' ? "%%%02x" : "&#%03u;");
      }
      continue;
    }
    switch (modifier) {
      case '+':
        isalnum(c) && c < 0x80 ? void(result += static_cast<char>(c))
        : strchr("-._~", c)    ? void(result += static_cast<char>(c))
                               : hex(c, "%%%02X");
        break;
      case '~':
        if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
        result += c == '"'                 ? "\\\""
                  : c == '\\'              ? "\\\\"
                  : c == '\t'              ? "\\t"
                  : c == '\n' || c == '\r' ? "\\n"
                  : c < 32                 ? " "
                                           : std::string(1, static_cast<char>(c));
        break;
      case '&':
        result += c == '<'    ? "%lt;"
                  : c == '>'  ? "%gt;"
                  : c == '&'  ? "%amp;"
                  : c == '\'' ? "%#39;"
                  : c == '"'  ? "%dquo;"
                              : std::string(1, static_cast<char>(c));
        break;
      case '@':
      case '/':
        strchr("\"%&'<>", c) ? hex(c, "%%%02X") : void(result += static_cast<char>(c));
        break;
      default:
        result += static_cast<char>(c);
    }
  }
  return result;
}

TEST_F(FormatTextTest, RandomTextsAreEscapedCorrectly) {
  Random random(RunSeed());
  const char modifiers[] = {'+', '~', '&', '@', '/'};
  for (int run = 0; run < 4000; ++run) {
    std::string text;
    for (uint32_t length = random.Below(20); length > 0; --length) {
      static const char kInteresting[] = "\0\r\n\t\"'\\<>&%]a Z\x80\xBF\xC3\xE2\xF0\xF9\xFD\xFE\xFF\x01";
      text += kInteresting[random.Below(sizeof kInteresting - 1)];
    }
    for (char modifier : modifiers) {
      // A zero byte inside a sequence is not of interest.
      std::string plain;
      for (char c : text) plain += c == 0 && random.OneIn(2) ? 'z' : c;
      std::string dropped;
      for (char c : plain) {
        if (c) dropped += c;
      }
      const std::string format = modifier == '+' ? "%+S" : std::string("%S{:") + modifier + "}";
      const auto guarded = rig::GuardedBuffer::Of(dropped, false);
      EXPECT_EQ(Formatted(format.c_str(), static_cast<int>(dropped.size()), guarded.Data()),
                Escaped(modifier, dropped))
          << format << " of " << testing::PrintToString(dropped);
    }
  }
}

}  // namespace
}  // namespace format_test
