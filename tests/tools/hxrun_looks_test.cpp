// The looks of a dry run: what each change answers if its target is missing, in the way, held or not its own.
// The tests call the functions as the library does.
#include <gtest/gtest.h>

#include <aclapi.h>
#include <lm.h>
#include <setupapi.h>
#include <shlwapi.h>

#include "hxrun/effects.h"
#include "install/agent_scheduler.h"
#include "install/server_rig.h"
#include "rig/directory_interfaces.h"
#include "rig/print.h"
#include "rig/task_interfaces.h"
#include "tools/hxrun_looks_rig.h"
// Must come after the interfaces of the directory.
#include <netfw.h>

namespace hxrun_test {
namespace {

TEST_F(HxRunLooksTest, AFolderIsCreatedOnlyInAFolderAndOnce) {
  const auto create = [](const wchar_t* name) {
    return Call<&::CreateDirectoryW>(In(name).c_str(), nullptr);
  };
  ExpectFailure(create(L"A"), ERROR_ALREADY_EXISTS, "create the folder C:\\hxrun-looks\\A");
  ExpectFailure(create(L"none\\x"), ERROR_PATH_NOT_FOUND, "create the folder C:\\hxrun-looks\\none\\x");
  ExpectChange(create(L"new"), "create the folder C:\\hxrun-looks\\new");
  ExpectFailure(create(L"new"), ERROR_ALREADY_EXISTS, "create the folder C:\\hxrun-looks\\new");
  ExpectChange(create(L"new\\in"), "create the folder C:\\hxrun-looks\\new\\in");
  ExpectFailure(create(L"new\\none\\x"), ERROR_PATH_NOT_FOUND,
                "create the folder C:\\hxrun-looks\\new\\none\\x");
}

TEST_F(HxRunLooksTest, ARelativePathIsListedInFull) {
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(L"C:\\hxrun-looks\\A");
  ExpectChange(Call<&::DeleteFileW>(L"f.txt"), "delete C:\\hxrun-looks\\A\\f.txt");
  ExpectFailure(Call<&::DeleteFileW>(L".\\f.txt"), ERROR_FILE_NOT_FOUND, "delete C:\\hxrun-looks\\A\\f.txt");
  SetCurrentDirectoryW(before);
}

TEST_F(HxRunLooksTest, AFolderIsDeletedOnlyIfItIsEmptyThen) {
  const auto remove = [](const wchar_t* name) { return Call<&::RemoveDirectoryW>(In(name).c_str()); };
  const auto erase = [](const wchar_t* name) { return Call<&::DeleteFileW>(In(name).c_str()); };
  ExpectFailure(remove(L"none"), ERROR_FILE_NOT_FOUND, "delete the folder C:\\hxrun-looks\\none");
  ExpectFailure(remove(L"A\\f.txt"), ERROR_DIRECTORY, "delete the folder C:\\hxrun-looks\\A\\f.txt");
  ExpectFailure(remove(L"A"), ERROR_DIR_NOT_EMPTY, "delete the folder C:\\hxrun-looks\\A");
  ExpectChange(erase(L"A\\f.txt"), "delete C:\\hxrun-looks\\A\\f.txt");
  ExpectChange(remove(L"A"), "delete the folder C:\\hxrun-looks\\A");
  ExpectFailure(remove(L"A"), ERROR_FILE_NOT_FOUND, "delete the folder C:\\hxrun-looks\\A");
  // What the run itself puts into a folder counts, too.
  ExpectChange(Call<&::CreateDirectoryW>(In(L"new").c_str(), nullptr),
               "create the folder C:\\hxrun-looks\\new");
  ExpectChange(Call<&::CopyFileW>(In(L"B\\sub\\g.txt").c_str(), In(L"new\\x").c_str(), TRUE),
               "copy C:\\hxrun-looks\\B\\sub\\g.txt to C:\\hxrun-looks\\new\\x");
  ExpectFailure(remove(L"new"), ERROR_DIR_NOT_EMPTY, "delete the folder C:\\hxrun-looks\\new");
  ExpectChange(erase(L"new\\x"), "delete C:\\hxrun-looks\\new\\x");
  ExpectChange(remove(L"new"), "delete the folder C:\\hxrun-looks\\new");
}

// Only the link is deleted.
TEST_F(HxRunLooksTest, ALinkToAFullFolderIsDeleted) {
  install::MakeLink(kPlace + L"link", kPlace + L"A");
  ExpectChange(Call<&::RemoveDirectoryW>(In(L"link").c_str()), "delete the folder C:\\hxrun-looks\\link");
  EXPECT_EQ(ReadBytes(In(L"A\\f.txt")), "one");
  // This engine's RemoveDirectoryW refuses a link.
  install::DeleteTree(L"C:\\hxrun-looks");
}

TEST_F(HxRunLooksTest, AFileIsDeletedOnce) {
  const auto erase = [](const wchar_t* name) { return Call<&::DeleteFileW>(In(name).c_str()); };
  ExpectFailure(erase(L"none"), ERROR_FILE_NOT_FOUND, "delete C:\\hxrun-looks\\none");
  ExpectFailure(erase(L"none\\x"), ERROR_PATH_NOT_FOUND, "delete C:\\hxrun-looks\\none\\x");
  ExpectFailure(erase(L"A"), ERROR_ACCESS_DENIED, "delete C:\\hxrun-looks\\A");
  ExpectFailure(erase(L"fixed.txt"), ERROR_ACCESS_DENIED, "delete C:\\hxrun-looks\\fixed.txt");
  HANDLE held =
      CreateFileW(In(L"A\\f.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  ExpectFailure(erase(L"A\\f.txt"), ERROR_SHARING_VIOLATION, "delete C:\\hxrun-looks\\A\\f.txt");
  CloseHandle(held);
  ExpectChange(erase(L"A\\f.txt"), "delete C:\\hxrun-looks\\A\\f.txt");
  ExpectFailure(erase(L"A\\f.txt"), ERROR_FILE_NOT_FOUND, "delete C:\\hxrun-looks\\A\\f.txt");
  EXPECT_EQ(ReadBytes(In(L"A\\f.txt")), "one");
}

TEST_F(HxRunLooksTest, AMoveNeedsItsSourceAndNoTarget) {
  const auto move = [](const wchar_t* from, const wchar_t* to) {
    return Call<&::MoveFileW>(In(from).c_str(), In(to).c_str());
  };
  const auto text = [](const std::string& from, const std::string& to) {
    return "move C:\\hxrun-looks\\" + from + " to C:\\hxrun-looks\\" + to;
  };
  ExpectFailure(move(L"none", L"x"), ERROR_FILE_NOT_FOUND, text("none", "x"));
  ExpectFailure(move(L"A", L"B"), ERROR_ALREADY_EXISTS, text("A", "B"));
  ExpectFailure(move(L"A", L"none\\x"), ERROR_PATH_NOT_FOUND, text("A", "none\\x"));
  ExpectFailure(Call<&::MoveFileW>(In(L"A").c_str(), L"Z:\\hxrun-looks"), ERROR_ACCESS_DENIED,
                "move C:\\hxrun-looks\\A to Z:\\hxrun-looks");
  ExpectChange(move(L"B", L"aside"), text("B", "aside"));
  ExpectChange(move(L"A", L"B"), text("A", "B"));
  EXPECT_EQ(EndOf([&] { move(L"aside\\sub", L"y"); }),
            "the rest depends on this change: " + text("B", "aside") +
                " (MoveFileW asks for what it would have changed)");
  Begin();
  EXPECT_EQ(EndOf([&] { move(L"A", L"A\\in"); }), "the rest depends on this change: " + text("A", "A\\in") +
                                                      " (nothing shows whether it would succeed)");
}

// Windows does not rename a folder while a program has something in it open.
TEST_F(HxRunLooksTest, AFolderInWhichAProgramHasAFileOpenIsNotMoved) {
  const std::string text = "move C:\\hxrun-looks\\B to C:\\hxrun-looks\\C";
  const auto move = [] { return Call<&::MoveFileW>(In(L"B").c_str(), In(L"C").c_str()); };
  const auto replace = [] {
    return Call<&::MoveFileExW>(In(L"B").c_str(), In(L"C").c_str(), DWORD{MOVEFILE_REPLACE_EXISTING});
  };
  const auto hold = [](const std::wstring& path) {
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  };
  // A path below the folder can be longer than that of a call.
  const std::wstring deep = L"\\\\?\\" + In(L"B\\sub\\") + std::wstring(250, L'n');
  ASSERT_TRUE(CreateDirectoryW(deep.c_str(), nullptr));
  for (const std::wstring& path : {In(L"B\\sub\\g.txt"), In(L"B\\sub"), deep}) {
    HANDLE held = hold(path);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    ExpectFailure(move(), ERROR_ACCESS_DENIED, text);
    ExpectFailure(replace(), ERROR_ACCESS_DENIED, text);
    CloseHandle(held);
  }
  // The current folder of a program.
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(In(L"B\\sub").c_str());
  ExpectFailure(move(), ERROR_ACCESS_DENIED, text);
  SetCurrentDirectoryW(before);
  // The folder itself.
  HANDLE held = hold(In(L"B"));
  ExpectFailure(move(), ERROR_SHARING_VIOLATION, text);
  CloseHandle(held);
  ExpectChange(move(), text);
  EXPECT_TRUE(RemoveDirectoryW(deep.c_str()));
}

TEST_F(HxRunLooksTest, AFileThatALinkLeadsToDoesNotHoldTheFolderOfTheLink) {
  install::MakeLink(kPlace + L"B\\link", kPlace + L"A");
  HANDLE held =
      CreateFileW(In(L"A\\f.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  ExpectChange(Call<&::MoveFileW>(In(L"B").c_str(), In(L"C").c_str()),
               "move C:\\hxrun-looks\\B to C:\\hxrun-looks\\C");
  CloseHandle(held);
  install::DeleteTree(L"C:\\hxrun-looks");
}

// One file or folder can have several names: a short one, and those of links to the folder above it.
TEST_F(HxRunLooksTest, AFileIsKnownByEachOfItsNames) {
  WriteBytes(kPlace + L"A long name\\A long file.text", "x");
  wchar_t folder[MAX_PATH], file[MAX_PATH];
  ASSERT_NE(GetShortPathNameW(In(L"A long name").c_str(), folder, MAX_PATH), 0u);
  ASSERT_NE(GetShortPathNameW(In(L"A long name\\A long file.text").c_str(), file, MAX_PATH), 0u);
  ASSERT_NE(folder, In(L"A long name"));
  const std::wstring inFolder = std::wstring(folder) + L"\\A long file.text";
  for (const std::wstring& name :
       {inFolder, std::wstring(file), L"\\\\?\\" + In(L"A long name\\A long file.text")}) {
    Begin();
    ExpectChange(Call<&::DeleteFileW>(In(L"A long name\\A long file.text").c_str()),
                 "delete C:\\hxrun-looks\\A long name\\A long file.text");
    ExpectFailure(Call<&::DeleteFileW>(name.c_str()), ERROR_FILE_NOT_FOUND, "delete " + rig::ToUtf8(name));
  }
  // What is made in a folder is in it by each of its names.
  ExpectChange(Call<&::RemoveDirectoryW>(folder), "delete the folder " + rig::ToUtf8(folder));
  ExpectFailure(Call<&::CreateDirectoryW>(In(L"A long name\\new").c_str(), nullptr), ERROR_PATH_NOT_FOUND,
                "create the folder C:\\hxrun-looks\\A long name\\new");
  Begin();
  ExpectChange(Call<&::CreateDirectoryW>((std::wstring(folder) + L"\\new").c_str(), nullptr),
               "create the folder " + rig::ToUtf8(folder) + "\\new");
  ExpectFailure(Call<&::CreateDirectoryW>(In(L"A long name\\new").c_str(), nullptr), ERROR_ALREADY_EXISTS,
                "create the folder C:\\hxrun-looks\\A long name\\new");
  WIN32_FIND_DATAW found;
  EXPECT_EQ(EndOf([&] { Call<&::FindFirstFileW>(In(L"A long name\\*").c_str(), &found); }),
            "the rest depends on this change: create the folder " + rig::ToUtf8(folder) +
                "\\new (FindFirstFileW asks for what it would have changed)");
}

TEST_F(HxRunLooksTest, AReplacingMoveReplacesFilesOnly) {
  const auto move = [](const wchar_t* from, const wchar_t* to, DWORD flags = MOVEFILE_REPLACE_EXISTING) {
    return Call<&::MoveFileExW>(In(from).c_str(), In(to).c_str(), flags);
  };
  const auto text = [](const std::string& from, const std::string& to) {
    return "move C:\\hxrun-looks\\" + from + " to C:\\hxrun-looks\\" + to;
  };
  ExpectFailure(move(L"none", L"x"), ERROR_FILE_NOT_FOUND, text("none", "x"));
  ExpectFailure(move(L"none\\x", L"x"), ERROR_PATH_NOT_FOUND, text("none\\x", "x"));
  ExpectFailure(move(L"A\\f.txt", L"none\\x"), ERROR_PATH_NOT_FOUND, text("A\\f.txt", "none\\x"));
  ExpectFailure(move(L"A\\f.txt", L"B"), ERROR_ACCESS_DENIED,
                text("A\\f.txt", "B, in place of what is there"));
  ExpectFailure(move(L"A\\f.txt", L"fixed.txt"), ERROR_ACCESS_DENIED,
                text("A\\f.txt", "fixed.txt, in place of what is there"));
  ExpectFailure(move(L"A\\f.txt", L"B\\sub\\g.txt", 0), ERROR_ALREADY_EXISTS,
                text("A\\f.txt", "B\\sub\\g.txt, in place of what is there"));
  ExpectChange(move(L"A\\f.txt", L"B\\sub\\g.txt"),
               text("A\\f.txt", "B\\sub\\g.txt, in place of what is there"));
  ExpectFailure(move(L"A\\f.txt", L"y"), ERROR_FILE_NOT_FOUND, text("A\\f.txt", "y"));
}

TEST_F(HxRunLooksTest, ACopyNeedsAFileAndRoom) {
  const auto copy = [](const wchar_t* from, const wchar_t* to, BOOL isNew) {
    return Call<&::CopyFileW>(In(from).c_str(), In(to).c_str(), isNew);
  };
  const auto text = [](const std::string& from, const std::string& to) {
    return "copy C:\\hxrun-looks\\" + from + " to C:\\hxrun-looks\\" + to;
  };
  ExpectFailure(copy(L"none", L"x", TRUE), ERROR_FILE_NOT_FOUND, text("none", "x"));
  ExpectFailure(copy(L"A", L"x", TRUE), ERROR_ACCESS_DENIED, text("A", "x"));
  ExpectFailure(copy(L"A\\f.txt", L"none\\x", TRUE), ERROR_PATH_NOT_FOUND, text("A\\f.txt", "none\\x"));
  ExpectFailure(copy(L"A\\f.txt", L"B\\sub\\g.txt", TRUE), ERROR_FILE_EXISTS,
                text("A\\f.txt", "B\\sub\\g.txt"));
  ExpectFailure(copy(L"A\\f.txt", L"B", FALSE), ERROR_ACCESS_DENIED, text("A\\f.txt", "B"));
  ExpectFailure(copy(L"A\\f.txt", L"fixed.txt", FALSE), ERROR_ACCESS_DENIED, text("A\\f.txt", "fixed.txt"));
  ExpectChange(copy(L"A\\f.txt", L"B\\sub\\g.txt", FALSE), text("A\\f.txt", "B\\sub\\g.txt"));
  ExpectChange(copy(L"A\\f.txt", L"x", TRUE), text("A\\f.txt", "x"));
  ExpectFailure(copy(L"A\\f.txt", L"x", TRUE), ERROR_FILE_EXISTS, text("A\\f.txt", "x"));
  HANDLE held = CreateFileW(In(L"A\\f.txt").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ExpectFailure(copy(L"A\\f.txt", L"y", TRUE), ERROR_SHARING_VIOLATION, text("A\\f.txt", "y"));
  CloseHandle(held);
}

// A copy has the attributes of its source, so nobody deletes a copy of a read-only file.
TEST_F(HxRunLooksTest, ACopyOfAReadOnlyFileMayNotBeDeletable) {
  const auto copy = [](const wchar_t* from, const wchar_t* to) {
    return Call<&::CopyFileW>(In(from).c_str(), In(to).c_str(), TRUE);
  };
  const std::string text = "copy C:\\hxrun-looks\\fixed.txt to C:\\hxrun-looks\\x";
  ExpectChange(copy(L"A\\f.txt", L"w"), "copy C:\\hxrun-looks\\A\\f.txt to C:\\hxrun-looks\\w");
  ExpectChange(copy(L"w", L"v"), "copy C:\\hxrun-looks\\w to C:\\hxrun-looks\\v");
  ExpectChange(Call<&::DeleteFileW>(In(L"v").c_str()), "delete C:\\hxrun-looks\\v");
  ExpectChange(copy(L"fixed.txt", L"x"), text);
  EXPECT_EQ(
      EndOf([] { Call<&::DeleteFileW>(In(L"x").c_str()); }),
      "the rest depends on this change: " + text + " (DeleteFileW asks for what it would have changed)");
}

TEST_F(HxRunLooksTest, AttributesAndAccessNeedAFile) {
  ExpectFailure(Call<&::SetFileAttributesW>(In(L"none").c_str(), DWORD{FILE_ATTRIBUTE_NORMAL}),
                ERROR_FILE_NOT_FOUND, "set the attributes of C:\\hxrun-looks\\none to 0x80");
  ExpectChange(Call<&::SetFileAttributesW>(In(L"A\\f.txt").c_str(), DWORD{FILE_ATTRIBUTE_READONLY}),
               "set the attributes of C:\\hxrun-looks\\A\\f.txt to 0x1");
  const auto secure = [](const std::wstring& path) {
    std::wstring name = path;
    return Call<&::SetNamedSecurityInfoW>(name.data(), SE_FILE_OBJECT,
                                          SECURITY_INFORMATION{DACL_SECURITY_INFORMATION}, nullptr, nullptr,
                                          nullptr, nullptr);
  };
  EXPECT_EQ(secure(In(L"none")), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(secure(In(L"none\\x")), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(Listed(), (Texts{"fails: replace the access list of C:\\hxrun-looks\\none by D: (error 2)",
                             "fails: replace the access list of C:\\hxrun-looks\\none\\x by D: "
                             "(error 3)"}));
  EXPECT_EQ(secure(In(L"A")), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Listed(), Texts{"replace the access list of C:\\hxrun-looks\\A by D:"});
}

TEST_F(HxRunLooksTest, AnOpenForWritingFailsOrEndsTheRun) {
  const auto open = [](const wchar_t* name, DWORD disposition) {
    return Call<&::CreateFileW>(In(name).c_str(), DWORD{GENERIC_WRITE}, DWORD{0}, nullptr, disposition,
                                DWORD{0}, nullptr);
  };
  const auto expectFailure = [&](const wchar_t* name, DWORD disposition, DWORD error) {
    EXPECT_EQ(open(name, disposition), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), error);
    EXPECT_EQ(Listed(), Texts{"fails: create or empty C:\\hxrun-looks\\" + rig::ToUtf8(name) + " (error " +
                              std::to_string(error) + ")"});
  };
  expectFailure(L"A\\f.txt", CREATE_NEW, ERROR_FILE_EXISTS);
  expectFailure(L"none", TRUNCATE_EXISTING, ERROR_FILE_NOT_FOUND);
  expectFailure(L"none\\x", CREATE_ALWAYS, ERROR_PATH_NOT_FOUND);
  expectFailure(L"A", CREATE_ALWAYS, ERROR_ACCESS_DENIED);
  expectFailure(L"fixed.txt", CREATE_ALWAYS, ERROR_ACCESS_DENIED);
  EXPECT_EQ(EndOf([&] { open(L"new.txt", CREATE_NEW); }),
            "the rest depends on this change: create or empty C:\\hxrun-looks\\new.txt (the open file asks "
            "for what "
            "it would have changed)");
}

TEST_F(HxRunLooksTest, WhatIsPutIntoAFolderWhileItIsListedMayBeListed) {
  WIN32_FIND_DATAW found;
  HANDLE search = Call<&::FindFirstFileW>(In(L"*").c_str(), &found);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  // A deleted entry was listed already.
  ExpectChange(Call<&::DeleteFileW>(In(L"A\\f.txt").c_str()), "delete C:\\hxrun-looks\\A\\f.txt");
  EXPECT_TRUE(Call<&::FindNextFileW>(search, &found));
  ExpectChange(Call<&::CreateDirectoryW>(In(L"new").c_str(), nullptr),
               "create the folder C:\\hxrun-looks\\new");
  EXPECT_EQ(EndOf([&] { Call<&::FindNextFileW>(search, &found); }),
            "the rest depends on this change: create the folder C:\\hxrun-looks\\new (FindNextFileW asks for "
            "what it "
            "would have changed)");
  Call<&::FindClose>(search);
}

TEST_F(HxRunLooksTest, WhatIsInANewFolderIsKnown) {
  ExpectChange(Call<&::CreateDirectoryW>(In(L"new").c_str(), nullptr),
               "create the folder C:\\hxrun-looks\\new");
  EXPECT_EQ(Call<&::GetFileAttributesW>(In(L"new\\x").c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(Call<&::GetFileAttributesW>(In(L"new\\x\\y").c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
  // The folder itself is what the change would have made, and a listing of it, and of the folder above it,
  // has it.
  for (const wchar_t* name : {L"new", L"new\\*", L"*"}) {
    WIN32_FIND_DATAW found;
    EXPECT_EQ(EndOf([&] { Call<&::FindFirstFileW>(In(name).c_str(), &found); }),
              "the rest depends on this change: create the folder C:\\hxrun-looks\\new (FindFirstFileW asks "
              "for what "
              "it would have changed)")
        << rig::ToUtf8(name);
  }
}

TEST_F(HxRunLooksTest, AKeyIsDeletedWithItsValuesButNotWithKeys) {
  constexpr char kTop[] = "Software\\hxrun-looks", kDeep[] = "Software\\hxrun-looks\\deep";
  HKEY made;
  ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, kDeep, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &made, nullptr),
            0);
  RegSetValueExA(made, "here", 0, REG_SZ, reinterpret_cast<const BYTE*>("x"), 2);
  RegCloseKey(made);
  const auto erase = [](const char* path) { return Call<&::RegDeleteKeyA>(HKEY_CURRENT_USER, path); };
  EXPECT_EQ(erase("Software\\hxrun-none"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(erase(kTop), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Call<&::SHDeleteKeyA>(HKEY_CURRENT_USER, "Software\\hxrun-none"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Listed(),
            (Texts{"fails: delete the key HKEY_CURRENT_USER\\Software\\hxrun-none (error 2)",
                   "fails: delete the key HKEY_CURRENT_USER\\Software\\hxrun-looks (error 5)",
                   "fails: delete the key HKEY_CURRENT_USER\\Software\\hxrun-none with all keys in it (error "
                   "2)"}));
  HKEY key;
  ASSERT_EQ(Call<&::RegOpenKeyExA>(HKEY_CURRENT_USER, kDeep, DWORD{0}, REGSAM{KEY_QUERY_VALUE}, &key), 0);
  EXPECT_EQ(Call<&::RegDeleteValueA>(key, "none"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(erase(kDeep), 0);
  const std::string ofDeep = "delete the key HKEY_CURRENT_USER\\Software\\hxrun-looks\\deep";
  EXPECT_EQ(Listed(),
            (Texts{"fails: delete the value none of HKEY_CURRENT_USER\\Software\\hxrun-looks\\deep (error 2)",
                   ofDeep}));
  const auto asks = [&](const std::string& call) {
    return "the rest depends on this change: " + ofDeep + " (" + call +
           " asks for what it would have changed)";
  };
  EXPECT_EQ(EndOf([&] {
              Call<&::RegQueryValueExA>(key, "here", static_cast<DWORD*>(nullptr),
                                        static_cast<DWORD*>(nullptr), static_cast<BYTE*>(nullptr),
                                        static_cast<DWORD*>(nullptr));
            }),
            asks("RegQueryValueExA"));
  // Whether the key above could be deleted depends on it.
  EXPECT_EQ(EndOf([&] { erase(kTop); }), asks("RegDeleteKeyA"));
  Call<&::RegCloseKey>(key);
  RegDeleteKeyA(HKEY_CURRENT_USER, kDeep);
  RegDeleteKeyA(HKEY_CURRENT_USER, kTop);
}

TEST_F(HxRunLooksTest, AServiceIsControlledOnlyWhileItRuns) {
  SC_HANDLE all = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  SC_HANDLE made = CreateServiceW(all, L"hxlook", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                  SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, L"C:\\hxrun-looks\\none.exe",
                                  nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(made, nullptr);
  SC_HANDLE manager = Call<&::OpenSCManagerA>(nullptr, nullptr, DWORD{SC_MANAGER_CONNECT});
  SC_HANDLE service = Call<&::OpenServiceA>(manager, "hxlook", DWORD{SERVICE_ALL_ACCESS});
  ASSERT_NE(service, nullptr);
  SERVICE_STATUS status = {};
  ExpectFailure(Call<&::ControlService>(service, DWORD{SERVICE_CONTROL_STOP}, &status),
                ERROR_SERVICE_NOT_ACTIVE, "stop the service hxlook");
  ExpectFailure(Call<&::ControlService>(service, DWORD{200}, &status), ERROR_SERVICE_NOT_ACTIVE,
                "send control 200 to the service hxlook");
  ChangeServiceConfigW(made, SERVICE_NO_CHANGE, SERVICE_DISABLED, SERVICE_NO_CHANGE, nullptr, nullptr,
                       nullptr, nullptr, nullptr, nullptr, nullptr);
  ExpectFailure(Call<&::StartServiceA>(service, DWORD{0}, nullptr), ERROR_SERVICE_DISABLED,
                "start the service hxlook");
  SERVICE_FAILURE_ACTIONSA actions = {};
  ExpectChange(Call<&::ChangeServiceConfig2A>(service, DWORD{SERVICE_CONFIG_FAILURE_ACTIONS},
                                              static_cast<void*>(&actions)),
               "remove the failure actions of the service hxlook");
  ChangeServiceConfigW(made, SERVICE_NO_CHANGE, SERVICE_DEMAND_START, SERVICE_NO_CHANGE, nullptr, nullptr,
                       nullptr, nullptr, nullptr, nullptr, nullptr);
  ExpectChange(Call<&::StartServiceA>(service, DWORD{0}, nullptr), "start the service hxlook");
  EXPECT_EQ(
      EndOf([&] { Call<&::QueryServiceStatus>(service, &status); }),
      "the rest depends on this change: start the service hxlook (QueryServiceStatus asks for what it would "
      "have changed)");
  Call<&::CloseServiceHandle>(service);
  Call<&::CloseServiceHandle>(manager);
  EXPECT_TRUE(DeleteService(made));
  CloseServiceHandle(made);
  CloseServiceHandle(all);
}

TEST_F(HxRunLooksTest, AWindowOrAProcessThatIsGone) {
  auto* window = reinterpret_cast<HWND>(uintptr_t{0x1234568});
  ExpectFailure(Call<&::PostMessageA>(window, UINT{WM_CLOSE}, WPARAM{0}, LPARAM{0}),
                ERROR_INVALID_WINDOW_HANDLE, "close the window 0x1234568");
  ExpectFailure(static_cast<BOOL>(Call<&::SendMessageA>(window, UINT{WM_CLOSE}, WPARAM{0}, LPARAM{0})),
                ERROR_INVALID_WINDOW_HANDLE, "close the window 0x1234568");
  LayDownHxRun();
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  std::wstring line = std::wstring(kRunFolder) + L"\\hxrun.exe --help";
  ASSERT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                             nullptr, &startup, &process));
  const std::string text =
      "end the process " + std::to_string(process.dwProcessId) + " (C:\\hxrun\\hxrun.exe)";
  HANDLE opened = Call<&::OpenProcess>(
      DWORD{PROCESS_TERMINATE | SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION}, FALSE, process.dwProcessId);
  ASSERT_NE(opened, nullptr);
  ExpectChange(Call<&::TerminateProcess>(opened, UINT{0}), text);
  Begin();
  opened = Call<&::OpenProcess>(DWORD{PROCESS_TERMINATE | SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION},
                                FALSE, process.dwProcessId);
  TerminateProcess(process.hProcess, 0);
  WaitForSingleObject(process.hProcess, INFINITE);
  ExpectFailure(Call<&::TerminateProcess>(opened, UINT{0}), ERROR_ACCESS_DENIED, text);
  Call<&::CloseHandle>(opened);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
}

TEST_F(HxRunLooksTest, AccountsThatAreThereOrMissing) {
  wchar_t name[] = L"hxlook", none[] = L"hxnone";
  USER_INFO_1 made = {};
  made.usri1_name = name;
  made.usri1_password = const_cast<wchar_t*>(L"1-Look-at-this");
  made.usri1_priv = USER_PRIV_USER;
  made.usri1_flags = UF_SCRIPT | UF_NORMAL_ACCOUNT;
  ASSERT_EQ(NetUserAdd(nullptr, 1, reinterpret_cast<BYTE*>(&made), nullptr), NERR_Success);
  USER_INFO_2 user = {};
  user.usri2_name = name;
  user.usri2_password = made.usri1_password;
  const auto add = [&] {
    return Call<&::NetUserAdd>(nullptr, DWORD{2}, reinterpret_cast<BYTE*>(&user),
                               static_cast<DWORD*>(nullptr));
  };
  EXPECT_EQ(add(), DWORD{NERR_UserExists});
  EXPECT_EQ(Call<&::NetUserDel>(nullptr, none), DWORD{NERR_UserNotFound});
  user.usri2_name = none;
  EXPECT_EQ(add(), DWORD{NERR_Success});
  EXPECT_EQ(Call<&::NetUserDel>(nullptr, name), DWORD{NERR_Success});
  EXPECT_EQ(Listed(), (Texts{"fails: create the account hxlook with a new password (error 2224)",
                             "fails: delete the account hxnone (error 2221)",
                             "create the account hxnone with a new password", "delete the account hxlook"}));
  EXPECT_EQ(EndOf([&] { Call<&::NetUserDel>(nullptr, none); }),
            "the rest depends on this change: create the account hxnone with a new password (NetUserDel asks "
            "for what "
            "it would have changed)");
  EXPECT_EQ(NetUserDel(nullptr, name), NERR_Success);
}

TEST_F(HxRunLooksTest, ASectionNeedsItsFile) {
  WriteBytes(kPlace + L"x.inf", "[Version]\r\nSignature=\"$Windows NT$\"\r\n[Here]\r\n[There.NTamd64]\r\n");
  const auto install = [](const char* line) { Call<&::InstallHinfSectionA>(nullptr, nullptr, line, 0); };
  install("Here 128 C:\\hxrun-looks\\none.inf");
  install("Nowhere 128 C:\\hxrun-looks\\x.inf");
  const std::string run = "run the section of a setup information file: ";
  EXPECT_EQ(Listed(), (Texts{"fails: " + run + "Here 128 C:\\hxrun-looks\\none.inf (error 2)",
                             "fails: " + run + "Nowhere 128 C:\\hxrun-looks\\x.inf (error 0xe0000101)"}));
  install("there 128 C:\\hxrun-looks\\x.inf");
  EXPECT_EQ(Listed(), Texts{run + "there 128 C:\\hxrun-looks\\x.inf"});
  // The section can change anything, the file of the next one too.
  EXPECT_EQ(EndOf([&] { install("Here 128 C:\\hxrun-looks\\x.inf"); }),
            "the rest depends on this change: " + run +
                "there 128 C:\\hxrun-looks\\x.inf (InstallHinfSectionA asks for what it would have changed)");
}

RawObject* rawRules = nullptr;
RawObject* rawRule = nullptr;

HRESULT GiveRules(void*, INetFwRules** out) {
  *out = static_cast<INetFwRules*>(rawRules->Pointer());
  return S_OK;
}

HRESULT FindRule(void*, BSTR name, INetFwRule** out) {
  *out = nullptr;
  if (std::wstring(name) == L"none") return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  if (std::wstring(name) == L"held") return E_ACCESSDENIED;
  *out = static_cast<INetFwRule*>(rawRule->Pointer());
  return S_OK;
}

HRESULT NameRule(void*, BSTR* name) {
  *name = SysAllocString(L"here");
  return S_OK;
}

TEST_F(HxRunLooksTest, ARuleOfTheFirewallIsLookedUp) {
  RawObject policy, rules, rule;
  rawRules = &rules;
  rawRule = &rule;
  policy.Set<&INetFwPolicy2::get_Rules>(&GiveRules);
  rules.Set<&INetFwRules::Item>(&FindRule);
  rule.Set<&INetFwRule::get_Name>(&NameRule);
  INetFwPolicy2* passed = nullptr;
  ASSERT_EQ(hxrun::PassObject(__uuidof(INetFwPolicy2), policy.Pointer(), reinterpret_cast<void**>(&passed)),
            S_OK);
  INetFwRules* collection = nullptr;
  ASSERT_EQ(passed->get_Rules(&collection), S_OK);
  EXPECT_EQ(collection->Remove(Text(L"none")), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Listed(), Texts{"fails: remove from the firewall the rule none (error 0x80070002)"});
  // A rule that is there is changed at once.
  INetFwRule* found = nullptr;
  ASSERT_EQ(collection->Item(Text(L"here"), &found), S_OK);
  EXPECT_EQ(found->put_ApplicationName(Text(L"C:\\vt.exe")), S_OK);
  EXPECT_EQ(found->put_Grouping(Text(L"a group")), S_OK);
  EXPECT_EQ(found->put_Description(Text(L"a text")), S_OK);
  EXPECT_EQ(collection->Remove(Text(L"here")), S_OK);
  EXPECT_EQ(Listed(), (Texts{"change the program of the firewall's rule here: C:\\vt.exe",
                             "change the group of the firewall's rule here: a group",
                             "change the description of the firewall's rule here: a text",
                             "remove from the firewall the rule here"}));
  EXPECT_EQ(EndOf([&] { collection->Remove(Text(L"held")); }),
            "the rest depends on this change: remove from the firewall the rule held (nothing shows whether "
            "it would "
            "succeed)");
  EXPECT_EQ(EndOf([&] { collection->Item(Text(L"here"), &found); }),
            "the rest depends on this change: remove from the firewall the rule here (INetFwRules.Item asks "
            "for what "
            "it would have changed)");
}

HRESULT FindUser(void*, BSTR, BSTR name, IDispatch** out) {
  *out = static_cast<IDispatch*>(rawRule->Pointer());
  return std::wstring(name) == L"here" ? S_OK : HRESULT_FROM_WIN32(NERR_UserNotFound);
}

TEST_F(HxRunLooksTest, AUserOfTheDirectoryIsLookedUp) {
  RawObject container, user;
  rawRule = &user;
  container.Set<&IADsContainer::GetObject>(&FindUser);
  IADsContainer* passed = nullptr;
  ASSERT_EQ(
      hxrun::PassObject(__uuidof(IADsContainer), container.Pointer(), reinterpret_cast<void**>(&passed)),
      S_OK);
  Text kind(L"user");
  EXPECT_EQ(passed->Delete(kind, Text(L"none")), HRESULT_FROM_WIN32(NERR_UserNotFound));
  EXPECT_EQ(passed->Delete(kind, Text(L"here")), S_OK);
  EXPECT_EQ(Listed(), (Texts{"fails: delete the account none of (unknown) (error 0x800708ad)",
                             "delete the account here of (unknown)"}));
}

TEST_F(HxRunLooksTest, TheTaskSchedulerIsAsked) {
  install::Scheduler scheduler;
  scheduler.Clear();
  scheduler.RegisterDaily(install::kUserTask);
  scheduler.RegisterDaily(install::kUpdateTask);
  const CLSID kClass = {0x0F87369F, 0xA4E5, 0x4CFC, {0xBD, 0x3E, 0x73, 0xE6, 0x15, 0x45, 0x72, 0xDD}};
  ITaskService* service = nullptr;
  ASSERT_EQ(Call<&::CoCreateInstance>(kClass, nullptr, DWORD{CLSCTX_INPROC_SERVER}, __uuidof(ITaskService),
                                      reinterpret_cast<void**>(&service)),
            S_OK);
  ASSERT_EQ(service->Connect({}, {}, {}, {}), S_OK);
  ITaskFolder *root = nullptr, *folder = nullptr;
  ASSERT_EQ(service->GetFolder(Text(L""), &root), S_OK);
  Text maker(L"Quillfern"), none(L"none");
  ASSERT_EQ(root->GetFolder(maker, &folder), S_OK);

  ITaskFolder* made = nullptr;
  EXPECT_EQ(root->CreateFolder(maker, {}, &made), HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(root->DeleteFolder(none, 0), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(folder->DeleteTask(none, 0), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
  const std::string ofFolder = "folder of the Task Scheduler ";
  EXPECT_EQ(Listed(), (Texts{"fails: create the " + ofFolder + "\\Quillfern (error 0x800700b7)",
                             "fails: delete the " + ofFolder + "\\none (error 0x80070002)",
                             "fails: delete the task \\Quillfern\\none (error 0x80070002)"}));
  IRegisteredTask* task = nullptr;
  ASSERT_EQ(folder->GetTask(Text(install::kUserTask), &task), S_OK);
  IRunningTask* running = nullptr;
  constexpr LONG kInSession = 4;
  EXPECT_EQ(task->RunEx({}, kInSession, 3, Text(L"meter"), &running), S_OK);
  const std::string run =
      "run the task \\Quillfern\\" + rig::ToUtf8(install::kUserTask) + " for the user meter in session 3";
  EXPECT_EQ(Listed(), Texts{run});
  EXPECT_EQ(EndOf([&] {
              TASK_STATE state;
              task->get_State(&state);
            }),
            "the rest depends on this change: " + run +
                " (IRegisteredTask.get_State asks for what it would have changed)");
  // The look asks only whether the definition could be registered.
  ITaskDefinition* definition = nullptr;
  ASSERT_EQ(service->NewTask(0, &definition), S_OK);
  IActionCollection* actions = nullptr;
  IAction* action = nullptr;
  ASSERT_EQ(definition->get_Actions(&actions), S_OK);
  ASSERT_EQ(actions->Create(TASK_ACTION_EXEC, &action), S_OK);
  IExecAction* program = nullptr;
  ASSERT_EQ(action->QueryInterface(__uuidof(IExecAction), reinterpret_cast<void**>(&program)), S_OK);
  ASSERT_EQ(program->put_Path(Text(L"C:\\vt.exe")), S_OK);
  IRegisteredTask* registered = nullptr;
  const Texts before = scheduler.Tasks();
  EXPECT_EQ(folder->RegisterTaskDefinition(none, definition, TASK_CREATE_OR_UPDATE, {}, {}, TASK_LOGON_NONE,
                                           {}, &registered),
            S_OK);
  EXPECT_EQ(Listed(),
            Texts{"register the task \\Quillfern\\none\n    IExecAction.put_Path(\"C:\\\\vt.exe\") = 0"});
  EXPECT_EQ(EndOf([&] {
              TASK_STATE state;
              registered->get_State(&state);
            }),
            "the rest depends on this change: register the task \\Quillfern\\none (IRegisteredTask asks for "
            "what it would have "
            "changed)");
  EXPECT_EQ(scheduler.Tasks(), before);
  scheduler.Clear();
}

// A folder with two tasks, and without a folder in it.
RawObject *rawFolder = nullptr, *rawTasks = nullptr, *rawFolders = nullptr, *rawTask[2] = {};
LONG foldersInside = 0;

HRESULT GiveFolder(void*, BSTR, ITaskFolder** out) {
  *out = static_cast<ITaskFolder*>(rawFolder->Pointer());
  return S_OK;
}
HRESULT PathOfFolder(void*, BSTR* path) {
  *path = SysAllocString(L"\\");
  return S_OK;
}
HRESULT GiveTask(void*, BSTR, IRegisteredTask** out) {
  *out = static_cast<IRegisteredTask*>(rawTask[0]->Pointer());
  return S_OK;
}
HRESULT GiveTasks(void*, LONG, IRegisteredTaskCollection** out) {
  *out = static_cast<IRegisteredTaskCollection*>(rawTasks->Pointer());
  return S_OK;
}
HRESULT GiveFolders(void*, LONG, ITaskFolderCollection** out) {
  *out = static_cast<ITaskFolderCollection*>(rawFolders->Pointer());
  return S_OK;
}
HRESULT CountTasks(void*, LONG* count) {
  *count = 2;
  return S_OK;
}
HRESULT CountFolders(void*, LONG* count) {
  *count = foldersInside;
  return S_OK;
}
HRESULT GiveItem(void*, VARIANT index, IRegisteredTask** out) {
  *out = static_cast<IRegisteredTask*>(rawTask[index.lVal - 1]->Pointer());
  return S_OK;
}
template <int kNumber>
HRESULT PathOfTask(void*, BSTR* path) {
  *path = SysAllocString(kNumber == 0 ? L"\\Quillfern\\one" : L"\\Quillfern\\two");
  return S_OK;
}

TEST_F(HxRunLooksTest, AFolderOfTasksIsDeletedAfterAllThatIsInIt) {
  RawObject service, folder, tasks, folders, one, two;
  rawFolder = &folder;
  rawTasks = &tasks;
  rawFolders = &folders;
  rawTask[0] = &one;
  rawTask[1] = &two;
  service.Set<&ITaskService::GetFolder>(&GiveFolder);
  folder.Set<&ITaskFolder::GetFolder>(&GiveFolder);
  folder.Set<&ITaskFolder::get_Path>(&PathOfFolder);
  folder.Set<&ITaskFolder::GetTask>(&GiveTask);
  folder.Set<&ITaskFolder::GetTasks>(&GiveTasks);
  folder.Set<&ITaskFolder::GetFolders>(&GiveFolders);
  tasks.Set<&IRegisteredTaskCollection::get_Count>(&CountTasks);
  tasks.Set<&IRegisteredTaskCollection::get_Item>(&GiveItem);
  folders.Set<&ITaskFolderCollection::get_Count>(&CountFolders);
  one.Set<&IRegisteredTask::get_Path>(&PathOfTask<0>);
  two.Set<&IRegisteredTask::get_Path>(&PathOfTask<1>);
  ITaskService* passed = nullptr;
  ASSERT_EQ(hxrun::PassObject(__uuidof(ITaskService), service.Pointer(), reinterpret_cast<void**>(&passed)),
            S_OK);
  ITaskFolder* root = nullptr;
  ASSERT_EQ(passed->GetFolder(Text(L""), &root), S_OK);
  Text maker(L"Quillfern");
  EXPECT_EQ(root->DeleteTask(Text(L"One"), 0), S_OK);
  EXPECT_EQ(root->DeleteFolder(maker, 0), HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
  EXPECT_EQ(root->DeleteTask(Text(L"two"), 0), S_OK);
  foldersInside = 1;
  EXPECT_EQ(root->DeleteFolder(maker, 0), HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
  foldersInside = 0;
  EXPECT_EQ(root->DeleteFolder(maker, 0), S_OK);
  const std::string fails = "fails: delete the folder of the Task Scheduler \\Quillfern (error 0x80070091)";
  EXPECT_EQ(Listed(), (Texts{"delete the task \\One", fails, "delete the task \\two", fails,
                             "delete the folder of the Task Scheduler \\Quillfern"}));
}

TEST_F(HxRunLooksTest, AWorkItemThatIsMissing) {
  install::Scheduler scheduler;
  scheduler.DeleteWorkItem();
  const CLSID kClass = {0x148BD52A, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
  ITaskScheduler* older = nullptr;
  ASSERT_EQ(Call<&::CoCreateInstance>(kClass, nullptr, DWORD{CLSCTX_INPROC_SERVER}, __uuidof(ITaskScheduler),
                                      reinterpret_cast<void**>(&older)),
            S_OK);
  EXPECT_EQ(older->Delete(L"hxrun none"), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Listed(), Texts{"fails: delete the work item hxrun none (error 0x80070002)"});
  older->Release();
}

}  // namespace
}  // namespace hxrun_test
