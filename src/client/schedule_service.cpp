#include "client/schedule_service.h"

#include "base/windows_owners.h"

DWORD EnsureScheduleService(void) {
  ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return GetLastError();
  ServiceHandle service(OpenServiceA(manager.get(), "Schedule", SERVICE_QUERY_STATUS | SERVICE_START));
  DWORD error = service ? ERROR_SUCCESS : GetLastError();
  manager.reset();
  if (!service) return error;

  SERVICE_STATUS status;
  if (!QueryServiceStatus(service.get(), &status)) return GetLastError();
  if (status.dwCurrentState == SERVICE_RUNNING) return ERROR_SUCCESS;
  return StartServiceA(service.get(), 0, nullptr) ? ERROR_SUCCESS : GetLastError();
}
