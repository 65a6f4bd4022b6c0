// The libraries of "AppInit_DLLs" on a machine whose Windows loads them. The tests' stand-in for the tracking
// library is not signed, and each program that has loaded it would keep its file in use.
#pragma once

#include <string>

namespace machine {

/// Makes Windows load only signed libraries of "AppInit_DLLs" into programs that start from now on, and keeps
/// the earlier setting in a value beside it. If an earlier setting is kept there already, that one stays.
/// Returns false if the setting cannot be written.
bool RequireSignedLibraries();

/// Restores the setting that RequireSignedLibraries has kept, also in another process and after a restart of
/// the machine. Returns true if there was one.
bool RestoreSignedLibraries();

/// The values: the setting of Windows (REG_DWORD), and where its earlier text is kept (REG_SZ): the number in
/// decimal digits, empty if there was none.
extern const char kSignedSetting[], kKeptSetting[];

}  // namespace machine
