// The scheduled tasks that start and update the agent.
//
// CustomAction27  registers the task that starts the agent when a user logs on. Reads DIR_CLIENT.
// CustomAction28  deletes that task.
// CustomAction31  registers the task that updates the agent every PROP_UPDATEINTERVAL days. Reads that
//                 property, DIR_APPDATA and DIR_CLIENT.
// CustomAction32  deletes that task.
//
// The registrations log their outcome. The deletions log only that the folder of the tasks could not be
// reached. All four always return 0.

#include "base/com_owners.h"
#include "base/heap.h"
#include "base/text.h"
#include "client/number_text.h"
#include "client/registered_task.h"
#include "client/task_registration.h"
#include "frame/com_start.h"
#include "frame/session.h"

namespace {

constexpr wchar_t kUsersGroup[] = L"Builtin\\Users";

// The size of the buffer for PROP_UPDATEINTERVAL, in bytes with the terminator.
constexpr DWORD kIntervalSize = 64;

// The texts before and after the path of the updater's configuration file. The path is always in quotes.
constexpr wchar_t kArgumentHead[] = L"-X \"";
constexpr wchar_t kArgumentTail[] = L"\"";

// A task to register.
struct AgentTask {
  const wchar_t* name;
  const wchar_t* executable;
  const wchar_t* arguments;
  const wchar_t* account;
  int interval;
};

void RegisterAndCheck(MSIHANDLE session, const AgentTask& task) {
  HRESULT started;
  bool hasLibrary = StartCom(&started);
  ComScope com(started);
  if (!hasLibrary) {
    LogSetupMessage(session, "Task install not possible (no OLE lib)");
    return;
  }
  if (!com.IsUsable()) {
    LogSetupMessage(session, "Task install failed (CoInit):  %ld", started);
    return;
  }
  int status = RegisterAgentTask(task.name, task.executable, task.arguments, task.account, task.interval);
  if (status) {
    LogSetupMessage(session, "Task install failed:  %ld", status);
    return;
  }
  LogSetupMessage(session, "Task installed");
  status = CheckAgentTask(task.name);
  if (status) {
    LogSetupMessage(session, "Task check failed:  %ld", status);
  } else {
    LogSetupMessage(session, "Task check OK");
  }
}

void Delete(MSIHANDLE session, const wchar_t* name) {
  HRESULT started;
  StartCom(&started);
  ComScope com(started);
  if (!com.IsUsable()) return;
  int status = DeleteAgentTask(name);
  if (status) LogSetupMessage(session, "Task uninstall failed:  %ld", status);
}

// Returns the number of days between two updates. Returns 0, which means no updates, if the property cannot
// be read, is too long, or is not positive.
int ReadUpdateInterval(MSIHANDLE session) {
  char text[kIntervalSize];
  if (!ReadShortProperty(session, "PROP_UPDATEINTERVAL", text)) return 0;
  int interval = ParseIntervalA(text);
  return interval > 0 ? interval : 0;
}

// Makes the updater's arguments, with the path of the configuration file in `dataFolder`, as a new heap
// string. Returns null if out of memory, or if no path can be made from the folder.
wchar_t* MakeUpdateArguments(wchar_t* dataFolder) {
  PathRef folder(PathFromWrittenWide(dataFolder));
  if (!folder) return nullptr;
  PathRef file(PathJoin(folder.get(), "osau.xml"));
  if (!file) return nullptr;
  HeapStringW path(PathToWide(file.get()));
  if (!path) return nullptr;
  size_t length = TxtLenW(kArgumentHead) + TxtLenW(path.get()) + TxtLenW(kArgumentTail);
  auto* text = static_cast<wchar_t*>(HeapAllocZero((length + 1) * sizeof(wchar_t)));
  if (!text) return nullptr;
  TxtCopyW(text, kArgumentHead);
  TxtCopyW(text + TxtLenW(text), path.get());
  TxtCopyW(text + TxtLenW(text), kArgumentTail);
  return text;
}

}  // namespace

extern "C" UINT WINAPI CustomAction27(MSIHANDLE session) {
  // On purpose: a null path is not checked here. The task service decides whether it refuses the task.
  HeapStringW executable(ResolveClientProgramPath(session, nullptr, "osua.exe"));
  RegisterAndCheck(session, {kUserAgentTask, executable.get(), nullptr, kUsersGroup, kAtLogon});
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction28(MSIHANDLE session) {
  Delete(session, kUserAgentTask);
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction31(MSIHANDLE session) {
  int interval = ReadUpdateInterval(session);
  if (!interval) {
    LogSetupMessage(session, "Task install disabled (no update interval)");
    return ERROR_SUCCESS;
  }
  HeapStringW executable(ResolveClientProgramPath(session, nullptr, "osau.exe"));
  if (!executable) {
    LogSetupMessage(session, "Task install not possible (no client dir)");
    return ERROR_SUCCESS;
  }
  HeapStringW dataFolder(ReadPropertyW(session, L"DIR_APPDATA"));
  if (!dataFolder || !dataFolder.get()[0]) {
    LogSetupMessage(session, "Task install not possible (no data dir)");
    return ERROR_SUCCESS;
  }
  HeapStringW arguments(MakeUpdateArguments(dataFolder.get()));
  if (!arguments) {
    LogSetupMessage(session, "Task install not possible (no memory)");
    return ERROR_SUCCESS;
  }
  RegisterAndCheck(session, {kAutoUpdateTask, executable.get(), arguments.get(), nullptr, interval});
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction32(MSIHANDLE session) {
  Delete(session, kAutoUpdateTask);
  return ERROR_SUCCESS;
}
