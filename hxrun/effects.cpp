#include "hxrun/effects.h"

#include <aclapi.h>
#include <lm.h>
#include <ntsecapi.h>
#include <sddl.h>
#include <taskschd.h>

#include <algorithm>

#include "hxrun/com_objects.h"
#include "rig/print.h"

namespace hxrun {
namespace {

using rig::ToUtf8;
using rig::ToWide;

template <class T>
T Pointer(const Call& call, int index) {
  return reinterpret_cast<T>(static_cast<uintptr_t>(call.words[index]));
}

std::wstring WideText(const Call& call, int index) {
  auto* text = Pointer<const wchar_t*>(call, index);
  return text == nullptr ? std::wstring() : std::wstring(text);
}

std::wstring FullPath(const std::wstring& path) {
  DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  std::wstring full(size, L'\0');
  size = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
  full.resize(size);
  return full.empty() ? path : full;
}

std::string PathText(const Call& call, int index) {
  return ToUtf8(FullPath(WideText(call, index)));
}

std::string Number(uint64_t value) {
  return std::to_string(static_cast<uint32_t>(value));
}

// ---- files

template <int... Indices>
Subjects Files(const Call& call) {
  return {FileSubject(WideText(call, Indices))...};
}

Subjects File8(const Call& call) {
  return {FileSubject(ToWide(call.Narrow(0)))};
}

Subjects OpenFileOf(const Call& call) {
  return {"file:" + Lower(call.Name(kFileName, 0))};
}

// A look-up of one name, or the listing of a folder: "list:" before the folder.
Subjects Found(const Call& call) {
  const std::wstring path = WideText(call, 0);
  const size_t backslash = path.find_last_of(L"\\/");
  const std::wstring name = backslash == std::wstring::npos ? path : path.substr(backslash + 1);
  if (name.find_first_of(L"*?") == std::wstring::npos) return {FileSubject(path)};
  return {"list:" + FileSubject(backslash == std::wstring::npos ? L"." : path.substr(0, backslash + 1))};
}

// What a look at the path finds, as an error of Windows.
DWORD ErrorAt(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES ? GetLastError() : DWORD{ERROR_SUCCESS};
}

std::optional<uint64_t> Failed(DWORD error) {
  if (error == ERROR_SUCCESS) return std::nullopt;
  SetLastError(error);
  return 0;
}

// The error of a path whose parent folder must exist, and which must not exist itself.
DWORD ErrorOfNew(const std::wstring& path) {
  const DWORD error = ErrorAt(path);
  if (error == ERROR_SUCCESS) return ERROR_ALREADY_EXISTS;
  return error == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SUCCESS} : error;
}

std::optional<uint64_t> NewFolderRefused(const Call& call) {
  return Failed(ErrorOfNew(WideText(call, 0)));
}

std::optional<uint64_t> FileMissing(const Call& call) {
  const std::wstring path = WideText(call, 0);
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return Failed(GetLastError());
  const bool isWrong = (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) != 0;
  return Failed(isWrong ? ERROR_ACCESS_DENIED : ERROR_SUCCESS);
}

std::optional<uint64_t> FolderMissing(const Call& call) {
  const DWORD attributes = GetFileAttributesW(WideText(call, 0).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return Failed(GetLastError());
  return Failed((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ? ERROR_DIRECTORY : ERROR_SUCCESS);
}

std::optional<uint64_t> MoveRefused(const Call& call) {
  const DWORD error = ErrorAt(WideText(call, 0));
  return Failed(error != ERROR_SUCCESS ? error : ErrorOfNew(WideText(call, 1)));
}

std::optional<uint64_t> CopyRefused(const Call& call) {
  const DWORD error = ErrorAt(WideText(call, 0));
  if (error != ERROR_SUCCESS) return Failed(error);
  const DWORD target = ErrorOfNew(WideText(call, 1));
  if (target != ERROR_ALREADY_EXISTS) return Failed(target);
  return Failed(call.words[2] != 0 ? ERROR_FILE_EXISTS : ERROR_SUCCESS);
}

std::string Moves(const Call& call) {
  return "move " + PathText(call, 0) + " to " + PathText(call, 1);
}

std::string Replaces(const Call& call) {
  return Moves(call) + ", in place of what is there";
}

std::string Copies(const Call& call) {
  return "copy " + PathText(call, 0) + " to " + PathText(call, 1);
}

bool OpensForWriting(const Call& call) {
  const auto access = static_cast<DWORD>(call.words[1]);
  const auto disposition = static_cast<DWORD>(call.words[4]);
  constexpr DWORD kWrites = GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA | DELETE;
  return disposition != OPEN_EXISTING && (disposition != OPEN_ALWAYS || (access & kWrites) != 0);
}

void FillWritten(const Call& call) {
  if (auto* written = Pointer<DWORD*>(call, 3)) *written = static_cast<DWORD>(call.words[2]);
}

std::string Writes(const Call& call) {
  const std::string bytes =
      rig::PrintCounted(call.words[1], static_cast<int64_t>(call.words[2]), 1, /*text=*/false);
  return "write " + Number(call.words[2]) + " bytes to " + call.Name(kFileName, 0) + ": " + bytes;
}

// ---- the registry

std::string KeyPath(const Call& call, bool isWide) {
  const std::string below = isWide ? call.Wide(1) : call.Narrow(1);
  return call.Name(kKeyName, 0) + (below.empty() ? "" : "\\" + below);
}

template <bool kIsWide>
Subjects KeyBelow(const Call& call) {
  return {"key:" + Lower(KeyPath(call, kIsWide))};
}

template <bool kIsWide>
Subjects ValueOf(const Call& call) {
  const std::string name = kIsWide ? call.Wide(1) : call.Narrow(1);
  return {"value:" + Lower(call.Name(kKeyName, 0) + "\\" + name)};
}

std::string DataText(const Call& call, bool isWide) {
  const auto type = static_cast<DWORD>(call.words[3]);
  const auto size = static_cast<DWORD>(call.words[5]);
  if (type == REG_DWORD && size == sizeof(DWORD) && call.words[4] != 0) {
    return Number(*Pointer<const DWORD*>(call, 4));
  }
  if ((type == REG_SZ || type == REG_EXPAND_SZ) && isWide && call.words[4] != 0) {
    std::wstring_view text(Pointer<const wchar_t*>(call, 4), size / sizeof(wchar_t));
    return rig::Quote(text.substr(0, text.find(L'\0')));
  }
  if ((type == REG_SZ || type == REG_EXPAND_SZ) && call.words[4] != 0) {
    std::string_view text(Pointer<const char*>(call, 4), size);
    return rig::Quote(text.substr(0, text.find('\0')));
  }
  return rig::PrintCounted(call.words[4], size, 1, /*text=*/false);
}

template <bool kIsWide>
std::string SetsValue(const Call& call) {
  return "set the value " + (kIsWide ? call.Wide(1) : call.Narrow(1)) + " of " + call.Name(kKeyName, 0) +
         " to " + DataText(call, kIsWide);
}

template <bool kIsWide>
std::string DeletesKey(const Call& call) {
  return "delete the key " + KeyPath(call, kIsWide);
}

// RegDeleteKey deletes no key that is missing, and none with keys in it.
std::optional<uint64_t> KeyRefused(const Call& call, bool isWide) {
  HKEY key;
  auto* parent = Pointer<HKEY>(call, 0);
  LSTATUS error = isWide ? RegOpenKeyExW(parent, Pointer<const wchar_t*>(call, 1), 0, KEY_READ, &key)
                         : RegOpenKeyExA(parent, Pointer<const char*>(call, 1), 0, KEY_READ, &key);
  if (error != ERROR_SUCCESS) return static_cast<uint64_t>(error);
  DWORD keys = 0;
  error = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr, nullptr);
  RegCloseKey(key);
  if (error == ERROR_SUCCESS && keys != 0) error = ERROR_ACCESS_DENIED;
  return error == ERROR_SUCCESS ? std::nullopt : std::optional<uint64_t>(error);
}

template <bool kIsWide>
std::optional<uint64_t> KeyNotDeleted(const Call& call) {
  return KeyRefused(call, kIsWide);
}

std::optional<uint64_t> ValueMissing(const Call& call) {
  const LSTATUS error = RegQueryValueExA(Pointer<HKEY>(call, 0), Pointer<const char*>(call, 1), nullptr,
                                         nullptr, nullptr, nullptr);
  return error == ERROR_FILE_NOT_FOUND ? std::optional<uint64_t>(error) : std::nullopt;
}

// ---- services, windows, processes

Subjects Service(const Call& call) {
  return {"service:" + Lower(call.Name(kServiceName, 0))};
}

Subjects ServiceConfiguration(const Call& call) {
  return {"configuration:" + Lower(call.Name(kServiceName, 0))};
}

Subjects AnyService(const Call&) {
  return {"any:service:"};
}

std::string ControlsService(const Call& call) {
  const std::string name = call.Name(kServiceName, 0);
  const auto control = static_cast<DWORD>(call.words[1]);
  return control == SERVICE_CONTROL_STOP ? "stop the service " + name
                                         : "send control " + Number(control) + " to the service " + name;
}

bool IsRealControl(const Call& call) {
  return static_cast<DWORD>(call.words[1]) != SERVICE_CONTROL_INTERROGATE;
}

void FillStatus(const Call& call) {
  if (auto* status = Pointer<SERVICE_STATUS*>(call, 2)) *status = {};
}

// The windows of a class and title.
Subjects WindowsOf(const Call& call) {
  return {"window:" + Lower(call.Narrow(0) + " \"" + call.Narrow(1) + "\"")};
}

Subjects Window(const Call& call) {
  return {"window:" + Lower(call.Name(kWindowName, 0))};
}

std::string SendsMessage(const Call& call) {
  const auto message = static_cast<UINT>(call.words[1]);
  const std::string window = " the window " + call.Name(kWindowName, 0);
  if (message == WM_CLOSE) return "close" + window;
  return "send message " + rig::HexText(message) + " (" + rig::HexText(call.words[2]) + ", " +
         rig::HexText(call.words[3]) + ") to" + window;
}

Subjects ProcessOf(const Call& call) {
  return {"process:" + Lower(call.Name(kProcessName, 0))};
}

Subjects AnyProcess(const Call&) {
  return {"any:process:"};
}

std::string EndsProcess(const Call& call) {
  return "end the process " + call.Name(kProcessName, 0);
}

// ---- accounts and rights

Subjects AnyAccount(const Call&) {
  return {"any:account:"};
}

Subjects NewAccount(const Call& call) {
  auto* user = Pointer<const USER_INFO_2*>(call, 2);
  return {"account:" + Lower(ToUtf8(user->usri2_name))};
}

std::string AddsAccount(const Call& call) {
  auto* user = Pointer<const USER_INFO_2*>(call, 2);
  const std::string fullName =
      user->usri2_full_name == nullptr ? std::string() : ToUtf8(user->usri2_full_name);
  return "create the account " + ToUtf8(user->usri2_name) + (fullName.empty() ? "" : " (" + fullName + ")") +
         " with a new password";
}

std::optional<uint64_t> AccountRefused(const Call& call) {
  auto* user = Pointer<const USER_INFO_2*>(call, 2);
  void* found = nullptr;
  if (NetUserGetInfo(nullptr, user->usri2_name, 0, reinterpret_cast<BYTE**>(&found)) != NERR_Success) {
    return std::nullopt;
  }
  NetApiBufferFree(found);
  return NERR_UserExists;
}

Subjects AccountNamed(const Call& call) {
  return {"account:" + Lower(call.Wide(1))};
}

std::string DeletesAccount(const Call& call) {
  return "delete the account " + call.Wide(1);
}

std::optional<uint64_t> AccountMissing(const Call& call) {
  void* found = nullptr;
  const DWORD error =
      NetUserGetInfo(nullptr, Pointer<const wchar_t*>(call, 1), 0, reinterpret_cast<BYTE**>(&found));
  if (error == NERR_Success) NetApiBufferFree(found);
  return error == NERR_UserNotFound ? std::optional<uint64_t>(error) : std::nullopt;
}

std::string SidText(void* sid) {
  wchar_t* text = nullptr;
  if (sid == nullptr || !ConvertSidToStringSidW(sid, &text)) return "an account";
  std::string result = ToUtf8(text);
  LocalFree(text);
  return result;
}

std::string GrantsRights(const Call& call) {
  std::string rights;
  auto* given = Pointer<const LSA_UNICODE_STRING*>(call, 2);
  for (uint32_t index = 0; index < static_cast<uint32_t>(call.words[3]); ++index) {
    rights += (index == 0 ? "" : ", ") +
              ToUtf8(std::wstring_view(given[index].Buffer, given[index].Length / sizeof(wchar_t)));
  }
  return "give " + SidText(Pointer<void*>(call, 1)) + " the right " + rights;
}

std::string AccessText(PACL list) {
  SECURITY_DESCRIPTOR descriptor;
  wchar_t* text = nullptr;
  if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
      !SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE) ||
      !ConvertSecurityDescriptorToStringSecurityDescriptorW(&descriptor, SDDL_REVISION_1,
                                                            DACL_SECURITY_INFORMATION, &text, nullptr)) {
    return "another one";
  }
  std::string result = ToUtf8(text);
  LocalFree(text);
  return result;
}

