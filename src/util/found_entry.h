// What a search says of the entry that it found. Used by those who ask whether it is a folder, and who list.
#pragma once

#include <windows.h>

/// Whether the entry is a folder, or a link to one.
inline bool IsFolder(const WIN32_FIND_DATAW& found) {
  return found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
}

/// Whether the entry is "." or "..", under which a listing gives the folder itself and the one around it.
inline bool IsDots(const WIN32_FIND_DATAW& found) {
  const wchar_t* name = found.cFileName;
  return name[0] == L'.' && (!name[1] || (name[1] == L'.' && !name[2]));
}
