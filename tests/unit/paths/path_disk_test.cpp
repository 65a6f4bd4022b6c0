// Paths spelled as on the disk, with real folders and files.

#include <gtest/gtest.h>

#include <algorithm>
#include <cwctype>
#include <string>

#include "paths/path.h"
#include "unit/paths/path_tools.h"

namespace path_test {

// The test's own folder below the temporary folder, with entries of every kind.
class PathDiskTest : public rig::InternalsTest {
 protected:
  void SetUp() override {
    rig::InternalsTest::SetUp();
    wchar_t temporary[MAX_PATH];
    ASSERT_NE(GetTempPathW(MAX_PATH, temporary), 0u);
    wchar_t longForm[MAX_PATH];
    ASSERT_NE(GetLongPathNameW(temporary, longForm, MAX_PATH), 0u);
    base_ = longForm + (L"hx paths " + std::to_wstring(GetCurrentProcessId()));
    ASSERT_TRUE(CreateDirectoryW(base_.c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryW((base_ + L"\\Long Folder Name").c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryW((base_ + L"\\MixedCas").c_str(), nullptr));
    for (const wchar_t* name : kFiles) MakeFile(base_ + name);
  }
  void TearDown() override {
    for (const wchar_t* name : kFiles) DeleteFileW((base_ + name).c_str());
    RemoveDirectoryW((base_ + L"\\Long Folder Name").c_str());
    RemoveDirectoryW((base_ + L"\\MixedCas").c_str());
    EXPECT_TRUE(RemoveDirectoryW(base_.c_str()));
    rig::InternalsTest::TearDown();
  }

  static constexpr const wchar_t* kFiles[] = {L"\\Long Folder Name\\Some Long File.text",
                                              L"\\MixedCas\\FiLe.TxT", L"\\one+two",
                                              L"\\MixedCas\\Thirteen.Char"};
  static void MakeFile(const std::wstring& path) {
    HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << Utf8(path) << ": " << GetLastError();
    CloseHandle(file);
  }

  // Returns the short name that the system gives an entry besides its long one.
  static std::wstring ShortName(const std::wstring& path) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(path.c_str(), &found);
    EXPECT_NE(search, INVALID_HANDLE_VALUE);
    if (search == INVALID_HANDLE_VALUE) return {};
    FindClose(search);
    return found.cAlternateFileName;
  }
  static std::string Utf8(const std::wstring& text) {
    std::string bytes(text.size() * 3 + 1, '\0');
    int length = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<size_t>(length));
    return bytes;
  }
  static std::wstring Upper(std::wstring text) {
    for (wchar_t& unit : text) {
      if (unit < 128) unit = static_cast<wchar_t>(towupper(unit));
    }
    return text;
  }

  std::wstring base_;
};

TEST_F(PathDiskTest, ShortNamesBecomeLong) {
  std::wstring folder = base_ + L"\\Long Folder Name";
  std::wstring file = folder + L"\\Some Long File.text";
  std::wstring shortFolder = ShortName(folder);
  std::wstring shortFile = ShortName(file);
  ASSERT_FALSE(shortFolder.empty());
  ASSERT_FALSE(shortFile.empty());
  std::wstring given = base_ + L'\\' + shortFolder + L'\\' + shortFile;
  EXPECT_EQ(TakeWideOf(PathFromWide(given.c_str())), file);
  EXPECT_EQ(TakeWideOf(PathFromUtf8(Utf8(given).c_str())), file);

  Path base(PathFromWide(base_.c_str()));
  Path joined(PathJoin(base.get(), Utf8(shortFolder).c_str()));
  EXPECT_EQ(TakeWide(PathToWide(joined.get())), folder);
  EXPECT_EQ(TakeWideOf(PathJoin(joined.get(), Utf8(shortFile).c_str())), file);
  EXPECT_EQ(TakeWideOf(PathReplaceLeaf(joined.get(), "mixedcas")), base_ + L"\\MixedCas");
}

TEST_F(PathDiskTest, LettersTakeTheirCaseFromTheDisk) {
  // A folder name that may be a short one, and the last name of any shape; but not a long folder name before
  // it.
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\MIXEDCAS\\file.txt").c_str())),
            base_ + L"\\MixedCas\\FiLe.TxT");
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\long folder name").c_str())), base_ + L"\\Long Folder Name");
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\long folder name\\SOME LONG FILE.TEXT").c_str())),
            base_ + L"\\long folder name\\Some Long File.text");

  Path base(PathFromWide(base_.c_str()));
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "MIXEDCAS")), base_ + L"\\MixedCas");
  // Unchanged: not the shape, 13 bytes, a pattern, more than one name.
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "ONE+TWO")), base_ + L"\\ONE+TWO");
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "LONG FOLDER NAME")), base_ + L"\\LONG FOLDER NAME");
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "MIXED*")), base_ + L"\\MIXED*");
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "MIXEDCAS\\FILE.TXT")), base_ + L"\\MIXEDCAS\\FILE.TXT");
  Path mixed(PathJoin(base.get(), "mixedcas"));
  EXPECT_EQ(TakeWideOf(PathJoin(mixed.get(), "THIRTEEN.CHAR")), base_ + L"\\MixedCas\\THIRTEEN.CHAR");
}

