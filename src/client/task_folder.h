// The folder of the agent's tasks in the Task Scheduler, and how its objects are given texts. Used by what
// registers tasks and by what uses registered ones.
#pragma once

#include <windows.h>
// After windows.h, on which it builds.
#include <taskschd.h>

#include "base/com_owners.h"

/// The name of the task that starts the agent of each user.
constexpr wchar_t kUserAgentTask[] = L"Ostrel User Agent Task";
/// The name of the task that updates the agent.
constexpr wchar_t kAutoUpdateTask[] = L"Ostrel Auto-update Task";
/// The maker's folder, in which the tasks are.
constexpr wchar_t kMakersFolder[] = L"Quillfern";

/// Why an existing task could not be reached, run, read or deleted. Fixed values, which the installer's log
/// shows.
enum TaskAccessStep : int {
  kAccessService = -2,  ///< the task service could not be created
  kAccessConnect = -3,  ///< the service could not be connected to
  kAccessRoot = -4,     ///< the root folder could not be opened
  kAccessFolder = -5,   ///< the maker's folder is missing
  kAccessTask = -6,     ///< there is no such task
  kAccessUse = -7,      ///< the task could not be run, or its state could not be read
};

/// The Task Scheduler of this machine, its root folder and the maker's folder; each is empty until it is
/// opened.
struct TaskFolder {
  ComPtr<ITaskService> service;  ///< the connected service
  ComPtr<ITaskFolder> root;      ///< the root folder
  ComPtr<ITaskFolder> folder;    ///< the maker's folder
};

extern "C" {

/// Connects to the Task Scheduler and opens the root folder, whose path is `rootPath`. Returns 0,
/// kAccessService, kAccessConnect or kAccessRoot.
int OpenRootFolder(TaskFolder* place, const wchar_t* rootPath);

/// Opens the maker's folder in the root folder, which is open. Returns false if that fails.
bool OpenMakersFolder(TaskFolder* place);

}  // extern "C"

/// A text as a system string for the length of a call. A null text gives no string, which is not a failure.
class CallText {
 public:
  /// Makes the string.
  explicit CallText(const wchar_t* text) : isGiven_(text), string_(text ? SysAllocString(text) : nullptr) {}
  /// The string; null for a null text, and if out of memory.
  BSTR get() const { return string_.get(); }
  /// True if there was no memory for the string.
  bool IsMissing() const { return isGiven_ && !string_; }
  /// The string as a variant that does not own it.
  VARIANT AsVariant() const {
    VARIANT variant = {};
    variant.vt = VT_BSTR;
    variant.bstrVal = string_.get();
    return variant;
  }

 private:
  bool isGiven_;
  SystemString string_;
};

/// Calls `Method` of `object` with `text` and `rest`. E_OUTOFMEMORY if there is no memory for the text.
template <auto Method, typename Interface, typename... Rest>
static HRESULT CallWith(const ComPtr<Interface>& object, const wchar_t* text, Rest... rest) {
  CallText string(text);
  if (string.IsMissing()) return E_OUTOFMEMORY;
  return (object.get()->*Method)(string.get(), rest...);
}
