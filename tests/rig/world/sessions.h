// Terminal sessions, processes and privileges in memory. Part of the world.
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
  std::string user;  ///< The user who is logged on; empty for nobody.
  /// What a query for the user returns.
  enum class Asking {
    kWorks,         ///< The user.
    kFails,         ///< An error.
    kGivesNothing,  ///< Success without any text.
  };
  Asking asking = Asking::kWorks;  ///< What a query for its user returns.
};

/// One process, as a test arranges it and inspects it afterwards.
struct Process {
  DWORD id;                              ///< Its number.
  DWORD session;                         ///< The session that it belongs to.
  std::string name;                      ///< The file name; empty for a process without one.
  std::string image;                     ///< The path of its image; empty if it cannot be read.
  DWORD openError = ERROR_SUCCESS;       ///< The error of opening it.
  DWORD terminateError = ERROR_SUCCESS;  ///< The error of ending it.
  DWORD waitResult = WAIT_OBJECT_0;      ///< The result of waiting for it after it was ended.
  bool ended = false;                    ///< True if it was ended.
};

/// The terminal services, the processes and the privileges of this process. Buffers belong to the terminal
/// services and must be freed. A process handle allows only what it was opened for.
class Sessions {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Sessions(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// The sessions, in order.
  std::vector<TerminalSession> sessions;
  /// The processes, in order.
  std::vector<Process> processes;
  /// The error of WTSEnumerateSessionsW.
  DWORD sessionsError = ERROR_SUCCESS;
  /// The error of WTSEnumerateProcessesW.
  DWORD processesError = ERROR_SUCCESS;
  /// The last error after AdjustTokenPrivileges, which succeeds: ERROR_NOT_ALL_ASSIGNED if the process does
  /// not hold the privilege.
  DWORD privilegeError = ERROR_SUCCESS;
  /// The error of OpenProcessToken.
  DWORD tokenError = ERROR_SUCCESS;
  /// True if the privilege "SeDebugPrivilege" exists.
  bool hasDebugPrivilege = true;
  /// The attributes that the debug privilege was given, in order.
  std::vector<DWORD> enabled;

  /// Returns the access that a token of this process was opened with; nothing if `token` is not such a
  /// token.
  std::optional<DWORD> AccessOfToken(HANDLE token) const;

 private:
  /// An open process handle.
  struct Opened {
    Process* process;
    DWORD access;
  };
  /// Returns the process of a handle that allows `access`; otherwise null, with the last error set.
  Process* Reach(HANDLE handle, DWORD access);
  /// Answers the functions of WTSAPI32.
  void InstallTerminalServices();
  /// Answers the functions that open, query, end and await a process.
  void InstallProcesses();
  /// Answers the functions of this process's token and privileges.
  void InstallPrivileges();

  Rig& rig_;
  std::map<HANDLE, Opened> opened_;
  std::map<HANDLE, DWORD> tokens_;
};

}  // namespace rig
