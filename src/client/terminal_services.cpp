#include "client/terminal_services.h"

#include "base/late_binding.h"

namespace {

// Owners of buffers reach it through FreeSessionMemory.
decltype(WTSFreeMemory)* foundFreeMemory;

}  // namespace

TerminalServicesStatus FindTerminalServices(TerminalServices* services) {
  // Deliberately never freed.
  HMODULE module = LoadLate("WTSAPI32");
  if (!module) return kTerminalServicesNoLibrary;
  services->enumerateSessions =
      FunctionAs<decltype(WTSEnumerateSessionsW)>(GetProcAddress(module, "WTSEnumerateSessionsW"));
  services->querySessionInformation = FunctionAs<decltype(WTSQuerySessionInformationW)>(
      GetProcAddress(module, "WTSQuerySessionInformationW"));
  services->enumerateProcesses =
      FunctionAs<decltype(WTSEnumerateProcessesW)>(GetProcAddress(module, "WTSEnumerateProcessesW"));
  services->freeMemory = FunctionAs<decltype(WTSFreeMemory)>(GetProcAddress(module, "WTSFreeMemory"));
  foundFreeMemory = services->freeMemory;
  bool isComplete = services->enumerateSessions && services->querySessionInformation &&
                    services->enumerateProcesses && services->freeMemory;
  return isComplete ? kTerminalServicesFound : kTerminalServicesNoFunction;
}

void FreeSessionMemory(void* memory) {
  foundFreeMemory(memory);
}
