// The subject's use of the Task Scheduler's objects. Used by tests/unit/rig/rig_tasks_test.cpp.
#pragma once

#include <windows.h>

#include <taskschd.h>

extern "C" {

/// The use that SubjectTaskFolder makes of the folder.
enum SubjectFolderUse {
  kSubjectFolderGets,     ///< Opens it.
  kSubjectFolderMakes,    ///< Creates it.
  kSubjectFolderDeletes,  ///< Deletes it.
};
/// Opens the root folder `root` and does `use` with the folder `name` in it. Returns the first failing
/// HRESULT, else S_OK, like all of these functions.
HRESULT SubjectTaskFolder(const wchar_t* root, const wchar_t* name, SubjectFolderUse use);

/// How SubjectRegisterTask treats the objects and texts that it uses.
enum SubjectTaskFault {
  kSubjectTaskSound,            ///< Frees everything.
  kSubjectTaskKeepsDefinition,  ///< Does not release the definition.
  kSubjectTaskUsesReleased,     ///< Asks the registered task for its state after releasing it.
  kSubjectTaskLosesDefinition,  ///< Registers a definition that it has already released.
  kSubjectTaskPlainName,        ///< Passes the task's name as a plain text.
  kSubjectTaskPlainUser,        ///< Passes the account's name as a plain text in a variant.
  kSubjectTaskFreedName,        ///< Passes a name that it has freed.
  kSubjectTaskSystemAuthor,     ///< Passes the author as a system string.
  kSubjectTaskKeepsPath,        ///< Does not free the path of the registered task.
};
/// Registers the task `name` in the folder "Subject", which is created if missing. The task has an author,
/// idle settings, a trigger of `type` that is queried for the interface `triggerId`, a program and the
/// highest rights. Reads the registered task's state and path.
HRESULT SubjectRegisterTask(const wchar_t* name, TASK_TRIGGER_TYPE2 type, const IID* triggerId,
                            SubjectTaskFault fault);
/// Runs the task in the folder "Subject" with `flags` in `session` and for `user` (may be null).
HRESULT SubjectRunTask(const wchar_t* name, LONG flags, LONG session, const wchar_t* user);
/// Deletes the task from the folder "Subject".
HRESULT SubjectDeleteTask(const wchar_t* name);

/// How SubjectMakeWorkItem treats its work item.
enum SubjectItemFault {
  kSubjectItemSound,         ///< Saves it and frees everything.
  kSubjectItemNotSaved,      ///< Does not save it.
  kSubjectItemKeepsTrigger,  ///< Does not release its trigger.
};
/// Creates the work item `name` of the older Task Scheduler, of the class `type`, to start at `hour`.
HRESULT SubjectMakeWorkItem(const wchar_t* name, const CLSID* type, WORD hour, SubjectItemFault fault);
/// Deletes the work item.
HRESULT SubjectDeleteWorkItem(const wchar_t* name);

}  // extern "C"
