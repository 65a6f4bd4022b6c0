// Paths spelled as on the disk, with a disk that the test makes up: which names are looked up, by which path,
// and how the answers are used.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "paths/path.h"
#include "unit/files/made_up_disk.h"
#include "unit/paths/path_tools.h"

namespace path_test {

using PathLookupTest = rig::InternalsTest;
TEST_F(PathLookupTest, PathsFromText) {
  struct Case {
    const char* text;
    bool completed;  // by GetFullPathNameW, which answers "C:\Current\<text>"
    Lookups lookups;
    const char* expected;
  } cases[] = {
      {"C:\\Temp", false, {L"C:\\Temp"}, "C:\\TEMP"},
      {"c:\\PROGRA~1\\x", false, {L"c:\\PROGRA~1", L"c:\\PROGRA~1\\x"}, "c:\\PROGRA~1\\x"},
      {"C:\\Temp\\", false, {L"C:\\Temp"}, "C:\\TEMP"},
      {"C:\\", false, {}, "C:\\"},
      {"x", true, {L"C:\\Current", L"C:\\Current\\x"}, "C:\\Current\\x"},
      // A name with a character that no name can have is not looked up.
      {"C:x", true, {L"C:\\Current"}, "C:\\Current\\C:x"},
      {"C:", true, {L"C:\\Current"}, "C:\\Current\\C:"},
      {"C:/x", true, {L"C:\\Current"}, "C:\\Current\\C:/x"},
      {"\\x", true, {L"C:\\Current", L"C:\\Current\\\\x"}, "C:\\Current\\\\x"},
      {"\xC3\xA9\xF0\x9F\x98\x80",
       true,
       {L"C:\\Current", L"C:\\Current\\\xE9\xD83D\xDE00"},
       "C:\\Current\\\xC3\xA9\xF0\x9F\x98\x80"},
      // Patterns are used unchanged.
      {"C:\\Temp\\*.*", false, {}, "C:\\Temp\\*.*"},
      {"*", false, {}, "\\*"},
      {"C:\\T*\\x\\", false, {}, "C:\\T*\\x"},
      {"..\\*", false, {}, "(null)"},
      {"", false, {}, "(null)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::wstring wide;
    {
      int length = MultiByteToWideChar(CP_UTF8, 0, c.text, -1, nullptr, 0);
      wide.resize(static_cast<size_t>(length));
      MultiByteToWideChar(CP_UTF8, 0, c.text, -1, wide.data(), length);
      wide.pop_back();
    }
    GuardedBuffer wideText = GuardedBuffer::Of(wide);
    GuardedBuffer utf8Text = GuardedBuffer::Of(std::string_view(c.text));
    for (bool fromWide : {false, true}) {
      MadeUpDisk disk;
      disk.entries = {{L"C:\\Temp", {L"TEMP", L""}}};
      int completions = 0;
      HX_HOOK(full, GetFullPathNameW, [&](LPCWSTR text, DWORD capacity, LPWSTR buffer, LPWSTR* part) {
        EXPECT_EQ(part, nullptr);
        EXPECT_EQ(capacity, 1025u);
        EXPECT_EQ(std::wstring(text), wide);
        ++completions;
        std::wstring answer = L"C:\\Current\\" + std::wstring(text);
        wcscpy(buffer, answer.c_str());
        return static_cast<DWORD>(answer.size());
      });
      EXPECT_EQ(TakeNodes(fromWide ? PathFromWide(wideText.As<wchar_t>()) : PathFromUtf8(utf8Text.Data())),
                c.expected);
      EXPECT_EQ(completions, c.completed ? 1 : 0);
      EXPECT_EQ(disk.lookups, c.lookups);
    }
  }
  EXPECT_EQ(PathFromWide(nullptr), nullptr);
  EXPECT_EQ(PathFromUtf8(nullptr), nullptr);
  // A pattern in UTF-8 is not even converted.
  EXPECT_EQ(TakeNodes(PathFromUtf8("C:\\\xFF*")), "C:\\\xFF*");
}

TEST_F(PathLookupTest, TheBufferOfACompletedPathGrowsToWhatIsReported) {
  // The sizes that the call reports in turn; a size below the capacity means that it has stored the path.
  struct Case {
    std::vector<DWORD> reports;
    std::vector<DWORD> capacities;
    bool succeeds;
  } cases[] = {
      {{1024}, {1025}, true},
      {{1025, 5}, {1025, 1026}, true},
      {{2000, 1999}, {1025, 2001}, true},
      {{2000, 2001, 3000, 2999}, {1025, 2001, 2002, 3001}, true},
      {{0}, {1025}, false},
      {{1500, 0}, {1025, 1501}, false},
  };
  for (const Case& c : cases) {
    MadeUpDisk disk;
    std::vector<DWORD> capacities;
    SIZE_T allocated = 0;
    HX_HOOK(take, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) {
      allocated = size;
      return take.Next(process, flags, size);
    });
    HX_HOOK(grow, HeapReAlloc, [&](HANDLE process, DWORD flags, LPVOID block, SIZE_T size) {
      allocated = size;
      return grow.Next(process, flags, block, size);
    });
    HX_HOOK(full, GetFullPathNameW, [&](LPCWSTR, DWORD capacity, LPWSTR buffer, LPWSTR*) -> DWORD {
      EXPECT_EQ(allocated, capacity * sizeof(wchar_t) + 512);
      DWORD report = c.reports[capacities.size()];
      capacities.push_back(capacity);
      if (report && report < capacity) wcscpy(buffer, L"D:\\full");
      return report;
    });
    EXPECT_EQ(TakeNodes(PathFromWide(L"x")), c.succeeds ? "D:\\full" : "(null)");
    EXPECT_EQ(capacities, c.capacities);
  }
}

TEST_F(PathLookupTest, JoinsLookUpLikelyShortNames) {
  struct Case {
    const char* folder;
    const char* name;
    Lookups lookups;
    const char* expected;
  } cases[] = {
      {"C:\\Data", "LONGNA~1", {L"C:\\Data\\LONGNA~1"}, "C:\\Data|\\Long name.text"},
      {"C:\\Data", "abc", {L"C:\\Data\\abc"}, "C:\\Data|\\ABC"},
      {"C:\\Data", "none", {L"C:\\Data\\none"}, "C:\\Data|\\none"},
      {"C:\\", "abc", {L"C:\\abc"}, "C:\\Abc"},
      {"C:", "abc", {L"C:\\abc"}, "C:|\\Abc"},
      {"", "abc", {L"\\abc"}, "\\abc"},
      // A drive is not the name of an entry.
      {"", "C:", {}, "C:"},
      {"\\\\s\\t|\\u", "abc", {L"\\\\s\\t\\u\\abc"}, "\\\\s\\t|\\u|\\abc"},
      // The short name is used if the long one cannot be expressed.
      {"C:\\Data", "marks", {L"C:\\Data\\marks"}, "C:\\Data|\\MARKS~1"},
      {"C:\\Data", "marks2", {L"C:\\Data\\marks2"}, "C:\\Data|\\??"},
      {"C:\\Data", "beyond", {L"C:\\Data\\beyond"}, "C:\\Data|\\\xF0\x9F\x98\x80"},
      // Unchanged: patterns, more than one name, too long, not the shape.
      {"C:\\Data", "a*", {}, "C:\\Data|\\a*"},
      {"C:\\Data", "*", {}, "C:\\Data|\\*"},
      {"C:\\Data", "x\\abc", {}, "C:\\Data|\\x\\abc"},
      {"C:\\Data", "\\abc", {}, "C:\\Data|\\abc"},
      {"C:\\Data", "abc\\", {}, "C:\\Data|\\abc"},
      {"C:\\Data", "12345678.1234", {}, "C:\\Data|\\12345678.1234"},
      {"C:\\Data", "1234567890123", {}, "C:\\Data|\\1234567890123"},
      {"C:\\Data", "12345678.123", {L"C:\\Data\\12345678.123"}, "C:\\Data|\\12345678.123"},
      {"C:\\Data", "a+b", {}, "C:\\Data|\\a+b"},
      {"C:\\Data", "a b", {}, "C:\\Data|\\a b"},
      {"C:\\Data", "123456789", {}, "C:\\Data|\\123456789"},
      // The folder itself, and text that is not a path.
      {"C:\\Data", ".", {}, "C:\\Data"},
      {"C:\\Data", "", {}, "C:\\Data"},
      {"C:\\Data", "..", {}, "(null)"},
      {"", "", {}, "\\"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.folder) + " + " + c.name);
    Path folder{std::string_view(c.folder)};
    MadeUpDisk disk;
    disk.entries = {
        {L"C:\\Data\\LONGNA~1", {L"Long name.text", L"LONGNA~1"}},
        {L"C:\\Data\\abc", {L"ABC", L""}},
        {L"C:\\abc", {L"Abc", L""}},
        {L"C:\\Data\\marks", {L"???", L"MARKS~1"}},
        {L"C:\\Data\\marks2", {L"??", L""}},
        {L"C:\\Data\\beyond", {L"\xD83D\xDE00", L""}},
        {L"C:\\Data\\.", {L"Data", L""}},
        {L"C:\\Data", {L"Data", L""}},
    };
    GuardedBuffer name = GuardedBuffer::Of(std::string_view(c.name));
    PathObject* joined = PathJoin(folder.get(), name.Data());
    EXPECT_EQ(TakeNodes(joined), c.expected);
    EXPECT_EQ(disk.lookups, c.lookups);
    EXPECT_EQ(disk.modeChanges, c.lookups.empty() ? 0 : 2);
    if (folder.get()) EXPECT_EQ(folder->refCount, 1);
  }
  Path folder("C:\\Data");
  EXPECT_EQ(PathJoin(folder.get(), nullptr), nullptr);
  EXPECT_EQ(PathJoin(nullptr, nullptr), nullptr);
}

