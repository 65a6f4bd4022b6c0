// The directory walker: returns the entries below a folder, one at a time. Used by the upgrade actions, and
// offered by every path that names a folder (see kQueryWalker).
//
//   ObjectRef<DirWalker> walker(DirWalkerCreate(folder));
//   walker.get()->flags = kReturnFiles;
//   while (PathRef entry{DirWalkerNext(walker.get())}) ...
//
// Folders are entered as they are found; the memory that a walk needs grows only with the depth. If an entry
// appears or vanishes during the walk, the file system decides whether it is returned.
#pragma once

#include "base/object.h"
#include "base/windows_owners.h"
#include "paths/path.h"
#include "paths/path_query.h"

/// `Object::typeTag` of a walker, and a selector of `Query`. With the argument kWalkerConstructor, a path
/// that names an existing folder returns the address of DirWalkerCreate. A walker returns the address of
/// DirWalkerNext, with any argument.
constexpr DWORD kWalkerTag = kQueryWalker;

/// Bit of `DirWalker::flags`: files are returned.
constexpr DWORD kReturnFiles = 1;
/// Bit of `DirWalker::flags`: folders are returned.
constexpr DWORD kReturnFolders = 2;

/// Value of `DirWalker::followReparse`: links to folders are neither returned nor entered.
constexpr DWORD kSkipFolderLinks = 2;

/// An open search: one folder being listed.
struct DirWalkerFrame {
  /// Empty until the first entry is asked for.
  SearchHandle search;
  /// The folder around this one, or null.
  DirWalkerFrame* below;
};

/// The walker. Between a reset and the first DirWalkerNext its owner may set `maxDepth`, `flags`,
/// `followReparse`, `foldersAfterContents` and `pattern`; only the walker changes the other fields. Its
/// operations are Retain, Release and Query.
struct DirWalker : Object {
  /// The folders being listed, the innermost first; null when the walk is over.
  DirWalkerFrame* frames;
  /// Where the walk started; holds one reference.
  PathObject* root;
  /// The number of frames: 1 for the entries directly in the root.
  LONG depth;
  /// 0 for no limit; otherwise folders found at this depth are not entered. A negative limit enters no
  /// folder.
  LONG maxDepth;
  /// kReturnFiles, kReturnFolders; a reset sets all bits.
  DWORD flags;
  /// 1 after a reset. 0 skips entries that are reparse points of any kind (links, mount points, deduplicated
  /// files); kSkipFolderLinks skips only links to folders and mount points.
  DWORD followReparse;
  /// 0 after a reset. Otherwise a folder that is entered is returned when the walk leaves it, not when it is
  /// found. A folder that is found but not entered is then not returned.
  DWORD foldersAfterContents;
  /// Null, or a pattern for MatchWildcard in UTF-8, in a block of the process heap that the walker frees. It
  /// selects the entries that are returned. If the depth is not limited, and at the depth of the limit,
  /// Windows itself searches for it, so that only matching folders are entered there.
  char* pattern;
  /// The folder being listed; holds one reference.
  PathObject* current;
};

extern "C" {

/// Returns a new walker at the start of a walk below `folder`, or null if out of memory. The caller releases
/// it through its `Release`. A walk below a null folder returns nothing.
DirWalker* DirWalkerCreate(PathObject* folder);

/// Releases everything that the walker holds and puts it at the start of a walk below `folder`, with all
/// settings as after DirWalkerCreate. If out of memory, the walk is over at once.
void DirWalkerReset(DirWalker* walker, PathObject* folder);

/// Returns the next entry as a new path, which the caller releases. Returns null when the walk is over, and
/// also if out of memory for an entry: then another call may go on with the next entry. A folder that cannot
/// be listed counts as empty. No message box of Windows appears while a listing is opened.
PathObject* DirWalkerNext(DirWalker* walker);

}  // extern "C"
