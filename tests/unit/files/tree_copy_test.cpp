// The copy/move engine on one item: every code with its exact calls.

#include "unit/files/tree_copy_tools.h"

namespace tree_copy_test {

TEST_F(TreeCopyTest, AFileIsCopied) {
  Make({L"a"});
  EXPECT_EQ(Item(L"a", L"b", 0), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\b", *) = INVALID_HANDLE_VALUE)",
      R"(FindFirstFileW("T:\\a", *) = search#1)",
      "FindClose(search#1) = 1",
      R"(CopyFileW("T:\\a", "T:\\b", 1) = 1)",
  });
  EXPECT_EQ(Made(), (Names{L"a", L"b = a"}));
}

TEST_F(TreeCopyTest, AFileOrFolderIsMoved) {
  Make({L"a", L"d\\", L"d\\f"});
  EXPECT_EQ(Item(L"a", L"b", kTreeMove), 0);
  EXPECT_EQ(Item(L"d", L"e", kTreeMove), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\b", *) = INVALID_HANDLE_VALUE)",
      R"(MoveFileW("T:\\a", "T:\\b") = 1)",
      R"(FindFirstFileW("T:\\e", *) = INVALID_HANDLE_VALUE)",
      R"(MoveFileW("T:\\d", "T:\\e") = 1)",
  });
  EXPECT_EQ(Made(), (Names{L"b = a", L"e\\", L"e\\f = d\\f"}));
}

TEST_F(TreeCopyTest, AFolderIsCopiedWithItsContents) {
  Make({L"a\\", L"a\\b\\", L"a\\f"});
  EXPECT_EQ(Item(L"a", L"c", kTreeRecurse), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\c", *) = INVALID_HANDLE_VALUE)",
      R"(FindFirstFileW("T:\\a", *) = search#1)",
      "FindClose(search#1) = 1",
      R"(CreateDirectoryW("T:\\c", null) = 1)",
      R"(FindFirstFileW("T:\\a\\*", *) = search#2)",
      "FindNextFileW(search#2, *) = 1",
      "FindNextFileW(search#2, *) = 1",
      R"(FindFirstFileW("T:\\c\\b", *) = INVALID_HANDLE_VALUE)",
      R"(FindFirstFileW("T:\\a\\b", *) = search#3)",
      "FindClose(search#3) = 1",
      R"(CreateDirectoryW("T:\\c\\b", null) = 1)",
      R"(FindFirstFileW("T:\\a\\b\\*", *) = search#4)",
      "FindNextFileW(search#4, *) = 1",
      "FindNextFileW(search#4, *) = 0",
      "FindClose(search#4) = 1",
      "FindNextFileW(search#2, *) = 1",
      R"(FindFirstFileW("T:\\c\\f", *) = INVALID_HANDLE_VALUE)",
      R"(FindFirstFileW("T:\\a\\f", *) = search#5)",
      "FindClose(search#5) = 1",
      R"(CopyFileW("T:\\a\\f", "T:\\c\\f", 1) = 1)",
      "FindNextFileW(search#2, *) = 0",
      "FindClose(search#2) = 1",
  });
  EXPECT_EQ(Made(), (Names{L"a\\", L"a\\b\\", L"a\\f", L"c\\", L"c\\b\\", L"c\\f = a\\f"}));
}

TEST_F(TreeCopyTest, NullNamesCountAsOutOfMemory) {
  EXPECT_EQ(TreeCopyMoveItem(nullptr, L"Q:\\x", 0), -108);
  EXPECT_EQ(TreeCopyMoveItem(L"Q:\\x", nullptr, kTreeMove), -108);
  EXPECT_CALLS({});
}

TEST_F(TreeCopyTest, AMoveKeepsAnExistingTarget) {
  Make({L"a", L"b", L"d\\"});
  EXPECT_EQ(Item(L"a", L"b", kTreeMove | kTreeKeepAside | kTreeRecurse), -15);
  EXPECT_CALLS({R"(FindFirstFileW("T:\\b", *) = search#1)", "FindClose(search#1) = 1"});
  EXPECT_EQ(Item(L"a", L"d", kTreeMove | kTreeRecurse), -15);
  EXPECT_EQ(Made(), (Names{L"a", L"b", L"d\\"}));
}

