// Network management: accounts of this computer, its domain, and the domain's controllers. Used by the
// service account's actions and by whatever looks accounts up. The functions are bound by name.
#pragma once

#include <windows.h>
// After windows.h, on which it builds.
#include <lm.h>

#include "base/late_binding.h"
#include "base/owner.h"

/// What a call of a network management function that is not there yields.
constexpr DWORD kNoNetworkFunction = static_cast<DWORD>(-1);

/// The longest domain name that is handled, in characters with the terminator.
constexpr DWORD kDomainNameSize = 64;
/// The longest name of this computer that is handled, in characters with the terminator.
constexpr DWORD kComputerNameSize = 64;

extern "C" {

/// Frees a buffer that a network management function handed out. Returns the result of NetApiBufferFree, or
/// kNoNetworkFunction where that is missing.
DWORD FreeNetApiBuffer(void* buffer);

/// Copies the name of the domain or workgroup that this computer is in into `buffer`, kDomainNameSize
/// characters, cut to what fits, and returns the characters copied without the terminator. With a null buffer
/// returns the whole length. 0 when the name is not to be had; the buffer is then as it was.
DWORD GetWorkstationDomain(wchar_t* buffer);

/// The whole name of the domain or workgroup that this computer is in, a new heap string, which the caller
/// frees with HeapFreeSafe. Null when there is none or memory lacks.
wchar_t* CopyWorkstationDomain();

/// Stores the name of the primary controller of `domain` at `controller`, which the caller frees with
/// FreeNetApiBuffer (or holds in a NetworkName). 0, an error of the network, or kNoNetworkFunction.
DWORD FindDomainController(const wchar_t* domain, wchar_t** controller);

/// NetUserAdd on this computer with the information of level 2. 0, an error of the network, or
/// kNoNetworkFunction.
DWORD AddLocalUser(USER_INFO_2* user);

/// Whether this computer has an account of this name.
bool HasLocalUser(const wchar_t* name);

/// Deletes an account of this computer. 0, an error of the network, or kNoNetworkFunction.
DWORD DeleteLocalUser(const wchar_t* name);

}  // extern "C"

/// A buffer that a network management function allocated.
template <typename Type>
using NetworkMemory = Unique<NullableTraits<Type*, FreeNetApiBuffer>>;
/// A name that a network management function allocated.
using NetworkName = NetworkMemory<wchar_t>;
