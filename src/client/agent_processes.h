// The running agents. Used by the action that restarts them.
#pragma once

#include "client/terminal_services.h"
#include "frame/session.h"

extern "C" {

/// Whether the texts are equal without regard to case, in any locale alike; lengths in characters, -1 for up
/// to the terminator.
bool IsSameText(const wchar_t* a, int lengthOfA, const wchar_t* b, int lengthOfB);

/// Stops the agents among the `count` processes, each waited for, and returns how many are gone. Those whose
/// image lies outside of the client folder, which is the folder of `agentPath`, and of the installer's cache
/// are left alone. The log of `session` says what failed and which were left alone. Every agent is stopped
/// when `agentPath` holds no backslash, and where the system does not tell the images of processes.
int StopAgentProcesses(MSIHANDLE session, const WTS_PROCESS_INFOW* processes, DWORD count,
                       const wchar_t* agentPath);

}  // extern "C"