TEST_F(TreeCopyTest, ACopyKeepsAnExistingTargetWithoutACode) {
  Make({L"a", L"b", L"d\\", L"d\\f", L"e\\"});
  EXPECT_EQ(Item(L"a", L"b", 0), 0);
  EXPECT_CALLS({R"(FindFirstFileW("T:\\b", *) = search#1)", "FindClose(search#1) = 1"});
  EXPECT_EQ(Item(L"d", L"b", kTreeRecurse), 0);
  EXPECT_EQ(Item(L"d", L"e", 0), 0);
  EXPECT_EQ(Item(L"none", L"b", kTreeKeepAside), 0);
  EXPECT_EQ(Made(), (Names{L"a", L"b", L"d\\", L"d\\f", L"e\\"}));
}

TEST_F(TreeCopyTest, FoldersMergeAndExistingEntriesAreKept) {
  Make({L"a\\", L"a\\both", L"a\\new", L"a\\d\\", L"a\\d\\g", L"a\\x", L"a\\y\\", L"a\\y\\z"});
  Make({L"b\\", L"b\\both", L"b\\old", L"b\\d\\", L"b\\x\\", L"b\\y"});
  EXPECT_EQ(Item(L"a", L"b", kTreeRecurse), 0);
  EXPECT_EQ(TreeOf(folder_ / L"b"), (Tree{{L"both", "b\\both"},
                                          {L"new", "a\\new"},
                                          {L"old", "b\\old"},
                                          {L"d", kFolder},
                                          {L"d\\g", "a\\d\\g"},
                                          {L"x", kFolder},
                                          {L"y", "b\\y"}}));
}

TEST_F(TreeCopyTest, MergingNeedsASourceAndIgnoresAFile) {
  Make({L"a", L"d\\"});
  EXPECT_EQ(Item(L"none", L"d", kTreeRecurse), -16);
  Calls();
  EXPECT_EQ(Item(L"a", L"d", kTreeRecurse), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\d", *) = search#2)",
      "FindClose(search#2) = 1",
      R"(FindFirstFileW("T:\\a", *) = search#3)",
      "FindClose(search#3) = 1",
  });
  EXPECT_EQ(Made(), (Names{L"a", L"d\\"}));
}

TEST_F(TreeCopyTest, AnExistingTargetIsRenamedAsideWithTheTime) {
  Make({L"a", L"b\\", L"b\\f"});
  TheWorld().clock.local = {2024, 5, 3, 1, 13, 7, 55, 999};
  EXPECT_EQ(Item(L"a", L"b", kTreeMove | kTreeOverwrite | kTreeKeepAside), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\b", *) = search#1)",
      "FindClose(search#1) = 1",
      R"(wsprintfW(*, "%s %04d-%02d-%02d %02d-%02d-%02d", "T:\\b", 2024, 5, 1, 13, 7, 55) = )" +
          std::to_string((folder_ / L"b").size() + 20),
      R"(MoveFileW("T:\\b", "T:\\b 2024-05-01 13-07-55") = 1)",
      R"(MoveFileW("T:\\a", "T:\\b") = 1)",
  });
  EXPECT_EQ(Made(), (Names{L"b = a", L"b 2024-05-01 13-07-55\\", L"b 2024-05-01 13-07-55\\f = b\\f"}));
}

TEST_F(TreeCopyTest, ACopyRenamesAsideToo) {
  Make({L"a", L"b"});
  TheWorld().clock.local = {987, 1, 0, 2, 3, 4, 5, 0};
  EXPECT_EQ(Item(L"a", L"b", kTreeOverwrite | kTreeKeepAside), 0);
  EXPECT_EQ(Made(), (Names{L"a", L"b = a", L"b 0987-01-02 03-04-05 = b"}));
}

