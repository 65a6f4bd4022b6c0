#include "base/late_binding.h"

#include "base/error_mode.h"

namespace {

FARPROC FindInLoadedModule(const LateEntry& entry) {
  ErrorModeGuard quiet;
  HMODULE module = GetModuleHandleA(entry.module);
  return module ? GetProcAddress(module, entry.name) : nullptr;
}

FARPROC LoadForFunction(const LateEntry& entry) {
  Module module(LoadLate(entry.module));
  if (!module) return nullptr;
  FARPROC function = GetProcAddress(module.get(), entry.name);
  // Deliberately never freed: the function is called for as long as the process lives.
  if (function) module.release();
  return function;
}

}  // namespace

FARPROC BindLate(LateEntry* entry) {
  if (entry->function) return entry->function;
  bool isOnce = entry->rule == BindingRule::kAlreadyLoadedOnce || entry->rule == BindingRule::kLoadOnce;
  if (isOnce && entry->isTried) return nullptr;
  entry->isTried = true;
  entry->function =
      entry->rule == BindingRule::kLoadOnce ? LoadForFunction(*entry) : FindInLoadedModule(*entry);
  return entry->function;
}

FARPROC BindKept(KeptModule* module, const char* name, FARPROC* function) {
  if (*function) return *function;
  ErrorModeGuard quiet;
  if (!module->handle) module->handle = GetModuleHandleW(module->name);
  // Deliberately never freed: its functions are called for as long as the process lives.
  if (!module->handle) module->handle = LoadLibraryW(module->name);
  if (module->handle) *function = GetProcAddress(module->handle, name);
  return *function;
}

HMODULE LoadLate(const char* name) {
  ErrorModeGuard quiet;
  return LoadLibraryA(name);
}
