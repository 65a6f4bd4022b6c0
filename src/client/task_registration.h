// Registers a task of the agent in the Task Scheduler. Used by the actions that register the tasks. The
// caller starts COM first.
#pragma once

/// The interval of a task that starts at each logon.
constexpr int kAtLogon = -1;

/// The step that failed when a task was registered. The values are fixed: the installer's log shows them. -1,
/// -14 and -26 are not used.
enum TaskStep : int {
  kStepService = -2,             ///< the task service could not be created
  kStepConnect = -3,             ///< the service could not be connected to
  kStepFolder = -4,              ///< the root or maker's folder could not be opened or created
  kStepDefinition = -5,          ///< the definition could not be created
  kStepRegistrationInfo = -6,    ///< the registration information could not be fetched
  kStepAuthor = -7,              ///< the author could not be set
  kStepSettings = -8,            ///< the settings could not be fetched
  kStepStartWhenAvailable = -9,  ///< this setting could not be set
  kStepHardTerminate = -10,      ///< this setting could not be set
  kStepStartOnBatteries = -11,   ///< this setting could not be set
  kStepStopOnBatteries = -12,    ///< this setting could not be set
  kStepTimeLimit = -13,          ///< the execution time limit could not be set
  kStepTriggers = -15,           ///< the triggers could not be fetched
  kStepLogonTrigger = -16,       ///< the logon trigger could not be created
  kStepLogonInterface = -17,     ///< the trigger is not a logon trigger
  kStepLogonUser = -18,          ///< the trigger's user could not be set
  kStepIdleSettings = -19,       ///< the idle settings could not be fetched
  kStepIdleWait = -20,           ///< the idle settings' wait could not be set
  kStepDailyTrigger = -21,       ///< the daily trigger could not be created
  kStepDailyInterface = -22,     ///< the trigger is not a daily trigger
  kStepDaysInterval = -23,       ///< the trigger's interval could not be set
  kStepPrincipal = -24,          ///< the principal could not be fetched
  kStepRunLevel = -25,           ///< the run level could not be set
  kStepActions = -27,            ///< the actions could not be fetched
  kStepAction = -28,             ///< the action could not be created
  kStepExecInterface = -29,      ///< the action does not run a program
  kStepPath = -30,               ///< the program's path could not be set
  kStepArguments = -31,          ///< the program's arguments could not be set
  kStepRegister = -32,           ///< the definition could not be registered
  kStepMultipleInstances = -33,  ///< this setting could not be set
  kStepDemandStart = -34,        ///< this setting could not be set
};

extern "C" {

/// Registers the task `name`, which runs the program `executable` with `arguments` (null: none). Replaces an
/// existing task of that name. A negative `interval` starts it at each logon. Any other interval starts it
/// every `interval` days (its lower 16 bits), with the highest run level. `account` is a group, or null for
/// SYSTEM. A null `executable` is passed on: the task service decides whether it refuses that. Returns 0, a
/// TaskStep, or the HRESULT of the failure to read the registered task's state or path.
int RegisterAgentTask(const wchar_t* name, const wchar_t* executable, const wchar_t* arguments,
                      const wchar_t* account, int interval);

}  // extern "C"
