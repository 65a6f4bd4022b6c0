#include "client/task_registration.h"

#include "base/com_owners.h"
#include "client/logon_trigger.h"
#include "client/task_folder.h"

namespace {

// Identifiers of the task service's objects, which are in no import library.
constexpr IID kDailyTriggerId = {
    0x126C5CD8, 0xB288, 0x41D5, {0x8D, 0xBF, 0xE4, 0x91, 0x44, 0x6A, 0xDC, 0x5C}};
constexpr IID kExecActionId = {0x4C3D624D, 0xFD6B, 0x49A3, {0xB9, 0xB7, 0x09, 0xCB, 0x3C, 0xD3, 0xF0, 0x47}};

// On purpose: not the empty path that opens the root folder for registered tasks. Both mean the root.
constexpr wchar_t kRoot[] = L"\\";
constexpr wchar_t kSystemAccount[] = L"SYSTEM";

// The differences between the two kinds of task. A field with a null text is not set.
struct TaskShape {
  VARIANT_BOOL mayBeTerminated;
  VARIANT_BOOL avoidsBatteries;  // does not start on batteries, and stops when the computer switches to them
  const wchar_t* idleWait;
  TASK_TRIGGER_TYPE2 triggerType;
  TaskStep noTrigger;
  const IID* triggerInterface;
  TaskStep noInterface;
  const wchar_t* triggerId;
  const wchar_t* startBoundary;
  const wchar_t* randomDelay;
  const wchar_t* triggerTimeLimit;
  bool hasHighestRights;
};
// clang-format off
constexpr TaskShape kLogonShape = {
    VARIANT_FALSE, VARIANT_FALSE, nullptr,
    TASK_TRIGGER_LOGON, kStepLogonTrigger, &kLogonTriggerId, kStepLogonInterface,
    L"LogonTrigger", L"2016-01-01T00:00:00", nullptr, nullptr, false};
constexpr TaskShape kDailyShape = {
    VARIANT_TRUE, VARIANT_TRUE, L"PT5M",
    TASK_TRIGGER_DAILY, kStepDailyTrigger, &kDailyTriggerId, kStepDailyInterface,
    L"UpdateTrigger", L"2016-01-01T02:30:00", L"P1DT0S", L"PT1H", true};
// clang-format on

// What the two kinds have in common.
constexpr wchar_t kAuthor[] = L"Halvorstead Client Installer";
constexpr wchar_t kNoTimeLimit[] = L"PT0S";
constexpr TASK_INSTANCES_POLICY kInstances = TASK_INSTANCES_PARALLEL;

// CallWith for methods whose only parameter is a text. The method is called through IUnknown, the base of all
// interfaces, so that one copy of this function is enough.
using TextMethod = HRESULT (STDMETHODCALLTYPE IUnknown::*)(BSTR text);
HRESULT PutText(IUnknown* object, TextMethod method, const wchar_t* text) {
  CallText string(text);
  if (string.IsMissing()) return E_OUTOFMEMORY;
  return (object->*method)(string.get());
}
template <auto Method, typename Interface>
HRESULT PutText(const ComPtr<Interface>& object, const wchar_t* text) {
  return PutText(object.get(), static_cast<TextMethod>(Method), text);
}

// The codes of OpenRootFolder are the same in both enumerations.
static_assert(static_cast<int>(kStepService) == kAccessService &&
              static_cast<int>(kStepConnect) == kAccessConnect &&
              static_cast<int>(kStepFolder) == kAccessRoot);

// Opens the maker's folder, creates it if it cannot be opened, and deletes the task `name` from it. Returns 0
// or a TaskStep; a failure to delete the task is ignored.
int PrepareFolder(TaskFolder* place, const wchar_t* name) {
  int status = OpenRootFolder(place, kRoot);
  if (status) return status;
  if (!OpenMakersFolder(place) && !place->folder.keep(CallWith<&ITaskFolder::CreateFolder>(
                                      place->root, kMakersFolder, VARIANT{}, place->folder.put()))) {
    return kStepFolder;
  }
  CallWith<&ITaskFolder::DeleteTask>(place->folder, name, LONG{0});
  return 0;
}

int SetAuthor(const ComPtr<ITaskDefinition>& definition) {
  ComPtr<IRegistrationInfo> info;
  if (!info.keep(definition->get_RegistrationInfo(info.put()))) return kStepRegistrationInfo;
  return FAILED(info->put_Author(AsItStands(kAuthor))) ? kStepAuthor : 0;
}

// Sets all settings except the idle wait, and releases the settings object. Returns 0 or a TaskStep.
int SetSettings(const TaskShape& shape, int interval, const ComPtr<ITaskDefinition>& definition) {
  ComPtr<ITaskSettings> settings;
  if (!settings.keep(definition->get_Settings(settings.put()))) return kStepSettings;
  if (FAILED(settings->put_StartWhenAvailable(VARIANT_TRUE))) return kStepStartWhenAvailable;
  if (FAILED(settings->put_MultipleInstances(kInstances))) return kStepMultipleInstances;
  if (FAILED(settings->put_AllowDemandStart(VARIANT_TRUE))) return kStepDemandStart;
  if (FAILED(settings->put_AllowHardTerminate(shape.mayBeTerminated))) return kStepHardTerminate;
  if (FAILED(settings->put_DisallowStartIfOnBatteries(shape.avoidsBatteries))) return kStepStartOnBatteries;
  if (FAILED(settings->put_StopIfGoingOnBatteries(shape.avoidsBatteries))) return kStepStopOnBatteries;
  // On purpose: not for an interval of 0 days, which no action asks for.
  if (interval > 0) settings->put_RunOnlyIfNetworkAvailable(VARIANT_TRUE);
  if (FAILED(PutText<&ITaskSettings::put_ExecutionTimeLimit>(settings, kNoTimeLimit))) return kStepTimeLimit;
  return 0;
}

// Sets the idle wait, if the shape has one, in settings that are fetched again. Returns 0 or a TaskStep.
int SetIdleWait(const TaskShape& shape, const ComPtr<ITaskDefinition>& definition) {
  if (!shape.idleWait) return 0;
  ComPtr<IIdleSettings> idle;
  {
    ComPtr<ITaskSettings> settings;
    if (!settings.keep(definition->get_Settings(settings.put())) ||
        !idle.keep(settings->get_IdleSettings(idle.put()))) {
      return kStepIdleSettings;
    }
  }
  return FAILED(idle->put_WaitTimeout(AsItStands(shape.idleWait))) ? kStepIdleWait : 0;
}

// Creates a trigger of the shape's kind and sets what both kinds have: the name and the start. Failures of
// these two are ignored. Returns 0 or a TaskStep.
int MakeTrigger(const TaskShape& shape, const ComPtr<ITriggerCollection>& triggers,
                ComPtr<ITrigger>* result) {
  ComPtr<ITrigger> trigger;
  if (!trigger.keep(triggers->Create(shape.triggerType, trigger.put()))) return shape.noTrigger;
  // The kind's interface, which derives from ITrigger.
  if (!result->keep(trigger->QueryInterface(*shape.triggerInterface, result->putVoid())))
    return shape.noInterface;
  PutText<&ITrigger::put_Id>(*result, shape.triggerId);
  PutText<&ITrigger::put_StartBoundary>(*result, shape.startBoundary);
  return 0;
}

int AddLogonTrigger(const TaskShape& shape, const ComPtr<ITriggerCollection>& triggers) {
  ComPtr<ITrigger> trigger;
  int status = MakeTrigger(shape, triggers, &trigger);
  if (status) return status;
  return FAILED(static_cast<ILogonTrigger*>(trigger.get())->put_UserId(nullptr)) ? kStepLogonUser : 0;
}

int AddDailyTrigger(const TaskShape& shape, int interval, const ComPtr<ITriggerCollection>& triggers) {
  ComPtr<ITrigger> trigger;
  int status = MakeTrigger(shape, triggers, &trigger);
  if (status) return status;
  auto* daily = static_cast<IDailyTrigger*>(trigger.get());
  if (FAILED(daily->put_DaysInterval(static_cast<short>(interval)))) return kStepDaysInterval;
  PutText(daily, static_cast<TextMethod>(&IDailyTrigger::put_RandomDelay), shape.randomDelay);
  PutText<&ITrigger::put_ExecutionTimeLimit>(trigger, shape.triggerTimeLimit);
  return 0;
}

int SetRights(const TaskShape& shape, const ComPtr<ITaskDefinition>& definition) {
  if (!shape.hasHighestRights) return 0;
  ComPtr<IPrincipal> principal;
  if (!principal.keep(definition->get_Principal(principal.put()))) return kStepPrincipal;
  return FAILED(principal->put_RunLevel(TASK_RUNLEVEL_HIGHEST)) ? kStepRunLevel : 0;
}

// Sets everything in which the shapes differ: settings, trigger and rights. Returns 0 or a TaskStep.
int ApplyShape(const TaskShape& shape, int interval, const ComPtr<ITaskDefinition>& definition) {
  int status = SetSettings(shape, interval, definition);
  if (status) return status;
  ComPtr<ITriggerCollection> triggers;
  if (!triggers.keep(definition->get_Triggers(triggers.put()))) return kStepTriggers;
  status = SetIdleWait(shape, definition);
  if (status) return status;
  status = shape.triggerType == TASK_TRIGGER_LOGON ? AddLogonTrigger(shape, triggers)
                                                   : AddDailyTrigger(shape, interval, triggers);
  return status ? status : SetRights(shape, definition);
}

int AddAction(const wchar_t* executable, const wchar_t* arguments,
              const ComPtr<ITaskDefinition>& definition) {
  ComPtr<IActionCollection> actions;
  if (!actions.keep(definition->get_Actions(actions.put()))) return kStepActions;
  ComPtr<IAction> action;
  if (!action.keep(actions->Create(TASK_ACTION_EXEC, action.put()))) return kStepAction;
  ComPtr<IExecAction> program;
  if (!program.keep(action->QueryInterface(kExecActionId, program.putVoid()))) return kStepExecInterface;
  if (FAILED(PutText<&IExecAction::put_Path>(program, executable))) return kStepPath;
  if (arguments && FAILED(PutText<&IExecAction::put_Arguments>(program, arguments))) return kStepArguments;
  return 0;
}

HRESULT SaveDefinition(const ComPtr<ITaskFolder>& folder, const wchar_t* name, const wchar_t* account,
                       const ComPtr<ITaskDefinition>& definition, IRegisteredTask** task) {
  CallText user(account ? account : kSystemAccount);
  CallText noDescriptor(L"");
  if (user.IsMissing() || noDescriptor.IsMissing()) return E_OUTOFMEMORY;
  return CallWith<&ITaskFolder::RegisterTaskDefinition>(
      folder, name, definition.get(), LONG{TASK_CREATE_OR_UPDATE}, user.AsVariant(), VARIANT{},
      account ? TASK_LOGON_GROUP : TASK_LOGON_SERVICE_ACCOUNT, noDescriptor.AsVariant(), task);
}

int RegisterDefinition(const ComPtr<ITaskFolder>& folder, const wchar_t* name, const wchar_t* account,
                       const ComPtr<ITaskDefinition>& definition) {
  ComPtr<IRegisteredTask> task;
  if (!task.keep(SaveDefinition(folder, name, account, definition, task.put()))) return kStepRegister;
  TASK_STATE state;
  HRESULT result = task->get_State(&state);
  if (FAILED(result)) return result;
  SystemString path;
  result = task->get_Path(path.put());
  return path.keep(SUCCEEDED(result)) ? 0 : result;
}

}  // namespace

int RegisterAgentTask(const wchar_t* name, const wchar_t* executable, const wchar_t* arguments,
                      const wchar_t* account, int interval) {
  const TaskShape& shape = interval < 0 ? kLogonShape : kDailyShape;
  TaskFolder place;
  int status = PrepareFolder(&place, name);
  if (status) return status;
  ComPtr<ITaskDefinition> definition;
  if (!definition.keep(place.service->NewTask(0, definition.put()))) return kStepDefinition;
  place.service.reset();
  status = SetAuthor(definition);
  if (!status) status = ApplyShape(shape, interval, definition);
  if (!status) status = AddAction(executable, arguments, definition);
  return status ? status : RegisterDefinition(place.folder, name, account, definition);
}
