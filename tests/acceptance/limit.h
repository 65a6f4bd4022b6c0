// Runs a program with a time limit. Used by accept.exe, because no tool that every Windows has can do this.
#pragma once

#include <windows.h>

#include <string>

namespace acceptance {

/// The status of a program that was ended at its time limit.
constexpr DWORD kTimedOut = 124;
/// The status if the program could not be started.
constexpr DWORD kNotStarted = 126;

/// Runs a command line and writes its output to the file `output`, and to this program's output only the
/// lines that begin a failure. Ends the program and its children after `seconds`. Returns its exit status,
/// kTimedOut or kNotStarted.
DWORD RunLimited(std::wstring command, const std::wstring& output, DWORD seconds);

}  // namespace acceptance
