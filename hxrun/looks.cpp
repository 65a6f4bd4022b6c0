#include "hxrun/looks.h"

#include <aclapi.h>
#include <lm.h>

#include <algorithm>
#include <optional>

#include "hxrun/com_objects.h"
#include "rig/directory_interfaces.h"
#include "rig/function.h"
#include "rig/print.h"
#include "rig/task_interfaces.h"
// Must come after the interfaces of the directory.
#include <adshlp.h>
#include <netfw.h>
#include <taskschd.h>

namespace hxrun {
namespace {

using rig::ToUtf8;
using rig::ToWide;

// A function that returns FALSE or null would leave this error; none for ERROR_SUCCESS.
Outlook WouldLeave(DWORD error, uint64_t result = 0) {
  if (error == ERROR_SUCCESS) return {};
  return {Outlook::Kind::kFails, result, error, true, Changes::kNone};
}

// A function that returns its error would return this one; none for 0.
Outlook WouldReturn(uint32_t error) {
  if (error == 0) return {};
  return {Outlook::Kind::kFails, error, error, false, Changes::kNone};
}

Outlook NobodyKnows(size_t change = Changes::kNone) {
  return {Outlook::Kind::kUnknown, 0, 0, false, change};
}

// ---- files and folders

// A path that begins with this can have any length.
constexpr wchar_t kAnyLength[] = L"\\\\?\\", kAnyLengthOfServer[] = L"\\\\?\\UNC\\";

// From this length on, in characters, Windows takes the path of a new folder for too long: a file with a
// short name must have room in it. All other paths may have MAX_PATH - 1 characters.
constexpr size_t kTooLongFolder = MAX_PATH - 12;

// True if the full path has this length or more, and does not say that it can have any. That holds whatever
// the machine's setting for long paths is: neither this program nor the installer is one that takes them.
bool IsTooLong(const std::wstring& path, size_t length = MAX_PATH) {
  return path.rfind(kAnyLength, 0) != 0 && FullPath(path).size() >= length;
}

// True for the root of a drive or of a shared folder.
bool IsRoot(const std::wstring& path) {
  std::wstring full = PlainPath(path);
  if (full.rfind(L"\\\\", 0) != 0) return full.find(L'\\') == std::wstring::npos;
  return std::count(full.begin(), full.end(), L'\\') <= 3;
}

// The error of the look at a path is also that of every call with it.
bool IsErrorOfEachCall(DWORD error) {
  const DWORD plain[] = {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_NOT_READY,
                         ERROR_BAD_NETPATH,    ERROR_BAD_NET_NAME,   ERROR_INVALID_NAME};
  return std::find(std::begin(plain), std::end(plain), error) != std::end(plain);
}

// What is at a path after the recorded changes.
struct Entry {
  DWORD error = ERROR_SUCCESS;  // ERROR_SUCCESS if there is something
  DWORD attributes = 0;
  bool isReal = false;  // the machine has it, and no change touched it
  bool isKnown = true;  // false if a change decides that was not made, or if Windows does not say it
  size_t change = Changes::kNone;  // that change, if there is one

  bool Exists() const { return error == ERROR_SUCCESS; }
  bool IsFolder() const { return Exists() && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsReadOnly() const { return Exists() && (attributes & FILE_ATTRIBUTE_READONLY) != 0; }
};

Entry EntryAt(const Call& call, const std::wstring& path) {
  Entry found;
  if (IsTooLong(path)) {
    found.error = ERROR_PATH_NOT_FOUND;
    return found;
  }
  FileState state = call.changes.StateOf(FileSubject(path), &found.change);
  // The path may lead through a link that a change deleted or moved.
  if (state == FileState::kAsIs) state = call.changes.StateOf(WrittenSubject(path), &found.change);
  switch (state) {
    case FileState::kAsIs:
      found.attributes = GetFileAttributesW(path.c_str());
      if (found.attributes == INVALID_FILE_ATTRIBUTES) found.error = GetLastError();
      found.isReal = found.Exists();
      found.isKnown = found.Exists() || IsErrorOfEachCall(found.error);
      break;
    case FileState::kFile:
      found.attributes = FILE_ATTRIBUTE_NORMAL;
      break;
    case FileState::kFolder:
      found.attributes = FILE_ATTRIBUTE_DIRECTORY;
      break;
    case FileState::kMissing:
      found.error = ERROR_FILE_NOT_FOUND;
      break;
    case FileState::kNoPath:
      found.error = ERROR_PATH_NOT_FOUND;
      break;
    default:
      found.isKnown = false;
  }
  return found;
}

// A file or folder that was opened for a look, with everything shared.
class LookedAtFile {
 public:
  LookedAtFile(const std::wstring& path, DWORD access, DWORD flags)
      : file_(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr)),
        error_(file_ == INVALID_HANDLE_VALUE ? GetLastError() : DWORD{ERROR_SUCCESS}) {}
  ~LookedAtFile() {
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
  }
  LookedAtFile(const LookedAtFile&) = delete;
  LookedAtFile& operator=(const LookedAtFile&) = delete;
  // The error of the opening; ERROR_SUCCESS if it is open.
  DWORD Error() const { return error_; }
  // What Windows says of it; nothing if it says nothing.
  std::optional<BY_HANDLE_FILE_INFORMATION> Information() const {
    BY_HANDLE_FILE_INFORMATION information = {};
    if (error_ != ERROR_SUCCESS || !GetFileInformationByHandle(file_, &information)) return std::nullopt;
    return information;
  }

