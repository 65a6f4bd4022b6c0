// What hxrun asks of the system for itself: the library beside it, its user, its console. Used by the main
// function.
#pragma once

#include <stdexcept>
#include <string>

namespace hxrun {

/// hxrun cannot go on; the text says what to do.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Returns the folder of this program, without a backslash at its end.
std::wstring OwnFolder();

/// Checks that hxsetup.dll is in the folder, is for this program's processor and has this program's version.
/// Returns its version, as in "1.2.0". Throws Failure.
std::string CheckLibrary(const std::wstring& folder);

/// Returns the user of this process as DOMAIN\NAME.
std::string UserName();

/// Prints a line to the standard output, or to the error output. Secrets are masked.
void Print(const std::string& line);
void PrintError(const std::string& line);

/// True if a person can answer: the standard input is a console.
bool HasPerson();

/// Prints the question to the error output, because the standard output may be a file, and returns true if
/// the person types "yes".
bool AskPerson(const std::string& question);

}  // namespace hxrun
