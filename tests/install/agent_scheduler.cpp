#include "install/agent_scheduler.h"

namespace install {

namespace {

const wchar_t kFolder[] = L"Quillfern";
const wchar_t kItem[] = L"Ostrel";

// Identifiers of both schedulers, which are in no import library of the tests' compiler.
constexpr CLSID kServiceClass = {
    0x0F87369F, 0xA4E5, 0x4CFC, {0xBD, 0x3E, 0x73, 0xE6, 0x15, 0x45, 0x72, 0xDD}};
constexpr IID kServiceId = {0x2FABA4C7, 0x4DA9, 0x4013, {0x96, 0x97, 0x20, 0xCC, 0x3F, 0xD4, 0x0F, 0x85}};
constexpr IID kDailyTriggerId = {
    0x126C5CD8, 0xB288, 0x41D5, {0x8D, 0xBF, 0xE4, 0x91, 0x44, 0x6A, 0xDC, 0x5C}};
constexpr IID kExecActionId = {0x4C3D624D, 0xFD6B, 0x49A3, {0xB9, 0xB7, 0x09, 0xCB, 0x3C, 0xD3, 0xF0, 0x47}};
constexpr CLSID kOlderClass = {0x148BD52A, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kOlderId = {0x148BD527, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr CLSID kItemClass = {0x148BD520, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kItemId = {0x148BD524, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
constexpr IID kPersistFileId = {0x0000010B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// A text as a BSTR.
class String {
 public:
  explicit String(const std::wstring& text) : string_(SysAllocString(text.c_str())) {}
  ~String() { SysFreeString(string_); }
  String(const String&) = delete;
  String& operator=(const String&) = delete;
  BSTR get() const { return string_; }

 private:
  BSTR string_;
};

// Converts and frees a text that a call has returned in COM's memory.
std::string Taken(wchar_t* text) {
  std::string taken = text ? FromWide(text) : "(null)";
  CoTaskMemFree(text);
  return taken;
}

std::string TriggerText(const TASK_TRIGGER& trigger) {
  char text[400];
  std::snprintf(
      text, sizeof text,
      "size %u, begins %u-%u-%u, ends %u-%u-%u, at %u:%02u, duration %lu, interval %lu, flags %lu, type %d, "
      "every %u days, random %u",
      trigger.cbTriggerSize, trigger.wBeginYear, trigger.wBeginMonth, trigger.wBeginDay, trigger.wEndYear,
      trigger.wEndMonth, trigger.wEndDay, trigger.wStartHour, trigger.wStartMinute, trigger.MinutesDuration,
      trigger.MinutesInterval, trigger.rgFlags, trigger.TriggerType, trigger.Type.Daily.DaysInterval,
      trigger.wRandomMinutesInterval);
  return text;
}

}  // namespace

const wchar_t kUserTask[] = L"Ostrel User Agent Task";
const wchar_t kUpdateTask[] = L"Ostrel Auto-update Task";
const wchar_t kForeignTask[] = L"Somebody else's task";

Scheduler::Scheduler() {
  EXPECT_GE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), 0);
  EXPECT_EQ(CoCreateInstance(kServiceClass, nullptr, CLSCTX_INPROC_SERVER, kServiceId, service_.putVoid()),
            S_OK);
  EXPECT_EQ(service_->Connect(VARIANT{}, VARIANT{}, VARIANT{}, VARIANT{}), S_OK);
  EXPECT_EQ(service_->GetFolder(String(L"\\").get(), root_.put()), S_OK);
  EXPECT_EQ(CoCreateInstance(kOlderClass, nullptr, CLSCTX_INPROC_SERVER, kOlderId, older_.putVoid()), S_OK);
}

Scheduler::~Scheduler() {
  older_.Reset();
  root_.Reset();
  service_.Reset();
  CoUninitialize();
}

bool Scheduler::OpenFolder(Owned<ITaskFolder>& folder) const {
  return SUCCEEDED(root_->GetFolder(String(kFolder).get(), folder.put()));
}

void Scheduler::RegisterDaily(const std::wstring& name) {
  Owned<ITaskFolder> folder;
  if (!OpenFolder(folder))
    ASSERT_EQ(root_->CreateFolder(String(kFolder).get(), VARIANT{}, folder.put()), S_OK);
  Owned<ITaskDefinition> definition;
  ASSERT_EQ(service_->NewTask(0, definition.put()), S_OK);

  Owned<ITriggerCollection> triggers;
  Owned<ITrigger> trigger;
  Owned<IDailyTrigger> daily;
  ASSERT_EQ(definition->get_Triggers(triggers.put()), S_OK);
  ASSERT_EQ(triggers->Create(TASK_TRIGGER_DAILY, trigger.put()), S_OK);
  ASSERT_EQ(trigger.get()->QueryInterface(kDailyTriggerId, daily.putVoid()), S_OK);
  EXPECT_EQ(daily->put_StartBoundary(String(L"2016-01-01T02:30:00").get()), S_OK);
  EXPECT_EQ(daily->put_DaysInterval(1), S_OK);

  Owned<IActionCollection> actions;
  Owned<IAction> action;
  Owned<IExecAction> program;
  ASSERT_EQ(definition->get_Actions(actions.put()), S_OK);
  ASSERT_EQ(actions->Create(TASK_ACTION_EXEC, action.put()), S_OK);
  ASSERT_EQ(action.get()->QueryInterface(kExecActionId, program.putVoid()), S_OK);
  EXPECT_EQ(program->put_Path(String(L"C:\\Windows\\System32\\hostname.exe").get()), S_OK);

  Owned<IRegisteredTask> task;
  EXPECT_EQ(
      folder->RegisterTaskDefinition(
          String(name).get(), definition.get(), TASK_CREATE_OR_UPDATE, VARIANT{}, VARIANT{},
          ByEngine(Differs::kTasks, TASK_LOGON_NONE, TASK_LOGON_INTERACTIVE_TOKEN), VARIANT{}, task.put()),
      S_OK);
}

Texts Scheduler::Tasks() const {
  Owned<ITaskFolder> folder;
  if (!OpenFolder(folder)) return {"(no folder)"};
  Texts names;
  for (const wchar_t* name : {kUserTask, kUpdateTask, kForeignTask}) {
    Owned<IRegisteredTask> task;
    if (SUCCEEDED(folder->GetTask(String(name).get(), task.put()))) names.push_back(FromWide(name));
  }
  return names;
}

void Scheduler::Clear() {
  Owned<ITaskFolder> folder;
  if (!OpenFolder(folder)) return;
  for (const wchar_t* name : {kUserTask, kUpdateTask, kForeignTask})
    folder->DeleteTask(String(name).get(), 0);
  folder.Reset();
  EXPECT_EQ(root_->DeleteFolder(String(kFolder).get(), 0), S_OK);
}

Texts Scheduler::WorkItem() const {
  Owned<IUnknown> item;
  if (FAILED(older_->Activate(kItem, kItemId, item.put()))) return {};
  auto* task = static_cast<ITask*>(item.get());
  Texts fields;
  wchar_t* text = nullptr;
  EXPECT_EQ(task->GetApplicationName(&text), S_OK);
  fields.push_back("program " + Taken(text));
  EXPECT_EQ(task->GetParameters(&text), S_OK);
  fields.push_back("parameters " + Taken(text));
  DWORD runTime = 0;
  EXPECT_EQ(task->GetMaxRunTime(&runTime), S_OK);
  fields.push_back("at most " + std::to_string(runTime) + " ms");
  WORD count = 0;
  EXPECT_EQ(task->GetTriggerCount(&count), S_OK);
  for (WORD i = 0; i < count; ++i) {
    Owned<ITaskTrigger> trigger;
    TASK_TRIGGER record = {};
    record.cbTriggerSize = sizeof record;
    EXPECT_EQ(task->GetTrigger(i, trigger.put()), S_OK);
    EXPECT_EQ(trigger->GetTrigger(&record), S_OK);
    fields.push_back(TriggerText(record));
  }
  return fields;
}

void Scheduler::MakeWorkItem(const std::wstring& program) {
  Owned<IUnknown> item;
  ASSERT_EQ(older_->NewWorkItem(kItem, kItemClass, kItemId, item.put()), S_OK);
  EXPECT_EQ(static_cast<ITask*>(item.get())->SetApplicationName(program.c_str()), S_OK);
  Owned<IPersistFile> file;
  ASSERT_EQ(item.get()->QueryInterface(kPersistFileId, file.putVoid()), S_OK);
  EXPECT_EQ(file->Save(nullptr, TRUE), S_OK);
}

void Scheduler::DeleteWorkItem() {
  older_->Delete(kItem);
}

}  // namespace install
