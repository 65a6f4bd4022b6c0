// CustomAction23: creates the account that the server's service runs under, with a new password and the right
// to log on as a service.
//
// Reads PROP_ACCOUNTTYPE (its first character: "0" for a domain account, "1" for a local one), PROP_ACCOUNTID
// (the name), PROP_ACCOUNTDESC (the full name) and PROP_SERVICENAME (the class of the service principal names
// that a domain account gets). Sets PROP_ACCOUNTNAME, PROP_ACCOUNTPASS and PROP_ACCOUNTDOMAIN; sets all three
// empty if there is no account, and the service then runs as LocalSystem. Shows notice 27000 if the account
// could not be created. In a rollback it deletes the account, as CustomAction24 does. Always returns 0.

#include <windows.h>
// Needs windows.h first.
#include <ntsecapi.h>

#include "base/com_owners.h"
#include "base/heap.h"
#include "frame/notice.h"
#include "security/account_password.h"
#include "security/account_sid.h"
#include "security/network_management.h"
#include "security/service_account.h"

namespace {

constexpr IID kUserId = {0x3E37E320, 0x17E2, 0x11CF, {0xAB, 0xC4, 0x02, 0x60, 0x8C, 0x9E, 0x75, 0x53}};

constexpr Notice kNotCreated = {
    27000, static_cast<INSTALLMESSAGE>(INSTALLMESSAGE_WARNING | MB_ICONWARNING),
    "The service account could not be created.  The service process will be installed "
    "to run in the LocalSystem account.",
    MB_OK | MB_ICONEXCLAMATION, NoticeTitle::kReusedCount};

// The right to log on as a service, and the length of its name in bytes without the terminator.
constexpr wchar_t kLogonRight[] = L"SeServiceLogonRight";
constexpr USHORT kLogonRightLength = sizeof kLogonRight - sizeof *kLogonRight;

// The domain of a local account if the name of this computer is not available.
constexpr wchar_t kThisComputer[] = L".";

// The account to create.
struct NewAccount {
  HeapStringW name;
  AccountPassword password;
  wchar_t domain[kDomainNameSize];
  bool isOfDomain;
};

// The kinds of accounts, by the first character of PROP_ACCOUNTTYPE.
enum AccountType { kDomainAccount = 0, kLocalAccount = 1, kNoAccount = -1 };

AccountType ReadAccountType(MSIHANDLE session) {
  HeapStringW type(ReadPropertyW(session, L"PROP_ACCOUNTTYPE"));
  if (!type) return kNoAccount;
  switch (type.get()[0] - L'0') {
    case kDomainAccount:
      return kDomainAccount;
    case kLocalAccount:
      return kLocalAccount;
    default:
      return kNoAccount;
  }
}

DWORD CreateLocalAccount(const NewAccount& account, const wchar_t* fullName) {
  USER_INFO_2 user = {};
  user.usri2_name = account.name.get();
  user.usri2_password = const_cast<wchar_t*>(account.password.text);
  user.usri2_priv = USER_PRIV_USER;
  user.usri2_flags = UF_SCRIPT | UF_NORMAL_ACCOUNT;
  user.usri2_full_name = const_cast<wchar_t*>(fullName);
  user.usri2_acct_expires = TIMEQ_FOREVER;
  user.usri2_max_storage = USER_MAXSTORAGE_UNLIMITED;
  return AddLocalUser(&user);
}

// Creates the account in the domain's directory. Returns 0 or the code of the failure. The strings are passed
// as plain pointers, without a copy as system strings.
DWORD CreateDomainAccount(const NewAccount& account, const wchar_t* fullName) {
  ComPtr<IADsContainer> container(OpenDomainContainer(account.domain));
  // On purpose: if there is no container and no error, the account counts as created.
  if (!container) return GetLastError();
  ComPtr<IDispatch> object;
  HRESULT result = container->Create(AsItStands(kUserClass), AsItStands(account.name.get()), object.put());
  if (!object.keep(result)) {
    // On purpose: the container is not released after this failure.
    container.release();
    return static_cast<DWORD>(result);
  }
  ComPtr<IADsUser> user;
  result = object->QueryInterface(kUserId, user.putVoid());
  if (!user.keep(result)) {
    // On purpose: the container and the object are not released after this failure.
    container.release();
    object.release();
    return static_cast<DWORD>(result);
  }
  // On purpose: failures to set the password and the full name are ignored. The account counts as created.
  user->SetPassword(AsItStands(account.password.text));
  user->put_FullName(AsItStands(fullName));
  result = user->SetInfo();
  user.reset();
  object.reset();
  container.reset();
  return FAILED(result) ? static_cast<DWORD>(result) : 0;
}

// Creates the account. Returns 0, or the code of the network or of the directory, which it logs.
DWORD CreateAccount(MSIHANDLE session, const NewAccount& account) {
  if (account.isOfDomain) {
    LogSetupMessage(session, "creating domain service account %ls\\%ls", account.domain, account.name.get());
  } else {
    LogSetupMessage(session, "creating local service account %ls", account.name.get());
  }
  HeapStringW description(ReadPropertyW(session, L"PROP_ACCOUNTDESC"));
  const wchar_t* fullName = description ? description.get() : account.name.get();
  DWORD code =
      account.isOfDomain ? CreateDomainAccount(account, fullName) : CreateLocalAccount(account, fullName);
  if (code) LogSetupMessage(session, "failure %ld (0x%08lX) adding account", code, code);
  return code;
}

// Grants the right to log on as a service in this computer's policy. Returns the status of the step that
// failed, or of the last one.
NTSTATUS AddLogonRight(void* sid) {
  LSA_OBJECT_ATTRIBUTES attributes = {};
  LSA_HANDLE policy;
  NTSTATUS status = LsaOpenPolicy(nullptr, &attributes, POLICY_ALL_ACCESS, &policy);
  if (status < 0) return status;
  LSA_UNICODE_STRING right = {};
  right.Length = kLogonRightLength;
  right.MaximumLength = sizeof kLogonRight;
  right.Buffer = const_cast<wchar_t*>(kLogonRight);
  status = LsaAddAccountRights(policy, sid, &right, 1);
  LsaClose(policy);
  return status;
}

// Grants the account the right to log on as a service, on this computer also for a domain account. Returns
// false on failure.
bool GrantLogonRight(const NewAccount& account) {
  NetworkName controller;
  if (account.isOfDomain &&
      !controller.keep(FindDomainController(account.domain, controller.put()) == NERR_Success)) {
    return false;
  }
  HeapBlock<void> sid(LookUpAccountSid(controller.get(), account.name.get()));
  controller.reset();
  if (!sid) return false;
  NTSTATUS status = AddLogonRight(sid.get());
  sid.reset();
  return LsaNtStatusToWinError(status) == ERROR_SUCCESS;
}

void RegisterPrincipalNames(MSIHANDLE session, const NewAccount& account) {
  LogSetupMessage(session, "adding service principal name");
  HeapStringW name(static_cast<wchar_t*>(HeapAllocZero(kDistinguishedNameSize * sizeof(wchar_t))));
  if (!name) return;
  if (!GetAccountDistinguishedName(account.domain, account.name.get(), name.get())) {
    LogSetupMessage(session, "distinguished name not found");
    return;
  }
  DWORD code = UpdatePackagePrincipalNames(session, name.get(), kAddPrincipalNames);
  if (code == 0) {
    LogSetupMessage(session, "added service principal name for %ls", name.get());
  } else {
    LogSetupMessage(session, "failure %ld (0x%08lX) adding service principal name for %ls", code, code,
                    name.get());
  }
}

void PublishLocalDomain(MSIHANDLE session) {
  wchar_t computer[kComputerNameSize];
  DWORD size = kComputerNameSize;
  MsiSetPropertyW(session, L"PROP_ACCOUNTDOMAIN",
                  GetComputerNameW(computer, &size) ? computer : kThisComputer);
}

// Sets the properties of the account and makes it usable for a service. Failures are only logged.
void EquipAccount(MSIHANDLE session, const NewAccount& account) {
  MsiSetPropertyW(session, L"PROP_ACCOUNTNAME", account.name.get());
  MsiSetPropertyW(session, L"PROP_ACCOUNTPASS", account.password.text);
  if (!GrantLogonRight(account)) LogSetupMessage(session, "could not grant right to logon as service");
  if (account.isOfDomain) {
    MsiSetPropertyW(session, L"PROP_ACCOUNTDOMAIN", account.domain);
    RegisterPrincipalNames(session, account);
  } else {
    PublishLocalDomain(session);
  }
}

// Creates the account and everything that it needs. Returns false if the account could not be created.
bool MakeAccount(MSIHANDLE session, AccountType type) {
  NewAccount account;
  account.name.reset(ReadPropertyW(session, L"PROP_ACCOUNTID"));
  if (!account.name) return false;
  HRESULT chance = GenerateAccountPassword(&account.password);
  if (FAILED(chance)) {
    LogSetupMessage(session, "failure %ld (0x%08lX) adding account", chance, chance);
    return false;
  }
  // If the name of the domain or workgroup is not available, a local account is created.
  account.isOfDomain = type == kDomainAccount && GetWorkstationDomain(account.domain) > 0;
  if (CreateAccount(session, account) != 0) return false;
  EquipAccount(session, account);
  return true;
}

void PublishNoAccount(MSIHANDLE session) {
  LogSetupMessage(session, "no service account, using LocalSystem");
  MsiSetPropertyW(session, L"PROP_ACCOUNTDOMAIN", L"");
  MsiSetPropertyW(session, L"PROP_ACCOUNTNAME", L"");
  MsiSetPropertyW(session, L"PROP_ACCOUNTPASS", L"");
}

}  // namespace

extern "C" UINT WINAPI CustomAction23(MSIHANDLE session) {
  if (IsRollback(session)) return CustomAction24(session);
  AccountType type = ReadAccountType(session);
  if (type != kNoAccount) {
    if (MakeAccount(session, type)) return ERROR_SUCCESS;
    SendNotice(session, &kNotCreated);
  }
  PublishNoAccount(session);
  return ERROR_SUCCESS;
}
