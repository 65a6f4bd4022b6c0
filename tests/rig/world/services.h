// The service manager in memory. Part of the world.
#pragma once

#include <windows.h>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "rig/ignore_case.h"
#include "rig/rig.h"

namespace rig {

/// One service, as a test arranges it and inspects it afterwards. Text is UTF-8: 8-bit functions return it
/// unchanged, wide ones convert it.
struct Service {
  DWORD openError = ERROR_SUCCESS;  ///< The error of opening it.

  DWORD state = SERVICE_RUNNING;  ///< Its state.
  /// The next states: each QueryServiceStatus first moves the service to the next one; the last one stays.
  std::deque<DWORD> coming;
  /// The state after a control that succeeds. Any other control leaves the state unchanged.
  std::map<DWORD, DWORD> stateAfter = {{SERVICE_CONTROL_STOP, SERVICE_STOPPED}};
  DWORD stateAfterStart = SERVICE_RUNNING;  ///< The state after a start that succeeds.
  /// The error of QueryServiceStatus once `coming` is used up.
  DWORD statusError = ERROR_SUCCESS;
  DWORD startError = ERROR_SUCCESS;              ///< The error of starting it.
  std::map<DWORD, DWORD> controlErrors;          ///< The error of each control.
  std::vector<DWORD> controls;                   ///< The controls that reached it, in order.
  std::vector<std::vector<std::string>> starts;  ///< The arguments of each start that reached it.

  std::string program;                                 ///< Its command line.
  std::string displayName;                             ///< The name that users see.
  std::optional<std::string> account = "LocalSystem";  ///< The account that it runs under; none for null.

  DWORD resetPeriod = 86400;                              ///< Seconds until failures are forgotten.
  std::optional<std::string> rebootMessage = "Good bye";  ///< The message before a restart; none for null.
  std::optional<std::string> command = "mend.exe /now";   ///< The command after a failure; none for null.
  std::vector<SC_ACTION> actions;                         ///< The action for each failure, in order.
  /// Every field that ChangeServiceConfig2A was given, "level=2 reset=0xffffffff ...". The list of actions
  /// is "kept" if it is the one that the last query returned.
  std::vector<std::string> changes;

  /// The error of querying the size of its configuration; ERROR_SUCCESS makes the query succeed.
  DWORD sizingError = ERROR_INSUFFICIENT_BUFFER;
  DWORD configurationError = ERROR_SUCCESS;  ///< The error of querying its configuration.
  DWORD changeError = ERROR_SUCCESS;         ///< The error of changing its configuration.
  DWORD demand = 0;  ///< The size in bytes that its configuration claims to need; 0 for the true size.
};

/// The services of the machine; initially there are none. The rules are strict:
/// - A handle allows only what it was opened for. Every handle of the manager allows opening services.
/// - A stopped service takes no control, and a service that is not stopped cannot be started.
/// - A failing call leaves SERVICE_RUNNING in the status record, so that a caller that reads it is found out.
/// - A configuration fills its block to the byte: the record, then the texts and lists that it points to. A
///   block that is too small is filled with rubbish.
class Services {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Services(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Returns the service of this name, ignoring case; creates it, running, if it does not exist.
  Service& Of(const std::string& name) { return services_[name]; }
  /// Removes the service of this name; no effect if it does not exist.
  void Remove(const std::string& name) { services_.erase(name); }

  /// The error of opening the service manager.
  DWORD managerError = ERROR_SUCCESS;

 private:
  /// An open handle.
  struct Opened {
    Service* service;  // Null for the manager.
    DWORD access;
  };

  /// Answers the functions that open and close handles.
  void InstallHandles();
  /// Answers the functions that read and change configurations.
  void InstallConfiguration();

  /// Creates a handle; null for `service` creates one of the manager.
  SC_HANDLE Open(Service* service, DWORD access);
  /// Answers OpenServiceA and OpenServiceW.
  SC_HANDLE OpenService(SC_HANDLE manager, const std::string& name, DWORD access);
  /// Returns the service of a handle that allows `access`; otherwise null, with the last error set.
  Service* Reach(SC_HANDLE handle, DWORD access);
  /// Answers ControlService.
  BOOL Control(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status);
  /// Answers QueryServiceStatus.
  BOOL QueryStatus(SC_HANDLE handle, SERVICE_STATUS* status);
  /// Answers StartServiceA.
  BOOL Start(SC_HANDLE handle, DWORD count, const char** arguments);
  /// Answers QueryServiceConfigA, and QueryServiceConfigW if `isWide`.
  BOOL QueryConfiguration(SC_HANDLE handle, bool isWide, void* block, DWORD size, DWORD* needed);
  /// Answers QueryServiceConfig2A.
  BOOL QueryFailureActions(SC_HANDLE handle, DWORD level, BYTE* block, DWORD size, DWORD* needed);
  /// Answers ChangeServiceConfig2A.
  BOOL ChangeFailureActions(SC_HANDLE handle, DWORD level, const void* information);

  Rig& rig_;
  std::map<std::string, Service, IgnoreCase> services_;
  std::map<SC_HANDLE, Opened> opened_;
  uintptr_t nextHandle_ = 0x5C0010;
  const SC_ACTION* lastActions_ = nullptr;  // the list that the last query returned
};

}  // namespace rig
