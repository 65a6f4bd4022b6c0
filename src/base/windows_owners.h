// Owners of handles, modules and memory from Windows. Used by all code that opens a file, a process, a
// registry key or a service.
#pragma once

#include "base/owner.h"

/// A search started with FindFirstFileW.
using SearchHandle = Unique<InvalidHandleTraits<FindClose>>;
/// A file opened with CreateFile.
using FileHandle = Unique<InvalidHandleTraits<CloseHandle>>;
/// A process opened with OpenProcess.
using ProcessHandle = Unique<NullableTraits<HANDLE, CloseHandle>>;
/// An access token.
using TokenHandle = Unique<NullableTraits<HANDLE, CloseHandle>>;
/// An open registry key; never a predefined root key.
using RegistryKey = Unique<NullableTraits<HKEY, RegCloseKey>>;
/// The service manager or a service.
using ServiceHandle = Unique<NullableTraits<SC_HANDLE, CloseServiceHandle>>;
/// A module loaded with LoadLibrary.
using Module = Unique<NullableTraits<HMODULE, FreeLibrary>>;
/// Memory that a system function allocated and that the caller frees with LocalFree.
template <typename Type>
using LocalBlock = Unique<NullableTraits<Type*, LocalFree>>;
