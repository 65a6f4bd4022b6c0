// The family and the version of the operating system. Used by the actions that talk to the client service,
// and by the firewall.
#pragma once

#include <stdint.h>

extern "C" {

/// True if the system is of the NT family, version 3.5 or later.
bool IsNtPlatform();

/// True if the system's version is `major`.`minor` or later. A system of the NT family that does not report
/// its version counts as 3.5; a system of the 9x family counts as 1.0 or 2.0.
bool IsVersionAtLeast(uint32_t major, uint32_t minor);

}  // extern "C"
