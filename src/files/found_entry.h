// What a search says about the entry that it found: whether it is a folder, and whether it is the entry that
// was looked for. Windows finds an entry by its short (8.3) name too, and drops dots and blanks at the end of
// a name, so a look-up can find another entry. Used by those who look up and list.
#pragma once

#include <windows.h>

#include "base/text.h"

/// Whether the entry is a folder, or a link to one.
inline bool IsFolder(const WIN32_FIND_DATAW& found) {
  return found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
}

/// Whether the entry is a link to a file or folder elsewhere. Other reparse points hold their own data: files
/// that are deduplicated or kept in a cloud.
inline bool IsLink(const WIN32_FIND_DATAW& found) {
  // The field holds the tag of a reparse point. A tag of 0 is from a system that does not say it.
  DWORD tag = found.dwReserved0;
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && (!tag || IsReparseTagNameSurrogate(tag));
}

/// Whether the entry is "." or "..", under which a listing gives the folder itself and the one around it.
inline bool IsDots(const WIN32_FIND_DATAW& found) {
  const wchar_t* name = found.cFileName;
  return name[0] == L'.' && (!name[1] || (name[1] == L'.' && !name[2]));
}

/// Whether Windows drops the end of `name`, a dot or a blank. Files and folders with such names exist (other
/// systems make them).
inline bool IsNameCut(const wchar_t* name) {
  size_t length = TxtLenW(name);
  return length && (name[length - 1] == L'.' || name[length - 1] == L' ');
}

/// Whether `path`, which ends in the name `name` of an entry, leads to that entry. If Windows drops the end
/// of the name, only a path that begins with "\\?\" does; any other path leads to another entry, or to none.
inline bool LeadsTo(const wchar_t* path, const wchar_t* name) {
  return !IsNameCut(name) || (path[0] == L'\\' && path[1] == L'\\' && path[2] == L'?');
}

/// Compares two names as the file system does: by their units, without regard to case. CSTR_EQUAL if they are
/// the same, 0 if Windows cannot say.
inline int CompareNames(const wchar_t* a, const wchar_t* b) {
  return CompareStringOrdinal(a, -1, b, -1, TRUE);
}

/// Whether `found`, the answer to a look-up of an entry called `name`, is another entry: it has another name,
/// and `name` is its short name or a name that Windows cuts. An answer without a name is no evidence. If
/// Windows cannot compare, the answer counts as another entry, which is then not touched.
inline bool IsAnotherEntry(const WIN32_FIND_DATAW& found, const wchar_t* name) {
  if (!found.cFileName[0] || CompareNames(found.cFileName, name) == CSTR_EQUAL) return false;
  if (IsNameCut(name)) return true;
  int compared = CompareNames(found.cAlternateFileName, name);
  return !compared || compared == CSTR_EQUAL;
}