std::string ReplacesAccess(const Call& call) {
  return "replace the access list of " + PathText(call, 0) + " by " + AccessText(Pointer<PACL>(call, 5));
}

std::string WritesPrincipalNames(const Call& call) {
  std::string names;
  auto* given = Pointer<const wchar_t* const*>(call, 4);
  for (uint32_t index = 0; index < static_cast<uint32_t>(call.words[3]); ++index) {
    names += " " + ToUtf8(given[index]);
  }
  // DS_SPN_ADD_SPN_OP is 0.
  return std::string(static_cast<uint32_t>(call.words[1]) == 0 ? "add" : "delete") +
         " the service principal names of " + call.Wide(2) + ":" + names;
}

std::string InstallsSection(const Call& call) {
  return "run the section of a setup information file: " + call.Narrow(2);
}

// ---- COM objects

Subjects TaskNamed(const Call& call) {
  return {"task:" + Lower(call.Wide(0))};
}

Subjects TaskFolderNamed(const Call& call) {
  return {"taskfolder:" + Lower(call.Wide(0))};
}

// The task may be missing.
std::optional<uint64_t> TaskMissing(const Call& call) {
  IRegisteredTask* task = nullptr;
  const HRESULT result =
      static_cast<ITaskFolder*>(CalledObject())->GetTask(Pointer<wchar_t*>(call, 0), &task);
  if (FAILED(result)) return static_cast<uint32_t>(result);
  task->Release();
  return std::nullopt;
}

