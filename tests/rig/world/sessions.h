// Terminal sessions, processes and privileges in memory. Part of a world.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// One session, as a test arranges it.
struct TerminalSession {
  DWORD id;          ///< Its number.
  int state;         ///< WTSActive ...
  std::string user;  ///< Who is logged on; empty for nobody.
  /// What asking for the user gives.
  enum class Asking {
    kWorks,         ///< The user.
    kFails,         ///< An error.
    kGivesNothing,  ///< A success without any text.
  };
  Asking asking = Asking::kWorks;  ///< What asking for the user gives here.
};

/// One process, as a test arranges it and finds it afterwards.
struct Process {
  DWORD id;                              ///< Its number.
  DWORD session;                         ///< The session that it belongs to.
  std::string name;                      ///< The file name; empty for a process without one.
  std::string image;                     ///< The path of its image; empty when that cannot be read.
  DWORD openError = ERROR_SUCCESS;       ///< What opening it fails with.
  DWORD terminateError = ERROR_SUCCESS;  ///< What ending it fails with.
  DWORD waitResult = WAIT_OBJECT_0;      ///< What waiting for it gives once it was told to end.
  bool ended = false;                    ///< Whether it was told to end.
};

/// What the terminal services, the processes and the privileges of this one answer. Buffers are the system's
/// own and must be freed; a process handle allows what it was opened for and nothing else.
class Sessions {
 public:
  /// The part of the world that belongs to this rig.
  explicit Sessions(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// The sessions, in order.
  std::vector<TerminalSession> sessions;
  /// The processes, in order.
  std::vector<Process> processes;
  /// What WTSEnumerateSessionsW fails with.
  DWORD sessionsError = ERROR_SUCCESS;
  /// What WTSEnumerateProcessesW fails with.
  DWORD processesError = ERROR_SUCCESS;
  /// The last error of AdjustTokenPrivileges, which succeeds: ERROR_NOT_ALL_ASSIGNED where the privilege is
  /// not held.
  DWORD privilegeError = ERROR_SUCCESS;
  /// What OpenProcessToken fails with.
  DWORD tokenError = ERROR_SUCCESS;
  /// Whether the privilege "SeDebugPrivilege" is known.
  bool hasDebugPrivilege = true;
  /// The attributes that the debug privilege was given.
  std::vector<DWORD> enabled;

  /// The access that a token of this process was opened with; none if `token` is not one.
  std::optional<DWORD> AccessOfToken(HANDLE token) const;

 private:
  /// What a process handle stands for.
  struct Opened {
    Process* process;
    DWORD access;
  };
  /// The process behind a handle that allows `access`; null, with the last error set, otherwise.
  Process* Reach(HANDLE handle, DWORD access);
  /// Answers the functions of WTSAPI32.
  void InstallTerminalServices();
  /// Answers those that open, ask, end and await a process.
  void InstallProcesses();
  /// Answers those of a process's privileges.
  void InstallPrivileges();

  Rig& rig_;
  std::map<HANDLE, Opened> opened_;
  std::map<HANDLE, DWORD> tokens_;
};

}  // namespace rig
