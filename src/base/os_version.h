// The family and the version of the operating system. Used by the actions that talk to the client service,
// and by the firewall.
#pragma once

#include <stdint.h>

extern "C" {

/// Whether the system is of the NT family, version 3.5 or later.
bool IsNtPlatform();

/// Whether the system's version is `major`.`minor` or later. One whose version cannot be told counts as very
/// old.
bool IsVersionAtLeast(uint32_t major, uint32_t minor);

}  // extern "C"
