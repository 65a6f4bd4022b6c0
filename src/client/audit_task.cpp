// The nightly audit, a work item of Task Scheduler 1.0.
//
// CustomAction6  creates the work item, which runs ostrel32.exe from the client folder every night. Reads
//                PROP_TASKUSER and PROP_TASKPASS (both needed), PROP_TASKHOUR, PROP_TASKTIME, PROP_TASKPARAM
//                and DIR_CLIENT. An existing work item is left unchanged.
// CustomAction7  deletes the work item.
// CustomAction8  starts the Task Scheduler service.
//
// All log nothing and always return 0.

#include <mstask.h>
#include <objidl.h>

#include "base/com_owners.h"
#include "base/heap.h"
#include "base/text.h"
#include "client/number_text.h"
#include "client/schedule_service.h"
#include "frame/com_start.h"
#include "frame/session.h"

namespace {

// Identifiers of Task Scheduler 1.0, which are in no import library.
constexpr CLSID kTaskSchedulerClass = {
    0x148BD52A, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kTaskSchedulerId = {
    0x148BD527, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr CLSID kTaskClass = {0x148BD520, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kTaskId = {0x148BD524, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kPersistFileId = {0x0000010B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

constexpr wchar_t kWorkItem[] = L"Ostrel";

// The sizes of the buffers for properties, in characters with the terminator.
constexpr DWORD kAccountSize = 128;
constexpr DWORD kShortSize = 32;

constexpr int kHoursADay = 24;

// The audit's settings from the package. The password is wiped at the end of the scope.
struct Audit {
  Audit() = default;
  Audit(const Audit&) = delete;
  Audit& operator=(const Audit&) = delete;
  ~Audit() { WipeBytes(password, sizeof password); }

  wchar_t user[kAccountSize];
  wchar_t password[kAccountSize];
  wchar_t parameters[kShortSize];
  WORD hour;
  int runTime;  // in milliseconds; no limit is set if it is not positive
};

// Reads a property into `buffer`. Returns false if it is empty, too long, or cannot be read.
template <DWORD size>
bool ReadGiven(MSIHANDLE session, const wchar_t* name, wchar_t (&buffer)[size]) {
  return ReadShortProperty(session, name, buffer) && buffer[0];
}

// Returns the number at the start of a property; 0 if there is none, or the property is too long or
// unreadable.
int ReadNumber(MSIHANDLE session, const char* name) {
  char text[kShortSize];
  return ReadShortProperty(session, name, text) ? ParseDigitsA(text) : 0;
}

// Returns `number` as an hour of the day, modulo 24; a negative one counts back from midnight.
WORD HourOfDay(int number) {
  int hour = number % kHoursADay;
  return static_cast<WORD>(hour < 0 ? hour + kHoursADay : hour);
}

void ReadSchedule(MSIHANDLE session, Audit* audit) {
  audit->hour = HourOfDay(ReadNumber(session, "PROP_TASKHOUR"));
  audit->runTime = ReadNumber(session, "PROP_TASKTIME");
}

// Starts the service if needed and opens Task Scheduler 1.0; null on failure.
ComPtr<ITaskScheduler> OpenScheduler() {
  ComPtr<ITaskScheduler> scheduler;
  if (EnsureScheduleService() == ERROR_SUCCESS) {
    scheduler.keep(CoCreateInstance(kTaskSchedulerClass, nullptr, CLSCTX_INPROC_SERVER, kTaskSchedulerId,
                                    scheduler.putVoid()));
  }
  return scheduler;
}

// Adds a trigger that starts the task every night at `hour`, since the year 2000 and without an end. Returns
// false on failure.
bool SetNightlyTrigger(const ComPtr<ITask>& task, WORD hour) {
  WORD index;
  ITaskTrigger* trigger = nullptr;
  // On purpose: the trigger is never released.
  if (FAILED(task->CreateTrigger(&index, &trigger))) return false;
  TASK_TRIGGER record = {};
  static_assert(sizeof record == 48);
  record.cbTriggerSize = sizeof record;
  record.wBeginYear = 2000;
  record.wBeginMonth = 1;
  record.wBeginDay = 1;
  record.wStartHour = hour;
  record.TriggerType = TASK_TIME_TRIGGER_DAILY;
  record.Type.Daily.DaysInterval = 1;
  return SUCCEEDED(trigger->SetTrigger(&record));
}

void CreateWorkItem(const Audit& audit, const wchar_t* parameters, const wchar_t* executable) {
  ComPtr<ITaskScheduler> scheduler = OpenScheduler();
  if (!scheduler) return;
  ComPtr<ITask> task;
  if (!task.keep(
          scheduler->NewWorkItem(kWorkItem, kTaskClass, kTaskId, reinterpret_cast<IUnknown**>(task.put())))) {
    return;
  }
  scheduler.reset();
  task->SetApplicationName(executable);
  task->SetParameters(parameters);
  if (audit.runTime > 0) task->SetMaxRunTime(static_cast<DWORD>(audit.runTime));
  task->SetAccountInformation(audit.user, audit.password);
  if (!SetNightlyTrigger(task, audit.hour)) return;
  ComPtr<IPersistFile> file;
  if (!file.keep(task->QueryInterface(kPersistFileId, file.putVoid()))) return;
  task.reset();
  file->Save(nullptr, TRUE);
}

}  // namespace

extern "C" UINT WINAPI CustomAction6(MSIHANDLE session) {
  Audit audit;
  if (!ReadGiven(session, L"PROP_TASKUSER", audit.user) ||
      !ReadGiven(session, L"PROP_TASKPASS", audit.password)) {
    return ERROR_SUCCESS;
  }
  HeapStringW executable(ResolveClientProgramPath(session, nullptr, "ostrel32.exe"));
  if (!executable) return ERROR_SUCCESS;
  ReadSchedule(session, &audit);
  bool hasParameters = ReadGiven(session, L"PROP_TASKPARAM", audit.parameters);

  HRESULT started;
  StartCom(&started);
  ComScope com(started);
  if (com.IsUsable()) {
    CreateWorkItem(audit, hasParameters ? audit.parameters : L"-auditmode", executable.get());
  }
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction7(MSIHANDLE) {
  HRESULT started;
  StartCom(&started);
  ComScope com(started);
  if (!com.IsUsable()) return ERROR_SUCCESS;
  ComPtr<ITaskScheduler> scheduler = OpenScheduler();
  if (scheduler) scheduler->Delete(kWorkItem);
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction8(MSIHANDLE) {
  HRESULT started;
  StartCom(&started);
  ComScope com(started);
  if (com.IsUsable()) EnsureScheduleService();
  return ERROR_SUCCESS;
}
