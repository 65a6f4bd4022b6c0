// Names as they stand on the disk: the shape of short (8.3) names, their replacement by long names, and the
// name of a found entry. Used by the path value and the directory walker.
#pragma once

#include <stddef.h>
#include <windows.h>

/// The most units of a name that may be a short one.
constexpr size_t kMaxShortName = 12;
/// Characters of a short name before its first dot stay below this.
constexpr size_t kShortBaseLimit = 9;
/// Characters of a short name from its first dot to its end stay below this.
constexpr size_t kShortExtensionLimit = 5;

/// Whether `unit` can be in no name of a file or folder. Windows takes some of these for separators or
/// wildcards, so a look-up of a name that holds one finds another entry.
template <typename Unit>
constexpr bool IsBarredFromNames(Unit unit) {
  switch (unit) {
    case '"':
    case '*':
    case '/':
    case ':':
    case '<':
    case '>':
    case '?':
    case '|':
      return true;
    default:
      return static_cast<unsigned>(unit) < ' ';
  }
}

extern "C" {

/// Whether a name of `length` units may be a short name: 1 to 12 units; before the first dot fewer than 9
/// characters and none of " +,;=[]"; from that dot to the end fewer than 5 characters.
bool HasShortNameShapeW(const wchar_t* name, size_t length);
/// The same for `length` bytes of UTF-8; characters are counted as UTF-16 units.
bool HasShortNameShapeA(const char* name, size_t length);

/// The name to use for an entry that a search has found: its long name, but its short name where the long one
/// consists of question marks only (the system could not express it) and there is a short one. Points into
/// `found`.
const wchar_t* FoundName(const WIN32_FIND_DATAW* found);

/// Replaces, in an absolute path, each name after the first that may be a short one by its name on the disk,
/// and so the last name whatever its shape; names that are not found stay as they are. Returns a new wide
/// string, which the caller frees with HeapFreeSafe, or null when memory lacks. No message box of the system
/// appears meanwhile. Names that no file can have are left alone too.
wchar_t* ExpandLongNames(const wchar_t* path);

}  // extern "C"