TEST_F(TreeCopyTest, ATargetThatCannotBeRenamedStays) {
  Make({L"a", L"b", L"b 2026-11-15 11-30-45"});
  EXPECT_EQ(Item(L"a", L"b", kTreeMove | kTreeOverwrite | kTreeKeepAside), -2);
  EXPECT_EQ(Item(L"a", L"b", kTreeOverwrite | kTreeKeepAside), -2);
  TheRig().On<::wsprintfW>([](wchar_t* buffer, const wchar_t*, va_list) {
    buffer[0] = L'x';
    return 0;
  });
  EXPECT_EQ(Item(L"a", L"b", kTreeOverwrite | kTreeKeepAside), -2);
  EXPECT_EQ(Made(), (Names{L"a", L"b", L"b 2026-11-15 11-30-45"}));
}

TEST_F(TreeCopyTest, ANameThatTheSystemCannotFormatStays) {
  // The system's function cuts texts at 1024 characters.
  std::wstring target = L"Q:\\" + std::wstring(1010, L'x');
  bool moved = false;
  TheRig().On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW* found) {
    found->dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
    return reinterpret_cast<HANDLE>(0x4710);
  });
  TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
  TheRig().On<::MoveFileW>([&](const wchar_t*, const wchar_t*) {
    moved = true;
    return TRUE;
  });
  EXPECT_EQ(TreeCopyMoveItem(L"Q:\\a", target.c_str(), kTreeMove | kTreeOverwrite | kTreeKeepAside), -2);
  EXPECT_FALSE(moved);
}

TEST_F(TreeCopyTest, AnExistingTargetIsDeleted) {
  Make({L"a", L"b\\", L"b\\f", L"c"});
  EXPECT_EQ(Item(L"a", L"b", kTreeMove | kTreeOverwrite), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\b", *) = search#1)",
      "FindClose(search#1) = 1",
      R"(FindFirstFileW("T:\\b\\*", *) = search#2)",
      "FindNextFileW(search#2, *) = 1",
      "FindNextFileW(search#2, *) = 1",
      R"(DeleteFileW("T:\\b\\f") = 1)",
      "FindNextFileW(search#2, *) = 0",
      "FindClose(search#2) = 1",
      R"(RemoveDirectoryW("T:\\b") = 1)",
      R"(MoveFileW("T:\\a", "T:\\b") = 1)",
  });
  EXPECT_EQ(Item(L"c", L"b", kTreeOverwrite), 0);
  EXPECT_CALLS({
      R"(FindFirstFileW("T:\\b", *) = search#3)",
      "FindClose(search#3) = 1",
      R"(DeleteFileW("T:\\b") = 1)",
      R"(FindFirstFileW("T:\\c", *) = search#4)",
      "FindClose(search#4) = 1",
      R"(CopyFileW("T:\\c", "T:\\b", 1) = 1)",
  });
  EXPECT_EQ(Made(), (Names{L"b = c", L"c"}));
}

TEST_F(TreeCopyTest, ATargetThatCannotBeDeletedEndsTheItem) {
  Make({L"a", L"b"});
  Refuse(L"b");
  TheRig().UseReal("FindFirstFileW");
  EXPECT_EQ(Item(L"a", L"b", kTreeMove | kTreeOverwrite), -3);
  EXPECT_EQ(Item(L"a", L"b", kTreeOverwrite | kTreeIgnoreErrors), -3);
  EXPECT_EQ(Made(), (Names{L"a", L"b"}));
}

TEST_F(TreeCopyTest, AnOverwritingCopyDeletesBeforeItLooksForItsSource) {
  Make({L"b"});
  EXPECT_EQ(Item(L"a", L"b", kTreeOverwrite), -16);
  EXPECT_EQ(Made(), Names{});
}

TEST_F(TreeCopyTest, AFailedMoveHasItsCode) {
  Make({L"a", L"b"});
  Refuse(L"a");
  EXPECT_EQ(Item(L"a", L"c", kTreeMove), -6);
  EXPECT_EQ(Item(L"none", L"c", kTreeMove), -6);
  EXPECT_EQ(Item(L"a", L"b", kTreeMove | kTreeOverwrite), -6);
  EXPECT_EQ(Made(), (Names{L"a"}));
}

