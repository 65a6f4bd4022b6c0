// Runs, checks and deletes tasks of the agent that are registered. Used by the actions that register and
// remove the tasks, and by the one that restarts the agent. The caller has started COM.
#pragma once

#include "client/task_folder.h"

extern "C" {

/// Runs the task that starts the agent of each user, whatever its conditions: in the session `session` or, if
/// that is negative, in no particular one, for the user `account` (null: as it is registered). Returns 0 or a
/// TaskAccessStep.
int RunAgentTask(const wchar_t* account, int session);

/// Returns 0 if the task `name` exists and its state can be read, whatever that is; otherwise a
/// TaskAccessStep.
int CheckAgentTask(const wchar_t* name);

/// Deletes the task `name`, and the maker's folder if nothing else is in it. Returns 0, also if there is no
/// such task or deleting fails; a TaskAccessStep if the folder cannot be reached.
int DeleteAgentTask(const wchar_t* name);

}  // extern "C"
