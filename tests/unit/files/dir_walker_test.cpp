// The directory walker: single walks with their calls, its lifetime, failures.

#include "files/dir_walker.h"

#include "unit/files/walker_tools.h"

namespace walker_test {

using tree_test::MakeFile;
using tree_test::MakeFolder;
using tree_test::OwnPath;

/// The selectors are text in memory.
constexpr DWORD kTrav = 0x76617274;

class DirWalkerTest : public tree_test::TreeTest {
 protected:
  /// Makes a folder with a file, and a folder with a file in it.
  void MakeSmallTree() {
    MakeFile(folder_ / L"a.txt");
    MakeFolder(folder_ / L"b");
    MakeFile(folder_ / L"b\\c");
    MakeFolder(folder_ / L"b\\d");
  }
};

TEST_F(DirWalkerTest, AFreshWalkerIsAtTheStart) {
  OwnPath root(folder_.Path());
  OwnWalker walker(root.get());
  EXPECT_EQ(walker->refCount, 1);
  EXPECT_EQ(walker->typeTag, kTrav);
  EXPECT_EQ(walker->root, root.get());
  EXPECT_EQ(walker->current, root.get());
  EXPECT_EQ(root.get()->refCount, 3);
  EXPECT_EQ(walker->depth, 1);
  EXPECT_EQ(walker->maxDepth, 0);
  EXPECT_EQ(walker->flags, 0xFFFFFFFFu);
  EXPECT_EQ(walker->followReparse, 1u);
  EXPECT_EQ(walker->foldersAfterContents, 0u);
  EXPECT_EQ(walker->pattern, nullptr);
  ASSERT_NE(walker->frames, nullptr);
  EXPECT_EQ(walker->frames->below, nullptr);
  EXPECT_CALLS({});
}

TEST_F(DirWalkerTest, AWholeWalkMakesTheseCalls) {
  MakeSmallTree();
  OwnPath root(folder_.Path());
  OwnWalker walker(root.get());
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"a.txt", L"b", L"b\\c", L"b\\d"}));
  EXPECT_CALLS({
      "SetErrorMode(0x8001) = 16384",   R"(FindFirstFileW("T:\\*.*", *) = search#1)",
      "SetErrorMode(0x4000) = 32769",
      "FindNextFileW(search#1, *) = 1",  // ".."
      "FindNextFileW(search#1, *) = 1",  // a.txt
      "FindNextFileW(search#1, *) = 1",  // b
      "SetErrorMode(0x8001) = 16384",   R"(FindFirstFileW("T:\\b\\*.*", *) = search#2)",
      "SetErrorMode(0x4000) = 32769",   "FindNextFileW(search#2, *) = 1",
      "FindNextFileW(search#2, *) = 1",  // c
      "FindNextFileW(search#2, *) = 1",  // d
      "SetErrorMode(0x8001) = 16384",   R"(FindFirstFileW("T:\\b\\d\\*.*", *) = search#3)",
      "SetErrorMode(0x4000) = 32769",   "FindNextFileW(search#3, *) = 1",
      "FindNextFileW(search#3, *) = 0", "FindClose(search#3) = 1",
      "FindNextFileW(search#2, *) = 0", "FindClose(search#2) = 1",
      "FindNextFileW(search#1, *) = 0", "FindClose(search#1) = 1",
  });
  EXPECT_EQ(walker->frames, nullptr);
  EXPECT_EQ(walker->depth, 0);
  EXPECT_EQ(DirWalkerNext(walker.get()), nullptr);
  EXPECT_CALLS({});
}

// Its path is that of its folder, a drive, which has no backslash.
TEST_F(DirWalkerTest, AFolderWithoutANameMatchesByItsWholePath) {
  for (const auto& [pattern, expected] :
       std::vector<std::pair<std::string, std::wstring>>{{"q:", L"Q:\\"}, {":", L"<none>"}, {"*", L"Q:\\"}}) {
    int searches = 0;
    TheRig().On<::FindFirstFileW>([&](const wchar_t*, WIN32_FIND_DATAW* found) {
      *found = {};
      found->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
      return ++searches == 1 ? reinterpret_cast<HANDLE>(0x4710) : INVALID_HANDLE_VALUE;
    });
    TheRig().On<::FindNextFileW>([](HANDLE, WIN32_FIND_DATAW*) { return FALSE; });
    TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
    OwnPath root(L"Q:");
    OwnWalker walker(root.get());
    walker->maxDepth = 2;
    walker->foldersAfterContents = 1;
    walker.SetPattern(pattern);
    OwnPath left(DirWalkerNext(walker.get()));
    EXPECT_EQ(left.Text(), expected) << pattern;
    EXPECT_EQ(DirWalkerNext(walker.get()), nullptr);
    EXPECT_EQ(searches, 2);
  }
}

