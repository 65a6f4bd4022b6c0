// CustomAction24: deletes the account that the server's service runs under, if the installer created it: if
// its name is the value of PROP_ACCOUNTID. The account is taken from the service's configuration. If
// that is LocalSystem or cannot be read, the account is PROP_ACCOUNTNAME in PROP_ACCOUNTDOMAIN. The service
// principal names (class PROP_SERVICENAME) of a domain account are removed first. Logs which account is
// deleted. Logs why none is, unless no account is found. Always returns 0.

#include "base/com_owners.h"
#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "security/network_management.h"
#include "security/service_account.h"

namespace {

constexpr wchar_t kServiceName[] = L"Vantor";
constexpr wchar_t kSystemAccount[] = L"LocalSystem";

bool IsSameName(const wchar_t* a, const wchar_t* b) {
  return CompareStringW(LOCALE_SYSTEM_DEFAULT, NORM_IGNORECASE, a, -1, b, -1) == CSTR_EQUAL;
}

wchar_t* CopyText(const wchar_t* text) {
  auto* copy = static_cast<wchar_t*>(HeapAllocZero((TxtLenW(text) + 1) * sizeof *text));
  return copy ? TxtCopyW(copy, text) : nullptr;
}

// Returns the account that the service runs under as a new heap string. Returns null if that is LocalSystem,
// and on failure.
wchar_t* ReadServiceAccount() {
  ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE));
  if (!manager) return nullptr;
  ServiceHandle service(OpenServiceW(manager.get(), kServiceName, SERVICE_QUERY_CONFIG));
  if (!service) return nullptr;
  DWORD size = 0;
  QueryServiceConfigW(service.get(), nullptr, 0, &size);
  if (!size) return nullptr;
  HeapBlock<QUERY_SERVICE_CONFIGW> configuration(static_cast<QUERY_SERVICE_CONFIGW*>(HeapAllocZero(size)));
  if (!configuration || !QueryServiceConfigW(service.get(), configuration.get(), size, &size)) return nullptr;
  const wchar_t* account = configuration.get()->lpServiceStartName;
  if (!account || !account[0] || IsSameName(account, kSystemAccount)) return nullptr;
  return CopyText(account);
}

// Returns the account in the properties that CustomAction23 sets, as a new heap string; null if there is
// none.
wchar_t* ReadPublishedAccount(MSIHANDLE session) {
  HeapStringW name(ReadPropertyW(session, L"PROP_ACCOUNTNAME"));
  if (!name || !name.get()[0]) return nullptr;
  HeapStringW domain(ReadPropertyW(session, L"PROP_ACCOUNTDOMAIN"));
  if (domain && domain.get()[0]) return JoinAccountName(domain.get(), name.get());
  return name.release();
}

// Splits `account` at its first backslash, in place. Returns the user and stores the text before the
// backslash at `domain`; null if there is no backslash.
const wchar_t* SplitAccount(wchar_t* account, const wchar_t** domain) {
  const wchar_t* user = TxtCutW(account, L'\\');
  *domain = user ? account : nullptr;
  return user ? user : account;
}

bool IsRemote(const wchar_t* domain) {
  if (!domain || !domain[0] || (domain[0] == L'.' && !domain[1])) return false;
  wchar_t computer[kComputerNameSize];
  DWORD size = kComputerNameSize;
  return !GetComputerNameW(computer, &size) || !IsSameName(computer, domain);
}

void DeleteLocalAccount(const wchar_t* user) {
  // On purpose: the result is ignored. Nothing in the removal depends on it.
  if (HasLocalUser(user)) DeleteLocalUser(user);
}

bool HasDomainUser(const wchar_t* domain, const wchar_t* user) {
  ComPtr<IADsContainer> container(OpenDomainContainer(domain));
  if (!container) return false;
  ComPtr<IDispatch> object;
  return object.keep(container->GetObject(AsItStands(kUserClass), AsItStands(user), object.put()));
}

void RemovePrincipalNames(MSIHANDLE session, const wchar_t* domain, const wchar_t* user) {
  HeapStringW name(static_cast<wchar_t*>(HeapAllocZero(kDistinguishedNameSize * sizeof(wchar_t))));
  if (name && GetAccountDistinguishedName(domain, user, name.get())) {
    UpdatePackagePrincipalNames(session, name.get(), kRemovePrincipalNames);
  }
}

void DeleteDomainAccount(MSIHANDLE session, const wchar_t* domain, const wchar_t* user) {
  if (!HasDomainUser(domain, user)) return;
  RemovePrincipalNames(session, domain, user);
  ComPtr<IADsContainer> container(OpenDomainContainer(domain));
  if (container) container->Delete(AsItStands(kUserClass), AsItStands(user));
}

}  // namespace

extern "C" UINT WINAPI CustomAction24(MSIHANDLE session) {
  HeapStringW account(ReadServiceAccount());
  if (!account) account.reset(ReadPublishedAccount(session));
  if (!account) return ERROR_SUCCESS;
  const wchar_t* domain;
  const wchar_t* user = SplitAccount(account.get(), &domain);
  HeapStringW ownName(ReadPropertyW(session, L"PROP_ACCOUNTID"));
  if (!user[0]) {
    LogSetupMessage(session, "no account to delete");
  } else if (!ownName || !IsSameName(user, ownName.get())) {
    LogSetupMessage(session, "account was not created by installer (%ls)", user);
  } else if (IsRemote(domain)) {
    LogSetupMessage(session, "deleting domain service account %ls\\%ls", domain, user);
    DeleteDomainAccount(session, domain, user);
  } else {
    LogSetupMessage(session, "deleting local service account %ls", user);
    DeleteLocalAccount(user);
  }
  return ERROR_SUCCESS;
}
