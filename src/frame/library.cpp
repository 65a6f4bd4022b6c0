// The library's entry. There is no state to set up but the guard of the stack.

#include <windows.h>

#include "runtime/stack_guard.h"

// Without a guard of its own, which is chosen here.
extern "C" __attribute__((no_stack_protector)) BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    ChooseStackGuard();
    DisableThreadLibraryCalls(module);
  }
  return TRUE;
}
