// What interrupted tests must not leave: a changed setting of Windows, and a password in a log.

#include <gtest/gtest.h>
#include <windows.h>

#include <optional>

#include "install/server_rig.h"
#include "machine/passwords.h"
#include "machine/signed_libraries.h"

namespace machine {
namespace {

class SignedLibrariesTest : public testing::Test {
 protected:
  void SetUp() override {
    // Wine has no such key at first.
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows",
                              0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_, nullptr),
              ERROR_SUCCESS);
    Clear();
  }
  void TearDown() override {
    Clear();
    RegCloseKey(key_);
  }

  void Clear() {
    RegDeleteValueA(key_, kSignedSetting);
    RegDeleteValueA(key_, kKeptSetting);
  }
  void Set(DWORD number) {
    ASSERT_EQ(
        RegSetValueExA(key_, kSignedSetting, 0, REG_DWORD, reinterpret_cast<BYTE*>(&number), sizeof number),
        ERROR_SUCCESS);
  }
  std::optional<DWORD> Setting() const {
    DWORD number = 0, size = sizeof number;
    if (RegGetValueA(key_, nullptr, kSignedSetting, RRF_RT_REG_DWORD, nullptr, &number, &size) !=
        ERROR_SUCCESS)
      return std::nullopt;
    return number;
  }
  bool IsKept() const {
    return RegQueryValueExA(key_, kKeptSetting, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
  }

 private:
  HKEY key_ = nullptr;
};

TEST_F(SignedLibrariesTest, TheEarlierSettingComesBack) {
  EXPECT_FALSE(RestoreSignedLibraries());
  for (const std::optional<DWORD> before : {std::optional<DWORD>(), {0u}, {1u}, {2u}}) {
    Clear();
    if (before) Set(*before);
    EXPECT_TRUE(RequireSignedLibraries());
    EXPECT_EQ(Setting(), 1u);
    EXPECT_TRUE(IsKept());
    EXPECT_TRUE(RestoreSignedLibraries());
    EXPECT_EQ(Setting(), before);
    EXPECT_FALSE(IsKept());
    // Nothing is left to restore, so a later change of somebody's stays.
    Set(3);
    EXPECT_FALSE(RestoreSignedLibraries());
    EXPECT_EQ(Setting(), 3u);
  }
}

TEST_F(SignedLibrariesTest, AfterInterruptedTestsTheFirstSettingComesBack) {
  Set(0);
  EXPECT_TRUE(RequireSignedLibraries());
  // These tests were interrupted, and others begin.
  EXPECT_TRUE(RequireSignedLibraries());
  EXPECT_EQ(Setting(), 1u);
  EXPECT_TRUE(RestoreSignedLibraries());
  EXPECT_EQ(Setting(), 0u);
}

class PasswordFileTest : public testing::Test {
 protected:
  void SetUp() override { install::DeleteTree(folder); }
  void TearDown() override { install::DeleteTree(folder); }

  const std::wstring folder = L"C:\\Password files";
  const std::string password = "aBAA0CAA!DAAqAAA.BAA", hidden = kHiddenPassword;
};

TEST_F(PasswordFileTest, APasswordInAFileIsHidden) {
  install::WriteTree(folder, {{"a.log", "before " + password + "\r\nafter"}, {"b.log", "nothing"}});
  EXPECT_TRUE(HidePasswordsInFile(folder + L"\\a.log"));
  EXPECT_TRUE(HidePasswordsInFile(folder + L"\\b.log"));
  EXPECT_EQ(install::ReadTree(folder),
            (install::Tree{{"a.log", "before " + hidden + "\r\nafter"}, {"b.log", "nothing"}}));
}

TEST_F(PasswordFileTest, AFileThatCannotBeChangedIsReported) {
  EXPECT_FALSE(HidePasswordsInFile(folder + L"\\none.log"));
  install::WriteTree(folder, {{"a.log", password}, {"b.log", "nothing"}});
  for (const wchar_t* name : {L"\\a.log", L"\\b.log"}) {
    // An installer that still runs has its log open, and lets others read it.
    HANDLE open = CreateFileW((folder + name).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              0, nullptr);
    ASSERT_NE(open, INVALID_HANDLE_VALUE);
    EXPECT_EQ(HidePasswordsInFile(folder + name), name[1] == L'b');
    CloseHandle(open);
  }
}

}  // namespace
}  // namespace machine
