// The list of libraries that Windows loads into every process that has windows (AppInit_DLLs). Used by the
// actions that add the tracking library to it and remove it.
#pragma once

#include <windows.h>

extern "C" {

/// Adds `name` to the list of the registry view `view` (0, KEY_WOW64_64KEY or KEY_WOW64_32KEY) unless the
/// list's text already contains it, and switches the list on. Stops silently if a step fails. Returns 0.
int AddAppInitDll(const char* name, REGSAM view);

/// Removes the first occurrence of `name` from the list of the registry view `view`, even if it is part of a
/// longer entry. Deletes the list if it is then empty. Stops silently if a step fails. Always returns 0.
int RemoveAppInitDll(const char* name, REGSAM view);

}  // extern "C"
