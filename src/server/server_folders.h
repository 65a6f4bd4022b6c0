// The folders of an installed server, as the installer's properties and the server's settings name them. Used
// by the actions of the server upgrade.
#pragma once

#include "base/windows_owners.h"
#include "frame/session.h"

/// The buffer of a folder's last name, in bytes with the terminator.
constexpr unsigned kLastNameSize = 256;

extern "C" {

/// Reads the folder or file that the property `name` holds into `path`, which stays empty when the property
/// is unset or the installer refuses to read it. False when it is set and cannot be made into a path, and
/// when out of memory: then the caller has nothing to go on, and publishes nothing that depends on it.
bool ReadPathProperty(MSIHANDLE session, const wchar_t* name, PathRef* path);

/// Copies the last component of the path `path` (the text behind its last backslash) in UTF-8 into `buffer`
/// of kLastNameSize bytes; cut to 255 bytes, bytewise. Empty for a null path.
void CopyLastName(PathObject* path, char* buffer);

/// Reads the property `name` as a path and copies its last component as CopyLastName does; empty when the
/// property is unset. False as for ReadPathProperty.
bool ReadLastName(MSIHANDLE session, const wchar_t* name, char* buffer);

/// Opens the settings of the installed server service for reading. False, and `key` stays empty, when there
/// are none.
bool OpenServerSettings(RegistryKey* key);

/// Reads the data folder that the settings `key` name into `folder`; the text is read into a buffer of `size`
/// bytes (at most kLargestDataFolderText), as ReadRegistryText does. `folder` stays empty when none is set,
/// and when the text is no full path and Windows cannot complete it. False when memory lacks: then nothing
/// can be said.
bool ReadServerDataFolder(HKEY key, DWORD size, PathRef* folder);

/// The room for the data folder's text of those who look whether there is one, in bytes.
constexpr DWORD kLargestDataFolderText = 512;
/// The room for the data folder's text of those who use it, in bytes.
constexpr DWORD kDataFolderText = 256;

}  // extern "C"
