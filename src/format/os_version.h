// The family of the operating system. Used by the actions that talk to the client service.
#pragma once

extern "C" {

/// Whether the system is of the NT family, version 3.5 or later.
bool IsNtPlatform();

}  // extern "C"
