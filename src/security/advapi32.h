// The Windows library for accounts and access lists. Used by the files that bind its functions by name.
#pragma once

#include "base/late_binding.h"

/// ADVAPI32, found once for all files that look up functions in it.
inline constinit LateModule advapi32{L"ADVAPI32"};
