// Closes the programs that use the client's files, so that new files can be copied.
//
// CustomAction1   closes the product's desktop tools and stops the client service. Reads REBOOT, and
//                 PROP_SILENCE and ProductName for notice 25003. Returns 1603 if a tool or the service is
//                 still running afterwards, otherwise 0.
// CustomAction29  sends the control 200, which the service itself defines, to the client service if it is
//                 running. Always returns 0.
//
// Neither writes to the log.

#include "base/os_version.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "client/tool_windows.h"
#include "frame/notice.h"
#include "frame/session.h"

namespace {

// The desktop tools, in the order in which they are closed. A null title marks a network tool.
struct Tool {
  const char* windowClass;
  const char* title;
};
constexpr Tool kTools[] = {
    {"AudraClass", "Audra"}, {"Lendo", "Lendo"},     {"Warden", "Warden"},  {"PVMain", "Provo"},
    {"Lendo32", "Lendo"},    {"Warden32", "Warden"}, {"Tollgate", nullptr}, {"Tollgate32", nullptr},
};

constexpr char kServiceName[] = "Ostrel";
// The control that the service itself defines.
constexpr DWORD kServiceControl = 200;

// The size of the buffer for REBOOT, in bytes with the terminator.
constexpr DWORD kShortPropertySize = 128;

constexpr Notice kServiceIsRunning = {
    25003, static_cast<INSTALLMESSAGE>(INSTALLMESSAGE_USER | MB_ICONINFORMATION),
    "Halvorstead Client is running as a service on this computer.  Setup will try\n"
    "to stop the service now so that all files can be copied successfully.",
    MB_ICONINFORMATION, NoticeTitle::kWholeBuffer};

bool CloseTool(const Tool& tool) {
  return tool.title ? CloseToolWindow(tool.windowClass, tool.title) : CloseNetworkTool(tool.windowClass);
}

// The open client service; `service` is null if it cannot be opened.
struct ClientService {
  ServiceHandle manager;
  ServiceHandle service;

  explicit ClientService(DWORD access) : manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
    if (manager) service.reset(OpenServiceA(manager.get(), kServiceName, access));
  }
  // Asks the service itself; returns true if it answers that it is running.
  bool IsRunning() const {
    SERVICE_STATUS status;
    return service && ControlService(service.get(), SERVICE_CONTROL_INTERROGATE, &status) &&
           status.dwCurrentState == SERVICE_RUNNING;
  }
};

bool IsRebootForced(MSIHANDLE session) {
  char reboot[kShortPropertySize];
  return ReadShortProperty(session, "REBOOT", reboot) && TxtCompareIA(reboot, "Force") == 0;
}

// Waits until the service is no longer in the state "running": "stop pending" is enough. A state that
// cannot be queried also ends the wait. Returns false if it is still running after the longest wait.
bool WaitServiceStopped(SC_HANDLE service) {
  DWORD deadline = GetTickCount() + kLongestWait;
  SERVICE_STATUS status;
  while (QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_RUNNING) {
    Sleep(kPollInterval);
    if (deadline < GetTickCount()) return false;
  }
  return true;
}

// Stops the client service if it is running. Returns false if it is still running afterwards.
bool StopClientService(MSIHANDLE session) {
  ClientService client(SERVICE_STOP | SERVICE_INTERROGATE | SERVICE_QUERY_STATUS);
  if (!client.IsRunning()) return true;
  if (!IsRebootForced(session)) SendNotice(session, &kServiceIsRunning);
  SERVICE_STATUS status;
  // On purpose: the result is ignored. The state of the service afterwards decides.
  ControlService(client.service.get(), SERVICE_CONTROL_STOP, &status);
  return WaitServiceStopped(client.service.get());
}

}  // namespace

extern "C" UINT WINAPI CustomAction1(MSIHANDLE session) {
  for (const Tool& tool : kTools) {
    if (!CloseTool(tool)) return ERROR_INSTALL_FAILURE;
  }
  if (!IsNtPlatform()) return ERROR_SUCCESS;
  return StopClientService(session) ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}

extern "C" UINT WINAPI CustomAction29(MSIHANDLE) {
  if (!IsNtPlatform()) return ERROR_SUCCESS;
  ClientService client(SERVICE_USER_DEFINED_CONTROL | SERVICE_INTERROGATE | SERVICE_QUERY_STATUS);
  if (!client.IsRunning()) return ERROR_SUCCESS;
  SERVICE_STATUS status = {};
  // On purpose: the result is ignored. Nothing in the installation depends on it.
  ControlService(client.service.get(), kServiceControl, &status);
  return ERROR_SUCCESS;
}
