// The places of a machine that the install tests and their packages change: the only ones. On a Windows on
// which other programs run too, only these are compared; and the tests are refused on a machine that has one
// of them already.
#pragma once

#include <string>
#include <vector>

namespace machine {

/// Folders, compared with everything in them, and files. Paths of drive C:, in the spelling of the tests; no
/// backslash at the end.
extern const std::vector<std::wstring> kFolders, kFiles;

/// Returns true if the tests or their packages can have made the entry `name` of the folder `folder`: a place
/// of kFolders or kFiles, something in one, a folder above one, or a name that begins with "Ostrel" or
/// "Vantor", as those of the programs' own files do. The case of letters does not count.
bool CanBeOurs(const std::wstring& folder, const std::wstring& name);

/// Keys of the registry, compared with everything in them, as "HKLM\PATH" or "HKCU\PATH".
extern const std::vector<std::string> kKeys;

/// Values of a key that other programs use too, as "HKLM\PATH\VALUE".
extern const std::vector<std::string> kValues;

/// The names of the services, and of the accounts of this computer.
extern const std::vector<std::wstring> kServices, kAccounts;

}  // namespace machine