TEST_F(DirWalkerTest, AFolderThatIsNeitherReturnedNorEnteredTakesNoMemory) {
  MakeFolder(folder_ / L"b");
  MakeFolder(folder_ / L"c");
  OwnPath root(folder_.Path());
  OwnWalker walker(root.get());
  walker->flags = kReturnFiles;
  walker->maxDepth = 1;
  int entries = 0;
  size_t blocks = 0;
  TheRig().On<::FindNextFileW>([&](HANDLE search, WIN32_FIND_DATAW* found) {
    const BOOL isFound = rig::Function<&::FindNextFileW>::Real()(search, found);
    if (!isFound) return isFound;
    ++entries;
    TheRig().On<::HeapAlloc>([&](HANDLE, DWORD, SIZE_T) -> void* {
      ++blocks;
      return nullptr;
    });
    return isFound;
  });
  EXPECT_EQ(DirWalkerNext(walker.get()), nullptr);
  EXPECT_EQ(entries, 3);
  // Only the way back to the folder around asks for one.
  EXPECT_EQ(blocks, 1u);
  EXPECT_EQ(walker->frames, nullptr);
}

TEST_F(DirWalkerTest, ItsFieldsShowItsPlace) {
  MakeSmallTree();
  OwnPath root(folder_.Path());
  OwnWalker walker(root.get());
  OwnPath file(DirWalkerNext(walker.get()));
  EXPECT_EQ(walker->depth, 1);
  EXPECT_EQ(file.get()->parent, root.get());
  EXPECT_EQ(file.get()->refCount, 1);
  OwnPath folder(DirWalkerNext(walker.get()));
  EXPECT_EQ(walker->depth, 2);
  EXPECT_EQ(walker->current, folder.get());
  EXPECT_EQ(folder.get()->refCount, 2);
}

TEST_F(DirWalkerTest, TheFoldersDirectlyBelowTheRoot) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker->maxDepth = 1;
  walker->flags = kReturnFolders;
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"b"}));
}

TEST_F(DirWalkerTest, FoldersCanComeAfterTheirContents) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker->foldersAfterContents = 1;
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"a.txt", L"b\\c", L"b\\d", L"b"}));
}

TEST_F(DirWalkerTest, AFolderAtTheLastLevelIsNotEnteredAndSoNotReturned) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker->foldersAfterContents = 1;
  walker->maxDepth = 2;
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"a.txt", L"b\\c", L"b"}));
}

TEST_F(DirWalkerTest, AFolderReturnedAfterItsContentsIsTheOneThatWasEntered) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker->foldersAfterContents = 1;
  walker->flags = kReturnFolders;
  walker->maxDepth = 2;
  OwnPath folder(DirWalkerNext(walker.get()));
  EXPECT_EQ(folder.Text(), folder_ / L"b");
  EXPECT_EQ(walker->depth, 1);
  EXPECT_EQ(folder.get()->refCount, 1);
}

TEST_F(DirWalkerTest, WindowsSearchesForThePatternOnItsLevel) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker->maxDepth = 2;
  walker.SetPattern("?");
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"b", L"b\\c", L"b\\d"}));
  std::vector<std::string> searches;
  for (const std::string& call : Calls()) {
    if (call.find("FindFirstFileW") == 0) searches.push_back(call.substr(0, call.find(',')));
  }
  EXPECT_EQ(searches,
            (std::vector<std::string>{R"(FindFirstFileW("T:\\*.*")", R"(FindFirstFileW("T:\\b\\?")"}));
}

TEST_F(DirWalkerTest, WithoutALimitWindowsSearchesForThePatternOnEveryLevel) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker.SetPattern("*.txt");
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"a.txt"}));
}

TEST_F(DirWalkerTest, ANegativeLimitEntersNoFolder) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  walker->maxDepth = -1;
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"a.txt", L"b"}));
}

TEST_F(DirWalkerTest, ARootOfADriveIsListed) {
  TheRig().On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) { return INVALID_HANDLE_VALUE; });
  OwnWalker walker(OwnPath(L"Q:\\").get());
  EXPECT_EQ(Rest(walker, L"Q:"), Names{});
  EXPECT_EQ(Calls().at(1), R"(FindFirstFileW("Q:\\*.*", *) = INVALID_HANDLE_VALUE)");
}

