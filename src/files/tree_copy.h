// The copy/move engine: copies, moves and deletes whole trees. Used by the upgrade actions, which pass it the
// command line from the package.
//
// CommandLineToArgvW splits the command line. Its first element is not used, and the last one is the target.
// Those between are option groups and sources, which are processed from left to right. An option group is "-"
// and letters, of which unknown ones are ignored; it applies to the sources after it:
//
//   m, c   move; copy (default)
//   o, k   overwrite an existing target; keep it (default)
//   b      with o: rename the existing target aside, with a time stamp, instead of deleting it; ended by z
//   i, e   ignore errors; stop at the first one (default)
//   r, f   copy folders with their contents; refuse to copy folders (default)
//   n, u   create the target folder before each source; do not (default)
//   l, g   do not follow links; follow them (default)
//   z      reset everything to the defaults
//
// A source with "*" or "?" means everything that it matches; each match goes under its own name into the
// folder of the target (the text up to its last backslash). Any other source becomes the target itself. A "/"
// in a source or target counts as a backslash.
//
// A link is an entry that leads to a file or folder elsewhere. If links are not followed, a link itself is
// deleted or moved; it is not copied, and nothing is copied into it. But the folder of a pattern and the
// target folder may be links.
//
// The engine does not limit the length of a path or the depth of a tree: if Windows refuses, one of the codes
// below results. Trees are processed without recursion.
#pragma once

#include <windows.h>

#include "base/status.h"

/// Options of the engine, one bit each.
enum TreeOptions : DWORD {
  kTreeMove = 1,           ///< move instead of copy
  kTreeOverwrite = 2,      ///< replace an existing target by the source
  kTreeKeepAside = 4,      ///< when overwriting, first rename the existing target
  kTreeIgnoreErrors = 8,   ///< go on after an error
  kTreeRecurse = 16,       ///< copy folders with their contents
  kTreeCreateTarget = 32,  ///< create the target folder before each source
  kTreeKeepLinks = 64,     ///< do not follow links
};

/// A move found an existing target and was not told to overwrite it.
constexpr int kTreeTargetExists = -15;
/// An existing target could not be renamed.
constexpr int kTreeNotRenamed = -2;
/// An existing target could not be deleted; parts of it may be gone.
constexpr int kTreeNotDeleted = -3;
/// MoveFileW failed: nothing was moved.
constexpr int kTreeNotMoved = -6;
/// CopyFileW failed; or, with kTreeKeepLinks, the source is a link or the existing target is a link to a
/// folder.
constexpr int kTreeNotCopied = -7;
/// The source to copy does not exist.
constexpr int kTreeNoSource = -16;
/// The source to copy is a folder, and copying folders was not requested.
constexpr int kTreeSourceIsFolder = -17;
/// The target's folder could not be created.
constexpr int kTreeFolderNotCreated = -18;

extern "C" {

/// Runs the engine over the command line `arguments`. Returns 0, the code of the first source that failed
/// (with "i" no source fails), kStatusMissingArgument for a null string and for fewer than three elements,
/// kStatusNotFound if a pattern or the folder of a source cannot be listed, or kStatusNoMemory. What was
/// copied or moved before a failure stays copied or moved.
int TreeCopyMove(const wchar_t* arguments);

/// Copies or moves one file or folder `source` to `target` with `options` (TreeOptions). Returns 0 or one of
/// the codes above; kStatusNoMemory also for a null name. If the target of a copy exists and is to be kept,
/// returns 0 and leaves it; with kTreeRecurse, missing entries are still copied into an existing target
/// folder. With kTreeIgnoreErrors, entries below a folder that fail are skipped; a failure of `source` itself
/// is returned.
int TreeCopyMoveItem(const wchar_t* source, const wchar_t* target, DWORD options);

/// Deletes the file or folder `path`, a folder with its contents; a link to a folder is treated as the
/// folder. `found` is the caller's look-up of the path, which says what it is; it is overwritten. Returns 0
/// or the Windows error of the first step that failed; what was deleted before stays deleted.
DWORD TreeDelete(const wchar_t* path, WIN32_FIND_DATAW* found);

/// Like TreeDelete, with kTreeKeepLinks or 0 as `options`: with it, only the link to a folder is removed,
/// not the folder's contents.
DWORD TreeDeleteWith(const wchar_t* path, WIN32_FIND_DATAW* found, DWORD options);

}  // extern "C"
