// Nothing is lost: whichever call of a copy or a move fails, each file of the source is then complete in the
// source or in the target.

#include "files/tree_copy.h"
#include "unit/files/tree_tools.h"

namespace tree_copy_loss_test {

using tree_test::kFolder;
using tree_test::MakeFolder;
using tree_test::Tree;
using tree_test::TreeOf;

HX_INTERNAL(TreeCopyMove);

/// The items to copy or move: a file, a folder with two, an empty one.
const Tree kSource = {
    {L"a", "the file a"}, {L"d", kFolder}, {L"d\\b", "the file b"}, {L"d\\c", "the file c"}, {L"e", kFolder}};
/// The existing contents of the target: some of the same names, and others.
const Tree kTarget = {
    {L"a", "an older a"}, {L"d", kFolder}, {L"d\\c", "an older c"}, {L"old", "another file"}};

/// A run: its option letters, whether the source is a pattern, and whether the target has contents.
struct Case {
  const char* options;
  bool isPattern;
  bool hasTarget;
};

class TreeCopyLossTest : public tree_test::TreeTest, public testing::WithParamInterface<Case> {
 protected:
  /// Makes source and target again.
  void Prepare() {
    for (const wchar_t* name : {L"s", L"t", L"t 2026-11-15 11-30-45"}) tree_test::RemoveTree(folder_ / name);
    MakeFolder(folder_ / L"s");
    tree_test::MakeTree(folder_ / L"s", kSource);
    if (GetParam().hasTarget || GetParam().isPattern) MakeFolder(folder_ / L"t");
    if (GetParam().hasTarget) tree_test::MakeTree(folder_ / L"t", kTarget);
  }

  int Run() {
    std::wstring line = L"x -" + rig::ToWide(GetParam().options) + L" \"" + folder_.Path() + L"\\s";
    line += GetParam().isPattern ? L"\\*\" \"" : L"\" \"";
    line += folder_.Path() + (GetParam().isPattern ? L"\\t\\\\\"" : L"\\t\"");
    return TreeCopyMove(line.c_str());
  }

  bool IsMove() const { return strchr(GetParam().options, 'm') != nullptr; }
  bool KeepsAside() const { return strchr(GetParam().options, 'b') != nullptr; }
  bool Overwrites() const { return strchr(GetParam().options, 'o') != nullptr; }

  /// Checks where the files are. `half` is a target file that the failing call itself left half written.
  void CheckNothingLost(const std::wstring& half = L"") {
    Tree all = TreeOf(folder_.Path());
    for (const auto& [name, contents] : kSource) {
      if (contents == kFolder) continue;
      bool inSource = all.count(L"s\\" + name) != 0 && all[L"s\\" + name] == contents;
      bool inTarget = all.count(L"t\\" + name) != 0 && all[L"t\\" + name] == contents;
      EXPECT_TRUE(inSource || inTarget) << rig::ToUtf8(name) << " is lost:\n" << tree_test::Describe(all);
      // A copy never changes its source.
      EXPECT_TRUE(inSource || IsMove()) << rig::ToUtf8(name) << " is gone from the source";
      // A file of that name in the target is complete: either the new one or the previous one.
      if (all.count(L"t\\" + name) != 0 && !inTarget && name != half) {
        EXPECT_TRUE(kTarget.count(name) != 0 && all[L"t\\" + name] == kTarget.at(name))
            << "half of " << rig::ToUtf8(name) << ":\n"
            << tree_test::Describe(all);
      }
    }
    if (!GetParam().hasTarget) return;
    // Files that must not be overwritten, or must be renamed aside, still exist too.
    for (const auto& [name, contents] : kTarget) {
      if (contents == kFolder || (Overwrites() && !KeepsAside())) continue;
      bool isKept = false;
      for (const auto& [where, what] : all) isKept = isKept || (where[0] == L't' && what == contents);
      EXPECT_TRUE(isKept) << "the target's " << rig::ToUtf8(name) << " is lost:\n"
                          << tree_test::Describe(all);
    }
  }
};

TEST_P(TreeCopyLossTest, WhicheverCallFails) {
  rig::SweepOptions options;
  options.results.clear();
  for (int code : {0, -2, -3, -6, -7, -15, -16, -17, -18, -43, -108}) {
    options.results.insert(static_cast<UINT>(code));
  }
  Prepare();
  const int plainStatus = Run();
  const Tree whole = TreeOf(folder_ / L"t");
  const bool isWholeWork = plainStatus == 0 && strchr(GetParam().options, 'i') == nullptr;
  options.check = [&](const rig::SweepRun& run) {
    SCOPED_TRACE(run.call);
    CheckNothingLost();
    // If the run succeeds, its result is complete. There are two exceptions: a failed search here reports
    // that nothing exists, which looks like the truth, and creating a folder that already exists may fail.
    bool isSearch = run.name == "FindFirstFileW" || run.name == "FindNextFileW";
    if (run.result == 0 && isWholeWork && !isSearch) {
      EXPECT_EQ(tree_test::Describe(TreeOf(folder_ / L"t")), tree_test::Describe(whole));
    }
  };
  size_t failed = FailEachCall(
      [&](rig::Scene&) {
        Prepare();
        return static_cast<UINT>(Run());
      },
      {}, options);
  EXPECT_GE(failed, 4u);
}

/// True if the letters of a case make the engine copy the file `name` of the source.
bool IsCopied(const Case& one, const std::wstring& name) {
  auto has = [&](char letter) { return strchr(one.options, letter) != nullptr; };
  if (has('m')) return false;
  bool isNested = name.find(L'\\') != std::wstring::npos;
  bool needsFolder = isNested || !one.isPattern;
  if (needsFolder && !has('r')) return false;
  // An existing folder that stays keeps its files; one that is replaced loses them.
  return !one.hasTarget || has('o') || kTarget.count(name) == 0;
}

TEST_P(TreeCopyLossTest, WhenACopyLeavesHalfAFile) {
  for (const auto& [name, contents] : kSource) {
    if (contents == kFolder) continue;
    SCOPED_TRACE(rig::ToUtf8(name));
    bool isHalf = false;
    TheRig().On<::CopyFileW>([&](const wchar_t* source, const wchar_t* target, BOOL keep) {
      if (target != folder_ / (L"t\\" + name))
        return rig::Function<&::CopyFileW>::Real()(source, target, keep);
      isHalf = true;
      tree_test::MakeFile(target, "the f");
      SetLastError(ERROR_DISK_FULL);
      return FALSE;
    });
    Prepare();
    int status = Run();
    CheckNothingLost(name);
    EXPECT_EQ(isHalf, IsCopied(GetParam(), name));
    if (isHalf) EXPECT_EQ(status, strchr(GetParam().options, 'i') == nullptr ? -7 : 0);
  }
}

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const char* options : {"r",  "ro", "rob", "ri", "roi", "robi", "rn", "rno", "rnob", "f",     "m",
                              "mr", "mo", "mob", "mi", "moi", "mobi", "mn", "mno", "mnob", "mnobir"}) {
    for (bool isPattern : {false, true}) {
      // If the target has no contents, overwriting and renaming aside have nothing to do.
      if (strpbrk(options, "ob") == nullptr) cases.push_back({options, isPattern, false});
      cases.push_back({options, isPattern, true});
    }
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Options, TreeCopyLossTest, testing::ValuesIn(Cases()),
                         [](const testing::TestParamInfo<Case>& one) {
                           return std::string(one.param.options) +
                                  (one.param.isPattern ? "_pattern" : "_plain") +
                                  (one.param.hasTarget ? "_target" : "");
                         });

}  // namespace tree_copy_loss_test
