// The listing of a folder for those who work through a tree. Used by tree_*.cpp only.
#pragma once

#include "base/heap.h"
#include "base/windows_owners.h"

/// The entries that a search finds, one by one, "." and ".." left out.
class Listing {
 public:
  /// Starts the search for `pattern`, whose first entry `found` receives. Returns 0, or the Windows error
  /// with which nothing was found.
  DWORD Start(const wchar_t* pattern, WIN32_FIND_DATAW* found);

  /// Fills `found` with the next entry (after Start, with the first, if it is the record that Start filled);
  /// false when there is none.
  bool Next(WIN32_FIND_DATAW* found);

  /// Whether the listing, of which Next has seen the end, ended as listings end: not by an error.
  bool IsWhole() const { return error_ == ERROR_NO_MORE_FILES; }

  /// Closes the search.
  void Close() { search_.reset(); }

 private:
  SearchHandle search_;
  bool isAtFirst_ = false;
  DWORD error_ = ERROR_NO_MORE_FILES;
};

/// What is worked on: a file or folder and, for a copy or a move, where it goes. The names are held by the
/// item itself or, of the item that a whole tree begins with, by somebody else.
struct TreeItem {
  /// The name of the file or folder.
  const wchar_t* source = nullptr;
  /// Its new name, or null.
  const wchar_t* target = nullptr;
  /// The name under which a listing gave it, a part of `source`; null for an item that the caller named.
  const wchar_t* entry = nullptr;
  /// Null, or the block of `source`.
  HeapStringW ownSource;
  /// Null, or the block of `target`.
  HeapStringW ownTarget;
};

/// A folder that is being worked through, in a block of its own: the depth of a tree costs no stack. Closed
/// with HeapDelete.
struct TreeLevel {
  /// The folder around it, or null.
  TreeLevel* below = nullptr;
  /// What is in it.
  Listing listing;
  /// The folder itself.
  TreeItem folder;
};

/// The folders that are being worked through, each inside the one below it.
class TreeLevels {
 public:
  /// No folder.
  TreeLevels() = default;
  TreeLevels(const TreeLevels&) = delete;
  TreeLevels& operator=(const TreeLevels&) = delete;
  ~TreeLevels() {
    while (top_) Pop();
  }

  /// The innermost folder, or null.
  TreeLevel* top() const { return top_; }
  /// Puts a level for `folder` on top and returns it, or null when memory lacks.
  TreeLevel* Push(TreeItem folder);
  /// Takes the top level away, which must be there, and closes it.
  void Pop();

 private:
  TreeLevel* top_ = nullptr;
};

extern "C" {

/// Returns the first `headLength` characters of `head`, then `middle` and `tail`, as a new wide string, which
/// the caller frees with HeapFreeSafe; null when memory lacks.
wchar_t* MakeTreeName(const wchar_t* head, size_t headLength, const wchar_t* middle, const wchar_t* tail);

/// Returns `folder`, a backslash unless it ends with one, and `name` as a new wide string, which the caller
/// frees with HeapFreeSafe; null when memory lacks.
wchar_t* JoinTreeName(const wchar_t* folder, const wchar_t* name);

}  // extern "C"
