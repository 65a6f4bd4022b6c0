// The owner of an installer record. Used by what writes to the installer's log or shows a notice.
#pragma once

#include <windows.h>
// After windows.h, on which they build.
#include <msi.h>
#include <msiquery.h>

#include "base/owner.h"

/// An installer record.
using InstallerRecord = Unique<NullableTraits<MSIHANDLE, MsiCloseHandle>>;
