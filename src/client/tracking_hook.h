// The list of libraries that Windows loads into every process with windows. Used by the actions that hook the
// tracking library in and out.
#pragma once

#include <windows.h>

extern "C" {

/// Adds `name` to the list of the registry view `view` (0, KEY_WOW64_64KEY or KEY_WOW64_32KEY), unless it
/// stands anywhere in it, and switches the list on. Gives up silently where something fails. Returns 0.
int AddAppInitDll(const char* name, REGSAM view);

/// Takes the first occurrence of `name` out of the list of the registry view `view`, also out of a longer
/// entry; a list that is empty then is deleted. Gives up silently where something fails. Returns 0.
int RemoveAppInitDll(const char* name, REGSAM view);

}  // extern "C"
