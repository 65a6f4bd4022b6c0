// Processes and sessions of this machine, as its terminal services know them. Used by the action that
// restarts the agent.
#pragma once

#include <windows.h>
// Behind windows.h, on which it builds.
#include <wtsapi32.h>

#include "base/owner.h"

/// The functions of the terminal services.
struct TerminalServices {
  decltype(WTSEnumerateProcessesW)* enumerateProcesses;            ///< null when missing
  decltype(WTSEnumerateSessionsW)* enumerateSessions;              ///< null when missing
  decltype(WTSQuerySessionInformationW)* querySessionInformation;  ///< null when missing
  decltype(WTSFreeMemory)* freeMemory;                             ///< null when missing
};

/// How finding the functions ended.
enum TerminalServicesStatus : int {
  kTerminalServicesFound,       ///< all are there
  kTerminalServicesNoLibrary,   ///< their library is not there
  kTerminalServicesNoFunction,  ///< the library lacks one
};

extern "C" {

/// Finds the functions. Their library is loaded, and never freed.
TerminalServicesStatus FindTerminalServices(TerminalServices* services);

/// Frees what the terminal services handed out, through the functions found last.
void FreeSessionMemory(void* memory);

}  // extern "C"

/// A buffer that the terminal services handed out.
template <typename Type>
using SessionMemory = Unique<NullableTraits<Type*, FreeSessionMemory>>;
