// The security identifiers of accounts. Used by the service account's actions and by the access lists.
#pragma once

#include <windows.h>

extern "C" {

/// Looks the account `name` up on the computer `controller` (null: this one) and returns its security
/// identifier, a new heap block that begins with it, which the caller frees with HeapFreeSafe. Null when
/// there is no such account and when memory lacks.
void* LookUpAccountSid(const wchar_t* controller, const wchar_t* name);

/// Returns the security identifier of an account as settings and services write it, UTF-8: "LocalSystem",
/// "LocalService", a bare name, ".\name", "\name", or "DOMAIN\name", where a domain other than this computer
/// is asked through its controller. The result is a new heap block that begins with the identifier; the
/// caller frees it with HeapFreeSafe. Null for a null `account`, when it cannot be resolved, and when memory
/// lacks.
void* ResolveAccountSid(const char* account);

}  // extern "C"
