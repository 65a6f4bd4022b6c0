#include "security/directory.h"

#include <ntdsapi.h>

#include "base/com_owners.h"
#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "security/network_management.h"

namespace {

// Identifiers of the directory's objects, which are in no import library of ours.
constexpr IID kContainerId = {0x001677D0, 0xFD16, 0x11CE, {0xAB, 0xC4, 0x02, 0x60, 0x8C, 0x9E, 0x75, 0x53}};
constexpr CLSID kNameTranslateClass = {
    0x274FAE1F, 0x3626, 0x11D1, {0xA3, 0xA4, 0x00, 0xC0, 0x4F, 0xB9, 0x50, 0xDC}};
constexpr IID kNameTranslateId = {
    0xB1B272A3, 0x3625, 0x11D1, {0xA3, 0xA4, 0x00, 0xC0, 0x4F, 0xB9, 0x50, 0xDC}};

constexpr wchar_t kProvider[] = L"WinNT://";

using AdsGetObject = HRESULT WINAPI(const wchar_t* path, const IID& interfaceId, void** object);
constexpr HRESULT kNoAdsGetObject = -1;

constinit LateModule activeds{L"ACTIVEDS"};
constinit LateFunction<AdsGetObject> adsGetObject{&activeds, "ADsGetObject", kNoAdsGetObject};

constinit LateModule ntdsapi{L"NTDSAPI"};
constinit LateFunction<decltype(DsGetSpnW)> dsGetSpn{&ntdsapi, "DsGetSpnW", kNoDirectoryFunction};
constinit LateFunction<decltype(DsBindW)> dsBind{&ntdsapi, "DsBindW", kNoDirectoryFunction};
constinit LateFunction<decltype(DsWriteAccountSpnW)> dsWriteAccountSpn{&ntdsapi, "DsWriteAccountSpnW",
                                                                       kNoDirectoryFunction};
constinit LateFunction<decltype(DsUnBindW)> dsUnBind{&ntdsapi, "DsUnBindW", kNoDirectoryFunction};
constinit LateFunction<decltype(DsFreeSpnArrayW)> dsFreeSpnArray{&ntdsapi, "DsFreeSpnArrayW"};

// Joins `first`, `second` and `third` in a new heap string; null if out of memory.
wchar_t* Concatenate(const wchar_t* first, const wchar_t* second, const wchar_t* third) {
  size_t firstLength = TxtLenW(first);
  size_t secondLength = TxtLenW(second);
  size_t size = (firstLength + secondLength + TxtLenW(third) + 1) * sizeof(wchar_t);
  auto* text = static_cast<wchar_t*>(HeapAllocZero(size));
  if (!text) return nullptr;
  TxtCopyW(text, first);
  TxtCopyW(text + firstLength, second);
  TxtCopyW(text + firstLength + secondLength, third);
  return text;
}

// Makes the path of the container of a domain's users as a new heap string. A null or empty `domain` means
// this computer's domain. Returns null on failure; `failure` is then E_FAIL if this computer's domain could
// not be found, E_OUTOFMEMORY if there was no memory for the path.
wchar_t* MakeContainerPath(const wchar_t* domain, HRESULT* failure) {
  HeapStringW workstationDomain;
  if (!domain || !domain[0]) {
    workstationDomain.reset(CopyWorkstationDomain());
    domain = workstationDomain.get();
  }
  *failure = domain ? E_OUTOFMEMORY : E_FAIL;
  return domain ? Concatenate(kProvider, domain, L"") : nullptr;
}

// Returns the user that the process runs under, as DOMAIN\NAME in a new heap string; null on failure.
wchar_t* MakeOwnAccountName() {
  TokenHandle token;
  if (!token.keep(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()))) return nullptr;
  DWORD size = 0;
  GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  if (!size) return nullptr;
  HeapBlock<TOKEN_USER> user(static_cast<TOKEN_USER*>(HeapAllocZero(size)));
  if (!user || !GetTokenInformation(token.get(), TokenUser, user.get(), size, &size)) return nullptr;
  wchar_t name[kDomainNameSize];
  wchar_t domain[kDomainNameSize];
  DWORD nameSize = kDomainNameSize;
  DWORD domainSize = kDomainNameSize;
  SID_NAME_USE use;
  if (!LookupAccountSidW(nullptr, user.get()->User.Sid, name, &nameSize, domain, &domainSize, &use))
    return nullptr;
  return JoinAccountName(domain, name);
}

