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
  /// The answer to a question for the user.
  enum class Asking {
    kWorks,         ///< The user.
    kFails,         ///< An error.
    kGivesNothing,  ///< A success without any text.
  };
  Asking asking = Asking::kWorks;  ///< The answer to a question for its user.
};

/// One process, as a test arranges it and finds it afterwards.
struct Process {
  DWORD id;                              ///< Its number.
  DWORD session;                         ///< The session that it belongs to.
  std::string name;                      ///< The file name; empty for a process without one.
  std::string image;                     ///< The path of its image; empty if it cannot be read.
  DWORD openError = ERROR_SUCCESS;       ///< The error of opening it.
  DWORD terminateError = ERROR_SUCCESS;  ///< The error of ending it.
  DWORD waitResult = WAIT_OBJECT_0;      ///< The result of waiting for it after it was ended.
  bool ended = false;                    ///< It was ended.
};

/// The terminal services, the processes and the privileges of this process. Buffers belong to the terminal
/// services and must be freed. A process handle allows only what it was opened for.
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
  /// The last error after AdjustTokenPrivileges, which succeeds: ERROR_NOT_ALL_ASSIGNED if the process does
  /// not hold the privilege.
  DWORD privilegeError = ERROR_SUCCESS;
  /// What OpenProcessToken fails with.
  DWORD tokenError = ERROR_SUCCESS;
  /// The privilege "SeDebugPrivilege" exists.
  bool hasDebugPrivilege = true;
  /// The attributes that the debug privilege was given.
  std::vector<DWORD> enabled;

  /// The access that a token of this process was opened with; none if `token` is not one.
  std::optional<DWORD> AccessOfToken(HANDLE token) const;

 private:
  /// An open process handle.
  struct Opened {
    Process* process;
    DWORD access;
  };
  /// The process of a handle that allows `access`; otherwise null, with the last error set.
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
