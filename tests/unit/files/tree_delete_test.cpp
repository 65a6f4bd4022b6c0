// Deleting trees: the calls in order, the Windows errors.

#include "files/tree_copy.h"
#include "rig/guarded_heap.h"
#include "unit/files/tree_tools.h"

namespace tree_delete_test {

using tree_test::kFolder;
using tree_test::MakeFile;
using tree_test::MakeFolder;
using tree_test::Tree;
using tree_test::TreeOf;

HX_INTERNAL(TreeDelete);

class TreeDeleteTest : public tree_test::TreeTest {
 protected:
  /// Deletes the entry at a path, with the result of looking it up.
  DWORD Delete(const std::wstring& path) {
    HANDLE search = FindFirstFileW(path.c_str(), &found_);
    EXPECT_NE(search, INVALID_HANDLE_VALUE);
    FindClose(search);
    return TreeDelete(path.c_str(), &found_);
  }
  /// Makes each folder begin with an entry of this name.
  void FindOne(const wchar_t* name, DWORD attributes) {
    TheRig().On<::FindFirstFileW>([=](const wchar_t*, WIN32_FIND_DATAW* found) {
      *found = {};
      found->dwFileAttributes = attributes;
      wcscpy(found->cFileName, name);
      return reinterpret_cast<HANDLE>(0x4710);
    });
    TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
  }
  void MakeSmallTree() {
    MakeFolder(folder_ / L"d");
    MakeFolder(folder_ / L"d\\e");
    MakeFile(folder_ / L"d\\f");
    MakeFile(folder_ / L"g");
  }
  WIN32_FIND_DATAW found_;
};

TEST_F(TreeDeleteTest, AFileIsDeleted) {
  MakeFile(folder_ / L"f");
  EXPECT_EQ(Delete(folder_ / L"f"), 0u);
  EXPECT_CALLS({R"(DeleteFileW("T:\\f") = 1)"});
  EXPECT_EQ(TreeDelete((folder_ / L"f").c_str(), &found_), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(TreeDeleteTest, AFolderIsDeletedFromTheInside) {
  MakeSmallTree();
  TheRig().On<::FindFirstFileW>([this](const wchar_t* path, WIN32_FIND_DATAW* found) {
    EXPECT_EQ(found, &found_);
    return rig::Function<&::FindFirstFileW>::Real()(path, found);
  });
  TheRig().On<::FindNextFileW>([this](HANDLE search, WIN32_FIND_DATAW* found) {
    EXPECT_EQ(found, &found_);
    return rig::Function<&::FindNextFileW>::Real()(search, found);
  });
  EXPECT_EQ(Delete(folder_ / L"d"), 0u);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\d\\*", *) = search#1)",
      "FindNextFileW(search#1, *) = 1",
      "FindNextFileW(search#1, *) = 1",
      R"(FindFirstFileW("T:\\d\\e\\*", *) = search#2)",
      "FindNextFileW(search#2, *) = 1",
      "FindNextFileW(search#2, *) = 0",
      "FindClose(search#2) = 1",
      R"(RemoveDirectoryW("T:\\d\\e") = 1)",
      "FindNextFileW(search#1, *) = 1",
      R"(DeleteFileW("T:\\d\\f") = 1)",
      "FindNextFileW(search#1, *) = 0",
      "FindClose(search#1) = 1",
      R"(RemoveDirectoryW("T:\\d") = 1)",
  });
  EXPECT_EQ(TreeOf(folder_.Path()), (Tree{{L"g", "x"}}));
}

TEST_F(TreeDeleteTest, ABackslashAtTheEndIsNotDoubled) {
  MakeSmallTree();
  found_.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
  EXPECT_EQ(TreeDelete((folder_ / L"d\\").c_str(), &found_), 0u);
  std::vector<std::string> calls = Calls();
  EXPECT_EQ(calls.front(), R"(FindFirstFileW("T:\\d\\*", *) = search#1)");
  EXPECT_EQ(calls.back(), R"(RemoveDirectoryW("T:\\d\\") = 1)");
}

TEST_F(TreeDeleteTest, TheFirstFailureIsReturned) {
  MakeSmallTree();
  TheRig().On<::DeleteFileW>([](const wchar_t*) {
    SetLastError(ERROR_SHARING_VIOLATION);
    return FALSE;
  });
  EXPECT_EQ(Delete(folder_ / L"d"), DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_EQ(Delete(folder_ / L"g"), DWORD{ERROR_SHARING_VIOLATION});
  // Earlier entries are deleted, later ones are not touched.
  EXPECT_EQ(TreeOf(folder_.Path()), (Tree{{L"d", kFolder}, {L"d\\f", "x"}, {L"g", "x"}}));
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
}

TEST_F(TreeDeleteTest, AFailureDeepInsideEndsAllLevels) {
  MakeSmallTree();
  TheRig().On<::RemoveDirectoryW>([](const wchar_t*) {
    SetLastError(ERROR_DIR_NOT_EMPTY);
    return FALSE;
  });
  EXPECT_EQ(Delete(folder_ / L"d"), DWORD{ERROR_DIR_NOT_EMPTY});
  EXPECT_EQ(TreeOf(folder_ / L"d"), (Tree{{L"e", kFolder}, {L"f", "x"}}));
}

TEST_F(TreeDeleteTest, ARealFileInUseStays) {
  MakeSmallTree();
  HANDLE user = CreateFileW((folder_ / L"d\\f").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(user, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Delete(folder_ / L"d"), DWORD{ERROR_SHARING_VIOLATION});
  CloseHandle(user);
  EXPECT_EQ(TreeOf(folder_ / L"d"), (Tree{{L"f", "x"}}));
}

TEST_F(TreeDeleteTest, AFolderWithoutAnyEntryIsRemoved) {
  MakeFolder(folder_ / L"d");
  TheRig().On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  });
  EXPECT_EQ(Delete(folder_ / L"d"), 0u);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\d\\*", *) = INVALID_HANDLE_VALUE)",
      R"(RemoveDirectoryW("T:\\d") = 1)",
  });
}

