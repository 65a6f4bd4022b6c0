#include "util/late_binding.h"

FARPROC BindLate(LateEntry* entry) {
  if (entry->function) return entry->function;
  ErrorModeGuard quiet;
  HMODULE module = GetModuleHandleA(entry->module);
  if (!module && entry->rule == BindingRule::kLoadAndKeep) module = LoadLibraryA(entry->module);
  if (module) entry->function = GetProcAddress(module, entry->name);
  return entry->function;
}

HMODULE LoadLate(const char* name) {
  ErrorModeGuard quiet;
  return LoadLibraryA(name);
}
