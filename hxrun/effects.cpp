#include "hxrun/effects.h"

#include <aclapi.h>
#include <lm.h>
#include <ntsecapi.h>
#include <sddl.h>

#include <algorithm>

#include "hxrun/com_objects.h"
#include "hxrun/looks.h"
#include "rig/directory_interfaces.h"
#include "rig/print.h"
// These need the interfaces of the directory.
#include <netfw.h>
#include <taskschd.h>

namespace hxrun {
namespace {

using rig::ToUtf8;
using rig::ToWide;

std::string PathText(const Call& call, int index) {
  return ToUtf8(FullPath(WideText(call, index)));
}

// What is touched in one way.
template <Way kWay, Subjects (*kSubjects)(const Call&)>
std::vector<Touch> As(const Call& call) {
  std::vector<Touch> touches;
  for (const std::string& subject : kSubjects(call)) touches.push_back({subject, kWay});
  return touches;
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

// The subjects of a file that the library asks for. Its path may lead through a link that a change deleted or
// moved, so the path as it is written counts, too.
Subjects AskedFor(const std::wstring& path) {
  return {FileSubject(path), WrittenSubject(path)};
}

Subjects AskedFile(const Call& call) {
  return AskedFor(WideText(call, 0));
}

Subjects AskedFile8(const Call& call) {
  return AskedFor(ToWide(call.Narrow(0)));
}

Subjects OpenFileOf(const Call& call) {
  return {FileSubject(ToWide(call.Name(kFileName, 0)))};
}

// A look-up of one name, or the listing of a folder: "list:" before the folder.
Subjects Found(const Call& call) {
  const std::wstring path = WideText(call, 0);
  const std::string folder = SearchedFolder(path);
  if (folder.empty()) return AskedFor(path);
  const std::string entry = WrittenSubject(path);
  return {"list:" + folder, "list:" + entry.substr(0, entry.rfind('\\'))};
}

std::vector<Touch> MovedFiles(const Call& call) {
  return {{FileSubject(WideText(call, 0)), Way::kGone}, {FileSubject(WideText(call, 1)), Way::kOther}};
}

// A copy is read-only if its source is, and then not every later change of it succeeds.
std::vector<Touch> CopiedFile(const Call& call) {
  const std::wstring source = WideText(call, 0);
  size_t change = Changes::kNone;
  const bool isNew = call.changes.StateOf(FileSubject(source), &change) == FileState::kFile;
  const DWORD attributes = GetFileAttributesW(source.c_str());
  const bool isPlain =
      isNew || (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) == 0);
  return {{FileSubject(WideText(call, 1)), isPlain ? Way::kMade : Way::kOther}};
}

// What is put into a folder while its entries are listed may be listed too.
Subjects MadeInSearch(const Call& call) {
  const std::string folder = call.Name(kSearchName, 0);
  return folder.empty() ? Subjects() : Subjects{"made:" + folder};
}

template <int kFile>
Subjects ProfileFile(const Call& call) {
  const std::wstring path = ToWide(call.Narrow(kFile));
  wchar_t windows[MAX_PATH] = {};
  GetWindowsDirectoryW(windows, MAX_PATH);
  const bool isOfWindows = path.find_first_of(L"\\/") == std::wstring::npos;
  return {FileSubject(isOfWindows ? std::wstring(windows) + L"\\" + path : path)};
}

std::string Moves(const Call& call) {
  return "move " + PathText(call, 0) + " to " + PathText(call, 1);
}

std::string Replaces(const Call& call) {
  const std::wstring target = WideText(call, 1);
  size_t change = Changes::kNone;
  const FileState state = call.changes.StateOf(FileSubject(target), &change);
  const bool isThere =
      state == FileState::kFile ||
      (state == FileState::kAsIs && GetFileAttributesW(target.c_str()) != INVALID_FILE_ATTRIBUTES);
  return Moves(call) + (isThere ? ", in place of what is there" : "");
}

std::string Copies(const Call& call) {
  return "copy " + PathText(call, 0) + " to " + PathText(call, 1);
}

bool OpensForWriting(const Call& call) {
  const auto disposition = static_cast<DWORD>(call.words[4]);
  const auto flags = static_cast<DWORD>(call.words[5]);
  return disposition != OPEN_EXISTING || (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0;
}

void FillWritten(const Call& call) {
  if (auto* written = Pointer<DWORD*>(call, 3)) *written = static_cast<DWORD>(call.words[2]);
}

std::string Writes(const Call& call) {
  const std::string bytes =
      rig::PrintCounted(call.words[1], static_cast<int64_t>(call.words[2]), 1, /*text=*/false);
  return "write " + Number(call.words[2]) + " bytes to " + call.Name(kFileName, 0) + ": " + bytes;
}

std::string Cuts(const Call& call) {
  LARGE_INTEGER position = {};
  SetFilePointerEx(Pointer<HANDLE>(call, 0), {}, &position, FILE_CURRENT);
  return "cut " + call.Name(kFileName, 0) + " to " + std::to_string(position.QuadPart) + " bytes";
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

// RegDeleteKey asks for the keys in the key.
template <bool kIsWide>
Subjects KeyAndKeysIn(const Call& call) {
  return {"list:key:" + Lower(KeyPath(call, kIsWide))};
}

// A key takes its values along.
template <bool kIsWide>
std::vector<Touch> DeletedKey(const Call& call) {
  const std::string path = Lower(KeyPath(call, kIsWide));
  return {{"key:" + path, Way::kGone}, {"value:" + path, Way::kGone}};
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

std::string ChangesFailureActions(const Call& call) {
  const std::string of = "the failure actions of the service " + call.Name(kServiceName, 0);
  const auto* actions = Pointer<const SERVICE_FAILURE_ACTIONSA*>(call, 2);
  if (static_cast<DWORD>(call.words[1]) != SERVICE_CONFIG_FAILURE_ACTIONS || actions == nullptr) {
    return "change setting " + Number(call.words[1]) + " of the service " + call.Name(kServiceName, 0);
  }
  if (actions->cActions == 0) return "remove " + of;
  std::string list;
  for (DWORD index = 0; index < actions->cActions && actions->lpsaActions != nullptr; ++index) {
    const SC_ACTION& action = actions->lpsaActions[index];
    list += (index == 0 ? "" : ", ") + Number(action.Type) + " after " + Number(action.Delay) + " ms";
  }
  return "set " + of + " to " + list;
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

Subjects AccountNamed(const Call& call) {
  return {"account:" + Lower(call.Wide(1))};
}

std::string DeletesAccount(const Call& call) {
  return "delete the account " + call.Wide(1);
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

// A section can change anything, so every later answer depends on it.
std::vector<Touch> Anything(const Call&) {
  std::vector<Touch> all;
  for (const char* kind : {"file:", "key:", "value:", "service:", "configuration:"}) {
    all.push_back({std::string("any:") + kind, Way::kOther});
  }
  return all;
}

// ---- COM objects

Subjects TaskNamed(const Call& call) {
  return {"task:" + Lower(call.Wide(0))};
}

Subjects TaskFolderNamed(const Call& call) {
  return {"taskfolder:" + Lower(call.Wide(0))};
}

// The text that a method without arguments of the called object gives; "(unknown)" if it gives none.
template <auto Member, class Interface>
std::string TextOfCalled() {
  BSTR text = nullptr;
  const HRESULT result = (static_cast<Interface*>(CalledObject())->*Member)(&text);
  std::string found = SUCCEEDED(result) && text != nullptr ? ToUtf8(text) : std::string("(unknown)");
  SysFreeString(text);
  return found;
}

// The path of a folder or a task that the called folder of the Task Scheduler has under this name.
std::string TaskPath(const Call& call) {
  const std::string folder = TextOfCalled<&ITaskFolder::get_Path, ITaskFolder>();
  return folder + (folder.back() == '\\' ? "" : "\\") + call.Wide(0);
}

Subjects CalledTask(const Call&) {
  return {TaskSubject(TextOfCalled<&IRegisteredTask::get_Path, IRegisteredTask>())};
}

// A flag of IRegisteredTask.RunEx that is missing from the compiler's headers: the session counts.
constexpr uint64_t kRunInSession = 4;

std::string RunsTask(const Call& call) {
  const std::string user = call.Wide(3);
  const bool isInSession = (call.words[1] & kRunInSession) != 0;
  return "run the task " + TextOfCalled<&IRegisteredTask::get_Path, IRegisteredTask>() +
         (user.empty() ? std::string() : " for the user " + user) +
         (isInSession ? " in session " + Number(call.words[2]) : std::string());
}

// The file of a work item that was not saved before.
std::string SavesWorkItem(const Call&) {
  wchar_t* file = nullptr;
  const HRESULT result = static_cast<IPersistFile*>(CalledObject())->GetCurFile(&file);
  const std::string name = SUCCEEDED(result) && file != nullptr ? " " + ToUtf8(file) : std::string();
  CoTaskMemFree(file);
  return "save the work item" + name;
}

// A change of a rule or a program that the firewall has: the object by its name before the change.
std::string OfRule(const std::string& verb, const Call& call) {
  return verb + " the firewall's rule " + TextOfCalled<&INetFwRule::get_Name, INetFwRule>() + ": " +
         call.Wide(0);
}

std::string OfProgram(const std::string& verb, const Call& call) {
  return verb + " the firewall's exception for " +
         TextOfCalled<&INetFwAuthorizedApplication::get_ProcessImageFileName, INetFwAuthorizedApplication>() +
         ": " + call.Wide(0);
}

template <auto Member, class Interface>
std::vector<Touch> RenamedException(const Call& call) {
  return {{"exception:" + Lower(TextOfCalled<Member, Interface>()), Way::kOther},
          {"exception:" + Lower(call.Wide(0)), Way::kOther}};
}

// The path of the called object in the directory, as in "WinNT://DOMAIN/NAME".
std::string DirectoryPath() {
  IADs* object = nullptr;
  BSTR path = nullptr;
  static_cast<IUnknown*>(CalledObject())->QueryInterface(__uuidof(IADs), reinterpret_cast<void**>(&object));
  if (object != nullptr) {
    object->get_ADsPath(&path);
    object->Release();
  }
  std::string text = path == nullptr ? std::string("(unknown)") : ToUtf8(path);
  SysFreeString(path);
  return text;
}

Subjects NewException(const Call& call) {
  return {"exception:" + Lower(ToUtf8(ExceptionKey(Pointer<void*>(call, 0))))};
}

std::string NameOfNew(const Call& call) {
  return ToUtf8(ExceptionKey(Pointer<void*>(call, 0)));
}

Subjects WorkItemNamed(const Call& call) {
  return {"workitem:" + Lower(call.Wide(0))};
}

void FillFolder(const Call& call) {
  *Pointer<void**>(call, 2) = UnmadeObject("ITaskFolder.CreateFolder", TaskPath(call));
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
#define HX_TASK(head) [](const Call& call) { return std::string(head) + TaskPath(call); }
#define HX_PATH(head) [](const Call& call) { return std::string(head) + PathText(call, 0); }

constexpr Way kContent = Way::kContent, kMade = Way::kMade, kMadeFolder = Way::kMadeFolder,
              kGone = Way::kGone, kOther = Way::kOther;
constexpr Effect kKeeps = Effect::kKeeps, kChanges = Effect::kChanges;

// One row for each function of the rig's tables and for each method of the objects that hxrun passes on.
const Row kRows[] = {
    // Files and folders.
    {"CreateDirectoryW", kChanges, nullptr, As<kMadeFolder, Files<0>>, HX_PATH("create the folder "),
     LookAtNewFolder},
    {"RemoveDirectoryW", kChanges, nullptr, As<kGone, Files<0>>, HX_PATH("delete the folder "),
     LookAtFolderToDelete},
    {"DeleteFileW", kChanges, nullptr, As<kGone, Files<0>>, HX_PATH("delete "), LookAtFileToDelete},
    {"MoveFileW", kChanges, nullptr, MovedFiles, Moves, LookAtMove},
    {"MoveFileExW", kChanges, nullptr, MovedFiles, Replaces, LookAtReplacingMove},
    {"CopyFileW", kChanges, nullptr, CopiedFile, Copies, LookAtCopy},
    {"SetFileAttributesW", kChanges, nullptr, As<kOther, Files<0>>,
     [](const Call& call) {
       return "set the attributes of " + PathText(call, 0) + " to " +
              rig::HexText(static_cast<DWORD>(call.words[1]));
     },
     LookAtFile},
    {"CreateFileW", kChanges, AskedFile, As<kMade, Files<0>>, HX_PATH("create or empty "), LookAtFileToWrite,
     OpensForWriting},
    {"CreateFileA", kChanges, AskedFile8, As<kMade, File8>,
     [](const Call& call) { return "create or empty " + ToUtf8(FullPath(ToWide(call.Narrow(0)))); },
     LookAtFileToWrite8, OpensForWriting},
    {"WriteFile", kChanges, nullptr, As<kContent, OpenFileOf>, Writes, LookAtNothing, nullptr, FillWritten},
    {"SetEndOfFile", kChanges, nullptr, As<kContent, OpenFileOf>, Cuts, LookAtNothing},
    {"ReadFile", kKeeps, OpenFileOf},
    {"SetFilePointer", kKeeps},
    {"GetFileAttributesW", kKeeps, AskedFile},
    {"FindFirstFileW", kKeeps, Found},
    {"FindNextFileW", kKeeps, MadeInSearch},
    {"FindClose", kKeeps},
    {"GetFullPathNameW", kKeeps},
    {"GetWindowsDirectoryA", kKeeps},
    {"GetWindowsDirectoryW", kKeeps},
    {"GetSystemWindowsDirectoryW", kKeeps},
    {"GetSystemDirectoryW", kKeeps},
    {"GetCurrentDirectoryW", kKeeps},
    {"GetTempPathW", kKeeps},
    {"CloseHandle", kKeeps},
    {"GetPrivateProfileIntA", kKeeps, ProfileFile<3>},
    {"GetPrivateProfileStringA", kKeeps, ProfileFile<5>},

    // The registry.
    {"RegSetValueExA", kChanges, nullptr, As<kContent, ValueOf<false>>, SetsValue<false>, LookAtNothing},
    {"RegSetValueExW", kChanges, nullptr, As<kContent, ValueOf<true>>, SetsValue<true>, LookAtNothing},
    {"RegDeleteKeyA", kChanges, KeyAndKeysIn<false>, DeletedKey<false>, DeletesKey<false>,
     LookAtKeyToDelete8},
    {"RegDeleteKeyW", kChanges, KeyAndKeysIn<true>, DeletedKey<true>, DeletesKey<true>, LookAtKeyToDelete},
    {"RegDeleteValueA", kChanges, ValueOf<false>, As<kGone, ValueOf<false>>,
     [](const Call& call) { return "delete the value " + call.Narrow(1) + " of " + call.Name(kKeyName, 0); },
     LookAtValueToDelete},
    {"SHDeleteKey", kChanges, KeyBelow<false>, DeletedKey<false>,
     [](const Call& call) { return DeletesKey<false>(call) + " with all keys in it"; }, LookAtTreeToDelete},
    {"RegOpenKeyExA", kKeeps, KeyBelow<false>},
    {"RegOpenKeyExW", kKeeps, KeyBelow<true>},
    {"RegQueryValueExA", kKeeps, ValueOf<false>},
    {"RegQueryValueExW", kKeeps, ValueOf<true>},
    {"RegCloseKey", kKeeps},

    // Services.
    {"ControlService", kChanges, Service, As<kOther, Service>, ControlsService, LookAtServiceToControl,
     IsRealControl, FillStatus},
    {"StartServiceA", kChanges, Service, As<kOther, Service>,
     [](const Call& call) { return "start the service " + call.Name(kServiceName, 0); },
     LookAtServiceToStart},
    {"ChangeServiceConfig2A", kChanges, nullptr, As<kContent, ServiceConfiguration>, ChangesFailureActions,
     LookAtNothing},
    {"QueryServiceStatus", kKeeps, Service},
    {"QueryServiceConfigA", kKeeps, ServiceConfiguration},
    {"QueryServiceConfigW", kKeeps, ServiceConfiguration},
    {"QueryServiceConfig2A", kKeeps, ServiceConfiguration},
    {"OpenSCManagerA", kKeeps},
    {"OpenServiceA", kKeeps},
    {"OpenServiceW", kKeeps},
    {"CloseServiceHandle", kKeeps},

    // Windows, processes and sessions. A privilege is enabled for this process only.
    {"SendMessageA", kChanges, Window, As<kOther, Window>, SendsMessage, LookAtWindow},
    {"PostMessageA", kChanges, Window, As<kOther, Window>, SendsMessage, LookAtWindow},
    {"FindWindowA", kKeeps, WindowsOf},
    {"TerminateProcess", kChanges, ProcessOf, As<kGone, ProcessOf>, EndsProcess, LookAtProcess},
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
    {"NetUserAdd", kChanges, NewAccount, As<kMade, NewAccount>, AddsAccount, LookAtNewAccount},
    {"NetUserDel", kChanges, AccountNamed, As<kGone, AccountNamed>, DeletesAccount, LookAtAccountToDelete},
    {"LsaAddAccountRights", kChanges, nullptr, nullptr, GrantsRights, LookAtNothing},
    {"SetNamedSecurityInfoW", kChanges, nullptr, As<kContent, Files<0>>, ReplacesAccess, LookAtSecuredObject},
    {"DsWriteAccountSpnW", kChanges, AnyAccount, nullptr, WritesPrincipalNames, LookAtPrincipalNames},
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
    {"InstallHinfSectionA", kChanges, nullptr, Anything, InstallsSection, LookAtSetupSection},

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
    {"ITaskFolder.CreateFolder", kChanges, TaskFolderNamed, As<kMadeFolder, TaskFolderNamed>,
     HX_TASK("create the folder of the Task Scheduler "), LookAtNewTaskFolder, nullptr, FillFolder},
    {"ITaskFolder.DeleteFolder", kChanges, TaskFolderNamed, As<kGone, TaskFolderNamed>,
     HX_TASK("delete the folder of the Task Scheduler "), LookAtTaskFolderToDelete},
    {"ITaskFolder.DeleteTask", kChanges, TaskNamed, As<kGone, TaskNamed>, HX_TASK("delete the task "),
     LookAtTaskToDelete},
    {"ITaskFolder.RegisterTaskDefinition", kChanges, nullptr, As<kMade, TaskNamed>,
     HX_TASK("register the task "), LookAtTaskToRegister, nullptr, FillTask},
    // A folder that a dry run did not create: no task is in it, and nothing can be asked of it.
    {"new ITaskFolder.DeleteTask", kKeeps},
    {"new ITaskFolder.RegisterTaskDefinition", kChanges, nullptr, As<kMade, TaskNamed>,
     [](const Call& call) { return "register the task " + NewFolderPath() + "\\" + call.Wide(0); },
     LookInVain, nullptr, FillTask},
    {"IRegisteredTask.get_State", kKeeps, CalledTask},
    {"IRegisteredTask.get_Path", kKeeps},
    {"IRegisteredTask.RunEx", kChanges, CalledTask, As<kContent, CalledTask>, RunsTask, LookAtTaskToRun,
     nullptr, FillRunning},
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
    {"ITaskScheduler.NewWorkItem", kKeeps, WorkItemNamed},
    {"ITaskScheduler.Delete", kChanges, WorkItemNamed, As<kGone, WorkItemNamed>,
     HX_TEXT("delete the work item "), LookAtWorkItemToDelete},
    {"ITask.SetApplicationName", kKeeps},
    {"ITask.SetParameters", kKeeps},
    {"ITask.SetMaxRunTime", kKeeps},
    {"ITask.SetAccountInformation", kKeeps},
    {"ITask.CreateTrigger", kKeeps},
    {"ITaskTrigger.SetTrigger", kKeeps},
    {"IPersistFile.Save", kChanges, nullptr, nullptr, SavesWorkItem, LookAtWorkItemToSave},

    // The firewall. A rule is in memory until it is added; one that was there is changed at once.
    {"INetFwPolicy2.get_Rules", kKeeps},
    {"INetFwPolicy2.get_FirewallEnabled", kKeeps},
    {"INetFwRules.Item", kKeeps, Exception},
    {"INetFwRules.Add", kChanges, nullptr, As<kMade, NewException>,
     [](const Call& call) { return "add the rule to the firewall: " + NameOfNew(call); }, LookAtRuleToAdd},
    {"INetFwRules.Remove", kChanges, Exception, As<kGone, Exception>,
     HX_TEXT("remove from the firewall the rule "), LookAtRuleToRemove},
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
    {"existing INetFwRule.put_Name", kChanges, nullptr, RenamedException<&INetFwRule::get_Name, INetFwRule>,
     [](const Call& call) { return OfRule("rename", call); }, LookAtNothing},
    {"existing INetFwRule.put_ApplicationName", kChanges, nullptr, nullptr,
     [](const Call& call) { return OfRule("change the program of", call); }, LookAtNothing},
    {"existing INetFwRule.put_Grouping", kChanges, nullptr, nullptr,
     [](const Call& call) { return OfRule("change the group of", call); }, LookAtNothing},
    {"existing INetFwRule.put_Description", kChanges, nullptr, nullptr,
     [](const Call& call) { return OfRule("change the description of", call); }, LookAtNothing},
    {"INetFwMgr.get_LocalPolicy", kKeeps},
    {"INetFwPolicy.get_CurrentProfile", kKeeps},
    {"INetFwProfile.get_AuthorizedApplications", kKeeps},
    {"INetFwProfile.get_FirewallEnabled", kKeeps},
    {"INetFwProfile.get_ExceptionsNotAllowed", kKeeps},
    {"INetFwAuthorizedApplications.Item", kKeeps, Exception},
    {"INetFwAuthorizedApplications.Add", kChanges, nullptr, As<kMade, NewException>,
     [](const Call& call) { return "add the program to the firewall's exceptions: " + NameOfNew(call); },
     LookAtProgramToAdd},
    {"INetFwAuthorizedApplications.Remove", kChanges, Exception, As<kGone, Exception>,
     HX_TEXT("remove from the firewall's exceptions the program "), LookAtProgramToRemove},
    {"INetFwAuthorizedApplication.put_ProcessImageFileName", kKeeps},
    {"INetFwAuthorizedApplication.put_Name", kKeeps},
    {"INetFwAuthorizedApplication.put_Scope", kKeeps},
    {"existing INetFwAuthorizedApplication.get_ProcessImageFileName", kKeeps},
    {"existing INetFwAuthorizedApplication.get_Enabled", kKeeps},
    {"existing INetFwAuthorizedApplication.put_ProcessImageFileName", kChanges, nullptr,
     RenamedException<&INetFwAuthorizedApplication::get_ProcessImageFileName, INetFwAuthorizedApplication>,
     [](const Call& call) { return OfProgram("change the program of", call); }, LookAtNothing},
    {"existing INetFwAuthorizedApplication.put_Name", kChanges, nullptr, nullptr,
     [](const Call& call) { return OfProgram("rename", call); }, LookAtNothing},

    // The directory. A new user is in memory until it is saved.
    {"IADsContainer.Create", kKeeps},
    // The headers rename the method GetObject to this.
    {"IADsContainer.GetObjectA", kKeeps, AnyAccount},
    {"IADsContainer.Delete", kChanges, AnyAccount, As<kOther, AnyAccount>,
     [](const Call& call) { return "delete the account " + call.Wide(1) + " of " + DirectoryPath(); },
     LookAtUserToDelete},
    {"IADsUser.SetPassword", kChanges, nullptr, nullptr,
     [](const Call&) { return "set the password of the new account " + DirectoryPath(); }, LookAtNothing},
    {"IADsUser.put_FullName", kKeeps},
    {"IADsUser.SetInfo", kChanges, AnyAccount, As<kOther, AnyAccount>,
     [](const Call&) { return "create the account " + DirectoryPath(); }, LookAtNewUser},
    {"IADsNameTranslate.Init", kKeeps},
    {"IADsNameTranslate.Set", kKeeps},
    {"IADsNameTranslate.Get", kKeeps, AnyAccount},
};

#undef HX_TEXT
#undef HX_PATH
#undef HX_TASK

// The path of a folder of the machine, without its links and with long names; empty if it is missing or
// Windows does not say it.
std::wstring FinalPath(const std::wstring& folder) {
  const HANDLE file = CreateFileW((PathOfAnyLength(folder) + L"\\").c_str(), 0,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return {};
  // The longest path of Windows has 32767 characters.
  std::wstring path(1 << 15, L'\0');
  const DWORD length =
      GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), VOLUME_NAME_DOS);
  CloseHandle(file);
  path.resize(length < path.size() ? length : 0);
  if (path.empty()) return path;
  // Some systems leave short names in it.
  const std::wstring plain = PlainPath(path);
  wchar_t longPath[MAX_PATH];
  const bool isDrive = plain.find(L'\\') == std::wstring::npos;
  const DWORD longLength = isDrive ? 0 : GetLongPathNameW(plain.c_str(), longPath, MAX_PATH);
  return longLength == 0 || longLength >= MAX_PATH ? plain : std::wstring(longPath, longLength);
}

// The long name of what a folder has under a name; the name itself if it has nothing.
std::wstring LongName(const std::wstring& folder, const std::wstring& name) {
  if (name.find_first_of(L"*?") != std::wstring::npos) return name;
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((PathOfAnyLength(folder) + L"\\" + name).c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return name;
  FindClose(search);
  return found.cFileName;
}

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
  if (kind == kSearchName) return {};
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
    const bool isChange = row.effect == Effect::kChanges;
    if (isChange != (row.describe != nullptr) || isChange != (row.look != nullptr)) {
      wrong +=
          std::string(row.name) + ": only a change has a description and a look, and every change has both\n";
    }
  }
  return wrong;
}

std::string FileSubject(const std::wstring& path) {
  const std::wstring plain = PlainPath(path);
  // The nearest folder above the file that the machine has.
  for (size_t end = plain.rfind(L'\\'); end != std::wstring::npos && end > 1;
       end = plain.rfind(L'\\', end - 1)) {
    const std::wstring folder = FinalPath(plain.substr(0, end));
    if (folder.empty()) continue;
    const bool isEntry = plain.find(L'\\', end + 1) == std::wstring::npos;
    const std::wstring rest = plain.substr(end + 1);
    return "file:" + Lower(ToUtf8(folder + L"\\" + (isEntry ? LongName(folder, rest) : rest)));
  }
  return "file:" + Lower(ToUtf8(plain));
}

std::string WrittenSubject(const std::wstring& path) {
  return "file:" + Lower(ToUtf8(PlainPath(path)));
}

std::string TaskSubject(const std::string& path) {
  return "task:" + Lower(path.substr(path.rfind('\\') + 1));
}

std::string SearchedFolder(const std::wstring& path) {
  const size_t backslash = path.find_last_of(L"\\/");
  const std::wstring name = backslash == std::wstring::npos ? path : path.substr(backslash + 1);
  if (name.find_first_of(L"*?") == std::wstring::npos) return {};
  // The entries are those of the folder to which a link leads.
  const std::string entry =
      FileSubject((backslash == std::wstring::npos ? L"." : path.substr(0, backslash)) + L"\\x");
  return entry.substr(0, entry.rfind('\\'));
}

std::string Lower(const std::string& text) {
  std::wstring wide = ToWide(text);
  CharLowerBuffW(wide.data(), static_cast<DWORD>(wide.size()));
  return ToUtf8(wide);
}

}  // namespace hxrun
