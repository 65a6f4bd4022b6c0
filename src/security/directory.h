// The domain's directory: where its users are, what they are called there, and the names of services that are
// registered on them. Used by the service account's actions.
#pragma once

#include <windows.h>
// Behind windows.h, on which they build, and the second on the first.
#include <oleauto.h>

#include <iads.h>

/// What is given where a function of the directory is missing, or where a step before the result failed.
constexpr DWORD kNoDirectoryFunction = static_cast<DWORD>(-1);

/// The longest distinguished name that is handled, in characters with the terminator.
constexpr DWORD kDistinguishedNameSize = 1024;

/// What is done with the names of services.
enum PrincipalNameChange : int {
  kRemovePrincipalNames = 0,  ///< they are taken away
  kAddPrincipalNames = 1      ///< they are registered
};

extern "C" {

/// Joins a domain and a name of it, a backslash between, in a new heap string, which the caller frees with
/// HeapFreeSafe; null when memory lacks.
wchar_t* JoinAccountName(const wchar_t* domain, const wchar_t* name);

/// The container of the users of `domain` (null or empty: the one that this computer is in), a new reference,
/// which the caller releases. Null on failure; the last error is then the HRESULT of the directory where it
/// refused, -1 where its function is missing, and E_FAIL where no domain is known or memory lacks.
IADsContainer* OpenDomainContainer(const wchar_t* domain);

/// Writes the distinguished name of a user into `name`, kDistinguishedNameSize characters, cut to what fits,
/// and returns its length without the terminator. With a null or empty `domain` that of this computer is
/// taken; with a null `user` the one that the process runs under. 0 and an empty text when there is none or a
/// step failed.
DWORD GetAccountDistinguishedName(const wchar_t* domain, const wchar_t* user, wchar_t* name);

/// Registers the names of this computer for services of `serviceClass` on the account with this distinguished
/// name, or takes them away. 0, the error of the directory, or kNoDirectoryFunction (also where this computer
/// has no names or no controller answers).
DWORD UpdateServicePrincipalNames(const wchar_t* serviceClass, const wchar_t* distinguishedName,
                                  PrincipalNameChange change);

}  // extern "C"