Subjects NewException(const Call& call) {
  return {"exception:" + Lower(ToUtf8(ExceptionKey(Pointer<void*>(call, 0))))};
}

void FillFolder(const Call& call) {
  *Pointer<void**>(call, 2) = UnmadeObject("ITaskFolder.CreateFolder");
}

void FillTask(const Call& call) {
  *Pointer<void**>(call, 7) = UnmadeObject("ITaskFolder.RegisterTaskDefinition");
}

void FillRunning(const Call& call) {
  *Pointer<void**>(call, 4) = UnmadeObject("IRegisteredTask.RunEx");
}

Subjects Exception(const Call& call) {
  return {"exception:" + Lower(call.Wide(0))};
}

#define HX_TEXT(head) [](const Call& call) { return std::string(head) + call.Wide(0); }

constexpr Effect kKeeps = Effect::kKeeps, kChanges = Effect::kChanges;

// One row for each function of the rig's tables and for each method of the objects that hxrun passes on.
const Row kRows[] = {
    // Files and folders.
    {"CreateDirectoryW", kChanges, nullptr, Files<0>, HX_TEXT("create the folder "), nullptr,
     NewFolderRefused},
    {"RemoveDirectoryW", kChanges, nullptr, Files<0>, HX_TEXT("delete the folder "), nullptr, FolderMissing},
    {"DeleteFileW", kChanges, Files<0>, Files<0>, HX_TEXT("delete "), nullptr, FileMissing},
    {"MoveFileW", kChanges, Files<0>, Files<0, 1>, Moves, nullptr, MoveRefused},
    {"MoveFileExW", kChanges, Files<0>, Files<0, 1>, Replaces},
    {"CopyFileW", kChanges, Files<0>, Files<1>, Copies, nullptr, CopyRefused},
    {"SetFileAttributesW", kChanges, Files<0>, Files<0>, HX_TEXT("change the attributes of ")},
    {"CreateFileW", kChanges, Files<0>, Files<0>, HX_TEXT("create or empty "), OpensForWriting},
    {"CreateFileA", kChanges, File8, File8,
     [](const Call& call) { return "create or empty " + call.Narrow(0); }, OpensForWriting},
    {"WriteFile", kChanges, nullptr, OpenFileOf, Writes, nullptr, nullptr, FillWritten},
    {"SetEndOfFile", kChanges, nullptr, OpenFileOf,
     [](const Call& call) { return "cut " + call.Name(kFileName, 0) + " at its current position"; }},
    {"ReadFile", kKeeps, OpenFileOf},
    {"SetFilePointer", kKeeps},
    {"GetFileAttributesW", kKeeps, Files<0>},
    {"FindFirstFileW", kKeeps, Found},
    {"FindNextFileW", kKeeps},
    {"FindClose", kKeeps},
    {"GetFullPathNameW", kKeeps},
    {"GetWindowsDirectoryA", kKeeps},
    {"GetWindowsDirectoryW", kKeeps},
    {"GetSystemWindowsDirectoryW", kKeeps},
    {"GetSystemDirectoryW", kKeeps},
    {"GetCurrentDirectoryW", kKeeps},
    {"GetTempPathW", kKeeps},
    {"CloseHandle", kKeeps},
    {"GetPrivateProfileIntA", kKeeps},
    {"GetPrivateProfileStringA", kKeeps},

    // The registry.
    {"RegSetValueExA", kChanges, nullptr, ValueOf<false>, SetsValue<false>},
    {"RegSetValueExW", kChanges, nullptr, ValueOf<true>, SetsValue<true>},
    {"RegDeleteKeyA", kChanges, KeyBelow<false>, KeyBelow<false>, DeletesKey<false>, nullptr,
     KeyNotDeleted<false>},
    {"RegDeleteKeyW", kChanges, KeyBelow<true>, KeyBelow<true>, DeletesKey<true>, nullptr,
     KeyNotDeleted<true>},
    {"RegDeleteValueA", kChanges, ValueOf<false>, ValueOf<false>,
     [](const Call& call) { return "delete the value " + call.Narrow(1) + " of " + call.Name(kKeyName, 0); },
     nullptr, ValueMissing},
    {"SHDeleteKey", kChanges, nullptr, KeyBelow<false>, DeletesKey<false>},
    {"RegOpenKeyExA", kKeeps, KeyBelow<false>},
    {"RegOpenKeyExW", kKeeps, KeyBelow<true>},
    {"RegQueryValueExA", kKeeps, ValueOf<false>},
    {"RegQueryValueExW", kKeeps, ValueOf<true>},
    {"RegCloseKey", kKeeps},

    // Services.
    {"ControlService", kChanges, Service, Service, ControlsService, IsRealControl, nullptr, FillStatus},
    {"StartServiceA", kChanges, Service, Service,
     [](const Call& call) { return "start the service " + call.Name(kServiceName, 0); }},
    {"ChangeServiceConfig2A", kChanges, nullptr, ServiceConfiguration,
     [](const Call& call) {
       return "change the failure actions of the service " + call.Name(kServiceName, 0);
     }},
    {"QueryServiceStatus", kKeeps, Service},
    {"QueryServiceConfigA", kKeeps, ServiceConfiguration},
    {"QueryServiceConfigW", kKeeps, ServiceConfiguration},
    {"QueryServiceConfig2A", kKeeps, ServiceConfiguration},
    {"OpenSCManagerA", kKeeps},
    {"OpenServiceA", kKeeps},
    {"OpenServiceW", kKeeps},
    {"CloseServiceHandle", kKeeps},

    // Windows, processes and sessions. A privilege is enabled for this process only.
    {"SendMessageA", kChanges, nullptr, Window, SendsMessage},
    {"PostMessageA", kChanges, nullptr, Window, SendsMessage},
    {"FindWindowA", kKeeps, WindowsOf},
    {"TerminateProcess", kChanges, nullptr, ProcessOf, EndsProcess},
    {"WaitForSingleObject", kKeeps, ProcessOf},
    {"OpenProcess", kKeeps},
    {"QueryFullProcessImageNameW", kKeeps, ProcessOf},
    {"GetCurrentProcess", kKeeps},
    {"IsWow64Process", kKeeps},
    {"LookupPrivilegeValueA", kKeeps},
    {"OpenProcessToken", kKeeps},
    {"AdjustTokenPrivileges", kKeeps},
    {"WTSEnumerateProcessesW", kKeeps, AnyProcess},
    {"WTSEnumerateSessionsW", kKeeps},
    {"WTSQuerySessionInformationW", kKeeps},
    {"WTSFreeMemory", kKeeps},
    {"MessageBoxA", kKeeps},
    {"wsprintfW", kKeeps},

    // Accounts, rights, access lists and the directory.
    {"NetUserAdd", kChanges, nullptr, NewAccount, AddsAccount, nullptr, AccountRefused},
    {"NetUserDel", kChanges, AccountNamed, AccountNamed, DeletesAccount, nullptr, AccountMissing},
    {"LsaAddAccountRights", kChanges, nullptr, nullptr, GrantsRights},
    {"SetNamedSecurityInfoW", kChanges, Files<0>, Files<0>, ReplacesAccess},
    {"DsWriteAccountSpnW", kChanges, nullptr, nullptr, WritesPrincipalNames},
    {"NetUserGetInfo", kKeeps, AnyAccount},
    {"NetWkstaGetInfo", kKeeps},
    {"NetGetDCName", kKeeps},
    {"NetApiBufferFree", kKeeps},
    {"LookupAccountNameW", kKeeps, AnyAccount},
    {"LookupAccountSidW", kKeeps, AnyAccount},
    {"CreateWellKnownSid", kKeeps},
    {"GetTokenInformation", kKeeps},
    {"GetComputerNameW", kKeeps},
    {"GetComputerNameExW", kKeeps},
    {"LsaOpenPolicy", kKeeps},
    {"LsaClose", kKeeps},
    {"LsaNtStatusToWinError", kKeeps},
    {"SetEntriesInAclW", kKeeps},
    {"ADsGetObject", kKeeps, AnyAccount},
    {"DsGetSpnW", kKeeps},
    {"DsBindW", kKeeps},
    {"DsUnBindW", kKeeps},
    {"DsFreeSpnArrayW", kKeeps},

    // The setup library.
    {"InstallHinfSectionA", kChanges, nullptr, nullptr, InstallsSection},

    // The installer's session, which hxrun answers.
    {"MsiCloseHandle", kKeeps},
    {"MsiCreateRecord", kKeeps},
    {"MsiGetMode", kKeeps},
    {"MsiGetPropertyA", kKeeps},
    {"MsiGetPropertyW", kKeeps},
    {"MsiProcessMessage", kKeeps},
    {"MsiRecordSetInteger", kKeeps},
    {"MsiRecordSetStringA", kKeeps},
    {"MsiRecordSetStringW", kKeeps},
    {"MsiSetInternalUI", kKeeps},
    {"MsiSetPropertyA", kKeeps},
    {"MsiSetPropertyW", kKeeps},

    // The process: memory, errors, modules, text, time.
    {"GetProcessHeap", kKeeps},
    {"HeapAlloc", kKeeps},
    {"HeapReAlloc", kKeeps},
    {"HeapFree", kKeeps},
    {"HeapSize", kKeeps},
    {"LocalFree", kKeeps},
    {"GetLastError", kKeeps},
    {"SetLastError", kKeeps},
    {"SetErrorMode", kKeeps},
    {"DisableThreadLibraryCalls", kKeeps},
    {"GetModuleHandleA", kKeeps},
    {"GetModuleHandleW", kKeeps},
    {"LoadLibraryA", kKeeps},
    {"LoadLibraryW", kKeeps},
    {"FreeLibrary", kKeeps},
    {"GetProcAddress", kKeeps},
    {"GetModuleFileNameW", kKeeps},
    {"MultiByteToWideChar", kKeeps},
    {"WideCharToMultiByte", kKeeps},
    {"CompareStringA", kKeeps},
    {"CompareStringOrdinal", kKeeps},
    {"CompareStringW", kKeeps},
    {"GetLocaleInfoA", kKeeps},
    {"GetLocaleInfoW", kKeeps},
    {"GetDateFormatW", kKeeps},
    {"GetTimeFormatW", kKeeps},
    {"GetACP", kKeeps},
    {"GetUserDefaultLCID", kKeeps},
    {"GetTickCount", kKeeps},
    {"GetLocalTime", kKeeps},
    {"GetSystemTime", kKeeps},
    {"GetTimeZoneInformation", kKeeps},
    {"GetVersion", kKeeps},
    {"GetVersionExA", kKeeps},
    {"Sleep", kKeeps},
    {"CommandLineToArgvW", kKeeps},
    // The folders are asked for without a flag that creates them.
    {"SHGetKnownFolderPath", kKeeps},
    {"SHGetFolderPathA", kKeeps},
    {"SHGetFolderPathW", kKeeps},

    // COM.
    {"CoInitializeEx", kKeeps},
    {"CoUninitialize", kKeeps},
    {"CoCreateInstance", kKeeps, AnyService},
    {"CoCreateGuid", kKeeps},
    {"CoTaskMemFree", kKeeps},
    {"SysAllocString", kKeeps},
    {"SysFreeString", kKeeps},
    {"SysStringLen", kKeeps},
    {"VariantInit", kKeeps},

    // The Task Scheduler. A definition is in memory until it is registered.
    {"ITaskService.Connect", kKeeps},
    {"ITaskService.GetFolder", kKeeps},
    {"ITaskService.NewTask", kKeeps},
    {"ITaskFolder.GetFolder", kKeeps, TaskFolderNamed},
    {"ITaskFolder.GetTask", kKeeps, TaskNamed},
    {"ITaskFolder.CreateFolder", kChanges, nullptr, TaskFolderNamed,
     HX_TEXT("create the folder of the Task Scheduler "), nullptr, nullptr, FillFolder},
    {"ITaskFolder.DeleteFolder", kChanges, nullptr, TaskFolderNamed,
     [](const Call& call) {
       return "delete the folder of the Task Scheduler " + call.Wide(0) + ", if no task is in it";
     }},
    {"ITaskFolder.DeleteTask", kChanges, TaskNamed, TaskNamed, HX_TEXT("delete the task "), nullptr,
     TaskMissing},
    {"ITaskFolder.RegisterTaskDefinition", kChanges, nullptr, TaskNamed, HX_TEXT("register the task "),
     nullptr, nullptr, FillTask},
    // A folder that a dry run did not create: no task is in it.
    {"new ITaskFolder.DeleteTask", kKeeps},
    {"new ITaskFolder.RegisterTaskDefinition", kChanges, nullptr, TaskNamed, HX_TEXT("register the task "),
     nullptr, nullptr, FillTask},
    {"IRegisteredTask.get_State", kKeeps},
    {"IRegisteredTask.get_Path", kKeeps},
    {"IRegisteredTask.RunEx", kChanges, nullptr, nullptr,
     [](const Call& call) {
       return "run the task for the user " + call.Wide(3) + " in session " + Number(call.words[2]);
     },
     nullptr, nullptr, FillRunning},
    {"ITaskDefinition.get_RegistrationInfo", kKeeps},
    {"ITaskDefinition.get_Settings", kKeeps},
    {"ITaskDefinition.get_Triggers", kKeeps},
    {"ITaskDefinition.get_Principal", kKeeps},
    {"ITaskDefinition.get_Actions", kKeeps},
    {"IRegistrationInfo.put_Author", kKeeps},
    {"ITaskSettings.put_StartWhenAvailable", kKeeps},
    {"ITaskSettings.put_MultipleInstances", kKeeps},
    {"ITaskSettings.put_AllowDemandStart", kKeeps},
    {"ITaskSettings.put_AllowHardTerminate", kKeeps},
    {"ITaskSettings.put_DisallowStartIfOnBatteries", kKeeps},
    {"ITaskSettings.put_StopIfGoingOnBatteries", kKeeps},
    {"ITaskSettings.put_RunOnlyIfNetworkAvailable", kKeeps},
    {"ITaskSettings.put_ExecutionTimeLimit", kKeeps},
    {"ITaskSettings.get_IdleSettings", kKeeps},
    {"IIdleSettings.put_WaitTimeout", kKeeps},
    {"ITriggerCollection.Create", kKeeps},
    {"IDailyTrigger.put_Id", kKeeps},
    {"IDailyTrigger.put_StartBoundary", kKeeps},
    {"IDailyTrigger.put_ExecutionTimeLimit", kKeeps},
    {"IDailyTrigger.put_DaysInterval", kKeeps},
    {"IDailyTrigger.put_RandomDelay", kKeeps},
    {"ILogonTrigger.put_Id", kKeeps},
    {"ILogonTrigger.put_StartBoundary", kKeeps},
    {"ILogonTrigger.put_UserId", kKeeps},
    {"IPrincipal.put_RunLevel", kKeeps},
    {"IActionCollection.Create", kKeeps},
    {"IExecAction.put_Path", kKeeps},
    {"IExecAction.put_Arguments", kKeeps},

    // Task Scheduler 1.0. A work item is in memory until it is saved.
    {"ITaskScheduler.NewWorkItem", kKeeps},
    {"ITaskScheduler.Delete", kChanges, nullptr, nullptr, HX_TEXT("delete the work item ")},
    {"ITask.SetApplicationName", kKeeps},
    {"ITask.SetParameters", kKeeps},
    {"ITask.SetMaxRunTime", kKeeps},
    {"ITask.SetAccountInformation", kKeeps},
    {"ITask.CreateTrigger", kKeeps},
    {"ITaskTrigger.SetTrigger", kKeeps},
    {"IPersistFile.Save", kChanges, nullptr, nullptr,
     [](const Call&) { return std::string("save the work item"); }},

    // The firewall. A rule is in memory until it is added; one that was there is changed at once.
    {"INetFwPolicy2.get_Rules", kKeeps},
    {"INetFwPolicy2.get_FirewallEnabled", kKeeps},
    {"INetFwRules.Item", kKeeps, Exception},
    {"INetFwRules.Add", kChanges, nullptr, NewException,
     [](const Call&) { return std::string("add the rule to the firewall"); }},
    {"INetFwRules.Remove", kChanges, nullptr, Exception, HX_TEXT("remove from the firewall the rule ")},
    {"INetFwRule.put_Name", kKeeps},
    {"INetFwRule.put_ApplicationName", kKeeps},
    {"INetFwRule.put_Grouping", kKeeps},
    {"INetFwRule.put_Description", kKeeps},
    {"INetFwRule.put_Direction", kKeeps},
    {"INetFwRule.put_Action", kKeeps},
    {"INetFwRule.put_Protocol", kKeeps},
    {"INetFwRule.put_Profiles", kKeeps},
    {"INetFwRule.put_Enabled", kKeeps},
    {"existing INetFwRule.get_ApplicationName", kKeeps},
    {"existing INetFwRule.get_Enabled", kKeeps},
    {"existing INetFwRule.put_Name", kChanges, nullptr, nullptr, HX_TEXT("rename the firewall's rule to ")},
    {"existing INetFwRule.put_ApplicationName", kChanges, nullptr, nullptr,
     HX_TEXT("give the firewall's rule the program ")},
    {"existing INetFwRule.put_Grouping", kChanges, nullptr, nullptr,
     HX_TEXT("give the firewall's rule the group ")},
    {"existing INetFwRule.put_Description", kChanges, nullptr, nullptr,
     HX_TEXT("give the firewall's rule the description ")},
    {"INetFwMgr.get_LocalPolicy", kKeeps},
    {"INetFwPolicy.get_CurrentProfile", kKeeps},
    {"INetFwProfile.get_AuthorizedApplications", kKeeps},
    {"INetFwProfile.get_FirewallEnabled", kKeeps},
    {"INetFwProfile.get_ExceptionsNotAllowed", kKeeps},
    {"INetFwAuthorizedApplications.Item", kKeeps, Exception},
    {"INetFwAuthorizedApplications.Add", kChanges, nullptr, NewException,
     [](const Call&) { return std::string("add the program to the firewall's exceptions"); }},
    {"INetFwAuthorizedApplications.Remove", kChanges, nullptr, Exception,
     HX_TEXT("remove from the firewall's exceptions the program ")},
    {"INetFwAuthorizedApplication.put_ProcessImageFileName", kKeeps},
    {"INetFwAuthorizedApplication.put_Name", kKeeps},
    {"INetFwAuthorizedApplication.put_Scope", kKeeps},
    {"existing INetFwAuthorizedApplication.get_ProcessImageFileName", kKeeps},
    {"existing INetFwAuthorizedApplication.get_Enabled", kKeeps},
    {"existing INetFwAuthorizedApplication.put_ProcessImageFileName", kChanges, nullptr, nullptr,
     HX_TEXT("give the firewall's exception the program ")},
    {"existing INetFwAuthorizedApplication.put_Name", kChanges, nullptr, nullptr,
     HX_TEXT("rename the firewall's exception to ")},

    // The directory. A new user is in memory until it is saved.
    {"IADsContainer.Create", kKeeps},
    // The headers rename the method GetObject to this.
    {"IADsContainer.GetObjectA", kKeeps, AnyAccount},
    {"IADsContainer.Delete", kChanges, nullptr, AnyAccount,
     [](const Call& call) { return "delete from the domain the account " + call.Wide(1); }},
    {"IADsUser.SetPassword", kChanges, nullptr, AnyAccount,
     [](const Call&) { return std::string("set the password of the new account of the domain"); }},
    {"IADsUser.put_FullName", kKeeps},
    {"IADsUser.SetInfo", kChanges, nullptr, AnyAccount,
     [](const Call&) { return std::string("create the account in the domain"); }},
    {"IADsNameTranslate.Init", kKeeps},
    {"IADsNameTranslate.Set", kKeeps},
    {"IADsNameTranslate.Get", kKeeps, AnyAccount},
};

