#include "security/network_management.h"

#include "base/heap.h"
#include "base/text.h"

namespace {

constinit LateModule netapi32{L"NETAPI32"};
constinit LateFunction<decltype(NetApiBufferFree)> netApiBufferFree{&netapi32, "NetApiBufferFree",
                                                                    kNoNetworkFunction};
constinit LateFunction<decltype(NetWkstaGetInfo)> netWkstaGetInfo{&netapi32, "NetWkstaGetInfo",
                                                                  kNoNetworkFunction};
constinit LateFunction<decltype(NetGetDCName)> netGetDCName{&netapi32, "NetGetDCName", kNoNetworkFunction};
constinit LateFunction<decltype(NetUserAdd)> netUserAdd{&netapi32, "NetUserAdd", kNoNetworkFunction};
constinit LateFunction<decltype(NetUserGetInfo)> netUserGetInfo{&netapi32, "NetUserGetInfo",
                                                                kNoNetworkFunction};
constinit LateFunction<decltype(NetUserDel)> netUserDel{&netapi32, "NetUserDel", kNoNetworkFunction};

constexpr DWORD kWorkstationLevel = 100;
constexpr DWORD kNewUserLevel = 2;
constexpr DWORD kExistingUserLevel = 1;

// Returns the name of the domain or workgroup, which is valid as long as `owner`; null if it is not
// available.
const wchar_t* AskWorkstationDomain(NetworkMemory<BYTE>* owner) {
  BYTE* information = nullptr;
  if (netWkstaGetInfo(nullptr, kWorkstationLevel, &information) != NERR_Success || !information)
    return nullptr;
  owner->reset(information);
  return reinterpret_cast<const WKSTA_INFO_100*>(information)->wki100_langroup;
}

}  // namespace

DWORD FreeNetApiBuffer(void* buffer) {
  // On purpose: if the function is missing, the buffer is lost.
  return netApiBufferFree(buffer);
}

DWORD GetWorkstationDomain(wchar_t* buffer) {
  NetworkMemory<BYTE> owner;
  const wchar_t* domain = AskWorkstationDomain(&owner);
  if (!domain) return 0;
  DWORD length = static_cast<DWORD>(TxtLenW(domain));
  if (!buffer) return length;
  if (length > kDomainNameSize - 1) length = kDomainNameSize - 1;
  CopyBytes(buffer, domain, length * sizeof *buffer);
  buffer[length] = L'\0';
  return length;
}

wchar_t* CopyWorkstationDomain() {
  NetworkMemory<BYTE> owner;
  const wchar_t* domain = AskWorkstationDomain(&owner);
  if (!domain || !domain[0]) return nullptr;
  auto* copy = static_cast<wchar_t*>(HeapAllocZero((TxtLenW(domain) + 1) * sizeof *domain));
  return copy ? TxtCopyW(copy, domain) : nullptr;
}

DWORD FindDomainController(const wchar_t* domain, wchar_t** controller) {
  return netGetDCName(nullptr, domain, reinterpret_cast<BYTE**>(controller));
}

DWORD AddLocalUser(USER_INFO_2* user) {
  return netUserAdd(nullptr, kNewUserLevel, reinterpret_cast<BYTE*>(user), nullptr);
}

bool HasLocalUser(const wchar_t* name) {
  BYTE* information = nullptr;
  if (netUserGetInfo(nullptr, name, kExistingUserLevel, &information) != NERR_Success) return false;
  FreeNetApiBuffer(information);
  return true;
}

DWORD DeleteLocalUser(const wchar_t* name) {
  return netUserDel(nullptr, name);
}
