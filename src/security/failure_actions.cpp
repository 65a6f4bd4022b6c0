// CustomAction37: removes the failure actions of the service PROP_COMPONENT, so that the service manager
// neither restarts it nor runs a command when it ends. Logs what was done or what failed. Does nothing in a
// rollback. Always returns 0.

#include "base/heap.h"
#include "security/service_configuration.h"

namespace {

void RemoveFailureActions(MSIHANDLE session, SC_HANDLE service) {
  auto query = [service](BYTE* block, DWORD size, DWORD* needed) {
    return QueryServiceConfig2A(service, SERVICE_CONFIG_FAILURE_ACTIONS, block, size, needed);
  };
  HeapBlock<SERVICE_FAILURE_ACTIONSA> actions(
      static_cast<SERVICE_FAILURE_ACTIONSA*>(QueryConfiguration(session, query)));
  if (!actions) return;
  if (actions.get()->cActions == 0) {
    LogSetupMessage(session, "service has no failure actions");
    return;
  }
  actions.get()->dwResetPeriod = INFINITE;
  actions.get()->lpRebootMsg = nullptr;
  actions.get()->lpCommand = nullptr;
  actions.get()->cActions = 0;
  // On purpose: the pointer to the list is not changed. An empty list deletes the actions, while a null
  // list keeps them.
  if (ChangeServiceConfig2A(service, SERVICE_CONFIG_FAILURE_ACTIONS, actions.get())) {
    LogSetupMessage(session, "service failure actions removed");
  } else {
    LogSetupMessage(session, "change service failed:  %ld", GetLastError());
  }
}

}  // namespace

extern "C" UINT WINAPI CustomAction37(MSIHANDLE session) {
  if (IsRollback(session)) return ERROR_SUCCESS;
  HeapStringW name(ReadPropertyW(session, L"PROP_COMPONENT"));
  if (!name) return ERROR_SUCCESS;
  ConfiguredService configured(session, name.get(), SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG);
  if (configured.service) RemoveFailureActions(session, configured.service.get());
  return ERROR_SUCCESS;
}
