// Path texts with "/" and other characters that no name can have: a path names the folder that Windows opens
// for the text, or none; never another existing one.

#include <random>

#include "unit/files/made_up_disk.h"
#include "unit/files/tree_tools.h"
#include "unit/paths/path_tools.h"

namespace path_separators_test {

HX_INTERNAL(PathFromWide);
HX_INTERNAL(PathFromUtf8);
HX_INTERNAL(PathFromWrittenWide);
HX_INTERNAL(PathFromWrittenUtf8);
HX_INTERNAL(PathJoin);

using path_test::TakeWideOf;

/// Returns the folder that Windows opens for a path; empty if none.
std::wstring Opened(const std::wstring& path) {
  HANDLE folder = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (folder == INVALID_HANDLE_VALUE) return {};
  BY_HANDLE_FILE_INFORMATION facts;
  bool isKnown = GetFileInformationByHandle(folder, &facts) != 0;
  CloseHandle(folder);
  if (!isKnown) return {};
  return std::to_wstring(facts.dwVolumeSerialNumber) + L":" + std::to_wstring(facts.nFileIndexHigh) + L":" +
         std::to_wstring(facts.nFileIndexLow);
}

class PathSeparatorsTest : public rig::InternalsTest {
 protected:
  tree_test::OwnFolder folder_;

