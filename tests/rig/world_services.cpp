#include "rig/world_services.h"

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

}  // namespace

Service& Services::Of(const std::string& name) {
  std::string key = name;
  std::transform(key.begin(), key.end(), key.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return services_[key];
}

SC_HANDLE Services::Open(Service* service, DWORD access) {
  auto handle = reinterpret_cast<SC_HANDLE>(nextHandle_);
  nextHandle_ += 0x10;
  opened_[handle] = {service, access};
  return handle;
}

Service* Services::Reach(SC_HANDLE handle, DWORD access) {
  auto opened = opened_.find(handle);
  if (opened == opened_.end() || opened->second.service == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if ((opened->second.access & access) == 0) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return opened->second.service;
}

SC_HANDLE Services::OpenService(SC_HANDLE manager, const std::string& name, DWORD access) {
  auto opened = opened_.find(manager);
  if (opened == opened_.end() || opened->second.service != nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if ((opened->second.access & SC_MANAGER_CONNECT) == 0) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  size_t before = services_.size();
  Service& service = Of(name);
  if (services_.size() != before) {
    services_.erase(std::find_if(services_.begin(), services_.end(),
                                 [&](const auto& one) { return &one.second == &service; }));
    SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
    return nullptr;
  }
  if (service.openError != ERROR_SUCCESS) {
    SetLastError(service.openError);
    return nullptr;
  }
  return Open(&service, access);
}

BOOL Services::Control(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
  Service* service = Reach(handle, AccessFor(control));
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
  Service* service = Reach(handle, SERVICE_QUERY_STATUS);
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
  Service* service = Reach(handle, SERVICE_START);
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
  rig_.On<::OpenSCManagerA>([this](const char* machine, const char* database, DWORD access) -> SC_HANDLE {
    if (machine != nullptr || database != nullptr) {
      Fail("OpenSCManagerA is given another machine or database; the world knows its own only");
    }
    if (managerError != ERROR_SUCCESS) {
      SetLastError(managerError);
      return nullptr;
    }
    return Open(nullptr, access);
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
  rig_.On<::CloseServiceHandle>([this](SC_HANDLE handle) -> BOOL { return opened_.erase(handle) != 0; });
}

}  // namespace rig
