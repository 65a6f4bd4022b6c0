// The copy/move engine's command line: its elements, the forms of sources and targets, the end of a run.

#include <windows.h>
// Needs windows.h before it.
#include <shellapi.h>

#include "unit/files/tree_copy_tools.h"

namespace tree_copy_test {

using Lines = std::vector<std::string>;

class TreeCopyLineTest : public TreeCopyTest {};

TEST_F(TreeCopyLineTest, TheElementsAreSplitAndFreed) {
  Make({L"a"});
  EXPECT_EQ(Run(L"x 'T:\\a' 'T:\\b'"), 0);
  EXPECT_CALLS({
      R"(CommandLineToArgvW("x \"T:\\a\" \"T:\\b\"", *) = local-memory#1)",
      R"(FindFirstFileW("T:\\b", *) = INVALID_HANDLE_VALUE)",
      R"(FindFirstFileW("T:\\a", *) = search#1)",
      "FindClose(search#1) = 1",
      R"(CopyFileW("T:\\a", "T:\\b", 1) = 1)",
      "LocalFree(local-memory#1) = null",
  });
}

TEST_F(TreeCopyLineTest, SlashesInSourcesAndTargetsAreBackslashes) {
  Make({L"s\\", L"s\\a", L"t\\", L"a"});
  // Otherwise the entries listed in s would be looked up in the folder around it, and be copied there.
  EXPECT_EQ(Run(L"x -mo 'T:\\s/*' 'T:\\t/.'"), 0);
  EXPECT_EQ(Made(), (Names{L"a", L"s\\", L"t\\", L"t\\a = s\\a"}));
  EXPECT_EQ(Run(L"x -c/ 'T:/a' 'T:/s/b'"), 0);
  EXPECT_EQ(Made(), (Names{L"a", L"s\\", L"s\\b = a", L"t\\", L"t\\a = s\\a"}));
}

TEST_F(TreeCopyLineTest, FewerThanThreeElementsAreTooFew) {
  EXPECT_EQ(TreeCopyMove(nullptr), -50);
  EXPECT_CALLS({});
  EXPECT_EQ(Run(L"x"), -50);
  EXPECT_EQ(Run(L"x y"), -50);
  EXPECT_EQ(Run(L"x -z y"), 0);
  EXPECT_EQ(Run(L"x -z -q '' -"), -16);
}

TEST_F(TreeCopyLineTest, ALineThatCannotBeSplitCountsAsOutOfMemory) {
  TheRig().On<::CommandLineToArgvW>([](const wchar_t*, int*) -> wchar_t** { return nullptr; });
  EXPECT_EQ(Run(L"x a b"), -108);
}

TEST_F(TreeCopyLineTest, DotsAndOneBackslashAreTrimmed) {
  Make({L"a\\", L"a\\f"});
  EXPECT_EQ(Run(L"x -r 'T:\\a\\.' 'T:\\b\\.'"), 0);
  EXPECT_EQ(Run(L"x -r 'T:\\a\\...' 'T:\\c...'"), 0);
  EXPECT_EQ(Run(L"x -r T:\\a\\ T:\\d\\"), -16);  // the folder's own name has a blank
  EXPECT_EQ(Run(L"x -m 'T:\\a.' 'T:\\e'"), 0);
  EXPECT_EQ(Made(), (Names{L"b\\", L"b\\f = a\\f", L"c\\", L"c\\f = a\\f", L"e\\", L"e\\f = a\\f"}));
  Calls();
  EXPECT_EQ(Run(L"x 'Q:\\x\\\\.' 'Q:\\y'"), -16);
  EXPECT_EQ(Calls().at(2), R"(FindFirstFileW("Q:\\x\\", *) = INVALID_HANDLE_VALUE)");
}

TEST_F(TreeCopyLineTest, APatternMeansItsMatches) {
  Make({L"a\\", L"a\\1.txt", L"a\\2.txt", L"a\\3.dat", L"a\\4.txt\\", L"a\\4.txt\\f", L"t\\"});
  EXPECT_EQ(Run(L"x -r 'T:\\a\\*.txt' 'T:\\t\\'"), 0);
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"1.txt", "a\\1.txt"},
                                          {L"2.txt", "a\\2.txt"},
                                          {L"4.txt", kFolder},
                                          {L"4.txt\\f", "a\\4.txt\\f"}}));
  EXPECT_EQ(Run(L"x -m 'T:\\a\\?.dat' 'T:\\t\\ignored'"), 0);
  EXPECT_EQ(TreeOf(folder_ / L"t").count(L"3.dat"), 1u);
}