  std::wstring Wide(const std::wstring& text) { return TakeWideOf(PathFromWide(text.c_str())); }
  std::wstring Written(std::wstring text) { return TakeWideOf(PathFromWrittenWide(text.data())); }
  std::wstring WrittenUtf8(const std::wstring& text) {
    std::string utf8 = rig::ToUtf8(text);
    return TakeWideOf(PathFromWrittenUtf8(utf8.data()));
  }
};

TEST_F(PathSeparatorsTest, AComponentWithASlashIsNotLookedUp) {
  for (const wchar_t* name : {L"Data", L"Data\\sub", L"Sub"}) tree_test::MakeFolder(folder_ / name);
  EXPECT_EQ(Wide(folder_ / L"Data/sub"), folder_ / L"Data/sub");
  EXPECT_EQ(TakeWideOf(PathFromUtf8(rig::ToUtf8(folder_ / L"Data/sub").c_str())), folder_ / L"Data/sub");
  path_test::Path own(PathFromWide(folder_.Path().c_str()));
  EXPECT_EQ(TakeWideOf(PathJoin(own.get(), "data/sub")), folder_ / L"data/sub");
  // If a person wrote it, it is two components.
  EXPECT_EQ(Written(folder_ / L"Data/sub"), folder_ / L"Data\\sub");
  EXPECT_EQ(WrittenUtf8(folder_ / L"Data/sub"), folder_ / L"Data\\sub");
  EXPECT_EQ(Written(L"C:/Program Files/None/"), L"C:\\Program Files\\None");
}

TEST_F(PathSeparatorsTest, NullAndEmptyTextGiveNull) {
  EXPECT_EQ(PathFromWrittenWide(nullptr), nullptr);
  EXPECT_EQ(PathFromWrittenUtf8(nullptr), nullptr);
  EXPECT_EQ(Written(L""), L"(null)");
}

TEST_F(PathSeparatorsTest, NamesWithInvalidCharactersAreNotLookedUp) {
  path_test::MadeUpDisk disk;
  for (const wchar_t* bad :
       {L"D?TA", L"D<TA", L"D>TA", L"D\"TA", L"D|TA", L"D:TA", L"D/TA", L"D\x1FTA", L"D\x01"}) {
    SCOPED_TRACE(rig::ToUtf8(bad));
    disk.lookups.clear();
    std::wstring last = std::wstring(L"C:\\some folder\\") + bad;
    EXPECT_EQ(Wide(last), last);
    EXPECT_EQ(disk.lookups, (path_test::Lookups{}));
    // Other components of the path are looked up, as far as Windows finds them.
    EXPECT_EQ(Wide(last + L"\\sub"), last + L"\\sub");
    EXPECT_EQ(disk.lookups, (path_test::Lookups{last + L"\\sub"}));
    disk.lookups.clear();
    path_test::Path folder("C:\\f");
    EXPECT_EQ(TakeWideOf(PathJoin(folder.get(), rig::ToUtf8(bad).c_str())), std::wstring(L"C:\\f\\") + bad);
    EXPECT_EQ(disk.lookups, (path_test::Lookups{}));
  }
  // Names with other characters are looked up.
  for (const wchar_t* good : {L"D TA", L"D~TA", L"D!TA", L"D\x7FTA", L"D\x80TA", L"D\u00E9TA", L"D'TA"}) {
    disk.lookups.clear();
    std::wstring last = std::wstring(L"C:\\some folder\\") + good;
    EXPECT_EQ(Wide(last), last);
    EXPECT_EQ(disk.lookups, (path_test::Lookups{last})) << rig::ToUtf8(good);
  }
}

TEST_F(PathSeparatorsTest, ThePathNamesTheFolderThatWindowsOpens) {
  constexpr unsigned kSeed = 20262;
  std::mt19937 random(kSeed);
  auto below = [&](unsigned limit) { return random() % limit; };
  // Every name exists in every folder, so that a name cut in two finds another folder.
  const std::vector<std::wstring> names = {L"A", L"B", L"Data", L"sub", L"data sub", L"Long folder name"};
  for (const std::wstring& first : names) {
    tree_test::MakeFolder(folder_ / first);
    for (const std::wstring& second : names) tree_test::MakeFolder(folder_ / (first + L"\\" + second));
  }
  static const wchar_t* const kSeparators[] = {L"\\", L"\\", L"/", L"/", L"\\\\", L"//", L"\\/", L"/\\"};
  static const wchar_t* const kOdd[] = {L"D?ta", L"s<", L"\"", L"A|B", L"A:x", L"none", L"."};
  const std::wstring root = Opened(folder_.Path());
  ASSERT_FALSE(root.empty());
  int opened = 0;
  for (int one = 0; one < 1000; ++one) {
    std::wstring tail;
    for (unsigned left = 1 + below(3); left > 0; --left) {
      tail += kSeparators[below(std::size(kSeparators))];
      std::wstring name =
          below(12) == 0 ? kOdd[below(std::size(kOdd))] : names[below(unsigned(names.size()))];
      if (below(4) == 0) CharUpperW(name.data());
      tail += name;
    }
    if (below(2) == 0) tail += kSeparators[below(std::size(kSeparators))];
    const std::wstring text = folder_.Path() + tail;
    const std::wstring wanted = Opened(text);
    opened += wanted.empty() ? 0 : 1;
    SCOPED_TRACE("seed " + std::to_string(kSeed) + ", " + std::to_string(one) + ": " + rig::ToUtf8(text));
    std::string utf8 = rig::ToUtf8(text);
    path_test::Path own(PathFromWide(folder_.Path().c_str()));
    const std::wstring paths[] = {
        Wide(text),
        TakeWideOf(PathFromUtf8(utf8.c_str())),
        Written(text),
        WrittenUtf8(text),
        TakeWideOf(PathJoin(own.get(), rig::ToUtf8(tail).c_str())),
        TakeWideOf(PathJoin(own.get(), rig::ToUtf8(tail).substr(1).c_str())),
    };
    for (const std::wstring& path : paths) {
      const std::wstring named = Opened(path);
      ASSERT_TRUE(named == wanted || named.empty()) << rig::ToUtf8(path);
      // Text that a person wrote leads to the folder, if it exists.
      if (&path == &paths[2] || &path == &paths[3]) ASSERT_EQ(named, wanted) << rig::ToUtf8(path);
    }
  }
  EXPECT_GT(opened, 300);
}

}  // namespace path_separators_test
