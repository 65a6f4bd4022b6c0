// The memory needed to walk, copy and delete a tree grows with its depth, not with its number of entries.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "files/dir_walker.h"
#include "files/tree_copy.h"
#include "rig/internals_test.h"
#include "unit/files/tree_tools.h"

namespace tree_memory_test {

HX_INTERNAL(DirWalkerCreate);
HX_INTERNAL(DirWalkerNext);
HX_INTERNAL(TreeCopyMoveItem);
HX_INTERNAL(TreeDelete);

class TreeMemoryTest : public rig::InternalsTest {
 protected:
  // Makes a chain of folders with files in each, and returns the outermost folder.
  std::wstring Make(const wchar_t* name, int depth, int files) {
    std::wstring top = folder_ / name;
    std::wstring folder = top;
    for (int level = 0; level < depth; ++level) {
      tree_test::MakeFolder(folder);
      for (int i = 0; i < files; ++i) tree_test::MakeFile(folder + L"\\" + std::to_wstring(i) + L".dat");
      folder += L"\\d";
    }
    return top;
  }

  // Returns the most blocks that are allocated at any entry of a walk.
  size_t WalkPeak(const std::wstring& top) {
    tree_test::OwnPath folder(top);
    DirWalker* walker = DirWalkerCreate(folder.get());
    size_t peak = 0;
    while (PathObject* entry = DirWalkerNext(walker)) {
      peak = std::max(peak, LiveBlocks());
      entry->ops.Release(entry);
    }
    walker->ops.Release(walker);
    return peak;
  }

  // Returns the most blocks that are allocated at any file that is copied and at any that is deleted.
  std::pair<size_t, size_t> CopyAndDeletePeaks(const std::wstring& top) {
    std::pair<size_t, size_t> peaks;
    TheRig().On<::CopyFileW>([&](const wchar_t* from, const wchar_t* to, BOOL) {
      peaks.first = std::max(peaks.first, LiveBlocks());
      return ::CopyFileW(from, to, TRUE);
    });
    TheRig().On<::DeleteFileW>([&](const wchar_t* name) {
      peaks.second = std::max(peaks.second, LiveBlocks());
      return ::DeleteFileW(name);
    });
    const std::wstring target = top + L" copy";
    EXPECT_EQ(TreeCopyMoveItem(top.c_str(), target.c_str(), kTreeRecurse), 0);
    WIN32_FIND_DATAW found = {};
    found.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    EXPECT_EQ(TreeDelete(target.c_str(), &found), 0u);
    return peaks;
  }

 private:
  tree_test::OwnFolder folder_;
};

TEST_F(TreeMemoryTest, AWalkNeedsNoMoreMemoryForManyFiles) {
  const size_t few = WalkPeak(Make(L"few", 3, 2));
  EXPECT_GT(few, 0u);
  EXPECT_EQ(WalkPeak(Make(L"many", 3, 200)), few);
}

TEST_F(TreeMemoryTest, AWalkNeedsTheSameMemoryForEachLevel) {
  const size_t one = WalkPeak(Make(L"one", 1, 1));
  const size_t eleven = WalkPeak(Make(L"eleven", 11, 1));
  const size_t twentyOne = WalkPeak(Make(L"twenty-one", 21, 1));
  EXPECT_GT(eleven, one);
  EXPECT_EQ(twentyOne - eleven, eleven - one);
}

TEST_F(TreeMemoryTest, ACopyAndADeletionNeedNoMoreMemoryForManyFiles) {
  const auto few = CopyAndDeletePeaks(Make(L"few", 3, 2));
  EXPECT_GT(few.first, 0u);
  EXPECT_GT(few.second, 0u);
  EXPECT_EQ(CopyAndDeletePeaks(Make(L"many", 3, 200)), few);
}

TEST_F(TreeMemoryTest, ACopyAndADeletionNeedTheSameMemoryForEachLevel) {
  const auto one = CopyAndDeletePeaks(Make(L"one", 1, 1));
  const auto eleven = CopyAndDeletePeaks(Make(L"eleven", 11, 1));
  const auto twentyOne = CopyAndDeletePeaks(Make(L"twenty-one", 21, 1));
  // A level and its names: of the source and the target, or of the entry to delete.
  EXPECT_EQ(eleven.first - one.first, 10u * 3);
  EXPECT_EQ(twentyOne.first - eleven.first, 10u * 3);
  EXPECT_EQ(eleven.second - one.second, 10u * 2);
  EXPECT_EQ(twentyOne.second - eleven.second, 10u * 2);
}

}  // namespace tree_memory_test
