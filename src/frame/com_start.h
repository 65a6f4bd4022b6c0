// How an action starts COM. Used by the actions whose objects may be missing from a system.
#pragma once

#include <windows.h>

extern "C" {

/// Starts COM on this thread, single-threaded, when the process has COM's library loaded already: it is never
/// loaded for the action's sake. Returns 1 with the result of CoInitializeEx at `started`, or 0 with a
/// failing one when there is no library or no such function in it. In both cases a ComScope of `started` says
/// whether COM can be used, and ends what was started.
int StartCom(HRESULT* started);

}  // extern "C"
