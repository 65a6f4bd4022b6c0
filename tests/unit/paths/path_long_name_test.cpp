// The shape of short names, the name of a found entry, and the replacement of short names by long ones.

#include "paths/long_name.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "unit/files/made_up_disk.h"
#include "unit/paths/path_tools.h"

namespace path_test {

HX_INTERNAL(HasShortNameShapeA);
HX_INTERNAL(HasShortNameShapeW);
HX_INTERNAL(ExpandLongNames);
HX_INTERNAL(FoundName);

using PathLongNameTest = rig::InternalsTest;

TEST_F(PathLongNameTest, ShapeOfShortNames) {
  struct Case {
    const wchar_t* name;
    bool expected;
  } cases[] = {
      {L"", false},
      {L"a", true},
      {L"12345678", true},
      {L"123456789", false},
      {L"12345678.123", true},
      {L"12345678.1234", false},
      {L"1.123", true},
      {L"1.1234", false},
      {L"123456789.1", false},
      {L"PROGRA~1", true},
      {L".", true},
      {L"..", true},
      {L".txt", true},
      {L".text", false},
      {L"a.b.c", true},
      {L"a.bc.d", false},
      {L"a.b.", true},
      {L"a.", true},
      {L"....", true},
      {L".....", false},
      // Not allowed before the first dot, but allowed after it.
      {L"a b", false},
      {L"a+b", false},
      {L"a,b", false},
      {L"a;b", false},
      {L"a=b", false},
      {L"a[b", false},
      {L"a]b", false},
      {L" ", false},
      {L"a. b", true},
      {L"a.+b", true},
      {L"a.,b", true},
      {L"a.;b", true},
      {L"a.=b", true},
      {L"a.[b", true},
      {L"a.]b", true},
      {L"a?b", true},
      {L"a-b_c!", true},
      {L"a:b", true},
      {L"\xE9\xE9\xE9\xE9\xE9\xE9", true},
  };
  for (const Case& c : cases) {
    std::wstring name = c.name;
    GuardedBuffer wide = GuardedBuffer::Of(name, false);
    EXPECT_EQ(HasShortNameShapeW(wide.As<wchar_t>(), name.size()), c.expected)
        << std::string(name.begin(), name.end());
    std::string bytes;
    for (wchar_t unit : name) bytes += unit == 0xE9 ? "\xC3\xA9" : std::string(1, static_cast<char>(unit));
    GuardedBuffer narrow = GuardedBuffer::Of(bytes, false);
    EXPECT_EQ(HasShortNameShapeA(narrow.Data(), bytes.size()), c.expected) << bytes;
  }
  // 12 units are the most, whatever they are.
  EXPECT_TRUE(HasShortNameShapeW(L"12345678.123", 12));
  EXPECT_FALSE(HasShortNameShapeW(L"1234567890123", 13));
  // Seven bytes of two characters, 13 bytes of seven, and surrogate pairs count as two.
  EXPECT_TRUE(HasShortNameShapeA("\xE2\x82\xAC\xF0\x9F\x98\x80", 7));
  EXPECT_FALSE(HasShortNameShapeA("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9z", 13));
  EXPECT_TRUE(HasShortNameShapeA("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", 12));
  EXPECT_TRUE(HasShortNameShapeA("a.\xF0\x9F\x98\x80z", 7));
  EXPECT_FALSE(HasShortNameShapeA("a.\xF0\x9F\x98\x80zz", 8));
}

TEST_F(PathLongNameTest, TheNameOfAFoundEntry) {
  struct Case {
    const wchar_t* name;
    const wchar_t* alternate;
    const wchar_t* expected;
  } cases[] = {
      {L"Long name", L"LONGNA~1", L"Long name"},
      {L"????", L"ABC~1", L"ABC~1"},
      {L"????", L"", L"????"},
      {L"??a?", L"ABC~1", L"??a?"},
      {L"?", L"A", L"A"},
  };
  for (const Case& c : cases) {
    WIN32_FIND_DATAW found;
    memset(&found, 0xCD, sizeof found);
    wcscpy(found.cFileName, c.name);
    wcscpy(found.cAlternateFileName, c.alternate);
    EXPECT_EQ(std::wstring(FoundName(&found)), c.expected);
  }
}

TEST_F(PathLongNameTest, ExpandsLikelyShortNamesAndTheLastName) {
  struct Case {
    const wchar_t* path;
    Lookups lookups;
    const wchar_t* expected;
  } cases[] = {
      // No backslash: unchanged, without a look-up.
      {L"C:", {}, L"C:"},
      {L"name", {}, L"name"},
      {L"", {}, L""},
      // The drive is never looked up, the last name always.
      {L"C:\\a very long last name", {L"C:\\a very long last name"}, L"C:\\A Very Long Last Name"},
      {L"C:\\PROGRA~1\\x", {L"C:\\PROGRA~1", L"C:\\PROGRA~1\\x"}, L"C:\\Program Files\\x"},
      {L"C:\\PROGRA~1\\OSTREL~1\\abc.txt",
       {L"C:\\PROGRA~1", L"C:\\PROGRA~1\\OSTREL~1", L"C:\\PROGRA~1\\OSTREL~1\\abc.txt"},
       L"C:\\Program Files\\Ostrel Client\\ABC.txt"},
      // Names that cannot be short ones are not looked up, unless they come last.
      {L"C:\\program files\\x", {L"C:\\program files\\x"}, L"C:\\program files\\X"},
      {L"C:\\a+b\\123456789\\a.text\\x",
       {L"C:\\a+b\\123456789\\a.text\\x"},
       L"C:\\a+b\\123456789\\a.text\\x"},
      {L"C:\\1234567890123", {L"C:\\1234567890123"}, L"C:\\1234567890123"},
      // Names that are not found stay; the walk continues below them.
      {L"C:\\none\\PROGRA~1\\x",
       {L"C:\\none", L"C:\\none\\PROGRA~1", L"C:\\none\\PROGRA~1\\x"},
       L"C:\\none\\PROGRA~1\\x"},
      // An empty name is not looked up: after a trailing backslash, between two, at a drive's root.
      {L"C:\\", {}, L"C:\\"},
      {L"C:\\none\\", {L"C:\\none"}, L"C:\\none\\"},
      {L"C:\\\\none", {L"C:\\\\none"}, L"C:\\\\none"},
      // "." and ".." are not entries.
      {L"C:\\none\\..", {L"C:\\none"}, L"C:\\none\\.."},
      {L"C:\\none\\.\\..\\x", {L"C:\\none", L"C:\\none\\.\\..\\x"}, L"C:\\none\\.\\..\\x"},
      {L"C:\\.", {}, L"C:\\."},
      {L"C:\\...", {L"C:\\..."}, L"C:\\..."},
      {L"C:\\.a\\..b", {L"C:\\.a", L"C:\\.a\\..b"}, L"C:\\.a\\..b"},
      // A network name: only its empty start is skipped as the first component.
      {L"\\\\server\\share\\x",
       {L"\\\\server", L"\\\\server\\share", L"\\\\server\\share\\x"},
       L"\\\\server\\share\\x"},
      {L"\\x", {L"\\x"}, L"\\x"},
  };
  for (const Case& c : cases) {
    MadeUpDisk disk;
    disk.entries = {
        {L"C:\\a very long last name", {L"A Very Long Last Name", L"AVERYL~1"}},
        {L"C:\\PROGRA~1", {L"Program Files", L"PROGRA~1"}},
        {L"C:\\PROGRA~1\\OSTREL~1", {L"Ostrel Client", L"OSTREL~1"}},
        {L"C:\\PROGRA~1\\OSTREL~1\\abc.txt", {L"ABC.txt", L""}},
        {L"C:\\program files\\x", {L"X", L""}},
        {L"C:\\none\\..", {L"wrong", L""}},
        {L"C:\\.", {L"wrong", L""}},
        {L"C:\\", {L"wrong", L""}},
    };
    std::wstring path = c.path;
    SCOPED_TRACE(std::string(path.begin(), path.end()));
    GuardedBuffer buffer = GuardedBuffer::Of(path);
    EXPECT_EQ(TakeWide(ExpandLongNames(buffer.As<wchar_t>())), c.expected);
    EXPECT_EQ(disk.lookups, c.lookups);
    EXPECT_EQ(std::wstring(buffer.As<wchar_t>()), path);
    // Set once for the whole walk, and restored.
    EXPECT_EQ(disk.modeChanges, path.find(L'\\') == path.npos ? 0 : 2);
  }
}

TEST_F(PathLongNameTest, ALongNameOfQuestionMarksIsTakenInTheExpansion) {
  MadeUpDisk disk;
  disk.entries = {{L"C:\\A~1", {L"???", L"A~1"}}};
  EXPECT_EQ(TakeWide(ExpandLongNames(L"C:\\A~1")), L"C:\\???");
}

TEST_F(PathLongNameTest, TheExpandedPathGrowsInSteps) {
  MadeUpDisk disk;
  std::wstring path = L"C:";
  std::wstring expected = L"C:";
  for (int i = 0; i < 12; ++i) {
    std::wstring shortName = L"\\S~" + std::to_wstring(i);
    path += shortName;
    std::wstring longName = std::wstring(200 + i, static_cast<wchar_t>(L'a' + i));
    disk.entries[path] = {longName, L""};
    expected += L"\\" + longName;
  }
  std::vector<SIZE_T> sizes;
  HX_HOOK(take, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) {
    sizes.push_back(size);
    return take.Next(process, flags, size);
  });
  HX_HOOK(grow, HeapReAlloc, [&](HANDLE process, DWORD flags, LPVOID block, SIZE_T size) {
    EXPECT_EQ(flags, DWORD{HEAP_ZERO_MEMORY});
    sizes.push_back(size);
    return grow.Next(process, flags, block, size);
  });
  EXPECT_EQ(TakeWide(ExpandLongNames(path.c_str())), expected);
  // The working copy, then the result: 512 more characters each time.
  std::vector<SIZE_T> steps = {(path.size() + 1) * 2};
  for (SIZE_T size = 1024; size <= (expected.size() + 1 + 511) / 512 * 1024; size += 1024)
    steps.push_back(size);
  EXPECT_EQ(sizes, steps);
}

TEST_F(PathLongNameTest, WithoutMemoryForABackslashTheExpansionFails) {
  MadeUpDisk disk;
  std::vector<SIZE_T> sizes;
  HX_HOOK(grow, HeapReAlloc, [&](HANDLE, DWORD, LPVOID, SIZE_T size) -> LPVOID {
    sizes.push_back(size);
    return nullptr;
  });
  // The first name and a terminator fill the first step.
  EXPECT_EQ(ExpandLongNames((std::wstring(511, L'x') + L"\\y").c_str()), nullptr);
  EXPECT_EQ(sizes, std::vector<SIZE_T>{2048});
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(PathLongNameTest, ANameLongerThanAStepFits) {
  MadeUpDisk disk;
  std::wstring path = L"C:\\" + std::wstring(1500, L'x') + L"\\y";
  EXPECT_EQ(TakeWide(ExpandLongNames(path.c_str())), path);
  // Exactly full: 511 characters and the terminator, and one character more.
  for (size_t length : {508, 509, 510}) {
    path = L"C:\\" + std::wstring(length, L'x');
    EXPECT_EQ(TakeWide(ExpandLongNames(path.c_str())), path);
  }
}

}  // namespace path_test