TEST_F(TreeCopyLineTest, APatternMakesTheseCalls) {
  Make({L"a\\", L"a\\f", L"a\\g", L"t\\", L"t\\f"});
  EXPECT_EQ(Run(L"x -n 'T:\\a\\*' 'T:\\t\\.'"), 0);
  Lines calls = Calls();
  Lines inner(calls.begin() + 1, calls.end() - 1);
  rig::CompareLines(__FILE__, __LINE__, "trace",
                    {
                        R"(FindFirstFileW("T:\\a\\*", *) = search#1)",
                        R"(CreateDirectoryW("T:\\t", null) = 0)",
                        "FindNextFileW(search#1, *) = 1",
                        "FindNextFileW(search#1, *) = 1",
                        R"(FindFirstFileW("T:\\t\\f", *) = search#2)",
                        "FindClose(search#2) = 1",
                        "FindNextFileW(search#1, *) = 1",
                        R"(FindFirstFileW("T:\\t\\g", *) = INVALID_HANDLE_VALUE)",
                        R"(FindFirstFileW("T:\\a\\g", *) = search#3)",
                        "FindClose(search#3) = 1",
                        R"(CopyFileW("T:\\a\\g", "T:\\t\\g", 1) = 1)",
                        "FindNextFileW(search#1, *) = 0",
                        "FindClose(search#1) = 1",
                    },
                    inner);
}

TEST_F(TreeCopyLineTest, APatternWithoutAMatchSucceeds) {
  Make({L"a\\"});
  EXPECT_EQ(Run(L"x -n 'T:\\a\\*.txt' 'T:\\t\\'"), 0);
  EXPECT_EQ(Run(L"x -n 'T:\\none\\*.txt' 'T:\\t\\'"), -43);
  EXPECT_EQ(Run(L"x -ni 'T:\\none\\*.txt' 'T:\\t\\'"), 0);
  // The target is only created if something matches.
  EXPECT_EQ(Made(), (Names{L"a\\"}));
}

TEST_F(TreeCopyLineTest, ThePatternOfAnEmptyFolderCreatesTheTarget) {
  Make({L"a\\"});
  EXPECT_EQ(Run(L"x -n 'T:\\a\\*' 'T:\\t\\'"), 0);
  EXPECT_EQ(Made(), (Names{L"a\\", L"t\\"}));
}

TEST_F(TreeCopyLineTest, AMatchThatFailsEndsThePatternUnlessIgnored) {
  Make({L"a\\", L"a\\1", L"a\\2\\", L"a\\3", L"t\\", L"u\\"});
  EXPECT_EQ(Run(L"x 'T:\\a\\*' 'T:\\t\\'"), -17);
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"1", "a\\1"}}));
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
  EXPECT_EQ(Run(L"x -i 'T:\\a\\*' 'T:\\u\\'"), 0);
  EXPECT_EQ(TreeOf(folder_ / L"u"), (Tree{{L"1", "a\\1"}, {L"3", "a\\3"}}));
}

TEST_F(TreeCopyLineTest, TheTargetIsCreatedBeforeAPlainSource) {
  Make({L"a\\", L"a\\f"});
  EXPECT_EQ(Run(L"x -rn 'T:\\a\\' 'T:\\t\\.'"), 0);
  EXPECT_EQ(Calls().at(1), R"(CreateDirectoryW("T:\\t", null) = 1)");
  EXPECT_EQ(TreeOf(folder_ / L"t"), (Tree{{L"f", "a\\f"}}));
  // So a move finds an existing target, and a copy without "r" keeps it.
  EXPECT_EQ(Run(L"x -mn 'T:\\a' 'T:\\u'"), -15);
  EXPECT_EQ(Run(L"x -n 'T:\\a\\f' 'T:\\v'"), 0);
  EXPECT_EQ(Run(L"x -nmo 'T:\\a' 'T:\\w'"), 0);
  EXPECT_EQ(Made(), (Names{L"t\\", L"t\\f = a\\f", L"u\\", L"v\\", L"w\\", L"w\\f = a\\f"}));
}

TEST_F(TreeCopyLineTest, ATargetThatCannotBeCreatedIsIgnored) {
  Make({L"a"});
  EXPECT_EQ(Run(L"x -n 'T:\\a' 'T:\\none\\t'"), -7);
  EXPECT_EQ(Calls().at(1), R"(CreateDirectoryW("T:\\none\\t", null) = 0)");
}