TEST_F(TreeDeleteTest, AFolderThatCannotBeListedStays) {
  MakeFolder(folder_ / L"d");
  TheRig().On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  });
  EXPECT_EQ(Delete(folder_ / L"d"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(TreeOf(folder_.Path()), (Tree{{L"d", kFolder}}));
}

TEST_F(TreeDeleteTest, AnEntryThatItsPathDoesNotLeadToIsNotDeleted) {
  for (const wchar_t* folder : {L"Q:\\d", L"\\d", L"\\\\s\\t\\d"}) {
    for (const wchar_t* name : {L"x.", L"x "}) {
      for (DWORD attributes : {DWORD{FILE_ATTRIBUTE_ARCHIVE}, DWORD{FILE_ATTRIBUTE_DIRECTORY}}) {
        FindOne(name, attributes);
        found_.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
        Calls();
        EXPECT_EQ(TreeDelete(folder, &found_), DWORD{ERROR_INVALID_NAME});
        for (const std::string& call : Calls()) EXPECT_EQ(call.substr(0, 4), "Find") << call;
      }
    }
  }
}

TEST_F(TreeDeleteTest, AnUnlimitedPathLeadsToEachEntry) {
  FindOne(L"x.", FILE_ATTRIBUTE_ARCHIVE);
  TheRig().On<::FindNextFileW>([](HANDLE, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  });
  TheRig().On<::DeleteFileW>([](const wchar_t*) { return TRUE; });
  TheRig().On<::RemoveDirectoryW>([](const wchar_t*) { return TRUE; });
  found_.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
  EXPECT_EQ(TreeDelete(L"\\\\?\\Q:\\d", &found_), 0u);
  EXPECT_CALLS({
      R"(FindFirstFileW("\\\\?\\Q:\\d\\*", *) = search#1)",
      R"(DeleteFileW("\\\\?\\Q:\\d\\x.") = 1)",
      "FindNextFileW(search#1, *) = 0",
      "FindClose(search#1) = 1",
      R"(RemoveDirectoryW("\\\\?\\Q:\\d") = 1)",
  });
}

// A name without characters has no last one that Windows could drop.
TEST_F(TreeDeleteTest, AnEntryWithoutANameIsNotCut) {
  FindOne(L"", FILE_ATTRIBUTE_ARCHIVE);
  TheRig().On<::DeleteFileW>([](const wchar_t*) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return FALSE;
  });
  found_.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
  EXPECT_EQ(TreeDelete(L"Q:\\d", &found_), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_CALLS({
      R"(FindFirstFileW("Q:\\d\\*", *) = search#1)",
      R"(DeleteFileW("Q:\\d\\") = 0)",
      "FindClose(search#1) = 1",
  });
}

// A folder without a name is listed at the root of the current drive.
TEST_F(TreeDeleteTest, ABackslashIsJoinedToAnEmptyName) {
  TheRig().On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  });
  found_.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
  EXPECT_EQ(TreeDelete(L"", &found_), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_CALLS({R"(FindFirstFileW("\\*", *) = INVALID_HANDLE_VALUE)"});
}

