#include "hxrun/com_objects.h"

#include <map>

#include "rig/com.h"
#include "rig/directory_interfaces.h"
#include "rig/function.h"
#include "rig/task_interfaces.h"
// Must come after the interfaces of the directory.
#include <adshlp.h>
#include <netfw.h>
#include <taskschd.h>

namespace hxrun {
namespace {

using rig::FakeBase;
using rig::FakeObject;

// Everything that the objects share. One run has one.
struct Context {
  rig::Rig& rig;
  RunWatcher& watcher;
  // The objects that stand in front of a real one, and the real one, by the pointer that the library has.
  std::map<void*, void*> real;
  std::vector<std::unique_ptr<FakeBase>> objects;
  // The methods that were passed on and have no row.
  std::string unknown;
  // The text by which each exception of the firewall is found, by the pointer that the library has.
  std::map<void*, std::wstring> keys;
  // The path of the new folder of the Task Scheduler.
  std::string newFolder;
  // The account of the work item.
  std::wstring workItemAccount;
  // The real object whose method was called last.
  void* called = nullptr;
};
Context* context = nullptr;

// A call on its way to the real object.
template <class Interface, auto Member, class Type = decltype(Member)>
struct Passing;

// An object of Windows behind one of the rig. The real object is never released: the process ends with the
// run, and the library's own references are counted as it makes them.
template <class Interface>
class Passed : public FakeObject<Interface> {
 public:
  Passed(const std::string& name, Interface* real) : FakeObject<Interface>(context->rig, name), real_(real) {
    context->real[this->Pointer()] = real;
  }

  Interface* Real() const { return real_; }

  HRESULT Query(const GUID& iid, void** out) override {
    void* found = nullptr;
    *out = nullptr;
    const HRESULT result = real_->QueryInterface(iid, &found);
    return FAILED(result) ? result : PassObject(iid, found, out);
  }

  // Passes the method on to the real object.
  template <auto Member>
  void Pass() {
    PassWith<Member>(Passing<Interface, Member>{real_});
  }
  // Does the same with another function, which calls it.
  template <auto Member, class Answer>
  void PassWith(Answer answer) {
    const rig::Declaration& declaration = this->template On<Member>(std::move(answer));
    if (FindRow(declaration.Name()) == nullptr) context->unknown += declaration.Name() + "\n";
  }

 protected:
  FakeBase::Method& Enter(size_t slot) override {
    context->called = real_;
    return FakeBase::Enter(slot);
  }

  HRESULT Trapped(size_t slot) override {
    rig::Fail("the library calls the method in slot " + std::to_string(slot) + " of " + this->Name() +
              ", which this hxrun does not know");
    return E_NOTIMPL;
  }

 private:
  Interface* real_;
};

// An object that would exist if a recorded change had been made. A call of any method ends the run.
template <class Interface>
class Unmade : public FakeObject<Interface> {
 public:
  explicit Unmade(const std::string& name) : FakeObject<Interface>(context->rig, name) {}

  HRESULT Query(const GUID&, void** out) override {
    *out = nullptr;
    context->watcher.EndUnmade(this->Name());
    return E_NOINTERFACE;
  }

