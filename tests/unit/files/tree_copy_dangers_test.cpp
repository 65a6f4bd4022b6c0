// What a command line of the copy/move engine destroys or omits, as in docs/actions.md ("What a command line
// can destroy"). Each line runs on folders of the disk.

#include "files/tree_copy.h"
#include "unit/files/tree_tools.h"

namespace tree_copy_dangers_test {

using tree_test::kFolder;
using tree_test::MakeTree;
using tree_test::Tree;
using tree_test::TreeOf;

HX_INTERNAL(TreeCopyMove);

class TreeCopyDangersTest : public tree_test::TreeTest {
 protected:
  /// Makes `before` and runs the engine over `arguments`, in which each "@" means the folder of this test.
  /// Expects the code and the tree `after`. Of a name that contains the time only the beginning is compared.
  void Expect(const Tree& before, std::wstring arguments, int code, const Tree& after) {
    SCOPED_TRACE(rig::ToUtf8(arguments));
    tree_test::OwnFolder own;
    MakeTree(own.Path(), before);
    for (size_t at = 0; (at = arguments.find(L'@')) != std::wstring::npos;) {
      arguments.replace(at, 1, own.Path());
    }
    EXPECT_EQ(TreeCopyMove(arguments.c_str()), code);
    Tree found;
    for (const auto& [path, contents] : TreeOf(own.Path())) found[WithoutTime(path)] = contents;
    EXPECT_EQ(found, after) << tree_test::Describe(found);
  }

