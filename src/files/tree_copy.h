// The copy/move engine: copies, moves and deletes whole trees. Used by the upgrade actions, which hand it the
// command line that the package gave them.
//
// The command line is in the form that CommandLineToArgvW splits. Its first element is not used, the last one
// is the target, those between are option groups ("-" and letters; unknown ones are ignored), which hold from
// there on, and sources, which are processed from left to right:
//
//   m, c   move; copy (so it is at the start)
//   o, k   overwrite an existing target; keep it (at the start)
//   b      with o: rename the existing target aside, with a time stamp, instead of deleting it; ended by z
//   i, e   ignore errors; stop at the first one (at the start)
//   r, f   copy folders with what is in them; refuse to copy folders (at the start)
//   n, u   create the target folder before each source; do not (at the start)
//   l, g   do not go through links; go through them (at the start)
//   z      everything as at the start
//
// A source with "*" or "?" stands for what it matches, each of which goes under its own name into the folder
// of the target (the text up to its last backslash); any other source becomes the target itself. A "/" in a
// source or target counts as a backslash.
//
// A link is an entry that leads to a file or folder elsewhere. If links are not gone through, a link is
// deleted and moved itself, is not copied, and nothing is copied into it. The folder of a pattern and the
// target folder may be links all the same.
//
// Nothing here has a limit of its own for the length of a path or the depth of a tree: what Windows refuses
// ends in one of the codes below. Trees are worked through without recursion.
#pragma once

#include <windows.h>

#include "base/status.h"

/// Options of the engine, a bit each.
enum TreeOptions : DWORD {
  kTreeMove = 1,           ///< move instead of copy
  kTreeOverwrite = 2,      ///< put the source in place of an existing target
  kTreeKeepAside = 4,      ///< when overwriting, first rename the existing target
  kTreeIgnoreErrors = 8,   ///< go on after an error
  kTreeRecurse = 16,       ///< copy folders with what is in them
  kTreeCreateTarget = 32,  ///< create the target folder before each source
  kTreeKeepLinks = 64,     ///< do not go through links
};

/// A move found its target in place and was not to overwrite it.
constexpr int kTreeTargetExists = -15;
/// An existing target could not be renamed.
constexpr int kTreeNotRenamed = -2;
/// An existing target could not be deleted; a part of it may be gone.
constexpr int kTreeNotDeleted = -3;
/// MoveFileW failed: nothing was moved.
constexpr int kTreeNotMoved = -6;
/// CopyFileW failed; or, with kTreeKeepLinks, the source is a link, or a folder was to be copied into one.
constexpr int kTreeNotCopied = -7;
/// There is no source to copy.
constexpr int kTreeNoSource = -16;
/// The source to copy is a folder, and folders were not asked for.
constexpr int kTreeSourceIsFolder = -17;
/// The target's folder could not be created.
constexpr int kTreeFolderNotCreated = -18;

extern "C" {

/// Runs the engine over the command line `arguments`. Returns 0, the code of the first source that failed
/// (with "i" none does), kStatusMissingArgument for a null string and for fewer than three elements,
/// kStatusNotFound where a source's pattern or a source's folder cannot be listed, kStatusNoMemory. What was
/// copied or moved before a failure stays copied or moved.
int TreeCopyMove(const wchar_t* arguments);

/// Copies or moves one file or folder `source` to `target`, as `options` (TreeOptions) say. Returns 0 or one
/// of the codes above; kStatusNoMemory also for a null name. 0 for a copy whose target exists and is to be
/// kept. With kTreeIgnoreErrors what fails below a folder is left out; what fails for `source` itself is
/// returned.
int TreeCopyMoveItem(const wchar_t* source, const wchar_t* target, DWORD options);

/// Deletes the file or folder `path`, a folder with all that is in it; a link to a folder is taken for the
/// folder. `found` is the caller's look-up of the path, which says what it is; it is overwritten. Returns 0
/// or the Windows error of the first step that failed; what was deleted before stays deleted.
DWORD TreeDelete(const wchar_t* path, WIN32_FIND_DATAW* found);

/// TreeDelete with kTreeKeepLinks or no option in `options`: with it, a link to a folder is removed itself,
/// and nothing that it leads to.
DWORD TreeDeleteWith(const wchar_t* path, WIN32_FIND_DATAW* found, DWORD options);

}  // extern "C"