 private:
  HANDLE file_;
  DWORD error_;
};

// The error of a file or folder that a program has open without sharing it for this access. Rights are not
// looked at.
DWORD HeldError(const Entry& found, const std::wstring& path, DWORD access) {
  if (!found.isReal) return ERROR_SUCCESS;
  const DWORD error = LookedAtFile(path, access, FILE_FLAG_OPEN_REPARSE_POINT).Error();
  return error == ERROR_SHARING_VIOLATION ? error : DWORD{ERROR_SUCCESS};
}

// Looks whether a file could be deleted or replaced. Windows opens a program that runs and a library that is
// loaded for deletion, and then does not delete it. Nobody may write to such a file. But other files are like
// that too, and can be deleted.
Outlook LookAtHeldFile(const Entry& found, const std::wstring& path) {
  if (const DWORD held = HeldError(found, path, DELETE)) return WouldLeave(held);
  return HeldError(found, path, FILE_WRITE_DATA) == ERROR_SUCCESS ? Outlook() : NobodyKnows();
}

// The error of reading or writing what is at the path, or what a link there leads to. Rights are not looked
// at.
DWORD FollowedError(const Entry& found, const std::wstring& path, DWORD access) {
  if (!found.isReal) return ERROR_SUCCESS;
  const LookedAtFile file(path, access, 0);
  if (file.Error() == ERROR_ACCESS_DENIED) return ERROR_SUCCESS;
  const auto information = file.Information();
  const bool isFolder = information && (information->dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return isFolder ? DWORD{ERROR_ACCESS_DENIED} : file.Error();
}

// The number of the volume; nothing if Windows does not say it. 0 is the number of each file system that has
// no numbers.
std::optional<DWORD> VolumeOf(const LookedAtFile& file) {
  const auto information = file.Information();
  const DWORD number = information ? information->dwVolumeSerialNumber : 0;
  return number == 0 ? std::nullopt : std::optional<DWORD>(number);
}

// The volume of a new file or folder: that of the nearest folder above it that the machine has.
std::optional<DWORD> VolumeOfNew(const std::wstring& path) {
  std::wstring folder = FullPath(path);
  while (true) {
    const size_t backslash = folder.find_last_of(L'\\');
    if (backslash == std::wstring::npos) return std::nullopt;
    folder.resize(backslash);
    const LookedAtFile file(folder + L"\\", 0, 0);
    const bool isMissing = file.Error() == ERROR_FILE_NOT_FOUND || file.Error() == ERROR_PATH_NOT_FOUND;
    if (!isMissing) return VolumeOf(file);
  }
}

// True if a move from `from`, where `source` is, to `to` stays on one volume; nothing if Windows does not say
// it. A link is moved itself, but a link above the target is followed.
std::optional<bool> StaysOnVolume(const Entry& source, const std::wstring& from, const std::wstring& to) {
  const std::optional<DWORD> before =
      source.isReal ? VolumeOf(LookedAtFile(from, 0, FILE_FLAG_OPEN_REPARSE_POINT)) : VolumeOfNew(from);
  const std::optional<DWORD> after = VolumeOfNew(to);
  if (!before || !after) return std::nullopt;
  return *before == *after;
}

bool LiesBelow(const std::string& inner, const std::string& outer) {
  return inner.compare(0, outer.size() + 1, outer + "\\") == 0;
}

// What is in a folder of the machine; nothing if it cannot be listed.
std::optional<std::vector<WIN32_FIND_DATAW>> EntriesOf(const std::wstring& folder) {
  // A pattern can be longer than Windows takes where the folder's path is not.
  const std::wstring pattern = PathOfAnyLength(PlainPath(folder)) + L"\\*";
  std::vector<WIN32_FIND_DATAW> entries;
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW(pattern.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return std::nullopt;
  do {
    const std::wstring name = found.cFileName;
    if (name != L"." && name != L"..") entries.push_back(found);
  } while (FindNextFileW(search, &found));
  const bool isWhole = GetLastError() == ERROR_NO_MORE_FILES;
  FindClose(search);
  return isWhole ? std::optional(entries) : std::nullopt;
}

// True for a link to a file or folder. A system that does not report tags leaves the field 0.
bool IsLink(const WIN32_FIND_DATAW& entry) {
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (entry.dwReserved0 == 0 || IsReparseTagNameSurrogate(entry.dwReserved0));
}

// True if there is a link to a folder: deleting it leaves what is in that folder.
bool IsFolderLink(const Entry& found, const std::wstring& path) {
  if (!found.isReal || (found.attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW(path.c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return false;
  FindClose(search);
  return IsLink(entry);
}

// What programs hold in a folder.
enum class Held : uint8_t {
  kNothing,  // as far as the look sees
  kUnknown,  // something may be held in such a way that Windows does not rename the folder
  kFile,     // something is open, so Windows does not rename the folder
};

// Looks at everything in a real folder, but not at what a link leads to. What a recorded change deleted or
// moved away is not in it any more.
Held HeldIn(const Call& call, const std::wstring& folder) {
  const auto entries = EntriesOf(folder);
  if (!entries) return Held::kUnknown;
  Held worst = Held::kNothing;
  for (const WIN32_FIND_DATAW& entry : *entries) {
    const std::wstring path = folder + L"\\" + entry.cFileName;
    if (!call.changes.IsEmpty()) {
      size_t change = Changes::kNone;
      const FileState state = call.changes.StateOf(FileSubject(path), &change);
      if (state == FileState::kMissing || state == FileState::kNoPath) continue;
    }
    Entry found;
    found.isReal = true;
    if (HeldError(found, path, DELETE) != ERROR_SUCCESS) return Held::kFile;
    // A program that runs and a library that is loaded are not open.
    if (HeldError(found, path, FILE_WRITE_DATA) != ERROR_SUCCESS) worst = Held::kUnknown;
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 || IsLink(entry)) continue;
    const Held inside = HeldIn(call, path);
    if (inside == Held::kFile) return inside;
    if (inside == Held::kUnknown) worst = inside;
  }
  return worst;
}

// Looks whether what is at the path could be renamed.
Outlook LookAtRename(const Call& call, const Entry& source, const std::wstring& path) {
  if (const DWORD held = HeldError(source, path, DELETE)) return WouldLeave(held);
  if (!source.isReal || !source.IsFolder() || IsFolderLink(source, path)) return {};
  switch (HeldIn(call, PathOfAnyLength(PlainPath(path)))) {
    case Held::kFile:
      return WouldLeave(ERROR_ACCESS_DENIED);
    case Held::kUnknown:
      return NobodyKnows();
    default:
      return {};
  }
}

// True if the folder has an entry after the recorded changes; nothing if it cannot be listed.
std::optional<bool> HasEntries(const Call& call, const std::wstring& path, bool isReal) {
  size_t change = Changes::kNone;
  const auto exists = [&](const std::string& subject) {
    const FileState state = call.changes.StateOf(subject, &change);
    return state != FileState::kMissing && state != FileState::kNoPath;
  };
  const Subjects made = call.changes.MadeIn(FileSubject(path));
  if (std::any_of(made.begin(), made.end(), exists)) return true;
  if (!isReal) return false;
  const auto entries = EntriesOf(path);
  if (!entries) return std::nullopt;
  return std::any_of(entries->begin(), entries->end(), [&](const WIN32_FIND_DATAW& entry) {
    return exists(FileSubject(path + L"\\" + entry.cFileName));
  });
}

// The error of a target that must not exist and whose folder must.
DWORD ErrorOfNew(const Entry& target) {
  if (target.Exists()) return ERROR_ALREADY_EXISTS;
  return target.error == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SUCCESS} : target.error;
}

Outlook LookAtWriting(const Call& call, const std::wstring& path) {
  const Entry file = EntryAt(call, path);
  if (!file.isKnown) return NobodyKnows(file.change);
  const auto disposition = static_cast<DWORD>(call.words[4]);
  const auto failing = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(INVALID_HANDLE_VALUE));
  if (disposition == CREATE_NEW && file.Exists()) return WouldLeave(ERROR_FILE_EXISTS, failing);
  if (disposition == TRUNCATE_EXISTING && !file.Exists()) return WouldLeave(file.error, failing);
  if (file.IsFolder() || file.IsReadOnly()) return WouldLeave(ERROR_ACCESS_DENIED, failing);
  if (!file.Exists() && file.error != ERROR_FILE_NOT_FOUND) return WouldLeave(file.error, failing);
  return WouldLeave(HeldError(file, path, GENERIC_WRITE), failing);
}

// ---- the registry

// RegDeleteKey deletes no key that is missing, and none with keys in it. `key` is open, or `error` says why
// not.
Outlook LookAtKey(LSTATUS error, HKEY key) {
  if (error == ERROR_ACCESS_DENIED) return {};
  if (error != ERROR_SUCCESS) return WouldReturn(static_cast<uint32_t>(error));
  DWORD keys = 0;
  error = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr, nullptr);
  RegCloseKey(key);
  return WouldReturn(error == ERROR_SUCCESS && keys != 0 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS);
}

// ---- services

// A service of the call, opened for a look; null if it cannot be opened.
class LookedAtService {
 public:
  explicit LookedAtService(const Call& call, DWORD access)
      : manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)),
        service_(manager_ == nullptr
                     ? nullptr
                     : OpenServiceW(manager_, ToWide(call.Name(kServiceName, 0)).c_str(), access)) {}
  ~LookedAtService() {
    if (service_ != nullptr) CloseServiceHandle(service_);
    if (manager_ != nullptr) CloseServiceHandle(manager_);
  }
  LookedAtService(const LookedAtService&) = delete;
  LookedAtService& operator=(const LookedAtService&) = delete;
  SC_HANDLE get() const { return service_; }

