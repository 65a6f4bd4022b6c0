// The service manager in memory. Part of a world.
#pragma once

#include <windows.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "rig/rig.h"
#include "rig/world/service_handles.h"

namespace rig {

/// One service, as a test arranges it and finds it afterwards.
struct Service {
  DWORD state = SERVICE_RUNNING;  ///< What it is in.
  /// The states that it takes on, one with each QueryServiceStatus, before that answers; the last one stays.
  std::deque<DWORD> coming;
  /// The state that it takes on with a control that succeeds; with others it stays as it is.
  std::map<DWORD, DWORD> stateAfter = {{SERVICE_CONTROL_STOP, SERVICE_STOPPED}};
  DWORD stateAfterStart = SERVICE_RUNNING;  ///< The state that it takes on when it is started.
  DWORD openError = ERROR_SUCCESS;          ///< What opening it fails with.
  /// What QueryServiceStatus fails with, once the states to come are used up.
  DWORD queryError = ERROR_SUCCESS;
  DWORD startError = ERROR_SUCCESS;              ///< What starting it fails with.
  std::map<DWORD, DWORD> controlErrors;          ///< What a control fails with.
  std::vector<DWORD> controls;                   ///< The controls that reached it, in order.
  std::vector<std::vector<std::string>> starts;  ///< The arguments of each start that reached it.
};

/// The services of the machine; there is none at first. A handle allows what it was opened for and nothing
/// else. A stopped service takes no control, one that is not stopped cannot be started. A status record that
/// a failing call was given says SERVICE_RUNNING, so that nobody gets away with looking at it.
class Services {
 public:
  /// The part of the world that belongs to this rig.
  explicit Services(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// The service of this name (any letter case), made, running, when it is not there.
  Service& Of(const std::string& name);

  /// What opening the service manager fails with.
  DWORD managerError = ERROR_SUCCESS;

 private:
  /// Answers OpenServiceA.
  SC_HANDLE OpenService(SC_HANDLE manager, const std::string& name, DWORD access);
  /// Answers ControlService.
  BOOL Control(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status);
  /// Answers QueryServiceStatus.
  BOOL Query(SC_HANDLE handle, SERVICE_STATUS* status);
  /// Answers StartServiceA.
  BOOL Start(SC_HANDLE handle, DWORD count, const char** arguments);

  Rig& rig_;
  std::map<std::string, Service> services_;
  ServiceHandles<Service> handles_;
};

}  // namespace rig
