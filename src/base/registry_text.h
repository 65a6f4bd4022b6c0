// Text values of the registry, read into buffers of a fixed size. Used by the upgrade actions.
#pragma once

#include <windows.h>

extern "C" {

/// Reads the value `name` of `key`, of any type, into `buffer` of `size` bytes and terminates it: a value
/// that fills the buffer loses its last byte. The buffer is empty if the value is missing or does not fit.
void ReadRegistryText(HKEY key, const char* name, char* buffer, DWORD size);

}  // extern "C"
