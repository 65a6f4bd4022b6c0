// The standard folders of Windows, found by a tag of four characters. Used by the upgrade actions and
// the client's programs.
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
/// The function that names the machine's own Windows folder, which on a terminal server differs from the
/// user's. Looked up once in the life of the process; returns 0 if it is missing.
inline constinit LateFunction<decltype(GetSystemWindowsDirectoryW)> systemWindowsDirectory{
    &systemWindowsModule, "GetSystemWindowsDirectoryW", 0};

extern "C" {

/// Returns the folder that `tag` (FourCharCode of its characters) stands for as a new root path, which the
/// caller releases; null when Windows names no such folder or memory lacks. Where Windows does not answer the
/// first question for a tag, the next one is asked, as the table in standard_folders.cpp says. Optional
/// system functions are looked for once in the life of the process.
PathObject* GetStandardFolder(DWORD tag);

}  // extern "C"
