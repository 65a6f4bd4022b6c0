// The scope in which Windows shows no message boxes. Used wherever a drive may be empty or a library missing.
#pragma once

#include <windows.h>

/// Suppresses message boxes of the system (missing media, missing files) for the length of a scope.
class ErrorModeGuard {
 public:
  /// Sets SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX.
  ErrorModeGuard() : previous_(SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX)) {}
  ErrorModeGuard(const ErrorModeGuard&) = delete;
  ErrorModeGuard& operator=(const ErrorModeGuard&) = delete;
  /// Restores the mode from before.
  ~ErrorModeGuard() { SetErrorMode(previous_); }

 private:
  UINT previous_;
};
