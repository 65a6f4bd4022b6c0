#include "security/account_sid.h"

#include "base/heap.h"
#include "base/text.h"
#include "security/advapi32.h"
#include "security/network_management.h"

namespace {

constinit LateFunction<decltype(LookupAccountNameW)> lookupAccountName{&advapi32, "LookupAccountNameW",
                                                                       FALSE};
constinit LateFunction<decltype(CreateWellKnownSid)> createWellKnownSid{&advapi32, "CreateWellKnownSid",
                                                                        FALSE};

// The capacity of the first look-up: for an identifier, in bytes, and for the domain's name after it, in
// characters.
constexpr DWORD kSidRoom = 256;
constexpr DWORD kDomainRoom = 256;

// Accounts of the system, whose identifiers are fixed.
struct WellKnownAccount {
  const char* name;
  WELL_KNOWN_SID_TYPE type;
};
constexpr WellKnownAccount kWellKnownAccounts[] = {
    {"LocalSystem", WinLocalSystemSid},
    {"LocalService", WinLocalServiceSid},
};

void* MakeWellKnownSid(WELL_KNOWN_SID_TYPE type) {
  DWORD size = SECURITY_MAX_SID_SIZE;
  HeapBlock<void> sid(HeapAllocZero(size));
  if (!sid || !createWellKnownSid(type, nullptr, sid.get(), &size)) return nullptr;
  return sid.release();
}

// Returns true if `domain` is the name of this computer.
bool IsThisComputer(const wchar_t* domain) {
  wchar_t computer[kComputerNameSize];
  DWORD size = kComputerNameSize;
  return GetComputerNameExW(ComputerNameNetBIOS, computer, &size) &&
         CompareStringW(LOCALE_SYSTEM_DEFAULT, NORM_IGNORECASE, computer, -1, domain, -1) == CSTR_EQUAL;
}

// Finds the computer that looks up accounts of `domain`, whose name has `length` bytes, not 0. Leaves
// `controller` empty if that is this computer. Returns false if none is found.
bool FindAuthority(const char* domain, int length, NetworkName* controller) {
  HeapStringW name(Utf8ToWide(domain, length));
  if (!name) return false;
  if (IsThisComputer(name.get())) return true;
  return controller->keep(FindDomainController(name.get(), controller->put()) == NERR_Success);
}

}  // namespace

void* LookUpAccountSid(const wchar_t* controller, const wchar_t* name) {
  DWORD sidSize = kSidRoom;
  DWORD domainSize = kDomainRoom;
  DWORD largestSid = 0;
  DWORD largestDomain = 0;
  // Ends, because each round must ask for more of one kind than all rounds before it.
  while (sidSize > largestSid || domainSize > largestDomain) {
    if (sidSize > largestSid) largestSid = sidSize;
    if (domainSize > largestDomain) largestDomain = domainSize;
    HeapBlock<BYTE> block(static_cast<BYTE*>(HeapAllocZero(sidSize + domainSize * sizeof(wchar_t))));
    if (!block) return nullptr;
    auto* domain = reinterpret_cast<wchar_t*>(block.get() + sidSize);
    SID_NAME_USE use;
    if (lookupAccountName(controller, name, block.get(), &sidSize, domain, &domainSize, &use))
      return block.release();
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return nullptr;
  }
  return nullptr;
}

void* ResolveAccountSid(const char* account) {
  if (!account) return nullptr;
  for (const WellKnownAccount& known : kWellKnownAccounts) {
    if (TxtCompareIA(account, known.name) == 0) return MakeWellKnownSid(known.type);
  }
  NetworkName controller;
  const char* name = account;
  if (const char* backslash = TxtFindCharA(account, '\\')) {
    name = backslash + 1;
    int length = static_cast<int>(backslash - account);
    bool isLocal = length == 0 || (length == 1 && account[0] == '.');
    if (!isLocal && !FindAuthority(account, length, &controller)) return nullptr;
  }
  HeapStringW wideName(Utf8ToWide(name, -1));
  if (!wideName || !wideName.get()[0]) return nullptr;
  return LookUpAccountSid(controller.get(), wideName.get());
}
