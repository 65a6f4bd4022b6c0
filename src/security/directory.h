// The domain's directory: the container of its users, their distinguished names, and the service principal
// names of their accounts. Used by the actions for the service account.
#pragma once

#include <windows.h>
// These need windows.h first, and iads.h needs oleauto.h.
#include <oleauto.h>

#include <iads.h>

/// Returned if a function of the directory is missing, or if an earlier step failed.
constexpr DWORD kNoDirectoryFunction = static_cast<DWORD>(-1);

/// The size of the longest distinguished name, in characters with the terminator.
constexpr DWORD kDistinguishedNameSize = 1024;

/// The change to the service principal names of an account.
enum PrincipalNameChange : int {
  kRemovePrincipalNames = 0,  ///< remove them
  kAddPrincipalNames = 1      ///< register them
};

extern "C" {

/// Joins `domain` and `name` with a backslash. Returns a new heap string, which the caller frees with
/// HeapFreeSafe; null if out of memory.
wchar_t* JoinAccountName(const wchar_t* domain, const wchar_t* name);

/// Opens the container of the users of `domain` (null or empty: this computer's domain). Returns a new
/// reference, which the caller releases; null on failure. The last error is then the HRESULT of the
/// directory, -1 if its function is missing, E_FAIL if this computer's domain could not be found, or
/// E_OUTOFMEMORY if there was no memory for the container's path.
IADsContainer* OpenDomainContainer(const wchar_t* domain);

/// Writes the distinguished name of a user to `name` (kDistinguishedNameSize characters), cut to what fits,
/// and returns its length without the terminator. A null or empty `domain` means this computer's domain. A
/// null `user` means the user that the process runs under, whatever `domain` is. Returns 0 and writes an
/// empty text if the user has none or a step fails.
DWORD GetAccountDistinguishedName(const wchar_t* domain, const wchar_t* user, wchar_t* name);

/// Registers this computer's service principal names of the class `serviceClass` on the account with this
/// distinguished name, or removes them. Returns 0, the error of the directory, or kNoDirectoryFunction (also
/// if this computer has no names or no controller answers).
DWORD UpdateServicePrincipalNames(const wchar_t* serviceClass, const wchar_t* distinguishedName,
                                  PrincipalNameChange change);

}  // extern "C"
