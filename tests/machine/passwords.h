// The passwords that the library makes for the server's account: no log that is kept may contain one.
#pragma once

#include <string>

namespace machine {

/// What is written in place of a password.
extern const char kHiddenPassword[];

/// Puts kHiddenPassword in place of everything in `text` that looks like such a password, in bytes or in
/// UTF-16: five groups of four characters, of which the first is one of the password's alphabet, the second
/// one of four letters, and the others "AA". Returns true if there was one.
bool HidePasswords(std::string& text);

/// Does the same in the file `path`. Returns false if the file cannot be read or, where it has a password,
/// not be written: then the password may still be there.
bool HidePasswordsInFile(const std::wstring& path);

}  // namespace machine
