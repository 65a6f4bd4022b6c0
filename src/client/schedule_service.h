// The service that runs scheduled tasks. Used by the actions that need it for the audit.
#pragma once

#include <windows.h>

extern "C" {

/// Starts the task scheduler's service unless it runs. 0 when it runs or was asked to start, which is not
/// waited for; otherwise the Windows error, also of a service that is about to start.
DWORD EnsureScheduleService(void);

}  // extern "C"
