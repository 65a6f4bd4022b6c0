// Network management: accounts of this computer, its domain, and the domain's controllers. Used by the
// actions for the service account and to look up accounts. The functions are bound by name.
#pragma once

#include <windows.h>
// Needs windows.h first.
#include <lm.h>

#include "base/late_binding.h"
#include "base/owner.h"

/// The result of calling a network management function that is missing.
constexpr DWORD kNoNetworkFunction = static_cast<DWORD>(-1);

/// The size of the longest domain name, in characters with the terminator.
constexpr DWORD kDomainNameSize = 64;
/// The size of the longest name of this computer, in characters with the terminator.
constexpr DWORD kComputerNameSize = 64;

extern "C" {

/// Frees a buffer that a network management function allocated. Returns the result of NetApiBufferFree, or
/// kNoNetworkFunction if that is missing.
DWORD FreeNetApiBuffer(void* buffer);

/// Copies the name of this computer's domain or workgroup to `buffer` (kDomainNameSize characters), cut to
/// what fits, and returns the number of characters copied, without the terminator. With a null buffer,
/// returns the full length. Returns 0 if the name is not available; the buffer is then unchanged.
DWORD GetWorkstationDomain(wchar_t* buffer);

/// Returns the full name of this computer's domain or workgroup as a new heap string, which the caller frees
/// with HeapFreeSafe. Returns null if there is none or out of memory.
wchar_t* CopyWorkstationDomain();

/// Stores the name of the primary controller of `domain` at `controller`; the caller frees it with
/// FreeNetApiBuffer (or holds it in a NetworkName). Returns 0, a network error, or kNoNetworkFunction.
DWORD FindDomainController(const wchar_t* domain, wchar_t** controller);

/// Calls NetUserAdd on this computer with information of level 2. Returns 0, a network error, or
/// kNoNetworkFunction.
DWORD AddLocalUser(USER_INFO_2* user);

/// Returns true if this computer has an account of this name; false also if that cannot be found out.
bool HasLocalUser(const wchar_t* name);

/// Deletes an account of this computer. Returns 0, a network error, or kNoNetworkFunction.
DWORD DeleteLocalUser(const wchar_t* name);

}  // extern "C"

/// Owns a buffer that a network management function allocated.
template <typename Type>
using NetworkMemory = Unique<NullableTraits<Type*, FreeNetApiBuffer>>;
/// Owns a name that a network management function allocated.
using NetworkName = NetworkMemory<wchar_t>;
