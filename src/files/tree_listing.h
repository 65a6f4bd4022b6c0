// The listing of a folder while a tree is processed. Used by tree_*.cpp only.
#pragma once

#include "base/heap.h"
#include "base/windows_owners.h"

/// The entries that a search finds, one by one, without "." and "..".
class Listing {
 public:
  /// Starts the search for `pattern` and stores its first entry in `found`. Returns 0, or the Windows error
  /// if nothing was found.
  DWORD Start(const wchar_t* pattern, WIN32_FIND_DATAW* found);

  /// Fills `found` with the next entry; false if there is none. The first call after Start must pass the
  /// record that Start filled and leaves the first entry in it.
  bool Next(WIN32_FIND_DATAW* found);

  /// True if the listing ended normally, not by an error. Valid after Next has returned false.
  bool IsWhole() const { return error_ == ERROR_NO_MORE_FILES; }

  /// Closes the search.
  void Close() { search_.reset(); }

 private:
  SearchHandle search_;
  bool isAtFirst_ = false;
  DWORD error_ = ERROR_NO_MORE_FILES;
};

/// The item being processed: a file or folder and, for a copy or a move, its target. The item owns the names,
/// except those of the item with which a whole tree begins: their owner is the caller.
struct TreeItem {
  /// The name of the file or folder.
  const wchar_t* source = nullptr;
  /// Its new name, or null.
  const wchar_t* target = nullptr;
  /// The name of the entry in a listing, a part of `source`; null for an item that the caller named.
  const wchar_t* entry = nullptr;
  /// Null, or the block that holds `source`.
  HeapStringW ownSource;
  /// Null, or the block that holds `target`.
  HeapStringW ownTarget;
};

/// A folder being processed, in its own heap block, so that the depth of a tree costs no stack. Freed with
/// HeapDelete.
struct TreeLevel {
  /// The folder around it, or null.
  TreeLevel* below = nullptr;
  /// Its contents.
  Listing listing;
  /// The folder itself.
  TreeItem folder;
};

/// The folders being processed, each inside the one below it.
class TreeLevels {
 public:
  /// Makes an empty stack.
  TreeLevels() = default;
  TreeLevels(const TreeLevels&) = delete;
  TreeLevels& operator=(const TreeLevels&) = delete;
  ~TreeLevels() {
    while (top_) Pop();
  }

  /// The innermost folder, or null.
  TreeLevel* top() const { return top_; }
  /// Pushes a level for `folder` and returns it, or null if out of memory.
  TreeLevel* Push(TreeItem folder);
  /// Removes and frees the top level, which must exist.
  void Pop();

 private:
  TreeLevel* top_ = nullptr;
};

extern "C" {

/// Returns the first `headLength` characters of `head`, then `middle` and `tail`, as a new wide string, which
/// the caller frees with HeapFreeSafe; null if out of memory.
wchar_t* MakeTreeName(const wchar_t* head, size_t headLength, const wchar_t* middle, const wchar_t* tail);

/// Returns `folder`, a backslash unless it ends with one, and `name` as a new wide string, which the caller
/// frees with HeapFreeSafe; null if out of memory.
wchar_t* JoinTreeName(const wchar_t* folder, const wchar_t* name);

}  // extern "C"
