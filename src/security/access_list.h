// Access lists of files and folders. Used by the actions that let accounts reach the server's folders.
#pragma once

#include "paths/path.h"

/// What an account may do with a file or folder, modelled on the owner's digit of a Unix mode.
enum AccessMode : DWORD {
  kAccessRead = 0x100,         ///< it may read
  kAccessWrite = 0x080,        ///< it may write
  kAccessExecute = 0x040,      ///< it may execute
  kAccessAll = 0x1C0,          ///< all three, which is full control
  kAccessInherit = 0x80000000  ///< sub-folders and files inherit the entry
};

/// A function that the change needs is missing.
constexpr int kAccessNoFunction = -1;
/// The account could not be resolved.
constexpr int kAccessNoAccount = -36;
/// A path or an account was not given.
constexpr int kAccessMissingArgument = -50;
/// The path has no text.
constexpr int kAccessNoPath = -108;

extern "C" {

/// Gives the account (UTF-8, see ResolveAccountSid) access to what `path` names: its explicit entries are
/// replaced by a single one of `mode`, AccessMode values combined; what it inherits stays. 0, also on a
/// system that has no access lists; one of the values above; or the error of Windows.
int ApplyAccountAccess(PathObject* path, const char* account, DWORD mode);

}  // extern "C"
