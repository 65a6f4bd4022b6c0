// Shared by the two actions that create and delete the service account.
#pragma once

#include "frame/session.h"
#include "security/directory.h"

extern "C" {

/// Deletes the service account. CustomAction23 calls it in a rollback.
UINT WINAPI CustomAction24(MSIHANDLE session);

/// Registers the service principal names of the class PROP_SERVICENAME on the account with this distinguished
/// name, or removes them. The class is "VANTOR" if the property is unset or cannot be read. Returns the
/// result of UpdateServicePrincipalNames.
DWORD UpdatePackagePrincipalNames(MSIHANDLE session, const wchar_t* distinguishedName,
                                  PrincipalNameChange change);

}  // extern "C"

/// The class of users in the directory.
constexpr wchar_t kUserClass[] = L"user";
