// The password of a service account. Used by the action that creates one.
#pragma once

#include <windows.h>

/// The characters of a password, without the terminator.
constexpr size_t kPasswordLength = 20;

/// A password, cleared from memory at the end of its scope.
struct AccountPassword {
  wchar_t text[kPasswordLength + 1] = {};  ///< with the terminator

  AccountPassword() = default;
  AccountPassword(const AccountPassword&) = delete;
  AccountPassword& operator=(const AccountPassword&) = delete;
  ~AccountPassword();
};

extern "C" {

/// Makes a new password: five groups of four characters, of which the first two come from chance, with at
/// least one capital, one small letter, one digit and one other character in the whole. Draws until that is
/// so. S_OK, or the HRESULT of the system where it has no chance to give; `password` is then not to be used.
HRESULT GenerateAccountPassword(AccountPassword* password);

}  // extern "C"
