#include "rig/com.h"

#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"
#include "rig/world/process.h"

namespace rig {
namespace {

// A system string's length in bytes lies right before its text. This header also keeps the block aligned.
constexpr size_t kStringHeader = 8;

BSTR MakeString(std::wstring_view text) {
  auto bytes = static_cast<UINT>(text.size() * sizeof(wchar_t));
  auto* block = static_cast<char*>(GuardedHeap::Get().Allocate(kStringHeader + bytes + sizeof(wchar_t)));
  std::memcpy(block + kStringHeader - sizeof bytes, &bytes, sizeof bytes);
  auto* string = reinterpret_cast<wchar_t*>(block + kStringHeader);
  std::memcpy(string, text.data(), bytes);
  string[text.size()] = L'\0';
  return string;
}

void FreeString(BSTR string) {
  if (string != nullptr) {
    Heap::TakeBack(reinterpret_cast<char*>(string) - kStringHeader);
  }
}

}  // namespace

FakeBase::FakeBase(Rig& rig, std::string name, const GUID& iid) : rig_(rig), name_(std::move(name)) {
  layout_ = {table_.data(), this};
  rig_.ledger.Call(ToWord(Pointer()), name_);
  Also(__uuidof(IUnknown));
  Also(iid);
  FillWithTraps(std::make_index_sequence<kSlots>());
  ImplementUnknown();
}

template <size_t... Slots>
void FakeBase::FillWithTraps(std::index_sequence<Slots...>) {
  ((table_[Slots] = reinterpret_cast<const void*>(&Trap<Slots>)), ...);
}

template <size_t Slot>
HRESULT FakeBase::Trap(void* self) {
  return Of(self).Trapped(Slot);
}

HRESULT FakeBase::Trapped(size_t slot) {
  Fail("the method in slot " + std::to_string(slot) + " of " + name_ +
       " is called, which the test did not implement");
  return E_NOTIMPL;
}

Declaration& FakeBase::Implement(size_t slot, const char* name, const void* thunk,
                                 std::shared_ptr<void> answer, const Failing& failing) {
  methods_.at(slot).declaration = std::make_unique<Declaration>("", name_ + "." + name, failing, thunk);
  methods_[slot].answer = std::move(answer);
  table_[slot] = thunk;
  return methods_[slot].declaration->TextArguments();
}

FakeBase::Method& FakeBase::Enter(size_t slot) {
  if (!rig_.ledger.Holds(kInterface, ToWord(Pointer()))) {
    Fail(methods_[slot].declaration->Name() + " is called, but the library holds no reference to " + name_);
  }
  return methods_[slot];
}

void FakeBase::ImplementUnknown() {
  // The cast names the method by its type, because the headers overload it with a template.
  constexpr auto kQuery = static_cast<HRESULT (IUnknown::*)(REFIID, void**)>(&IUnknown::QueryInterface);
  using QueryThunk = MethodThunk<kQuery>;
  using RetainThunk = MethodThunk<&IUnknown::AddRef>;
  using ReleaseThunk = MethodThunk<&IUnknown::Release>;
  Implement(
      QueryThunk::Slot(), "QueryInterface", reinterpret_cast<const void*>(&QueryThunk::Call),
      std::make_shared<QueryThunk::Answer>([this](const IID& iid, void** out) { return Query(iid, out); }),
      FailsAs(E_NOINTERFACE))
      .HandsOut(Arg<1>);
  Implement(RetainThunk::Slot(), "AddRef", reinterpret_cast<const void*>(&RetainThunk::Call),
            std::make_shared<RetainThunk::Answer>([this] {
              rig_.ledger.Take(kInterface, ToWord(Pointer()));
              return ULONG{2};
            }),
            kCannotFail)
      .Quiet();
  Implement(ReleaseThunk::Slot(), "Release", reinterpret_cast<const void*>(&ReleaseThunk::Call),
            std::make_shared<ReleaseThunk::Answer>([this] {
              rig_.ledger.Give(kInterface, ToWord(Pointer()), name_ + ".Release");
              return ULONG{rig_.ledger.Holds(kInterface, ToWord(Pointer())) ? 1U : 0U};
            }),
            kCannotFail)
      .Quiet();
}

void FakeBase::Give(void* out) {
  void* pointer = Pointer();
  std::memcpy(out, &pointer, sizeof pointer);
  rig_.ledger.Take(kInterface, ToWord(pointer));
}

HRESULT FakeBase::Query(const GUID& iid, void** out) {
  for (const auto& [known, fake] : answers_) {
    if (IsEqualGUID(known, iid)) {
      fake->Give(out);
      return S_OK;
    }
  }
  *out = nullptr;
  return E_NOINTERFACE;
}

void FakeBase::ShowReleases() {
  methods_.at(MethodThunk<&IUnknown::Release>::Slot()).declaration->loud = true;
}

void Com::ShowReleases() {
  for (const auto& fake : fakes_) fake->ShowReleases();
}

BSTR Com::GiveString(std::wstring_view text) {
  BSTR string = MakeString(text);
  rig_.ledger.Take(kSystemString, ToWord(string));
  return string;
}

HRESULT Com::Create(const CLSID& clsid, IUnknown* outer, const IID& iid, void** out) {
  *out = nullptr;
  if (outer != nullptr) {
    return CLASS_E_NOAGGREGATION;
  }
  if (rig_.ledger.Count(kComStart) == 0 && start != RPC_E_CHANGED_MODE) {
    Fail("CoCreateInstance is called while COM is not started");
    return CO_E_NOTINITIALIZED;
  }
  // The last entry of a class wins, so that a test can replace an object of the world.
  for (auto one = classes_.rbegin(); one != classes_.rend(); ++one) {
    if (IsEqualGUID(one->clsid, clsid)) {
      return one->fake == nullptr ? one->error : one->fake->Query(iid, out);
    }
  }
  Fail("unexpected call: CoCreateInstance of the class " + GuidText(clsid) +
       ", which the test did not register");
  return REGDB_E_CLASSNOTREG;
}

void Com::Install() {
  rig_.On<::CoInitializeEx>([this](void*, DWORD) {
    if (SUCCEEDED(start)) {
      rig_.ledger.Take(kComStart, 1);
    }
    return start;
  });
  rig_.On<::CoUninitialize>([this] { rig_.ledger.Give(kComStart, 1, "CoUninitialize"); });
  rig_.On<::CoCreateInstance>([this](const CLSID& clsid, IUnknown* outer, DWORD, const IID& iid, void** out) {
    return Create(clsid, outer, iid, out);
  });
  rig_.On<::CoTaskMemFree>([](void* memory) { Heap::TakeBack(memory); });
  rig_.On<::SysAllocString>([](const OLECHAR* text) { return text == nullptr ? nullptr : MakeString(text); });
  rig_.On<::SysFreeString>([](BSTR string) { FreeString(string); });
  rig_.On<::SysStringLen>([](BSTR string) {
    return string == nullptr ? 0U : *(reinterpret_cast<const UINT*>(string) - 1) / UINT{sizeof(wchar_t)};
  });
}

}  // namespace rig
