// The owner of an installer record. Used to write to the installer's log and to show notices.
#pragma once

#include <windows.h>
// These need windows.h first.
#include <msi.h>
#include <msiquery.h>

#include "base/owner.h"

/// Owns an installer record; closes it at the end of its scope.
using InstallerRecord = Unique<NullableTraits<MSIHANDLE, MsiCloseHandle>>;