TEST_F(DirWalkerTest, NonAsciiAndLongNamesAreReturned) {
  // The longest name possible here: the path is limited too.
  const std::wstring longName(200, L'x');
  MakeFile(folder_ / longName);
  MakeFile(folder_ / L"\u00E9\u4E2D");
  MakeFile(folder_ / L"\xD83D\xDE00");
  OwnWalker walker(OwnPath(folder_.Path()).get());
  Names names = Rest(walker, folder_.Path());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (Names{longName, L"\u00E9\u4E2D", L"\xD83D\xDE00"}));
}

TEST_F(DirWalkerTest, NullFoldersAndWalkersReturnNothing) {
  OwnWalker walker(nullptr);
  EXPECT_EQ(walker->root, nullptr);
  EXPECT_EQ(DirWalkerNext(walker.get()), nullptr);
  EXPECT_EQ(DirWalkerNext(nullptr), nullptr);
  EXPECT_CALLS({});
}

TEST_F(DirWalkerTest, AMissingFolderIsEmpty) {
  OwnWalker walker(OwnPath(folder_ / L"none").get());
  EXPECT_EQ(DirWalkerNext(walker.get()), nullptr);
  EXPECT_CALLS({
      "SetErrorMode(0x8001) = 16384",
      R"(FindFirstFileW("T:\\none\\*.*", *) = INVALID_HANDLE_VALUE)",
      "SetErrorMode(0x4000) = 32769",
  });
}

// ---- Entries of a listing that the test makes up.

/// A disk of folders with entries that the test makes up.
class DirWalkerDiskTest : public DirWalkerTest {
 protected:
  struct Entry {
    std::wstring name, alternate;
    DWORD attributes;
  };
  void SetUp() override {
    DirWalkerTest::SetUp();
    TheRig().On<::FindFirstFileW>([this](const wchar_t* path, WIN32_FIND_DATAW* found) -> HANDLE {
      std::wstring folder(path, static_cast<size_t>(wcsrchr(path, L'\\') - path));
      auto entries = folders_.find(folder);
      if (entries == folders_.end() || entries->second.empty()) return INVALID_HANDLE_VALUE;
      auto search = reinterpret_cast<HANDLE>(++lastSearch_);
      searches_[search] = {folder, 0};
      Fill(search, found);
      return search;
    });
    TheRig().On<::FindNextFileW>([this](HANDLE search, WIN32_FIND_DATAW* found) {
      const auto& [folder, at] = searches_[search];
      if (at == folders_[folder].size()) return FALSE;
      Fill(search, found);
      return TRUE;
    });
    TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
  }
  void Fill(HANDLE search, WIN32_FIND_DATAW* found) {
    auto& [folder, at] = searches_[search];
    const Entry& entry = folders_[folder][at++];
    memset(found, 0xCD, sizeof *found);
    found->dwFileAttributes = entry.attributes;
    if ((entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) found->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
    wcscpy(found->cFileName, entry.name.c_str());
    wcscpy(found->cAlternateFileName, entry.alternate.c_str());
  }

  std::map<std::wstring, std::vector<Entry>> folders_;

 private:
  std::map<HANDLE, std::pair<std::wstring, size_t>> searches_;
  uintptr_t lastSearch_ = 0x4700;
};

constexpr DWORD kFile = FILE_ATTRIBUTE_ARCHIVE;
constexpr DWORD kDirectory = FILE_ATTRIBUTE_DIRECTORY;
constexpr DWORD kLink = FILE_ATTRIBUTE_REPARSE_POINT;

TEST_F(DirWalkerDiskTest, AShortNameReplacesQuestionMarks) {
  folders_[L"Q:\\x"] = {{L"???", L"ABC~1", kFile},
                        {L"???", L"", kFile},
                        {L"?a?", L"ABC~2", kFile},
                        {L"name", L"NAME~1", kFile},
                        {L"?", L"DIR~1", kDirectory}};
  folders_[L"Q:\\x\\DIR~1"] = {{L"f", L"", kFile}};
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"ABC~1", L"???", L"?a?", L"name", L"DIR~1", L"DIR~1\\f"}));
}

TEST_F(DirWalkerDiskTest, LinksToFoldersCanBeSkipped) {
  folders_[L"Q:\\x"] = {{L"file", L"", kFile | kLink},
                        {L"folder", L"", kDirectory},
                        {L"self", L"", kDirectory | kLink},
                        {L"z", L"", kFile}};
  folders_[L"Q:\\x\\folder"] = {{L"in", L"", kFile}};
  folders_[L"Q:\\x\\self"] = {{L"round", L"", kFile}};
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  walker->followReparse = kSkipFolderLinks;
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"file", L"folder", L"folder\\in", L"z"}));
}

