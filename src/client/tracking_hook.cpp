// The tracking library, which is loaded into every process that has windows.
//
// CustomAction9   adds the tracking library to the list of libraries that Windows loads into such processes.
// CustomAction10  removes it from the list.
//
// Both read no property, log nothing and always return 0.

#include "client/tracking_hook.h"

#include <windows.h>
// Needs windows.h first.
#include <msi.h>

#include "base/heap.h"
#include "base/late_binding.h"
#include "base/text.h"
#include "base/windows_owners.h"

namespace {

constexpr char kWindowsKey[] = "Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows";
constexpr char kListValue[] = "AppInit_DLLs";
constexpr char kSwitchValue[] = "LoadAppInit_DLLs";
constexpr DWORD kSwitchedOn = 1;

// The libraries for 32-bit and for 64-bit processes.
constexpr char kLibrary32[] = "OSTRACK.DLL";
constexpr char kLibrary64[] = "OSTRK64.DLL";

// The bytes that a list's block has besides the list and the new name: for a space and terminators.
constexpr size_t kListSlack = 8;

constinit LateModule kernel32{"KERNEL32", LateRule::kLoaded};
constinit LateFunction<decltype(IsWow64Process)> isWow64Process{&kernel32, "IsWow64Process", FALSE};

RegistryKey OpenWindowsKey(REGSAM view) {
  RegistryKey key;
  REGSAM access = KEY_QUERY_VALUE | KEY_SET_VALUE | view;
  key.keep(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kWindowsKey, 0, access, key.put()) == ERROR_SUCCESS);
  return key;
}

bool WriteList(HKEY key, const char* list, size_t size) {
  return RegSetValueExA(key, kListValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(list),
                        static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

// Reads the list of `size` bytes into a new block with `slack` more zero bytes; null on failure.
HeapStringA ReadList(HKEY key, DWORD size, size_t slack) {
  HeapStringA list(static_cast<char*>(HeapAllocZero(size + slack)));
  if (list && RegQueryValueExA(key, kListValue, nullptr, nullptr, reinterpret_cast<BYTE*>(list.get()),
                               &size) != ERROR_SUCCESS) {
    list.reset();
  }
  return list;
}

// Adds `name` to the list unless it is in it already. Returns true also if the list is not a string, which is
// left unchanged. Returns false on failure: the switch is then left unchanged too.
bool AddToList(HKEY key, const char* name) {
  size_t nameLength = TxtLenA(name);
  DWORD type;
  DWORD size = 0;
  if (RegQueryValueExA(key, kListValue, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
    return WriteList(key, name, nameLength + 1);
  }
  if (type != REG_SZ) return true;
  HeapStringA list = ReadList(key, size, nameLength + kListSlack);
  if (!list) return false;
  if (TxtFindA(list.get(), name)) return true;
  size_t newSize = size + nameLength;
  char* end = list.get() + TxtLenA(list.get());
  // A size of 1 is the terminator of an empty list.
  if (size > 1) {
    *end++ = ' ';
    ++newSize;
  }
  TxtCopyA(end, name);
  return WriteList(key, list.get(), newSize);
}

// Makes Windows use the list. A switch of another type (whatever its size), and one that cannot be read, is
// left unchanged.
void SwitchOn(HKEY key) {
  DWORD type = REG_DWORD;
  DWORD value = 0;
  DWORD size = sizeof value;
  LSTATUS status =
      RegQueryValueExA(key, kSwitchValue, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
  if (status == ERROR_FILE_NOT_FOUND) {
    value = 0;
  } else if (status != ERROR_SUCCESS || type != REG_DWORD) {
    return;
  }
  if (value & kSwitchedOn) return;
  value |= kSwitchedOn;
  RegSetValueExA(key, kSwitchValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
}

// Removes `length` characters at `found` from `list`, with the space that separates them from the rest.
void CutOut(const char* list, char* found, size_t length) {
  char* behind = found + length;
  if (found == list) {
    if (*behind == ' ') ++behind;
  } else if (found[-1] == ' ') {
    --found;
  }
  MoveBytes(found, behind, TxtLenA(behind) + 1);
}

// Calls `edit` for each library, with the registry view that its processes see. If this process does not run
// under WOW64, that is only the 32-bit library, with the default view.
void EditViews(int (*edit)(const char* name, REGSAM view)) {
  BOOL isWow64 = FALSE;
  if (isWow64Process(GetCurrentProcess(), &isWow64) && isWow64) {
    edit(kLibrary64, KEY_WOW64_64KEY);
    edit(kLibrary32, KEY_WOW64_32KEY);
  } else {
    edit(kLibrary32, 0);
  }
}

}  // namespace

int AddAppInitDll(const char* name, REGSAM view) {
  RegistryKey key = OpenWindowsKey(view);
  if (key && AddToList(key.get(), name)) SwitchOn(key.get());
  return 0;
}

int RemoveAppInitDll(const char* name, REGSAM view) {
  RegistryKey key = OpenWindowsKey(view);
  if (!key) return 0;
  DWORD type;
  DWORD size = 0;
  if (RegQueryValueExA(key.get(), kListValue, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return 0;
  if (type != REG_SZ) return 0;
  HeapStringA list = ReadList(key.get(), size, 1);
  if (!list) return 0;
  const char* found = TxtFindA(list.get(), name);
  if (!found) return 0;
  CutOut(list.get(), list.get() + (found - list.get()), TxtLenA(name));
  if (list.get()[0]) {
    WriteList(key.get(), list.get(), TxtLenA(list.get()) + 1);
  } else {
    RegDeleteValueA(key.get(), kListValue);
  }
  return 0;
}

extern "C" UINT WINAPI CustomAction9(MSIHANDLE) {
  EditViews(AddAppInitDll);
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction10(MSIHANDLE) {
  EditViews(RemoveAppInitDll);
  return ERROR_SUCCESS;
}
