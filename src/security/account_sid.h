// Security identifiers of accounts. Used by the actions for the service account and by the access lists.
#pragma once

#include <windows.h>

extern "C" {

/// Looks up the account `name` on the computer `controller` (null: this one). Returns a new heap block that
/// begins with the account's security identifier; the caller frees it with HeapFreeSafe. Returns null if the
/// look-up fails or out of memory.
void* LookUpAccountSid(const wchar_t* controller, const wchar_t* name);

/// Resolves an account name in the forms of settings and services, in UTF-8: "LocalSystem", "LocalService", a
/// bare name, ".\name", "\name" or "DOMAIN\name". A domain other than this computer is asked through its
/// controller. Returns a new heap block that begins with the account's security identifier; the caller frees
/// it with HeapFreeSafe. Returns null for a null `account`, if it cannot be resolved, and if out of memory.
void* ResolveAccountSid(const char* account);

}  // extern "C"
