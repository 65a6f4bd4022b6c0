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