 private:
  SC_HANDLE manager_;
  SC_HANDLE service_;
};

bool HasRunningDependents(SC_HANDLE service) {
  DWORD needed = 0;
  DWORD count = 0;
  const BOOL isEmpty = EnumDependentServicesW(service, SERVICE_ACTIVE, nullptr, 0, &needed, &count);
  return !isEmpty && GetLastError() == ERROR_MORE_DATA;
}

// ---- accounts

// True if Windows refuses the name for an account of this computer.
bool IsBadAccountName(const std::wstring& name) {
  const std::wstring refused = L"\"/\\[]:;|=,+*?<>";
  const bool hasRefused = std::any_of(name.begin(), name.end(), [&](wchar_t unit) {
    return unit < L' ' || refused.find(unit) != std::wstring::npos;
  });
  return name.size() > LM20_UNLEN || hasRefused || (!name.empty() && name.back() == L'.');
}

// True if this computer has a local group of this name; nothing if it does not list its groups. The groups
// are listed, because some systems find a group of every name if they are asked for one.
std::optional<bool> HasLocalGroup(const std::wstring& name) {
  BYTE* block = nullptr;
  DWORD count = 0, all = 0;
  const DWORD error = NetLocalGroupEnum(nullptr, 0, &block, MAX_PREFERRED_LENGTH, &count, &all, nullptr);
  const auto* groups = reinterpret_cast<const LOCALGROUP_INFO_0*>(block);
  const std::string wanted = Lower(ToUtf8(name));
  const bool isFound = std::any_of(groups, groups + count, [&](const LOCALGROUP_INFO_0& group) {
    return Lower(ToUtf8(group.lgrpi0_name)) == wanted;
  });
  if (block != nullptr) NetApiBufferFree(block);
  return error == NERR_Success ? std::optional<bool>(isFound) : std::nullopt;
}

// The error of the look-up of an account.
DWORD ErrorOfAccount(const wchar_t* name) {
  BYTE sid[SECURITY_MAX_SID_SIZE];
  wchar_t domain[256];
  DWORD sidSize = sizeof sid, domainSize = 256;
  SID_NAME_USE use;
  const bool isFound = LookupAccountNameW(nullptr, name, sid, &sidSize, domain, &domainSize, &use) != FALSE;
  return isFound ? DWORD{ERROR_SUCCESS} : GetLastError();
}

// ---- COM objects

// What every call of the firewall returns while its service does not run.
constexpr HRESULT kFirewallStopped = static_cast<HRESULT>(0x800706D9);

template <class Interface>
Interface* Called() {
  return static_cast<Interface*>(CalledObject());
}

// Takes the answer of a look-up of something by its name, and releases what it found. Only an answer that
// says "there is none" is one that the call itself would give.
Outlook LookedUp(HRESULT result, IUnknown* found) {
  if (found != nullptr) found->Release();
  if (SUCCEEDED(result)) return {};
  const HRESULT missing[] = {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
                             HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), HRESULT_FROM_WIN32(NERR_UserNotFound),
                             static_cast<HRESULT>(0x80072030)};
  const bool isMissing = std::find(std::begin(missing), std::end(missing), result) != std::end(missing);
  return isMissing ? WouldReturn(static_cast<uint32_t>(result)) : NobodyKnows();
}

