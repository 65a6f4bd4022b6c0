// The password of a service account. Used by the action that creates one.
#pragma once

#include <windows.h>

/// The length of a password in characters, without the terminator.
constexpr size_t kPasswordLength = 20;

/// A password, which is wiped from memory at the end of its scope.
struct AccountPassword {
  wchar_t text[kPasswordLength + 1] = {};  ///< the password, with the terminator

  AccountPassword() = default;
  AccountPassword(const AccountPassword&) = delete;
  AccountPassword& operator=(const AccountPassword&) = delete;
  ~AccountPassword();
};

extern "C" {

/// Generates a password of five groups of four characters; the first two characters of each group are random.
/// Repeats until the password has at least one capital letter, one small letter, one digit and one other
/// character. Returns the result of CoCreateGuid; if it is a failure, `password` must not be used.
HRESULT GenerateAccountPassword(AccountPassword* password);

}  // extern "C"
