// Starts COM for an action. Used by the actions whose COM objects may be missing from a system.
#pragma once

#include <windows.h>

extern "C" {

/// Starts COM on this thread, apartment-threaded, if the process has already loaded COM's library; never
/// loads it. Returns 1 and stores the result of CoInitializeEx at `started`. Returns 0 and stores E_NOTIMPL
/// if the library is not loaded or does not export the function. In both cases a ComScope of `started` says
/// whether COM can be used, and uninitializes it if needed.
int StartCom(HRESULT* started);

}  // extern "C"