// Takes the answer of the firewall to a look-up of an exception that is to be removed.
Outlook LookedUpToRemove(HRESULT result, IUnknown* found) {
  return result == kFirewallStopped ? WouldReturn(static_cast<uint32_t>(result)) : LookedUp(result, found);
}

// Does so for an exception that is to be added, which may be there or not.
Outlook LookedUpToAdd(HRESULT result, IUnknown* found) {
  if (found != nullptr) found->Release();
  if (SUCCEEDED(result) || result == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)) return {};
  return result == kFirewallStopped ? WouldReturn(static_cast<uint32_t>(result)) : NobodyKnows();
}

// The text by which the firewall finds the exception in argument 0.
class KeyOfNew {
 public:
  explicit KeyOfNew(const Call& call)
      : text_(SysAllocString(ExceptionKey(Pointer<void*>(call, 0)).c_str())) {}
  ~KeyOfNew() { SysFreeString(text_); }
  KeyOfNew(const KeyOfNew&) = delete;
  KeyOfNew& operator=(const KeyOfNew&) = delete;
  BSTR get() const { return text_; }

 private:
  BSTR text_;
};

// A folder of the Task Scheduler cannot be deleted while a folder or a task is in it that no recorded change
// deletes.
Outlook LookIntoTaskFolder(const Call& call, ITaskFolder* folder) {
  const uint32_t notEmpty = static_cast<uint32_t>(HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
  IRegisteredTaskCollection* tasks = nullptr;
  LONG count = 0;
  HRESULT result = folder->GetTasks(TASK_ENUM_HIDDEN, &tasks);
  if (FAILED(result)) return NobodyKnows();
  Outlook outlook;
  result = tasks->get_Count(&count);
  if (FAILED(result)) outlook = NobodyKnows();
  for (LONG number = 1; number <= count && outlook.kind == Outlook::Kind::kBegins; ++number) {
    VARIANT index = {};
    index.vt = VT_I4;
    index.lVal = number;
    IRegisteredTask* task = nullptr;
    BSTR path = nullptr;
    if (FAILED(tasks->get_Item(index, &task)) || FAILED(task->get_Path(&path)) || path == nullptr) {
      outlook = NobodyKnows();
    } else if (!call.changes.IsGone(TaskSubject(ToUtf8(path)))) {
      outlook = WouldReturn(notEmpty);
    }
    SysFreeString(path);
    if (task != nullptr) task->Release();
  }
  tasks->Release();
  if (outlook.kind != Outlook::Kind::kBegins) return outlook;
  ITaskFolderCollection* folders = nullptr;
  result = folder->GetFolders(0, &folders);
  if (SUCCEEDED(result)) {
    result = folders->get_Count(&count);
    folders->Release();
  }
  if (FAILED(result)) return NobodyKnows();
  return WouldReturn(count == 0 ? 0 : notEmpty);
}

// What the directory says of an object.
struct DirectoryObject {
  HRESULT result;           // of the look-up
  std::string objectClass;  // in small letters; empty if it is not known
};

// Looks for an object of the directory.
DirectoryObject FindInDirectory(const wchar_t* path) {
  auto* function = rig::Function<&::ADsGetObject>::Real();
  IADs* found = nullptr;
  if (function == nullptr) return {E_NOTIMPL, {}};
  const HRESULT result = function(path, __uuidof(IADs), reinterpret_cast<void**>(&found));
  if (FAILED(result) || found == nullptr) return {result, {}};
  BSTR name = nullptr;
  const bool isNamed = SUCCEEDED(found->get_Class(&name)) && name != nullptr;
  const std::string objectClass = isNamed ? Lower(ToUtf8(name)) : std::string();
  SysFreeString(name);
  found->Release();
  return {result, objectClass};
}

}  // namespace

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