 protected:
  HRESULT Trapped(size_t) override {
    context->watcher.EndUnmade(this->Name());
    return E_NOTIMPL;
  }
};

template <class Object, class... Arguments>
Object& Keep(Arguments&&... arguments) {
  auto object = std::make_unique<Object>(std::forward<Arguments>(arguments)...);
  Object& kept = *object;
  context->objects.push_back(std::move(object));
  return kept;
}

// Gives the library the object in front of a real one; `isExisting` if a change of it is a change at once.
template <class Interface>
void Wrap(Interface* real, Interface** out, bool isExisting);

// True for the objects that exist outside this process if a method hands them out.
template <class Interface>
constexpr bool kHandedOutExists =
    std::is_same_v<Interface, INetFwRule> || std::is_same_v<Interface, INetFwAuthorizedApplication>;

// One argument on its way to the real object: a pointer to one of our objects becomes the real one, and a
// real object that comes back gets one of ours in front of it.
template <class Type>
struct Argument {
  Type value;
  Type Real() { return value; }
  void Done(HRESULT) {}
};

template <class Interface>
  requires std::is_base_of_v<IUnknown, Interface>
struct Argument<Interface*> {
  Interface* value;
  Interface* Real() {
    auto found = context->real.find(value);
    return found == context->real.end() ? value : static_cast<Interface*>(found->second);
  }
  void Done(HRESULT) {}
};

template <class Interface>
  requires std::is_base_of_v<IUnknown, Interface>
struct Argument<Interface**> {
  Interface** value;
  Interface* real = nullptr;
  Interface** Real() { return value == nullptr ? nullptr : &real; }
  void Done(HRESULT result) {
    if (value == nullptr) return;
    *value = nullptr;
    if (SUCCEEDED(result) && real != nullptr) Wrap(real, value, kHandedOutExists<Interface>);
  }
};

template <class Interface, auto Member, class Base, class... Arguments>
struct Passing<Interface, Member, HRESULT (Base::*)(Arguments...)> {
  Interface* real;

