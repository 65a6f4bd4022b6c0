// COM, system strings, and the objects of the firewall in both of its forms.

#include "answers/objects.h"

#include "image.h"
#include "require.h"
#include "world.h"

#include <netfw.h>
#include <objbase.h>
#include <oleauto.h>

namespace {

// An object of COM whose methods are set one by one. All others succeed and do nothing.
struct FakeObject {
  void* const* methods;
  LONG references;
};

constexpr size_t kMostMethods = 48;

// The place of a method in the table of its interface.
template <typename Method>
size_t SlotOf(Method method) {
  uintptr_t value;
  memcpy(&value, &method, sizeof value);
  // A pointer to a virtual method is one more than its offset in the table.
  return (value - 1) / sizeof(void*);
}

std::vector<std::unique_ptr<FakeObject>> objects;

HRESULT IMAGE_ABI AnswerQueryInterface(FakeObject*, REFIID, void**) {
  return E_NOINTERFACE;
}

ULONG IMAGE_ABI AnswerAddRef(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  return static_cast<ULONG>(++object->references);
}

ULONG IMAGE_ABI AnswerRelease(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  if (--object->references == 0) GaveBack(Kind::kReference, object);
  return static_cast<ULONG>(object->references);
}

HRESULT IMAGE_ABI AnswerAnyMethod(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  return MustFail() ? E_FAIL : S_OK;
}

// A method that only reads a text.
HRESULT IMAGE_ABI AnswerPutText(FakeObject* object, BSTR text) {
  NeedHeld(Kind::kReference, object);
  REQUIRE(!ViewOf(text).empty(), "an empty text is set");
  return MustFail() ? E_FAIL : S_OK;
}

// The table of an interface.
struct Table {
  std::array<void*, kMostMethods> methods;

  Table() {
    methods.fill(reinterpret_cast<void*>(&AnswerAnyMethod));
    methods[0] = reinterpret_cast<void*>(&AnswerQueryInterface);
    methods[1] = reinterpret_cast<void*>(&AnswerAddRef);
    methods[2] = reinterpret_cast<void*>(&AnswerRelease);
  }
  template <typename Method, typename Function>
  Table& Set(Method method, Function function) {
    methods[SlotOf(method)] = reinterpret_cast<void*>(function);
    return *this;
  }
};

// Stores a new object; now and then a success without an object, or a failure.
HRESULT Hand(const Table& table, void** out) {
  if (MustFail()) {
    *out = reinterpret_cast<void*>(0xA5A5);
    return E_FAIL;
  }
  if (world.data.Below(16) == 1) {
    *out = nullptr;
    return S_OK;
  }
  objects.push_back(std::make_unique<FakeObject>(FakeObject{table.methods.data(), 1}));
  *out = Took(Kind::kReference, objects.back().get());
  return S_OK;
}

BSTR MakeString(std::u16string_view text) {
  auto* string = static_cast<wchar_t*>(NewBlock(Kind::kString, (text.size() + 1) * sizeof(wchar_t)));
  memcpy(string, text.data(), text.size() * sizeof(wchar_t));
  string[text.size()] = 0;
  return string;
}

HRESULT IMAGE_ABI AnswerGetText(FakeObject* object, BSTR* text) {
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  *text = world.data.Below(8) ? MakeString(world.data.Wide(20)) : nullptr;
  return S_OK;
}

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
  REQUIRE(--starts > 0 || objects.empty() ||
              std::all_of(objects.begin(), objects.end(),
                          [](const auto& object) { return object->references == 0; }),
          "COM is ended before its objects are released");
}

// The objects by the first number of their class.
HRESULT WINAPI AnswerCoCreateInstance(REFCLSID classId, LPUNKNOWN, DWORD, REFIID, LPVOID* object) {
  const struct {
    DWORD first;
    const Table& table;
  } kClasses[] = {
      {0xE2B3C97F, Policy2()}, {0x304CE942, Manager()}, {0x2C5BC43E, Rule()}, {0xEC9846B3, Application()}};
  for (const auto& known : kClasses) {
    if (known.first != classId.Data1) continue;
    if (MustFail()) break;
    objects.push_back(std::make_unique<FakeObject>(FakeObject{known.table.methods.data(), 1}));
    *object = Took(Kind::kReference, objects.back().get());
    return S_OK;
  }
  *object = nullptr;
  return REGDB_E_CLASSNOTREG;
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
  objects.clear();
  starts = 0;
}

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
