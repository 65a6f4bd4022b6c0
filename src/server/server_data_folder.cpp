// Finds out what is on the machine before the server is installed: an older server, its data folder, and the
// Program Files folder for 64-bit programs.
//
// CustomAction12  sets DIR_PROGRAMS64 to the 64-bit Program Files folder, if it exists.
// CustomAction13  moves the portable key files of all users into the machine's portable folder.
// CustomAction14  sets PROP_REPLACING to 1 in an upgrade (PROP_UPGRADE_PRODUCTCODE is set) of a server with
//                 settings, if DIR_DATAFOLDER is set and neither it nor DIR_UPG_DATA is an existing folder.
// CustomAction22  in an upgrade (as above), sets PROP_UPGRADE and PROP_REPLACING to 1. Otherwise, unless
//                 PROP_UPGRADE is already set to something that does not start with "0": sets PROP_DFPRESENT
//                 to 1 if DIR_DATAFOLDER or a folder in it contains a file, and then PROP_UPGRADE to 1 if
//                 DIR_SERVER contains vt.exe.
// CustomAction34  sets PROP_PREVVTDF to the data folder of the previous server.
// CustomAction35  sets DIR_EXADMIN to the folder of the file PROP_UPGRADE, and DIR_UPG to a folder next to
//                 DIR_EXADMIN that has the last name of DIR_UPG.
//
// All are immediate, log nothing and always return 0. A property whose value cannot be found is not set.

#include <shlobj.h>

#include "base/clock.h"
#include "base/heap.h"
#include "base/late_binding.h"
#include "base/object.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "files/dir_walker.h"
#include "files/file_status.h"
#include "files/found_entry.h"
#include "files/standard_folders.h"
#include "format/format.h"
#include "frame/session.h"
#include "server/server_folders.h"

