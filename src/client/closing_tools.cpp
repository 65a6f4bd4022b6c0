// Making way for new client files.
//
// CustomAction1   closes the product's desktop tools and stops the client service. Reads REBOOT, and
//                 PROP_SILENCE and ProductName for notice 25003. Returns 0, or 1603 when a tool or the
//                 service stays.
// CustomAction29  sends the running client service its own control 200. Returns 0.
//
// Neither writes to the log.

#include "base/os_version.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "client/tool_windows.h"
#include "frame/notice.h"
#include "frame/session.h"

namespace {

// The desktop tools, in the order in which they are closed. The network tools are those without a title here.
struct Tool {
  const char* windowClass;
  const char* title;
};
constexpr Tool kTools[] = {
    {"AudraClass", "Audra"}, {"Lendo", "Lendo"},     {"Warden", "Warden"},  {"PVMain", "Provo"},
    {"Lendo32", "Lendo"},    {"Warden32", "Warden"}, {"Tollgate", nullptr}, {"Tollgate32", nullptr},
};

constexpr char kServiceName[] = "Ostrel";
// A control of the service's own.
constexpr DWORD kServiceControl = 200;

// The buffer of REBOOT, in bytes with the terminator.
constexpr DWORD kShortPropertySize = 128;

constexpr Notice kServiceIsRunning = {
    25003, static_cast<INSTALLMESSAGE>(INSTALLMESSAGE_USER | MB_ICONINFORMATION),
    "Halvorstead Client is running as a service on this computer.  Setup will try\n"
    "to stop the service now so that all files can be copied successfully.",
    MB_ICONINFORMATION, NoticeTitle::kWholeBuffer};

bool CloseTool(const Tool& tool) {
  return tool.title ? CloseToolWindow(tool.windowClass, tool.title) : CloseNetworkTool(tool.windowClass);
}

// The client service, opened; empty where it cannot be.
struct ClientService {
  ServiceHandle manager;
  ServiceHandle service;

  explicit ClientService(DWORD access) : manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
    if (manager) service.reset(OpenServiceA(manager.get(), kServiceName, access));
  }
  // Whether the service says itself that it runs.
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

// Waits until the service runs no more; that it is about to stop is enough, and so is that its state cannot
// be asked for. False when it still runs at the end.
bool WaitServiceStopped(SC_HANDLE service) {
  DWORD deadline = GetTickCount() + kLongestWait;
  SERVICE_STATUS status;
  while (QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_RUNNING) {
    Sleep(kPollInterval);
    if (deadline < GetTickCount()) return false;
  }
  return true;
}

// Stops the client service, if there is one that runs. False when it still runs afterwards.
bool StopClientService(MSIHANDLE session) {
  ClientService client(SERVICE_STOP | SERVICE_INTERROGATE | SERVICE_QUERY_STATUS);
  if (!client.IsRunning()) return true;
  if (!IsRebootForced(session)) SendNotice(session, &kServiceIsRunning);
  SERVICE_STATUS status;
  // The result is ignored on purpose: what counts is the state that the service is in afterwards.
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
  // The result is ignored on purpose: nothing of the installation depends on it.
  ControlService(client.service.get(), kServiceControl, &status);
  return ERROR_SUCCESS;
}