std::wstring PlainPath(const std::wstring& path) {
  std::wstring full = FullPath(path);
  if (full.rfind(kAnyLengthOfServer, 0) == 0) {
    full.replace(0, std::size(kAnyLengthOfServer) - 1, L"\\\\");
  } else if (full.rfind(kAnyLength, 0) == 0) {
    full.erase(0, std::size(kAnyLength) - 1);
  }
  while (full.size() > 1 && full.back() == L'\\') full.pop_back();
  return full;
}

std::wstring PathOfAnyLength(const std::wstring& path) {
  if (path.rfind(L"\\\\", 0) == 0) return kAnyLengthOfServer + path.substr(2);
  return path.size() > 1 && path[1] == L':' ? kAnyLength + path : path;
}

Outlook LookAtNothing(const Call&) {
  return {};
}

Outlook LookInVain(const Call&) {
  return NobodyKnows();
}

Outlook LookAtNewFolder(const Call& call) {
  const std::wstring path = WideText(call, 0);
  if (IsTooLong(path, kTooLongFolder)) return WouldLeave(ERROR_FILENAME_EXCED_RANGE);
  const Entry found = EntryAt(call, path);
  if (!found.isKnown) return NobodyKnows(found.change);
  // Windows refuses the root of a drive with one of two errors.
  if (found.Exists() && IsRoot(path)) return NobodyKnows();
  return WouldLeave(ErrorOfNew(found));
}

Outlook LookAtFolderToDelete(const Call& call) {
  const std::wstring path = WideText(call, 0);
  const Entry folder = EntryAt(call, path);
  if (!folder.isKnown) return NobodyKnows(folder.change);
  if (!folder.Exists()) return WouldLeave(folder.error);
  if (!folder.IsFolder()) return WouldLeave(ERROR_DIRECTORY);
  if (folder.IsReadOnly()) return WouldLeave(ERROR_ACCESS_DENIED);
  if (const DWORD held = HeldError(folder, path, DELETE)) return WouldLeave(held);
  if (IsFolderLink(folder, path)) return {};
  const std::optional<bool> isFull = HasEntries(call, path, folder.isReal);
  if (!isFull) return NobodyKnows();
  return WouldLeave(*isFull ? ERROR_DIR_NOT_EMPTY : ERROR_SUCCESS);
}

Outlook LookAtFileToDelete(const Call& call) {
  const std::wstring path = WideText(call, 0);
  const Entry file = EntryAt(call, path);
  if (!file.isKnown) return NobodyKnows(file.change);
  if (!file.Exists()) return WouldLeave(file.error);
  if (file.IsFolder() || file.IsReadOnly()) return WouldLeave(ERROR_ACCESS_DENIED);
  return LookAtHeldFile(file, path);
}

Outlook LookAtMove(const Call& call) {
  const std::wstring from = WideText(call, 0), to = WideText(call, 1);
  const Entry source = EntryAt(call, from), target = EntryAt(call, to);
  if (!source.isKnown) return NobodyKnows(source.change);
  if (!source.Exists()) return WouldLeave(source.error);
  if (!target.isKnown) return NobodyKnows(target.change);
  const bool isSame = FileSubject(from) == FileSubject(to);
  if (const DWORD error = isSame ? DWORD{ERROR_SUCCESS} : ErrorOfNew(target)) return WouldLeave(error);
  if (LiesBelow(FileSubject(to), FileSubject(from))) return NobodyKnows();
  if (source.IsFolder()) {
    // A file is copied to another volume; a folder is not.
    const std::optional<bool> stays = StaysOnVolume(source, from, to);
    if (!stays) return NobodyKnows();
    if (!*stays) return WouldLeave(ERROR_ACCESS_DENIED);
  }
  return LookAtRename(call, source, from);
}

