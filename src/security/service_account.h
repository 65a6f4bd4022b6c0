// What the creation and the deletion of the service account share. Used by these two actions.
#pragma once

#include "frame/session.h"
#include "security/directory.h"

extern "C" {

/// CustomAction24, which is also what CustomAction23 does in a rollback.
UINT WINAPI CustomAction24(MSIHANDLE session);

/// Registers the names of services of the class that PROP_SERVICENAME names ("VANTOR" when it is unset or
/// cannot be read) on the account with this distinguished name, or takes them away. The result of
/// UpdateServicePrincipalNames.
DWORD UpdatePackagePrincipalNames(MSIHANDLE session, const wchar_t* distinguishedName,
                                  PrincipalNameChange change);

}  // extern "C"

/// The class of users in a container of the directory.
constexpr wchar_t kUserClass[] = L"user";