TEST_F(DirWalkerDiskTest, ThePatternIsComparedWithTheNameThatIsUsed) {
  folders_[L"Q:\\x"] = {{L"???", L"ABC~1", kFile}, {L"?", L"DIR~1", kDirectory}};
  folders_[L"Q:\\x\\DIR~1"] = {{L"DIR~1.x", L"", kFile}};
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  walker->maxDepth = 2;
  walker.SetPattern("dir~1*");
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"DIR~1", L"DIR~1\\DIR~1.x"}));
}

TEST_F(DirWalkerDiskTest, OnThePatternsLevelTheMatchesOfWindowsCount) {
  // Windows compares a pattern with short names too. Only with a depth limit does its match alone select a
  // file.
  folders_[L"Q:\\x"] = {{L"file", L"XFIL~1", kFile}, {L"folder", L"XFOL~1", kDirectory}};
  folders_[L"Q:\\x\\folder"] = {{L"other", L"XOTH~1", kFile}, {L"x", L"", kFile}};
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  walker->maxDepth = 1;
  walker.SetPattern("x*");
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"file"}));
  DirWalkerReset(walker.get(), OwnPath(L"Q:\\x").get());
  walker.SetPattern("x*");
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"folder\\x"}));
}

TEST_F(DirWalkerDiskTest, LinksAreFollowedUnlessToldOtherwise) {
  folders_[L"Q:\\x"] = {{L"l", L"", kDirectory | kLink}, {L"m", L"", kFile | kLink}, {L"n", L"", kFile}};
  folders_[L"Q:\\x\\l"] = {{L"f", L"", kFile}};
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"l", L"l\\f", L"m", L"n"}));
  DirWalkerReset(walker.get(), OwnPath(L"Q:\\x").get());
  walker->followReparse = 0;
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"n"}));
}

TEST_F(DirWalkerDiskTest, DotsInOddPlacesAreSkippedToo) {
  folders_[L"Q:\\x"] = {{L"a", L"", kFile},
                        {L"..", L"", kDirectory},
                        {L".", L"", kDirectory},
                        {L"...", L"", kFile},
                        {L".a", L"", kFile}};
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  EXPECT_EQ(Rest(walker, L"Q:\\x"), (Names{L"a", L"...", L".a"}));
}

TEST_F(DirWalkerDiskTest, DeepTreesTakeMemoryByDepthOnly) {
  constexpr int kLevels = 800;
  std::wstring folder = L"Q:\\x";
  for (int level = 0; level < kLevels; ++level) {
    folders_[folder] = {{L"d", L"", kDirectory}, {L"e", L"", kFile}};
    folder += L"\\d";
  }
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  size_t before = LiveBlocks();
  for (int level = 0; level < kLevels; ++level) {
    OwnPath entry(DirWalkerNext(walker.get()));
    ASSERT_TRUE(entry);
    ASSERT_EQ(walker->depth, level + 2);
    ASSERT_LE(LiveBlocks() - before, static_cast<size_t>(3 * (level + 2)));
  }
  Names names = Rest(walker, L"Q:\\x");
  ASSERT_EQ(names.size(), static_cast<size_t>(kLevels));
  EXPECT_EQ(names.front(), folder.substr(5, folder.size() - 7) + L"\\e");
  EXPECT_EQ(names.back(), L"e");
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
}

TEST_F(DirWalkerDiskTest, DeepWalksCanBeReleasedMidway) {
  std::wstring folder = L"Q:\\x";
  for (int level = 0; level < 500; ++level) {
    folders_[folder] = {{L"d", L"", kDirectory}};
    folder += L"\\d";
  }
  OwnWalker walker(OwnPath(L"Q:\\x").get());
  for (int level = 0; level < 400; ++level) OwnPath entry(DirWalkerNext(walker.get()));
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 400u);
}

// ---- Its lifetime.

