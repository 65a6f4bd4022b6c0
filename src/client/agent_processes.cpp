#include "client/agent_processes.h"

#include "base/late_binding.h"
#include "base/text.h"
#include "base/windows_owners.h"

namespace {

constexpr wchar_t kAgentName[] = L"osua.exe";
// On purpose: a fixed path. The installer keeps the files that it runs from a package there. If Windows is
// installed elsewhere, only agents of the client folder are stopped.
constexpr wchar_t kInstallerCache[] = L"C:\\Windows\\Installer\\";
constexpr int kInstallerCacheLength = sizeof kInstallerCache / sizeof *kInstallerCache - 1;
// The size of the buffer for an image path, in characters with the terminator.
constexpr DWORD kImagePathSize = 261;
// How long to wait for a terminated process to exit, in milliseconds.
constexpr DWORD kExitWait = 10000;

constexpr DWORD kAccessToStop = PROCESS_TERMINATE | SYNCHRONIZE;

constinit LateModule kernel32{"KERNEL32", LateRule::kLoaded};
constinit LateFunction<decltype(QueryFullProcessImageNameW)> queryImagePath{
    &kernel32, "QueryFullProcessImageNameW", FALSE};

// Decides which processes are ours: those whose image is below the client folder or the installer's cache.
struct ClientFolder {
  const wchar_t* program;  // the agent's full path
  int length;  // of the folder in `program`, with its last backslash; 0 if it contains no backslash

  explicit ClientFolder(const wchar_t* agentPath) : program(agentPath), length(0) {
    const wchar_t* backslash = TxtFindLastCharW(agentPath, L'\\');
    if (backslash) length = static_cast<int>(backslash - agentPath) + 1;
  }
  bool Holds(const wchar_t* image, int imageLength) const {
    return (imageLength >= length && IsSameText(image, length, program, length)) ||
           (imageLength >= kInstallerCacheLength &&
            IsSameText(image, kInstallerCacheLength, kInstallerCache, kInstallerCacheLength));
  }
};

// Returns true if the process is to be stopped. If it runs from another folder, says so in the log.
bool IsOurs(MSIHANDLE session, HANDLE process, DWORD id, const ClientFolder& folder) {
  if (!queryImagePath.IsAvailable() || folder.length == 0) return true;
  wchar_t image[kImagePathSize];
  DWORD length = kImagePathSize;
  if (!queryImagePath(process, 0, image, &length)) length = 0;
  image[length] = L'\0';
  if (folder.Holds(image, static_cast<int>(length))) return true;
  LogSetupMessage(session, "agent restart:  pid %ld is not ours, left alone (%ld)", id, folder.length);
  LogSetupTextW(session, image);
  LogSetupTextW(session, folder.program);
  return false;
}

// Terminates the process and waits for it. Returns true if it exited.
bool StopProcess(MSIHANDLE session, HANDLE process, DWORD id) {
  if (!TerminateProcess(process, 0)) {
    LogSetupMessage(session, "agent restart:  cannot stop pid %ld:  %ld", id, GetLastError());
    return false;
  }
  if (WaitForSingleObject(process, kExitWait) != WAIT_OBJECT_0) {
    LogSetupMessage(session, "agent restart:  pid %ld did not exit", id);
    return false;
  }
  return true;
}

// Stops the process of this entry if it is one of our agents. Returns true if it exited.
bool StopAgent(MSIHANDLE session, const WTS_PROCESS_INFOW& entry, const ClientFolder& folder) {
  if (!entry.pProcessName || !IsSameText(entry.pProcessName, -1, kAgentName, -1)) return false;
  DWORD access = kAccessToStop | (queryImagePath.IsAvailable() ? PROCESS_QUERY_LIMITED_INFORMATION : 0);
  ProcessHandle process(OpenProcess(access, FALSE, entry.ProcessId));
  if (!process) {
    DWORD error = GetLastError();
    LogSetupMessage(session, "agent restart:  cannot open pid %ld in session %ld:  %ld", entry.ProcessId,
                    entry.SessionId, error);
    return false;
  }
  return IsOurs(session, process.get(), entry.ProcessId, folder) &&
         StopProcess(session, process.get(), entry.ProcessId);
}

}  // namespace

bool IsSameText(const wchar_t* a, int lengthOfA, const wchar_t* b, int lengthOfB) {
  constexpr LCID kNeutral = 0;
  return CompareStringW(kNeutral, NORM_IGNORECASE, a, lengthOfA, b, lengthOfB) == CSTR_EQUAL;
}

int StopAgentProcesses(MSIHANDLE session, const WTS_PROCESS_INFOW* processes, DWORD count,
                       const wchar_t* agentPath) {
  ClientFolder folder(agentPath);
  int stopped = 0;
  for (DWORD index = 0; index < count; ++index) {
    if (StopAgent(session, processes[index], folder)) ++stopped;
  }
  return stopped;
}
