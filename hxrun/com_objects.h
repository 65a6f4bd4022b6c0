// The objects of Windows that the library uses, each behind an object of the rig, so that every call of a
// method is seen. Used by a run.
#pragma once

#include <windows.h>

#include <string>

#include "hxrun/run.h"
#include "rig/rig.h"

namespace hxrun {

/// Routes CoCreateInstance and ADsGetObject here. Both must live as long as the library is used.
void PassObjects(rig::Rig& rig, RunWatcher& watcher);

/// Gives the library an object in front of the real one, with the interface `iid`. Returns S_OK;
/// E_NOINTERFACE, and reports a fault, for an interface that hxrun does not know. The real object is never
/// released.
HRESULT PassObject(const GUID& iid, void* real, void** out);

/// Returns the real object whose method the library calls now, as a pointer to the interface of that method.
void* CalledObject();

/// Returns the real object of a pointer that the library has; the pointer itself if it is not one of ours.
void* RealObject(void* pointer);

/// Returns the text by which the firewall finds an exception that the library has made: the name of a rule,
/// the program of an application. Empty if it was given none.
std::wstring ExceptionKey(void* object);

/// Returns the account that the library gave a work item last; empty if it gave none.
const std::wstring& WorkItemAccount();

/// Returns an object in place of the one that the method would have made if its change had been made; a call
/// of any method ends the run. `path` is the path of a folder of the Task Scheduler. Null for a method that
/// makes none.
void* UnmadeObject(const std::string& method, const std::string& path = {});

/// Returns the path of the folder of the Task Scheduler that a recorded change would have made.
const std::string& NewFolderPath();

/// Returns the methods that hxrun passes on and that have no row in the table of effects, one a line. Empty
/// if there is none. A rig must exist.
std::string CheckMethods(rig::Rig& rig, RunWatcher& watcher);

}  // namespace hxrun
