// Opens the folder of the agent's tasks in the Task Scheduler, and passes texts to the scheduler's objects.
// Used to register tasks and to use registered ones.
#pragma once

#include <windows.h>
// Needs windows.h first.
#include <taskschd.h>

#include "base/com_owners.h"

/// The name of the task that starts the user's agent.
constexpr wchar_t kUserAgentTask[] = L"Ostrel User Agent Task";
/// The name of the task that updates the agent.
constexpr wchar_t kAutoUpdateTask[] = L"Ostrel Auto-update Task";
/// The name of the maker's folder, which contains the tasks.
constexpr wchar_t kMakersFolder[] = L"Quillfern";

/// The step that failed when a registered task was opened, run, read or deleted. The values are fixed: the
/// installer's log shows them.
enum TaskAccessStep : int {
  kAccessService = -2,  ///< the task service could not be created
  kAccessConnect = -3,  ///< the connection to the service failed
  kAccessRoot = -4,     ///< the root folder could not be opened
  kAccessFolder = -5,   ///< the maker's folder could not be opened
  kAccessTask = -6,     ///< the task could not be opened
  kAccessUse = -7,      ///< the task could not be run, or its state could not be read
};

/// The local Task Scheduler, its root folder and the maker's folder. Each is null until it is opened.
struct TaskFolder {
  ComPtr<ITaskService> service;  ///< the connected service
  ComPtr<ITaskFolder> root;      ///< the root folder
  ComPtr<ITaskFolder> folder;    ///< the maker's folder
};

extern "C" {

/// Connects to the Task Scheduler and opens the root folder with the path `rootPath`. Returns 0,
/// kAccessService, kAccessConnect or kAccessRoot.
int OpenRootFolder(TaskFolder* place, const wchar_t* rootPath);

/// Opens the maker's folder in the root folder, which must be open. Returns false if that fails.
bool OpenMakersFolder(TaskFolder* place);

}  // extern "C"

/// A temporary system string, for one call. For a null text there is no string; that is not a failure.
class CallText {
 public:
  /// Copies `text` into a new system string.
  explicit CallText(const wchar_t* text) : isGiven_(text), string_(text ? SysAllocString(text) : nullptr) {}
  /// Returns the string; null for a null text, and if out of memory.
  BSTR get() const { return string_.get(); }
  /// Returns true if the string could not be allocated.
  bool IsMissing() const { return isGiven_ && !string_; }
  /// Returns the string as a variant that does not own it.
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

/// Calls `Method` of `object` with `text` and `rest`, and returns its result. Returns E_OUTOFMEMORY, without
/// the call, if `text` cannot be copied.
template <auto Method, typename Interface, typename... Rest>
static HRESULT CallWith(const ComPtr<Interface>& object, const wchar_t* text, Rest... rest) {
  CallText string(text);
  if (string.IsMissing()) return E_OUTOFMEMORY;
  return (object.get()->*Method)(string.get(), rest...);
}
