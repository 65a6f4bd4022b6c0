// The module of accounts and access lists. Used by what binds its functions by name.
#pragma once

#include "base/late_binding.h"

/// ADVAPI32, found once for all that look for functions of it.
inline constinit LateModule advapi32{L"ADVAPI32"};
