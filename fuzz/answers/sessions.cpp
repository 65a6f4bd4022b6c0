// Sessions of users, the processes in them, and the rights of this process.

#include "image.h"
#include "require.h"
#include "world.h"

#include <wtsapi32.h>

namespace {

// Now and then the system does not know a name.
std::u16string TakeName() {
  static constexpr const char16_t* kNames[] = {u"osua.exe", u"OSUA.EXE", u"SYSTEM", u"user", u""};
  std::u16string name = world.data.Flag() ? world.data.OneOf(kNames) : world.data.Wide(60);
  name.resize(std::min(name.find(u'\0'), name.size()));
  return name;
}

BOOL WINAPI AnswerWTSEnumerateSessionsW(HANDLE server, DWORD reserved, DWORD version,
                                        PWTS_SESSION_INFOW* sessions, DWORD* count) {
  REQUIRE(server == WTS_CURRENT_SERVER_HANDLE && !reserved && version == 1,
          "the sessions are listed in another way");
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  *count = world.data.Below(4);
  auto* list =
      static_cast<WTS_SESSION_INFOW*>(NewBlock(Kind::kSessionBlock, *count * sizeof(WTS_SESSION_INFOW)));
  for (DWORD i = 0; i < *count; ++i) {
    list[i].SessionId = world.data.Take<WORD>();
    list[i].State = static_cast<WTS_CONNECTSTATE_CLASS>(world.data.Below(WTSInit + 1));
  }
  *sessions = list;
  return TRUE;
}

BOOL WINAPI AnswerWTSQuerySessionInformationW(HANDLE, DWORD, WTS_INFO_CLASS kind, LPWSTR* text, DWORD* size) {
  REQUIRE(kind == WTSUserName, "a session is asked for %d", kind);
  if (MustFail()) return WithError(ERROR_FILE_NOT_FOUND, FALSE);
  const std::u16string name = TakeName();
  *size = static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t));
  *text = static_cast<LPWSTR>(NewBlock(Kind::kSessionBlock, *size));
  memcpy(*text, name.c_str(), *size);
  return TRUE;
}

// The names come after the list, in the same block.
BOOL WINAPI AnswerWTSEnumerateProcessesW(HANDLE server, DWORD reserved, DWORD version,
                                         PWTS_PROCESS_INFOW* processes, DWORD* count) {
  REQUIRE(server == WTS_CURRENT_SERVER_HANDLE && !reserved && version == 1,
          "the processes are listed in another way");
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  std::vector<std::u16string> names(world.data.Below(5));
  for (std::u16string& name : names) name = TakeName();
  size_t size = names.size() * sizeof(WTS_PROCESS_INFOW);
  for (const std::u16string& name : names) size += (name.size() + 1) * sizeof(wchar_t);
  auto* list = static_cast<WTS_PROCESS_INFOW*>(NewBlock(Kind::kSessionBlock, size));
  auto* text = reinterpret_cast<wchar_t*>(list + names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    list[i] = {world.data.Byte(), world.data.Take<WORD>(), text, nullptr};
    memcpy(text, names[i].c_str(), (names[i].size() + 1) * sizeof(wchar_t));
    text += names[i].size() + 1;
    // A process without a name.
    if (names[i].empty()) list[i].pProcessName = nullptr;
  }
  *count = static_cast<DWORD>(names.size());
  *processes = list;
  return TRUE;
}

void WINAPI AnswerWTSFreeMemory(PVOID block) {
  FreeBlock(Kind::kSessionBlock, block);
}

HANDLE WINAPI AnswerOpenProcess(DWORD access, BOOL isInherited, DWORD) {
  REQUIRE(!isInherited && access & PROCESS_TERMINATE, "a process is opened with the access %x", access);
  return MustFail() ? WithError(ERROR_ACCESS_DENIED, nullptr) : NewHandle(Kind::kHandle);
}

BOOL WINAPI AnswerQueryFullProcessImageNameW(HANDLE process, DWORD, LPWSTR buffer, PDWORD count) {
  static constexpr const char16_t* kImages[] = {u"C:\\folder\\osua.exe", u"C:\\Windows\\Installer\\x.exe",
                                                u"C:\\a", u"c:\\WINDOWS\\installer\\"};
  NeedHeld(Kind::kHandle, process);
  if (MustFail()) return WithError(ERROR_GEN_FAILURE, FALSE);
  std::u16string image = world.data.Flag() ? world.data.OneOf(kImages) : world.data.Wide(255);
  image.resize(std::min(image.find(u'\0'), image.size()));
  if (image.size() >= *count) return WithError(ERROR_INSUFFICIENT_BUFFER, FALSE);
  memcpy(buffer, image.c_str(), (image.size() + 1) * sizeof(wchar_t));
  *count = static_cast<DWORD>(image.size());
  return TRUE;
}

BOOL WINAPI AnswerTerminateProcess(HANDLE process, UINT) {
  NeedHeld(Kind::kHandle, process);
  return MustFail() ? WithError(ERROR_ACCESS_DENIED, FALSE) : TRUE;
}

DWORD WINAPI AnswerWaitForSingleObject(HANDLE process, DWORD milliseconds) {
  NeedHeld(Kind::kHandle, process);
  REQUIRE(milliseconds != INFINITE, "the library waits for a process without a limit");
  return MustFail() ? WAIT_TIMEOUT : WAIT_OBJECT_0;
}

WINBOOL WINAPI AnswerLookupPrivilegeValueA(LPCSTR, LPCSTR name, PLUID luid) {
  REQUIRE(!strcmp(name, "SeDebugPrivilege"), "the privilege %s is looked up", name);
  if (MustFail()) return WithError(ERROR_NO_SUCH_PRIVILEGE, FALSE);
  *luid = {20, 0};
  return TRUE;
}

WINBOOL WINAPI AnswerOpenProcessToken(HANDLE, DWORD, PHANDLE token) {
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, FALSE);
  *token = NewHandle(Kind::kHandle);
  return TRUE;
}

WINBOOL WINAPI AnswerAdjustTokenPrivileges(HANDLE token, WINBOOL, PTOKEN_PRIVILEGES privileges, DWORD,
                                           PTOKEN_PRIVILEGES, PDWORD) {
  NeedHeld(Kind::kHandle, token);
  REQUIRE(privileges->PrivilegeCount == 1, "%u privileges are changed", privileges->PrivilegeCount);
  return WithError(MustFail() ? ERROR_NOT_ALL_ASSIGNED : ERROR_SUCCESS, TRUE);
}

const Answers kSessions{
    ANSWER(AdjustTokenPrivileges, AnswerAdjustTokenPrivileges),
    ANSWER(LookupPrivilegeValueA, AnswerLookupPrivilegeValueA),
    ANSWER(OpenProcess, AnswerOpenProcess),
    ANSWER(OpenProcessToken, AnswerOpenProcessToken),
    ANSWER(QueryFullProcessImageNameW, AnswerQueryFullProcessImageNameW),
    ANSWER(TerminateProcess, AnswerTerminateProcess),
    ANSWER(WTSEnumerateProcessesW, AnswerWTSEnumerateProcessesW),
    ANSWER(WTSEnumerateSessionsW, AnswerWTSEnumerateSessionsW),
    ANSWER(WTSFreeMemory, AnswerWTSFreeMemory),
    ANSWER(WTSQuerySessionInformationW, AnswerWTSQuerySessionInformationW),
    ANSWER(WaitForSingleObject, AnswerWaitForSingleObject),
};

}  // namespace