TEST_F(PathLookupTest, FindsTheFolderOfAPath) {
  struct Case {
    const char* path;
    const char* folder;
  } cases[] = {
      {"C:\\Data\\x", "C:\\Data"},
      {"C:\\Data|\\x", "C:\\Data"},
      {"C:\\Data|\\x\\y", "C:\\Data|\\x"},
      {"C:\\Data", "C:"},
      {"C:\\|Data", "C:"},
      {"C:\\", "C:"},
      {"C:", "C:"},
      {"\\x", "(null)"},
      {"\\", "(null)"},
      {"\\\\server\\share", "\\\\server"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    Path path{std::string_view(c.path)};
    EXPECT_EQ(TakeNodes(PathFolder(path.get())), c.folder);
    EXPECT_EQ(path->refCount, 1);
  }
  EXPECT_EQ(PathFolder(nullptr), nullptr);
  // A drive is its own folder, and the folder of a node is its parent object itself.
  Path drive("C:");
  PathObject* same = PathFolder(drive.get());
  EXPECT_EQ(same, drive.get());
  Release(same);
  Path nested("C:\\Data|\\x");
  PathObject* around = PathFolder(nested.get());
  EXPECT_EQ(around, nested->parent);
  Release(around);
}

TEST_F(PathLookupTest, ReplacesTheLeaf) {
  struct Case {
    const char* path;
    const char* name;
    const char* expected;
  } cases[] = {
      {"C:\\Data\\x", "other name", "C:\\Data|\\other name"},
      {"C:\\Data|\\x", "other name", "C:\\Data|\\other name"},
      {"C:\\Data|\\x\\y", "other name", "C:\\Data|\\x|\\other name"},
      {"C:\\Data|\\x|\\y", "other name", "C:\\Data|\\x|\\other name"},
      {"C:\\Data", "other name", "C:|\\other name"},
      {"C:\\", "other name", "C:|\\other name"},
      {"C:", "other name", "C:|\\other name"},
      {"\\x", "other name", "\\other name"},
      {"\\", "other name", "\\other name"},
      {"\\\\server\\share", "other name", "\\\\server|\\other name"},
      {"\\\\server", "other name", "\\|\\other name"},
      {"\\\\s\\t|\\x", "abc", "\\\\s\\t|\\Abc"},
      {"C:\\Data|\\x", "..", "(null)"},
      {"C:\\Data|\\x", ".", "C:\\Data"},
      {"C:\\Data|\\x", "", "C:\\Data"},
      {"C:\\Data|\\x", "a\\b", "C:\\Data|\\a\\b"},
      // The remaining text may be refused.
      {".\\x", "y", "(null)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.path) + " with " + c.name);
    Path path{std::string_view(c.path)};
    MadeUpDisk disk;
    disk.entries = {{L"\\\\s\\t\\abc", {L"Abc", L""}}};
    GuardedBuffer name = GuardedBuffer::Of(std::string_view(c.name));
    EXPECT_EQ(TakeNodes(PathReplaceLeaf(path.get(), name.Data())), c.expected);
    EXPECT_EQ(path->refCount, 1);
  }
  MadeUpDisk disk;
  disk.entries = {{L"\\abc", {L"Abc", L""}}};
  EXPECT_EQ(TakeNodes(PathReplaceLeaf(nullptr, "abc")), "\\Abc");
  EXPECT_EQ(PathReplaceLeaf(nullptr, nullptr), nullptr);
  Path path("C:\\Data|\\x");
  EXPECT_EQ(PathReplaceLeaf(path.get(), nullptr), nullptr);
  Path link(PathAppendLnk(path.get()));
  EXPECT_EQ(TakeNodes(PathReplaceLeaf(link.get(), "other name")), "C:\\Data|\\other name");
}

}  // namespace path_test