TEST_F(TreeDeleteTest, WithoutMemoryNothingMoreIsDeleted) {
  // Whichever allocation fails; most of them are for names.
  for (int lacking = 0;; ++lacking) {
    MakeSmallTree();
    int blocks = 0;
    TheRig().On<::HeapAlloc>([&](HANDLE, DWORD flags, SIZE_T size) -> void* {
      if (blocks++ == lacking) return nullptr;
      void* block = rig::GuardedHeap::Get().Allocate(size);
      if ((flags & HEAP_ZERO_MEMORY) != 0) memset(block, 0, size);
      return block;
    });
    DWORD error = Delete(folder_ / L"d");
    EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
    EXPECT_EQ(LiveBlocks(), 0u);
    bool isWhole = blocks <= lacking;
    EXPECT_EQ(error, isWhole ? 0u : DWORD{ERROR_NOT_ENOUGH_MEMORY}) << lacking;
    EXPECT_EQ(GetFileAttributesW((folder_ / L"d").c_str()) == INVALID_FILE_ATTRIBUTES, isWhole);
    tree_test::RemoveTree(folder_ / L"d");
    if (isWhole) {
      EXPECT_GE(lacking, 4);
      break;
    }
  }
}

TEST_F(TreeDeleteTest, SurvivesEveryFailure) {
  rig::SweepOptions options;
  options.results = {0, ERROR_NOT_ENOUGH_MEMORY, ERROR_ACCESS_DENIED, ERROR_DIR_NOT_EMPTY};
  EXPECT_GE(FailEachCall(
                [&](rig::Scene&) {
                  tree_test::RemoveTree(folder_ / L"d");
                  MakeSmallTree();
                  return static_cast<UINT>(Delete(folder_ / L"d"));
                },
                {}, options),
            12u);
}

TEST_F(TreeDeleteTest, DeepTreesTakeNoStack) {
  // A folder in a folder in a folder, made up by the test.
  constexpr int kLevels = 2000;
  constexpr uintptr_t kFrames = 16 * 1024;
  size_t removed = 0;
  uintptr_t lowest = ~uintptr_t{0};
  uintptr_t highest = 0;
  std::map<HANDLE, int> left;
  TheRig().tracing = false;
  TheRig().On<::FindFirstFileW>([&](const wchar_t* path, WIN32_FIND_DATAW* found) {
    auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    lowest = std::min(lowest, frame);
    highest = std::max(highest, frame);
    size_t depth = (wcslen(path) - 4) / 2;
    auto search = reinterpret_cast<HANDLE>(0x4710 + depth);
    left[search] = depth < kLevels ? 1 : 0;
    wcscpy(found->cFileName, L".");
    found->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    return search;
  });
  TheRig().On<::FindNextFileW>([&](HANDLE search, WIN32_FIND_DATAW* found) {
    wcscpy(found->cFileName, L"d");
    found->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    if (left[search]-- > 0) return TRUE;
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  });
  TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
  TheRig().On<::RemoveDirectoryW>([&](const wchar_t* path) {
    EXPECT_EQ(wcslen(path), 2 + 2 * (kLevels - removed));
    ++removed;
    return TRUE;
  });
  found_.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
  EXPECT_EQ(TreeDelete(L"Q:", &found_), 0u);
  EXPECT_EQ(removed, kLevels + 1u);
  EXPECT_LT(highest - lowest, kFrames);
}

}  // namespace tree_delete_test