namespace {

// The size of CustomAction12's buffer, first for a property and then for the folder, in characters.
constexpr DWORD kProgramsSize = 272;
// The most characters by which the folder can grow: the name of the default folder and a backslash.
constexpr wchar_t kDefaultPrograms[] = L"Program Files";
constexpr size_t kProgramsGrowth = sizeof kDefaultPrograms / sizeof(wchar_t) + 1;

// The end of the 32-bit Program Files path, which the 64-bit one does not have.
constexpr wchar_t kX86Suffix[] = L" (x86)";
constexpr size_t kX86SuffixLength = sizeof kX86Suffix / sizeof(wchar_t) - 1;

// The longest flattened text of a bare drive, in bytes.
constexpr LONG kBareDriveLength = 3;

// The size of the buffer for a key file's new name, in bytes with the terminator.
constexpr unsigned kKeyFileNameSize = 64;

// The properties with the folder of an older server, in order of preference.
constexpr const wchar_t* kServerProperties[] = {L"PROP_PRE75SERVER", L"DIR_SERVER"};

bool IsPropertySet(MSIHANDLE session, const wchar_t* name) {
  HeapStringW value(ReadPropertyW(session, name));
  return value && value.get()[0];
}

// Returns true if `path` (not null) is an existing folder; true also if out of memory.
bool MayBeFolder(PathObject* path) {
  int status = FolderExists(path);
  return status == kStatusOk || status == kStatusNoMemory;
}

// Sets `path` to null unless it is an existing folder. Returns false if out of memory.
bool KeepExistingFolder(PathRef* path) {
  int status = *path ? FolderExists(path->get()) : kStatusNotFound;
  if (status != kStatusOk) path->reset();
  return status != kStatusNoMemory;
}

// Stores the Program Files folder at `folder` (at least MAX_PATH characters); false on failure.
bool AskForProgramFiles(wchar_t* folder) {
  Module module(LoadLate("SHFOLDER"));
  auto* getFolderPath = FindFunction<decltype(SHGetFolderPathW)>(module.get(), "SHGetFolderPathW");
  if (!getFolderPath) return false;
  folder[0] = L'\0';
  return SUCCEEDED(getFolderPath(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, folder)) &&
         folder[0];
}

// Turns the 32-bit Program Files path into the 64-bit one, in place: strips " (x86)", or replaces the last
// component by "Program Files". Returns false if the path has no backslash.
bool MakePrograms64(wchar_t* folder) {
  size_t length = TxtLenW(folder);
  if (folder[length - 1] == L'\\') folder[--length] = L'\0';
  if (length > kX86SuffixLength && TxtCompareW(folder + length - kX86SuffixLength, kX86Suffix) == 0) {
    folder[length - kX86SuffixLength] = L'\0';
    return true;
  }
  const wchar_t* backslash = TxtFindLastCharW(folder, L'\\');
  if (!backslash) return false;
  TxtCopyW(folder + (backslash + 1 - folder), kDefaultPrograms);
  return true;
}

bool IsFoundFolder(const wchar_t* name) {
  WIN32_FIND_DATAW found;
  SearchHandle search(FindFirstFileW(name, &found));
  return search && IsFolder(found);
}

// Joins the names in `names` onto `folder`, one after the other. Each name ends with a terminator, the last
// with two. Returns null if out of memory.
PathObject* JoinNames(PathObject* folder, const char* names) {
  PathRef path(static_cast<PathObject*>(folder->ops.Retain(folder)));
  for (; path && *names; names += TxtLenA(names) + 1) path.reset(PathJoin(path.get(), names));
  return path.release();
}

// Moves the key file of the user with the folder `user` to `target`, under the name for `number`. Returns
// false if there is no key file, or if it is already in `target`.
bool MoveKeyFile(PathObject* user, PathObject* target, unsigned number) {
  PathRef candidate(JoinNames(user, "Local Settings\0Application Data\0portable.dir\0portable.pky\0"));
  if (FileExists(candidate.get()) != kStatusOk) return false;
  PathRef folder(PathFolder(candidate.get()));
  if (target->ops.Compare(folder.get(), target) == 0) return false;
  char name[kKeyFileNameSize];
  FormatString(name, kKeyFileNameSize, "%08lX.pky", number);
  PathRef moved(PathJoin(target, name));
  // On purpose: a failing move is ignored, and its number is used up.
  if (moved) MovePath(candidate.get(), moved.get());
  return true;
}

bool HoldsAnyFile(PathObject* folder) {
  ObjectRef<DirWalker> walker(DirWalkerCreate(folder));
  if (!walker) return false;
  walker.get()->flags = kReturnFiles;
  // A link to a parent folder would make the search endless.
  walker.get()->followReparse = kSkipFolderLinks;
  return static_cast<bool>(PathRef(DirWalkerNext(walker.get())));
}

// Stores the folder `name` in the folder of the property `property` at `found`, if it exists. Returns false
// if the answer is unknown: if the property cannot be made into a path, and if out of memory.
bool FindFolderIn(MSIHANDLE session, const wchar_t* property, const char* name, PathRef* found) {
  PathRef folder;
  if (!ReadPathProperty(session, property, &folder)) return false;
  if (!folder) return true;
  PathRef candidate(PathJoin(folder.get(), name));
  if (!candidate) return false;
  if (!KeepExistingFolder(&candidate)) return false;
  found->reset(candidate.release());
  return true;
}

// Stores the data folder of the previous server at `folder`. Tries the server's settings, then the last name
// of DIR_UPG in the folders of an older server, and falls back to DIR_UPG itself; null if that is unset.
// Returns false if the answer is unknown.
bool FindPreviousDataFolder(MSIHANDLE session, PathRef* folder) {
  RegistryKey settings;
  if (OpenServerSettings(&settings)) {
    if (!ReadServerDataFolder(settings.get(), kDataFolderText, folder)) return false;
    if (!KeepExistingFolder(folder)) return false;
    if (*folder) return true;
  }
  settings.reset();

  PathRef upgrade;
  if (!ReadPathProperty(session, L"DIR_UPG", &upgrade)) return false;
  char name[kLastNameSize];
  CopyLastName(upgrade.get(), name);
  for (const wchar_t* property : kServerProperties) {
    if (!FindFolderIn(session, property, name, folder)) return false;
    if (*folder) return true;
  }
  folder->reset(upgrade.release());
  return true;
}

}  // namespace