TEST_F(TreeCopyTest, AFailedCopyHasItsCode) {
  Make({L"a"});
  Refuse(L"b");
  TheRig().UseReal("FindFirstFileW");
  EXPECT_EQ(Item(L"a", L"b", 0), -7);
  EXPECT_EQ(Item(L"none", L"b", 0), -16);
  EXPECT_EQ(Made(), (Names{L"a"}));
}

TEST_F(TreeCopyTest, FoldersAreCopiedOnlyOnRequest) {
  Make({L"a\\"});
  EXPECT_EQ(Item(L"a", L"b", kTreeOverwrite | kTreeIgnoreErrors), -17);
  EXPECT_EQ(Item(L"a", L"none\\b", kTreeRecurse), -18);
  EXPECT_EQ(Made(), (Names{L"a\\"}));
}

TEST_F(TreeCopyTest, TheFirstFailureEndsAFolder) {
  Make({L"a\\", L"a\\b\\", L"a\\b\\f", L"a\\b\\g", L"a\\c"});
  Refuse(L"t\\b\\f");
  TheRig().UseReal("FindFirstFileW");
  EXPECT_EQ(Item(L"a", L"t", kTreeRecurse), -7);
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"b", kFolder}}));
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
}

TEST_F(TreeCopyTest, AFailureBelowAFolderCanBeIgnored) {
  Make({L"a\\", L"a\\b\\", L"a\\b\\f", L"a\\b\\g", L"a\\c"});
  Refuse(L"t\\b\\f");
  TheRig().UseReal("FindFirstFileW");
  EXPECT_EQ(Item(L"a", L"t", kTreeRecurse | kTreeIgnoreErrors), 0);
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"b", kFolder}, {L"b\\g", "a\\b\\g"}, {L"c", "a\\c"}}));
}

TEST_F(TreeCopyTest, AFolderThatCannotBeListedHasItsCode) {
  Make({L"a\\", L"a\\f"});
  Refuse(L"a\\*");
  EXPECT_EQ(Item(L"a", L"t", kTreeRecurse), -43);
  EXPECT_EQ(Made(), (Names{L"a\\", L"a\\f", L"t\\"}));
  EXPECT_EQ(Item(L"a", L"u", kTreeRecurse | kTreeIgnoreErrors), 0);
  Refuse(L"a\\*", ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Item(L"a", L"v", kTreeRecurse), 0);
}

TEST_F(TreeCopyTest, ASubfolderThatCannotBeListedEndsTheCopyUnlessIgnored) {
  Make({L"a\\", L"a\\b\\", L"a\\b\\f", L"a\\c"});
  Refuse(L"a\\b\\*");
  EXPECT_EQ(Item(L"a", L"t", kTreeRecurse), -43);
  EXPECT_EQ(Item(L"a", L"u", kTreeRecurse | kTreeIgnoreErrors), 0);
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"b", kFolder}}));
  EXPECT_EQ(TreeOf(folder_ / L"u"), (Tree{{L"b", kFolder}, {L"c", "a\\c"}}));
}

TEST_F(TreeCopyTest, AListingThatBreaksOffHasItsCode) {
  Make({L"a\\", L"a\\f", L"a\\g"});
  int left = 2;
  TheRig().On<::FindNextFileW>([&](HANDLE search, WIN32_FIND_DATAW* found) {
    if (left-- > 0) return rig::Function<&::FindNextFileW>::Real()(search, found);
    SetLastError(ERROR_READ_FAULT);
    return FALSE;
  });
  EXPECT_EQ(Item(L"a", L"t", kTreeRecurse), -43);
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"f", "a\\f"}}));
  left = 2;
  EXPECT_EQ(Run(L"x 'T:\\a\\*' 'T:\\t\\'"), -43);
  left = 2;
  EXPECT_EQ(Item(L"a", L"u", kTreeRecurse | kTreeIgnoreErrors), 0);
}

}  // namespace tree_copy_test
