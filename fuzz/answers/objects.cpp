// COM, system strings, and the objects of the firewall in both of its forms.

#include "answers/objects.h"

#include "answers/fake_object.h"
#include "image.h"
#include "require.h"
#include "world.h"

#include <netfw.h>
#include <objbase.h>
#include <oleauto.h>

namespace {

HRESULT IMAGE_ABI AnswerGetTruth(FakeObject* object, VARIANT_BOOL* truth) {
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  *truth = world.data.Flag() ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

HRESULT IMAGE_ABI AnswerGetTruthOf(FakeObject* object, LONG, VARIANT_BOOL* truth) {
  return AnswerGetTruth(object, truth);
}

HRESULT IMAGE_ABI AnswerRemove(FakeObject* object, BSTR text) {
  return AnswerPutText(object, text);
}

// The firewall's service may not be running.
HRESULT IMAGE_ABI AnswerAdd(FakeObject* object, FakeObject* item) {
  NeedHeld(Kind::kReference, object);
  NeedHeld(Kind::kReference, item);
  constexpr auto kServiceNotRunning = static_cast<HRESULT>(0x800706D9);
  if (MustFail()) return E_FAIL;
  return world.data.Below(4) == 1 ? kServiceNotRunning : S_OK;
}

const Table& Rule() {
  static const Table kTable = Table()
                                  .Set(&INetFwRule::get_ApplicationName, &AnswerGetText)
                                  .Set(&INetFwRule::get_Enabled, &AnswerGetTruth)
                                  .Set(&INetFwRule::put_ApplicationName, &AnswerPutText)
                                  .Set(&INetFwRule::put_Name, &AnswerPutText)
                                  .Set(&INetFwRule::put_Grouping, &AnswerPutText)
                                  .Set(&INetFwRule::put_Description, &AnswerPutText);
  return kTable;
}

const Table& Application() {
  static const Table kTable = Table()
                                  .Set(&INetFwAuthorizedApplication::get_ProcessImageFileName, &AnswerGetText)
                                  .Set(&INetFwAuthorizedApplication::get_Enabled, &AnswerGetTruth)
                                  .Set(&INetFwAuthorizedApplication::put_ProcessImageFileName, &AnswerPutText)
                                  .Set(&INetFwAuthorizedApplication::put_Name, &AnswerPutText);
  return kTable;
}

HRESULT IMAGE_ABI AnswerRuleItem(FakeObject* object, BSTR key, void** item) {
  AnswerPutText(object, key);
  return world.data.Flag() ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : Hand(Rule(), item);
}

HRESULT IMAGE_ABI AnswerApplicationItem(FakeObject* object, BSTR key, void** item) {
  AnswerPutText(object, key);
  return world.data.Flag() ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : Hand(Application(), item);
}

HRESULT IMAGE_ABI AnswerGetRules(FakeObject* object, void** rules) {
  NeedHeld(Kind::kReference, object);
  static const Table kTable = Table()
                                  .Set(&INetFwRules::Item, &AnswerRuleItem)
                                  .Set(&INetFwRules::Add, &AnswerAdd)
                                  .Set(&INetFwRules::Remove, &AnswerRemove);
  return Hand(kTable, rules);
}

HRESULT IMAGE_ABI AnswerGetApplications(FakeObject* object, void** applications) {
  NeedHeld(Kind::kReference, object);
  static const Table kTable = Table()
                                  .Set(&INetFwAuthorizedApplications::Item, &AnswerApplicationItem)
                                  .Set(&INetFwAuthorizedApplications::Add, &AnswerAdd)
                                  .Set(&INetFwAuthorizedApplications::Remove, &AnswerRemove);
  return Hand(kTable, applications);
}

HRESULT IMAGE_ABI AnswerGetProfile(FakeObject* object, void** profile) {
  NeedHeld(Kind::kReference, object);
  static const Table kTable = Table()
                                  .Set(&INetFwProfile::get_AuthorizedApplications, &AnswerGetApplications)
                                  .Set(&INetFwProfile::get_FirewallEnabled, &AnswerGetTruth)
                                  .Set(&INetFwProfile::get_ExceptionsNotAllowed, &AnswerGetTruth);
  return Hand(kTable, profile);
}

HRESULT IMAGE_ABI AnswerGetPolicy(FakeObject* object, void** policy) {
  NeedHeld(Kind::kReference, object);
  static const Table kTable = Table().Set(&INetFwPolicy::get_CurrentProfile, &AnswerGetProfile);
  return Hand(kTable, policy);
}

const Table& Policy2() {
  static const Table kTable = Table()
                                  .Set(&INetFwPolicy2::get_Rules, &AnswerGetRules)
                                  .Set(&INetFwPolicy2::get_FirewallEnabled, &AnswerGetTruthOf);
  return kTable;
}

const Table& Manager() {
  static const Table kTable = Table().Set(&INetFwMgr::get_LocalPolicy, &AnswerGetPolicy);
  return kTable;
}

int starts;

HRESULT WINAPI AnswerCoInitializeEx(LPVOID, DWORD) {
  constexpr HRESULT kResults[] = {S_OK, S_FALSE, RPC_E_CHANGED_MODE};
  const HRESULT result = MustFail() ? E_OUTOFMEMORY : world.data.OneOf(kResults);
  if (SUCCEEDED(result)) ++starts;
  return result;
}

void WINAPI AnswerCoUninitialize() {
  REQUIRE(starts > 0, "COM is ended without a start");
  REQUIRE(--starts > 0 || AllObjectsAreReleased(), "COM is ended before its objects are released");
}

HRESULT WINAPI AnswerCoCreateInstance(REFCLSID classId, LPUNKNOWN, DWORD, REFIID, LPVOID* object) {
  const Table* table = TableOfClass(classId.Data1);
  *object = nullptr;
  if (!table || MustFail()) return REGDB_E_CLASSNOTREG;
  *object = NewObject(*table);
  return S_OK;
}

BSTR WINAPI AnswerSysAllocString(const OLECHAR* text) {
  return !text || MustFail() ? nullptr : MakeString(ViewOf(text));
}

void WINAPI AnswerSysFreeString(BSTR text) {
  if (text) FreeBlock(Kind::kString, text);
}

void WINAPI AnswerCoTaskMemFree(LPVOID block) {
  if (block) FreeBlock(Kind::kTaskBlock, block);
}

void Reset() {
  starts = 0;
}

const FakeClass kPolicy2Class(0xE2B3C97F, &Policy2);
const FakeClass kManagerClass(0x304CE942, &Manager);
const FakeClass kRuleClass(0x2C5BC43E, &Rule);
const FakeClass kApplicationClass(0xEC9846B3, &Application);
const AtBegin kReset(Reset);
const Answers kObjects{
    ANSWER(CoCreateInstance, AnswerCoCreateInstance), ANSWER(CoInitializeEx, AnswerCoInitializeEx),
    ANSWER(CoTaskMemFree, AnswerCoTaskMemFree),       ANSWER(CoUninitialize, AnswerCoUninitialize),
    ANSWER(SysAllocString, AnswerSysAllocString),     ANSWER(SysFreeString, AnswerSysFreeString),
};

}  // namespace

int ComStarts() {
  return starts;
}
