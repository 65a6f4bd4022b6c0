// The copy/move engine with names that lead to other entries: short (8.3) names, dots and blanks at the end,
// case. Only the entry itself is moved, copied, deleted or taken for the target.

#include <set>

#include "unit/files/tree_copy_tools.h"

namespace tree_copy_test {

/// The strings with which a package moves an upgraded server's entries back, and merges its data.
constexpr wchar_t kBringBack[] = L"x -mobin 'T:\\s\\*' 'T:\\t\\.'";
constexpr wchar_t kBringBackWithDeletion[] = L"x -moin 'T:\\s\\*' -b 'T:\\s\\*' 'T:\\t\\.'";
constexpr wchar_t kMerge[] = L"x -ckrni 'T:\\s\\*' -e 'T:\\s\\*' 'T:\\t\\.'";

/// Names in real folders.
class TreeNamesTest : public TreeCopyTest {
 protected:
  /// Makes entries with exactly these names, which Windows would otherwise change.
  void MakeExactly(const Names& names) {
    for (const std::wstring& name : names) {
      if (name.back() == L'\\') {
        MakeFolder(tree_test::Unlimited(folder_ / name.substr(0, name.size() - 1)));
      } else {
        MakeFile(tree_test::Unlimited(folder_ / name), rig::ToUtf8(name));
      }
    }
  }
  /// Returns the contents of each file and folder below the test's folder.
  std::map<std::wstring, std::string> All() { return TreeOf(tree_test::Unlimited(folder_.Path())); }
  /// Returns the contents of all files.
  std::multiset<std::string> AllContents() {
    std::multiset<std::string> contents;
    for (const auto& [name, content] : All()) {
      if (content != kFolder) contents.insert(content);
    }
    return contents;
  }
  /// Returns the short name that this system gives a file with this name.
  std::wstring ShortNameOf(const std::wstring& name) {
    MakeExactly({name});
    WIN32_FIND_DATAW found = {};
    FindClose(FindFirstFileW((folder_ / name).c_str(), &found));
    DeleteFileW((folder_ / name).c_str());
    EXPECT_STRNE(found.cAlternateFileName, L"") << "this file system gives no short names";
    return found.cAlternateFileName;
  }
  void TearDown() override {
    for (const wchar_t* name : {L"s", L"t"}) tree_test::RemoveTree(tree_test::Unlimited(folder_ / name));
    TreeCopyTest::TearDown();
  }
};

TEST_F(TreeNamesTest, AShortNameLosesNothingWhenItIsBroughtBack) {
  for (const wchar_t* line : {kBringBack, kBringBackWithDeletion}) {
    std::wstring alias = ShortNameOf(L"LongFileName.txt");
    // In this order: the short name of an existing file cannot be given again.
    MakeExactly({L"s\\", L"t\\", L"s\\" + alias, L"s\\LongFileName.txt"});
    std::multiset<std::string> before = AllContents();
    EXPECT_EQ(Run(line), 0);
    EXPECT_EQ(AllContents(), before);
    EXPECT_EQ(All()[L"t\\LongFileName.txt"], "s\\LongFileName.txt");
    EXPECT_EQ(All()[L"s\\" + alias], rig::ToUtf8(L"s\\" + alias));
    for (const wchar_t* name : {L"s", L"t"}) tree_test::RemoveTree(tree_test::Unlimited(folder_ / name));
  }
}

TEST_F(TreeNamesTest, AShortNameIsNotAFolderOfThatName) {
  std::wstring alias = ShortNameOf(L"Long folder name");
  MakeExactly({L"s\\", L"t\\", L"s\\" + alias + L"\\", L"s\\" + alias + L"\\b", L"s\\Long folder name\\",
               L"s\\Long folder name\\a"});
  // The folder is not merged into the other one, whose short name is the same.
  EXPECT_EQ(Run(kMerge), -18);
  EXPECT_EQ(Made(), (Names{L"s\\", L"s\\" + alias + L"\\", L"s\\" + alias + L"\\b", L"s\\Long folder name\\",
                           L"s\\Long folder name\\a", L"t\\", L"t\\Long folder name\\",
                           L"t\\Long folder name\\a = s\\Long folder name\\a"}));
}

TEST_F(TreeNamesTest, AShortNameThatIsNotCopiedHasACode) {
  std::wstring alias = ShortNameOf(L"LongFileName.txt");
  MakeExactly({L"s\\", L"t\\", L"s\\" + alias, L"s\\LongFileName.txt"});
  EXPECT_EQ(Run(kMerge), -7);
  EXPECT_EQ(All()[L"t\\LongFileName.txt"], "s\\LongFileName.txt");
}

TEST_F(TreeNamesTest, AShortNameOnTheCommandLineMeansItsFile) {
  std::wstring alias = ShortNameOf(L"LongFileName.txt");
  MakeExactly({L"t\\", L"t\\LongFileName.txt", L"a"});
  EXPECT_EQ(Run(L"x -m 'T:\\a' 'T:\\t\\" + alias + L"'"), -15);
  EXPECT_EQ(Run(L"x -mo 'T:\\a' 'T:\\t\\" + alias + L"'"), 0);
  EXPECT_EQ(All().count(L"t\\LongFileName.txt"), 0u);
}

const Names kCutNames = {L"s\\",         L"s\\Data\\", L"s\\Data\\a", L"s\\Data.\\",
                         L"s\\Data.\\b", L"s\\report", L"s\\report.", L"s\\report "};

TEST_F(TreeNamesTest, DotsAndBlanksLoseNothingWhenTheyAreBroughtBack) {
  for (const wchar_t* line : {kBringBack, kBringBackWithDeletion}) {
    MakeExactly({L"t\\"});
    MakeExactly(kCutNames);
    std::multiset<std::string> before = AllContents();
    EXPECT_EQ(Run(line), 0);
    EXPECT_EQ(AllContents(), before);
    EXPECT_EQ(Run(line), 0);
    EXPECT_EQ(AllContents(), before);
    auto all = All();
    EXPECT_EQ(all[L"t\\Data\\a"], "s\\Data\\a");
    EXPECT_EQ(all[L"t\\report"], "s\\report");
    EXPECT_EQ(all[L"s\\Data.\\b"], "s\\Data.\\b");
    EXPECT_EQ(all[L"s\\report."], "s\\report.");
    EXPECT_EQ(all[L"s\\report "], "s\\report ");
    for (const wchar_t* name : {L"s", L"t"}) tree_test::RemoveTree(tree_test::Unlimited(folder_ / name));
  }
}

TEST_F(TreeNamesTest, DotsAndBlanksThatAreNotCopiedHaveACode) {
  MakeExactly({L"t\\"});
  MakeExactly(kCutNames);
  std::multiset<std::string> before = AllContents();
  EXPECT_EQ(Run(kMerge), -16);
  auto all = All();
  EXPECT_EQ(all[L"t\\Data\\a"], "s\\Data\\a");
  EXPECT_EQ(all[L"t\\report"], "s\\report");
  EXPECT_EQ(all.count(L"t\\Data\\b"), 0u);
  for (const std::string& content : before) EXPECT_NE(AllContents().count(content), 0u) << content;
}

TEST_F(TreeNamesTest, ACutNameMovesNoOtherEntry) {
  // "only " leads to "only" here, which is another file.
  MakeExactly({L"s\\", L"t\\", L"s\\only ", L"s\\only"});
  EXPECT_EQ(Run(L"x -mi 'T:\\s\\*' 'T:\\t\\.'"), 0);
  EXPECT_EQ(Run(L"x -m 'T:\\s\\*' 'T:\\t\\.'"), -6);
  for (const std::string& call : Calls())
    EXPECT_EQ(call.find("MoveFileW(\"T:\\\\s\\\\only \""), call.npos) << call;
  auto all = All();
  EXPECT_EQ(all[L"s\\only "], "s\\only ");
  EXPECT_EQ(all[L"t\\only"], "s\\only");
}

TEST_F(TreeNamesTest, AFolderWithACutNameInItIsNotDeleted) {
  MakeExactly({L"s\\", L"t\\", L"s\\d\\", L"t\\d\\", L"t\\d\\x.", L"t\\d\\x"});
  // The listing returns "x" first, which is deleted; "x." is not reached, so the folder stays with it.
  EXPECT_EQ(Run(L"x -mo 'T:\\s\\*' 'T:\\t\\.'"), -3);
  EXPECT_EQ(All()[L"t\\d\\x."], "t\\d\\x.");
  EXPECT_EQ(All().count(L"s\\d"), 1u);
}

TEST_F(TreeNamesTest, UnlimitedPathsReachCutNames) {
  MakeExactly({L"t\\"});
  MakeExactly(kCutNames);
  std::wstring own = tree_test::Unlimited(folder_.Path());
  EXPECT_EQ(TreeCopyMove((L"x -mobn \"" + own + L"\\s\\*\" \"" + own + L"\\t\\\\\"").c_str()), 0);
  auto all = All();
  for (const std::wstring& name : kCutNames) {
    if (name == L"s\\") continue;
    std::wstring moved = L"t" + name.substr(1);
    if (moved.back() == L'\\') moved.pop_back();
    EXPECT_EQ(all.count(moved), 1u) << rig::ToUtf8(moved);
  }
}

TEST_F(TreeNamesTest, BothPathsMustLeadToACutName) {
  MakeExactly({L"s\\", L"t\\", L"s\\report", L"s\\report."});
  std::wstring own = tree_test::Unlimited(folder_.Path());
  EXPECT_EQ(Run(L"x -mb 'T:\\s\\*' '" + own + L"\\t\\.'"), -6);
  EXPECT_EQ(All()[L"s\\report."], "s\\report.");
  EXPECT_EQ(Run(L"x -m '" + own + L"\\s\\*' 'T:\\t\\.'"), -6);
  EXPECT_EQ(All()[L"s\\report."], "s\\report.");
}

/// One entry "report." or "LONGNA~1" in the source, with answers to the look-ups that the test chooses.
class TreeAnswersTest : public TreeCopyTest {
 protected:
  /// Lists one entry of this name in Q:\s; look-ups of it in the source and in the target have this result.
  void List(const std::wstring& entry, const std::wstring& name, const std::wstring& alias,
            DWORD attributes = FILE_ATTRIBUTE_ARCHIVE) {
    TheRig().On<::FindFirstFileW>([=](const wchar_t* path, WIN32_FIND_DATAW* found) {
      *found = {};
      found->dwFileAttributes = attributes;
      bool isListing = std::wstring(path).ends_with(L"*");
      wcscpy(found->cFileName, isListing ? entry.c_str() : name.c_str());
      if (!isListing) wcscpy(found->cAlternateFileName, alias.c_str());
      return reinterpret_cast<HANDLE>(0x4710);
    });
    TheRig().On<::FindNextFileW>([](HANDLE, WIN32_FIND_DATAW*) {
      SetLastError(ERROR_NO_MORE_FILES);
      return FALSE;
    });
    TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
    TheRig().On<::MoveFileW>([](const wchar_t*, const wchar_t*) { return TRUE; });
    TheRig().On<::CopyFileW>([](const wchar_t*, const wchar_t*, BOOL) { return TRUE; });
    TheRig().On<::DeleteFileW>([](const wchar_t*) { return TRUE; });
    TheRig().On<::RemoveDirectoryW>([](const wchar_t*) { return TRUE; });
    TheRig().On<::CreateDirectoryW>([](const wchar_t*, SECURITY_ATTRIBUTES*) { return TRUE; });
    Calls();
  }
  /// Returns the result for these letters, and the calls that change something.
  std::pair<int, std::vector<std::string>> Result(const std::wstring& letters) {
    int status = TreeCopyMove((L"x -" + letters + L" Q:\\s\\* Q:\\t\\.").c_str());
    std::vector<std::string> changes;
    for (const std::string& line : Calls()) {
      static const std::set<std::string> kChanging = {"MoveFileW", "CopyFileW", "DeleteFileW",
                                                      "RemoveDirectoryW", "CreateDirectoryW"};
      if (kChanging.count(line.substr(0, line.find('('))) != 0) changes.push_back(line);
    }
    return {status, changes};
  }
};

using Outcome = std::pair<int, std::vector<std::string>>;

TEST_F(TreeAnswersTest, TheTagOfAReparsePointSaysWhetherItIsALink) {
  struct Case {
    DWORD tag;
    bool isLink;
  } cases[] = {
      {IO_REPARSE_TAG_MOUNT_POINT, true},
      {IO_REPARSE_TAG_SYMLINK, true},
      {0, true},  // a system that does not report it
      {IO_REPARSE_TAG_DEDUP, false},
      {0x9000001A, false},  // a file that is kept in a cloud
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.tag);
    for (DWORD kind : {DWORD{FILE_ATTRIBUTE_ARCHIVE}, DWORD{FILE_ATTRIBUTE_DIRECTORY}}) {
      List(L"e", L"e", L"");
      TheRig().On<::FindFirstFileW>([=](const wchar_t* path, WIN32_FIND_DATAW* found) {
        *found = {};
        found->dwFileAttributes = kind | FILE_ATTRIBUTE_REPARSE_POINT;
        found->dwReserved0 = one.tag;
        wcscpy(found->cFileName, L"e");
        std::wstring name = path;
        if (name == L"Q:\\s\\*" || name == L"Q:\\s\\e" || name == L"Q:\\t\\e\\*")
          return reinterpret_cast<HANDLE>(0x4710);
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
      });
      const bool isFolder = kind == FILE_ATTRIBUTE_DIRECTORY;
      const std::vector<std::string> copy = {isFolder ? R"(CreateDirectoryW("Q:\\t\\e", null) = 1)"
                                                      : R"(CopyFileW("Q:\\s\\e", "Q:\\t\\e", 1) = 1)"};
      EXPECT_EQ(Result(L"cr"), (Outcome{0, copy}));
      EXPECT_EQ(Result(L"crl"), one.isLink ? (Outcome{-7, {}}) : (Outcome{0, copy}));
      EXPECT_EQ(Result(L"crli"), (Outcome{0, one.isLink ? std::vector<std::string>{} : copy}));
      EXPECT_EQ(Result(L"ml"), (Outcome{0, {R"(MoveFileW("Q:\\s\\e", "Q:\\t\\e") = 1)"}}));
    }
  }
}