  HRESULT operator()(Arguments... given) const { return Call(real, Argument<Arguments>{given}...); }
  static HRESULT Call(Interface* object, Argument<Arguments>... arguments) {
    const HRESULT result = (object->*Member)(arguments.Real()...);
    (arguments.Done(result), ...);
    return result;
  }
};

// ---- the methods of each interface that the library calls

template <class Interface>
void Equip(Passed<Interface>&) {
}

void Equip(Passed<ITaskService>& object) {
  object.Pass<&ITaskService::Connect>();
  object.Pass<&ITaskService::GetFolder>();
  object.Pass<&ITaskService::NewTask>();
}

void Equip(Passed<ITaskFolder>& object) {
  object.Pass<&ITaskFolder::GetFolder>();
  object.Pass<&ITaskFolder::GetTask>();
  object.Pass<&ITaskFolder::CreateFolder>();
  object.Pass<&ITaskFolder::DeleteFolder>();
  object.Pass<&ITaskFolder::DeleteTask>();
  object.Pass<&ITaskFolder::RegisterTaskDefinition>();
}

void Equip(Passed<IRegisteredTask>& object) {
  object.Pass<&IRegisteredTask::get_State>();
  object.Pass<&IRegisteredTask::get_Path>();
  object.Pass<&IRegisteredTask::RunEx>();
}

void Equip(Passed<ITaskDefinition>& object) {
  object.Pass<&ITaskDefinition::get_RegistrationInfo>();
  object.Pass<&ITaskDefinition::get_Settings>();
  object.Pass<&ITaskDefinition::get_Triggers>();
  object.Pass<&ITaskDefinition::get_Principal>();
  object.Pass<&ITaskDefinition::get_Actions>();
}

void Equip(Passed<IRegistrationInfo>& object) {
  object.Pass<&IRegistrationInfo::put_Author>();
}

void Equip(Passed<ITaskSettings>& object) {
  object.Pass<&ITaskSettings::put_StartWhenAvailable>();
  object.Pass<&ITaskSettings::put_MultipleInstances>();
  object.Pass<&ITaskSettings::put_AllowDemandStart>();
  object.Pass<&ITaskSettings::put_AllowHardTerminate>();
  object.Pass<&ITaskSettings::put_DisallowStartIfOnBatteries>();
  object.Pass<&ITaskSettings::put_StopIfGoingOnBatteries>();
  object.Pass<&ITaskSettings::put_RunOnlyIfNetworkAvailable>();
  object.Pass<&ITaskSettings::put_ExecutionTimeLimit>();
  object.Pass<&ITaskSettings::get_IdleSettings>();
}

void Equip(Passed<IIdleSettings>& object) {
  object.Pass<&IIdleSettings::put_WaitTimeout>();
}

void Equip(Passed<ITriggerCollection>& object) {
  object.Pass<&ITriggerCollection::Create>();
}

void Equip(Passed<IDailyTrigger>& object) {
  object.Pass<&ITrigger::put_Id>();
  object.Pass<&ITrigger::put_StartBoundary>();
  object.Pass<&ITrigger::put_ExecutionTimeLimit>();
  object.Pass<&IDailyTrigger::put_DaysInterval>();
  object.Pass<&IDailyTrigger::put_RandomDelay>();
}

void Equip(Passed<ILogonTrigger>& object) {
  object.Pass<&ITrigger::put_Id>();
  object.Pass<&ITrigger::put_StartBoundary>();
  object.Pass<&ILogonTrigger::put_UserId>();
}

void Equip(Passed<IPrincipal>& object) {
  object.Pass<&IPrincipal::put_RunLevel>();
}

void Equip(Passed<IActionCollection>& object) {
  object.Pass<&IActionCollection::Create>();
}

void Equip(Passed<IExecAction>& object) {
  object.Pass<&IExecAction::put_Path>();
  object.Pass<&IExecAction::put_Arguments>();
}

void Equip(Passed<ITaskScheduler>& object) {
  // The new object's interface is in an argument.
  object.PassWith<&ITaskScheduler::NewWorkItem>(
      [&object](const wchar_t* name, const GUID& type, const GUID& iid, IUnknown** out) {
        IUnknown* real = nullptr;
        *out = nullptr;
        const HRESULT result = object.Real()->NewWorkItem(name, type, iid, &real);
        return FAILED(result) ? result : PassObject(iid, real, reinterpret_cast<void**>(out));
      });
  object.Pass<&ITaskScheduler::Delete>();
}

void Equip(Passed<ITask>& object) {
  object.Pass<&ITask::SetApplicationName>();
  object.Pass<&ITask::SetParameters>();
  object.Pass<&ITask::SetMaxRunTime>();
  object.PassWith<&IScheduledWorkItem::SetAccountInformation>(
      [&object](const wchar_t* account, const wchar_t* password) {
        context->workItemAccount = account == nullptr ? L"" : account;
        return object.Real()->SetAccountInformation(account, password);
      });
  object.Pass<&IScheduledWorkItem::CreateTrigger>();
}

void Equip(Passed<ITaskTrigger>& object) {
  object.Pass<&ITaskTrigger::SetTrigger>();
}

void Equip(Passed<IPersistFile>& object) {
  object.Pass<&IPersistFile::Save>();
}

void Equip(Passed<INetFwPolicy2>& object) {
  object.Pass<&INetFwPolicy2::get_Rules>();
  object.Pass<&INetFwPolicy2::get_FirewallEnabled>();
}

void Equip(Passed<INetFwRules>& object) {
  object.Pass<&INetFwRules::Item>();
  object.Pass<&INetFwRules::Add>();
  object.Pass<&INetFwRules::Remove>();
}

// Passes on a method that gives the text by which the object is found.
template <auto Member, class Interface>
void PassKey(Passed<Interface>& object) {
  object.template PassWith<Member>([&object](BSTR text) {
    if (text != nullptr) context->keys[object.Pointer()] = text;
    return (object.Real()->*Member)(text);
  });
}

void Equip(Passed<INetFwRule>& object) {
  PassKey<&INetFwRule::put_Name>(object);
  object.Pass<&INetFwRule::put_ApplicationName>();
  object.Pass<&INetFwRule::put_Grouping>();
  object.Pass<&INetFwRule::put_Description>();
  if (object.Name() == "INetFwRule") {
    object.Pass<&INetFwRule::put_Direction>();
    object.Pass<&INetFwRule::put_Action>();
    object.Pass<&INetFwRule::put_Protocol>();
    object.Pass<&INetFwRule::put_Profiles>();
    object.Pass<&INetFwRule::put_Enabled>();
  } else {
    object.Pass<&INetFwRule::get_ApplicationName>();
    object.Pass<&INetFwRule::get_Enabled>();
  }
}

void Equip(Passed<INetFwMgr>& object) {
  object.Pass<&INetFwMgr::get_LocalPolicy>();
}

void Equip(Passed<INetFwPolicy>& object) {
  object.Pass<&INetFwPolicy::get_CurrentProfile>();
}

void Equip(Passed<INetFwProfile>& object) {
  object.Pass<&INetFwProfile::get_AuthorizedApplications>();
  object.Pass<&INetFwProfile::get_FirewallEnabled>();
  object.Pass<&INetFwProfile::get_ExceptionsNotAllowed>();
}

void Equip(Passed<INetFwAuthorizedApplications>& object) {
  object.Pass<&INetFwAuthorizedApplications::Item>();
  object.Pass<&INetFwAuthorizedApplications::Add>();
  object.Pass<&INetFwAuthorizedApplications::Remove>();
}

void Equip(Passed<INetFwAuthorizedApplication>& object) {
  PassKey<&INetFwAuthorizedApplication::put_ProcessImageFileName>(object);
  object.Pass<&INetFwAuthorizedApplication::put_Name>();
  if (object.Name() == "INetFwAuthorizedApplication") {
    object.Pass<&INetFwAuthorizedApplication::put_Scope>();
  } else {
    object.Pass<&INetFwAuthorizedApplication::get_ProcessImageFileName>();
    object.Pass<&INetFwAuthorizedApplication::get_Enabled>();
  }
}

void Equip(Passed<IADsContainer>& object) {
  object.Pass<&IADsContainer::Create>();
  object.Pass<&IADsContainer::GetObject>();
  object.Pass<&IADsContainer::Delete>();
}

void Equip(Passed<IADsUser>& object) {
  object.Pass<&IADsUser::SetPassword>();
  object.Pass<&IADsUser::put_FullName>();
  object.Pass<&IADs::SetInfo>();
}

void Equip(Passed<IADsNameTranslate>& object) {
  object.Pass<&IADsNameTranslate::Init>();
  object.Pass<&IADsNameTranslate::Set>();
  object.Pass<&IADsNameTranslate::Get>();
}

// The name of an interface, from the compiler's name of this function.
template <class Interface>
std::string NameOf() {
  const std::string text = __PRETTY_FUNCTION__;
  const size_t start = text.find("Interface = ") + 12;
  return text.substr(start, text.find_first_of("];", start) - start);
}

template <class Interface>
void Wrap(Interface* real, Interface** out, bool isExisting) {
  auto& object = Keep<Passed<Interface>>((isExisting ? "existing " : "") + NameOf<Interface>(), real);
  Equip(object);
  object.Give(out);
}

template <class Interface>
bool WrapIf(const GUID& iid, void* real, void** out) {
  if (!IsEqualGUID(iid, __uuidof(Interface))) return false;
  auto* typed = static_cast<Interface*>(real);
  Interface* object = nullptr;
  Wrap(typed, &object, false);
  *out = object;
  return true;
}

template <class... Interfaces>
struct List {};
// The interfaces that the library asks for by an identifier.
using Asked = List<IDispatch, ITaskService, IDailyTrigger, ILogonTrigger, IExecAction, ITaskScheduler, ITask,
                   IPersistFile, INetFwPolicy2, INetFwRule, INetFwMgr, INetFwAuthorizedApplication,
                   IADsContainer, IADsUser, IADsNameTranslate>;
// The others.
using Returned = List<ITaskFolder, IRegisteredTask, ITaskDefinition, IRegistrationInfo, ITaskSettings,
                      IIdleSettings, ITriggerCollection, IPrincipal, IActionCollection, ITaskTrigger,
                      INetFwRules, INetFwPolicy, INetFwProfile, INetFwAuthorizedApplications>;

template <class... Interfaces>
bool WrapOneOf(List<Interfaces...>, const GUID& iid, void* real, void** out) {
  return (WrapIf<Interfaces>(iid, real, out) || ...);
}

// ---- what a success of a recorded change stores

// A folder that a dry run did not create. It would be empty, so a task in it cannot be deleted.
ITaskFolder* NewTaskFolder() {
  auto& folder = Keep<Unmade<ITaskFolder>>("new ITaskFolder");
  folder.On<&ITaskFolder::DeleteTask>([](BSTR, LONG) { return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND); });
  // Never called, because the watcher answers it.
  folder.On<&ITaskFolder::RegisterTaskDefinition>([](BSTR, ITaskDefinition*, LONG, VARIANT, VARIANT,
                                                     TASK_LOGON_TYPE, VARIANT,
                                                     IRegisteredTask**) { return E_UNEXPECTED; });
  ITaskFolder* pointer = nullptr;
  folder.Give(&pointer);
  return pointer;
}

template <class Interface>
Interface* NewUnmade() {
  Interface* pointer = nullptr;
  Keep<Unmade<Interface>>(NameOf<Interface>()).Give(&pointer);
  return pointer;
}

template <class... Interfaces>
void EquipEach(List<Interfaces...>) {
  (Equip(Keep<Passed<Interfaces>>(NameOf<Interfaces>(), nullptr)), ...);
}

}  // namespace

