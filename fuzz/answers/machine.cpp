// The rest of a machine: registry, services, windows, modules, folders, accounts and access lists. What they
// answer is taken from the data of the run when it is first asked for.

#include "answers/machine.h"

#include "image.h"
#include "require.h"
#include "world.h"

#include <accctrl.h>
#include <aclapi.h>
#include <lm.h>
#include <shlobj.h>

namespace {

constexpr DWORD kLargestValue = 300;

// ---- registry

// A value: its bytes, which may be a text without a terminator.
struct Value {
  bool exists;
  DWORD type;
  std::string bytes;
};
std::map<std::string, Value> values;

Value& ValueOf(LPCSTR name) {
  auto found = values.find(name);
  if (found != values.end()) return found->second;
  constexpr DWORD kTypes[] = {REG_SZ, REG_SZ, REG_SZ, REG_DWORD, REG_BINARY, REG_MULTI_SZ};
  Value value{world.data.Below(8) != 0, world.data.OneOf(kTypes), {}};
  value.bytes = world.data.Flag() ? world.data.Text(60) : world.data.TextOf(world.data.Below(kLargestValue));
  if (world.data.Flag()) value.bytes.push_back('\0');
  return values[name] = value;
}

LSTATUS WINAPI AnswerRegOpenKeyExA(HKEY, LPCSTR path, DWORD, REGSAM, PHKEY key) {
  REQUIRE(strlen(path) < 256, "the path of a key is too long");
  if (MustFail() || world.data.Below(8) == 0) return ERROR_FILE_NOT_FOUND;
  *key = static_cast<HKEY>(NewHandle(Kind::kKey));
  return ERROR_SUCCESS;
}

LSTATUS WINAPI AnswerRegCloseKey(HKEY key) {
  GaveBack(Kind::kKey, key);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI AnswerRegQueryValueExA(HKEY key, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE bytes,
                                      LPDWORD count) {
  NeedHeld(Kind::kKey, key);
  if (MustFail()) return ERROR_ACCESS_DENIED;
  Value& value = ValueOf(name);
  if (!value.exists) return ERROR_FILE_NOT_FOUND;
  // Somebody else changes the value between two questions.
  if (!bytes && world.data.Below(16) == 1) {
    *count = static_cast<DWORD>(value.bytes.size());
    value.bytes += "more";
    if (type) *type = value.type;
    return ERROR_SUCCESS;
  }
  if (type) *type = value.type;
  const DWORD capacity = std::exchange(*count, static_cast<DWORD>(value.bytes.size()));
  if (!bytes) return ERROR_SUCCESS;
  constexpr int kRubbish = 0xA5;
  if (capacity < value.bytes.size()) {
    memset(bytes, kRubbish, capacity);
    return ERROR_MORE_DATA;
  }
  std::copy(value.bytes.begin(), value.bytes.end(), bytes);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI AnswerRegSetValueExA(HKEY key, LPCSTR name, DWORD, DWORD type, const BYTE* bytes, DWORD size) {
  NeedHeld(Kind::kKey, key);
  // Read to its last byte.
  std::string copy(reinterpret_cast<const char*>(bytes), size);
  REQUIRE(type == REG_DWORD ? size == sizeof(DWORD) : type == REG_SZ, "the value %s is set with the type %u",
          name, type);
  if (MustFail()) return ERROR_ACCESS_DENIED;
  values[name] = {true, type, copy};
  return ERROR_SUCCESS;
}

LSTATUS WINAPI AnswerRegDeleteValueA(HKEY key, LPCSTR name) {
  NeedHeld(Kind::kKey, key);
  if (MustFail()) return ERROR_ACCESS_DENIED;
  values[name].exists = false;
  return ERROR_SUCCESS;
}

LSTATUS WINAPI AnswerRegDeleteKeyA(HKEY, LPCSTR) {
  return MustFail() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

DWORD WINAPI AnswerSHDeleteKeyA(HKEY, LPCSTR) {
  return MustFail() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

UINT WINAPI AnswerGetPrivateProfileIntA(LPCSTR, LPCSTR, INT, LPCSTR) {
  return world.data.Below(4);
}

DWORD WINAPI AnswerGetPrivateProfileStringA(LPCSTR, LPCSTR, LPCSTR, LPSTR buffer, DWORD size, LPCSTR) {
  std::string text = world.data.TextOf(world.data.Below(kLargestValue));
  text.resize(std::min<size_t>(strlen(text.c_str()), size - 1));
  memcpy(buffer, text.c_str(), text.size() + 1);
  return static_cast<DWORD>(text.size());
}

// ---- services

SC_HANDLE OpenServiceObject() {
  if (MustFail() || world.data.Below(8) == 0) return WithError(ERROR_ACCESS_DENIED, nullptr);
  return static_cast<SC_HANDLE>(NewHandle(Kind::kService));
}

SC_HANDLE WINAPI AnswerOpenSCManagerA(LPCSTR, LPCSTR, DWORD) {
  return OpenServiceObject();
}

SC_HANDLE WINAPI AnswerOpenServiceA(SC_HANDLE manager, LPCSTR, DWORD) {
  NeedHeld(Kind::kService, manager);
  return OpenServiceObject();
}

SC_HANDLE WINAPI AnswerOpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD) {
  NeedHeld(Kind::kService, manager);
  ViewOf(name);
  return OpenServiceObject();
}

BOOL WINAPI AnswerCloseServiceHandle(SC_HANDLE handle) {
  GaveBack(Kind::kService, handle);
  return TRUE;
}

BOOL AnswerState(SC_HANDLE service, LPSERVICE_STATUS status) {
  NeedHeld(Kind::kService, service);
  if (MustFail()) return WithError(ERROR_SERVICE_NOT_ACTIVE, FALSE);
  *status = {};
  status->dwCurrentState = 1 + world.data.Below(7);
  return TRUE;
}

BOOL WINAPI AnswerControlService(SC_HANDLE service, DWORD, LPSERVICE_STATUS status) {
  return AnswerState(service, status);
}

BOOL WINAPI AnswerQueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status) {
  return AnswerState(service, status);
}

BOOL WINAPI AnswerStartServiceA(SC_HANDLE service, DWORD, LPCSTR*) {
  NeedHeld(Kind::kService, service);
  return MustFail() ? WithError(ERROR_ACCESS_DENIED, FALSE) : TRUE;
}

// The account of the service: the same for all questions of a run.
std::u16string account;
bool hasAccount;

// Delivers a configuration: the structure and after it the account's name.
template <typename Configuration, typename Text, typename Unit>
BOOL DeliverConfiguration(SC_HANDLE service, Configuration* configuration, DWORD size, LPDWORD needed,
                          const Text& name, Unit* Configuration::* member) {
  NeedHeld(Kind::kService, service);
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  *needed = static_cast<DWORD>(sizeof(Configuration) + (name.size() + 1) * sizeof(Unit));
  if (size < *needed) return WithError(ERROR_INSUFFICIENT_BUFFER, FALSE);
  constexpr int kRubbish = 0xA5;
  memset(configuration, kRubbish, sizeof *configuration);
  memcpy(configuration + 1, name.c_str(), (name.size() + 1) * sizeof(Unit));
  configuration->*member = hasAccount ? reinterpret_cast<Unit*>(configuration + 1) : nullptr;
  return TRUE;
}

void ChooseAccount() {
  static constexpr const char16_t* kAccounts[] = {u"LocalSystem", u"localservice", u".\\user",
                                                  u"DOMAIN\\user", u"\\x"};
  if (hasAccount || !account.empty()) return;
  hasAccount = world.data.Below(8) != 0;
  account = world.data.Flag() ? world.data.OneOf(kAccounts) : world.data.Wide(60);
  account.resize(std::min(account.find(u'\0'), account.size()));
}

BOOL WINAPI AnswerQueryServiceConfigA(SC_HANDLE service, LPQUERY_SERVICE_CONFIGA configuration, DWORD size,
                                      LPDWORD needed) {
  ChooseAccount();
  return DeliverConfiguration(service, configuration, size, needed, NarrowOf(account),
                              &QUERY_SERVICE_CONFIGA::lpServiceStartName);
}

BOOL WINAPI AnswerQueryServiceConfigW(SC_HANDLE service, LPQUERY_SERVICE_CONFIGW configuration, DWORD size,
                                      LPDWORD needed) {
  ChooseAccount();
  return DeliverConfiguration(service, configuration, size, needed, account,
                              &QUERY_SERVICE_CONFIGW::lpServiceStartName);
}

BOOL WINAPI AnswerQueryServiceConfig2A(SC_HANDLE service, DWORD, LPBYTE bytes, DWORD size, LPDWORD needed) {
  NeedHeld(Kind::kService, service);
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  *needed = sizeof(SERVICE_FAILURE_ACTIONSA) + sizeof(SC_ACTION);
  if (size < *needed) return WithError(ERROR_INSUFFICIENT_BUFFER, FALSE);
  auto* actions = reinterpret_cast<SERVICE_FAILURE_ACTIONSA*>(bytes);
  *actions = {};
  actions->cActions = world.data.Below(2);
  actions->lpsaActions = reinterpret_cast<SC_ACTION*>(actions + 1);
  return TRUE;
}

BOOL WINAPI AnswerChangeServiceConfig2A(SC_HANDLE service, DWORD, LPVOID info) {
  NeedHeld(Kind::kService, service);
  const auto* actions = static_cast<const SERVICE_FAILURE_ACTIONSA*>(info);
  REQUIRE(!actions->cActions && actions->lpsaActions, "the failure actions are changed, not removed");
  return MustFail() ? WithError(ERROR_ACCESS_DENIED, FALSE) : TRUE;
}

// ---- windows

HWND WINAPI AnswerFindWindowA(LPCSTR, LPCSTR) {
  // Most windows are closed.
  return world.data.Below(8) == 1 ? reinterpret_cast<HWND>(0x77) : nullptr;
}

LRESULT WINAPI AnswerSendMessageA(HWND, UINT, WPARAM, LPARAM) {
  return 0;
}

BOOL WINAPI AnswerPostMessageA(HWND, UINT, WPARAM, LPARAM) {
  return !MustFail();
}

int WINAPI AnswerMessageBoxA(HWND, LPCSTR text, LPCSTR title, UINT) {
  REQUIRE(*text && *title, "a message box has no text or no title");
  return IDOK;
}

// ---- modules

// The modules, each with a fixed place. A module that is loaded twice is held once.
constexpr const char* kModules[] = {"KERNEL32", "OLE32",    "ADVAPI32", "SHELL32", "SHFOLDER",
                                    "SHLWAPI",  "SETUPAPI", "NETAPI32", "USER32",  "MSI",
                                    "WTSAPI32", "ACTIVEDS", "NTDSAPI"};
// The first ones are loaded before the library is.
constexpr size_t kLoadedBefore = 4;
std::map<void*, size_t> loads;
// The functions that were found in each module.
std::map<void*, std::set<std::string>> functions;

HMODULE PlaceOf(std::string name) {
  if (name.size() > 4 && !strcasecmp(name.c_str() + name.size() - 4, ".dll")) name.resize(name.size() - 4);
  for (size_t i = 0; i < std::size(kModules); ++i) {
    if (!strcasecmp(kModules[i], name.c_str())) return reinterpret_cast<HMODULE>(0x500000000 + (i << 16));
  }
  return nullptr;
}

bool IsLoadedBefore(HMODULE module) {
  return reinterpret_cast<uintptr_t>(module) - 0x500000000 < (kLoadedBefore << 16);
}

HMODULE LoadModule(const std::string& name) {
  REQUIRE(world.mode & SEM_FAILCRITICALERRORS,
          "a module is loaded while message boxes of Windows may appear");
  HMODULE module = PlaceOf(name);
  if (MustFail() || !module) return WithError(ERROR_MOD_NOT_FOUND, nullptr);
  if (!loads[module]++) Took(Kind::kModule, module);
  return module;
}

HMODULE WINAPI AnswerLoadLibraryA(LPCSTR name) {
  return LoadModule(name);
}

HMODULE WINAPI AnswerLoadLibraryW(LPCWSTR name) {
  return LoadModule(NarrowOf(ViewOf(name)));
}

BOOL WINAPI AnswerFreeLibrary(HMODULE module) {
  NeedHeld(Kind::kModule, module);
  if (!--loads[module]) GaveBack(Kind::kModule, module);
  return TRUE;
}

HMODULE FindModule(const std::string& name) {
  HMODULE module = PlaceOf(name);
  if (MustFail() || !module || (!IsLoadedBefore(module) && !loads[module])) {
    return WithError(ERROR_MOD_NOT_FOUND, nullptr);
  }
  return module;
}

HMODULE WINAPI AnswerGetModuleHandleA(LPCSTR name) {
  return FindModule(name);
}

HMODULE WINAPI AnswerGetModuleHandleW(LPCWSTR name) {
  return FindModule(NarrowOf(ViewOf(name)));
}

// A function that gives something back. On purpose, the library loses that thing if the function is missing.
bool IsAlwaysFound(std::string_view name) {
  return name == "NetApiBufferFree" || name == "DsUnBindW" || name == "DsFreeSpnArrayW";
}

FARPROC WINAPI AnswerGetProcAddress(HMODULE module, LPCSTR name) {
  if (!IsLoadedBefore(module)) NeedHeld(Kind::kModule, module);
  const bool fails = !IsAlwaysFound(name) && MustFail();
  void* answer = fails ? nullptr : FindAnswer(name);
  if (answer) functions[module].insert(name);
  return answer ? reinterpret_cast<FARPROC>(answer) : WithError(ERROR_PROC_NOT_FOUND, nullptr);
}

// ---- folders

// A folder of Windows; now and then one of any form, without a zero character.
std::u16string TakeFolder(const char16_t* usual) {
  if (world.data.Below(4)) return usual;
  std::u16string text = world.data.Wide(250);
  text.resize(std::min(text.find(u'\0'), text.size()));
  return text;
}

UINT WINAPI AnswerGetWindowsDirectoryW(LPWSTR buffer, UINT capacity) {
  return MustFail() ? 0 : DeliverPath(TakeFolder(u"C:\\Windows"), capacity, buffer);
}

UINT WINAPI AnswerGetWindowsDirectoryA(LPSTR buffer, UINT capacity) {
  if (MustFail()) return 0;
  std::string text = NarrowOf(TakeFolder(u"C:\\Windows"));
  if (text.size() >= capacity) return static_cast<UINT>(text.size()) + 1;
  memcpy(buffer, text.c_str(), text.size() + 1);
  return static_cast<UINT>(text.size());
}

UINT WINAPI AnswerGetSystemDirectoryW(LPWSTR buffer, UINT capacity) {
  return MustFail() ? 0 : DeliverPath(u"C:\\Windows\\System32", capacity, buffer);
}

UINT WINAPI AnswerGetSystemWindowsDirectoryW(LPWSTR buffer, UINT capacity) {
  return MustFail() ? 0 : DeliverPath(TakeFolder(u"C:\\Windows"), capacity, buffer);
}

DWORD WINAPI AnswerGetTempPathW(DWORD capacity, LPWSTR buffer) {
  return MustFail() ? 0 : DeliverPath(TakeFolder(u"C:\\Temp\\"), capacity, buffer);
}

DWORD WINAPI AnswerGetModuleFileNameW(HMODULE, LPWSTR buffer, DWORD capacity) {
  return MustFail() ? 0 : DeliverPath(u"C:\\Windows\\System32\\msiexec.exe", capacity, buffer);
}

HRESULT WINAPI AnswerSHGetFolderPathW(HWND, int, HANDLE, DWORD, LPWSTR buffer) {
  if (MustFail()) return E_FAIL;
  static constexpr const char16_t* kFolders[] = {u"C:\\Program Files (x86)", u"C:\\folder", u"C:\\a\\b",
                                                 u"C:\\current"};
  DeliverPath(TakeFolder(world.data.OneOf(kFolders)), MAX_PATH, buffer);
  return S_OK;
}

HRESULT WINAPI AnswerSHGetFolderPathA(HWND, int, HANDLE, DWORD, LPSTR buffer) {
  if (MustFail()) return E_FAIL;
  std::string text = NarrowOf(TakeFolder(u"C:\\ProgramData"));
  text.resize(std::min<size_t>(text.size(), MAX_PATH - 1));
  memcpy(buffer, text.c_str(), text.size() + 1);
  return S_OK;
}

// ---- versions and names

DWORD version;

DWORD WINAPI AnswerGetVersion() {
  constexpr DWORD kVersions[] = {10, 6, 0x105, 5, 4, 0x80000004, 3};
  if (!version) version = world.data.OneOf(kVersions);
  return version;
}

WINBOOL WINAPI AnswerGetVersionExA(LPOSVERSIONINFOA info) {
  REQUIRE(info->dwOSVersionInfoSize == sizeof(OSVERSIONINFOEXA), "GetVersionExA is called with another size");
  if (MustFail()) return FALSE;
  info->dwMajorVersion = AnswerGetVersion() & 0xFF;
  info->dwMinorVersion = AnswerGetVersion() >> 8 & 0xFF;
  info->dwBuildNumber = 9200;
  return TRUE;
}

BOOL WINAPI AnswerGetComputerNameExW(COMPUTER_NAME_FORMAT, LPWSTR buffer, LPDWORD count) {
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  const DWORD length = DeliverPath(u"DOMAIN", *count, buffer);
  const bool fits = length < *count;
  *count = length;
  return fits ? TRUE : WithError(ERROR_MORE_DATA, FALSE);
}

HANDLE WINAPI AnswerGetCurrentProcess() {
  return reinterpret_cast<HANDLE>(-1);
}

BOOL WINAPI AnswerIsWow64Process(HANDLE, PBOOL isWow64) {
  if (MustFail()) return FALSE;
  *isWow64 = world.data.Flag();
  return TRUE;
}

// ---- accounts and access lists

NET_API_STATUS WINAPI AnswerNetGetDCName(LPCWSTR, LPCWSTR domain, LPBYTE* name) {
  ViewOf(domain);
  if (MustFail() || world.data.Below(4) == 0) return NERR_DCNotFound;
  constexpr char16_t kController[] = u"\\\\controller";
  *name = static_cast<LPBYTE>(NewBlock(Kind::kBuffer, sizeof kController));
  memcpy(*name, kController, sizeof kController);
  return NERR_Success;
}

NET_API_STATUS WINAPI AnswerNetApiBufferFree(LPVOID block) {
  FreeBlock(Kind::kBuffer, block);
  return NERR_Success;
}

// Asks for more space as long as the data of the run say so.
BOOL WINAPI AnswerLookupAccountNameW(LPCWSTR, LPCWSTR name, PSID sid, LPDWORD sidSize, LPWSTR domain,
                                     LPDWORD domainSize, PSID_NAME_USE) {
  ViewOf(name);
  if (MustFail()) return WithError(ERROR_NONE_MAPPED, FALSE);
  constexpr int kAnything = 0x11;
  memset(sid, kAnything, *sidSize);
  memset(domain, kAnything, *domainSize * sizeof(wchar_t));
  const uint8_t choice = world.data.Byte();
  if (choice & 1) return TRUE;
  if (choice & 2) *sidSize = world.data.Below(600);
  if (choice & 4) *domainSize = world.data.Below(600);
  return WithError(choice & 8 ? ERROR_NONE_MAPPED : ERROR_INSUFFICIENT_BUFFER, FALSE);
}

BOOL WINAPI AnswerCreateWellKnownSid(WELL_KNOWN_SID_TYPE, PSID, PSID sid, DWORD* size) {
  if (MustFail()) return FALSE;
  constexpr int kAnything = 0x22;
  memset(sid, kAnything, *size);
  constexpr DWORD kSmallestSid = 12;
  *size = kSmallestSid;
  return TRUE;
}

DWORD WINAPI AnswerSetEntriesInAclW(ULONG count, PEXPLICIT_ACCESS_W entries, PACL, PACL* list) {
  REQUIRE(count == 1 && entries->Trustee.ptstrName, "an access list has %u entries", count);
  if (MustFail()) return ERROR_NOT_ENOUGH_MEMORY;
  constexpr size_t kListSize = 64;
  *list = static_cast<PACL>(NewBlock(Kind::kLocalBlock, kListSize));
  return ERROR_SUCCESS;
}

DWORD WINAPI AnswerSetNamedSecurityInfoW(LPWSTR path, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID, PSID,
                                         PACL list, PACL) {
  NeedHeld(Kind::kLocalBlock, list);
  REQUIRE(!ViewOf(path).empty(), "the access list of a path without text is set");
  return MustFail() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

void WINAPI AnswerInstallHinfSectionA(HWND, HINSTANCE, LPCSTR line, INT) {
  REQUIRE(line, "the setup library is called without a command line");
  (void)strlen(line);
}

void Reset() {
  values.clear();
  account.clear();
  hasAccount = false;
  loads.clear();
  functions.clear();
  version = 0;
}

const AtBegin kReset(Reset);
const Answers kMachine{
    ANSWER(ChangeServiceConfig2A, AnswerChangeServiceConfig2A),
    ANSWER(CloseServiceHandle, AnswerCloseServiceHandle),
    ANSWER(ControlService, AnswerControlService),
    ANSWER(CreateWellKnownSid, AnswerCreateWellKnownSid),
    ANSWER(FindWindowA, AnswerFindWindowA),
    ANSWER(FreeLibrary, AnswerFreeLibrary),
    ANSWER(GetComputerNameExW, AnswerGetComputerNameExW),
    ANSWER(GetCurrentProcess, AnswerGetCurrentProcess),
    ANSWER(GetModuleFileNameW, AnswerGetModuleFileNameW),
    ANSWER(GetModuleHandleA, AnswerGetModuleHandleA),
    ANSWER(GetModuleHandleW, AnswerGetModuleHandleW),
    ANSWER(GetPrivateProfileIntA, AnswerGetPrivateProfileIntA),
    ANSWER(GetPrivateProfileStringA, AnswerGetPrivateProfileStringA),
    ANSWER(GetProcAddress, AnswerGetProcAddress),
    ANSWER(GetSystemDirectoryW, AnswerGetSystemDirectoryW),
    ANSWER(GetSystemWindowsDirectoryW, AnswerGetSystemWindowsDirectoryW),
    ANSWER(GetTempPathW, AnswerGetTempPathW),
    ANSWER(GetVersion, AnswerGetVersion),
    ANSWER(GetVersionExA, AnswerGetVersionExA),
    ANSWER(GetWindowsDirectoryA, AnswerGetWindowsDirectoryA),
    ANSWER(GetWindowsDirectoryW, AnswerGetWindowsDirectoryW),
    {"InstallHinfSectionA", reinterpret_cast<void*>(&AnswerInstallHinfSectionA)},
    ANSWER(IsWow64Process, AnswerIsWow64Process),
    ANSWER(LoadLibraryA, AnswerLoadLibraryA),
    ANSWER(LoadLibraryW, AnswerLoadLibraryW),
    ANSWER(LookupAccountNameW, AnswerLookupAccountNameW),
    ANSWER(MessageBoxA, AnswerMessageBoxA),
    ANSWER(NetApiBufferFree, AnswerNetApiBufferFree),
    ANSWER(NetGetDCName, AnswerNetGetDCName),
    ANSWER(OpenSCManagerA, AnswerOpenSCManagerA),
    ANSWER(OpenServiceA, AnswerOpenServiceA),
    ANSWER(OpenServiceW, AnswerOpenServiceW),
    ANSWER(PostMessageA, AnswerPostMessageA),
    ANSWER(QueryServiceConfig2A, AnswerQueryServiceConfig2A),
    ANSWER(QueryServiceConfigA, AnswerQueryServiceConfigA),
    ANSWER(QueryServiceConfigW, AnswerQueryServiceConfigW),
    ANSWER(QueryServiceStatus, AnswerQueryServiceStatus),
    ANSWER(RegCloseKey, AnswerRegCloseKey),
    ANSWER(RegDeleteKeyA, AnswerRegDeleteKeyA),
    ANSWER(RegDeleteValueA, AnswerRegDeleteValueA),
    ANSWER(RegOpenKeyExA, AnswerRegOpenKeyExA),
    ANSWER(RegQueryValueExA, AnswerRegQueryValueExA),
    ANSWER(RegSetValueExA, AnswerRegSetValueExA),
    {"SHDeleteKey", reinterpret_cast<void*>(&AnswerSHDeleteKeyA)},
    ANSWER(SHGetFolderPathA, AnswerSHGetFolderPathA),
    ANSWER(SHGetFolderPathW, AnswerSHGetFolderPathW),
    ANSWER(SendMessageA, AnswerSendMessageA),
    ANSWER(SetEntriesInAclW, AnswerSetEntriesInAclW),
    ANSWER(SetNamedSecurityInfoW, AnswerSetNamedSecurityInfoW),
    ANSWER(StartServiceA, AnswerStartServiceA),
};

}  // namespace

void KeepModules() {
  // The library keeps some modules for all of their functions, and loads others once for each function.
  constexpr struct {
    const char* name;
    bool isForAll;
  } kKept[] = {{"ADVAPI32", true}, {"NETAPI32", true}, {"WTSAPI32", true}, {"ACTIVEDS", true},
               {"NTDSAPI", true},  {"SHELL32", false}, {"SHFOLDER", false}};
  for (const auto& kept : kKept) {
    HMODULE module = PlaceOf(kept.name);
    const size_t count = std::exchange(loads[module], 0);
    const size_t most = kept.isForAll ? 1 : functions[module].size();
    REQUIRE(count <= most, "%s is loaded %zu times and kept, not %zu times", kept.name, count, most);
    if (count) GaveBack(Kind::kModule, module);
  }
}