Outlook LookAtReplacingMove(const Call& call) {
  const std::wstring from = WideText(call, 0), to = WideText(call, 1);
  const Entry source = EntryAt(call, from), target = EntryAt(call, to);
  const auto flags = static_cast<DWORD>(call.words[2]);
  if (!source.isKnown) return NobodyKnows(source.change);
  if (!source.Exists()) return WouldLeave(source.error);
  if (!target.isKnown) return NobodyKnows(target.change);
  if (LiesBelow(FileSubject(to), FileSubject(from))) return NobodyKnows();
  const bool isSame = FileSubject(from) == FileSubject(to);
  if (target.Exists() && !isSame) {
    if ((flags & MOVEFILE_REPLACE_EXISTING) == 0) return WouldLeave(ERROR_ALREADY_EXISTS);
    if (source.IsFolder() || target.IsFolder() || target.IsReadOnly()) return WouldLeave(ERROR_ACCESS_DENIED);
    const Outlook held = LookAtHeldFile(target, to);
    if (held.kind != Outlook::Kind::kBegins) return held;
  } else if (!target.Exists() && target.error != ERROR_FILE_NOT_FOUND) {
    return WouldLeave(target.error);
  }
  const bool mayBeCopied = (flags & MOVEFILE_COPY_ALLOWED) != 0;
  if (source.IsFolder() || !mayBeCopied) {
    const std::optional<bool> stays = StaysOnVolume(source, from, to);
    if (!stays) return NobodyKnows();
    if (!*stays) return WouldLeave(mayBeCopied ? ERROR_ACCESS_DENIED : ERROR_NOT_SAME_DEVICE);
  }
  return LookAtRename(call, source, from);
}

Outlook LookAtCopy(const Call& call) {
  const std::wstring from = WideText(call, 0), to = WideText(call, 1);
  const Entry source = EntryAt(call, from), target = EntryAt(call, to);
  if (!source.isKnown) return NobodyKnows(source.change);
  if (!source.Exists()) return WouldLeave(source.error);
  if (source.IsFolder()) return WouldLeave(ERROR_ACCESS_DENIED);
  if (const DWORD error = FollowedError(source, from, GENERIC_READ)) return WouldLeave(error);
  if (!target.isKnown) return NobodyKnows(target.change);
  if (!target.Exists()) return WouldLeave(ErrorOfNew(target));
  if (call.words[2] != 0) return WouldLeave(ERROR_FILE_EXISTS);
  if (target.IsFolder() || target.IsReadOnly()) return WouldLeave(ERROR_ACCESS_DENIED);
  return WouldLeave(HeldError(target, to, GENERIC_WRITE));
}

Outlook LookAtFile(const Call& call) {
  const Entry found = EntryAt(call, WideText(call, 0));
  return found.isKnown ? WouldLeave(found.error) : NobodyKnows(found.change);
}

Outlook LookAtFileToWrite(const Call& call) {
  return LookAtWriting(call, WideText(call, 0));
}

Outlook LookAtFileToWrite8(const Call& call) {
  return LookAtWriting(call, ToWide(call.Narrow(0)));
}

Outlook LookAtSecuredObject(const Call& call) {
  const auto type = static_cast<SE_OBJECT_TYPE>(call.words[1]);
  const std::wstring name = WideText(call, 0);
  if (type == SE_FILE_OBJECT) {
    const Entry found = EntryAt(call, name);
    if (!found.isKnown) return NobodyKnows(found.change);
    if (!found.isReal) return WouldReturn(found.error);
  }
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = GetNamedSecurityInfoW(Pointer<wchar_t*>(call, 0), type, DACL_SECURITY_INFORMATION,
                                            nullptr, nullptr, nullptr, nullptr, &descriptor);
  if (error == ERROR_SUCCESS) LocalFree(descriptor);
  return WouldReturn(error == ERROR_ACCESS_DENIED ? ERROR_SUCCESS : error);
}

Outlook LookAtSetupSection(const Call& call) {
  // "SECTION MODE PATH"; the path may have blanks.
  const std::string line = call.Narrow(2);
  const size_t first = line.find(' ');
  const size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
  if (second == std::string::npos) return NobodyKnows();
  const std::string section = line.substr(0, first);
  const std::wstring path = ToWide(line.substr(second + 1));
  // A path without a folder is looked for in the folders of the setup library.
  if (path.find(L'\\') == std::wstring::npos || IsTooLong(path)) return NobodyKnows();
  const Entry file = EntryAt(call, path);
  if (!file.isKnown) return NobodyKnows(file.change);
  if (!file.Exists()) return WouldReturn(file.error);
  std::wstring names(1 << 15, L'\0');
  const DWORD length =
      GetPrivateProfileSectionNamesW(names.data(), static_cast<DWORD>(names.size()), path.c_str());
  if (length == 0 || length >= names.size() - 2) return NobodyKnows();
  const std::string wanted = Lower(section);
  for (size_t at = 0; at < length;) {
    const std::wstring name = names.c_str() + at;
    const std::string found = Lower(ToUtf8(name));
    // A section for one kind of system has this kind after a dot.
    if (found == wanted || found.compare(0, wanted.size() + 1, wanted + ".") == 0) return {};
    at += name.size() + 1;
  }
  return WouldReturn(0xE0000101);  // ERROR_SECTION_NOT_FOUND
}

Outlook LookAtKeyToDelete8(const Call& call) {
  HKEY key = nullptr;
  return LookAtKey(RegOpenKeyExA(Pointer<HKEY>(call, 0), Pointer<const char*>(call, 1), 0, KEY_READ, &key),
                   key);
}

Outlook LookAtKeyToDelete(const Call& call) {
  HKEY key = nullptr;
  return LookAtKey(RegOpenKeyExW(Pointer<HKEY>(call, 0), Pointer<const wchar_t*>(call, 1), 0, KEY_READ, &key),
                   key);
}