void PassObjects(rig::Rig& rig, RunWatcher& watcher) {
  static std::unique_ptr<Context> owner;
  owner.reset(new Context{rig, watcher, {}, {}, {}, {}, {}, {}, nullptr});
  context = owner.get();
  rig.On<::CoCreateInstance>(
      [](const CLSID& clsid, IUnknown* outer, DWORD where, const IID& iid, void** out) {
        void* real = nullptr;
        *out = nullptr;
        const HRESULT result = ::CoCreateInstance(clsid, outer, where, iid, &real);
        return FAILED(result) ? result : PassObject(iid, real, out);
      });
  rig.On<::ADsGetObject>([](const wchar_t* path, const IID& iid, void** out) {
    void* real = nullptr;
    *out = nullptr;
    auto* function = rig::Function<&::ADsGetObject>::Real();
    const HRESULT result = function == nullptr ? E_NOTIMPL : function(path, iid, &real);
    return FAILED(result) ? result : PassObject(iid, real, out);
  });
}

HRESULT PassObject(const GUID& iid, void* real, void** out) {
  if (WrapOneOf(Asked{}, iid, real, out)) return S_OK;
  rig::Fail("the library asks for the interface " + rig::GuidText(iid) + ", which this hxrun does not know");
  return E_NOINTERFACE;
}

