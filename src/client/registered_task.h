// Runs, checks and deletes registered tasks of the agent. Used by the actions that register and remove the
// tasks, and by the one that restarts the agent. The caller starts COM first.
#pragma once

#include "client/task_folder.h"

extern "C" {

/// Runs the task that starts the user's agent, and ignores the task's conditions. Runs it in the session
/// `session`; a negative number means no particular session. Runs it for the user `account`; null means the
/// account in its registration. Returns 0 or a TaskAccessStep.
int RunAgentTask(const wchar_t* account, int session);

/// Checks that the task `name` exists and that its state, whatever it is, can be read. Returns 0 or a
/// TaskAccessStep.
int CheckAgentTask(const wchar_t* name);

/// Deletes the task `name`, and the maker's folder if it is then empty. Returns 0, also if the task does not
/// exist or a deletion fails. Returns a TaskAccessStep if the folder cannot be opened.
int DeleteAgentTask(const wchar_t* name);

}  // extern "C"
