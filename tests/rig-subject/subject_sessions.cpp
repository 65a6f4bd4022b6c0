// The subject's use of terminal sessions, processes and privileges.
#include "subject_sessions.h"

#include <wtsapi32.h>

namespace {

constexpr size_t kTextSize = 32;

template <typename Signature>
Signature* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// The terminal services, found by name while this object lives.
struct TerminalServices {
  HMODULE module = LoadLibraryA("WTSAPI32");
  decltype(&WTSFreeMemory) free = Find<decltype(WTSFreeMemory)>(module, "WTSFreeMemory");

  ~TerminalServices() { FreeLibrary(module); }
};

void CopyText(wchar_t* to, const wchar_t* from) {
  size_t length = 0;
  for (; from[length] && length + 1 < kTextSize; ++length) to[length] = from[length];
  to[length] = L'\0';
}

SubjectEntry ToEntry(const WTS_PROCESS_INFOW& process) {
  SubjectEntry entry = {process.ProcessId, process.SessionId, 0, process.pProcessName != nullptr, {}};
  if (entry.hasText) CopyText(entry.text, process.pProcessName);
  return entry;
}

SubjectEntry ToEntry(const WTS_SESSION_INFOW& session) {
  SubjectEntry entry = {session.SessionId, 0, session.State, session.pWinStationName != nullptr, {}};
  if (entry.hasText) CopyText(entry.text, session.pWinStationName);
  return entry;
}

// Frees memory of the terminal services in the way that the fault asks for.
void GiveBack(const TerminalServices& services, void* memory, SubjectListFault fault) {
  volatile auto* bytes = static_cast<unsigned char*>(memory);
  constexpr size_t kFarBehind = 2048;
  if (fault == kSubjectListKept) return;
  if (fault == kSubjectListReadBehind) (void)bytes[kFarBehind];
  services.free(memory);
  if (fault == kSubjectListReadFreed) (void)bytes[0];
  if (fault == kSubjectListFreedTwice) services.free(memory);
}

template <typename Info>
DWORD List(BOOL WINAPI enumerate(HANDLE, DWORD, DWORD, Info**, DWORD*), const TerminalServices& services,
           SubjectEntry* entries, DWORD* count, SubjectListFault fault) {
  Info* list;
  DWORD found;
  if (!enumerate(WTS_CURRENT_SERVER_HANDLE, 0, 1, &list, &found)) return GetLastError();
  for (DWORD index = 0; index < found && index < *count; ++index) entries[index] = ToEntry(list[index]);
  *count = found;
  GiveBack(services, list, fault);
  return ERROR_SUCCESS;
}

}  // namespace

extern "C" {

DWORD SubjectListProcesses(SubjectEntry* entries, DWORD* count, SubjectListFault fault) {
  TerminalServices services;
  return List(Find<decltype(WTSEnumerateProcessesW)>(services.module, "WTSEnumerateProcessesW"), services,
              entries, count, fault);
}

DWORD SubjectListSessions(SubjectEntry* entries, DWORD* count, SubjectListFault fault) {
  TerminalServices services;
  return List(Find<decltype(WTSEnumerateSessionsW)>(services.module, "WTSEnumerateSessionsW"), services,
              entries, count, fault);
}

DWORD SubjectSessionUser(DWORD session, wchar_t* user, SubjectListFault fault) {
  TerminalServices services;
  auto query = Find<decltype(WTSQuerySessionInformationW)>(services.module, "WTSQuerySessionInformationW");
  wchar_t* text;
  DWORD size;
  if (!query(WTS_CURRENT_SERVER_HANDLE, session, WTSUserName, &text, &size)) return GetLastError();
  if (!text) return ERROR_SUCCESS;
  CopyText(user, text);
  GiveBack(services, text, fault);
  return ERROR_SUCCESS;
}

DWORD SubjectImageOf(DWORD id, DWORD access, wchar_t* image, DWORD size) {
  HANDLE process = OpenProcess(access, FALSE, id);
  if (!process) return GetLastError();
  auto query =
      Find<decltype(QueryFullProcessImageNameW)>(GetModuleHandleA("KERNEL32"), "QueryFullProcessImageNameW");
  DWORD error = query(process, 0, image, &size) ? ERROR_SUCCESS : GetLastError();
  CloseHandle(process);
  return error;
}

DWORD SubjectEndProcess(DWORD id, DWORD access, BOOL onlyAwaits, DWORD* wait, SubjectProcessFault fault) {
  HANDLE process = OpenProcess(access, FALSE, id);
  if (!process) return GetLastError();
  if (fault == kSubjectProcessUsedBehind) CloseHandle(process);
  DWORD error = ERROR_SUCCESS;
  if (!onlyAwaits && !TerminateProcess(process, 0)) error = GetLastError();
  if (!error) {
    *wait = WaitForSingleObject(process, 1000);
    if (*wait == WAIT_FAILED) error = GetLastError();
  }
  if (fault == kSubjectProcessSound) CloseHandle(process);
  return error;
}

DWORD SubjectTakePrivilege(const char* name, DWORD errorBefore, BOOL kept) {
  TOKEN_PRIVILEGES privileges = {};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  if (!LookupPrivilegeValueA(nullptr, name, &privileges.Privileges[0].Luid)) return GetLastError();
  HANDLE token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token)) {
    return GetLastError();
  }
  SetLastError(errorBefore);
  AdjustTokenPrivileges(token, FALSE, &privileges, sizeof privileges, nullptr, nullptr);
  DWORD error = GetLastError();
  if (!kept) CloseHandle(token);
  return error;
}

}  // extern "C"
