// Text values of the registry in buffers of a fixed size. Used by the upgrade actions.
#pragma once

#include <windows.h>

extern "C" {

/// Reads the value `name` of `key` into `buffer` of `size` bytes, whatever type the value has, and closes it
/// with a terminator: of a value that fills the buffer, the last byte is lost. The buffer is empty when there
/// is no such value and when the value does not fit.
void ReadRegistryText(HKEY key, const char* name, char* buffer, DWORD size);

}  // extern "C"
