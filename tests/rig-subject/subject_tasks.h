// The subject's use of the Task Scheduler's objects. Used by tests/unit/rig/rig_tasks_test.cpp.
#pragma once

#include <windows.h>

#include <taskschd.h>

extern "C" {

/// What SubjectTaskFolder does with the folder.
enum SubjectFolderUse {
  kSubjectFolderGets,     ///< Opens it.
  kSubjectFolderMakes,    ///< Makes it.
  kSubjectFolderDeletes,  ///< Deletes it.
};
/// Opens the root folder `root` and does `use` with the folder `name` in it. Returns the first failing
/// HRESULT, else S_OK, like all of these functions.
HRESULT SubjectTaskFolder(const wchar_t* root, const wchar_t* name, SubjectFolderUse use);

/// How SubjectRegisterTask treats what it is given.
enum SubjectTaskFault {
  kSubjectTaskSound,            ///< Gives everything back.
  kSubjectTaskKeepsDefinition,  ///< Does not release the definition.
  kSubjectTaskUsesReleased,     ///< Asks the registered task for its state when it has released that.
  kSubjectTaskLosesDefinition,  ///< Registers a definition that it has released.
  kSubjectTaskPlainName,        ///< Hands over the task's name as a plain text.
  kSubjectTaskPlainUser,        ///< Hands over the account's name as a plain text in a variant.
  kSubjectTaskFreedName,        ///< Hands over a name that it has freed.
  kSubjectTaskSystemAuthor,     ///< Hands over the author as a system string.
  kSubjectTaskKeepsPath,        ///< Does not free the path of the registered task.
};
/// Registers the task `name` in the folder "Subject", which it makes if it is missing: with an author, idle
/// settings, a trigger of `type` that is asked for the interface `triggerId`, a program and the highest
/// rights. Reads the registered task's state and path.
HRESULT SubjectRegisterTask(const wchar_t* name, TASK_TRIGGER_TYPE2 type, const IID* triggerId,
                            SubjectTaskFault fault);
/// Runs the task of the folder "Subject" with `flags` in `session` and for `user` (may be null).
HRESULT SubjectRunTask(const wchar_t* name, LONG flags, LONG session, const wchar_t* user);
/// Deletes the task of the folder "Subject".
HRESULT SubjectDeleteTask(const wchar_t* name);

/// How SubjectMakeWorkItem treats its work item.
enum SubjectItemFault {
  kSubjectItemSound,         ///< Saves it and gives everything back.
  kSubjectItemNotSaved,      ///< Does not save it.
  kSubjectItemKeepsTrigger,  ///< Does not release its trigger.
};
/// Makes the work item `name` of the older Task Scheduler, of the class `type`, to start at `hour`.
HRESULT SubjectMakeWorkItem(const wchar_t* name, const CLSID* type, WORD hour, SubjectItemFault fault);
/// Deletes it.
HRESULT SubjectDeleteWorkItem(const wchar_t* name);

}  // extern "C"