TEST_F(TreeCopyLineTest, TheFirstSourceThatFailsEndsTheRun) {
  Make({L"a", L"b\\", L"c", L"t\\"});
  EXPECT_EQ(Run(L"x 'T:\\a*' 'T:\\none' 'T:\\c*' 'T:\\t\\'"), 0);
  EXPECT_EQ(Run(L"x -m 'T:\\c' 'T:\\a' 'T:\\t\\'"), -15);
  EXPECT_EQ(Run(L"x 'T:\\n*' 'T:\\n1' 'T:\\a' 'T:\\u'"), -16);
  EXPECT_EQ(Run(L"x -i 'T:\\n*' 'T:\\n1' 'T:\\b' 'T:\\a' 'T:\\u'"), 0);
  EXPECT_EQ(Made(), (Names{L"a", L"b\\", L"c", L"t\\", L"t\\a = a", L"t\\c = c", L"u = a"}));
}

TEST_F(TreeCopyLineTest, OptionsApplyToTheSourcesAfterThem) {
  Make({L"a", L"b", L"c", L"t\\"});
  EXPECT_EQ(Run(L"x 'T:\\a*' -m 'T:\\b*' -c 'T:\\c*' -m 'T:\\t\\'"), 0);
  EXPECT_EQ(Made(), (Names{L"a", L"c", L"t\\", L"t\\a = a", L"t\\b = b", L"t\\c = c"}));
}

// What gives an older folder its name again in a rollback, which can run twice.
TEST_F(TreeCopyLineTest, AMoveBackThatRunsTwiceChangesNothingMore) {
  const wchar_t* const back = L"x -cel 'T:\\Kept\\no such entry*' -mobl 'T:\\Kept\\.' 'T:\\Server\\.'";
  Make({L"Kept\\", L"Kept\\f", L"Server\\", L"Server\\g"});
  const Names once = {L"Server\\", L"Server 2026-11-15 11-30-45\\",
                      L"Server 2026-11-15 11-30-45\\g = Server\\g", L"Server\\f = Kept\\f"};
  EXPECT_EQ(Run(back), 0);
  EXPECT_EQ(Made(), once);
  EXPECT_EQ(Run(back), -43);
  EXPECT_EQ(Made(), once);
  // The second run looks into the folder, and ends.
  const Lines calls = Calls();
  ASSERT_EQ(calls.size(), 11u);
  EXPECT_EQ(Lines(calls.begin() + 9, calls.end()),
            (Lines{R"(FindFirstFileW("T:\\Kept\\no such entry*", *) = INVALID_HANDLE_VALUE)",
                   "LocalFree(local-memory#2) = null"}));
}

// What makes a place free before an upgrade: the source does not exist.
TEST_F(TreeCopyLineTest, APlaceIsMadeFree) {
  const wchar_t* const free = L"x -mobil 'T:\\Kept\\no such entry' 'T:\\Kept\\.'";
  const Names renamed = {L"Kept 2026-11-15 11-30-45\\", L"Kept 2026-11-15 11-30-45\\f = Kept\\f"};
  Make({L"Kept\\", L"Kept\\f"});
  EXPECT_EQ(Run(free), 0);
  EXPECT_EQ(Made(), renamed);
  // Nothing is there any more.
  EXPECT_EQ(Run(free), 0);
  EXPECT_EQ(Made(), renamed);
}

TEST_F(TreeCopyLineTest, APlaceThatCannotBeMadeFreeStays) {
  Make({L"Kept\\", L"Kept\\no such entry", L"Kept 2026-11-15 11-30-45\\"});
  EXPECT_EQ(Run(L"x -mobil 'T:\\Kept\\no such entry' 'T:\\Kept\\.'"), 0);
  EXPECT_EQ(Made(), (Names{L"Kept\\", L"Kept 2026-11-15 11-30-45\\", L"Kept\\no such entry"}));
}

TEST_F(TreeCopyLineTest, APackagesMoveAside) {
  Make({L"Server\\", L"Server\\data\\", L"Server\\data\\f", L"Old\\", L"Old\\g"});
  EXPECT_EQ(Run(L"x -m 'T:\\Server\\' 'T:\\Old\\'"), -15);
  EXPECT_EQ(Run(L"x -mob 'T:\\Server\\' 'T:\\Old\\'"), 0);
  EXPECT_EQ(Made(), (Names{L"Old\\", L"Old 2026-11-15 11-30-45\\", L"Old 2026-11-15 11-30-45\\g = Old\\g",
                           L"Old\\data\\", L"Old\\data\\f = Server\\data\\f"}));
}

}  // namespace tree_copy_test
