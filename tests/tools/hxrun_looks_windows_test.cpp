// The looks of a dry run where the Windows of these tests answers in another way than Microsoft's: its
// answers are replaced by those that Microsoft documents.
#include <gtest/gtest.h>

#include <lm.h>

#include <map>

#include "install/agent_scheduler.h"
#include "install/server_rig.h"
#include "rig/directory_interfaces.h"
#include "rig/task_interfaces.h"
#include "tools/hxrun_looks_rig.h"
#include "tools/own_import.h"
// Must come after the interfaces of the directory.
#include <adshlp.h>
#include <netfw.h>
#include <ntdsapi.h>

namespace hxrun_test {
namespace {

constexpr char kNobodyKnows[] = " (nothing shows whether it would succeed)";

// How a run ends at a change of which no look knows whether it would succeed.
std::string EndAt(const std::string& change) {
  return "the rest depends on this change: " + change + kNobodyKnows;
}

bool EndsWithName(const std::wstring& path, const std::wstring& name) {
  return path.size() >= name.size() && path.compare(path.size() - name.size(), name.size(), name) == 0;
}

// ---- the length of paths

// Returns a path in the folder of these tests with this many characters.
std::wstring PathOf(size_t length) {
  return kPlace + std::wstring(length - kPlace.size(), L'n');
}

std::string Shown(const std::wstring& path) {
  return rig::ToUtf8(path);
}

const std::wstring kAnyLength = L"\\\\?\\";

class HxRunPathLengthTest : public HxRunLooksTest {
 protected:
  void TearDown() override {
    DeleteFileW((kAnyLength + PathOf(260)).c_str());
    HxRunLooksTest::TearDown();
  }
};

// The engine of these tests creates folders with paths of any length.
TEST_F(HxRunPathLengthTest, AFolderHas247Characters) {
  const auto create = [](const std::wstring& path) {
    return Call<&::CreateDirectoryW>(path.c_str(), nullptr);
  };
  ExpectFailure(create(PathOf(248)), ERROR_FILENAME_EXCED_RANGE, "create the folder " + Shown(PathOf(248)));
  ExpectChange(create(PathOf(247)), "create the folder " + Shown(PathOf(247)));
  ExpectFailure(create(PathOf(247) + L"\\n"), ERROR_FILENAME_EXCED_RANGE,
                "create the folder " + Shown(PathOf(247) + L"\\n"));
  const std::wstring any = kAnyLength + PathOf(260);
  ExpectChange(create(any), "create the folder " + Shown(any));
  // The full path counts.
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(In(L"A").c_str());
  const std::wstring name(247 - In(L"A\\").size(), L'r');
  ExpectFailure(create(name + L"r"), ERROR_FILENAME_EXCED_RANGE,
                "create the folder " + Shown(In(L"A\\") + name + L"r"));
  ExpectChange(create(name), "create the folder " + Shown(In(L"A\\") + name));
  SetCurrentDirectoryW(before);
}

TEST_F(HxRunPathLengthTest, AnotherPathHas259Characters) {
  const std::wstring file = In(L"A\\f.txt"), longer = PathOf(260), longest = PathOf(259);
  for (const std::wstring& path : {kAnyLength + longer, longest}) {
    HANDLE made = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(made, INVALID_HANDLE_VALUE) << GetLastError();
    CloseHandle(made);
  }
  const DWORD error = ERROR_PATH_NOT_FOUND;
  ExpectFailure(Call<&::DeleteFileW>(longer.c_str()), error, "delete " + Shown(longer));
  ExpectFailure(Call<&::RemoveDirectoryW>(longer.c_str()), error, "delete the folder " + Shown(longer));
  ExpectFailure(Call<&::SetFileAttributesW>(longer.c_str(), DWORD{FILE_ATTRIBUTE_NORMAL}), error,
                "set the attributes of " + Shown(longer) + " to 0x80");
  const auto move = [](const std::wstring& from, const std::wstring& to) {
    return Call<&::MoveFileW>(from.c_str(), to.c_str());
  };
  const auto replace = [](const std::wstring& from, const std::wstring& to) {
    return Call<&::MoveFileExW>(from.c_str(), to.c_str(), DWORD{MOVEFILE_REPLACE_EXISTING});
  };
  const auto copy = [](const std::wstring& from, const std::wstring& to) {
    return Call<&::CopyFileW>(from.c_str(), to.c_str(), TRUE);
  };
  const auto text = [](const std::wstring& from, const std::wstring& to) {
    return Shown(from) + " to " + Shown(to);
  };
  const std::wstring other = In(L"other");
  ExpectFailure(move(longer, other), error, "move " + text(longer, other));
  ExpectFailure(move(file, longer), error, "move " + text(file, longer));
  // The engine of these tests finds what is at the other path.
  const std::wstring none = PathOf(261);
  ExpectFailure(replace(file, none), error, "move " + text(file, none));
  ExpectFailure(copy(longer, other), error, "copy " + text(longer, other));
  ExpectFailure(copy(file, longer), error, "copy " + text(file, longer));
  EXPECT_EQ(Call<&::CreateFileW>(longer.c_str(), DWORD{GENERIC_WRITE}, DWORD{0}, nullptr,
                                 DWORD{CREATE_ALWAYS}, DWORD{0}, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), error);
  EXPECT_EQ(Listed(), Texts{"fails: create or empty " + Shown(longer) + " (error 3)"});
  ExpectChange(Call<&::DeleteFileW>(longest.c_str()), "delete " + Shown(longest));
  ExpectChange(move(file, longest), "move " + text(file, longest));
  const std::wstring any = kAnyLength + longer;
  ExpectChange(Call<&::DeleteFileW>(any.c_str()), "delete " + Shown(any));
}

// The pattern that lists such a folder is longer than Windows takes.
TEST_F(HxRunPathLengthTest, WhatIsInALongFolderIsFound) {
  const std::wstring folder = PathOf(259), file = kAnyLength + folder + L"\\f.txt";
  ASSERT_TRUE(CreateDirectoryW((kAnyLength + folder).c_str(), nullptr));
  HANDLE made = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(made, INVALID_HANDLE_VALUE);
  CloseHandle(made);
  // The engine of these tests lists a folder by a pattern of any length.
  OwnImport<&::FindFirstFileW> find("FindFirstFileW", [](const wchar_t* pattern, WIN32_FIND_DATAW* found) {
    const std::wstring text = pattern;
    if (text.size() < MAX_PATH || text.compare(0, kAnyLength.size(), kAnyLength) == 0) {
      return OwnImport<&::FindFirstFileW>::Real(pattern, found);
    }
    SetLastError(ERROR_PATH_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  });
  ExpectFailure(Call<&::RemoveDirectoryW>(folder.c_str()), ERROR_DIR_NOT_EMPTY,
                "delete the folder " + Shown(folder));
  EXPECT_TRUE(DeleteFileW(file.c_str()));
  ExpectChange(Call<&::RemoveDirectoryW>(folder.c_str()), "delete the folder " + Shown(folder));
  EXPECT_TRUE(RemoveDirectoryW((kAnyLength + folder).c_str()));
}

// ---- what the machine does not say

TEST_F(HxRunLooksTest, AFileOfWhichWindowsSaysNothingEndsTheRun) {
  DWORD error = ERROR_ACCESS_DENIED;
  OwnImport<&::GetFileAttributesW> attributes("GetFileAttributesW", [&](const wchar_t* path) {
    if (!EndsWithName(path, L"closed")) return OwnImport<&::GetFileAttributesW>::Real(path);
    SetLastError(error);
    return INVALID_FILE_ATTRIBUTES;
  });
  const std::wstring closed = In(L"closed"), file = In(L"A\\f.txt");
  const std::string shown = "C:\\hxrun-looks\\closed", source = "C:\\hxrun-looks\\A\\f.txt";
  for (const DWORD silent : {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_GEN_FAILURE}) {
    error = silent;
    Begin();
    EXPECT_EQ(EndOf([&] { Call<&::DeleteFileW>(closed.c_str()); }), EndAt("delete " + shown));
    Begin();
    EXPECT_EQ(EndOf([&] { Call<&::RemoveDirectoryW>(closed.c_str()); }), EndAt("delete the folder " + shown));
    Begin();
    EXPECT_EQ(EndOf([&] { Call<&::CreateDirectoryW>(closed.c_str(), nullptr); }),
              EndAt("create the folder " + shown));
    Begin();
    EXPECT_EQ(EndOf([&] { Call<&::MoveFileW>(file.c_str(), closed.c_str()); }),
              EndAt("move " + source + " to " + shown));
    Begin();
    EXPECT_EQ(EndOf([&] { Call<&::CopyFileW>(closed.c_str(), file.c_str(), TRUE); }),
              EndAt("copy " + shown + " to " + source));
  }
  // These errors are those of every function.
  Begin();
  for (const DWORD plain : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_NOT_READY, ERROR_BAD_NETPATH,
                            ERROR_BAD_NET_NAME, ERROR_INVALID_NAME}) {
    error = plain;
    ExpectFailure(Call<&::DeleteFileW>(closed.c_str()), plain, "delete " + shown);
  }
}

TEST_F(HxRunLooksTest, AFolderThatCannotBeListedEndsTheRun) {
  OwnImport<&::FindFirstFileW> find("FindFirstFileW", [](const wchar_t* pattern, WIN32_FIND_DATAW* found) {
    if (!EndsWithName(pattern, L"A\\*")) return OwnImport<&::FindFirstFileW>::Real(pattern, found);
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  });
  EXPECT_EQ(EndOf([&] { Call<&::RemoveDirectoryW>(In(L"A").c_str()); }),
            EndAt("delete the folder C:\\hxrun-looks\\A"));
  // Nor can one whose list breaks off.
  OwnImport<&::FindNextFileW> next("FindNextFileW", [](HANDLE, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_NETNAME_DELETED);
    return FALSE;
  });
  Begin();
  EXPECT_EQ(EndOf([&] { Call<&::RemoveDirectoryW>(In(L"B").c_str()); }),
            EndAt("delete the folder C:\\hxrun-looks\\B"));
}

// Windows lets a program that runs and a library that is loaded be opened for deletion, but deletes neither.
TEST_F(HxRunLooksTest, AProgramThatRunsMayNotBeDeletable) {
  LayDownHxRun();
  const std::wstring library = In(L"loaded.dll"), file = In(L"A\\f.txt");
  ASSERT_TRUE(CopyFileW((std::wstring(kRunFolder) + L"\\hxsetup.dll").c_str(), library.c_str(), TRUE));
  HMODULE loaded = LoadLibraryW(library.c_str());
  ASSERT_NE(loaded, nullptr);
  const std::string remove = "delete C:\\hxrun-looks\\loaded.dll";
  EXPECT_EQ(EndOf([&] { Call<&::DeleteFileW>(library.c_str()); }), EndAt(remove));
  Begin();
  EXPECT_EQ(
      EndOf([&] { Call<&::MoveFileExW>(file.c_str(), library.c_str(), DWORD{MOVEFILE_REPLACE_EXISTING}); }),
      EndAt("move C:\\hxrun-looks\\A\\f.txt to C:\\hxrun-looks\\loaded.dll, in place of what is there"));
  // It can be renamed.
  Begin();
  ExpectChange(Call<&::MoveFileW>(library.c_str(), In(L"aside.dll").c_str()),
               "move C:\\hxrun-looks\\loaded.dll to C:\\hxrun-looks\\aside.dll");
  // A read-only file is refused in any case.
  Begin();
  SetFileAttributesW(library.c_str(), FILE_ATTRIBUTE_READONLY);
  ExpectFailure(Call<&::DeleteFileW>(library.c_str()), ERROR_ACCESS_DENIED, remove);
  SetFileAttributesW(library.c_str(), FILE_ATTRIBUTE_NORMAL);
  FreeLibrary(loaded);
  ExpectChange(Call<&::DeleteFileW>(library.c_str()), remove);
  // A file that a program has open for reading can be deleted if the program shares that.
  HANDLE held =
      CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  ExpectChange(Call<&::DeleteFileW>(file.c_str()), "delete C:\\hxrun-looks\\A\\f.txt");
  CloseHandle(held);
}

// A program does not have its own file open, so Windows may rename the folder above it.
TEST_F(HxRunLooksTest, AFolderWithAProgramThatRunsMayNotBeMovable) {
  LayDownHxRun();
  const std::wstring library = In(L"B\\sub\\loaded.dll");
  ASSERT_TRUE(CopyFileW((std::wstring(kRunFolder) + L"\\hxsetup.dll").c_str(), library.c_str(), TRUE));
  HMODULE loaded = LoadLibraryW(library.c_str());
  ASSERT_NE(loaded, nullptr);
  const auto move = [] { return Call<&::MoveFileW>(In(L"B").c_str(), In(L"C").c_str()); };
  const std::string text = "move C:\\hxrun-looks\\B to C:\\hxrun-looks\\C";
  EXPECT_EQ(EndOf(move), EndAt(text));
  Begin();
  EXPECT_EQ(EndOf([&] {
              Call<&::MoveFileExW>(In(L"B").c_str(), In(L"C").c_str(), DWORD{MOVEFILE_REPLACE_EXISTING});
            }),
            EndAt(text));
  // A file that is open is an obstacle in any case.
  Begin();
  WriteBytes(In(L"B\\z.txt"), "z");
  HANDLE held =
      CreateFileW(In(L"B\\z.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  ExpectFailure(move(), ERROR_ACCESS_DENIED, text);
  CloseHandle(held);
  // What the run moved away before is not in the folder.
  Begin();
  ExpectChange(Call<&::MoveFileW>(library.c_str(), In(L"aside.dll").c_str()),
               "move C:\\hxrun-looks\\B\\sub\\loaded.dll to C:\\hxrun-looks\\aside.dll");
  ExpectChange(move(), text);
  FreeLibrary(loaded);
}

TEST_F(HxRunLooksTest, AFolderThatCannotBeListedMayNotBeMovable) {
  OwnImport<&::FindFirstFileW> find("FindFirstFileW", [](const wchar_t* pattern, WIN32_FIND_DATAW* found) {
    if (!EndsWithName(pattern, L"sub\\*")) return OwnImport<&::FindFirstFileW>::Real(pattern, found);
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  });
  EXPECT_EQ(EndOf([] { Call<&::MoveFileW>(In(L"B").c_str(), In(L"C").c_str()); }),
            EndAt("move C:\\hxrun-looks\\B to C:\\hxrun-looks\\C"));
}

// Windows refuses to create the root of a drive with one of two errors.
TEST_F(HxRunLooksTest, TheRootOfADrive) {
  const auto create = [](const wchar_t* path) { return Call<&::CreateDirectoryW>(path, nullptr); };
  for (const wchar_t* root : {L"C:\\", L"\\\\?\\C:\\"}) {
    Begin();
    EXPECT_EQ(EndOf([&] { create(root); }), EndAt("create the folder " + rig::ToUtf8(root)));
  }
  Begin();
  ExpectFailure(create(L"Q:\\"), ERROR_PATH_NOT_FOUND, "create the folder Q:\\");
}

// ---- names

// The engine of these tests does not say where a link leads to.
TEST_F(HxRunLooksTest, AFileIsKnownBelowALinkToItsFolder) {
  std::map<HANDLE, std::wstring> opened;
  OwnImport<&::CreateFileW> open("CreateFileW", [&](const wchar_t* path, DWORD access, DWORD sharing,
                                                    SECURITY_ATTRIBUTES* security, DWORD disposition,
                                                    DWORD flags, HANDLE model) {
    HANDLE file = OwnImport<&::CreateFileW>::Real(path, access, sharing, security, disposition, flags, model);
    opened[file] = path;
    return file;
  });
  OwnImport<&::GetFinalPathNameByHandleW> final(
      "GetFinalPathNameByHandleW", [&](HANDLE file, wchar_t* path, DWORD size, DWORD flags) -> DWORD {
        if (!EndsWithName(opened.at(file), L"hxrun-looks\\link\\")) {
          return OwnImport<&::GetFinalPathNameByHandleW>::Real(file, path, size, flags);
        }
        const std::wstring target = L"\\\\?\\" + In(L"A");
        EXPECT_LT(target.size(), size);
        target.copy(path, target.size());
        return static_cast<DWORD>(target.size());
      });
  install::MakeLink(kPlace + L"link", kPlace + L"A");
  ExpectChange(Call<&::DeleteFileW>(In(L"link\\f.txt").c_str()), "delete C:\\hxrun-looks\\link\\f.txt");
  ExpectFailure(Call<&::DeleteFileW>(In(L"A\\f.txt").c_str()), ERROR_FILE_NOT_FOUND,
                "delete C:\\hxrun-looks\\A\\f.txt");
  ExpectChange(Call<&::CreateDirectoryW>(In(L"A\\new").c_str(), nullptr),
               "create the folder C:\\hxrun-looks\\A\\new");
  WIN32_FIND_DATAW found;
  EXPECT_EQ(
      EndOf([&] { Call<&::FindFirstFileW>(In(L"link\\*").c_str(), &found); }),
      "the rest depends on this change: delete C:\\hxrun-looks\\link\\f.txt (FindFirstFileW asks for what it "
      "would have changed)");
  // The link itself is not the folder, and nothing can be reached through a link that is gone.
  Begin();
  const std::string link = "delete the folder C:\\hxrun-looks\\link";
  ExpectChange(Call<&::RemoveDirectoryW>(In(L"link").c_str()), link);
  ExpectFailure(Call<&::DeleteFileW>(In(L"link\\f.txt").c_str()), ERROR_PATH_NOT_FOUND,
                "delete C:\\hxrun-looks\\link\\f.txt");
  EXPECT_EQ(EndOf([&] { Call<&::GetFileAttributesW>(In(L"link\\none").c_str()); }),
            "the rest depends on this change: " + link +
                " (GetFileAttributesW asks for what it would have changed)");
  EXPECT_EQ(
      EndOf([&] { Call<&::FindFirstFileW>(In(L"link\\*").c_str(), &found); }),
      "the rest depends on this change: " + link + " (FindFirstFileW asks for what it would have changed)");
  ExpectChange(Call<&::DeleteFileW>(In(L"A\\f.txt").c_str()), "delete C:\\hxrun-looks\\A\\f.txt");
  install::DeleteTree(L"C:\\hxrun-looks");
}

// ---- volumes

// Answers which volume a file is on, by the path with which hxrun opens it and by whether it follows links.
class Volumes {
 public:
  using VolumeOf = std::function<DWORD(const std::wstring& path, bool follows)>;
  // A volume that the machine does not name.
  static constexpr DWORD kSilent = 0xFFFFFFFF;

  explicit Volumes(VolumeOf volumeOf)
      : open_("CreateFileW",
              [this](const wchar_t* path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                     DWORD disposition, DWORD flags, HANDLE model) {
                HANDLE file = OwnImport<&::CreateFileW>::Real(path, access, sharing, security, disposition,
                                                              flags, model);
                opened_[file] = {path, (flags & FILE_FLAG_OPEN_REPARSE_POINT) == 0};
                return file;
              }),
        inform_("GetFileInformationByHandle",
                [this, volumeOf](HANDLE file, BY_HANDLE_FILE_INFORMATION* found) {
                  const auto& [path, follows] = opened_.at(file);
                  if (!OwnImport<&::GetFileInformationByHandle>::Real(file, found)) return FALSE;
                  found->dwVolumeSerialNumber = volumeOf(path, follows);
                  return found->dwVolumeSerialNumber == kSilent ? FALSE : TRUE;
                }) {}

 private:
  std::map<HANDLE, std::pair<std::wstring, bool>> opened_;
  OwnImport<&::CreateFileW> open_;
  OwnImport<&::GetFileInformationByHandle> inform_;
};

class HxRunVolumeTest : public HxRunLooksTest {
 protected:
  static BOOL Move(const std::wstring& from, const std::wstring& to) {
    return Call<&::MoveFileW>(from.c_str(), to.c_str());
  }
  static BOOL MoveWith(DWORD flags, const std::wstring& from, const std::wstring& to) {
    return Call<&::MoveFileExW>(from.c_str(), to.c_str(), flags);
  }
  static std::string Text(const std::string& from, const std::string& to) {
    return "move C:\\hxrun-looks\\" + from + " to " + to;
  }
};

// The number of the volume counts, and not the letter of the drive: a letter can stand for a folder.
TEST_F(HxRunVolumeTest, AFolderStaysOnItsVolume) {
  DWORD ofZ = 2;
  const Volumes volumes([&](const std::wstring& path, bool) { return path[0] == L'Z' ? ofZ : 1; });
  ExpectFailure(Move(In(L"A"), L"Z:\\hxrun-looks"), ERROR_ACCESS_DENIED, Text("A", "Z:\\hxrun-looks"));
  ExpectFailure(MoveWith(0, In(L"A"), L"Z:\\hxrun-looks"), ERROR_NOT_SAME_DEVICE,
                Text("A", "Z:\\hxrun-looks"));
  ExpectFailure(MoveWith(MOVEFILE_COPY_ALLOWED, In(L"A"), L"Z:\\hxrun-looks"), ERROR_ACCESS_DENIED,
                Text("A", "Z:\\hxrun-looks"));
  ExpectFailure(MoveWith(0, In(L"A\\f.txt"), L"Z:\\hxrun-looks"), ERROR_NOT_SAME_DEVICE,
                Text("A\\f.txt", "Z:\\hxrun-looks"));
  ExpectChange(MoveWith(MOVEFILE_COPY_ALLOWED, In(L"A\\f.txt"), L"Z:\\hxrun-looks-1"),
               Text("A\\f.txt", "Z:\\hxrun-looks-1"));
  ExpectChange(Move(In(L"B\\sub\\g.txt"), L"Z:\\hxrun-looks-2"), Text("B\\sub\\g.txt", "Z:\\hxrun-looks-2"));
  ofZ = 1;
  ExpectChange(Move(In(L"A"), L"Z:\\hxrun-looks-3"), Text("A", "Z:\\hxrun-looks-3"));
}

TEST_F(HxRunVolumeTest, ALinkIsOnTheVolumeOfItsFolderAndItsTargetOnAnother) {
  install::MakeLink(kPlace + L"link", kPlace + L"A");
  {
    const Volumes volumes([](const std::wstring& path, bool follows) {
      return follows && path.find(L"link") != std::wstring::npos ? 2 : 1;
    });
    ExpectChange(Move(In(L"link"), In(L"moved")), Text("link", "C:\\hxrun-looks\\moved"));
    Begin();
    ExpectFailure(Move(In(L"B"), In(L"link\\B")), ERROR_ACCESS_DENIED, Text("B", "C:\\hxrun-looks\\link\\B"));
    // A new folder is on the volume of the folder that it would be in.
    ExpectChange(Call<&::CreateDirectoryW>(In(L"link\\new").c_str(), nullptr),
                 "create the folder C:\\hxrun-looks\\link\\new");
    ExpectFailure(Move(In(L"B"), In(L"link\\new\\B")), ERROR_ACCESS_DENIED,
                  Text("B", "C:\\hxrun-looks\\link\\new\\B"));
    ExpectChange(Move(In(L"link\\new"), In(L"link\\newer")),
                 Text("link\\new", "C:\\hxrun-looks\\link\\newer"));
  }
  install::DeleteTree(L"C:\\hxrun-looks");
}

TEST_F(HxRunVolumeTest, AVolumeThatWindowsDoesNotNameEndsTheRun) {
  // Some file systems have no serial numbers: 0 is that of several volumes.
  const std::pair<wchar_t, DWORD> cases[] = {
      {L'C', Volumes::kSilent}, {L'Z', Volumes::kSilent}, {L'C', 0}, {L'Z', 0}, {L'*', 0}};
  for (const auto& [silent, number] : cases) {
    const Volumes volumes([drive = silent, given = number](const std::wstring& path, bool) {
      return drive == L'*' || path[0] == drive ? given : 1;
    });
    Begin();
    EXPECT_EQ(EndOf([&] { Move(In(L"A"), L"Z:\\hxrun-looks"); }), EndAt(Text("A", "Z:\\hxrun-looks")));
    Begin();
    EXPECT_EQ(EndOf([&] { MoveWith(0, In(L"A"), L"Z:\\hxrun-looks"); }), EndAt(Text("A", "Z:\\hxrun-looks")));
    // A file is copied if it cannot be moved.
    Begin();
    ExpectChange(Move(In(L"A\\f.txt"), L"Z:\\hxrun-looks"), Text("A\\f.txt", "Z:\\hxrun-looks"));
  }
}

// ---- links to files, which the engine of these tests follows when it is asked for their attributes

TEST_F(HxRunLooksTest, ACopyReadsWhatALinkLeadsTo) {
  std::wstring leadsTo;
  DWORD error = ERROR_FILE_NOT_FOUND;
  OwnImport<&::GetFileAttributesW> attributes("GetFileAttributesW", [](const wchar_t* path) {
    return EndsWithName(path, L"link") ? DWORD{FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT}
                                       : OwnImport<&::GetFileAttributesW>::Real(path);
  });
  OwnImport<&::CreateFileW> open(
      "CreateFileW", [&](const wchar_t* path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                         DWORD disposition, DWORD flags, HANDLE model) {
        const bool isFollowed = EndsWithName(path, L"link") && (flags & FILE_FLAG_OPEN_REPARSE_POINT) == 0;
        if (isFollowed && leadsTo.empty()) {
          SetLastError(error);
          return INVALID_HANDLE_VALUE;
        }
        const std::wstring opened = isFollowed                    ? leadsTo
                                    : EndsWithName(path, L"link") ? In(L"A\\f.txt")
                                                                  : std::wstring(path);
        return OwnImport<&::CreateFileW>::Real(opened.c_str(), access, sharing, security, disposition, flags,
                                               model);
      });
  const auto copy = [] { return Call<&::CopyFileW>(In(L"link").c_str(), In(L"x").c_str(), TRUE); };
  const std::string text = "copy C:\\hxrun-looks\\link to C:\\hxrun-looks\\x";
  ExpectFailure(copy(), ERROR_FILE_NOT_FOUND, text);
  error = ERROR_PATH_NOT_FOUND;
  ExpectFailure(copy(), ERROR_PATH_NOT_FOUND, text);
  error = ERROR_CANT_RESOLVE_FILENAME;
  ExpectFailure(copy(), ERROR_CANT_RESOLVE_FILENAME, text);
  leadsTo = In(L"B");
  ExpectFailure(copy(), ERROR_ACCESS_DENIED, text);
  // Rights are not looked at.
  leadsTo.clear();
  error = ERROR_ACCESS_DENIED;
  ExpectChange(copy(), text);
  Begin();
  leadsTo = In(L"B\\sub\\g.txt");
  ExpectChange(copy(), text);
}

// ---- accounts

class HxRunAccountTest : public HxRunLooksTest {
 protected:
  static DWORD Add(std::wstring name) {
    wchar_t password[] = L"1-Look-at-this";
    USER_INFO_2 user = {};
    user.usri2_name = name.data();
    user.usri2_password = password;
    return Call<&::NetUserAdd>(nullptr, DWORD{2}, reinterpret_cast<BYTE*>(&user),
                               static_cast<DWORD*>(nullptr));
  }
  static std::string Text(const std::wstring& name) {
    return "create the account " + rig::ToUtf8(name) + " with a new password";
  }
  void ExpectRefused(const std::wstring& name, DWORD error) {
    EXPECT_EQ(Add(name), error) << rig::ToUtf8(name);
    EXPECT_EQ(Listed(), Texts{"fails: " + Text(name) + " (error " + std::to_string(error) + ")"});
  }
};

// The engine of these tests takes any name.
TEST_F(HxRunAccountTest, ANameThatWindowsRefuses) {
  ExpectRefused(L"hx-of-21-characters-x", NERR_BadUsername);
  ExpectRefused(L"hxmeter.", NERR_BadUsername);
  for (const wchar_t unit : std::wstring(L"\"/\\[]:;|=,+*?<>\x01\x1F")) {
    ExpectRefused(std::wstring(L"hx") + unit + L"meter", NERR_BadUsername);
  }
  EXPECT_EQ(Add(L"hx.of 20-characters!"), DWORD{NERR_Success});
  EXPECT_EQ(Listed(), Texts{Text(L"hx.of 20-characters!")});
  for (const wchar_t* name : {L"", L"  "}) {
    Begin();
    EXPECT_EQ(EndOf([&] { Add(name); }), EndAt(Text(name)));
  }
}

// The engine of these tests has no groups.
TEST_F(HxRunAccountTest, ANameOfALocalGroup) {
  DWORD error = NERR_Success;
  OwnImport<&::NetLocalGroupEnum> list("NetLocalGroupEnum", [&](const wchar_t*, DWORD level, BYTE** out,
                                                                DWORD, DWORD* count, DWORD* all, DWORD_PTR*) {
    EXPECT_EQ(level, 0u);
    *out = nullptr;
    *count = *all = 0;
    if (error != NERR_Success) return error;
    static wchar_t name[] = L"Meter Readers", other[] = L"Users";
    void* block = nullptr;
    NetApiBufferAllocate(2 * sizeof(LOCALGROUP_INFO_0), &block);
    auto* groups = static_cast<LOCALGROUP_INFO_0*>(block);
    groups[0].lgrpi0_name = other;
    groups[1].lgrpi0_name = name;
    *out = static_cast<BYTE*>(block);
    *count = *all = 2;
    return error;
  });
  // It refuses the account, but with an error that is not documented for it.
  EXPECT_EQ(EndOf([&] { Add(L"meter READERS"); }), EndAt(Text(L"meter READERS")));
  Begin();
  EXPECT_EQ(Add(L"meter"), DWORD{NERR_Success});
  EXPECT_EQ(Listed(), Texts{Text(L"meter")});
  for (const DWORD silent : {DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_MORE_DATA}}) {
    error = silent;
    Begin();
    EXPECT_EQ(EndOf([&] { Add(L"meter"); }), EndAt(Text(L"meter")));
  }
}

// ---- the firewall

constexpr HRESULT kFirewallStopped = static_cast<HRESULT>(0x800706D9);

RawObject* rawExceptions = nullptr;

template <class Interface>
HRESULT GiveExceptions(void*, Interface** out) {
  *out = static_cast<Interface*>(rawExceptions->Pointer());
  return S_OK;
}

// Looks an exception up: by a name that says what comes of it.
template <class Interface>
HRESULT FindException(void*, BSTR name, Interface** out) {
  const std::wstring text = name;
  *out = nullptr;
  if (text == L"none") return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  if (text == L"stopped") return kFirewallStopped;
  if (text == L"unknown") return E_NOTIMPL;
  if (text == L"no path") return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
  // It is released, and nothing else is done with it.
  *out = static_cast<Interface*>(rawExceptions->Pointer());
  return S_OK;
}

HRESULT TakeText(void*, BSTR) {
  return S_OK;
}

// Adds an exception with this name to `collection`. `put` is the method that names it.
template <auto Put, class Interface, class Collection>
HRESULT AddException(Collection* collection, const wchar_t* name) {
  RawObject raw;
  raw.Set<Put>(&TakeText);
  Interface* made = nullptr;
  EXPECT_EQ(hxrun::PassObject(__uuidof(Interface), raw.Pointer(), reinterpret_cast<void**>(&made)), S_OK);
  EXPECT_EQ((made->*Put)(Text(name)), S_OK);
  return collection->Add(made);
}

TEST_F(HxRunLooksTest, ARuleIsAddedIfItsNameCanBeLookedUp) {
  RawObject policy, rules;
  rawExceptions = &rules;
  policy.Set<&INetFwPolicy2::get_Rules>(&GiveExceptions<INetFwRules>);
  rules.Set<&INetFwRules::Item>(&FindException<INetFwRule>);
  INetFwPolicy2* passed = nullptr;
  ASSERT_EQ(hxrun::PassObject(__uuidof(INetFwPolicy2), policy.Pointer(), reinterpret_cast<void**>(&passed)),
            S_OK);
  INetFwRules* collection = nullptr;
  ASSERT_EQ(passed->get_Rules(&collection), S_OK);
  const auto add = [&](const wchar_t* name) {
    return AddException<&INetFwRule::put_Name, INetFwRule>(collection, name);
  };
  const auto text = [](const std::string& name) {
    return "add the rule to the firewall: " + name + "\n    INetFwRule.put_Name(\"" + name + "\") = 0";
  };
  EXPECT_EQ(add(L"stopped"), kFirewallStopped);
  EXPECT_EQ(collection->Remove(Text(L"stopped")), kFirewallStopped);
  EXPECT_EQ(add(L"none"), S_OK);
  EXPECT_EQ(add(L"here"), S_OK);
  EXPECT_EQ(Listed(), (Texts{"fails: add the rule to the firewall: stopped (error 0x800706d9)\n    "
                             "INetFwRule.put_Name(\"stopped\") = 0",
                             "fails: remove from the firewall the rule stopped (error 0x800706d9)",
                             text("none"), text("here")}));
  for (const wchar_t* name : {L"unknown", L"no path"}) {
    EXPECT_EQ(EndOf([&] { add(name); }), EndAt("add the rule to the firewall: " + rig::ToUtf8(name)));
  }
}

TEST_F(HxRunLooksTest, AProgramIsAddedIfItCanBeLookedUp) {
  RawObject profile, applications;
  rawExceptions = &applications;
  profile.Set<&INetFwProfile::get_AuthorizedApplications>(&GiveExceptions<INetFwAuthorizedApplications>);
  applications.Set<&INetFwAuthorizedApplications::Item>(&FindException<INetFwAuthorizedApplication>);
  RawObject manager, policy;
  static RawObject *givenPolicy, *givenProfile;
  givenPolicy = &policy;
  givenProfile = &profile;
  manager.Set<&INetFwMgr::get_LocalPolicy>(+[](void*, INetFwPolicy** out) -> HRESULT {
    *out = static_cast<INetFwPolicy*>(givenPolicy->Pointer());
    return S_OK;
  });
  policy.Set<&INetFwPolicy::get_CurrentProfile>(+[](void*, INetFwProfile** out) -> HRESULT {
    *out = static_cast<INetFwProfile*>(givenProfile->Pointer());
    return S_OK;
  });
  INetFwMgr* passed = nullptr;
  ASSERT_EQ(hxrun::PassObject(__uuidof(INetFwMgr), manager.Pointer(), reinterpret_cast<void**>(&passed)),
            S_OK);
  INetFwPolicy* local = nullptr;
  INetFwProfile* current = nullptr;
  INetFwAuthorizedApplications* collection = nullptr;
  ASSERT_EQ(passed->get_LocalPolicy(&local), S_OK);
  ASSERT_EQ(local->get_CurrentProfile(&current), S_OK);
  ASSERT_EQ(current->get_AuthorizedApplications(&collection), S_OK);
  const auto add = [&](const wchar_t* name) {
    return AddException<&INetFwAuthorizedApplication::put_ProcessImageFileName, INetFwAuthorizedApplication>(
        collection, name);
  };
  const auto text = [](const std::string& name, const std::string& error = "") {
    return "add the program to the firewall's exceptions: " + name + error +
           "\n    INetFwAuthorizedApplication.put_ProcessImageFileName(\"" + name + "\") = 0";
  };
  EXPECT_EQ(add(L"stopped"), kFirewallStopped);
  EXPECT_EQ(collection->Remove(Text(L"stopped")), kFirewallStopped);
  EXPECT_EQ(add(L"none"), S_OK);
  EXPECT_EQ(add(L"here"), S_OK);
  EXPECT_EQ(Listed(),
            (Texts{"fails: " + text("stopped", " (error 0x800706d9)"),
                   "fails: remove from the firewall's exceptions the program stopped (error 0x800706d9)",
                   text("none"), text("here")}));
  for (const wchar_t* name : {L"unknown", L"no path"}) {
    EXPECT_EQ(EndOf([&] { add(name); }),
              EndAt("add the program to the firewall's exceptions: " + rig::ToUtf8(name)));
  }
}

// ---- tasks

HRESULT GiveStatePath(void*, BSTR* path) {
  *path = SysAllocString(L"\\Quillfern\\Agent");
  return S_OK;
}
HRESULT GiveReadyState(void*, TASK_STATE* state) {
  *state = TASK_STATE_READY;
  return S_OK;
}
RawObject* rawSchedulerFolder = nullptr;
RawObject* rawAgentTask = nullptr;
HRESULT GiveSchedulerFolder(void*, BSTR, ITaskFolder** out) {
  *out = static_cast<ITaskFolder*>(rawSchedulerFolder->Pointer());
  return S_OK;
}
HRESULT GiveAgentTask(void*, BSTR, IRegisteredTask** out) {
  *out = static_cast<IRegisteredTask*>(rawAgentTask->Pointer());
  return S_OK;
}
HRESULT ValidateTask(void*, BSTR, ITaskDefinition*, LONG flags, const VARIANT*, const VARIANT*,
                     TASK_LOGON_TYPE, const VARIANT*, IRegisteredTask** out) {
  EXPECT_EQ(flags, LONG{TASK_VALIDATE_ONLY});
  *out = nullptr;
  return S_OK;
}

class HxRunTaskTest : public HxRunLooksTest {
 protected:
  void SetUp() override {
    HxRunLooksTest::SetUp();
    Connect();
  }
  // Gives the run the folder again, after Begin().
  void Connect() {
    rawSchedulerFolder = &rawFolder_;
    rawAgentTask = &rawTask_;
    rawService_.Set<&ITaskService::GetFolder>(&GiveSchedulerFolder);
    rawFolder_.Set<&ITaskFolder::GetTask>(&GiveAgentTask);
    rawFolder_.Set<&ITaskFolder::get_Path>(&GiveStatePath);
    rawFolder_.Set<&ITaskFolder::RegisterTaskDefinition>(&ValidateTask);
    rawTask_.Set<&IRegisteredTask::get_Path>(&GiveStatePath);
    rawTask_.Set<&IRegisteredTask::get_State>(&GiveReadyState);
    ITaskService* service = nullptr;
    ASSERT_EQ(
        hxrun::PassObject(__uuidof(ITaskService), rawService_.Pointer(), reinterpret_cast<void**>(&service)),
        S_OK);
    ASSERT_EQ(service->GetFolder(Text(L""), &folder_), S_OK);
  }

  RawObject rawService_, rawFolder_, rawTask_;
  ITaskFolder* folder_ = nullptr;
};

TEST_F(HxRunTaskTest, ARunNamesItsUserAndItsSessionIfItHasThem) {
  constexpr LONG kInSession = 4, kIgnoringConstraints = 2;
  const auto run = [&](LONG flags, const wchar_t* user) {
    Begin();
    Connect();
    IRegisteredTask* task = nullptr;
    EXPECT_EQ(folder_->GetTask(Text(L"Agent"), &task), S_OK);
    IRunningTask* running = nullptr;
    EXPECT_EQ(task->RunEx({}, flags, 3, Text(user), &running), S_OK);
    return Listed();
  };
  const std::string text = "run the task \\Quillfern\\Agent";
  EXPECT_EQ(run(kInSession | kIgnoringConstraints, L"meter"),
            Texts{text + " for the user meter in session 3"});
  EXPECT_EQ(run(kInSession, L""), Texts{text + " in session 3"});
  EXPECT_EQ(run(kIgnoringConstraints, L"meter"), Texts{text + " for the user meter"});
  EXPECT_EQ(run(0, nullptr), Texts{text});
}

// In a Windows of another language the group of the users has another name.
TEST_F(HxRunTaskTest, ATaskNeedsItsAccount) {
  DWORD error = ERROR_NONE_MAPPED;
  OwnImport<&::LookupAccountNameW> find(
      "LookupAccountNameW",
      [&](const wchar_t* computer, const wchar_t* name, PSID, DWORD*, wchar_t*, DWORD*, SID_NAME_USE*) {
        EXPECT_EQ(computer, nullptr);
        SetLastError(error);
        return std::wstring(name) == L"VORDEFINIERT\\Benutzer";
      });
  const auto save = [&](const wchar_t* user, TASK_LOGON_TYPE logon = TASK_LOGON_GROUP) {
    Begin();
    Connect();
    const Text account(user == nullptr ? L"" : user);
    VARIANT given = {};
    if (user != nullptr) {
      given.vt = VT_BSTR;
      given.bstrVal = account;
    }
    IRegisteredTask* registered = nullptr;
    return folder_->RegisterTaskDefinition(Text(L"Agent"), nullptr, TASK_CREATE_OR_UPDATE, given, {}, logon,
                                           {}, &registered);
  };
  const std::string text = "register the task \\Quillfern\\Agent\\Agent";
  EXPECT_EQ(save(L"Builtin\\Users"), HRESULT_FROM_WIN32(ERROR_NONE_MAPPED));
  EXPECT_EQ(Listed(), Texts{"fails: " + text + " (error 0x80070534)"});
  for (const wchar_t* user : {L"VORDEFINIERT\\Benutzer", L"", static_cast<const wchar_t*>(nullptr)}) {
    EXPECT_EQ(save(user), S_OK);
    EXPECT_EQ(Listed(), Texts{text});
  }
  // The Task Scheduler knows SYSTEM in each language, and the look-up does not.
  EXPECT_EQ(EndOf([&] { save(L"SYSTEM", TASK_LOGON_SERVICE_ACCOUNT); }), EndAt(text));
  error = ERROR_TRUSTED_RELATIONSHIP_FAILURE;
  EXPECT_EQ(EndOf([&] { save(L"CORP\\meter"); }), EndAt(text));
}

HRESULT lookUpOfFolder = S_OK;
HRESULT LookUpFolder(void*, BSTR, ITaskFolder** out) {
  *out = SUCCEEDED(lookUpOfFolder) ? static_cast<ITaskFolder*>(rawSchedulerFolder->Pointer()) : nullptr;
  return lookUpOfFolder;
}

TEST_F(HxRunTaskTest, AFolderOfTasksIsCreatedIfItIsMissing) {
  const auto create = [&](HRESULT lookUp) {
    Begin();
    Connect();
    rawFolder_.Set<&ITaskFolder::GetFolder>(&LookUpFolder);
    lookUpOfFolder = lookUp;
    ITaskFolder* made = nullptr;
    return folder_->CreateFolder(Text(L"Quillfern"), {}, &made);
  };
  const std::string text = "create the folder of the Task Scheduler \\Quillfern\\Agent\\Quillfern";
  for (const DWORD missing : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND}) {
    EXPECT_EQ(create(HRESULT_FROM_WIN32(missing)), S_OK);
    EXPECT_EQ(Listed(), Texts{text});
  }
  EXPECT_EQ(create(S_OK), HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(Listed(), Texts{"fails: " + text + " (error 0x800700b7)"});
  for (const HRESULT other : {E_ACCESSDENIED, HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)}) {
    EXPECT_EQ(EndOf([&] { create(other); }), EndAt(text));
  }
}

// A work item's account is looked up where the work item is saved.
TEST_F(HxRunLooksTest, AWorkItemNeedsItsAccount) {
  DWORD error = ERROR_SUCCESS;
  std::wstring asked;
  OwnImport<&::LookupAccountNameW> find(
      "LookupAccountNameW",
      [&](const wchar_t* computer, const wchar_t* name, PSID, DWORD*, wchar_t*, DWORD*, SID_NAME_USE*) {
        EXPECT_EQ(computer, nullptr);
        asked = name;
        SetLastError(error);
        return error == ERROR_SUCCESS;
      });
  RawObject raw, rawFile;
  raw.Set<&IScheduledWorkItem::SetAccountInformation>(
      +[](void*, const wchar_t*, const wchar_t*) -> HRESULT { return S_OK; });
  const auto save = [&](const wchar_t* account) {
    Begin();
    ITask* item = nullptr;
    IPersistFile* file = nullptr;
    EXPECT_EQ(hxrun::PassObject(__uuidof(ITask), raw.Pointer(), reinterpret_cast<void**>(&item)), S_OK);
    EXPECT_EQ(hxrun::PassObject(__uuidof(IPersistFile), rawFile.Pointer(), reinterpret_cast<void**>(&file)),
              S_OK);
    if (account != nullptr) {
      EXPECT_EQ(item->SetAccountInformation(account, L"1-Look-at-this"), S_OK);
    }
    return file->Save(nullptr, TRUE);
  };
  EXPECT_EQ(save(L"CORP\\meter"), S_OK);
  EXPECT_EQ(asked, L"CORP\\meter");
  EXPECT_EQ(
      Listed(),
      Texts{"save the work item\n    ITask.SetAccountInformation(\"CORP\\\\meter\", \"<password>\") = 0"});
  for (const DWORD failure : {ERROR_NONE_MAPPED, ERROR_TRUSTED_RELATIONSHIP_FAILURE}) {
    error = failure;
    EXPECT_EQ(EndOf([&] { save(L"meter"); }), EndAt("save the work item"));
  }
  // Without an account, or with the empty one, which is SYSTEM, there is nothing to look up.
  for (const wchar_t* none : {L"", static_cast<const wchar_t*>(nullptr)}) EXPECT_EQ(save(none), S_OK);
}

// The Windows of these tests has the group.
TEST_F(HxRunTaskTest, TheGroupOfTheUsersIsAnAccount) {
  const Text users(L"Builtin\\Users");
  VARIANT given = {};
  given.vt = VT_BSTR;
  given.bstrVal = users;
  IRegisteredTask* registered = nullptr;
  EXPECT_EQ(folder_->RegisterTaskDefinition(Text(L"Agent"), nullptr, TASK_CREATE_OR_UPDATE, given, {},
                                            TASK_LOGON_GROUP, {}, &registered),
            S_OK);
}

// ---- the directory, which the Windows of these tests does not have

// What ADsGetObject finds: an object of this class, or a failure.
struct FoundInDirectory {
  HRESULT result = E_NOTIMPL;
  const wchar_t* objectClass = nullptr;
  std::wstring path;
};
FoundInDirectory directory;

HRESULT GiveClass(void*, BSTR* out) {
  if (directory.objectClass == nullptr) return E_FAIL;
  *out = SysAllocString(directory.objectClass);
  return S_OK;
}

HRESULT WINAPI FindInDirectory(const wchar_t* path, const IID& iid, void** out) {
  static RawObject object;
  object.Set<&IADs::get_Class>(&GiveClass);
  EXPECT_TRUE(IsEqualGUID(iid, __uuidof(IADs)));
  directory.path = path;
  *out = SUCCEEDED(directory.result) ? object.Pointer() : nullptr;
  return directory.result;
}

class HxRunDirectoryTest : public HxRunLooksTest {
 protected:
  void SetUp() override {
    HxRunLooksTest::SetUp();
    directory = {};
    // From the first use on the rig keeps what it found by this name.
    const OwnImport<&::GetProcAddress> byName("GetProcAddress", [](HMODULE module, const char* name) {
      const bool isNumber = reinterpret_cast<uintptr_t>(name) < 0x10000;
      return !isNumber && std::string(name) == "ADsGetObject"
                 ? reinterpret_cast<FARPROC>(reinterpret_cast<uintptr_t>(&FindInDirectory))
                 : OwnImport<&::GetProcAddress>::Real(module, name);
    });
    ASSERT_EQ(reinterpret_cast<uintptr_t>(rig::Function<&::ADsGetObject>::Real()),
              reinterpret_cast<uintptr_t>(&FindInDirectory));
  }
};

constexpr HRESULT kNoSuchObject = static_cast<HRESULT>(0x80072030);

TEST_F(HxRunDirectoryTest, PrincipalNamesNeedTheirAccount) {
  rig_->On<::DsBindW>([](const wchar_t*, const wchar_t*, HANDLE* out) -> DWORD {
    *out = reinterpret_cast<HANDLE>(uintptr_t{0xD50010});
    return ERROR_SUCCESS;
  });
  rig_->On<::DsUnBindW>([](HANDLE*) -> DWORD { return ERROR_SUCCESS; });
  HANDLE bound = nullptr;
  ASSERT_EQ(Call<&::DsBindW>(nullptr, nullptr, &bound), DWORD{ERROR_SUCCESS});
  const wchar_t* names[] = {L"VANTOR/pc7", L"VANTOR/PC7"};
  const auto write = [&](DS_SPN_WRITE_OP operation, const wchar_t* account) {
    return Call<&::DsWriteAccountSpnW>(bound, operation, account, DWORD{2}, names);
  };
  directory = {S_OK, L"user", {}};
  EXPECT_EQ(write(DS_SPN_ADD_SPN_OP, L"CN=meter/A,OU=Konten,DC=corp"), DWORD{ERROR_SUCCESS});
  // A slash in a name is not the one that separates names.
  EXPECT_EQ(directory.path, L"LDAP://CN=meter\\/A,OU=Konten,DC=corp");
  EXPECT_EQ(write(DS_SPN_DELETE_SPN_OP, L"CN=meter"), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(directory.path, L"LDAP://CN=meter");
  EXPECT_EQ(Listed(),
            (Texts{"add the service principal names of CN=meter/A,OU=Konten,DC=corp: VANTOR/pc7 VANTOR/PC7",
                   "delete the service principal names of CN=meter: VANTOR/pc7 VANTOR/PC7"}));
  directory = {kNoSuchObject, nullptr, {}};
  EXPECT_EQ(EndOf([&] { write(DS_SPN_ADD_SPN_OP, L"CN=meter"); }),
            EndAt("add the service principal names of CN=meter: VANTOR/pc7 VANTOR/PC7"));
  Call<&::DsUnBindW>(&bound);
}

HRESULT GivePathOfUser(void*, BSTR* path) {
  *path = SysAllocString(L"WinNT://CORP/meter");
  return S_OK;
}

TEST_F(HxRunDirectoryTest, ANewUserNeedsAFreeName) {
  RawObject user;
  user.Set<&IADs::get_ADsPath>(&GivePathOfUser);
  const auto save = [&] {
    Begin();
    IADsUser* passed = nullptr;
    EXPECT_EQ(hxrun::PassObject(__uuidof(IADsUser), user.Pointer(), reinterpret_cast<void**>(&passed)), S_OK);
    return passed->SetInfo();
  };
  const std::string text = "create the account (unknown)";
  for (const HRESULT missing : {HRESULT_FROM_WIN32(NERR_UserNotFound), kNoSuchObject}) {
    directory = {missing, nullptr, {}};
    EXPECT_EQ(save(), S_OK);
    EXPECT_EQ(directory.path, L"WinNT://CORP/meter");
    EXPECT_EQ(Listed(), Texts{text});
  }
  directory = {S_OK, L"User", {}};
  EXPECT_EQ(save(), HRESULT_FROM_WIN32(NERR_UserExists));
  EXPECT_EQ(Listed(), Texts{"fails: " + text + " (error 0x800708b0)"});
  // A group of this name is in the way, and a computer is not.
  for (const wchar_t* other : {L"Group", L"Computer", static_cast<const wchar_t*>(nullptr)}) {
    directory = {S_OK, other, {}};
    EXPECT_EQ(EndOf(save), EndAt(text));
  }
  directory = {E_ACCESSDENIED, nullptr, {}};
  EXPECT_EQ(EndOf(save), EndAt(text));
  // A user without a path.
  directory = {kNoSuchObject, nullptr, {}};
  user.Set<&IADs::get_ADsPath>(+[](void*, BSTR*) -> HRESULT { return E_FAIL; });
  EXPECT_EQ(EndOf(save), EndAt(text));
}

}  // namespace
}  // namespace hxrun_test
