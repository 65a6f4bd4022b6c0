// Names on the disk: the shape of short (8.3) names, their replacement by long names, and the name of a found
// entry. Used by the path value and the directory walker.
#pragma once

#include <stddef.h>
#include <windows.h>

/// The most units of a name that may be a short name.
constexpr size_t kMaxShortName = 12;
/// A short name has fewer characters than this before its first dot.
constexpr size_t kShortBaseLimit = 9;
/// A short name has fewer characters than this from its first dot to its end.
constexpr size_t kShortExtensionLimit = 5;

/// True if the name of a file or folder must not contain `unit`. Windows takes some of these characters as
/// separators or wildcards, so looking up a name that contains one finds another entry.
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

/// True if a name of `length` units may be a short name: 1 to 12 units; before the first dot fewer than 9
/// characters and none of " +,;=[]"; from that dot to the end fewer than 5 characters.
bool HasShortNameShapeW(const wchar_t* name, size_t length);
/// Like HasShortNameShapeW for `length` bytes of UTF-8; characters are counted as UTF-16 units.
bool HasShortNameShapeA(const char* name, size_t length);

/// Returns the name to use for an entry that a search found: its long name, or its short name if the long one
/// consists only of question marks (the system could not express it) and a short one exists. Points into
/// `found`.
const wchar_t* FoundName(const WIN32_FIND_DATAW* found);

/// Replaces names in an absolute path by the names on the disk: each name after the first that may be a short
/// name, and the last name whatever its shape. Names that are not found, and names that no file can have,
/// stay unchanged. Returns a new wide string, which the caller frees with HeapFreeSafe, or null if out of
/// memory. No message box of Windows appears meanwhile.
wchar_t* ExpandLongNames(const wchar_t* path);

}  // extern "C"
