// The part of a COM fake that does not depend on its interface.
#include <cstring>

#include "rig/com.h"
#include "rig/function.h"
#include "rig/print.h"

namespace rig {

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

}  // namespace rig
