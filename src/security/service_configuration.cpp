#include "security/service_configuration.h"

ConfiguredService::ConfiguredService(MSIHANDLE session, const wchar_t* name, DWORD access)
    : manager(OpenSCManagerA(nullptr, nullptr, GENERIC_READ)) {
  if (!manager) {
    LogSetupMessage(session, "opening service control manager failed:  %ld", GetLastError());
    return;
  }
  service.reset(OpenServiceW(manager.get(), name, access));
  if (!service) LogSetupMessage(session, "opening service failed:  %ld", GetLastError());
}
