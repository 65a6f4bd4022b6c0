// The agent's scheduled tasks, in the task folder of the maker. Used by the actions that register and remove
// them, and by the one that restarts the agent. The caller has started COM.
#pragma once

#include <windows.h>

/// The name of the task that starts the agent of each user.
constexpr wchar_t kUserAgentTask[] = L"Ostrel User Agent Task";
/// The name of the task that updates the agent.
constexpr wchar_t kAutoUpdateTask[] = L"Ostrel Auto-update Task";
/// The interval of a task that starts at each logon.
constexpr int kAtLogon = -1;

/// Why an existing task could not be reached, run, read or deleted. Fixed values, which stand in the
/// installer's log.
enum TaskAccessStep : int {
  kAccessService = -2,  ///< the task service could not be created
  kAccessConnect = -3,  ///< the service could not be connected to
  kAccessRoot = -4,     ///< no root folder
  kAccessFolder = -5,   ///< no folder of the maker
  kAccessTask = -6,     ///< no such task
  kAccessUse = -7,      ///< the task could not be run, or its state not be read
};

/// Why a task could not be registered: the call that failed. Fixed values, which stand in the installer's
/// log; -1, -14 and -26 are none.
enum TaskStep : int {
  kStepService = -2,             ///< the task service could not be created
  kStepConnect = -3,             ///< the service could not be connected to
  kStepFolder = -4,              ///< no root folder, or no folder of the maker and none could be made
  kStepDefinition = -5,          ///< no new definition
  kStepRegistrationInfo = -6,    ///< no registration information
  kStepAuthor = -7,              ///< the author could not be set
  kStepSettings = -8,            ///< no settings
  kStepStartWhenAvailable = -9,  ///< this setting could not be set
  kStepHardTerminate = -10,      ///< this setting could not be set
  kStepStartOnBatteries = -11,   ///< this setting could not be set
  kStepStopOnBatteries = -12,    ///< this setting could not be set
  kStepTimeLimit = -13,          ///< the execution time limit could not be set
  kStepTriggers = -15,           ///< no triggers
  kStepLogonTrigger = -16,       ///< no logon trigger could be made
  kStepLogonInterface = -17,     ///< the trigger is no logon trigger
  kStepLogonUser = -18,          ///< the trigger's user could not be set
  kStepIdleSettings = -19,       ///< no idle settings
  kStepIdleWait = -20,           ///< the idle settings' wait could not be set
  kStepDailyTrigger = -21,       ///< no daily trigger could be made
  kStepDailyInterface = -22,     ///< the trigger is no daily trigger
  kStepDaysInterval = -23,       ///< the trigger's interval could not be set
  kStepPrincipal = -24,          ///< no principal
  kStepRunLevel = -25,           ///< the run level could not be set
  kStepActions = -27,            ///< no actions
  kStepAction = -28,             ///< no action could be made
  kStepExecInterface = -29,      ///< the action runs no program
  kStepPath = -30,               ///< the program's path could not be set
  kStepArguments = -31,          ///< the program's arguments could not be set
  kStepRegister = -32,           ///< the definition could not be registered
  kStepMultipleInstances = -33,  ///< this setting could not be set
  kStepDemandStart = -34,        ///< this setting could not be set
};

extern "C" {

/// Registers the task `name`, in place of any older one: the program `executable` with `arguments` (null:
/// none). A negative `interval` starts it at each logon, for the group `account`; any other one every so many
/// days (its lower 16 bits), with the highest rights. A null `account` means SYSTEM. A null `executable` is
/// left to the task service to judge. Returns 0, a TaskStep, or the HRESULT with which the registered task's
/// state or path could not be read.
int RegisterAgentTask(const wchar_t* name, const wchar_t* executable, const wchar_t* arguments,
                      const wchar_t* account, int interval);

/// Runs the task of the user's agent, whatever its conditions: in the session `session` or, where that is
/// negative, in none in particular, for the user `account` (null: as it is registered). Returns 0 or a
/// TaskAccessStep.
int RunAgentTask(const wchar_t* account, int session);

/// 0 when the task `name` exists and its state, whatever it is, can be read; else a TaskAccessStep.
int CheckAgentTask(const wchar_t* name);

/// Deletes the task `name`, and the folder of the maker when nothing else is in it. 0 also when there is no
/// such task and when deleting fails; a TaskAccessStep when the folder cannot be reached.
int DeleteAgentTask(const wchar_t* name);

}  // extern "C"
