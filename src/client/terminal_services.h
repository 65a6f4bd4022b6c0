// Processes and sessions of this machine, listed through its terminal services. Used by the action that
// restarts the agent.
#pragma once

#include <windows.h>
// Needs windows.h first.
#include <wtsapi32.h>

#include "base/owner.h"

/// The functions of the terminal services.
struct TerminalServices {
  decltype(WTSEnumerateProcessesW)* enumerateProcesses;            ///< null when missing
  decltype(WTSEnumerateSessionsW)* enumerateSessions;              ///< null when missing
  decltype(WTSQuerySessionInformationW)* querySessionInformation;  ///< null when missing
  decltype(WTSFreeMemory)* freeMemory;                             ///< null when missing
};

/// The result of the search for the functions.
enum TerminalServicesStatus : int {
  kTerminalServicesFound,       ///< all were found
  kTerminalServicesNoLibrary,   ///< the library could not be loaded
  kTerminalServicesNoFunction,  ///< a function is missing from the library
};

extern "C" {

/// Loads the library, which is never freed, and finds its functions.
TerminalServicesStatus FindTerminalServices(TerminalServices* services);

/// Frees a buffer that the terminal services allocated, with the function that was found last.
void FreeSessionMemory(void* memory);

}  // extern "C"

/// Owns a buffer that the terminal services allocated.
template <typename Type>
using SessionMemory = Unique<NullableTraits<Type*, FreeSessionMemory>>;
