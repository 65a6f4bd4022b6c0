// What exists at a path, moving it, creating its folders: every code, every call.

#include "files/file_status.h"

#include "unit/files/tree_tools.h"

namespace file_status_test {

using tree_test::MakeFile;
using tree_test::MakeFolder;
using tree_test::OwnPath;

HX_INTERNAL(FileExists);
HX_INTERNAL(FolderExists);
HX_INTERNAL(MovePath);
HX_INTERNAL(CreateFolderChain);

class FileStatusTest : public tree_test::TreeTest {};

/// A status as a sweep sees it.
UINT AsResult(int status) {
  return static_cast<UINT>(status);
}

TEST_F(FileStatusTest, AFileThatCanBeOpenedExists) {
  MakeFile(folder_ / L"\u00E9 f.txt");
  OwnPath path(folder_ / L"\u00E9 f.txt");
  EXPECT_EQ(FileExists(path.get()), kStatusOk);
  EXPECT_CALLS({
      R"(CreateFileW("T:\\é f.txt", 0x0, 3, null, 3, 0x80, null) = handle#1)",
      "CloseHandle(handle#1) = 1",
      R"(FindFirstFileW("T:\\é f.txt", *) = search#1)",
      "FindClose(search#1) = 1",
  });
}

TEST_F(FileStatusTest, FilesAndFoldersThatCannotBeOpenedAreNotFound) {
  OwnPath path(folder_ / L"f");
  EXPECT_EQ(FileExists(path.get()), kStatusNotFound);
  EXPECT_CALLS({R"(CreateFileW("T:\\f", 0x0, 3, null, 3, 0x80, null) = INVALID_HANDLE_VALUE)"});
  // Windows opens a folder only for callers who say that it may be one.
  OwnPath folder(folder_.Path());
  EXPECT_EQ(FileExists(folder.get()), kStatusNotFound);
}

TEST_F(FileStatusTest, AFileThatOthersWriteExists) {
  MakeFile(folder_ / L"f");
  HANDLE writer = CreateFileW((folder_ / L"f").c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
  OwnPath path(folder_ / L"f");
  EXPECT_EQ(FileExists(path.get()), kStatusOk);
  CloseHandle(writer);
}

TEST_F(FileStatusTest, AFolderThatCouldBeOpenedIsOfTheWrongKind) {
  TheRig().On<::CreateFileW>([](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                DWORD how, DWORD flags, HANDLE like) {
    return rig::Function<&::CreateFileW>::Real()(name, access, share, security, how,
                                                 flags | FILE_FLAG_BACKUP_SEMANTICS, like);
  });
  OwnPath path(folder_.Path());
  EXPECT_EQ(FileExists(path.get()), kStatusWrongKind);
}

TEST_F(FileStatusTest, AFileThatVanishesMeanwhileDoesNotExist) {
  MakeFile(folder_ / L"f");
  TheRig().On<::CloseHandle>([&](HANDLE file) {
    BOOL closed = rig::Function<&::CloseHandle>::Real()(file);
    DeleteFileW((folder_ / L"f").c_str());
    return closed;
  });
  OwnPath path(folder_ / L"f");
  EXPECT_EQ(FileExists(path.get()), kStatusNotFound);
}

TEST_F(FileStatusTest, AFolderIsAFolder) {
  MakeFolder(folder_ / L"d");
  MakeFile(folder_ / L"f");
  EXPECT_EQ(FolderExists(OwnPath(folder_ / L"d").get()), kStatusOk);
  EXPECT_EQ(FolderExists(OwnPath(folder_ / L"f").get()), kStatusWrongKind);
  EXPECT_EQ(FolderExists(OwnPath(folder_ / L"g").get()), kStatusNotFound);
  EXPECT_CALLS({
      R"(GetFileAttributesW("T:\\d") = 16)",
      R"(GetFileAttributesW("T:\\f") = 32)",
      R"(GetFileAttributesW("T:\\g") = 0xffffffff)",
  });
}

TEST_F(FileStatusTest, AFileIsMovedOverAnotherOne) {
  MakeFile(folder_ / L"f", "new");
  MakeFile(folder_ / L"g", "old");
  EXPECT_EQ(MovePath(OwnPath(folder_ / L"f").get(), OwnPath(folder_ / L"g").get()), kStatusOk);
  EXPECT_CALLS({R"(MoveFileExW("T:\\f", "T:\\g", 0x1) = 1)"});
  EXPECT_EQ(tree_test::TreeOf(folder_.Path()), (tree_test::Tree{{L"g", "new"}}));
}

TEST_F(FileStatusTest, AFolderIsMovedWhole) {
  MakeFolder(folder_ / L"d");
  MakeFile(folder_ / L"d\\f");
  EXPECT_EQ(MovePath(OwnPath(folder_ / L"d").get(), OwnPath(folder_ / L"e").get()), kStatusOk);
  EXPECT_EQ(tree_test::TreeOf(folder_.Path()), (tree_test::Tree{{L"e", tree_test::kFolder}, {L"e\\f", "x"}}));
}

TEST_F(FileStatusTest, AFailedMoveHasItsCode) {
  EXPECT_EQ(MovePath(OwnPath(folder_ / L"f").get(), OwnPath(folder_ / L"g").get()), kStatusOperationFailed);
}

TEST_F(FileStatusTest, TheMissingFoldersOfAChainAreCreated) {
  MakeFolder(folder_ / L"a");
  OwnPath path(folder_ / L"a\\b\\\u00E9");
  EXPECT_EQ(CreateFolderChain(path.get()), kStatusOk);
  std::vector<std::string> calls = Calls();
  // The root of the drive is not looked up.
  ASSERT_GE(calls.size(), 8u);
  EXPECT_EQ(calls[0].find(R"(FindFirstFileW("C:\\)"), 0u) << calls[0];
  EXPECT_EQ(calls[0].find(R"("C:\\")"), std::string::npos) << calls[0];
  rig::CompareLines(__FILE__, __LINE__, "trace",
                    {
                        R"(FindFirstFileW("T:", *) = search#)",
                        R"(FindClose(search#) = 1)",
                        R"(FindFirstFileW("T:\\a", *) = search#)",
                        R"(FindClose(search#) = 1)",
                        R"(FindFirstFileW("T:\\a\\b", *) = INVALID_HANDLE_VALUE)",
                        R"(CreateDirectoryW("T:\\a\\b", null) = 1)",
                        R"(FindFirstFileW("T:\\a\\b\\é", *) = INVALID_HANDLE_VALUE)",
                        R"(CreateDirectoryW("T:\\a\\b\\é", null) = 1)",
                    },
                    [&] {
                      std::vector<std::string> last(calls.end() - 8, calls.end());
                      for (std::string& call : last) {
                        size_t number = call.find("search#");
                        while (number != std::string::npos && isdigit(call[number + 7]))
                          call.erase(number + 7, 1);
                      }
                      return last;
                    }());
  EXPECT_EQ(FolderExists(path.get()), kStatusOk);
  EXPECT_EQ(CreateFolderChain(path.get()), kStatusOk);
}

TEST_F(FileStatusTest, ADriveAndAFolderUnderItsRootAreChains) {
  TheRig().On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) { return INVALID_HANDLE_VALUE; });
  TheRig().On<::CreateDirectoryW>([](const wchar_t*, SECURITY_ATTRIBUTES*) { return TRUE; });
  EXPECT_EQ(CreateFolderChain(OwnPath(L"Q:\\a\\b").get()), kStatusOk);
  EXPECT_CALLS({
      R"(FindFirstFileW("Q:\\a", *) = INVALID_HANDLE_VALUE)",
      R"(CreateDirectoryW("Q:\\a", null) = 1)",
      R"(FindFirstFileW("Q:\\a\\b", *) = INVALID_HANDLE_VALUE)",
      R"(CreateDirectoryW("Q:\\a\\b", null) = 1)",
  });
}

// The text before the first backslash counts as a folder too, and no folder has an empty name.
TEST_F(FileStatusTest, AChainThatBeginsWithABackslashCannotBeCreated) {
  for (const wchar_t* chain : {L"\\x", L"\\x\\y", L"\\\\server\\share\\x"}) {
    OwnPath path{std::wstring(chain)};
    EXPECT_EQ(path.Text(), chain);
    Calls();
    EXPECT_EQ(CreateFolderChain(path.get()), kStatusNotCreated);
    EXPECT_CALLS({
        R"(FindFirstFileW("", *) = INVALID_HANDLE_VALUE)",
        R"(CreateDirectoryW("", null) = 0)",
    });
  }
}

TEST_F(FileStatusTest, AFileInTheWayOfAChainIsOfTheWrongKind) {
  MakeFile(folder_ / L"f");
  EXPECT_EQ(CreateFolderChain(OwnPath(folder_ / L"f\\b").get()), kStatusWrongKind);
  EXPECT_EQ(CreateFolderChain(OwnPath(folder_ / L"f").get()), kStatusWrongKind);
  EXPECT_EQ(tree_test::TreeOf(folder_.Path()), (tree_test::Tree{{L"f", "x"}}));
}

TEST_F(FileStatusTest, AFolderThatCannotBeCreatedEndsAChain) {
  TheRig().On<::CreateDirectoryW>([&](const wchar_t* name, SECURITY_ATTRIBUTES* security) {
    return name == folder_ / L"a\\b" ? FALSE : rig::Function<&::CreateDirectoryW>::Real()(name, security);
  });
  EXPECT_EQ(CreateFolderChain(OwnPath(folder_ / L"a\\b\\c").get()), kStatusNotCreated);
  EXPECT_EQ(tree_test::TreeOf(folder_.Path()), (tree_test::Tree{{L"a", tree_test::kFolder}}));
}

TEST_F(FileStatusTest, ANullPathIsAMissingArgument) {
  OwnPath path(folder_.Path());
  EXPECT_EQ(FileExists(nullptr), kStatusMissingArgument);
  EXPECT_EQ(FolderExists(nullptr), kStatusMissingArgument);
  EXPECT_EQ(MovePath(nullptr, path.get()), kStatusMissingArgument);
  EXPECT_EQ(MovePath(path.get(), nullptr), kStatusMissingArgument);
  EXPECT_EQ(CreateFolderChain(nullptr), kStatusMissingArgument);
  EXPECT_CALLS({});
}

TEST_F(FileStatusTest, APathThatCannotBeConvertedCountsAsOutOfMemory) {
  OwnPath path(folder_ / L"\u00E9");
  TheRig().On<::MultiByteToWideChar>([](UINT, DWORD, const char*, int, wchar_t*, int) { return 0; });
  EXPECT_EQ(FileExists(path.get()), kStatusNoMemory);
  EXPECT_EQ(FolderExists(path.get()), kStatusNoMemory);
  EXPECT_EQ(MovePath(path.get(), path.get()), kStatusNoMemory);
  EXPECT_EQ(CreateFolderChain(path.get()), kStatusNoMemory);
  EXPECT_CALLS({});
}

TEST_F(FileStatusTest, BothPathsMustBeConverted) {
  OwnPath good(L"C:\\a");
  OwnPath bad(folder_ / L"\u00E9");
  TheRig().On<::MultiByteToWideChar>([](UINT, DWORD, const char*, int, wchar_t*, int) { return 0; });
  EXPECT_EQ(MovePath(good.get(), bad.get()), kStatusNoMemory);
  EXPECT_EQ(MovePath(bad.get(), good.get()), kStatusNoMemory);
}

TEST_F(FileStatusTest, SurvivesEveryFailure) {
  rig::SweepOptions options;
  options.results = {AsResult(kStatusOk), AsResult(kStatusNotFound), AsResult(kStatusNoMemory),
                     AsResult(kStatusNotCreated), AsResult(kStatusOperationFailed)};
  for (auto* operation : {&FileExists, &FolderExists, &CreateFolderChain}) {
    EXPECT_GE(
        FailEachCall(
            [&](rig::Scene&) {
              MakeFile(folder_ / L"\u00E9");
              OwnPath path(operation == &CreateFolderChain ? folder_ / L"c\\\u00E9d" : folder_ / L"\u00E9");
              int status = path ? (*operation)(path.get()) : kStatusNoMemory;
              DeleteFileW((folder_ / L"\u00E9").c_str());
              RemoveDirectoryW((folder_ / L"c\\\u00E9d").c_str());
              RemoveDirectoryW((folder_ / L"c").c_str());
              return AsResult(operation == &FolderExists && status == kStatusWrongKind ? 0 : status);
            },
            {}, options),
        4u);
  }
  EXPECT_GE(FailEachCall(
                [&](rig::Scene&) {
                  MakeFile(folder_ / L"\u00E9");
                  OwnPath from(folder_ / L"\u00E9");
                  OwnPath to(folder_ / L"f");
                  int status = from && to ? MovePath(from.get(), to.get()) : kStatusNoMemory;
                  // Complete in one place or the other.
                  EXPECT_EQ(tree_test::TreeOf(folder_.Path()).size(), 1u);
                  DeleteFileW((folder_ / L"\u00E9").c_str());
                  DeleteFileW((folder_ / L"f").c_str());
                  return AsResult(status);
                },
                {}, options),
            5u);
}

}  // namespace file_status_test
