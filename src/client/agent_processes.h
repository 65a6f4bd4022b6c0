// The running agents. Used by the action that restarts them.
#pragma once

#include "client/terminal_services.h"
#include "frame/session.h"

extern "C" {

/// Returns true if the texts are equal when case is ignored, independent of the locale. Lengths are in
/// characters; -1 means up to the terminator.
bool IsSameText(const wchar_t* a, int lengthOfA, const wchar_t* b, int lengthOfB);

/// Terminates the agents among the `count` processes, waits for each to exit, and returns how many exited.
/// Only agents whose image is below the client folder (the folder of `agentPath`) or below the installer's
/// cache are terminated. Writes each failure, and each agent that was left alone, to the log of `session`.
/// Terminates every agent if `agentPath` contains no backslash, or if the system cannot report the images of
/// processes.
int StopAgentProcesses(MSIHANDLE session, const WTS_PROCESS_INFOW* processes, DWORD count,
                       const wchar_t* agentPath);

}  // extern "C"
