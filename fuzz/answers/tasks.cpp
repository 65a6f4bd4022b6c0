// The objects of the Task Scheduler, of its older and of its newer form. A success always comes with an
// object: the library relies on that here.

#include "answers/fake_object.h"
#include "require.h"
#include "world.h"

#include <mstask.h>
#include <objidl.h>
#include <taskschd.h>

namespace {

// A method that stores an object of the table that `table` returns.
template <const Table& (*table)()>
HRESULT IMAGE_ABI AnswerHand(FakeObject* object, void** out) {
  NeedHeld(Kind::kReference, object);
  return Give(table(), out);
}

// The same, for a method that has a kind or a text before it.
template <const Table& (*table)()>
HRESULT IMAGE_ABI AnswerHandFor(FakeObject* object, uint64_t, void** out) {
  return AnswerHand<table>(object, out);
}

// The same, for a method that finds something by its name.
template <const Table& (*table)()>
HRESULT IMAGE_ABI AnswerFind(FakeObject* object, BSTR name, void** out) {
  NeedHeld(Kind::kReference, object);
  REQUIRE(name, "an object of the Task Scheduler is looked for without a name");
  ViewOf(name);
  return world.data.Below(8) == 1 ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : Give(table(), out);
}

// ---- the newer form

const Table& PlainTable() {
  static const Table kTable;
  return kTable;
}

HRESULT IMAGE_ABI AnswerGetState(FakeObject* object, TASK_STATE* state) {
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  *state = TASK_STATE_READY;
  return S_OK;
}

HRESULT IMAGE_ABI AnswerRunEx(FakeObject* object, VARIANT*, LONG, LONG, BSTR user, void** running) {
  NeedHeld(Kind::kReference, object);
  if (user) ViewOf(user);
  return Give(PlainTable(), running);
}

const Table& RegisteredTable() {
  static const Table kTable = Table()
                                  .Set(&IRegisteredTask::get_State, &AnswerGetState)
                                  .Set(&IRegisteredTask::get_Path, &AnswerGetText)
                                  .Set(&IRegisteredTask::RunEx, &AnswerRunEx);
  return kTable;
}

const Table& InfoTable() {
  static const Table kTable = Table().Set(&IRegistrationInfo::put_Author, &AnswerPutText);
  return kTable;
}

const Table& IdleTable() {
  static const Table kTable = Table().Set(&IIdleSettings::put_WaitTimeout, &AnswerPutText);
  return kTable;
}

const Table& SettingsTable() {
  static const Table kTable = Table()
                                  .Set(&ITaskSettings::put_ExecutionTimeLimit, &AnswerPutText)
                                  .Set(&ITaskSettings::get_IdleSettings, &AnswerHand<IdleTable>);
  return kTable;
}

// The daily trigger, whose methods include those of every trigger. Those of the trigger at logon take a text,
// which is null here.
const Table& TriggerTable() {
  static const Table kTable = Table()
                                  .SetQuery(&AnswerSameObject)
                                  .Set(&ITrigger::put_Id, &AnswerPutText)
                                  .Set(&ITrigger::put_StartBoundary, &AnswerPutText)
                                  .Set(&ITrigger::put_ExecutionTimeLimit, &AnswerPutText);
  return kTable;
}

const Table& TriggersTable() {
  static const Table kTable = Table().Set(&ITriggerCollection::Create, &AnswerHandFor<TriggerTable>);
  return kTable;
}

const Table& ActionTable() {
  static const Table kTable = Table()
                                  .SetQuery(&AnswerSameObject)
                                  .Set(&IExecAction::put_Path, &AnswerPutAnyText)
                                  .Set(&IExecAction::put_Arguments, &AnswerPutText);
  return kTable;
}

const Table& ActionsTable() {
  static const Table kTable = Table().Set(&IActionCollection::Create, &AnswerHandFor<ActionTable>);
  return kTable;
}

const Table& DefinitionTable() {
  static const Table kTable = Table()
                                  .Set(&ITaskDefinition::get_RegistrationInfo, &AnswerHand<InfoTable>)
                                  .Set(&ITaskDefinition::get_Settings, &AnswerHand<SettingsTable>)
                                  .Set(&ITaskDefinition::get_Triggers, &AnswerHand<TriggersTable>)
                                  .Set(&ITaskDefinition::get_Principal, &AnswerHand<PlainTable>)
                                  .Set(&ITaskDefinition::get_Actions, &AnswerHand<ActionsTable>);
  return kTable;
}

const Table& FolderTable();

HRESULT IMAGE_ABI AnswerCreateFolder(FakeObject* object, BSTR name, VARIANT*, void** folder) {
  return AnswerFind<FolderTable>(object, name, folder);
}

HRESULT IMAGE_ABI AnswerDelete(FakeObject* object, BSTR name, LONG flags) {
  REQUIRE(flags == 0, "a task is deleted with the flags %d", flags);
  return AnswerPutText(object, name);
}

HRESULT IMAGE_ABI AnswerRegister(FakeObject* object, BSTR name, FakeObject* definition, LONG, VARIANT* user,
                                 VARIANT*, TASK_LOGON_TYPE, VARIANT* descriptor, void** task) {
  NeedHeld(Kind::kReference, definition);
  REQUIRE(user->vt == VT_BSTR && descriptor->vt == VT_BSTR, "a task is registered without an account");
  ViewOf(user->bstrVal);
  ViewOf(descriptor->bstrVal);
  return AnswerFind<RegisteredTable>(object, name, task);
}

const Table& FolderTable() {
  static const Table kTable = Table()
                                  .Set(&ITaskFolder::GetFolder, &AnswerFind<FolderTable>)
                                  .Set(&ITaskFolder::CreateFolder, &AnswerCreateFolder)
                                  .Set(&ITaskFolder::GetTask, &AnswerFind<RegisteredTable>)
                                  .Set(&ITaskFolder::DeleteTask, &AnswerDelete)
                                  .Set(&ITaskFolder::DeleteFolder, &AnswerDelete)
                                  .Set(&ITaskFolder::RegisterTaskDefinition, &AnswerRegister);
  return kTable;
}

const Table& ServiceTable() {
  static const Table kTable = Table()
                                  .Set(&ITaskService::GetFolder, &AnswerFind<FolderTable>)
                                  .Set(&ITaskService::NewTask, &AnswerHandFor<DefinitionTable>);
  return kTable;
}

// ---- the older form

HRESULT IMAGE_ABI AnswerPutWide(FakeObject* object, LPCWSTR text) {
  NeedHeld(Kind::kReference, object);
  REQUIRE(!ViewOf(text).empty(), "an empty text is set");
  return MustFail() ? E_FAIL : S_OK;
}

HRESULT IMAGE_ABI AnswerSetAccount(FakeObject* object, LPCWSTR user, LPCWSTR password) {
  ViewOf(password);
  return AnswerPutWide(object, user);
}

HRESULT IMAGE_ABI AnswerSetTrigger(FakeObject*, const TASK_TRIGGER* record) {
  REQUIRE(record->cbTriggerSize == sizeof *record && record->wStartHour < 24,
          "the trigger of the audit is wrong");
  return MustFail() ? E_FAIL : S_OK;
}

// The library does not release the trigger, so it is not noted as taken.
HRESULT IMAGE_ABI AnswerCreateTrigger(FakeObject* object, WORD* index, void** trigger) {
  static const Table kTable = Table().Set(&ITaskTrigger::SetTrigger, &AnswerSetTrigger);
  static FakeObject kTrigger{kTable.methods.data(), 1};
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  *index = 0;
  *trigger = &kTrigger;
  return S_OK;
}

HRESULT IMAGE_ABI AnswerGetFile(FakeObject* object, REFIID, void** file) {
  NeedHeld(Kind::kReference, object);
  return Give(PlainTable(), file);
}

const Table& WorkItemTable() {
  static const Table kTable = Table()
                                  .SetQuery(&AnswerGetFile)
                                  .Set(&ITask::SetApplicationName, &AnswerPutWide)
                                  .Set(&ITask::SetParameters, &AnswerPutWide)
                                  .Set(&ITask::SetAccountInformation, &AnswerSetAccount)
                                  .Set(&ITask::CreateTrigger, &AnswerCreateTrigger);
  return kTable;
}

HRESULT IMAGE_ABI AnswerNewWorkItem(FakeObject* object, LPCWSTR name, REFCLSID, REFIID, void** task) {
  NeedHeld(Kind::kReference, object);
  ViewOf(name);
  return Give(WorkItemTable(), task);
}

const Table& SchedulerTable() {
  static const Table kTable = Table()
                                  .Set(&ITaskScheduler::Delete, &AnswerPutWide)
                                  .Set(&ITaskScheduler::NewWorkItem, &AnswerNewWorkItem);
  return kTable;
}

const FakeClass kServiceClass(0x0F87369F, &ServiceTable);
const FakeClass kSchedulerClass(0x148BD52A, &SchedulerTable);

}  // namespace