TEST_F(TreeAnswersTest, ALinkInTheWayIsDeletedItself) {
  List(L"e", L"e", L"");
  for (DWORD kind : {DWORD{FILE_ATTRIBUTE_ARCHIVE}, DWORD{FILE_ATTRIBUTE_DIRECTORY}}) {
    TheRig().On<::FindFirstFileW>([=](const wchar_t*, WIN32_FIND_DATAW* found) {
      *found = {};
      found->dwFileAttributes = kind | FILE_ATTRIBUTE_REPARSE_POINT;
      found->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
      wcscpy(found->cFileName, L"e");
      return reinterpret_cast<HANDLE>(0x4710);
    });
    const std::string deleted = kind == FILE_ATTRIBUTE_DIRECTORY ? "RemoveDirectoryW" : "DeleteFileW";
    const std::string moved = R"(MoveFileW("Q:\\s\\e", "Q:\\t\\e") = 1)";
    EXPECT_EQ(Result(L"mol"), (Outcome{0, {deleted + R"(("Q:\\t\\e") = 1)", moved}}));
    EXPECT_EQ(Result(L"crl"), (Outcome{kind == FILE_ATTRIBUTE_DIRECTORY ? -7 : 0, {}}));
  }
}

TEST_F(TreeAnswersTest, AnEmptyNameProvesNothing) {
  List(L"LONGNA~1", L"", L"LONGNA~1");
  EXPECT_EQ(Result(L"m"), (Outcome{-15, {}}));
  EXPECT_EQ(Result(L"c"), (Outcome{0, {}}));
  EXPECT_EQ(Result(L"mo"), (Outcome{0,
                                    {R"(DeleteFileW("Q:\\t\\LONGNA~1") = 1)",
                                     R"(MoveFileW("Q:\\s\\LONGNA~1", "Q:\\t\\LONGNA~1") = 1)"}}));
  EXPECT_EQ(Result(L"co"), (Outcome{0,
                                    {R"(DeleteFileW("Q:\\t\\LONGNA~1") = 1)",
                                     R"(CopyFileW("Q:\\s\\LONGNA~1", "Q:\\t\\LONGNA~1", 1) = 1)"}}));
  // The entry counts as found, but one that the path does not lead to is not touched.
  List(L"report.", L"", L"");
  EXPECT_EQ(Result(L"m"), (Outcome{-15, {}}));
  EXPECT_EQ(Result(L"c"), (Outcome{0, {}}));
  EXPECT_EQ(Result(L"mo"), (Outcome{-3, {}}));
  EXPECT_EQ(Result(L"mob"), (Outcome{-2, {}}));
  EXPECT_EQ(Result(L"co"), (Outcome{-3, {}}));
}

