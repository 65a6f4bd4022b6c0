#include "rig/world/shell.h"

#include <shellapi.h>
#include <shlobj.h>

#include <cwchar>
#include <vector>

#include "rig/function.h"
#include "rig/guarded_heap.h"

namespace rig {
namespace {

// Allocates the list in one block, laid out as the system does: first the pointers, then the texts.
wchar_t** GiveList(const std::vector<std::wstring>& texts) {
  size_t size = (texts.size() + 1) * sizeof(wchar_t*);
  for (const std::wstring& text : texts) {
    size += (text.size() + 1) * sizeof(wchar_t);
  }
  auto** list = static_cast<wchar_t**>(GuardedHeap::Get().Allocate(size));
  auto* at = reinterpret_cast<wchar_t*>(list + texts.size() + 1);
  for (size_t index = 0; index < texts.size(); ++index) {
    list[index] = at;
    std::wmemcpy(at, texts[index].c_str(), texts[index].size() + 1);
    at += texts[index].size() + 1;
  }
  list[texts.size()] = nullptr;
  return list;
}

wchar_t** Split(const wchar_t* line, int* count) {
  wchar_t** split = Function<&::CommandLineToArgvW>::Real()(line, count);
  if (split == nullptr) {
    return nullptr;
  }
  std::vector<std::wstring> texts(split, split + *count);
  Function<&::LocalFree>::Real()(split);
  return GiveList(texts);
}

}  // namespace

std::map<int, Shell::Folder> Shell::DefaultFolders() {
  return {
      {CSIDL_APPDATA, {S_OK, L"C:\\Users\\rig\\AppData\\Roaming"}},
      {CSIDL_LOCAL_APPDATA, {S_OK, L"C:\\Users\\rig\\AppData\\Local"}},
      {CSIDL_COMMON_APPDATA, {S_OK, L"C:\\ProgramData"}},
      {CSIDL_PROGRAM_FILES, {S_OK, L"C:\\Program Files"}},
      {CSIDL_PROGRAM_FILESX86, {S_OK, L"C:\\Program Files (x86)"}},
      {CSIDL_PROGRAM_FILES_COMMON, {S_OK, L"C:\\Program Files\\Common Files"}},
  };
}

std::map<GUID, Shell::Folder, Shell::IdOrder> Shell::DefaultKnownFolders() {
  return {
      {FOLDERID_UserProfiles, {S_OK, L"C:\\Users"}},
      {FOLDERID_ProgramFilesX64, {S_OK, L"C:\\Program Files"}},
      {FOLDERID_ProgramFilesX86, {S_OK, L"C:\\Program Files (x86)"}},
  };
}

HRESULT Shell::GiveFolder(int csidl, wchar_t* path) {
  auto folder = folders_.find(csidl);
  if (folder == folders_.end()) {
    rig::Fail("no folder is arranged for CSIDL " + std::to_string(csidl));
    return E_INVALIDARG;
  }
  if (folder->second.result == S_OK) {
    std::wmemcpy(path, folder->second.path.c_str(), folder->second.path.size() + 1);
  }
  return folder->second.result;
}

HRESULT Shell::GiveKnownFolder(const GUID& id, wchar_t** path) {
  *path = nullptr;
  auto folder = known_.find(id);
  if (folder == known_.end()) {
    rig::Fail("no folder is arranged for KNOWNFOLDERID " + GuidText(id));
    return E_INVALIDARG;
  }
  if (SUCCEEDED(folder->second.result)) {
    size_t size = (folder->second.path.size() + 1) * sizeof(wchar_t);
    // The rig records it in the ledger because of the function's declaration.
    *path = static_cast<wchar_t*>(GuardedHeap::Get().Allocate(size));
    std::memcpy(*path, folder->second.path.c_str(), size);
  }
  return folder->second.result;
}

void Shell::Install() {
  rig_.On<::SHGetFolderPathA>([this](HWND, int csidl, HANDLE, DWORD, char* path) {
    wchar_t wide[MAX_PATH];
    HRESULT result = GiveFolder(csidl, wide);
    if (result == S_OK) {
      WideCharToMultiByte(CP_ACP, 0, wide, -1, path, MAX_PATH, nullptr, nullptr);
    }
    return result;
  });
  rig_.On<::SHGetFolderPathW>(
      [this](HWND, int csidl, HANDLE, DWORD, wchar_t* path) { return GiveFolder(csidl, path); });
  rig_.On<::SHGetKnownFolderPath>(
      [this](const GUID& id, DWORD, HANDLE, wchar_t** path) { return GiveKnownFolder(id, path); });
  rig_.On<::CommandLineToArgvW>([](const wchar_t* line, int* count) { return Split(line, count); });
}

}  // namespace rig
