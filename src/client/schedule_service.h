// The Task Scheduler service. Used by the actions that need it for the audit.
#pragma once

#include <windows.h>

extern "C" {

/// Starts the Task Scheduler service unless it is running, and does not wait until it runs. Returns 0 if it
/// was running or the start was accepted; otherwise the Windows error. A service that is already starting is
/// an error too.
DWORD EnsureScheduleService(void);

}  // extern "C"