void* CalledObject() {
  return context->called;
}

void* RealObject(void* pointer) {
  auto found = context->real.find(pointer);
  return found == context->real.end() ? pointer : found->second;
}

std::wstring ExceptionKey(void* object) {
  return context->keys[object];
}

const std::wstring& WorkItemAccount() {
  return context->workItemAccount;
}

const std::string& NewFolderPath() {
  return context->newFolder;
}

void* UnmadeObject(const std::string& method, const std::string& path) {
  if (!path.empty()) context->newFolder = path;
  if (method == "ITaskFolder.CreateFolder") return NewTaskFolder();
  if (method == "ITaskFolder.RegisterTaskDefinition") return NewUnmade<IRegisteredTask>();
  if (method == "IRegisteredTask.RunEx") return NewUnmade<IRunningTask>();
  return nullptr;
}

std::string CheckMethods(rig::Rig& rig, RunWatcher& watcher) {
  PassObjects(rig, watcher);
  EquipEach(Asked{});
  EquipEach(Returned{});
  Equip(Keep<Passed<INetFwRule>>("existing INetFwRule", nullptr));
  Equip(Keep<Passed<INetFwAuthorizedApplication>>("existing INetFwAuthorizedApplication", nullptr));
  std::string unknown = context->unknown;
  context->objects.clear();
  context->real.clear();
  return unknown;
}

}  // namespace hxrun
