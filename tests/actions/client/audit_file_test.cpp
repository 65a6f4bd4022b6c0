// CustomAction11: the audit file of the machine.

#include <windows.h>
// Needs windows.h first.
#include <shlobj.h>

#include "rig/action_test.h"

namespace audit_file_test {

constexpr char kName[] = "\\Ostrel Audit";
const std::string kEmptied(12, '\0');

class AuditFileTest : public rig::ActionTest {
 protected:
  void SetUp() override {
    rig::ActionTest::SetUp();
    char temporary[MAX_PATH];
    ASSERT_NE(GetTempPathA(MAX_PATH, temporary), 0u);
    static int number = 0;
    folder_ =
        temporary + ("hx audit " + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++number));
    ASSERT_TRUE(CreateDirectoryA(folder_.c_str(), nullptr));
    TheWorld().shell.Set(CSIDL_COMMON_APPDATA, rig::ToWide(folder_));
  }
  void TearDown() override {
    DeleteFileA(File().c_str());
    EXPECT_TRUE(RemoveDirectoryA(folder_.c_str())) << "the action left something else in its folder";
    rig::ActionTest::TearDown();
  }

  std::string File() const { return folder_ + kName; }

  void Write(const std::string& contents) {
    HANDLE file = CreateFileA(File().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    WriteFile(file, contents.data(), static_cast<DWORD>(contents.size()), &written, nullptr);
    CloseHandle(file);
  }

  // Returns the content of the file; "none" if it does not exist.
  std::string Contents() const {
    HANDLE file = CreateFileA(File().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return "none";
    std::string contents(100000, '?');
    DWORD count = 0;
    ReadFile(file, contents.data(), static_cast<DWORD>(contents.size()), &count, nullptr);
    CloseHandle(file);
    contents.resize(count);
    return contents;
  }

  // Returns the calls so far, with "T:" for the test's folder.
  std::vector<std::string> Calls() { return TheRig().trace.LinesIn(folder_); }

  std::string folder_;
};

#define EXPECT_AUDIT_CALLS(...) \
  ::rig::CompareLines(__FILE__, __LINE__, "trace", std::vector<std::string> __VA_ARGS__, Calls())

TEST_F(AuditFileTest, IsReplacedByTwelveZeroBytes) {
  Write(std::string(5000, 'x'));
  EXPECT_EQ(Run(11), 0u);
  EXPECT_AUDIT_CALLS({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("SHFOLDER") = SHFOLDER)",
      "SetErrorMode(0x4000) = 32769",
      R"(GetProcAddress(SHFOLDER, "SHGetFolderPathA") = *)",
      "SHGetFolderPathA(null, 35, null, 0, *) = 0",
      "FreeLibrary(SHFOLDER) = 1",
      R"(CreateFileA("T:\\Ostrel Audit", 0xc0000000, 3, null, 3, 0x80, null) = handle#1)",
      "SetFilePointer(handle#1, 0, null, 0) = 0",
      "SetEndOfFile(handle#1) = 1",
      R"(WriteFile(handle#1, "\0\0\0\0\0\0\0\0\0\0\0\0", 12, *, null) = 1)",
      "CloseHandle(handle#1) = 1",
  });
  EXPECT_EQ(Contents(), kEmptied);
  EXPECT_LOG({});
}

TEST_F(AuditFileTest, GrowsWhenItIsShorter) {
  for (const std::string& contents : {std::string(), std::string("x"), std::string(12, 'x')}) {
    Write(contents);
    EXPECT_EQ(Run(11), 0u);
    EXPECT_EQ(Contents(), kEmptied);
  }
}

TEST_F(AuditFileTest, IsNeverCreated) {
  EXPECT_EQ(Run(11), 0u);
  EXPECT_EQ(Contents(), "none");
  EXPECT_EQ(Calls().back(),
            R"(CreateFileA("T:\\Ostrel Audit", 0xc0000000, 3, null, 3, 0x80, null) = INVALID_HANDLE_VALUE)");
}

TEST_F(AuditFileTest, IsLeftAloneIfLocked) {
  Write("kept");
  HANDLE lock = CreateFileA(File().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(lock, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Run(11), 0u);
  CloseHandle(lock);
  EXPECT_EQ(Contents(), "kept");
}

TEST_F(AuditFileTest, IsEmptiedIfShared) {
  Write("records");
  HANDLE other = CreateFileA(File().c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                             nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(other, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Run(11), 0u);
  CloseHandle(other);
  EXPECT_EQ(Contents(), kEmptied);
}

TEST_F(AuditFileTest, AFolderOfItsNameIsLeftAlone) {
  ASSERT_TRUE(CreateDirectoryA(File().c_str(), nullptr));
  EXPECT_EQ(Run(11), 0u);
  EXPECT_TRUE(RemoveDirectoryA(File().c_str()));
}

TEST_F(AuditFileTest, OneBackslashAfterTheFolderIsDropped) {
  Write("records");
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, rig::ToWide(folder_ + "\\"));
  EXPECT_EQ(Run(11), 0u);
  EXPECT_EQ(Contents(), kEmptied);
  TheRig().trace.Clear();
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, L"C:\\none\\\\");
  EXPECT_EQ(Run(11), 0u);
  EXPECT_EQ(Calls().back().rfind(R"(CreateFileA("C:\\none\\\\Ostrel Audit")", 0), 0u) << Calls().back();
}

// The cases in which the Windows folder is used.
enum class Without { kModule, kFunction, kFolder, kText };

class NoDataFolderTest : public AuditFileTest, public testing::WithParamInterface<Without> {
 protected:
  void SetUp() override {
    AuditFileTest::SetUp();
    switch (GetParam()) {
      case Without::kModule:
        TheModules().Missing("SHFOLDER");
        break;
      case Without::kFunction:
        TheModules().MissingFunction("SHFOLDER", "SHGetFolderPathA");
        break;
      case Without::kFolder:
        // What a failing function leaves in the buffer must be ignored.
        TheWorld().On<::SHGetFolderPathA>([](HWND, int, HANDLE, DWORD, char* path) {
          memcpy(path, "C:\\wrong", sizeof "C:\\wrong");
          return E_FAIL;
        });
        break;
      case Without::kText:
        TheWorld().shell.Set(CSIDL_COMMON_APPDATA, L"");
        break;
    }
  }
};

TEST_P(NoDataFolderTest, TheWindowsFolderIsUsedInstead) {
  Write("records");
  TheWorld().On<::GetWindowsDirectoryA>([this](char* path, UINT size) {
    EXPECT_EQ(size, UINT{MAX_PATH});
    memcpy(path, folder_.c_str(), folder_.size() + 1);
    return static_cast<UINT>(folder_.size());
  });
  EXPECT_EQ(Run(11), 0u);
  EXPECT_EQ(Contents(), kEmptied);
}

TEST_P(NoDataFolderTest, WithoutAWindowsFolderNothingHappens) {
  for (UINT result : {0u, UINT{MAX_PATH}, 5000u}) {
    TheWorld().On<::GetWindowsDirectoryA>([result](char*, UINT) { return result; });
    TheRig().trace.Clear();
    EXPECT_EQ(Run(11), 0u);
    EXPECT_EQ(Calls().back().rfind("GetWindowsDirectoryA(", 0), 0u) << Calls().back();
  }
}
INSTANTIATE_TEST_SUITE_P(Ways, NoDataFolderTest,
                         testing::Values(Without::kModule, Without::kFunction, Without::kFolder,
                                         Without::kText));

TEST_F(AuditFileTest, TheLongestFolderFits) {
  const std::wstring longest = L"C:\\" + std::wstring(MAX_PATH - 4, L'x');
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, longest);
  EXPECT_EQ(Run(11), 0u);
  EXPECT_EQ(Calls().back().rfind("CreateFileA(" + rig::Quote(rig::ToUtf8(longest) + kName), 0), 0u);
}

TEST_F(AuditFileTest, SurvivesTheFailureOfEachCall) {
  Write("records");
  const std::wstring folder = rig::ToWide(folder_);
  FailEachCall(11, [&](rig::World& world) {
    Write("records");
    world.shell.Set(CSIDL_COMMON_APPDATA, folder);
  });
}

}  // namespace audit_file_test