#undef HX_TEXT

}  // namespace

std::string Call::Wide(int index) const {
  return ToUtf8(WideText(*this, index));
}

std::string Call::Narrow(int index) const {
  return Text(Pointer<const char*>(*this, index));
}

std::string Call::Text(const char* text) {
  if (text == nullptr) return {};
  const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
  std::wstring wide(static_cast<size_t>(size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(), size);
  wide.resize(wide.empty() ? 0 : wide.size() - 1);
  return ToUtf8(wide);
}

std::string Call::Name(char kind, int index) const {
  auto found = names.find({kind, words[index]});
  if (found != names.end()) return found->second;
  return kind == kKeyName ? rig::HandleText({}, words[index]) : rig::HexText(words[index]);
}

const Row* FindRow(const std::string& name) {
  static const std::map<std::string, const Row*> rows = [] {
    std::map<std::string, const Row*> all;
    for (const Row& row : kRows) all[row.name] = &row;
    return all;
  }();
  auto found = rows.find(name);
  return found == rows.end() ? nullptr : found->second;
}

std::string CheckEffects() {
  std::string wrong;
  rig::declarations::ForEach([&](const rig::Declaration& declaration) {
    if (FindRow(declaration.Name()) == nullptr) {
      wrong += declaration.Name() + ": nothing says whether it changes the machine\n";
    }
  });
  for (const Row& row : kRows) {
    if ((row.effect == Effect::kChanges) != (row.describe != nullptr)) {
      wrong += std::string(row.name) + ": only a change has a description, and every change has one\n";
    }
  }
  return wrong;
}

std::string FileSubject(const std::wstring& path) {
  std::wstring full = FullPath(path);
  if (full.rfind(L"\\\\?\\", 0) == 0) full.erase(0, 4);
  while (full.size() > 1 && full.back() == L'\\') full.pop_back();
  return "file:" + Lower(ToUtf8(full));
}

std::string Lower(const std::string& text) {
  std::wstring wide = ToWide(text);
  CharLowerBuffW(wide.data(), static_cast<DWORD>(wide.size()));
  return ToUtf8(wide);
}

}  // namespace hxrun
