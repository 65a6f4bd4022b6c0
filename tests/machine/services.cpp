#include "machine/services.h"

#include <initializer_list>

namespace machine {

namespace {

// True if the service of this name has been deleted, but still exists because its process or a handle does.
// It cannot be created again until then.
bool IsGoing(const wchar_t* name) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE service = OpenServiceW(manager, name, SERVICE_CHANGE_CONFIG);
  bool isRefused = !service;
  if (service) {
    isRefused = !ChangeServiceConfigW(service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  }
  const bool isGoing = isRefused && GetLastError() == ERROR_SERVICE_MARKED_FOR_DELETE;
  if (service) CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return isGoing;
}

}  // namespace

void WaitForDeletedServices(DWORD limit) {
  for (const wchar_t* name : {L"Ostrel", L"Vantor", L"Gauge"}) {
    for (DWORD waited = 0; IsGoing(name) && waited < limit; waited += 50) Sleep(50);
  }
}

}  // namespace machine