 private:
  static std::wstring WithoutTime(std::wstring path) {
    static constexpr size_t kStamp = sizeof(" 2000-01-01 00-00-00") - 1;
    size_t at = path.find(L" 20");
    return at == std::wstring::npos ? path : path.replace(at, kStamp, L" TIME");
  }
};

TEST_F(TreeCopyDangersTest, AMissingSourceCostsTheTarget) {
  const Tree target = {{L"t", kFolder}, {L"t\\f", "old"}};
  const Tree aside = {{L"t TIME", kFolder}, {L"t TIME\\f", "old"}};
  Expect(target, L"x -mo \"@\\s\" \"@\\t\"", -6, {});
  Expect(target, L"x -cro \"@\\s\" \"@\\t\"", -16, {});
  Expect(target, L"x -mob \"@\\s\" \"@\\t\"", -6, aside);
  Expect(target, L"x -crob \"@\\s\" \"@\\t\"", -16, aside);
  Expect(target, L"x -m \"@\\s\" \"@\\t\"", -15, target);
}

TEST_F(TreeCopyDangersTest, AnEmptySourceCostsTheTarget) {
  const Tree target = {{L"t", kFolder}, {L"t\\f", "old"}};
  const Tree aside = {{L"t TIME", kFolder}, {L"t TIME\\f", "old"}};
  Expect(target, L"x -mo \".\" \"@\\t\\.\"", -6, {});
  Expect(target, L"x -cro \".\" \"@\\t\\.\"", -16, {});
  Expect(target, L"x -mob \".\" \"@\\t\\.\"", -6, aside);
  Expect(target, L"x -crob \".\" \"@\\t\\.\"", -16, aside);
}

TEST_F(TreeCopyDangersTest, ASlashIsABackslash) {
  const Tree before = {{L"s", kFolder}, {L"s\\f", "new"}, {L"t", kFolder}, {L"f", "beside"}};
  const Tree after = {{L"s", kFolder}, {L"t", kFolder}, {L"t\\f", "new"}, {L"f", "beside"}};
  Expect(before, L"x -mo \"@/s/*\" \"@\\t/.\"", 0, after);
}

TEST_F(TreeCopyDangersTest, ASourceThatIsItsTargetIsLost) {
  const Tree before = {{L"Vantor", kFolder}, {L"Vantor\\f", "data"}};
  const Tree aside = {{L"Vantor TIME", kFolder}, {L"Vantor TIME\\f", "data"}};
  Expect(before, L"x -mo \"@\\Vantor\" \"@\\Vantor\"", -6, {});
  Expect(before, L"x -cro \"@\\Vantor\" \"@\\Vantor\"", -16, {});
  Expect(before, L"x -mob \"@\\Vantor\" \"@\\Vantor\"", -6, aside);
  Expect(before, L"x -crob \"@\\Vantor\" \"@\\Vantor\"", -16, aside);
}

TEST_F(TreeCopyDangersTest, AMoveOntoOtherLettersLosesTheSource) {
  const Tree before = {{L"Vantor", kFolder}, {L"Vantor\\f", "data"}};
  Expect(before, L"x -mo \"@\\Vantor\" \"@\\VANTOR\"", -6, {});
  Expect(before, L"x -cro \"@\\Vantor\" \"@\\VANTOR\"", -16, {});
  Expect(before, L"x -mob \"@\\Vantor\" \"@\\VANTOR\"", -6,
         {{L"VANTOR TIME", kFolder}, {L"VANTOR TIME\\f", "data"}});
  Expect(before, L"x -m \"@\\Vantor\" \"@\\VANTOR\"", -15, before);
}

TEST_F(TreeCopyDangersTest, ASourceInsideItsTargetIsLostWithIt) {
  const Tree before = {{L"A", kFolder}, {L"A\\B", kFolder}, {L"A\\B\\f", "data"}, {L"A\\g", "more"}};
  const Tree aside = {
      {L"A TIME", kFolder}, {L"A TIME\\B", kFolder}, {L"A TIME\\B\\f", "data"}, {L"A TIME\\g", "more"}};
  Expect(before, L"x -mo \"@\\A\\B\" \"@\\A\"", -6, {});
  Expect(before, L"x -cro \"@\\A\\B\" \"@\\A\"", -16, {});
  Expect(before, L"x -mob \"@\\A\\B\" \"@\\A\"", -6, aside);
  Expect(before, L"x -crob \"@\\A\\B\" \"@\\A\"", -16, aside);
}

TEST_F(TreeCopyDangersTest, TheSecondSourceTakesThePlaceOfTheFirst) {
  const Tree before = {
      {L"a", kFolder}, {L"a\\f", "first"}, {L"b", kFolder}, {L"b\\f", "second"}, {L"t", kFolder}};
  Tree after = before;
  after[L"t\\f"] = "second";
  Expect(before, L"x -co \"@\\a\\f\" \"@\\b\\f\" \"@\\t\\f\"", 0, after);
  after[L"t\\f TIME"] = "first";
  Expect(before, L"x -cob \"@\\a\\f\" \"@\\b\\f\" \"@\\t\\f\"", 0, after);
}

TEST_F(TreeCopyDangersTest, ACopyOmitsEntriesWithoutACodeInBothPasses) {
  const Tree before = {{L"s", kFolder},      {L"s\\folder", kFolder},  {L"s\\folder\\f", "lost"},
                       {L"s\\file", "lost"}, {L"s\\same", "new"},      {L"s\\other", "comes"},
                       {L"t", kFolder},      {L"t\\folder", "a file"}, {L"t\\file", kFolder},
                       {L"t\\same", "old"}};
  Tree after = before;
  after[L"t\\other"] = "comes";
  Expect(before, L"x -ckrni \"@\\s\\*\" -e \"@\\s\\*\" \"@\\t\\.\"", 0, after);
}

TEST_F(TreeCopyDangersTest, APatternWithoutAFolderIsTheCurrentFolder) {
  wchar_t current[MAX_PATH];
  ASSERT_NE(GetCurrentDirectoryW(MAX_PATH, current), 0u);
  tree_test::OwnFolder other;
  MakeTree(other.Path(), {{L"windows", "its own"}});
  ASSERT_TRUE(SetCurrentDirectoryW(other.Path().c_str()));
  Expect({{L"t", kFolder}}, L"x -m \"*\" \"@\\t\\.\"", 0, {{L"t", kFolder}, {L"t\\windows", "its own"}});
  EXPECT_EQ(TreeOf(other.Path()), Tree{});
  Expect({{L"s", kFolder}, {L"s\\f", "stray"}}, L"x -m \"@\\s\\*\" \".\"", 0, {{L"s", kFolder}});
  EXPECT_EQ(TreeOf(other.Path()), (Tree{{L"f", "stray"}}));
  EXPECT_TRUE(SetCurrentDirectoryW(current));
}

}  // namespace tree_copy_dangers_test
