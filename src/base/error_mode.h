// A scope without message boxes of Windows. Used wherever a drive may be empty or a library may be missing.
#pragma once

#include <windows.h>

/// Suppresses message boxes of Windows (missing media, missing files) until the scope ends.
class ErrorModeGuard {
 public:
  /// Sets SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX.
  ErrorModeGuard() : previous_(SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX)) {}
  ErrorModeGuard(const ErrorModeGuard&) = delete;
  ErrorModeGuard& operator=(const ErrorModeGuard&) = delete;
  /// Restores the previous mode.
  ~ErrorModeGuard() { SetErrorMode(previous_); }

 private:
  UINT previous_;
};
