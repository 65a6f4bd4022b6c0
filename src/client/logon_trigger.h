// The interface of a logon trigger, which is missing from the compiler's headers. Used by the task
// definitions.
#pragma once

#include <taskschd.h>

/// A trigger that starts a task when a user logs on. The methods are declared as in the Windows SDK.
struct ILogonTrigger : ITrigger {
  /// Gets the delay between the logon and the start, as a duration ("PT15M"); the caller frees the string.
  virtual HRESULT STDMETHODCALLTYPE get_Delay(BSTR* delay) = 0;
  /// Sets the delay.
  virtual HRESULT STDMETHODCALLTYPE put_Delay(BSTR delay) = 0;
  /// Gets the user whose logon starts the task; the caller frees the string.
  virtual HRESULT STDMETHODCALLTYPE get_UserId(BSTR* user) = 0;
  /// Sets the user; null means any user.
  virtual HRESULT STDMETHODCALLTYPE put_UserId(BSTR user) = 0;
};

/// The identifier of ILogonTrigger.
constexpr IID kLogonTriggerId = {
    0x72DADE38, 0xFAE4, 0x4B3E, {0xBA, 0xF4, 0x5D, 0x00, 0x9A, 0xF0, 0x2B, 0x1C}};
