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
  BOOL hasText;      ///< Whether it has a name.
  wchar_t text[32];  ///< The name.
};
/// How the subject treats a list or a text of the terminal services.
enum SubjectListFault {
  kSubjectListSound,       ///< Frees it.
  kSubjectListKept,        ///< Does not.
  kSubjectListReadBehind,  ///< Reads far after its end.
  kSubjectListReadFreed,   ///< Reads it when it has freed it.
  kSubjectListFreedTwice,  ///< Frees it twice.
};
/// Copies the list of processes to `entries`, which holds `*count`, and stores how many there are.
/// Returns the error, as all of these functions do.
DWORD SubjectListProcesses(SubjectEntry* entries, DWORD* count, SubjectListFault fault);
/// The same with the list of sessions.
DWORD SubjectListSessions(SubjectEntry* entries, DWORD* count, SubjectListFault fault);
/// Copies the name of the session's user to `user` (32 characters); leaves it alone when there is no text.
DWORD SubjectSessionUser(DWORD session, wchar_t* user, SubjectListFault fault);

/// How the subject treats the handle of a process.
enum SubjectProcessFault {
  kSubjectProcessSound,       ///< Closes it.
  kSubjectProcessKept,        ///< Does not.
  kSubjectProcessUsedBehind,  ///< Ends the process through a handle that it has closed.
};
/// Opens the process with `access` and reads the path of its image into `image` (`size` characters).
DWORD SubjectImageOf(DWORD id, DWORD access, wchar_t* image, DWORD size);
/// Opens the process with `access`, ends it unless it is only to be awaited, and waits for it. `*wait` is
/// what waiting gave; it stays as it is when ending failed.
DWORD SubjectEndProcess(DWORD id, DWORD access, BOOL onlyAwaits, DWORD* wait, SubjectProcessFault fault);
/// Switches the privilege on in the own process's token, which is closed unless it is `kept`. Returns the
/// last error of the call that switches; before it, the last error is `errorBefore`.
DWORD SubjectTakePrivilege(const char* name, DWORD errorBefore, BOOL kept);

}  // extern "C"