// Returns the name of a user in the form that the directory takes, DOMAIN\NAME in a new heap string; null on
// failure.
wchar_t* MakeUserName(const wchar_t* domain, const wchar_t* user) {
  if (!user) return MakeOwnAccountName();
  if (domain && domain[0]) return JoinAccountName(domain, user);
  wchar_t workstationDomain[kDomainNameSize];
  return GetWorkstationDomain(workstationDomain) ? JoinAccountName(workstationDomain, user) : nullptr;
}

// Translates the name of a user into a distinguished name, and copies to `name` what fits in it. Returns the
// length in characters; 0 if the directory has no such name.
DWORD TranslateName(const wchar_t* userName, wchar_t* name) {
  ComPtr<IADsNameTranslate> translator;
  if (!translator.keep(CoCreateInstance(kNameTranslateClass, nullptr, CLSCTX_INPROC_SERVER, kNameTranslateId,
                                        translator.putVoid()))) {
    return 0;
  }
  SystemString found;
  if (FAILED(translator->Init(ADS_NAME_INITTYPE_GC, nullptr)) ||
      FAILED(translator->Set(ADS_NAME_TYPE_NT4, AsItStands(userName))) ||
      !found.keep(SUCCEEDED(translator->Get(ADS_NAME_TYPE_1779, found.put())))) {
    return 0;
  }
  if (!found) return 0;
  DWORD length = static_cast<DWORD>(TxtLenW(found.get()));
  if (length > kDistinguishedNameSize - 1) length = kDistinguishedNameSize - 1;
  CopyBytes(name, found.get(), length * sizeof *name);
  name[length] = L'\0';
  return length;
}

}  // namespace

wchar_t* JoinAccountName(const wchar_t* domain, const wchar_t* name) {
  return Concatenate(domain, L"\\", name);
}

IADsContainer* OpenDomainContainer(const wchar_t* domain) {
  HRESULT result;
  HeapStringW path(MakeContainerPath(domain, &result));
  if (path) {
    IADsContainer* container = nullptr;
    result = adsGetObject(path.get(), kContainerId, reinterpret_cast<void**>(&container));
    if (SUCCEEDED(result)) return container;
    path.reset();
  }
  // Always an error code: a caller that gets no container and no error treats it as success.
  SetLastError(static_cast<DWORD>(result));
  return nullptr;
}

DWORD GetAccountDistinguishedName(const wchar_t* domain, const wchar_t* user, wchar_t* name) {
  name[0] = L'\0';
  HeapStringW userName(MakeUserName(domain, user));
  return userName ? TranslateName(userName.get(), name) : 0;
}

DWORD UpdateServicePrincipalNames(const wchar_t* serviceClass, const wchar_t* distinguishedName,
                                  PrincipalNameChange change) {
  DWORD count = 0;
  wchar_t** names = nullptr;
  if (dsGetSpn(DS_SPN_DNS_HOST, serviceClass, nullptr, 0, 0, nullptr, nullptr, &count, &names) !=
      ERROR_SUCCESS) {
    return kNoDirectoryFunction;
  }
  DWORD result = kNoDirectoryFunction;
  HANDLE directory = nullptr;
  if (count && dsBind(nullptr, nullptr, &directory) == ERROR_SUCCESS) {
    result =
        dsWriteAccountSpn(directory, change == kAddPrincipalNames ? DS_SPN_ADD_SPN_OP : DS_SPN_DELETE_SPN_OP,
                          distinguishedName, count, const_cast<const wchar_t**>(names));
    // On purpose: if the function is missing, the handle is lost.
    dsUnBind(&directory);
  }
  // On purpose: if the function is missing, the names are lost.
  dsFreeSpnArray(count, names);
  return result;
}
