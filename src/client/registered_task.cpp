#include "client/registered_task.h"

namespace {

// Flags of IRegisteredTask::RunEx, which are missing from the compiler's headers.
constexpr LONG kRunIgnoringConstraints = 2;
constexpr LONG kRunInSession = 4;

// The path of the root folder.
constexpr wchar_t kRoot[] = L"";

// Opens the maker's folder. Returns 0 or a TaskAccessStep.
int OpenFolder(TaskFolder* place) {
  int status = OpenRootFolder(place, kRoot);
  if (status) return status;
  return OpenMakersFolder(place) ? 0 : kAccessFolder;
}

// Opens the task `name` in the maker's folder. Returns 0 or a TaskAccessStep.
int OpenTask(const wchar_t* name, ComPtr<IRegisteredTask>* task) {
  TaskFolder place;
  int status = OpenFolder(&place);
  if (status) return status;
  return task->keep(CallWith<&ITaskFolder::GetTask>(place.folder, name, task->put())) ? 0 : kAccessTask;
}

}  // namespace

int RunAgentTask(const wchar_t* account, int session) {
  ComPtr<IRegisteredTask> task;
  int status = OpenTask(kUserAgentTask, &task);
  if (status) return status;
  bool isInSession = session >= 0;
  LONG flags = kRunIgnoringConstraints | (isInSession ? kRunInSession : 0);
  ComPtr<IRunningTask> running;
  // Declared last, so that it is freed before `running` and `task` are released.
  CallText user(account);
  if (user.IsMissing()) return kAccessUse;
  return running.keep(task->RunEx(VARIANT{}, flags, isInSession ? session : 0, user.get(), running.put()))
             ? 0
             : kAccessUse;
}

int CheckAgentTask(const wchar_t* name) {
  ComPtr<IRegisteredTask> task;
  int status = OpenTask(name, &task);
  if (status) return status;
  TASK_STATE state;
  return FAILED(task->get_State(&state)) ? kAccessUse : 0;
}

int DeleteAgentTask(const wchar_t* name) {
  TaskFolder place;
  int status = OpenFolder(&place);
  if (status) return status;
  CallWith<&ITaskFolder::DeleteTask>(place.folder, name, LONG{0});
  // On purpose: does not check whether the folder is empty. The Task Scheduler refuses to delete it while it
  // contains another task.
  CallWith<&ITaskFolder::DeleteFolder>(place.root, kMakersFolder, LONG{0});
  return 0;
}
