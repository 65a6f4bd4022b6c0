// The string routines: rules, edge cases, their calls of the system, and failures.

#include "base/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "base/heap.h"
#include "rig/import_hook.h"
#include "rig/internals_test.h"

namespace text_test {

HX_INTERNAL(TxtLenA);
HX_INTERNAL(TxtLenW);
HX_INTERNAL(TxtCopyA);
HX_INTERNAL(TxtCopyW);
HX_INTERNAL(TxtCopyNA);
HX_INTERNAL(TxtFindCharA);
HX_INTERNAL(TxtFindCharW);
HX_INTERNAL(TxtFindLastCharA);
HX_INTERNAL(TxtFindLastCharW);
HX_INTERNAL(TxtCutW);
HX_INTERNAL(TxtFindA);
HX_INTERNAL(TxtCompareA);
HX_INTERNAL(TxtCompareIA);
HX_INTERNAL(TxtCompareIW);
HX_INTERNAL(TxtCompareW);
HX_INTERNAL(TxtCompareNIA);
HX_INTERNAL(CopyBytes);
HX_INTERNAL(MoveBytes);
HX_INTERNAL(FillBytes);
HX_INTERNAL(ParseDecimalA);
HX_INTERNAL(Utf8ToWide);
HX_INTERNAL(WideToUtf8);
HX_INTERNAL(HeapFreeSafe);

using rig::GuardedBuffer;
using TextTest = rig::InternalsTest;

// Returns the offset of a found place in `text`, or -1 for null.
template <class Unit>
ptrdiff_t Offset(const Unit* text, const Unit* found) {
  return found ? found - text : -1;
}

std::string TakeA(char* text) {
  std::string copy = text ? text : "(null)";
  HeapFreeSafe(text);
  return copy;
}

std::wstring TakeW(wchar_t* text) {
  std::wstring copy = text ? text : L"(null)";
  HeapFreeSafe(text);
  return copy;
}

TEST_F(TextTest, LengthsCountUnitsBeforeTheTerminator) {
  for (const char* text : {"", "a", "abc", "\xC3\xA9\xF0\x9F\x98\x80"}) {
    GuardedBuffer buffer = GuardedBuffer::Of(std::string_view(text));
    EXPECT_EQ(TxtLenA(buffer.Data()), strlen(text)) << text;
  }
  for (const wchar_t* text : {L"", L"a", L"abc", L"\xE9\xD83D\xDE00"}) {
    GuardedBuffer buffer = GuardedBuffer::Of(std::wstring_view(text));
    EXPECT_EQ(TxtLenW(buffer.As<wchar_t>()), wcslen(text));
  }
}

TEST_F(TextTest, CopiesIncludeTheTerminator) {
  for (std::string text : {"", "x", "copied text"}) {
    GuardedBuffer target(text.size() + 1);
    GuardedBuffer source = GuardedBuffer::Of(text);
    EXPECT_EQ(TxtCopyA(target.Data(), source.Data()), target.Data());
    EXPECT_STREQ(target.Data(), text.c_str());
  }
  for (std::wstring text : {L"", L"x", L"copied \xE9\xD83D\xDE00"}) {
    GuardedBuffer target((text.size() + 1) * sizeof(wchar_t));
    GuardedBuffer source = GuardedBuffer::Of(text);
    EXPECT_EQ(TxtCopyW(target.As<wchar_t>(), source.As<wchar_t>()), target.As<wchar_t>());
    EXPECT_EQ(std::wstring(target.As<wchar_t>()), text);
  }
}

TEST_F(TextTest, CountedCopyFillsTheWholeBuffer) {
  struct Case {
    const char* source;
    size_t size;
    std::string expected;
  } cases[] = {
      {"abc", 0, ""},
      {"abc", 1, std::string(1, '\0')},
      {"abc", 2, std::string("a\0", 2)},
      {"abc", 3, std::string("ab\0", 3)},
      {"abc", 4, std::string("abc\0", 4)},
      {"abc", 8, std::string("abc\0\0\0\0\0", 8)},
      {"", 1, std::string(1, '\0')},
      {"", 5, std::string(5, '\0')},
  };
  for (const Case& c : cases) {
    GuardedBuffer target(c.size);
    GuardedBuffer source = GuardedBuffer::Of(std::string_view(c.source));
    EXPECT_EQ(TxtCopyNA(target.Data(), source.Data(), c.size), target.Data());
    EXPECT_EQ(std::string(target.Data(), c.size), c.expected) << c.source << ' ' << c.size;
  }
}

TEST_F(TextTest, CountedCopyReadsNoMoreThanItCopies) {
  GuardedBuffer target(4);
  GuardedBuffer source = GuardedBuffer::Of(std::string_view("abc"), false);
  EXPECT_STREQ(TxtCopyNA(target.Data(), source.Data(), 4), "abc");
}

TEST_F(TextTest, FindsTheFirstAndLastUnit) {
  struct Case {
    const char* text;
    char unit;
    ptrdiff_t first, firstWide, last;
  } cases[] = {
      {"abcabc", 'a', 0, 0, 3},
      {"abcabc", 'c', 2, 2, 5},
      {"abcabc", 'x', -1, -1, -1},
      {"", 'x', -1, -1, -1},
      // Only the 8-bit forward search finds the terminator.
      {"abc", '\0', 3, -1, -1},
      {"", '\0', 0, -1, -1},
      {"x", 'x', 0, 0, 0},
  };
  for (const Case& c : cases) {
    GuardedBuffer narrow = GuardedBuffer::Of(std::string_view(c.text));
    std::wstring wideText(c.text, c.text + strlen(c.text));
    GuardedBuffer wide = GuardedBuffer::Of(wideText);
    wchar_t wideUnit = static_cast<unsigned char>(c.unit);
    EXPECT_EQ(Offset<char>(narrow.Data(), TxtFindCharA(narrow.Data(), c.unit)), c.first) << c.text;
    EXPECT_EQ(Offset<char>(narrow.Data(), TxtFindLastCharA(narrow.Data(), c.unit)), c.last) << c.text;
    EXPECT_EQ(Offset<wchar_t>(wide.As<wchar_t>(), TxtFindCharW(wide.As<wchar_t>(), wideUnit)), c.firstWide)
        << c.text;
    EXPECT_EQ(Offset<wchar_t>(wide.As<wchar_t>(), TxtFindLastCharW(wide.As<wchar_t>(), wideUnit)), c.last)
        << c.text;
  }
  // Wide units are compared as a whole.
  EXPECT_EQ(TxtFindCharW(L"\x0161", L'a'), nullptr);
  EXPECT_EQ(TxtFindLastCharW(L"\x0161", L'a'), nullptr);
}

TEST_F(TextTest, CuttingEndsTheTextAtTheFirstUnit) {
  wchar_t twice[] = L"a*b*c";
  EXPECT_EQ(TxtCutW(twice, L'*'), twice + 2);
  EXPECT_EQ(std::wstring(twice, 5), std::wstring(L"a\0b*c", 5));
  wchar_t first[] = L"*b";
  EXPECT_EQ(TxtCutW(first, L'*'), first + 1);
  EXPECT_STREQ(first, L"");
  wchar_t last[] = L"a*";
  EXPECT_EQ(TxtCutW(last, L'*'), last + 2);
  EXPECT_STREQ(last, L"a");
  wchar_t without[] = L"ab";
  EXPECT_EQ(TxtCutW(without, L'*'), nullptr);
  EXPECT_STREQ(without, L"ab");
  wchar_t empty[] = L"";
  EXPECT_EQ(TxtCutW(empty, L'*'), nullptr);
}

TEST_F(TextTest, FindsASubstring) {
  struct Case {
    const char* text;
    const char* wanted;
    ptrdiff_t expected;
  } cases[] = {
      {"abc", "abc", 0}, {"abc", "b", 1},      {"abc", "c", 2},   {"abc", "abcd", -1}, {"abc", "B", -1},
      {"abc", "", 0},    {"", "", -1},         {"", "a", -1},     {"aab", "ab", 1},    {"aaab", "aab", 1},
      {"abab", "b", 1},  {"abcabd", "abd", 3}, {"ab", "abb", -1}, {"xay", "a", 1},
  };
  for (const Case& c : cases) {
    GuardedBuffer text = GuardedBuffer::Of(std::string_view(c.text));
    GuardedBuffer wanted = GuardedBuffer::Of(std::string_view(c.wanted));
    EXPECT_EQ(Offset<char>(text.Data(), TxtFindA(text.Data(), wanted.Data())), c.expected)
        << c.text << " / " << c.wanted;
  }
}

TEST_F(TextTest, ByteComparisonGivesTheDifference) {
  EXPECT_EQ(TxtCompareA("", ""), 0);
  EXPECT_EQ(TxtCompareA("same", "same"), 0);
  EXPECT_EQ(TxtCompareA("a", "c"), -2);
  EXPECT_EQ(TxtCompareA("xyd", "xya"), 3);
  EXPECT_EQ(TxtCompareA("a", "A"), 'a' - 'A');
  EXPECT_EQ(TxtCompareA("ab", "a"), 'b');
  EXPECT_EQ(TxtCompareA("a", "ab"), -'b');
  EXPECT_EQ(TxtCompareA("\xC3\xA9", "z"), 0xC3 - 'z');
  GuardedBuffer a = GuardedBuffer::Of(std::string_view("equal"));
  GuardedBuffer b = GuardedBuffer::Of(std::string_view("equal"));
  EXPECT_EQ(TxtCompareA(a.Data(), b.Data()), 0);
}

TEST_F(TextTest, LocaleComparisonsOrderAsTheUserExpects) {
  struct Case {
    const char* a;
    const char* b;
    int ignoringCase, withCase;
  } cases[] = {
      {"", "", 0, 0},        {"abc", "abc", 0, 0},     {"abc", "ABC", 0, -1}, {"ABC", "abc", 0, 1},
      {"a", "B", -1, -1},    {"B", "a", 1, 1},         {"a", "", 1, 1},       {"", "a", -1, -1},
      {"ab", "abc", -1, -1}, {"co-op", "co-op", 0, 0},
  };
  for (const Case& c : cases) {
    std::wstring a(c.a, c.a + strlen(c.a));
    std::wstring b(c.b, c.b + strlen(c.b));
    EXPECT_EQ(TxtCompareIA(c.a, c.b), c.ignoringCase) << c.a << " / " << c.b;
    EXPECT_EQ(TxtCompareIW(a.c_str(), b.c_str()), c.ignoringCase) << c.a << " / " << c.b;
    EXPECT_EQ(TxtCompareW(a.c_str(), b.c_str()), c.withCase) << c.a << " / " << c.b;
  }
}

TEST_F(TextTest, LocaleComparisonsPassTheRulesToTheSystem) {
  using Call = std::tuple<LCID, DWORD, std::string, int, std::string, int>;
  std::vector<Call> calls;
  int answer = CSTR_LESS_THAN;
  HX_HOOK(narrow, CompareStringA, [&](LCID locale, DWORD flags, LPCCH a, int lengthA, LPCCH b, int lengthB) {
    calls.emplace_back(locale, flags, a, lengthA, b, lengthB);
    return answer;
  });
  HX_HOOK(wide, CompareStringW, [&](LCID locale, DWORD flags, LPCWCH a, int lengthA, LPCWCH b, int lengthB) {
    calls.emplace_back(locale, flags, std::string(a, a + wcslen(a)), lengthA, std::string(b, b + wcslen(b)),
                       lengthB);
    return answer;
  });
  const DWORD ignoreCase = NORM_IGNORECASE | SORT_STRINGSORT;
  for (auto [given, expected] :
       {std::pair(CSTR_LESS_THAN, -1), {CSTR_EQUAL, 0}, {CSTR_GREATER_THAN, 1}, {0, -2}}) {
    answer = given;
    calls.clear();
    EXPECT_EQ(TxtCompareIA("a", "b"), expected);
    EXPECT_EQ(TxtCompareIW(L"a", L"b"), expected);
    EXPECT_EQ(TxtCompareW(L"a", L"b"), expected);
    EXPECT_EQ(TxtCompareNIA("aaa", "b", 2), expected);
    // An empty text is passed as a terminated one, not with a length of 0.
    EXPECT_EQ(TxtCompareNIA("aaa", "", 2), expected);
    EXPECT_EQ(calls, (std::vector<Call>{{LOCALE_USER_DEFAULT, ignoreCase, "a", -1, "b", -1},
                                        {LOCALE_USER_DEFAULT, ignoreCase, "a", -1, "b", -1},
                                        {LOCALE_USER_DEFAULT, SORT_STRINGSORT, "a", -1, "b", -1},
                                        {LOCALE_USER_DEFAULT, ignoreCase, "aaa", 2, "b", 1},
                                        {LOCALE_USER_DEFAULT, ignoreCase, "aaa", 2, "", -1}}));
  }
}

TEST_F(TextTest, CountedComparisonStopsAtTheCount) {
  EXPECT_EQ(TxtCompareNIA("abcX", "ABCY", 3), 0);
  EXPECT_EQ(TxtCompareNIA("abcX", "ABCY", 4), -1);
  EXPECT_EQ(TxtCompareNIA("b", "a", 0), 0);
  EXPECT_EQ(TxtCompareNIA("", "", 5), 0);
  EXPECT_EQ(TxtCompareNIA("a", "", 5), 1);
  EXPECT_EQ(TxtCompareNIA("", "a", 5), -1);
  EXPECT_EQ(TxtCompareNIA("abc", "abcd", 100), -1);
  // A terminator ends a text before the count does, and a text needs none within the count.
  EXPECT_EQ(TxtCompareNIA("abc\0x", "ABC\0y", 5), 0);
  GuardedBuffer a = GuardedBuffer::Of(std::string_view("same"), false);
  GuardedBuffer b = GuardedBuffer::Of(std::string_view("SAME"), false);
  EXPECT_EQ(TxtCompareNIA(a.Data(), b.Data(), 4), 0);
  EXPECT_EQ(TxtCompareNIA("abc", "ABC", SIZE_MAX), 0);
}

TEST_F(TextTest, BytesAreCopiedMovedAndFilled) {
  std::string source;
  for (int i = 0; i < 40; ++i) source += static_cast<char>(i + 1);
  for (size_t size = 0; size <= 40; ++size) {
    GuardedBuffer from = GuardedBuffer::Of(std::string_view(source).substr(0, size), false);
    GuardedBuffer to(size);
    CopyBytes(to.Data(), from.Data(), size);
    EXPECT_EQ(std::string(to.Data(), size), source.substr(0, size));
    FillBytes(to.Data(), 0xA7, size);
    EXPECT_EQ(std::string(to.Data(), size), std::string(size, '\xA7'));
    for (size_t from2 = 0; from2 <= 40 - size; from2 += 3) {
      for (size_t to2 = 0; to2 <= 40 - size; ++to2) {
        std::string moved = source;
        std::string expected = source;
        expected.replace(to2, size, source.substr(from2, size));
        MoveBytes(moved.data() + to2, moved.data() + from2, size);
        ASSERT_EQ(moved, expected) << size << ' ' << from2 << ' ' << to2;
      }
    }
  }
}

TEST_F(TextTest, ParsesLeadingDigits) {
  struct Case {
    const char* text;
    unsigned expected;
  } cases[] = {
      {"", 0},
      {"x", 0},
      {"-1", 0},
      {" 1", 0},
      {"0", 0},
      {"7", 7},
      {"007", 7},
      {"42x7", 42},
      {"65535", 65535},
      {"4294967295", UINT_MAX},
      {"4294967296", UINT_MAX},
      {"99999999999999999999999999", UINT_MAX},
      {"1/", 1},
      {"1:", 1},
      {"9", 9},
  };
  for (const Case& c : cases) {
    GuardedBuffer text = GuardedBuffer::Of(std::string_view(c.text));
    EXPECT_EQ(ParseDecimalA(text.Data()), c.expected) << c.text;
  }
}

TEST_F(TextTest, ConvertsUtf8ToWide) {
  struct Case {
    std::string text;
    int length;
    std::wstring expected;
  } cases[] = {
      {"", -1, L""},
      {"abc", -1, L"abc"},
      {"abc", 2, L"ab"},
      {"abc", 0, L""},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", -1, L"\xE9\x20AC\xD83D\xDE00"},
      {"\xF0\x9F\x98\x80!", 4, L"\xD83D\xDE00"},
      {"a\xFFz", -1, L"a\xFFFDz"},
      {"abc", -7, L"abc"},
  };
  for (const Case& c : cases) {
    GuardedBuffer text = GuardedBuffer::Of(c.text, c.length < 0);
    EXPECT_EQ(TakeW(Utf8ToWide(text.Data(), c.length)), c.expected) << c.text << ' ' << c.length;
  }
  EXPECT_EQ(Utf8ToWide(nullptr, -1), nullptr);
  EXPECT_EQ(Utf8ToWide(nullptr, 3), nullptr);
}

TEST_F(TextTest, ConvertsWideToUtf8) {
  struct Case {
    std::wstring text;
    int length;
    std::string expected;
  } cases[] = {
      {L"", -1, ""},
      {L"abc", -1, "abc"},
      {L"abc", 2, "ab"},
      {L"abc", 0, ""},
      {L"\xE9\x20AC\xD83D\xDE00", -1, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {L"a\xD83Dz", -1, "a\xEF\xBF\xBDz"},
  };
  for (const Case& c : cases) {
    GuardedBuffer text = GuardedBuffer::Of(c.text, c.length < 0);
    int length = -5;
    EXPECT_EQ(TakeA(WideToUtf8(text.As<wchar_t>(), c.length, &length)), c.expected);
    EXPECT_EQ(length, static_cast<int>(c.expected.size()));
    EXPECT_EQ(TakeA(WideToUtf8(text.As<wchar_t>(), c.length, nullptr)), c.expected);
  }
  EXPECT_EQ(WideToUtf8(nullptr, -1, nullptr), nullptr);
}

TEST_F(TextTest, ConversionsAllocateTheRightSizeAndPassTheRightLimit) {
  SIZE_T allocated = 0;
  DWORD allocationFlags = 0;
  HX_HOOK(heap, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) {
    allocated = size;
    allocationFlags = flags;
    return heap.Next(process, flags, size);
  });
  std::tuple<UINT, DWORD, int, int> asked;
  HX_HOOK(toWide, MultiByteToWideChar,
          [&](UINT page, DWORD flags, LPCCH text, int length, LPWSTR buffer, int room) {
            asked = {page, flags, length, room};
            return toWide.Next(page, flags, text, length, buffer, room);
          });
  HX_HOOK(toUtf8, WideCharToMultiByte,
          [&](UINT page, DWORD flags, LPCWCH text, int length, LPSTR buffer, int room, LPCCH standIn,
              LPBOOL used) {
            EXPECT_EQ(standIn, nullptr);
            EXPECT_EQ(used, nullptr);
            asked = {page, flags, length, room};
            return toUtf8.Next(page, flags, text, length, buffer, room, standIn, used);
          });
  TakeW(Utf8ToWide("twelve bytes", -1));
  EXPECT_EQ(allocated, (12u + 2) * 4 + 512);
  EXPECT_EQ(allocationFlags, DWORD{HEAP_ZERO_MEMORY});
  EXPECT_EQ(asked, std::tuple(UINT{CP_UTF8}, 0u, 12, 2 * (12 + 2) - 1));
  TakeW(Utf8ToWide("twelve bytes", 6));
  EXPECT_EQ(allocated, (6u + 2) * 4 + 512);
  EXPECT_EQ(asked, std::tuple(UINT{CP_UTF8}, 0u, 6, 2 * (6 + 2) - 1));
  TakeA(WideToUtf8(L"twelve units", -1, nullptr));
  EXPECT_EQ(allocated, (12u + 2) * 6 + 256);
  EXPECT_EQ(asked, std::tuple(UINT{CP_UTF8}, 0u, 12, (12 + 2) * 6 - 1));
}

TEST_F(TextTest, ConversionsOfHugeLengthsComputeTheirSizeWithoutOverflow) {
  // The allocation fails, so the text is never read.
  SIZE_T allocated = 0;
  HX_HOOK(heap, HeapAlloc, [&](HANDLE, DWORD, SIZE_T size) -> LPVOID {
    allocated = size;
    return nullptr;
  });
  EXPECT_EQ(Utf8ToWide("x", INT_MAX), nullptr);
  EXPECT_EQ(allocated, (size_t{INT_MAX} + 2) * 4 + 512);
  EXPECT_EQ(WideToUtf8(L"x", INT_MAX, nullptr), nullptr);
  EXPECT_EQ(allocated, (size_t{INT_MAX} + 2) * 6 + 256);
}

// The system takes the sizes of buffers as signed numbers.
TEST_F(TextTest, ConversionsOfHugeLengthsPassTheLargestLimit) {
  HX_HOOK(heap, HeapAlloc,
          [&](HANDLE process, DWORD flags, SIZE_T) { return heap.Next(process, flags, 16); });
  std::vector<int> limits;
  HX_HOOK(toWide, MultiByteToWideChar, [&](UINT, DWORD, LPCCH, int length, LPWSTR, int limit) {
    EXPECT_EQ(length, INT_MAX);
    limits.push_back(limit);
    return 1;
  });
  HX_HOOK(toUtf8, WideCharToMultiByte, [&](UINT, DWORD, LPCWCH, int length, LPSTR, int limit, LPCCH, LPBOOL) {
    EXPECT_EQ(length, INT_MAX);
    limits.push_back(limit);
    return 1;
  });
  EXPECT_EQ(TakeW(Utf8ToWide("x", INT_MAX)), L"");
  EXPECT_EQ(TakeA(WideToUtf8(L"x", INT_MAX, nullptr)), "");
  EXPECT_EQ(limits, (std::vector<int>{INT_MAX, INT_MAX}));
}

TEST_F(TextTest, ConversionsSurviveEveryFailure) {
  {
    HX_HOOK(heap, HeapAlloc, [&](HANDLE, DWORD, SIZE_T) -> LPVOID { return nullptr; });
    EXPECT_EQ(Utf8ToWide("text", -1), nullptr);
    EXPECT_EQ(Utf8ToWide("", -1), nullptr);
    EXPECT_EQ(WideToUtf8(L"text", -1, nullptr), nullptr);
  }
  HX_HOOK(toWide, MultiByteToWideChar, [](UINT, DWORD, LPCCH, int, LPWSTR, int) { return 0; });
  HX_HOOK(toUtf8, WideCharToMultiByte, [](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; });
  EXPECT_EQ(Utf8ToWide("text", -1), nullptr);
  EXPECT_EQ(WideToUtf8(L"text", -1, nullptr), nullptr);
  // An empty text needs no conversion.
  EXPECT_EQ(TakeW(Utf8ToWide("", -1)), L"");
  EXPECT_EQ(TakeA(WideToUtf8(L"", -1, nullptr)), "");
  EXPECT_EQ(LiveBlocks(), 0u);
}

}  // namespace text_test