TEST_F(TreeAnswersTest, AnUnrelatedNameProvesNothing) {
  List(L"LONGNA~1", L"something else", L"SOMETH~1");
  EXPECT_EQ(Result(L"m"), (Outcome{-15, {}}));
  EXPECT_EQ(Result(L"c"), (Outcome{0, {}}));
  EXPECT_EQ(Result(L"mo"), (Outcome{0,
                                    {R"(DeleteFileW("Q:\\t\\LONGNA~1") = 1)",
                                     R"(MoveFileW("Q:\\s\\LONGNA~1", "Q:\\t\\LONGNA~1") = 1)"}}));
}

TEST_F(TreeAnswersTest, TheSameNameInOtherLettersIsTheEntry) {
  List(L"Longname \u00E9", L"LONGNAME \u00C9", L"Longname \u00E9");
  EXPECT_EQ(Result(L"m"), (Outcome{-15, {}}));
  List(L"report.", L"REPORT.", L"");
  EXPECT_EQ(Result(L"m"), (Outcome{-15, {}}));
}

TEST_F(TreeAnswersTest, AShortNameProvesAnotherEntry) {
  List(L"longna~1", L"Long name", L"LONGNA~1");
  EXPECT_EQ(Result(L"m"), (Outcome{0, {R"(MoveFileW("Q:\\s\\longna~1", "Q:\\t\\longna~1") = 1)"}}));
  EXPECT_EQ(Result(L"mo"), (Outcome{0, {R"(MoveFileW("Q:\\s\\longna~1", "Q:\\t\\longna~1") = 1)"}}));
  EXPECT_EQ(Result(L"mob"), (Outcome{0, {R"(MoveFileW("Q:\\s\\longna~1", "Q:\\t\\longna~1") = 1)"}}));
  // The source is looked up too, and is then not found.
  EXPECT_EQ(Result(L"c"), (Outcome{-16, {}}));
  EXPECT_EQ(Result(L"co"), (Outcome{-16, {}}));
}

