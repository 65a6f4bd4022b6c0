#include "subject.h"

#include <msiquery.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>
#include <stdarg.h>

namespace {

template <typename Signature>
Signature* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

void Copy(wchar_t* to, const wchar_t* from) {
  while ((*to++ = *from++) != 0) {
  }
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
  return TRUE;
}

void* SubjectLeak(size_t size) {
  return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
}

void SubjectFree(void* block) {
  HeapFree(GetProcessHeap(), 0, block);
}

void SubjectWriteAt(size_t size, ptrdiff_t offset) {
  auto* block = static_cast<volatile unsigned char*>(HeapAlloc(GetProcessHeap(), 0, size));
  block[offset] = 1;
  HeapFree(GetProcessHeap(), 0, const_cast<unsigned char*>(block));
}

unsigned char SubjectReadAt(size_t size, ptrdiff_t offset, BOOL freeFirst) {
  auto* block = static_cast<volatile unsigned char*>(HeapAlloc(GetProcessHeap(), 0, size));
  if (freeFirst) HeapFree(GetProcessHeap(), 0, const_cast<unsigned char*>(block));
  unsigned char byte = block[offset];
  if (!freeFirst) HeapFree(GetProcessHeap(), 0, const_cast<unsigned char*>(block));
  return byte;
}

void SubjectGrow(DWORD flags, unsigned char* bytes) {
  constexpr size_t kBefore = 5;
  constexpr size_t kAfter = 9;
  auto* block = static_cast<unsigned char*>(HeapAlloc(GetProcessHeap(), flags, kBefore));
  block[0] = 'x';
  block = static_cast<unsigned char*>(HeapReAlloc(GetProcessHeap(), flags, block, kAfter));
  for (size_t index = 0; index < kAfter; ++index) bytes[index] = block[index];
  HeapFree(GetProcessHeap(), 0, block);
}

void SubjectFreeTwice() {
  void* block = HeapAlloc(GetProcessHeap(), 0, 1);
  HeapFree(GetProcessHeap(), 0, block);
  HeapFree(GetProcessHeap(), 0, block);
}

void SubjectFreeForeign() {
  static int foreign;
  HeapFree(GetProcessHeap(), 0, &foreign);
}

int SubjectReadNull() {
  int* volatile nowhere = nullptr;
  return *static_cast<volatile int*>(nowhere);
}

int SubjectRecurse(int depth) {
  // Each call needs some stack.
  volatile int room[64] = {depth};
  return depth == 0 ? 0 : SubjectRecurse(depth - 1) + room[0];
}

void SubjectTrap() {
  __builtin_trap();
}

int SubjectOverrunStack(size_t length) {
  char buffer[16] = {};
  // Hides from the compiler where the bytes go.
  char* volatile target = buffer;
  for (size_t i = 0; i < length; ++i) target[i] = static_cast<char>(i + 1);
  return buffer[0];
}

unsigned char SubjectPeek(const unsigned char* address) {
  return *address;
}

unsigned char SubjectReadConstant(SubjectConstant constant, ptrdiff_t offset) {
  static constexpr int kTable[] = {1, 2, 3};
  static_assert(sizeof "plain" == kSubjectTextSize && sizeof L"wide" == kSubjectWideTextSize &&
                sizeof kTable == kSubjectTableSize);
  const void* const constants[] = {"plain", L"wide", kTable};
  return static_cast<const volatile unsigned char*>(constants[constant])[offset];
}

int SubjectCount() {
  static int count;
  return ++count;
}

int SubjectSum(int count, ...) {
  va_list arguments;
  va_start(arguments, count);
  int sum = 0;
  for (int index = 0; index < count; ++index) sum += va_arg(arguments, int);
  va_end(arguments);
  return sum;
}

LSTATUS SubjectKey(int closings, BOOL readBehind) {
  HKEY key = nullptr;
  LSTATUS error = RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Subject", 0, KEY_QUERY_VALUE, &key);
  if (error) return error;
  for (int index = 0; index < closings; ++index) RegCloseKey(key);
  if (readBehind) RegQueryValueExA(key, "value", nullptr, nullptr, nullptr, nullptr);
  return 0;
}

void SubjectCloseLeftover() {
  HKEY key = nullptr;
  RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Missing", 0, KEY_QUERY_VALUE, &key);
  if (key) RegCloseKey(key);
}

MSIHANDLE SubjectKeepRecord() {
  return MsiCreateRecord(2);
}

LSTATUS SubjectDeleteKey(HKEY root, const char* path) {
  return RegDeleteKeyA(root, path);
}

LSTATUS SubjectDeleteTree(const char* path, BOOL keep) {
  HMODULE module = LoadLibraryA("SHLWAPI.DLL");
  if (!module) return 1;
  auto function = Find<LSTATUS WINAPI(HKEY, const char*)>(module, "SHDeleteKey");
  LSTATUS result = function ? function(HKEY_CURRENT_USER, path) : 2;
  if (!keep) FreeLibrary(module);
  return result;
}

UINT SubjectWindowsDirectory(wchar_t* buffer, UINT size) {
  HMODULE module = GetModuleHandleA("KERNEL32");
  if (!module) return ~0U;
  auto function = Find<decltype(GetSystemWindowsDirectoryW)>(module, "GetSystemWindowsDirectoryW");
  return function ? function(buffer, size) : ~0U;
}

FARPROC SubjectFindUnknown() {
  return GetProcAddress(GetModuleHandleA("KERNEL32"), "SubjectUnknown");
}

void SubjectErrorMode(BOOL restore) {
  UINT before = SetErrorMode(SEM_FAILCRITICALERRORS);
  if (restore) SetErrorMode(before);
}

UINT SubjectGetPropertyA(MSIHANDLE session, const char* name, char* buffer, DWORD* count) {
  return MsiGetPropertyA(session, name, buffer, count);
}

UINT SubjectGetPropertyW(MSIHANDLE session, const wchar_t* name, wchar_t* buffer, DWORD* count) {
  return MsiGetPropertyW(session, name, buffer, count);
}

UINT SubjectSetPropertyA(MSIHANDLE session, const char* name, const char* value) {
  return MsiSetPropertyA(session, name, value);
}

int SubjectSend(MSIHANDLE session, DWORD type, const char* field0, const char* field1) {
  MSIHANDLE record = MsiCreateRecord(2);
  if (!record) return -2;
  MsiRecordSetStringA(record, 0, field0);
  MsiRecordSetStringA(record, 1, field1);
  int result = MsiProcessMessage(session, static_cast<INSTALLMESSAGE>(type), record);
  MsiCloseHandle(record);
  return result;
}

int SubjectBox(const char* text, const char* title) {
  return MessageBoxA(nullptr, text, title, MB_OK);
}

LSTATUS SubjectReadValue(HKEY root, const char* path, REGSAM access, const char* name, DWORD* type,
                         BYTE* data, DWORD* size) {
  HKEY key = nullptr;
  LSTATUS error = RegOpenKeyExA(root, path, 0, access, &key);
  if (error) return error;
  error = RegQueryValueExA(key, name, nullptr, type, data, size);
  RegCloseKey(key);
  return error;
}

LSTATUS SubjectWriteValue(HKEY root, const char* path, REGSAM access, const char* name, DWORD type,
                          const BYTE* data, DWORD size) {
  HKEY key = nullptr;
  LSTATUS error = RegOpenKeyExA(root, path, 0, access, &key);
  if (error) return error;
  error = RegSetValueExA(key, name, 0, type, data, size);
  RegCloseKey(key);
  return error;
}

UINT SubjectProfileInt(const char* section, const char* key, INT missing, const char* file) {
  return GetPrivateProfileIntA(section, key, missing, file);
}

DWORD SubjectProfileString(const char* section, const char* key, const char* missing, char* buffer,
                           DWORD size, const char* file) {
  return GetPrivateProfileStringA(section, key, missing, buffer, size, file);
}

DWORD SubjectVersion() {
  return GetVersion();
}

DWORD SubjectTicks() {
  return GetTickCount();
}

DWORD SubjectStray() {
  wchar_t path[MAX_PATH];
  return Find<decltype(GetModuleFileNameW)>(GetModuleHandleA("KERNEL32"), "GetModuleFileNameW")(nullptr, path,
                                                                                                MAX_PATH);
}

HRESULT SubjectKnownFolder(const GUID* id, wchar_t* path, BOOL keep) {
  HMODULE shell = LoadLibraryA("SHELL32");
  HMODULE ole = LoadLibraryA("OLE32");
  auto function = Find<decltype(SHGetKnownFolderPath)>(shell, "SHGetKnownFolderPath");
  HRESULT result = 1;
  if (function) {
    wchar_t* found = nullptr;
    result = function(*id, 0, nullptr, &found);
    if (SUCCEEDED(result)) Copy(path, found);
    if (SUCCEEDED(result) && !keep) Find<decltype(CoTaskMemFree)>(ole, "CoTaskMemFree")(found);
  }
  FreeLibrary(ole);
  FreeLibrary(shell);
  return result;
}

HRESULT SubjectFolder(int csidl, wchar_t* path) {
  HMODULE module = LoadLibraryA("SHFOLDER");
  auto function = Find<decltype(SHGetFolderPathW)>(module, "SHGetFolderPathW");
  HRESULT result = function ? function(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, path) : 1;
  FreeLibrary(module);
  return result;
}

int SubjectSplit(const wchar_t* line, wchar_t* last, BOOL keep) {
  HMODULE module = LoadLibraryA("SHELL32");
  int count = 0;
  wchar_t** list = Find<decltype(CommandLineToArgvW)>(module, "CommandLineToArgvW")(line, &count);
  FreeLibrary(module);
  if (!list) return -1;
  Copy(last, list[count - 1]);
  if (!keep) Find<decltype(LocalFree)>(GetModuleHandleA("KERNEL32"), "LocalFree")(list);
  return count;
}

int SubjectStamp(wchar_t* buffer, const wchar_t* text, int first, int second, unsigned third) {
  return Find<decltype(wsprintfW)>(GetModuleHandleA("USER32"), "wsprintfW")(buffer, L"%s|%04d %d%%|%u", text,
                                                                            first, second, third);
}

int SubjectStampOther(wchar_t* buffer) {
  return Find<decltype(wsprintfW)>(GetModuleHandleA("USER32"), "wsprintfW")(buffer, L"%d %hs %d", 1, "x", 2);
}

UINT SubjectAction(MSIHANDLE session, SubjectFault fault) {
  constexpr DWORD kSize = 32;
  if (fault == kSubjectWanders && GetTickCount() % 2 != 0) SubjectFree(SubjectLeak(1));
  auto* text = static_cast<char*>(SubjectLeak(kSize));
  if (!text && fault == kSubjectCrashes) *static_cast<volatile char*>(text) = 'x';
  if (!text) return 0;
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Subject", 0, KEY_QUERY_VALUE, &key)) {
    if (fault != kSubjectLeaks) SubjectFree(text);
    return 0;
  }
  DWORD size = kSize;
  LSTATUS error = RegQueryValueExA(key, "value", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(key);
  UINT result = 0;
  if (!error) {
    UINT failed = MsiSetPropertyA(session, "PROP_SUBJECT", text);
    if (failed && fault == kSubjectLies) result = 5;
  } else if (fault == kSubjectStrays) {
    SubjectStray();
  }
  SubjectFree(text);
  return result;
}

UINT WINAPI CustomAction1(MSIHANDLE session) {
  return SubjectAction(session, kSubjectSound);
}

UINT WINAPI CustomAction2(MSIHANDLE) {
  return ERROR_INSTALL_FAILURE;
}

}  // extern "C"