TEST_F(PathDiskTest, NonAsciiNames) {
  std::wstring file = base_ + L"\\\xE9t\xE9\x20AC.txt";
  std::wstring pair = base_ + L"\\\xD83D\xDE00.txt";
  MakeFile(file);
  MakeFile(pair);
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\\xE9T\xE9\x20AC.TXT").c_str())), file);
  EXPECT_EQ(TakeWideOf(PathFromUtf8(Utf8(base_ + L"\\\xD83D\xDE00.TXT").c_str())), pair);
  Path base(PathFromWide(base_.c_str()));
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "\xC3\xA9T\xC3\xA9\xE2\x82\xAC.TXT")), file);
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "\xF0\x9F\x98\x80.TXT")), pair);
  DeleteFileW(file.c_str());
  DeleteFileW(pair.c_str());
}

TEST_F(PathDiskTest, MissingNamesStayUnchanged) {
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\nowhere\\MIXEDCAS\\x.y").c_str())),
            base_ + L"\\nowhere\\MIXEDCAS\\x.y");
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\MIXEDCAS\\NONE~1").c_str())), base_ + L"\\MixedCas\\NONE~1");
  Path base(PathFromWide(base_.c_str()));
  EXPECT_EQ(TakeWideOf(PathJoin(base.get(), "NONE~1")), base_ + L"\\NONE~1");
}

TEST_F(PathDiskTest, RelativeNamesStartAtTheCurrentFolder) {
  wchar_t before[MAX_PATH];
  ASSERT_NE(GetCurrentDirectoryW(MAX_PATH, before), 0u);
  ASSERT_TRUE(SetCurrentDirectoryW((base_ + L"\\MixedCas").c_str()));
  EXPECT_EQ(TakeWideOf(PathFromWide(L"FILE.TXT")), base_ + L"\\MixedCas\\FiLe.TxT");
  EXPECT_EQ(TakeWideOf(PathFromUtf8("FILE.TXT")), base_ + L"\\MixedCas\\FiLe.TxT");
  EXPECT_EQ(TakeWideOf(PathFromWide(L".")), base_ + L"\\MixedCas");
  EXPECT_EQ(TakeWideOf(PathFromWide(L"..\\ONE+TWO")), base_ + L"\\one+two");
  EXPECT_EQ(TakeWideOf(PathFromWide(L"../long folder name/x")), base_ + L"\\long folder name\\x");
  EXPECT_EQ(TakeWideOf(PathFromWide((Upper(base_.substr(0, 2)) + L"FILE.TXT").c_str())),
            base_ + L"\\MixedCas\\FiLe.TxT");
  EXPECT_TRUE(SetCurrentDirectoryW(before));
}

TEST_F(PathDiskTest, PatternsAndRoots) {
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\MIXEDCAS\\*.*").c_str())), base_ + L"\\MIXEDCAS\\*.*");
  EXPECT_EQ(TakeWideOf(PathFromUtf8("C:\\Temp\\*.*")), L"C:\\Temp\\*.*");
  EXPECT_EQ(TakeNodes(PathFromWide(L"C:\\")), "C:\\");
  EXPECT_EQ(TakeWideOf(PathFromWide((base_ + L"\\").c_str())), base_);
  EXPECT_EQ(TakeWideOf(PathFromWide(L"\\\\server\\share\\x")), L"\\\\server\\share\\x");
}

TEST_F(PathDiskTest, AVeryLongRelativeNameOutgrowsTheFirstBuffer) {
  std::wstring name(1500, L'n');
  Path path(PathFromWide(name.c_str()));
  ASSERT_NE(path.get(), nullptr);
  std::wstring wide = TakeWide(PathToWide(path.get()));
  ASSERT_GT(wide.size(), 1500u);
  EXPECT_EQ(wide.substr(wide.size() - 1501), L"\\" + name);
}

}  // namespace path_test
