// Access lists of files and folders. Used by the actions that give accounts access to the server's folders.
#pragma once

#include "paths/path.h"

/// The access of an account to a file or folder, modelled on the owner's digit of a Unix mode.
enum AccessMode : DWORD {
  kAccessRead = 0x100,         ///< read
  kAccessWrite = 0x080,        ///< write
  kAccessExecute = 0x040,      ///< execute
  kAccessAll = 0x1C0,          ///< all three, which means full control
  kAccessInherit = 0x80000000  ///< sub-folders and files inherit the entry
};

/// A function of Windows that the change needs is missing.
constexpr int kAccessNoFunction = -1;
/// The account could not be resolved.
constexpr int kAccessNoAccount = -36;
/// The path or the account is null.
constexpr int kAccessMissingArgument = -50;
/// The path could not be converted to a string.
constexpr int kAccessNoPath = -108;

extern "C" {

/// Gives `account` (UTF-8, see ResolveAccountSid) access to the file or folder `path`. Replaces all explicit
/// entries of its list by a single one with `mode`, a combination of AccessMode values; inherited entries
/// stay. Returns 0, one of the values above, or the Windows error. Does nothing and returns 0 on a system
/// without access lists.
int ApplyAccountAccess(PathObject* path, const char* account, DWORD mode);

}  // extern "C"