Outlook LookAtTreeToDelete(const Call& call) {
  HKEY key = nullptr;
  const LSTATUS error =
      RegOpenKeyExA(Pointer<HKEY>(call, 0), Pointer<const char*>(call, 1), 0, KEY_READ, &key);
  if (error == ERROR_SUCCESS) RegCloseKey(key);
  return WouldReturn(error == ERROR_ACCESS_DENIED ? ERROR_SUCCESS : static_cast<uint32_t>(error));
}

Outlook LookAtValueToDelete(const Call& call) {
  const LSTATUS error = RegQueryValueExA(Pointer<HKEY>(call, 0), Pointer<const char*>(call, 1), nullptr,
                                         nullptr, nullptr, nullptr);
  return WouldReturn(error == ERROR_ACCESS_DENIED ? ERROR_SUCCESS : static_cast<uint32_t>(error));
}

Outlook LookAtServiceToControl(const Call& call) {
  const LookedAtService service(call, SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS);
  SERVICE_STATUS status = {};
  if (service.get() == nullptr || !QueryServiceStatus(service.get(), &status)) return NobodyKnows();
  const auto control = static_cast<DWORD>(call.words[1]);
  switch (status.dwCurrentState) {
    case SERVICE_STOPPED:
      return WouldLeave(ERROR_SERVICE_NOT_ACTIVE);
    case SERVICE_START_PENDING:
    case SERVICE_STOP_PENDING:
      return WouldLeave(ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
    default:
      break;
  }
  if (control != SERVICE_CONTROL_STOP) return {};
  if ((status.dwControlsAccepted & SERVICE_ACCEPT_STOP) == 0)
    return WouldLeave(ERROR_INVALID_SERVICE_CONTROL);
  return WouldLeave(HasRunningDependents(service.get()) ? ERROR_DEPENDENT_SERVICES_RUNNING : ERROR_SUCCESS);
}

Outlook LookAtServiceToStart(const Call& call) {
  const LookedAtService service(call, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG);
  SERVICE_STATUS status = {};
  if (service.get() == nullptr || !QueryServiceStatus(service.get(), &status)) return NobodyKnows();
  if (status.dwCurrentState != SERVICE_STOPPED) return WouldLeave(ERROR_SERVICE_ALREADY_RUNNING);
  std::vector<uint64_t> block(1024);
  auto* configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block.data());
  DWORD needed = 0;
  if (!QueryServiceConfigW(service.get(), configuration, static_cast<DWORD>(block.size() * sizeof block[0]),
                           &needed)) {
    return NobodyKnows();
  }
  return WouldLeave(configuration->dwStartType == SERVICE_DISABLED ? ERROR_SERVICE_DISABLED : ERROR_SUCCESS);
}

Outlook LookAtWindow(const Call& call) {
  return WouldLeave(IsWindow(Pointer<HWND>(call, 0)) ? ERROR_SUCCESS : ERROR_INVALID_WINDOW_HANDLE);
}

Outlook LookAtProcess(const Call& call) {
  // A process that has ended cannot be ended.
  const bool hasEnded = WaitForSingleObject(Pointer<HANDLE>(call, 0), 0) == WAIT_OBJECT_0;
  return WouldLeave(hasEnded ? ERROR_ACCESS_DENIED : ERROR_SUCCESS);
}

Outlook LookAtNewAccount(const Call& call) {
  const std::wstring name = Pointer<const USER_INFO_2*>(call, 2)->usri2_name;
  if (IsBadAccountName(name)) return WouldReturn(NERR_BadUsername);
  if (name.find_first_not_of(L' ') == std::wstring::npos) return NobodyKnows();
  void* found = nullptr;
  const DWORD error = NetUserGetInfo(nullptr, name.c_str(), 0, reinterpret_cast<BYTE**>(&found));
  if (error == NERR_Success) {
    NetApiBufferFree(found);
    return WouldReturn(NERR_UserExists);
  }
  if (error != NERR_UserNotFound) return NobodyKnows();
  // It is not documented which error the group gives.
  const std::optional<bool> isGroup = HasLocalGroup(name);
  return isGroup && !*isGroup ? Outlook() : NobodyKnows();
}

Outlook LookAtAccountToDelete(const Call& call) {
  void* found = nullptr;
  const DWORD error =
      NetUserGetInfo(nullptr, Pointer<const wchar_t*>(call, 1), 0, reinterpret_cast<BYTE**>(&found));
  if (error == NERR_Success) NetApiBufferFree(found);
  if (error == NERR_Success || error == NERR_UserNotFound) return WouldReturn(error);
  return NobodyKnows();
}

Outlook LookAtPrincipalNames(const Call& call) {
  std::wstring path = L"LDAP://";
  for (const wchar_t unit : WideText(call, 2)) {
    if (unit == L'/') path += L'\\';
    path += unit;
  }
  return SUCCEEDED(FindInDirectory(path.c_str()).result) ? Outlook() : NobodyKnows();
}

Outlook LookAtNewTaskFolder(const Call& call) {
  ITaskFolder* found = nullptr;
  const HRESULT result = Called<ITaskFolder>()->GetFolder(Pointer<wchar_t*>(call, 0), &found);
  const Outlook outlook = LookedUp(result, found);
  if (SUCCEEDED(result)) return WouldReturn(static_cast<uint32_t>(HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS)));
  return outlook.kind == Outlook::Kind::kFails ? Outlook() : NobodyKnows();
}

