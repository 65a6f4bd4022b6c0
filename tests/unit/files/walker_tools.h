// Helpers for the tests of the directory walker: a walker of the library, and the entries that it returns.
#pragma once

#include <string>
#include <vector>

#include "base/heap.h"
#include "files/dir_walker.h"
#include "unit/files/tree_tools.h"

namespace walker_test {

HX_INTERNAL(DirWalkerCreate);
HX_INTERNAL(DirWalkerReset);
HX_INTERNAL(DirWalkerNext);
HX_INTERNAL(HeapAllocZero);

/// The returned entries, by their paths below the root.
using Names = std::vector<std::wstring>;

/// A walker of the library, released at the end of its scope.
class OwnWalker {
 public:
  explicit OwnWalker(PathObject* root) : walker_(DirWalkerCreate(root)) {}
  ~OwnWalker() {
    if (walker_ != nullptr) rig::CallGuarded([&] { walker_->ops.Release(walker_); });
  }
  OwnWalker(const OwnWalker&) = delete;
  OwnWalker& operator=(const OwnWalker&) = delete;
  DirWalker* get() const { return walker_; }
  DirWalker* operator->() const { return walker_; }
  /// Gives the walker a pattern in UTF-8.
  void SetPattern(const std::string& pattern) {
    walker_->pattern = static_cast<char*>(HeapAllocZero(pattern.size() + 1));
    memcpy(walker_->pattern, pattern.c_str(), pattern.size() + 1);
  }

 private:
  DirWalker* walker_;
};

/// Returns all remaining entries of the walk, without `root` and the backslash after it.
inline Names Rest(const OwnWalker& walker, const std::wstring& root) {
  Names names;
  for (;;) {
    tree_test::OwnPath entry(DirWalkerNext(walker.get()));
    if (!entry) return names;
    std::wstring text = entry.Text();
    EXPECT_EQ(text.substr(0, root.size() + 1), root + L"\\");
    names.push_back(text.substr(std::min(root.size() + 1, text.size())));
  }
}

}  // namespace walker_test
