#include "files/standard_folders.h"

#include <shlobj.h>

#include "base/owner.h"
#include "base/text.h"

namespace {

// The buffer of a folder's text, in characters including the terminator.
constexpr UINT kFolderSize = MAX_PATH;

constinit LateModule shell32{"SHELL32", LateRule::kLoadOnce};
constinit LateFunction<decltype(SHGetKnownFolderPath)> knownFolderPath{&shell32, "SHGetKnownFolderPath",
                                                                       E_NOTIMPL};
constinit LateModule shfolder{"SHFOLDER", LateRule::kLoadOnce};
constinit LateFunction<decltype(SHGetFolderPathW)> shellFolderPath{&shfolder, "SHGetFolderPathW", E_NOTIMPL};

// A text allocated by the COM task allocator.
using TaskString = Unique<NullableTraits<PWSTR, CoTaskMemFree>>;

// The text of a folder that Windows returned.
struct FolderText {
  wchar_t buffer[kFolderSize];
  TaskString known;
};

// Asks Windows for a folder. Returns the text, owned by `text`, or null if there is no answer.
using Question = const wchar_t*(const void* argument, FolderText* text);

// Returns the buffer after a call that fills it. A `reported` length of 0, or one that says the buffer was
// too small, counts as no answer.
const wchar_t* Filled(const FolderText& text, DWORD reported) {
  return reported && reported < kFolderSize ? text.buffer : nullptr;
}

const wchar_t* CurrentFolder(const void*, FolderText* text) {
  return Filled(*text, GetCurrentDirectoryW(kFolderSize, text->buffer));
}

const wchar_t* ProgramFolder(const void*, FolderText* text) {
  if (!Filled(*text, GetModuleFileNameW(nullptr, text->buffer, kFolderSize))) return nullptr;
  const wchar_t* name = TxtFindLastCharW(text->buffer, L'\\');
  if (!name) return nullptr;
  text->buffer[name - text->buffer] = L'\0';
  return text->buffer;
}

const wchar_t* KnownFolder(const void* identifier, FolderText* text) {
  const auto& folder = *static_cast<const KNOWNFOLDERID*>(identifier);
  text->known.keep(SUCCEEDED(knownFolderPath(folder, 0, nullptr, text->known.put())));
  return text->known.get();
}

const wchar_t* ShellFolder(const void* identifier, FolderText* text) {
  text->buffer[0] = L'\0';
  HRESULT result = shellFolderPath(nullptr, *static_cast<const int*>(identifier), nullptr, SHGFP_TYPE_CURRENT,
                                   text->buffer);
  return SUCCEEDED(result) && text->buffer[0] ? text->buffer : nullptr;
}

const wchar_t* SystemFolder(const void*, FolderText* text) {
  return Filled(*text, GetSystemDirectoryW(text->buffer, kFolderSize));
}

const wchar_t* SystemDrive(const void*, FolderText* text) {
  if (!SystemFolder(nullptr, text)) return nullptr;
  constexpr size_t kDriveLength = 2;
  text->buffer[kDriveLength] = L'\0';
  return text->buffer;
}

const wchar_t* UsersOnSystemDrive(const void*, FolderText* text) {
  if (!SystemFolder(nullptr, text)) return nullptr;
  constexpr size_t kDriveRootLength = 3;
  if (text->buffer[1] == L':') TxtCopyW(text->buffer + kDriveRootLength, L"Users");
  return text->buffer;
}

const wchar_t* MachineWindowsFolder(const void*, FolderText* text) {
  return Filled(*text, systemWindowsDirectory(text->buffer, kFolderSize));
}

const wchar_t* WindowsFolder(const void*, FolderText* text) {
  return Filled(*text, GetWindowsDirectoryW(text->buffer, kFolderSize));
}

const wchar_t* TemporaryFolder(const void*, FolderText* text) {
  return Filled(*text, GetTempPathW(kFolderSize, text->buffer));
}

// Identifiers of known folders: defined here, because no import library contains them.
constexpr KNOWNFOLDERID kUserProfiles = {
    0x0762D272, 0xC50A, 0x4BB0, {0xA3, 0x82, 0x69, 0x7D, 0xCD, 0x72, 0x9B, 0x80}};
constexpr KNOWNFOLDERID kProgramsX64 = {
    0x6D809377, 0x6AF0, 0x444B, {0x89, 0x57, 0xA3, 0x77, 0x3F, 0x02, 0x20, 0x0E}};
constexpr KNOWNFOLDERID kProgramsX86 = {
    0x7C5A40EF, 0xA0FB, 0x4BFC, {0x87, 0x4A, 0xC0, 0xF2, 0xE0, 0xB9, 0xFA, 0x8E}};

constexpr int kProgramFiles = CSIDL_PROGRAM_FILES;
constexpr int kProgramFilesX86 = CSIDL_PROGRAM_FILESX86;
constexpr int kCommonFiles = CSIDL_PROGRAM_FILES_COMMON;
constexpr int kRoamingData = CSIDL_APPDATA;
constexpr int kLocalData = CSIDL_LOCAL_APPDATA;
constexpr int kAllUsersData = CSIDL_COMMON_APPDATA;

// One way to find a folder.
struct Resolver {
  Question* ask = nullptr;
  const void* argument = nullptr;
  const char* below = nullptr;  // a name to join onto the answer
};

// The ways to find the folder of a tag, in the order in which they are tried.
struct FolderRule {
  DWORD tag;
  Resolver resolvers[3];
};

constexpr Resolver kWindows = {WindowsFolder};
constexpr Resolver kTemporary = {TemporaryFolder};
constexpr Resolver kAllUsers = {ShellFolder, &kAllUsersData};
constexpr Resolver kLocal = {ShellFolder, &kLocalData};

constexpr FolderRule kRules[] = {
    {FourCharCode("curr"), {{CurrentFolder}}},
    {FourCharCode("proc"), {{ProgramFolder}}},
    {FourCharCode("user"), {{KnownFolder, &kUserProfiles}, {UsersOnSystemDrive}}},
    {FourCharCode("pr64"), {{KnownFolder, &kProgramsX64}, {ShellFolder, &kProgramFiles}, kWindows}},
    {FourCharCode("pr32"), {{KnownFolder, &kProgramsX86}, {ShellFolder, &kProgramFilesX86}, kWindows}},
    {FourCharCode("prog"), {{ShellFolder, &kProgramFiles}, kWindows}},
    {FourCharCode("comn"),
     {{ShellFolder, &kCommonFiles}, {ShellFolder, &kProgramFiles, "Common Files"}, kWindows}},
    {FourCharCode("rsup"), {{ShellFolder, &kRoamingData}, kWindows}},
    {FourCharCode("sprf"), {kAllUsers, kWindows}},
    {FourCharCode("asup"), {kAllUsers, kWindows}},
    {FourCharCode("slog"), {kAllUsers, kTemporary}},
    {FourCharCode("pref"), {kLocal, kWindows}},
    {FourCharCode("cach"), {kLocal, kWindows}},
    {FourCharCode("lsup"), {kLocal, kWindows}},
    {FourCharCode("sdrv"), {{SystemDrive}}},
    {FourCharCode("swin"), {{MachineWindowsFolder}, kWindows}},
    {FourCharCode("extn"), {{SystemFolder}}},
    {FourCharCode("temp"), {kTemporary}},
    {FourCharCode("logs"), {kTemporary}},
};
constexpr FolderRule kAnyOther = {0, {kWindows}};

const FolderRule& FindRule(DWORD tag) {
  for (const FolderRule& rule : kRules) {
    if (rule.tag == tag) return rule;
  }
  return kAnyOther;
}

}  // namespace

PathObject* GetStandardFolder(DWORD tag) {
  for (const Resolver& resolver : FindRule(tag).resolvers) {
    if (!resolver.ask) break;
    FolderText text;
    const wchar_t* answer = resolver.ask(resolver.argument, &text);
    if (!answer) continue;
    if (!*answer) return nullptr;
    PathRef folder(PathJoinWide(nullptr, answer, -1));
    return folder && resolver.below ? PathJoin(folder.get(), resolver.below) : folder.release();
  }
  return nullptr;
}
