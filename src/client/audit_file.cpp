// The machine's audit file.
//
// CustomAction11  empties the audit file in the application data folder of all users, if it exists: leaves
//                 twelve zero bytes in it. Reads no property, logs nothing, always returns 0.

#include <windows.h>
// These need windows.h first.
#include <msi.h>
#include <shlobj.h>

#include "base/late_binding.h"
#include "base/text.h"
#include "base/windows_owners.h"

namespace {

constexpr char kAuditFile[] = "\\Ostrel Audit";
// The size of the emptied file, in bytes, all zero.
constexpr DWORD kEmptyHeadSize = 12;

// Stores the application data folder of all users at `folder` (MAX_PATH bytes), or the Windows folder if
// there is none. Returns false if neither is found.
bool FindDataFolder(char* folder) {
  folder[0] = '\0';
  {
    Module module(LoadLate("SHFOLDER"));
    auto* getFolderPath = FindFunction<decltype(SHGetFolderPathA)>(module.get(), "SHGetFolderPathA");
    if (getFolderPath &&
        FAILED(getFolderPath(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder))) {
      folder[0] = '\0';
    }
  }
  if (folder[0]) return true;
  UINT length = GetWindowsDirectoryA(folder, MAX_PATH);
  return length && length < MAX_PATH;
}

}  // namespace

extern "C" UINT WINAPI CustomAction11(MSIHANDLE) {
  char path[MAX_PATH + sizeof kAuditFile];
  if (!FindDataFolder(path)) return ERROR_SUCCESS;
  size_t length = TxtLenA(path);
  if (path[length - 1] == '\\') --length;
  TxtCopyA(path + length, kAuditFile);

  FileHandle file(CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return ERROR_SUCCESS;
  SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
  SetEndOfFile(file.get());
  const BYTE zeros[kEmptyHeadSize] = {};
  DWORD written;
  WriteFile(file.get(), zeros, kEmptyHeadSize, &written, nullptr);
  return ERROR_SUCCESS;
}
