// Registers a task of the agent in the Task Scheduler. Used by the actions that register the tasks. The
// caller has started COM.
#pragma once

/// The interval of a task that starts at each logon.
constexpr int kAtLogon = -1;

/// Why a task could not be registered: the call that failed. Fixed values, which the installer's log
/// shows; -1, -14 and -26 are not among them.
enum TaskStep : int {
  kStepService = -2,             ///< the task service could not be created
  kStepConnect = -3,             ///< the service could not be connected to
  kStepFolder = -4,              ///< the root folder or the maker's could not be opened or made
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
  kStepLogonInterface = -17,     ///< the trigger is not a logon trigger
  kStepLogonUser = -18,          ///< the trigger's user could not be set
  kStepIdleSettings = -19,       ///< no idle settings
  kStepIdleWait = -20,           ///< the idle settings' wait could not be set
  kStepDailyTrigger = -21,       ///< no daily trigger could be made
  kStepDailyInterface = -22,     ///< the trigger is not a daily trigger
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
/// none). A negative `interval` starts it at each logon, for the group `account`; any other one starts it
/// every so many days (its lower 16 bits), with the highest rights. A null `account` means SYSTEM. A null
/// `executable` is passed to the task service, which refuses it or not. Returns 0, a TaskStep, or the HRESULT
/// with which the registered task's state or path could not be read.
int RegisterAgentTask(const wchar_t* name, const wchar_t* executable, const wchar_t* arguments,
                      const wchar_t* account, int interval);

}  // extern "C"
