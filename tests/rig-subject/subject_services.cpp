#include "subject.h"

extern "C" {

DWORD SubjectService(const char* name, DWORD access, DWORD control, DWORD* state, BOOL keep) {
  DWORD error = ERROR_SUCCESS;
  SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (!manager) return GetLastError();
  SC_HANDLE service = OpenServiceA(manager, name, access);
  if (!service) error = GetLastError();
  SERVICE_STATUS status = {};
  if (service && !ControlService(service, control, &status)) error = GetLastError();
  *state = status.dwCurrentState;
  if (service && !keep) CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return error;
}

DWORD SubjectStartService(const char* name, const char* argument, DWORD* state) {
  SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  SC_HANDLE service = OpenServiceA(manager, name, SERVICE_START | SERVICE_QUERY_STATUS);
  DWORD error = StartServiceA(service, argument ? 1 : 0, argument ? &argument : nullptr) ? ERROR_SUCCESS
                                                                                         : GetLastError();
  SERVICE_STATUS status = {};
  if (!QueryServiceStatus(service, &status)) error = GetLastError();
  *state = status.dwCurrentState;
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return error;
}

DWORD SubjectServiceAccount(const char* name, DWORD access, BOOL wide, char* account) {
  SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE service = OpenServiceA(manager, name, access);
  alignas(8) BYTE block[512];
  DWORD needed = 0;
  DWORD error = ERROR_SUCCESS;
  if (wide) {
    auto* record = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block);
    if (!QueryServiceConfigW(service, record, sizeof block, &needed)) error = GetLastError();
    if (!error && record->lpServiceStartName) {
      const wchar_t* text = record->lpServiceStartName;
      do *account++ = static_cast<char>(*text);
      while (*text++);
    }
  } else {
    auto* record = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(block);
    if (!QueryServiceConfigA(service, record, sizeof block, &needed)) error = GetLastError();
    if (!error && record->lpServiceStartName) {
      const char* text = record->lpServiceStartName;
      do *account++ = *text;
      while (*text++);
    }
  }
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return error;
}

BOOL SubjectFindWindow(const char* windowClass, const char* title) {
  return FindWindowA(windowClass, title) != nullptr;
}

BOOL SubjectTellWindow(const char* windowClass, const char* title, UINT message, BOOL post) {
  HWND window = FindWindowA(windowClass, title);
  if (post) return PostMessageA(window, message, 1, 2);
  SendMessageA(window, message, 3, 4);
  return TRUE;
}

}  // extern "C"
