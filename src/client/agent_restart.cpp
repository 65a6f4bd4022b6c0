// CustomAction38: restarts the agent of every user. Stops the agents of all sessions that run from the client
// folder or the installer's cache. Then starts the agent in each user's session by running its task there.
// Reads DIR_CLIENT. Logs how many agents stopped, which did not, and what happened in each session. Does
// nothing and logs nothing in a rollback. Always returns 0.

#include "base/com_owners.h"
#include "base/heap.h"
#include "base/windows_owners.h"
#include "client/agent_processes.h"
#include "client/registered_task.h"
#include "client/terminal_services.h"
#include "frame/session.h"

namespace {

// The account for which no agent is started.
constexpr wchar_t kSystemUser[] = L"SYSTEM";

bool EnableDebugPrivilege() {
  TOKEN_PRIVILEGES privileges = {};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  if (!LookupPrivilegeValueA(nullptr, "SeDebugPrivilege", &privileges.Privileges[0].Luid)) return false;
  TokenHandle token;
  if (!token.keep(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put())))
    return false;
  // If the call succeeds without granting the privilege, only the last error shows it.
  SetLastError(ERROR_SUCCESS);
  AdjustTokenPrivileges(token.get(), FALSE, &privileges, sizeof privileges, nullptr, nullptr);
  return GetLastError() == ERROR_SUCCESS;
}

// Stops the agents of all sessions. The list of processes is stored at `processes`: the caller frees it at
// the end of the action.
void StopAgents(MSIHANDLE session, const TerminalServices& services, const wchar_t* agentPath,
                SessionMemory<WTS_PROCESS_INFOW>* processes) {
  DWORD count = 0;
  if (!processes->keep(
          services.enumerateProcesses(WTS_CURRENT_SERVER_HANDLE, 0, 1, processes->put(), &count))) {
    LogSetupMessage(session, "agent restart:  process enumeration failed:  %ld", GetLastError());
    return;
  }
  int stopped = StopAgentProcesses(session, processes->get(), count, agentPath);
  LogSetupMessage(session, "agent restart:  %ld agent(s) stopped", stopped);
}

// Starts the agent in the session if a user other than SYSTEM is logged on to it. If its task cannot be run
// in the session, runs it for the user's account instead.
void StartAgent(MSIHANDLE session, const TerminalServices& services, const WTS_SESSION_INFOW& entry) {
  if (entry.State != WTSActive && entry.State != WTSDisconnected) return;
  SessionMemory<wchar_t> user;
  DWORD size;
  if (!user.keep(services.querySessionInformation(WTS_CURRENT_SERVER_HANDLE, entry.SessionId, WTSUserName,
                                                  user.put(), &size))) {
    return;
  }
  if (!user || !user.get()[0] || IsSameText(user.get(), -1, kSystemUser, -1)) return;
  int status = RunAgentTask(nullptr, static_cast<int>(entry.SessionId));
  if (status) status = RunAgentTask(user.get(), -1);
  if (status) {
    LogSetupMessage(session, "agent restart:  session %ld (%ls) failed:  %ld", entry.SessionId, user.get(),
                    status);
  } else {
    LogSetupMessage(session, "agent restart:  session %ld (%ls) started", entry.SessionId, user.get());
  }
}

void StartAgents(MSIHANDLE session, const TerminalServices& services) {
  SessionMemory<WTS_SESSION_INFOW> sessions;
  DWORD count = 0;
  if (!sessions.keep(services.enumerateSessions(WTS_CURRENT_SERVER_HANDLE, 0, 1, sessions.put(), &count))) {
    LogSetupMessage(session, "agent restart:  session enumeration failed:  %ld", GetLastError());
    return;
  }
  for (DWORD index = 0; index < count; ++index) StartAgent(session, services, sessions.get()[index]);
}

// Finds the terminal services. Returns false and logs why if that fails.
bool FindServices(MSIHANDLE session, TerminalServices* services) {
  switch (FindTerminalServices(services)) {
    case kTerminalServicesFound:
      return true;
    case kTerminalServicesNoLibrary:
      LogSetupMessage(session, "agent restart not possible (no WTS lib)");
      return false;
    default:
      LogSetupMessage(session, "agent restart not possible (no WTS entries)");
      return false;
  }
}

}  // namespace

extern "C" UINT WINAPI CustomAction38(MSIHANDLE session) {
  if (IsRollback(session)) return ERROR_SUCCESS;
  if (!EnableDebugPrivilege()) {
    LogSetupMessage(session, "agent restart:  no debug privilege, other sessions may not be reachable");
  }
  TerminalServices services;
  if (!FindServices(session, &services)) return ERROR_SUCCESS;
  HRESULT started = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  ComScope com(started);
  if (!com.IsUsable()) {
    LogSetupMessage(session, "agent restart failed (CoInit):  %ld", started);
    return ERROR_SUCCESS;
  }
  HeapStringW agentPath(ResolveClientProgramPath(session, nullptr, "osua.exe"));
  SessionMemory<WTS_PROCESS_INFOW> processes;
  if (agentPath) {
    StopAgents(session, services, agentPath.get(), &processes);
  } else {
    LogSetupMessage(session, "agent restart:  no client path, running agents cannot be identified");
  }
  StartAgents(session, services);
  return ERROR_SUCCESS;
}
