// CustomAction30: writes the package's version to the product's entry in the list of installed programs.
// Reads ProductCode and PROP_VERSION. Sets "DisplayVersion" in each registry view and logs one line for each
// view. Always returns 0.

#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "format/format.h"
#include "frame/session.h"

namespace {

// The size of the buffer for the entry's registry path, in bytes with the terminator.
constexpr unsigned kKeyPathSize = 256;

// A registry view in which the entry is looked for, and its name in the log.
struct RegistryView {
  const char* name;
  REGSAM flag;
};

// On a 64-bit system the default view is the same as one of the other two, so that one is written twice.
constexpr RegistryView kViews[] = {
    {"default", 0},
    {"64-bit", KEY_WOW64_64KEY},
    {"32-bit", KEY_WOW64_32KEY},
};

void SetDisplayVersion(MSIHANDLE session, const char* path, const char* version, const RegistryView& view) {
  RegistryKey key;
  REGSAM access = KEY_QUERY_VALUE | KEY_SET_VALUE | view.flag;
  if (!key.keep(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, access, key.put()) == ERROR_SUCCESS)) {
    LogSetupMessage(session, "can't open uninstall registry key (%s)", view.name);
    return;
  }
  LSTATUS status =
      RegSetValueExA(key.get(), "DisplayVersion", 0, REG_SZ, reinterpret_cast<const BYTE*>(version),
                     static_cast<DWORD>(TxtLenA(version) + 1));
  key.reset();
  if (status != ERROR_SUCCESS) {
    LogSetupMessage(session, "failed to set version for ARP tweak (%s)", view.name);
  } else {
    LogSetupMessage(session, "set ARP version to %s (%s)", version, view.name);
  }
}

}  // namespace

extern "C" UINT WINAPI CustomAction30(MSIHANDLE session) {
  HeapStringA product(ReadPropertyA(session, "ProductCode"));
  if (!product) {
    LogSetupMessage(session, "no product code for ARP tweak");
    return ERROR_SUCCESS;
  }
  char path[kKeyPathSize];
  FormatString(path, kKeyPathSize, "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\%s",
               product.get());
  product.reset();

  HeapStringA version(ReadPropertyA(session, "PROP_VERSION"));
  if (!version) {
    LogSetupMessage(session, "no version for ARP tweak");
    return ERROR_SUCCESS;
  }
  for (const RegistryView& view : kViews) SetDisplayVersion(session, path, version.get(), view);
  return ERROR_SUCCESS;
}
