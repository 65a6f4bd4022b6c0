#include "client/terminal_services.h"

#include "base/late_binding.h"

namespace {

// Called by the owners of buffers, through FreeSessionMemory.
decltype(WTSFreeMemory)* foundFreeMemory;

}  // namespace

TerminalServicesStatus FindTerminalServices(TerminalServices* services) {
  // On purpose: the library is never freed. Its functions free buffers until the action ends.
  HMODULE module = LoadLate("WTSAPI32");
  if (!module) return kTerminalServicesNoLibrary;
  services->enumerateSessions =
      FindFunction<decltype(WTSEnumerateSessionsW)>(module, "WTSEnumerateSessionsW");
  services->querySessionInformation =
      FindFunction<decltype(WTSQuerySessionInformationW)>(module, "WTSQuerySessionInformationW");
  services->enumerateProcesses =
      FindFunction<decltype(WTSEnumerateProcessesW)>(module, "WTSEnumerateProcessesW");
  services->freeMemory = FindFunction<decltype(WTSFreeMemory)>(module, "WTSFreeMemory");
  foundFreeMemory = services->freeMemory;
  bool isComplete = services->enumerateSessions && services->querySessionInformation &&
                    services->enumerateProcesses && services->freeMemory;
  return isComplete ? kTerminalServicesFound : kTerminalServicesNoFunction;
}

void FreeSessionMemory(void* memory) {
  foundFreeMemory(memory);
}
