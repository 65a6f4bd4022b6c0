// The looks of a dry run: for each change a read-only look at the machine that says whether the real call
// could begin. Used by the table of effects.
#pragma once

#include "hxrun/effects.h"

namespace hxrun {

/// Returns argument `index` as a pointer.
template <class T>
T Pointer(const Call& call, int index) {
  return reinterpret_cast<T>(static_cast<uintptr_t>(call.words[index]));
}

/// Returns argument `index` as a wide text; empty for null.
std::wstring WideText(const Call& call, int index);

/// Returns the full path of a file; the path itself if Windows cannot make it full.
std::wstring FullPath(const std::wstring& path);

/// Returns the full path of a file without the head for any length and without a backslash at its end.
std::wstring PlainPath(const std::wstring& path);

/// Returns such a path with the head for any length.
std::wstring PathOfAnyLength(const std::wstring& path);

/// The call has a handle or an object that was opened or made for this change, so it can begin.
Outlook LookAtNothing(const Call& call);
/// Nothing on the machine says whether the call would succeed.
Outlook LookInVain(const Call& call);

// Files and folders; argument 0 is the path, of a move or a copy the source, and argument 1 its target.
Outlook LookAtNewFolder(const Call& call);       ///< for CreateDirectoryW
Outlook LookAtFolderToDelete(const Call& call);  ///< for RemoveDirectoryW
Outlook LookAtFileToDelete(const Call& call);    ///< for DeleteFileW
Outlook LookAtMove(const Call& call);            ///< for MoveFileW
Outlook LookAtReplacingMove(const Call& call);   ///< for MoveFileExW, with its flags
Outlook LookAtCopy(const Call& call);            ///< for CopyFileW
Outlook LookAtFile(const Call& call);            ///< for SetFileAttributesW
Outlook LookAtFileToWrite(const Call& call);     ///< for CreateFileW
Outlook LookAtFileToWrite8(const Call& call);    ///< for CreateFileA
Outlook LookAtSecuredObject(const Call& call);   ///< for SetNamedSecurityInfoW
Outlook LookAtSetupSection(const Call& call);    ///< for InstallHinfSectionA

// The registry; argument 0 is the open key.
Outlook LookAtKeyToDelete8(const Call& call);   ///< for RegDeleteKeyA
Outlook LookAtKeyToDelete(const Call& call);    ///< for RegDeleteKeyW
Outlook LookAtTreeToDelete(const Call& call);   ///< for SHDeleteKey
Outlook LookAtValueToDelete(const Call& call);  ///< for RegDeleteValueA

// Services, windows and processes; argument 0 is the handle.
Outlook LookAtServiceToControl(const Call& call);  ///< for ControlService
Outlook LookAtServiceToStart(const Call& call);    ///< for StartServiceA
Outlook LookAtWindow(const Call& call);            ///< for SendMessageA and PostMessageA
Outlook LookAtProcess(const Call& call);           ///< for TerminateProcess

// Accounts.
Outlook LookAtNewAccount(const Call& call);       ///< for NetUserAdd
Outlook LookAtAccountToDelete(const Call& call);  ///< for NetUserDel
Outlook LookAtPrincipalNames(const Call& call);   ///< for DsWriteAccountSpnW

// Methods of the real object that is called now; argument 0 is the first after the object.
Outlook LookAtNewTaskFolder(const Call& call);       ///< for ITaskFolder.CreateFolder
Outlook LookAtTaskFolderToDelete(const Call& call);  ///< for ITaskFolder.DeleteFolder
Outlook LookAtTaskToDelete(const Call& call);        ///< for ITaskFolder.DeleteTask
Outlook LookAtTaskToRegister(const Call& call);      ///< for ITaskFolder.RegisterTaskDefinition
Outlook LookAtTaskToRun(const Call& call);           ///< for IRegisteredTask.RunEx
Outlook LookAtWorkItemToDelete(const Call& call);    ///< for ITaskScheduler.Delete
Outlook LookAtWorkItemToSave(const Call& call);      ///< for IPersistFile.Save of a work item
Outlook LookAtRuleToAdd(const Call& call);           ///< for INetFwRules.Add
Outlook LookAtRuleToRemove(const Call& call);        ///< for INetFwRules.Remove
Outlook LookAtProgramToAdd(const Call& call);        ///< for INetFwAuthorizedApplications.Add
Outlook LookAtProgramToRemove(const Call& call);     ///< for INetFwAuthorizedApplications.Remove
Outlook LookAtUserToDelete(const Call& call);        ///< for IADsContainer.Delete
Outlook LookAtNewUser(const Call& call);             ///< for IADsUser.SetInfo

}  // namespace hxrun
