#include "server/server_folders.h"

#include "base/heap.h"
#include "base/registry_text.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "paths/drive.h"

bool ReadPathProperty(MSIHANDLE session, const wchar_t* name, PathRef* path) {
  path->reset();
  HeapStringW value(ReadPropertyW(session, name));
  if (!value) {
    // A property that cannot be read counts as unset, except if out of memory. Otherwise its last name would
    // be taken as empty, and a property would be set to the parent folder.
    DWORD error = GetLastError();
    return error != ERROR_OUTOFMEMORY && error != ERROR_NOT_ENOUGH_MEMORY;
  }
  if (!value.get()[0]) return true;
  path->reset(PathFromWrittenWide(value.get()));
  return static_cast<bool>(*path);
}

void CopyLastName(PathObject* path, char* buffer) {
  buffer[0] = '\0';
  if (!path) return;
  const char* backslash = TxtFindLastCharA(path->text, '\\');
  TxtCopyNA(buffer, backslash ? backslash + 1 : path->text, kLastNameSize);
}

bool ReadLastName(MSIHANDLE session, const wchar_t* name, char* buffer) {
  PathRef path;
  bool isRead = ReadPathProperty(session, name, &path);
  CopyLastName(path.get(), buffer);
  return isRead;
}

bool OpenServerSettings(RegistryKey* key) {
  return key->keep(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\Services\\Vantor\\Settings",
                                 0, KEY_QUERY_VALUE, key->put()) == ERROR_SUCCESS);
}

bool ReadServerDataFolder(HKEY key, DWORD size, PathRef* folder) {
  char text[kLargestDataFolderText];
  ReadRegistryText(key, "vtdf", text, size);
  folder->reset(PathFromWrittenUtf8(text));
  // A full path is made without the help of Windows, so only being out of memory makes it fail.
  return *folder || !IsDriveAbsolute(text);
}