Outlook LookAtTaskFolderToDelete(const Call& call) {
  ITaskFolder* folder = nullptr;
  const HRESULT result = Called<ITaskFolder>()->GetFolder(Pointer<wchar_t*>(call, 0), &folder);
  if (FAILED(result)) {
    // Where the look finds no path, the call finds no folder.
    const bool isMissing = LookedUp(result, nullptr).kind == Outlook::Kind::kFails;
    const auto missing = static_cast<uint32_t>(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    return isMissing ? WouldReturn(missing) : NobodyKnows();
  }
  if (!call.changes.MadeIn("task:").empty()) {
    folder->Release();
    return NobodyKnows();
  }
  const Outlook outlook = LookIntoTaskFolder(call, folder);
  folder->Release();
  return outlook;
}

Outlook LookAtTaskToDelete(const Call& call) {
  IRegisteredTask* task = nullptr;
  const HRESULT result = Called<ITaskFolder>()->GetTask(Pointer<wchar_t*>(call, 0), &task);
  return LookedUp(result, task);
}

Outlook LookAtTaskToRegister(const Call& call) {
  auto* definition = static_cast<ITaskDefinition*>(RealObject(Pointer<void*>(call, 1)));
  IRegisteredTask* task = nullptr;
  const HRESULT result = Called<ITaskFolder>()->RegisterTaskDefinition(
      Pointer<wchar_t*>(call, 0), definition, TASK_VALIDATE_ONLY, VARIANT{}, VARIANT{}, TASK_LOGON_NONE,
      VARIANT{}, &task);
  if (task != nullptr) task->Release();
  // The look has no account, so a failure may be its own.
  if (FAILED(result)) return NobodyKnows();
  const auto* user = Pointer<const VARIANT*>(call, 3);
  if (user->vt != VT_BSTR || SysStringLen(user->bstrVal) == 0) return {};
  const DWORD error = ErrorOfAccount(user->bstrVal);
  if (error == ERROR_SUCCESS) return {};
  // The Task Scheduler knows the English name of a service's account in each language; the look-up does not.
  const bool isOfService = static_cast<TASK_LOGON_TYPE>(call.words[5]) == TASK_LOGON_SERVICE_ACCOUNT;
  return error == ERROR_NONE_MAPPED && !isOfService
             ? WouldReturn(static_cast<uint32_t>(HRESULT_FROM_WIN32(error)))
             : NobodyKnows();
}

Outlook LookAtTaskToRun(const Call&) {
  TASK_STATE state = TASK_STATE_UNKNOWN;
  if (FAILED(Called<IRegisteredTask>()->get_State(&state))) return NobodyKnows();
  constexpr uint32_t kTaskDisabled = 0x80041326;
  return state == TASK_STATE_DISABLED ? WouldReturn(kTaskDisabled) : Outlook();
}

Outlook LookAtWorkItemToDelete(const Call& call) {
  IUnknown* found = nullptr;
  const HRESULT result =
      Called<ITaskScheduler>()->Activate(Pointer<const wchar_t*>(call, 0), __uuidof(ITask), &found);
  return LookedUp(result, found);
}

Outlook LookAtWorkItemToSave(const Call&) {
  // The empty name is that of SYSTEM.
  const std::wstring& account = WorkItemAccount();
  return account.empty() || ErrorOfAccount(account.c_str()) == ERROR_SUCCESS ? Outlook() : NobodyKnows();
}

Outlook LookAtRuleToAdd(const Call& call) {
  INetFwRule* rule = nullptr;
  const HRESULT result = Called<INetFwRules>()->Item(KeyOfNew(call).get(), &rule);
  return LookedUpToAdd(result, rule);
}

Outlook LookAtRuleToRemove(const Call& call) {
  INetFwRule* rule = nullptr;
  const HRESULT result = Called<INetFwRules>()->Item(Pointer<wchar_t*>(call, 0), &rule);
  return LookedUpToRemove(result, rule);
}

Outlook LookAtProgramToAdd(const Call& call) {
  INetFwAuthorizedApplication* application = nullptr;
  const HRESULT result = Called<INetFwAuthorizedApplications>()->Item(KeyOfNew(call).get(), &application);
  return LookedUpToAdd(result, application);
}

Outlook LookAtProgramToRemove(const Call& call) {
  INetFwAuthorizedApplication* application = nullptr;
  const HRESULT result =
      Called<INetFwAuthorizedApplications>()->Item(Pointer<wchar_t*>(call, 0), &application);
  return LookedUpToRemove(result, application);
}

Outlook LookAtUserToDelete(const Call& call) {
  IDispatch* user = nullptr;
  const HRESULT result =
      Called<IADsContainer>()->GetObject(Pointer<wchar_t*>(call, 0), Pointer<wchar_t*>(call, 1), &user);
  return LookedUp(result, user);
}

Outlook LookAtNewUser(const Call&) {
  BSTR path = nullptr;
  if (FAILED(Called<IADsUser>()->get_ADsPath(&path)) || path == nullptr) return NobodyKnows();
  const DirectoryObject found = FindInDirectory(path);
  SysFreeString(path);
  if (FAILED(found.result)) {
    return LookedUp(found.result, nullptr).kind == Outlook::Kind::kFails ? Outlook() : NobodyKnows();
  }
  // The path can also be that of a computer or of a group.
  return found.objectClass == "user" ? WouldReturn(static_cast<uint32_t>(HRESULT_FROM_WIN32(NERR_UserExists)))
                                     : NobodyKnows();
}

}  // namespace hxrun
