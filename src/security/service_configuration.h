// The configuration of a service, read with a line in the installer's log for each step that fails. Used by
// the actions that adjust the system around an installed service.
#pragma once

#include "base/heap.h"
#include "base/windows_owners.h"
#include "frame/session.h"

/// A service, opened through the service manager, which is held as long.
struct ConfiguredService {
  ServiceHandle manager;  ///< closed behind the service
  ServiceHandle service;  ///< empty when it could not be opened

  /// Opens the service `name` with `access` (SERVICE_...); the log says what failed.
  ConfiguredService(MSIHANDLE session, const wchar_t* name, DWORD access);
};

/// What a query makes of a service's configuration: a new heap block that `query` has filled, or null; the
/// log says what failed, but for a lack of memory. `query` takes the block, its size in bytes and where the
/// size that is needed is stored, and returns whether the system answered.
template <typename Query>
void* QueryConfiguration(MSIHANDLE session, Query query) {
  DWORD size = 0;
  if (!query(nullptr, 0, &size)) {
    DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER) {
      LogSetupMessage(session, "query service sizing failed:  %ld", error);
      return nullptr;
    }
  }
  HeapBlock<BYTE> block(static_cast<BYTE*>(HeapAllocZero(size)));
  if (!block) return nullptr;
  if (!query(block.get(), size, &size)) {
    LogSetupMessage(session, "query service failed:  %ld", GetLastError());
    return nullptr;
  }
  return block.release();
}
