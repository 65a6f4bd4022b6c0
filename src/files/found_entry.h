// Tests of an entry that a search found: is it a folder or a link, and is it the entry that was looked for? A
// look-up can find another entry: Windows also finds an entry by its short (8.3) name, and drops dots and
// blanks at the end of a name. Used by code that looks up or lists entries.
#pragma once

#include <windows.h>

#include "base/text.h"

/// True if the entry is a folder, or a link to one.
inline bool IsFolder(const WIN32_FIND_DATAW& found) {
  return found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
}

/// True if the entry is a link to a file or folder elsewhere. Other reparse points hold their own data:
/// deduplicated files and files kept in a cloud.
inline bool IsLink(const WIN32_FIND_DATAW& found) {
  // The field holds the tag of a reparse point. A system that does not report tags leaves it 0.
  DWORD tag = found.dwReserved0;
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && (!tag || IsReparseTagNameSurrogate(tag));
}

/// True if the entry is "." or "..": in a listing the folder itself and its parent.
inline bool IsDots(const WIN32_FIND_DATAW& found) {
  const wchar_t* name = found.cFileName;
  return name[0] == L'.' && (!name[1] || (name[1] == L'.' && !name[2]));
}

/// True if Windows drops the last character of `name`, a dot or a blank. Files and folders with such names
/// exist (other systems create them).
inline bool IsNameCut(const wchar_t* name) {
  size_t length = TxtLenW(name);
  return length && (name[length - 1] == L'.' || name[length - 1] == L' ');
}

/// True if `path`, which ends in the name `name` of an entry, leads to that entry. If Windows drops the end
/// of the name, this is so only for a path that begins with "\\?\"; any other path leads to another entry or
/// to none.
inline bool LeadsTo(const wchar_t* path, const wchar_t* name) {
  return !IsNameCut(name) || (path[0] == L'\\' && path[1] == L'\\' && path[2] == L'?');
}

/// Compares two names as the file system does: by their units, without regard to case. Returns CSTR_EQUAL if
/// they are the same, 0 if Windows cannot compare them.
inline int CompareNames(const wchar_t* a, const wchar_t* b) {
  return CompareStringOrdinal(a, -1, b, -1, TRUE);
}

/// True if `found`, the result of a look-up of an entry called `name`, is another entry: it has another name,
/// and `name` is its short name or a name that Windows cuts. A result without a name proves nothing, so it is
/// not another entry. If Windows cannot compare the names, the result counts as another entry, and the caller
/// does not touch it.
inline bool IsAnotherEntry(const WIN32_FIND_DATAW& found, const wchar_t* name) {
  if (!found.cFileName[0] || CompareNames(found.cFileName, name) == CSTR_EQUAL) return false;
  if (IsNameCut(name)) return true;
  int compared = CompareNames(found.cAlternateFileName, name);
  return !compared || compared == CSTR_EQUAL;
}
