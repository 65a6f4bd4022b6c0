// The copy/move engine on unusual trees: deep ones, long names, a target inside its source.

#include "files/tree_copy.h"
#include "unit/files/tree_tools.h"

namespace tree_copy_deep_test {

using tree_test::kFolder;
using tree_test::MakeFile;
using tree_test::MakeFolder;
using tree_test::Tree;
using tree_test::TreeOf;

HX_INTERNAL(TreeCopyMoveItem);

class TreeCopyDeepTest : public tree_test::TreeTest {};

/// A disk that the test makes up: "Q:\s" is a folder with a file "f" and a folder "d", which again has both,
/// and so on.
class TreeCopyBottomlessTest : public TreeCopyDeepTest {
 protected:
  static constexpr size_t kLevels = 2000;
  // The characters of "Q:\s" and of each level below.
  static constexpr size_t kRoot = 4;
  static constexpr size_t kLevel = 2;

  void SetUp() override {
    TreeCopyDeepTest::SetUp();
    TheRig().tracing = false;
    TheRig().On<::FindFirstFileW>([this](const wchar_t* path, WIN32_FIND_DATAW* found) {
      NoteStack();
      size_t length = wcslen(path);
      *found = {};
      if (path[kRoot - 1] != L's') return INVALID_HANDLE_VALUE;
      bool isFile = path[length - 1] == L'f';
      found->dwFileAttributes = isFile ? FILE_ATTRIBUTE_ARCHIVE : FILE_ATTRIBUTE_DIRECTORY;
      wcscpy(found->cFileName, L".");
      auto search = reinterpret_cast<HANDLE>(++lastSearch_);
      size_t level = (length - kRoot - kLevel) / kLevel;
      if (path[length - 1] == L'*') left_[search] = level < kLevels ? 2 : 1;
      return search;
    });
    TheRig().On<::FindNextFileW>([this](HANDLE search, WIN32_FIND_DATAW* found) {
      int left = left_[search]--;
      if (left <= 0) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
      }
      wcscpy(found->cFileName, left == 1 ? L"f" : L"d");
      found->dwFileAttributes = left == 1 ? FILE_ATTRIBUTE_ARCHIVE : FILE_ATTRIBUTE_DIRECTORY;
      return TRUE;
    });
    TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
    TheRig().On<::CreateDirectoryW>([this](const wchar_t* path, SECURITY_ATTRIBUTES*) {
      EXPECT_EQ(wcslen(path), kRoot + kLevel * made_);
      ++made_;
      return TRUE;
    });
    TheRig().On<::CopyFileW>([this](const wchar_t* source, const wchar_t* target, BOOL) {
      EXPECT_EQ(wcslen(source), wcslen(target));
      ++copied_;
      NoteStack();
      return TRUE;
    });
  }

  void NoteStack() {
    auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    lowest_ = std::min(lowest_, frame);
    highest_ = std::max(highest_, frame);
  }

  std::map<HANDLE, int> left_;
  uintptr_t lastSearch_ = 0x4710;
  uintptr_t lowest_ = ~uintptr_t{0};
  uintptr_t highest_ = 0;
  size_t made_ = 0;
  size_t copied_ = 0;
};

TEST_F(TreeCopyBottomlessTest, DepthTakesNoStack) {
  constexpr uintptr_t kFrames = 16 * 1024;
  EXPECT_EQ(TreeCopyMoveItem(L"Q:\\s", L"Q:\\t", kTreeRecurse), 0);
  EXPECT_EQ(made_, kLevels + 1);
  EXPECT_EQ(copied_, kLevels + 1);
  EXPECT_LT(highest_ - lowest_, kFrames);
}

