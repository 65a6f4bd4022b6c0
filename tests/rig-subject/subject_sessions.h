// The subject's use of terminal sessions, processes and privileges. Used by
// tests/unit/rig/rig_sessions_test.cpp.
#pragma once

#include <windows.h>

extern "C" {

/// A session or a process, as the subject copies it out of a list.
struct SubjectEntry {
  DWORD id;          ///< Its number.
  DWORD session;     ///< The session of a process.
  int state;         ///< The state of a session.
  BOOL hasText;      ///< True if it has a name.
  wchar_t text[32];  ///< The name.
};
/// How the subject treats a list or text of the terminal services.
enum SubjectListFault {
  kSubjectListSound,       ///< Frees it.
  kSubjectListKept,        ///< Does not free it.
  kSubjectListReadBehind,  ///< Reads far past its end.
  kSubjectListReadFreed,   ///< Reads it after freeing it.
  kSubjectListFreedTwice,  ///< Frees it twice.
};
/// Copies the list of processes to `entries`, which has room for `*count`, and stores their number in
/// `*count`. Returns the error, like all of these functions.
DWORD SubjectListProcesses(SubjectEntry* entries, DWORD* count, SubjectListFault fault);
/// Does the same with the list of sessions.
DWORD SubjectListSessions(SubjectEntry* entries, DWORD* count, SubjectListFault fault);
/// Copies the name of the session's user to `user` (32 characters), which stays unchanged if there is no
/// text.
DWORD SubjectSessionUser(DWORD session, wchar_t* user, SubjectListFault fault);

/// How the subject treats the handle of a process.
enum SubjectProcessFault {
  kSubjectProcessSound,       ///< Closes it.
  kSubjectProcessKept,        ///< Does not close it.
  kSubjectProcessUsedBehind,  ///< Ends the process through a handle that it has already closed.
};
/// Opens the process with `access` and reads the path of its image into `image` (`size` characters).
DWORD SubjectImageOf(DWORD id, DWORD access, wchar_t* image, DWORD size);
/// Opens the process with `access`, ends it unless `onlyAwaits`, and waits for it. `*wait` receives the
/// result of waiting; it stays unchanged if ending failed.
DWORD SubjectEndProcess(DWORD id, DWORD access, BOOL onlyAwaits, DWORD* wait, SubjectProcessFault fault);
/// Enables the privilege in this process's token, which is closed unless `kept`. The last error is set to
/// `errorBefore` before the call that enables it. Returns the last error after that call.
DWORD SubjectTakePrivilege(const char* name, DWORD errorBefore, BOOL kept);

}  // extern "C"
