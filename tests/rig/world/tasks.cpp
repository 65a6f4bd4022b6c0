#include "rig/world/tasks.h"

#include "rig/print.h"
#include "rig/task_interfaces.h"

namespace rig {
namespace {

constexpr CLSID kTaskServiceClass = {
    0x0F87369F, 0xA4E5, 0x4CFC, {0xBD, 0x3E, 0x73, 0xE6, 0x15, 0x45, 0x72, 0xDD}};
constexpr CLSID kTaskSchedulerClass = {
    0x148BD52A, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr CLSID kTaskClass = {0x148BD520, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

std::string TextOf(const wchar_t* text) {
  return text == nullptr ? "" : ToUtf8(text);
}

bool IsEmpty(const VARIANT& value) {
  return value.vt == VT_EMPTY;
}

}  // namespace

HRESULT TaskScheduler::FailureOf(const std::string& method) const {
  auto failing = failing_.find(method);
  return failing == failing_.end() ? S_OK : failing->second;
}

bool TaskScheduler::HasFolder(const std::string& name) {
  if (hasFolder && folderName.empty()) {
    folderName = name;
  }
  return hasFolder && folderName == name;
}

void TaskScheduler::CheckText(BSTR text) const {
  if (text != nullptr && !rig_.ledger.Holds(kSystemString, ToWord(text))) {
    Fail("a text of the Task Scheduler is not a system string: " + TextOf(text));
  }
}

void TaskScheduler::CheckText(const VARIANT& value) const {
  if (value.vt == VT_BSTR) {
    CheckText(value.bstrVal);
  }
}

void TaskScheduler::CheckPlain(BSTR text) const {
  if (rig_.ledger.Holds(kSystemString, ToWord(text))) {
    Fail("a text of the Task Scheduler is a system string, but must be a plain one: " + TextOf(text));
  }
}

template <auto Member, class Interface, class Answer>
Declaration& TaskScheduler::Add(FakeObject<Interface>& fake, const char* name, Answer answer) {
  std::string method = fake.Name() + "." + name;
  return fake.template On<Member>([this, method, answer](auto... arguments) -> HRESULT {
    HRESULT failure = FailureOf(method);
    return FAILED(failure) ? failure : answer(arguments...);
  });
}

template <auto Member, class Interface>
void TaskScheduler::Accept(FakeObject<Interface>& fake, const char* name) {
  Add<Member>(fake, name, [this](auto... arguments) {
    (this->CheckText(arguments), ...);
    return S_OK;
  });
}

template <auto Member, class Interface>
void TaskScheduler::HandOut(FakeObject<Interface>& fake, const char* name, FakeBase& result) {
  Add<Member>(fake, name, [&result](auto** out) {
    result.Give(out);
    return S_OK;
  }).HandsOut(Arg<0>);
}

void TaskScheduler::Install() {
  folder_ = &com_.Make<ITaskFolder>("folder");
  definition_ = &com_.Make<ITaskDefinition>("definition");
  task_ = &com_.Make<IRegisteredTask>("task");
  InstallFolders();
  InstallDefinition();
  InstallSettings();
  InstallTriggers();
  InstallActions();
  InstallTask();
  InstallWorkItems();
}

void TaskScheduler::InstallFolders() {
  auto& service = com_.Make<ITaskService>("service");
  auto& root = com_.Make<ITaskFolder>("root");
  com_.Register(kTaskServiceClass, service);
  Accept<&ITaskService::Connect>(service, "Connect");
  Add<&ITaskService::GetFolder>(service, "GetFolder", [this, &root](BSTR path, ITaskFolder** out) {
    CheckText(path);
    if (!TextOf(path).empty() && TextOf(path) != "\\") {
      return kNotFound;
    }
    root.Give(out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<1>);
  Add<&ITaskService::NewTask>(service, "NewTask", [this](DWORD, ITaskDefinition** out) {
    definition_->Give(out);
    return S_OK;
  }).HandsOut(Arg<1>);

  Add<&ITaskFolder::GetFolder>(root, "GetFolder", [this](BSTR name, ITaskFolder** out) {
    CheckText(name);
    if (!HasFolder(TextOf(name))) {
      return kNotFound;
    }
    folder_->Give(out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<1>);
  Add<&ITaskFolder::CreateFolder>(root, "CreateFolder", [this](BSTR name, VARIANT sddl, ITaskFolder** out) {
    CheckText(name);
    if (hasFolder || !IsEmpty(sddl)) {
      return HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
    }
    hasFolder = true;
    folderName = TextOf(name);
    folder_->Give(out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<2>);
  Add<&ITaskFolder::DeleteFolder>(root, "DeleteFolder", [this](BSTR name, LONG) {
    CheckText(name);
    if (!HasFolder(TextOf(name)) || !tasks.empty()) {
      return HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY);
    }
    hasFolder = false;
    folderName.clear();
    return HRESULT{S_OK};
  });
  Add<&ITaskFolder::DeleteTask>(*folder_, "DeleteTask", [this](BSTR name, LONG) {
    CheckText(name);
    return tasks.erase(TextOf(name)) != 0 ? HRESULT{S_OK} : kNotFound;
  });
  Add<&ITaskFolder::GetTask>(*folder_, "GetTask", [this](BSTR name, IRegisteredTask** out) {
    CheckText(name);
    if (tasks.count(TextOf(name)) == 0) {
      return kNotFound;
    }
    task_->Give(out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<1>);
  Add<&ITaskFolder::RegisterTaskDefinition>(
      *folder_, "RegisterTaskDefinition",
      [this](BSTR name, ITaskDefinition*, LONG, VARIANT user, VARIANT password, TASK_LOGON_TYPE, VARIANT sddl,
             IRegisteredTask** out) {
        CheckText(name);
        CheckText(user);
        CheckText(password);
        CheckText(sddl);
        tasks.insert(TextOf(name));
        task_->Give(out);
        return S_OK;
      })
      .Uses(kInterface, Arg<1>)
      .HandsOut(Arg<7>);
}

void TaskScheduler::InstallDefinition() {
  auto& info = com_.Make<IRegistrationInfo>("info");
  auto& principal = com_.Make<IPrincipal>("principal");
  HandOut<&ITaskDefinition::get_RegistrationInfo>(*definition_, "get_RegistrationInfo", info);
  Add<&IRegistrationInfo::put_Author>(info, "put_Author", [this](BSTR text) {
    CheckPlain(text);
    return S_OK;
  });
  HandOut<&ITaskDefinition::get_Principal>(*definition_, "get_Principal", principal);
  Accept<&IPrincipal::put_RunLevel>(principal, "put_RunLevel");
}

void TaskScheduler::InstallSettings() {
  auto& settings = com_.Make<ITaskSettings>("settings");
  auto& idle = com_.Make<IIdleSettings>("idle");
  HandOut<&ITaskDefinition::get_Settings>(*definition_, "get_Settings", settings);
  Accept<&ITaskSettings::put_StartWhenAvailable>(settings, "put_StartWhenAvailable");
  Accept<&ITaskSettings::put_MultipleInstances>(settings, "put_MultipleInstances");
  Accept<&ITaskSettings::put_AllowDemandStart>(settings, "put_AllowDemandStart");
  Accept<&ITaskSettings::put_AllowHardTerminate>(settings, "put_AllowHardTerminate");
  Accept<&ITaskSettings::put_DisallowStartIfOnBatteries>(settings, "put_DisallowStartIfOnBatteries");
  Accept<&ITaskSettings::put_StopIfGoingOnBatteries>(settings, "put_StopIfGoingOnBatteries");
  Accept<&ITaskSettings::put_RunOnlyIfNetworkAvailable>(settings, "put_RunOnlyIfNetworkAvailable");
  Accept<&ITaskSettings::put_ExecutionTimeLimit>(settings, "put_ExecutionTimeLimit");
  HandOut<&ITaskSettings::get_IdleSettings>(settings, "get_IdleSettings", idle);
  Add<&IIdleSettings::put_WaitTimeout>(idle, "put_WaitTimeout", [this](BSTR text) {
    CheckPlain(text);
    return S_OK;
  });
}

void TaskScheduler::InstallTriggers() {
  auto& triggers = com_.Make<ITriggerCollection>("triggers");
  // One object per trigger type, so that none answers for the other's interface.
  auto& dailyTrigger = com_.Make<ITrigger>("trigger");
  auto& logonTrigger = com_.Make<ITrigger>("trigger");
  auto& daily = com_.Make<IDailyTrigger>("daily");
  auto& logon = com_.Make<ILogonTrigger>("logon");
  HandOut<&ITaskDefinition::get_Triggers>(*definition_, "get_Triggers", triggers);
  Add<&ITriggerCollection::Create>(triggers, "Create",
                                   [this, &dailyTrigger, &logonTrigger, &daily, &logon](
                                       TASK_TRIGGER_TYPE2 type, ITrigger** out) -> HRESULT {
                                     if (type != TASK_TRIGGER_DAILY && type != TASK_TRIGGER_LOGON) {
                                       return E_INVALIDARG;
                                     }
                                     auto& trigger = type == TASK_TRIGGER_DAILY ? dailyTrigger : logonTrigger;
                                     if (type == TASK_TRIGGER_DAILY && missing_.count("daily") == 0) {
                                       trigger.Also(__uuidof(IDailyTrigger), daily);
                                     }
                                     if (type == TASK_TRIGGER_LOGON && missing_.count("logon") == 0) {
                                       trigger.Also(__uuidof(ILogonTrigger), logon);
                                     }
                                     trigger.Give(out);
                                     return S_OK;
                                   })
      .HandsOut(Arg<1>);
  Accept<&IDailyTrigger::put_Id>(daily, "put_Id");
  Accept<&IDailyTrigger::put_StartBoundary>(daily, "put_StartBoundary");
  Accept<&IDailyTrigger::put_DaysInterval>(daily, "put_DaysInterval");
  Accept<&IDailyTrigger::put_RandomDelay>(daily, "put_RandomDelay");
  Accept<&IDailyTrigger::put_ExecutionTimeLimit>(daily, "put_ExecutionTimeLimit");
  Accept<&ILogonTrigger::put_Id>(logon, "put_Id");
  Accept<&ILogonTrigger::put_StartBoundary>(logon, "put_StartBoundary");
  Accept<&ILogonTrigger::put_UserId>(logon, "put_UserId");
}

void TaskScheduler::InstallActions() {
  auto& actions = com_.Make<IActionCollection>("actions");
  auto& action = com_.Make<IAction>("action");
  auto& program = com_.Make<IExecAction>("program");
  HandOut<&ITaskDefinition::get_Actions>(*definition_, "get_Actions", actions);
  Add<&IActionCollection::Create>(actions, "Create",
                                  [this, &action, &program](TASK_ACTION_TYPE, IAction** out) {
                                    if (missing_.count("program") == 0) {
                                      action.Also(__uuidof(IExecAction), program);
                                    }
                                    action.Give(out);
                                    return S_OK;
                                  })
      .HandsOut(Arg<1>);
  Accept<&IExecAction::put_Path>(program, "put_Path");
  Accept<&IExecAction::put_Arguments>(program, "put_Arguments");
}

void TaskScheduler::InstallTask() {
  auto& running = com_.Make<IRunningTask>("running");
  Add<&IRegisteredTask::get_State>(*task_, "get_State", [](TASK_STATE* state) {
    *state = TASK_STATE_DISABLED;
    return S_OK;
  });
  Add<&IRegisteredTask::get_Path>(*task_, "get_Path", [this](BSTR* out) {
    *out = com_.GiveString(L"\\" + ToWide(folderName) + L"\\task");
    return S_OK;
  }).HandsOut(Arg<0>);
  Add<&IRegisteredTask::RunEx>(
      *task_, "RunEx",
      [this, &running](VARIANT params, LONG flags, LONG session, BSTR user, IRunningTask** out) {
        constexpr LONG kUsesSession = 4;
        CheckText(user);
        bool runs =
            (flags & kUsesSession) != 0 ? sessions.count(session) != 0 : users.count(TextOf(user)) != 0;
        if (!runs || !IsEmpty(params)) {
          return E_ACCESSDENIED;
        }
        running.Give(out);
        return HRESULT{S_OK};
      })
      .HandsOut(Arg<4>);
}

void TaskScheduler::InstallWorkItems() {
  auto& scheduler = com_.Make<ITaskScheduler>("scheduler");
  auto& item = com_.Make<ITask>("item");
  auto& trigger = com_.Make<ITaskTrigger>("schedule");
  auto& file = com_.Make<IPersistFile>("file");
  com_.Register(kTaskSchedulerClass, scheduler);
  Add<&ITaskScheduler::NewWorkItem>(
      scheduler, "NewWorkItem",
      [this, &item, &file](const wchar_t* name, const CLSID& type, const IID& iid,
                           IUnknown** out) -> HRESULT {
        if (!IsEqualGUID(type, kTaskClass) || !IsEqualGUID(iid, __uuidof(ITask))) {
          return E_INVALIDARG;
        }
        if (items.count(TextOf(name)) != 0) {
          return HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
        }
        newItem_ = TextOf(name);
        if (missing_.count("file") == 0) {
          item.Also(__uuidof(IPersistFile), file);
        }
        item.Give(out);
        return S_OK;
      })
      .HandsOut(Arg<3>);
  Add<&ITaskScheduler::Delete>(scheduler, "Delete", [this](const wchar_t* name) {
    return items.erase(TextOf(name)) != 0 ? HRESULT{S_OK} : kNotFound;
  });
  Accept<&ITask::SetApplicationName>(item, "SetApplicationName");
  Accept<&ITask::SetParameters>(item, "SetParameters");
  Accept<&ITask::SetMaxRunTime>(item, "SetMaxRunTime");
  Accept<&ITask::SetAccountInformation>(item, "SetAccountInformation");
  Add<&ITask::CreateTrigger>(item, "CreateTrigger", [&trigger](WORD* index, ITaskTrigger** out) {
    *index = 0;
    trigger.Give(out);
    return S_OK;
  }).HandsOut(Arg<1>);
  Add<&ITaskTrigger::SetTrigger>(trigger, "SetTrigger", [this](TASK_TRIGGER* record) {
    schedule = *record;
    return S_OK;
  });
  Add<&IPersistFile::Save>(file, "Save", [this](const wchar_t*, BOOL) {
    items.insert(newItem_);
    return S_OK;
  });
}

}  // namespace rig
