// Reads the folders of an installed server from the installer's properties and from the server's settings.
// Used by the actions of the server upgrade.
#pragma once

#include "base/windows_owners.h"
#include "frame/session.h"

/// The size of the buffer for a folder's last name, in bytes with the terminator.
constexpr unsigned kLastNameSize = 256;

extern "C" {

/// Reads the folder or file in the property `name` into `path`. `path` is null if the property is unset or
/// the installer refuses to read it. Returns false if the property's value cannot be made into a path, and if
/// out of memory. The caller then must not set any property that depends on this one.
bool ReadPathProperty(MSIHANDLE session, const wchar_t* name, PathRef* path);

/// Copies the last component of `path` (the text after its last backslash) as UTF-8 to `buffer`
/// (kLastNameSize bytes). Cuts it to 255 bytes, even within a character. Writes an empty text for a null
/// path.
void CopyLastName(PathObject* path, char* buffer);

/// Reads the property `name` as a path and copies its last component as CopyLastName does; an empty text if
/// the property is unset. Returns false when ReadPathProperty does; the text is then empty too.
bool ReadLastName(MSIHANDLE session, const wchar_t* name, char* buffer);

/// Opens the settings of the installed server service for reading; false on failure.
bool OpenServerSettings(RegistryKey* key);

/// Reads the data folder in the settings `key` into `folder`. The text is read with ReadRegistryText into a
/// buffer of `size` bytes (at most kLargestDataFolderText). `folder` is null if the settings have none, and
/// if the text is not a full path and Windows cannot complete it. Returns false if out of memory: it is then
/// unknown whether there is a data folder.
bool ReadServerDataFolder(HKEY key, DWORD size, PathRef* folder);

/// The size of the buffer for the data folder's text if the folder is only checked, in bytes.
constexpr DWORD kLargestDataFolderText = 512;
/// The size of the buffer for the data folder's text if the folder is used, in bytes.
constexpr DWORD kDataFolderText = 256;

}  // extern "C"
