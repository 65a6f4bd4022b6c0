// What is on the machine before the server is installed: an older server, its data folder, the folder of
// 64-bit programs.
//
// CustomAction12  sets DIR_PROGRAMS64 to the folder of 64-bit programs, if there is one.
// CustomAction13  moves the portable key files of all users into the portable folder of the machine.
// CustomAction14  sets PROP_REPLACING to 1 in an upgrade (PROP_UPGRADE_PRODUCTCODE is set) of a server with
//                 settings, when DIR_DATAFOLDER is set and neither it nor DIR_UPG_DATA is a folder.
// CustomAction22  sets PROP_UPGRADE and PROP_REPLACING to 1 in an upgrade; otherwise PROP_DFPRESENT when
//                 DIR_DATAFOLDER holds a file, and then PROP_UPGRADE when DIR_SERVER holds the program.
// CustomAction34  sets PROP_PREVVTDF to the data folder of the previous server.
// CustomAction35  sets DIR_EXADMIN to the folder that holds the file PROP_UPGRADE, and DIR_UPG to a folder
//                 of its last name beside that.
//
// All are immediate and silent and return 0 in every outcome; what cannot be found stays unset.

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

// The buffer of CustomAction12: that of a property, and then that of the folder, in characters.
constexpr DWORD kProgramsSize = 272;
// The most characters that the folder grows by: the name of the default folder and a backslash.
constexpr wchar_t kDefaultPrograms[] = L"Program Files";
constexpr size_t kProgramsGrowth = sizeof kDefaultPrograms / sizeof(wchar_t) + 1;

// What the folder of 32-bit programs has behind the name of the folder of 64-bit programs.
constexpr wchar_t kX86Suffix[] = L" (x86)";
constexpr size_t kX86SuffixLength = sizeof kX86Suffix / sizeof(wchar_t) - 1;

// The flattened text of a bare drive has at most this many bytes.
constexpr LONG kBareDriveLength = 3;

// The buffer of a key file's new name, in bytes with the terminator.
constexpr unsigned kKeyFileNameSize = 64;

// Where an older server may be, in the order of preference.
constexpr const wchar_t* kServerProperties[] = {L"PROP_PRE75SERVER", L"DIR_SERVER"};

bool IsPropertySet(MSIHANDLE session, const wchar_t* name) {
  HeapStringW value(ReadPropertyW(session, name));
  return value && value.get()[0];
}

// Whether `path` (not null) is an existing folder, or memory lacks to tell.
bool MayBeFolder(PathObject* path) {
  int status = FolderExists(path);
  return status == kStatusOk || status == kStatusNoMemory;
}

// Empties `path` unless it is an existing folder. False when memory lacks to tell.
bool KeepExistingFolder(PathRef* path) {
  int status = *path ? FolderExists(path->get()) : kStatusNotFound;
  if (status != kStatusOk) path->reset();
  return status != kStatusNoMemory;
}

// Asks Windows for the folder of programs into `folder` (at least MAX_PATH characters).
bool AskForProgramFiles(wchar_t* folder) {
  Module module(LoadLate("SHFOLDER"));
  auto* getFolderPath = FindFunction<decltype(SHGetFolderPathW)>(module.get(), "SHGetFolderPathW");
  if (!getFolderPath) return false;
  folder[0] = L'\0';
  return SUCCEEDED(getFolderPath(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, folder)) &&
         folder[0];
}

// Makes the name of the folder of 64-bit programs of that of the folder of programs as 32-bit processes see
// it, or of a folder of another name the default one beside it. False when there is none beside it.
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

// Joins the names in `names` (each closed by a terminator, the last by two) one after the other onto
// `folder`. Null when memory lacks.
PathObject* JoinNames(PathObject* folder, const char* names) {
  PathRef path(static_cast<PathObject*>(folder->ops.Retain(folder)));
  for (; path && *names; names += TxtLenA(names) + 1) path.reset(PathJoin(path.get(), names));
  return path.release();
}

// Moves the key file below the user's folder `user`, if there is one and it is not in `target` already, to
// the name for `number` in `target`. False when there was nothing to move; that a move fails is deliberately
// ignored.
bool MoveKeyFile(PathObject* user, PathObject* target, unsigned number) {
  PathRef candidate(JoinNames(user, "Local Settings\0Application Data\0portable.dir\0portable.pky\0"));
  if (FileExists(candidate.get()) != kStatusOk) return false;
  PathRef folder(PathFolder(candidate.get()));
  if (!folder || folder.get() == target || target->ops.Compare(folder.get(), target) == 0) return false;
  char name[kKeyFileNameSize];
  FormatString(name, kKeyFileNameSize, "%08lX.pky", number);
  PathRef moved(PathJoin(target, name));
  if (moved) MovePath(candidate.get(), moved.get());
  return true;
}

bool HoldsAnyFile(PathObject* folder) {
  ObjectRef<DirWalker> walker(DirWalkerCreate(folder));
  if (!walker) return false;
  walker.get()->flags = kReturnFiles;
  // A link to a folder around it would make the search endless.
  walker.get()->followReparse = kSkipFolderLinks;
  return static_cast<bool>(PathRef(DirWalkerNext(walker.get())));
}

// The folder `name` in the folder that the property `property` holds, if that exists. False when nothing can
// be said, because memory lacks.
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

// Finds the data folder of the previous server; it stays empty when there is none. False when nothing can be
// said.
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
  // Deliberate: the answer makes no difference, the same buffer receives the folder.
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
  // Deliberately read as 8-bit text, unlike everywhere else.
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
  // Deliberate: the folder is looked for, and nothing depends on the answer.
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