TEST_F(TreeAnswersTest, ACutNameProvesAnotherEntry) {
  for (const wchar_t* entry : {L"report.", L"report ", L"report. ."}) {
    List(entry, L"report", L"");
    EXPECT_EQ(Result(L"m"), (Outcome{-6, {}}));
    EXPECT_EQ(Result(L"mo"), (Outcome{-6, {}}));
    EXPECT_EQ(Result(L"mob"), (Outcome{-6, {}}));
    EXPECT_EQ(Result(L"c"), (Outcome{-16, {}}));
    EXPECT_EQ(Result(L"cori"), (Outcome{0, {}}));
  }
}

TEST_F(TreeAnswersTest, EachStepRefusesANameThatItsPathDoesNotLeadTo) {
  // The look-ups report that the entry exists, or that only the source exists.
  auto sourceOnly = [&](DWORD attributes) {
    List(L"report.", L"report.", L"", attributes);
    TheRig().On<::FindFirstFileW>([=](const wchar_t* path, WIN32_FIND_DATAW* found) {
      *found = {};
      found->dwFileAttributes = attributes;
      wcscpy(found->cFileName, L"report.");
      if (std::wstring(path).starts_with(L"Q:\\s")) return reinterpret_cast<HANDLE>(0x4710);
      SetLastError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    });
  };
  sourceOnly(FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(Result(L"m"), (Outcome{-6, {}}));
  EXPECT_EQ(Result(L"c"), (Outcome{-7, {}}));
  sourceOnly(FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(Result(L"c"), (Outcome{-17, {}}));
  EXPECT_EQ(Result(L"cr"), (Outcome{-18, {}}));
  List(L"report.", L"report.", L"", FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(Result(L"cr"), (Outcome{-43, {}}));
  EXPECT_EQ(Result(L"cri"), (Outcome{0, {}}));
}

}  // namespace tree_copy_test
