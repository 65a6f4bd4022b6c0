#include "hxrun/modules.h"

#include "rig/failures.h"
#include "rig/function.h"
#include "rig/print.h"

namespace hxrun {
namespace {

// Answers what the library looks up by name, so that these calls are seen too.
FARPROC FindFunction(HMODULE module, const char* name) {
  auto real = GetProcAddress(module, name);
  if (real == nullptr) return nullptr;
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(module, path, MAX_PATH);
  const rig::Declaration* declaration = rig::declarations::Find(rig::ToUtf8(path), name);
  if (declaration == nullptr) {
    rig::Fail("the library looks for the function " + std::string(name) + ", which this hxrun does not know");
    return nullptr;
  }
  return reinterpret_cast<FARPROC>(reinterpret_cast<uintptr_t>(declaration->Thunk()));
}

HMODULE Named(HMODULE module, const std::string& name) {
  if (module != nullptr) {
    rig::Rig::Current()->ledger.Call(rig::ToWord(module), rig::declarations::ModuleName(name));
  }
  return module;
}

}  // namespace

void NameModules(rig::Rig& rig) {
  rig.On<::GetModuleHandleA>(
      [](const char* name) { return Named(GetModuleHandleA(name), name == nullptr ? "HXRUN" : name); });
  rig.On<::GetModuleHandleW>([](const wchar_t* name) {
    return Named(GetModuleHandleW(name), name == nullptr ? "HXRUN" : rig::ToUtf8(name));
  });
  rig.On<::LoadLibraryA>([](const char* name) { return Named(LoadLibraryA(name), name); });
  rig.On<::LoadLibraryW>([](const wchar_t* name) { return Named(LoadLibraryW(name), rig::ToUtf8(name)); });
  rig.On<::GetProcAddress>(FindFunction);
}

}  // namespace hxrun
