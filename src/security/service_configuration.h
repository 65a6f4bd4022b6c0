// Reads the configuration of a service and logs each failing step. Used by the actions that adjust an
// installed service or the access of its account.
#pragma once

#include "base/heap.h"
#include "base/windows_owners.h"
#include "frame/session.h"

/// An open service, and the service manager through which it was opened.
struct ConfiguredService {
  ServiceHandle manager;  ///< closed after the service
  ServiceHandle service;  ///< null if it could not be opened

  /// Opens the service `name` with `access` (SERVICE_...); logs a failure.
  ConfiguredService(MSIHANDLE session, const wchar_t* name, DWORD access);
};

/// Queries a part of a service's configuration. Returns a new heap block that `query` has filled, which the
/// caller frees with HeapFreeSafe; null on failure. Logs failures, except running out of memory. `query`
/// takes the block, its size in bytes, and where to store the needed size; it returns true if the system
/// succeeded.
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
