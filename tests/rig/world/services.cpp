#include "rig/world/services.h"

#include <algorithm>
#include <cctype>

#include "rig/function.h"

namespace rig {
namespace {

// The right that a control needs.
DWORD AccessFor(DWORD control) {
  constexpr DWORD kFirstUserDefined = 128;
  if (control == SERVICE_CONTROL_STOP) {
    return SERVICE_STOP;
  }
  if (control == SERVICE_CONTROL_INTERROGATE) {
    return SERVICE_INTERROGATE;
  }
  return control >= kFirstUserDefined ? SERVICE_USER_DEFINED_CONTROL : SERVICE_PAUSE_CONTINUE;
}

BOOL Refuse(DWORD error, SERVICE_STATUS* status) {
  if (status != nullptr) {
    *status = {};
    status->dwCurrentState = SERVICE_RUNNING;
  }
  SetLastError(error);
  return FALSE;
}

BOOL Tell(const Service& service, SERVICE_STATUS* status) {
  *status = {};
  status->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status->dwCurrentState = service.state;
  status->dwControlsAccepted = SERVICE_ACCEPT_STOP;
  return TRUE;
}

// The letters of a service's name do not differ by their case.
std::string Key(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return name;
}

}  // namespace

Service& Services::Of(const std::string& name) {
  return services_[Key(name)];
}

SC_HANDLE Services::OpenService(SC_HANDLE manager, const std::string& name, DWORD access) {
  auto known = services_.find(Key(name));
  if (known == services_.end()) {
    return handles_.OpenService(manager, nullptr, access, ERROR_SERVICE_DOES_NOT_EXIST);
  }
  return handles_.OpenService(manager, &known->second, access, known->second.openError);
}

BOOL Services::Control(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
  Service* service = handles_.Reach(handle, AccessFor(control));
  if (service == nullptr) {
    return Refuse(GetLastError(), status);
  }
  service->controls.push_back(control);
  auto error = service->controlErrors.find(control);
  if (error != service->controlErrors.end()) {
    return Refuse(error->second, status);
  }
  if (service->state == SERVICE_STOPPED) {
    return Refuse(ERROR_SERVICE_NOT_ACTIVE, status);
  }
  auto after = service->stateAfter.find(control);
  if (after != service->stateAfter.end()) {
    service->state = after->second;
  }
  return Tell(*service, status);
}

BOOL Services::Query(SC_HANDLE handle, SERVICE_STATUS* status) {
  Service* service = handles_.Reach(handle, SERVICE_QUERY_STATUS);
  if (service == nullptr) {
    return Refuse(GetLastError(), status);
  }
  if (!service->coming.empty()) {
    service->state = service->coming.front();
    service->coming.pop_front();
  } else if (service->queryError != ERROR_SUCCESS) {
    return Refuse(service->queryError, status);
  }
  return Tell(*service, status);
}

BOOL Services::Start(SC_HANDLE handle, DWORD count, const char** arguments) {
  Service* service = handles_.Reach(handle, SERVICE_START);
  if (service == nullptr) {
    return FALSE;
  }
  service->starts.push_back(count == 0 ? std::vector<std::string>()
                                       : std::vector<std::string>(arguments, arguments + count));
  DWORD error = service->startError != ERROR_SUCCESS ? service->startError
                : service->state != SERVICE_STOPPED  ? ERROR_SERVICE_ALREADY_RUNNING
                                                     : ERROR_SUCCESS;
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return FALSE;
  }
  service->state = service->stateAfterStart;
  return TRUE;
}

void Services::Install() {
  rig_.On<::OpenSCManagerA>([this](const char* machine, const char* database, DWORD access) {
    return handles_.OpenManager(machine, database, access, managerError);
  });
  rig_.On<::OpenServiceA>([this](SC_HANDLE manager, const char* name, DWORD access) {
    return OpenService(manager, name, access);
  });
  rig_.On<::ControlService>([this](SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
    return Control(handle, control, status);
  });
  rig_.On<::QueryServiceStatus>(
      [this](SC_HANDLE handle, SERVICE_STATUS* status) { return Query(handle, status); });
  rig_.On<::StartServiceA>([this](SC_HANDLE handle, DWORD count, const char** arguments) {
    return Start(handle, count, arguments);
  });
  rig_.On<::CloseServiceHandle>([this](SC_HANDLE handle) -> BOOL { return handles_.Close(handle); });
}

}  // namespace rig
