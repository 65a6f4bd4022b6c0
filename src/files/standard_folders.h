// The standard folders of Windows, found by a four-character tag. Used by the upgrade actions and the code
// for the client's programs.
//
//   curr          the current folder             proc   the folder of the process's program
//   user          the user profiles              temp, logs   the temporary folder
//   prog          Program Files                  pr64, pr32   Program Files of 64-bit, of 32-bit programs
//   comn          Common Files                   slog   shared logs: like sprf, else like temp
//   rsup          roaming application data       pref, cach, lsup   local application data of the user
//   sprf, asup    application data of all users  sdrv   the root of the system drive
//   swin          the machine's Windows folder   extn   the system folder
//   any other     the Windows folder
#pragma once

#include "base/late_binding.h"
#include "base/object.h"
#include "paths/path.h"

/// The module of systemWindowsDirectory.
inline constinit LateModule systemWindowsModule{"KERNEL32", LateRule::kLoadedOnce};
/// The function that returns the machine's own Windows folder, which differs from the user's on a terminal
/// server. Looked up once in the life of the process; returns 0 if it is missing.
inline constinit LateFunction<decltype(GetSystemWindowsDirectoryW)> systemWindowsDirectory{
    &systemWindowsModule, "GetSystemWindowsDirectoryW", 0};

extern "C" {

/// Returns the folder for `tag` (FourCharCode of its characters) as a new root path, which the caller
/// releases; null if Windows has no such folder or if out of memory. If Windows does not answer the first
/// question for a tag, the next one in the table of standard_folders.cpp is asked. Optional system functions
/// are looked up once in the life of the process.
PathObject* GetStandardFolder(DWORD tag);

}  // extern "C"
