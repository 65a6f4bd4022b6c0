// The subject's use of the Task Scheduler's objects, newer and older.
#include "subject_tasks.h"

#include <mstask.h>
#include <objidl.h>
#include <oleauto.h>

namespace {

constexpr CLSID kServiceClass = {
    0x0F87369F, 0xA4E5, 0x4CFC, {0xBD, 0x3E, 0x73, 0xE6, 0x15, 0x45, 0x72, 0xDD}};
constexpr IID kServiceId = {0x2FABA4C7, 0x4DA9, 0x4013, {0x96, 0x97, 0x20, 0xCC, 0x3F, 0xD4, 0x0F, 0x85}};
constexpr IID kProgramId = {0x4C3D624D, 0xFD6B, 0x49A3, {0xB9, 0xB7, 0x09, 0xCB, 0x3C, 0xD3, 0xF0, 0x47}};
constexpr CLSID kSchedulerClass = {
    0x148BD52A, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kSchedulerId = {0x148BD527, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kItemId = {0x148BD524, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kFileId = {0x0000010B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

constexpr wchar_t kFolder[] = L"Subject";

// A reference that the destructor releases unless it was dropped.
template <typename Interface>
struct Held {
  Interface* object = nullptr;

  Held() = default;
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  ~Held() {
    if (object) object->Release();
  }
  Interface* operator->() const { return object; }
  // Sets `object` to null if `result` is a failure. Returns `result`.
  HRESULT Keep(HRESULT result) {
    if (FAILED(result)) object = nullptr;
    return result;
  }
  // Returns the object and stops owning it.
  Interface* Drop() {
    Interface* dropped = object;
    object = nullptr;
    return dropped;
  }
};

// A system string that lives as long as this object.
struct Text {
  BSTR string;

  explicit Text(const wchar_t* text) : string(text ? SysAllocString(text) : nullptr) {}
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() { SysFreeString(string); }
};

struct ComStart {
  HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  ~ComStart() {
    if (SUCCEEDED(result)) CoUninitialize();
  }
};

BSTR Plain(const wchar_t* text) {
  return const_cast<BSTR>(text);
}

VARIANT AsVariant(BSTR text) {
  VARIANT value = {};
  value.vt = VT_BSTR;
  value.bstrVal = text;
  return value;
}

// The Task Scheduler service and its folders. OpenRoot leaves `folder` to the caller.
struct Place {
  ComStart com;
  Held<ITaskService> service;
  Held<ITaskFolder> root;
  Held<ITaskFolder> folder;

  HRESULT OpenRoot(const wchar_t* path) {
    if (FAILED(com.result)) return com.result;
    HRESULT result = service.Keep(CoCreateInstance(kServiceClass, nullptr, CLSCTX_INPROC_SERVER, kServiceId,
                                                   reinterpret_cast<void**>(&service.object)));
    if (FAILED(result)) return result;
    result = service->Connect(VARIANT{}, VARIANT{}, VARIANT{}, VARIANT{});
    return FAILED(result) ? result : root.Keep(service->GetFolder(Text(path).string, &root.object));
  }
  HRESULT OpenFolder() {
    HRESULT result = OpenRoot(L"");
    return FAILED(result) ? result : folder.Keep(root->GetFolder(Text(kFolder).string, &folder.object));
  }
};

HRESULT SetAuthor(ITaskDefinition* definition, SubjectTaskFault fault) {
  Held<IRegistrationInfo> info;
  HRESULT result = info.Keep(definition->get_RegistrationInfo(&info.object));
  if (FAILED(result)) return result;
  if (fault == kSubjectTaskSystemAuthor) return info->put_Author(Text(L"Subject").string);
  return info->put_Author(Plain(L"Subject"));
}

HRESULT SetIdleWait(ITaskDefinition* definition) {
  Held<ITaskSettings> settings;
  HRESULT result = settings.Keep(definition->get_Settings(&settings.object));
  if (SUCCEEDED(result)) result = settings->put_StartWhenAvailable(VARIANT_TRUE);
  Held<IIdleSettings> idle;
  if (SUCCEEDED(result)) result = idle.Keep(settings->get_IdleSettings(&idle.object));
  return FAILED(result) ? result : idle->put_WaitTimeout(Plain(L"PT5M"));
}

HRESULT SetTrigger(ITaskDefinition* definition, TASK_TRIGGER_TYPE2 type, const IID& triggerId) {
  Held<ITriggerCollection> triggers;
  HRESULT result = triggers.Keep(definition->get_Triggers(&triggers.object));
  Held<ITrigger> trigger;
  if (SUCCEEDED(result)) result = trigger.Keep(triggers->Create(type, &trigger.object));
  Held<ITrigger> special;
  if (SUCCEEDED(result))
    result = special.Keep(trigger->QueryInterface(triggerId, reinterpret_cast<void**>(&special.object)));
  return FAILED(result) ? result : special->put_Id(Text(L"Trigger").string);
}

HRESULT SetProgram(ITaskDefinition* definition) {
  Held<IActionCollection> actions;
  HRESULT result = actions.Keep(definition->get_Actions(&actions.object));
  Held<IAction> action;
  if (SUCCEEDED(result)) result = action.Keep(actions->Create(TASK_ACTION_EXEC, &action.object));
  Held<IExecAction> program;
  if (SUCCEEDED(result))
    result = program.Keep(action->QueryInterface(kProgramId, reinterpret_cast<void**>(&program.object)));
  return FAILED(result) ? result : program->put_Path(Text(L"C:\\subject.exe").string);
}

HRESULT SetRights(ITaskDefinition* definition) {
  Held<IPrincipal> principal;
  HRESULT result = principal.Keep(definition->get_Principal(&principal.object));
  return FAILED(result) ? result : principal->put_RunLevel(TASK_RUNLEVEL_HIGHEST);
}

HRESULT ReadBack(Held<IRegisteredTask>& task, SubjectTaskFault fault) {
  TASK_STATE state;
  if (fault == kSubjectTaskUsesReleased) {
    IRegisteredTask* released = task.Drop();
    released->Release();
    return released->get_State(&state);
  }
  HRESULT result = task->get_State(&state);
  BSTR path = nullptr;
  if (SUCCEEDED(result)) result = task->get_Path(&path);
  if (SUCCEEDED(result) && fault != kSubjectTaskKeepsPath) SysFreeString(path);
  return result;
}

HRESULT Register(ITaskFolder* folder, const wchar_t* name, ITaskDefinition* definition,
                 SubjectTaskFault fault) {
  Text systemName(name);
  Text user(L"SYSTEM");
  BSTR givenName = fault == kSubjectTaskPlainName ? Plain(name) : systemName.string;
  if (fault == kSubjectTaskFreedName) {
    SysFreeString(systemName.string);
    systemName.string = nullptr;
  }
  VARIANT givenUser = AsVariant(fault == kSubjectTaskPlainUser ? Plain(L"SYSTEM") : user.string);
  if (fault == kSubjectTaskLosesDefinition) definition->Release();
  Held<IRegisteredTask> task;
  HRESULT result = task.Keep(folder->RegisterTaskDefinition(givenName, definition, TASK_CREATE_OR_UPDATE,
                                                            givenUser, VARIANT{}, TASK_LOGON_SERVICE_ACCOUNT,
                                                            AsVariant(Text(L"").string), &task.object));
  return FAILED(result) ? result : ReadBack(task, fault);
}

HRESULT Define(ITaskDefinition* definition, TASK_TRIGGER_TYPE2 type, const IID& triggerId,
               SubjectTaskFault fault) {
  HRESULT result = SetAuthor(definition, fault);
  if (SUCCEEDED(result)) result = SetIdleWait(definition);
  if (SUCCEEDED(result)) result = SetTrigger(definition, type, triggerId);
  if (SUCCEEDED(result)) result = SetProgram(definition);
  return FAILED(result) ? result : SetRights(definition);
}

HRESULT OpenScheduler(const ComStart& com, Held<ITaskScheduler>* scheduler) {
  if (FAILED(com.result)) return com.result;
  return scheduler->Keep(CoCreateInstance(kSchedulerClass, nullptr, CLSCTX_INPROC_SERVER, kSchedulerId,
                                          reinterpret_cast<void**>(&scheduler->object)));
}

}  // namespace

extern "C" {

HRESULT SubjectTaskFolder(const wchar_t* root, const wchar_t* name, SubjectFolderUse use) {
  Place place;
  HRESULT result = place.OpenRoot(root);
  if (FAILED(result)) return result;
  Text folder(name);
  switch (use) {
    case kSubjectFolderGets:
      return place.folder.Keep(place.root->GetFolder(folder.string, &place.folder.object));
    case kSubjectFolderMakes:
      return place.folder.Keep(place.root->CreateFolder(folder.string, VARIANT{}, &place.folder.object));
    default:
      return place.root->DeleteFolder(folder.string, 0);
  }
}

HRESULT SubjectRegisterTask(const wchar_t* name, TASK_TRIGGER_TYPE2 type, const IID* triggerId,
                            SubjectTaskFault fault) {
  Place place;
  HRESULT result = place.OpenFolder();
  if (FAILED(result) && place.root.object) {
    result =
        place.folder.Keep(place.root->CreateFolder(Text(kFolder).string, VARIANT{}, &place.folder.object));
  }
  Held<ITaskDefinition> definition;
  if (SUCCEEDED(result)) result = definition.Keep(place.service->NewTask(0, &definition.object));
  if (SUCCEEDED(result)) result = Define(definition.object, type, *triggerId, fault);
  if (SUCCEEDED(result)) result = Register(place.folder.object, name, definition.object, fault);
  if (fault == kSubjectTaskKeepsDefinition || fault == kSubjectTaskLosesDefinition) definition.Drop();
  return result;
}

HRESULT SubjectRunTask(const wchar_t* name, LONG flags, LONG session, const wchar_t* user) {
  Place place;
  HRESULT result = place.OpenFolder();
  Held<IRegisteredTask> task;
  if (SUCCEEDED(result)) result = task.Keep(place.folder->GetTask(Text(name).string, &task.object));
  Held<IRunningTask> running;
  return FAILED(result)
             ? result
             : running.Keep(task->RunEx(VARIANT{}, flags, session, Text(user).string, &running.object));
}

HRESULT SubjectDeleteTask(const wchar_t* name) {
  Place place;
  HRESULT result = place.OpenFolder();
  return FAILED(result) ? result : place.folder->DeleteTask(Text(name).string, 0);
}

HRESULT SubjectMakeWorkItem(const wchar_t* name, const CLSID* type, WORD hour, SubjectItemFault fault) {
  ComStart com;
  Held<ITaskScheduler> scheduler;
  HRESULT result = OpenScheduler(com, &scheduler);
  Held<ITask> item;
  if (SUCCEEDED(result))
    result =
        item.Keep(scheduler->NewWorkItem(name, *type, kItemId, reinterpret_cast<IUnknown**>(&item.object)));
  if (SUCCEEDED(result)) result = item->SetApplicationName(L"C:\\subject.exe");
  Held<ITaskTrigger> trigger;
  WORD index;
  if (SUCCEEDED(result)) result = trigger.Keep(item->CreateTrigger(&index, &trigger.object));
  TASK_TRIGGER record = {};
  record.cbTriggerSize = sizeof record;
  record.wStartHour = hour;
  if (SUCCEEDED(result)) result = trigger->SetTrigger(&record);
  Held<IPersistFile> file;
  if (SUCCEEDED(result))
    result = file.Keep(item->QueryInterface(kFileId, reinterpret_cast<void**>(&file.object)));
  if (SUCCEEDED(result) && fault != kSubjectItemNotSaved) result = file->Save(nullptr, TRUE);
  if (fault == kSubjectItemKeepsTrigger) trigger.Drop();
  return result;
}

HRESULT SubjectDeleteWorkItem(const wchar_t* name) {
  ComStart com;
  Held<ITaskScheduler> scheduler;
  HRESULT result = OpenScheduler(com, &scheduler);
  return FAILED(result) ? result : scheduler->Delete(name);
}

}  // extern "C"
