#include "base/registry_text.h"

#include "base/text.h"

void ReadRegistryText(HKEY key, const char* name, char* buffer, DWORD size) {
  FillBytes(buffer, 0, size);
  DWORD count = size;
  LSTATUS status = RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &count);
  // After a failed query the buffer's content is undefined, and stored text may have no terminator.
  buffer[status == ERROR_SUCCESS ? size - 1 : 0] = '\0';
}
