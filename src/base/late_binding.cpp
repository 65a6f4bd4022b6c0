#include "base/late_binding.h"

#include "base/error_mode.h"

namespace {

HMODULE FindKeptModule(LateModule* module) {
  if (!module->handle) module->handle = GetModuleHandleW(module->wideName);
  // On purpose: never freed. Its functions may be called until the process ends.
  if (!module->handle) module->handle = LoadLibraryW(module->wideName);
  return module->handle;
}

FARPROC FindInModule(LateModule* module, const char* name) {
  ErrorModeGuard quiet;
  HMODULE handle = module->rule == LateRule::kKept ? FindKeptModule(module) : GetModuleHandleA(module->name);
  return handle ? GetProcAddress(handle, name) : nullptr;
}

FARPROC LoadForFunction(const LateModule& late, const char* name) {
  Module module(LoadLate(late.name));
  if (!module) return nullptr;
  FARPROC function = GetProcAddress(module.get(), name);
  // On purpose: never freed. The function may be called until the process ends.
  if (function) module.release();
  return function;
}

}  // namespace

FARPROC BindLate(LateEntry* entry) {
  if (entry->function || entry->isFinal) return entry->function;
  LateModule* module = entry->module;
  entry->isFinal = module->rule == LateRule::kLoadedOnce || module->rule == LateRule::kLoadOnce;
  entry->function = module->rule == LateRule::kLoadOnce ? LoadForFunction(*module, entry->name)
                                                        : FindInModule(module, entry->name);
  return entry->function;
}

HMODULE LoadLate(const char* name) {
  ErrorModeGuard quiet;
  return LoadLibraryA(name);
}
