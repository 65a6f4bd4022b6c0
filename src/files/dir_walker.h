// The directory walker: gives out what is below a folder, one entry at a time. Used by the upgrade actions,
// and offered by every path that names a folder (see kQueryWalker).
//
//   ObjectRef<DirWalker> walker(DirWalkerCreate(folder));
//   walker.get()->flags = kReturnFiles;
//   while (PathRef entry{DirWalkerNext(walker.get())}) ...
//
// Folders are entered as they are found; the memory that a walk needs grows with the depth only. Entries that
// appear or vanish during the walk are given out or not, as the file system tells.
#pragma once

#include "base/object.h"
#include "base/windows_owners.h"
#include "paths/path.h"
#include "paths/path_query.h"

/// `Object::typeTag` of a walker. It is also the selector of `Query`: a path that names an existing folder
/// answers kQueryWalker with kWalkerConstructor with the address of DirWalkerCreate; a walker answers it, for
/// any argument, with the address of DirWalkerNext.
constexpr DWORD kWalkerTag = kQueryWalker;

/// Bit of `DirWalker::flags`: files are given out.
constexpr DWORD kReturnFiles = 1;
/// Bit of `DirWalker::flags`: folders are given out.
constexpr DWORD kReturnFolders = 2;

/// Value of `DirWalker::followReparse`: links to folders are left out, and not entered.
constexpr DWORD kSkipFolderLinks = 2;

/// An open search: one folder that is being listed.
struct DirWalkerFrame {
  /// Not held until the first entry has been asked for.
  SearchHandle search;
  /// The folder around this one, or null.
  DirWalkerFrame* below;
};

/// The walker. Between a reset and the first DirWalkerNext its owner may set `maxDepth`, `flags`,
/// `followReparse`, `foldersAfterContents` and `pattern`; everything else is the walker's own. Its operations
/// are Retain, Release and Query.
struct DirWalker : Object {
  /// The folders being listed, the innermost first; null when the walk is over.
  DirWalkerFrame* frames;
  /// Where the walk started; one reference is held.
  PathObject* root;
  /// The number of frames: 1 for what lies directly in the root.
  LONG depth;
  /// 0 for no limit; otherwise folders found at this depth are not entered. A negative limit enters none.
  LONG maxDepth;
  /// kReturnFiles, kReturnFolders; all bits are set by a reset.
  DWORD flags;
  /// 1 after a reset; 0 leaves out entries that are reparse points of any kind (links, mount points, files
  /// that are deduplicated); kSkipFolderLinks leaves out links to folders and mount points only.
  DWORD followReparse;
  /// 0 after a reset; otherwise a folder that is entered is given out when the walk leaves it, not when it is
  /// found. A folder that is found and not entered is then not given out.
  DWORD foldersAfterContents;
  /// Null, or a pattern for MatchWildcard in UTF-8, in a block of the process heap that the walker frees. It
  /// selects the entries that are given out; where the depth is not limited, and at the depth of the limit,
  /// Windows itself is asked for it, so that there only matching folders are entered.
  char* pattern;
  /// The folder now being listed; one reference is held.
  PathObject* current;
};

extern "C" {

/// Returns a new walker at the start of a walk below `folder`, or null when memory lacks. The caller gives it
/// back through its `Release`. Of a null folder there is nothing to give out.
DirWalker* DirWalkerCreate(PathObject* folder);

/// Gives back all that the walker holds and puts it at the start of a walk below `folder`, with all settings
/// as after DirWalkerCreate. When memory lacks, the walk is over at once.
void DirWalkerReset(DirWalker* walker, PathObject* folder);

/// Returns the next entry as a new path, which the caller releases; null when the walk is over, and also when
/// memory lacks for an entry: then another call may go on with the entry behind it. A folder that cannot be
/// listed counts as empty. No message box of the system appears while a listing is opened.
PathObject* DirWalkerNext(DirWalker* walker);

}  // extern "C"