TEST_F(DirWalkerTest, AResetMidwayReleasesEverything) {
  MakeSmallTree();
  OwnPath root(folder_.Path());
  OwnWalker walker(root.get());
  walker.SetPattern("b*");
  walker->maxDepth = 3;
  walker->flags = kReturnFolders;
  walker->followReparse = 0;
  OwnPath first(DirWalkerNext(walker.get()));
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 1u);
  OwnPath other(folder_ / L"b");
  DirWalkerReset(walker.get(), other.get());
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
  EXPECT_EQ(root.get()->refCount, 2);
  EXPECT_EQ(walker->root, other.get());
  EXPECT_EQ(walker->pattern, nullptr);
  EXPECT_EQ(walker->maxDepth, 0);
  EXPECT_EQ(walker->flags, 0xFFFFFFFFu);
  EXPECT_EQ(walker->followReparse, 1u);
  EXPECT_EQ(walker->depth, 1);
  EXPECT_EQ(Rest(walker, folder_.Path()), (Names{L"b\\c", L"b\\d"}));
}

TEST_F(DirWalkerTest, AResetToTheFolderThatOnlyTheWalkerHolds) {
  MakeSmallTree();
  OwnWalker walker(OwnPath(folder_.Path()).get());
  DirWalkerReset(walker.get(), walker->root);
  EXPECT_EQ(Rest(walker, folder_.Path()).size(), 4u);
  DirWalkerReset(walker.get(), nullptr);
  EXPECT_EQ(DirWalkerNext(walker.get()), nullptr);
}

TEST_F(DirWalkerTest, TheLastReleaseClosesEverything) {
  MakeSmallTree();
  OwnPath root(folder_.Path());
  {
    OwnWalker walker(root.get());
    walker.SetPattern("*");
    Object* same = walker->ops.Retain(walker.get());
    EXPECT_EQ(same, walker.get());
    EXPECT_EQ(walker->refCount, 2);
    walker->ops.Release(walker.get());
    EXPECT_EQ(walker->refCount, 1);
    while (walker->depth < 3) OwnPath entry(DirWalkerNext(walker.get()));
    // The innermost folder has not been asked for anything yet.
    EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 2u);
    Calls();
  }
  EXPECT_CALLS({"FindClose(search#2) = 1", "FindClose(search#1) = 1"});
  EXPECT_EQ(root.get()->refCount, 1);
}

TEST_F(DirWalkerTest, NullsAreIgnoredByItsOperations) {
  OwnWalker walker(nullptr);
  EXPECT_EQ(walker->ops.Retain(nullptr), nullptr);
  rig::CallGuarded([&] { walker->ops.Release(nullptr); });
}

TEST_F(DirWalkerTest, AQueryAnswersItsOwnSelectorOnly) {
  OwnWalker walker(nullptr);
  auto ask = [&](DWORD selector) { return walker->ops.Query(walker.get(), selector, 0, nullptr, "", 0); };
  EXPECT_EQ(ask(kTrav), reinterpret_cast<UINT_PTR>(DirWalkerNext.Get()));
  EXPECT_EQ(ask(0), 0u);
  EXPECT_EQ(ask(kQueryPrintableText), 0u);
}

TEST_F(DirWalkerTest, APathOffersTheConstructorIfItIsAFolder) {
  MakeSmallTree();
  auto ask = [&](const std::wstring& text, UINT_PTR argument) {
    OwnPath path(text);
    return path.get()->ops.Query(path.get(), kTrav, argument, nullptr, "", 0);
  };
  EXPECT_EQ(ask(folder_.Path(), 3), reinterpret_cast<UINT_PTR>(DirWalkerCreate.Get()));
  EXPECT_CALLS({R"(GetFileAttributesW("T:") = 16)"});
  EXPECT_EQ(ask(folder_.Path(), 2), 0u);
  EXPECT_EQ(ask(folder_ / L"a.txt", 3), 0u);
  EXPECT_EQ(ask(folder_ / L"none", 3), 0u);
}

TEST_F(DirWalkerTest, SurvivesEveryFailure) {
  MakeSmallTree();
  constexpr UINT kAll = 4;
  rig::SweepOptions options;
  options.results.clear();
  for (UINT count = 0; count <= kAll; ++count) options.results.insert(count);
  for (DWORD after : {0u, 1u}) {
    size_t failed = FailEachCall(
        [&](rig::Scene&) {
          OwnPath root(folder_.Path());
          OwnWalker walker(root.get());
          if (walker.get() == nullptr) return 0u;
          walker->foldersAfterContents = after;
          UINT count = 0;
          // Running out of memory for an entry does not end the walk.
          for (int nulls = 0; nulls < 3;) {
            OwnPath entry(DirWalkerNext(walker.get()));
            entry ? ++count : static_cast<UINT>(++nulls);
          }
          return count;
        },
        {}, options);
    EXPECT_GE(failed, 30u);
  }
}

}  // namespace walker_test
