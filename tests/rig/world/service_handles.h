// The handles of a service manager in memory. Used by the worlds that answer for services.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>

#include "rig/failures.h"

namespace rig {

/// Handles of the service manager and of services, which are `Record`s of the world. A service's handle
/// allows what it was opened for and nothing else; every handle of the manager allows to open services.
template <class Record>
class ServiceHandles {
 public:
  /// Opens the manager with `access`, or fails with `error` unless that is ERROR_SUCCESS. Answers
  /// OpenSCManagerA: the world has no other machine or database than its own.
  SC_HANDLE OpenManager(const char* machine, const char* database, DWORD access, DWORD error) {
    if (machine != nullptr || database != nullptr) {
      Fail("OpenSCManagerA is given another machine or database; the world knows its own only");
    }
    return error == ERROR_SUCCESS ? Open(nullptr, access) : Refuse(error);
  }
  /// Opens `service` with `access` through the manager's handle, or fails with `error` unless that is
  /// ERROR_SUCCESS.
  SC_HANDLE OpenService(SC_HANDLE manager, Record* service, DWORD access, DWORD error) {
    auto opened = opened_.find(manager);
    if (opened == opened_.end() || opened->second.service != nullptr) return Refuse(ERROR_INVALID_HANDLE);
    return error == ERROR_SUCCESS ? Open(service, access) : Refuse(error);
  }
  /// The service behind a handle that allows `access`; null, with the last error set, otherwise.
  Record* Reach(SC_HANDLE handle, DWORD access) {
    auto opened = opened_.find(handle);
    const bool isService = opened != opened_.end() && opened->second.service != nullptr;
    if (isService && (opened->second.access & access) != 0) return opened->second.service;
    Refuse(isService ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE);
    return nullptr;
  }
  /// Answers CloseServiceHandle.
  BOOL Close(SC_HANDLE handle) { return opened_.erase(handle) != 0; }

 private:
  /// What is behind a handle.
  struct Opened {
    Record* service;  // Null for the manager.
    DWORD access;
  };

  /// Makes a handle.
  SC_HANDLE Open(Record* service, DWORD access) {
    auto handle = reinterpret_cast<SC_HANDLE>(nextHandle_);
    nextHandle_ += 0x10;
    opened_[handle] = {service, access};
    return handle;
  }
  /// No handle; the last error says why.
  static SC_HANDLE Refuse(DWORD error) {
    SetLastError(error);
    return nullptr;
  }

  std::map<SC_HANDLE, Opened> opened_;
  uintptr_t nextHandle_ = 0x5C0010;
};

}  // namespace rig