TEST_F(TreeCopyBottomlessTest, AFailureAtTheBottomEndsAllLevels) {
  TheRig().On<::CopyFileW>([](const wchar_t*, const wchar_t*, BOOL) { return FALSE; });
  EXPECT_EQ(TreeCopyMoveItem(L"Q:\\s", L"Q:\\t", kTreeRecurse), -7);
  EXPECT_EQ(made_, kLevels + 1);
  EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(TreeCopyDeepTest, ARealDeepTreeIsCopiedMovedAndReplaced) {
  constexpr int kLevels = 300;
  TheRig().tracing = false;
  // The form of a path that only the disk limits.
  std::wstring source = tree_test::Unlimited(folder_ / L"s");
  std::wstring target = tree_test::Unlimited(folder_ / L"t");
  std::wstring deepest = source;
  MakeFolder(source);
  for (int level = 0; level < kLevels; ++level) {
    deepest += L"\\d";
    MakeFolder(deepest);
  }
  MakeFile(deepest + L"\\f", "at the bottom");
  EXPECT_EQ(TreeCopyMoveItem(source.c_str(), target.c_str(), kTreeRecurse), 0);
  std::wstring copied = target + deepest.substr(source.size()) + L"\\f";
  EXPECT_EQ(tree_test::Contents(copied), "at the bottom");
  EXPECT_EQ(TreeCopyMoveItem(source.c_str(), target.c_str(), kTreeMove | kTreeOverwrite), 0);
  EXPECT_EQ(tree_test::Contents(copied), "at the bottom");
  EXPECT_EQ(GetFileAttributesW(source.c_str()), INVALID_FILE_ATTRIBUTES);
  tree_test::RemoveTree(target);
}

TEST_F(TreeCopyDeepTest, UncommonNamesAreCopied) {
  // As long as a name of a file system can be, also counted in bytes; others look like short names.
  const std::wstring longName(250, L'x');
  const std::wstring wideName(80, L'\u4E2D');
  const Tree tree = {{longName, "1"},
                     {wideName, kFolder},
                     {wideName + L"\\" + longName, "2"},
                     {L"PROGRA~1", kFolder},
                     {L"PROGRA~1\\LONGNA~2.TXT", "3"},
                     {L"two  blanks", "4"},
                     {L"-m", "5"},
                     {L"a;b,c=d+[e]", "6"},
                     {L"\xD83D\xDE00", "7"},
                     {L"e\u0301", "8"}};
  std::wstring source = tree_test::Unlimited(folder_ / L"s");
  std::wstring target = tree_test::Unlimited(folder_ / L"t");
  MakeFolder(source);
  tree_test::MakeTree(source, tree);
  EXPECT_EQ(TreeCopyMoveItem(source.c_str(), target.c_str(), kTreeRecurse), 0);
  EXPECT_EQ(TreeOf(target), tree);
  EXPECT_EQ(TreeCopyMoveItem(source.c_str(), target.c_str(), kTreeRecurse | kTreeOverwrite), 0);
  EXPECT_EQ(TreeOf(target), tree);
  EXPECT_EQ(TreeOf(source), tree);
  tree_test::RemoveTree(source);
  tree_test::RemoveTree(target);
}

TEST_F(TreeCopyDeepTest, ATargetInsideItsSourceEndsWithACodeAndHarmsNothingElse) {
  // Each level finds the folder that it has just created, until names are too long for the system.
  const std::wstring inner(200, L'i');
  MakeFolder(folder_ / L"s");
  MakeFile(folder_ / L"s\\f", "kept");
  MakeFile(folder_ / L"other", "kept too");
  TheRig().tracing = false;
  for (DWORD options : {DWORD{kTreeRecurse}, DWORD{kTreeRecurse | kTreeIgnoreErrors}}) {
    int status = TreeCopyMoveItem((folder_ / L"s").c_str(), (folder_ / (L"s\\" + inner)).c_str(), options);
    if (options & kTreeIgnoreErrors) {
      EXPECT_EQ(status, 0);
    } else {
      EXPECT_TRUE(status == kTreeFolderNotCreated || status == kTreeNotCopied || status == kStatusNotFound)
          << status;
    }
    EXPECT_EQ(tree_test::Contents(folder_ / L"s\\f"), "kept");
    EXPECT_EQ(tree_test::Contents(folder_ / L"other"), "kept too");
    EXPECT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
    EXPECT_EQ(LiveBlocks(), 0u);
    // The first level exists; below it, as many as names allow.
    EXPECT_NE(GetFileAttributesW((folder_ / (L"s\\" + inner)).c_str()), INVALID_FILE_ATTRIBUTES);
    tree_test::RemoveTree(tree_test::Unlimited(folder_ / (L"s\\" + inner)));
  }
}

TEST_F(TreeCopyDeepTest, AMoveIntoItselfMovesNothing) {
  MakeFolder(folder_ / L"s");
  MakeFile(folder_ / L"s\\f", "kept");
  EXPECT_EQ(TreeCopyMoveItem((folder_ / L"s").c_str(), (folder_ / L"s\\t").c_str(), kTreeMove), -6);
  EXPECT_EQ(TreeOf(folder_.Path()), (Tree{{L"s", kFolder}, {L"s\\f", "kept"}}));
}

TEST_F(TreeCopyDeepTest, OverwritingTheFolderAroundTheSourceDeletesTheSource) {
  // On purpose: the target is removed first, whatever it contains.
  MakeFolder(folder_ / L"t");
  MakeFile(folder_ / L"t\\s", "gone");
  EXPECT_EQ(
      TreeCopyMoveItem((folder_ / L"t\\s").c_str(), (folder_ / L"t").c_str(), kTreeMove | kTreeOverwrite),
      -6);
  EXPECT_EQ(TreeOf(folder_.Path()), Tree{});
}

}  // namespace tree_copy_deep_test
