// The accounts of the computer and of its domain, the rights of accounts, and the directory.

#include "answers/accounts.h"

#include "answers/fake_object.h"
#include "answers/installer.h"
#include "image.h"
#include "require.h"
#include "world.h"

#include <iads.h>
#include <lm.h>
#include <ntdsapi.h>
#include <ntsecapi.h>
#include <objbase.h>

namespace {

constexpr size_t kPasswordLength = 20;
constexpr std::u16string_view kProvider = u"WinNT://";

// An account that the run makes. An account of the computer has no domain.
struct Account {
  std::u16string name, domain, password;
  bool isMade = false;
};
Account made;

// A usual name, or one of any form that is at most `most` characters long, without a zero character.
std::u16string TakeName(const char16_t* usual, uint32_t most) {
  if (world.data.Below(4)) return usual;
  std::u16string text = world.data.Wide(most);
  text.resize(std::min(text.find(u'\0'), text.size()));
  return text;
}

void CheckMade(std::u16string_view name) {
  REQUIRE(name == PropertyOf(u"PROP_ACCOUNTID"), "the account %s is made, which nobody asked for",
          NarrowOf(name).c_str());
}

void CheckPassword(std::u16string_view password) {
  REQUIRE(password.size() == kPasswordLength, "an account gets a password of %zu characters",
          password.size());
}

// Only the account that the installer made may be deleted.
void CheckDeleted(std::u16string_view name) {
  REQUIRE(!name.empty() && IsSameName(name, PropertyOf(u"PROP_ACCOUNTID")),
          "the account %s is deleted, which the installer did not make", NarrowOf(name).c_str());
}

// ---- accounts of the computer

// After a few tries the password has characters of all classes, so that the library finds an end.
int guids;

HRESULT WINAPI AnswerCoCreateGuid(GUID* guid) {
  if (MustFail()) return E_FAIL;
  constexpr int kTries = 3;
  constexpr uint8_t kAllClasses[sizeof *guid] = {0,    0, 0x40, 0,    0, 0x98, 0,    0,
                                                 0xEC, 0, 0,    0xFF, 0, 0,    0x2C, 0};
  if (guids++ < kTries) {
    *guid = world.data.Take<GUID>();
  } else {
    memcpy(guid, kAllClasses, sizeof *guid);
  }
  return S_OK;
}

// Now and then a success without data or without a name, or a long name.
// NOLINTNEXTLINE(readability-non-const-parameter): this is the signature of Windows.
NET_API_STATUS WINAPI AnswerNetWkstaGetInfo(LPWSTR server, DWORD level, LPBYTE* out) {
  constexpr DWORD kLevel = 100;
  REQUIRE(!server && level == kLevel, "another workstation is asked for");
  if (MustFail()) return ERROR_ACCESS_DENIED;
  const uint32_t kind = world.data.Below(16);
  *out = nullptr;
  if (kind == 1) return NERR_Success;
  std::u16string name = TakeName(u"DOMAIN", 100);
  if (kind == 3) name.append(world.data.Byte(), u'x');
  const size_t size = (name.size() + 1) * sizeof(wchar_t);
  auto* info = static_cast<WKSTA_INFO_100*>(NewBlock(Kind::kBuffer, sizeof(WKSTA_INFO_100) + size));
  memcpy(info + 1, name.c_str(), size);
  info->wki100_langroup = kind == 2 ? nullptr : reinterpret_cast<LPWSTR>(info + 1);
  *out = reinterpret_cast<LPBYTE>(info);
  return NERR_Success;
}

// NOLINTNEXTLINE(readability-non-const-parameter): this is the signature of Windows.
NET_API_STATUS WINAPI AnswerNetUserAdd(LPCWSTR server, DWORD level, LPBYTE bytes, LPDWORD) {
  const auto* user = reinterpret_cast<const USER_INFO_2*>(bytes);
  REQUIRE(!server && level == 2, "an account is added to another computer");
  CheckMade(ViewOf(user->usri2_name));
  CheckPassword(ViewOf(user->usri2_password));
  ViewOf(user->usri2_full_name);
  if (MustFail()) return NERR_UserExists;
  made = {std::u16string(ViewOf(user->usri2_name)), u"", std::u16string(ViewOf(user->usri2_password)), true};
  return NERR_Success;
}

NET_API_STATUS WINAPI AnswerNetUserGetInfo(LPCWSTR server, LPCWSTR name, DWORD level, LPBYTE* out) {
  REQUIRE(!server && level == 1 && !ViewOf(name).empty(), "an account of another computer is asked for");
  if (MustFail() || world.data.Below(4) == 0) return NERR_UserNotFound;
  *out = static_cast<LPBYTE>(NewBlock(Kind::kBuffer, sizeof(USER_INFO_1)));
  return NERR_Success;
}

NET_API_STATUS WINAPI AnswerNetUserDel(LPCWSTR server, LPCWSTR name) {
  REQUIRE(!server, "an account of another computer is deleted");
  CheckDeleted(ViewOf(name));
  return MustFail() ? DWORD{ERROR_ACCESS_DENIED} : DWORD{NERR_Success};
}

BOOL WINAPI AnswerGetComputerNameW(LPWSTR buffer, LPDWORD count) {
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  const std::u16string name = TakeName(u"PC7", 20);
  if (name.size() >= *count) return WithError(ERROR_BUFFER_OVERFLOW, FALSE);
  memcpy(buffer, name.c_str(), (name.size() + 1) * sizeof(wchar_t));
  *count = static_cast<DWORD>(name.size());
  return TRUE;
}

// ---- the rights of accounts

constexpr auto kRefused = static_cast<NTSTATUS>(0xC0000022);

NTSTATUS WINAPI AnswerLsaOpenPolicy(PLSA_UNICODE_STRING system, PLSA_OBJECT_ATTRIBUTES, ACCESS_MASK,
                                    PLSA_HANDLE policy) {
  REQUIRE(!system, "the policy of another computer is opened");
  if (MustFail()) return kRefused;
  *policy = NewHandle(Kind::kPolicy);
  return 0;
}

NTSTATUS WINAPI AnswerLsaAddAccountRights(LSA_HANDLE policy, PSID sid, PLSA_UNICODE_STRING rights,
                                          ULONG count) {
  NeedHeld(Kind::kPolicy, policy);
  NeedHeld(Kind::kBlock, sid);
  REQUIRE(count == 1 && ViewOf(rights->Buffer).size() * sizeof(wchar_t) == rights->Length,
          "%u rights are added", count);
  return MustFail() ? kRefused : 0;
}

NTSTATUS WINAPI AnswerLsaClose(LSA_HANDLE policy) {
  GaveBack(Kind::kPolicy, policy);
  return 0;
}

ULONG WINAPI AnswerLsaNtStatusToWinError(NTSTATUS status) {
  return status < 0 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

// ---- the directory

// The container that was opened last, and its domain. On purpose, the library does not release the container
// if the directory refuses a new user, nor the user.
FakeObject* container;
std::u16string domainOfContainer;
// The user that is being made.
Account newUser;

HRESULT IMAGE_ABI AnswerUserInterface(FakeObject* object, REFIID id, void** user) {
  const HRESULT result = AnswerSameObject(object, id, user);
  if (FAILED(result)) {
    LoseOnPurpose(object);
    LoseOnPurpose(container);
  }
  return result;
}

HRESULT IMAGE_ABI AnswerSetPassword(FakeObject* object, BSTR password) {
  CheckPassword(ViewOf(password));
  const HRESULT result = AnswerPutText(object, password);
  if (SUCCEEDED(result)) newUser.password = ViewOf(password);
  return result;
}

HRESULT IMAGE_ABI AnswerSetInfo(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  made = newUser;
  made.isMade = true;
  return S_OK;
}

const Table& UserTable() {
  static const Table kTable = Table()
                                  .SetQuery(&AnswerUserInterface)
                                  .Set(&IADsUser::SetPassword, &AnswerSetPassword)
                                  .Set(&IADsUser::put_FullName, &AnswerPutAnyText)
                                  .Set(&IADsUser::SetInfo, &AnswerSetInfo);
  return kTable;
}

HRESULT IMAGE_ABI AnswerGetUser(FakeObject* object, BSTR kind, BSTR name, void** user) {
  NeedHeld(Kind::kReference, object);
  REQUIRE(ViewOf(kind) == u"user", "an object of another class is asked for");
  ViewOf(name);
  return Give(UserTable(), user);
}

HRESULT IMAGE_ABI AnswerCreateUser(FakeObject* object, BSTR kind, BSTR name, void** user) {
  CheckMade(ViewOf(name));
  newUser = {std::u16string(ViewOf(name)), domainOfContainer, u"", false};
  const HRESULT result = AnswerGetUser(object, kind, name, user);
  if (FAILED(result)) LoseOnPurpose(object);
  return result;
}

HRESULT IMAGE_ABI AnswerDeleteUser(FakeObject* object, BSTR kind, BSTR name) {
  REQUIRE(ViewOf(kind) == u"user", "an object of another class is deleted");
  CheckDeleted(ViewOf(name));
  return AnswerPutText(object, name);
}

const Table& ContainerTable() {
  static const Table kTable = Table()
                                  .Set(&IADsContainer::GetObject, &AnswerGetUser)
                                  .Set(&IADsContainer::Create, &AnswerCreateUser)
                                  .Set(&IADsContainer::Delete, &AnswerDeleteUser);
  return kTable;
}

HRESULT WINAPI AnswerADsGetObject(LPCWSTR path, REFIID, void** object) {
  const std::u16string_view text = ViewOf(path);
  REQUIRE(text.size() > kProvider.size() && text.substr(0, kProvider.size()) == kProvider,
          "the container %s is asked for", NarrowOf(text).c_str());
  domainOfContainer = text.substr(kProvider.size());
  const HRESULT result = Hand(ContainerTable(), object);
  if (SUCCEEDED(result)) container = static_cast<FakeObject*>(*object);
  return result;
}

HRESULT IMAGE_ABI AnswerSetName(FakeObject* object, LONG, BSTR name) {
  return AnswerPutText(object, name);
}

// Now and then no name, or one that is longer than any that the library keeps.
HRESULT IMAGE_ABI AnswerTranslate(FakeObject* object, LONG, BSTR* name) {
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  const uint32_t kind = world.data.Below(8);
  std::u16string text = TakeName(u"CN=user,CN=Users,DC=example", 255);
  if (kind == 1) text.append(world.data.Below(3000), u'x');
  *name = kind ? MakeString(text) : nullptr;
  return S_OK;
}

const Table& NameTranslateTable() {
  static const Table kTable =
      Table().Set(&IADsNameTranslate::Set, &AnswerSetName).Set(&IADsNameTranslate::Get, &AnswerTranslate);
  return kTable;
}

// Now and then a list without names, or no list.
DWORD WINAPI AnswerDsGetSpnW(DS_SPN_NAME_TYPE, LPCWSTR serviceClass, LPCWSTR, USHORT, USHORT, LPCWSTR*,
                             const USHORT*, DWORD* count, LPWSTR** names) {
  REQUIRE(!ViewOf(serviceClass).empty(), "names without a class are asked for");
  if (MustFail()) return ERROR_NO_SUCH_DOMAIN;
  *count = world.data.Below(3);
  *names = *count || world.data.Flag()
               ? static_cast<LPWSTR*>(NewBlock(Kind::kNames, (*count + 1) * sizeof(LPWSTR)))
               : nullptr;
  return ERROR_SUCCESS;
}

void WINAPI AnswerDsFreeSpnArrayW(DWORD, LPWSTR* names) {
  if (names) FreeBlock(Kind::kNames, names);
}

DWORD WINAPI AnswerDsBindW(LPCWSTR, LPCWSTR, HANDLE* directory) {
  if (MustFail()) return ERROR_NO_SUCH_DOMAIN;
  *directory = NewHandle(Kind::kBinding);
  return ERROR_SUCCESS;
}

DWORD WINAPI AnswerDsUnBindW(HANDLE* directory) {
  GaveBack(Kind::kBinding, *directory);
  *directory = nullptr;
  return ERROR_SUCCESS;
}

DWORD WINAPI AnswerDsWriteAccountSpnW(HANDLE directory, DS_SPN_WRITE_OP, LPCWSTR account, DWORD count,
                                      LPCWSTR* names) {
  NeedHeld(Kind::kBinding, directory);
  NeedHeld(Kind::kNames, names);
  REQUIRE(count && !ViewOf(account).empty(), "%u names of services are written", count);
  return MustFail() ? DWORD{ERROR_ACCESS_DENIED} : DWORD{ERROR_SUCCESS};
}

void Reset() {
  made = newUser = {};
  guids = 0;
  container = nullptr;
  domainOfContainer.clear();
}

const FakeClass kNameTranslateClass(0x274FAE1F, &NameTranslateTable);
const AtBegin kReset(Reset);
const Answers kAccounts{
    {"ADsGetObject", reinterpret_cast<void*>(&AnswerADsGetObject)},
    ANSWER(CoCreateGuid, AnswerCoCreateGuid),
    ANSWER(DsBindW, AnswerDsBindW),
    ANSWER(DsFreeSpnArrayW, AnswerDsFreeSpnArrayW),
    ANSWER(DsGetSpnW, AnswerDsGetSpnW),
    ANSWER(DsUnBindW, AnswerDsUnBindW),
    ANSWER(DsWriteAccountSpnW, AnswerDsWriteAccountSpnW),
    ANSWER(GetComputerNameW, AnswerGetComputerNameW),
    ANSWER(LsaAddAccountRights, AnswerLsaAddAccountRights),
    ANSWER(LsaClose, AnswerLsaClose),
    ANSWER(LsaNtStatusToWinError, AnswerLsaNtStatusToWinError),
    ANSWER(LsaOpenPolicy, AnswerLsaOpenPolicy),
    ANSWER(NetUserAdd, AnswerNetUserAdd),
    ANSWER(NetUserDel, AnswerNetUserDel),
    ANSWER(NetUserGetInfo, AnswerNetUserGetInfo),
    ANSWER(NetWkstaGetInfo, AnswerNetWkstaGetInfo),
};

void CheckProperty(const char16_t* name, const std::u16string& value) {
  REQUIRE(PropertyOf(name) == value, "an account is made, but %s is \"%s\", not \"%s\"",
          NarrowOf(name).c_str(), NarrowOf(PropertyOf(name)).c_str(), NarrowOf(value).c_str());
}

}  // namespace

void CheckNewAccount() {
  if (!made.isMade || HasFailed()) return;
  CheckProperty(u"PROP_ACCOUNTNAME", made.name);
  CheckProperty(u"PROP_ACCOUNTPASS", made.password);
  // The domain of an account of the computer is any name of the computer.
  if (!made.domain.empty()) CheckProperty(u"PROP_ACCOUNTDOMAIN", made.domain);
}