extern "C" UINT WINAPI CustomAction12(MSIHANDLE session) {
  wchar_t folder[kProgramsSize + kProgramsGrowth];
  DWORD count = kProgramsSize;
  // On purpose: the value is not used. The buffer then receives the folder.
  MsiGetPropertyW(session, L"VersionNT64", folder, &count);
  if (!AskForProgramFiles(folder) || !MakePrograms64(folder) || !IsFoundFolder(folder)) return ERROR_SUCCESS;
  TxtCopyW(folder + TxtLenW(folder), L"\\");
  MsiSetPropertyW(session, L"DIR_PROGRAMS64", folder);
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction13(MSIHANDLE) {
  PathRef local(GetStandardFolder(FourCharCode("pref")));
  PathRef shared(GetStandardFolder(FourCharCode("sprf")));
  PathRef common(PathCommonAncestor(local.get(), shared.get()));
  PathRef profiles(PathFlatten(common.get()));
  if (!profiles || profiles.get()->length <= kBareDriveLength) return ERROR_SUCCESS;

  unsigned number = CurrentTimeLocal();
  PathRef target(JoinNames(shared.get(), "Ostrel\0portable.dir\0"));
  ObjectRef<DirWalker> walker(DirWalkerCreate(profiles.get()));
  if (!target || !walker) return ERROR_SUCCESS;
  walker.get()->maxDepth = 1;
  walker.get()->flags = kReturnFolders;
  while (PathRef user{DirWalkerNext(walker.get())}) {
    if (MoveKeyFile(user.get(), target.get(), number)) ++number;
  }
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction14(MSIHANDLE session) {
  // On purpose: read as 8-bit text, unlike in every other action here.
  HeapStringA dataFolder(ReadPropertyA(session, "DIR_DATAFOLDER"));
  if (!dataFolder || !dataFolder.get()[0]) return ERROR_SUCCESS;
  PathRef folder(PathFromWrittenUtf8(dataFolder.get()));
  if (!folder || MayBeFolder(folder.get())) return ERROR_SUCCESS;
  if (!ReadPathProperty(session, L"DIR_UPG_DATA", &folder)) return ERROR_SUCCESS;
  if (folder && MayBeFolder(folder.get())) return ERROR_SUCCESS;

  RegistryKey settings;
  if (!OpenServerSettings(&settings)) return ERROR_SUCCESS;
  if (IsPropertySet(session, L"PROP_UPGRADE_PRODUCTCODE")) MsiSetPropertyW(session, L"PROP_REPLACING", L"1");
  ReadServerDataFolder(settings.get(), kLargestDataFolderText, &folder);
  // On purpose: the folder is looked for, but nothing depends on the result.
  if (folder) FolderExists(folder.get());
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction22(MSIHANDLE session) {
  if (IsPropertySet(session, L"PROP_UPGRADE_PRODUCTCODE")) {
    MsiSetPropertyW(session, L"PROP_UPGRADE", L"1");
    MsiSetPropertyW(session, L"PROP_REPLACING", L"1");
    return ERROR_SUCCESS;
  }
  HeapStringW upgrade(ReadPropertyW(session, L"PROP_UPGRADE"));
  if (upgrade && upgrade.get()[0] && upgrade.get()[0] != L'0') return ERROR_SUCCESS;

  PathRef dataFolder;
  if (!ReadPathProperty(session, L"DIR_DATAFOLDER", &dataFolder) || !dataFolder) return ERROR_SUCCESS;
  if (!HoldsAnyFile(dataFolder.get())) return ERROR_SUCCESS;
  MsiSetPropertyW(session, L"PROP_DFPRESENT", L"1");

  PathRef server;
  if (!ReadPathProperty(session, L"DIR_SERVER", &server) || !server) return ERROR_SUCCESS;
  PathRef program(PathJoin(server.get(), "vt.exe"));
  if (FileExists(program.get()) == kStatusOk) MsiSetPropertyW(session, L"PROP_UPGRADE", L"1");
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction34(MSIHANDLE session) {
  PathRef folder;
  if (FindPreviousDataFolder(session, &folder)) SetDirectoryProperty(session, L"PROP_PREVVTDF", folder.get());
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction35(MSIHANDLE session) {
  PathRef program;
  if (!ReadPathProperty(session, L"PROP_UPGRADE", &program)) return ERROR_SUCCESS;
  if (FileExists(program.get()) != kStatusOk) return ERROR_SUCCESS;
  PathRef admin(PathFolder(program.get()));
  SetDirectoryProperty(session, L"DIR_EXADMIN", admin.get());

  char name[kLastNameSize];
  if (!admin || !ReadLastName(session, L"DIR_UPG", name)) return ERROR_SUCCESS;
  PathRef upgrade(PathReplaceLeaf(admin.get(), name));
  SetDirectoryProperty(session, L"DIR_UPG", upgrade.get());
  return ERROR_SUCCESS;
}
