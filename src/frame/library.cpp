// The library's DllMain. The only state to set up is the stack guard.

#include <windows.h>

#include "runtime/stack_guard.h"

// Not protected by the stack guard: the guard's value is chosen here.
extern "C" __attribute__((no_stack_protector)) BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    ChooseStackGuard();
    DisableThreadLibraryCalls(module);
  }
  return TRUE;
}
