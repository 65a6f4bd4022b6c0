#include "machine/signed_libraries.h"

#include <windows.h>

#include <cstdlib>

namespace machine {

namespace {

constexpr char kWindowsKey[] = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows";

// The key of the libraries' list, which every Windows has.
class WindowsKey {
 public:
  WindowsKey() {
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kWindowsKey, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, &key_) !=
        ERROR_SUCCESS)
      key_ = nullptr;
  }
  ~WindowsKey() {
    if (key_) RegCloseKey(key_);
  }
  WindowsKey(const WindowsKey&) = delete;
  WindowsKey& operator=(const WindowsKey&) = delete;

  HKEY get() const { return key_; }

 private:
  HKEY key_ = nullptr;
};

}  // namespace

const char kSignedSetting[] = "RequireSignedAppInit_DLLs";
const char kKeptSetting[] = "RequireSignedAppInit_DLLs before the tests of hxsetup";

bool RequireSignedLibraries() {
  const WindowsKey key;
  if (!key.get()) return false;
  // The earlier setting is kept before it is changed, so that an end of this process in between loses
  // nothing.
  if (RegQueryValueExA(key.get(), kKeptSetting, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
    DWORD number = 0, size = sizeof number;
    const bool hasSetting = RegGetValueA(key.get(), nullptr, kSignedSetting, RRF_RT_REG_DWORD, nullptr,
                                         &number, &size) == ERROR_SUCCESS;
    const std::string kept = hasSetting ? std::to_string(number) : "";
    if (RegSetValueExA(key.get(), kKeptSetting, 0, REG_SZ, reinterpret_cast<const BYTE*>(kept.c_str()),
                       static_cast<DWORD>(kept.size() + 1)) != ERROR_SUCCESS)
      return false;
  }
  const DWORD on = 1;
  return RegSetValueExA(key.get(), kSignedSetting, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on),
                        sizeof on) == ERROR_SUCCESS;
}

bool RestoreSignedLibraries() {
  const WindowsKey key;
  char kept[16] = {};
  DWORD size = sizeof kept;
  if (!key.get() ||
      RegGetValueA(key.get(), nullptr, kKeptSetting, RRF_RT_REG_SZ, nullptr, kept, &size) != ERROR_SUCCESS)
    return false;
  const DWORD number = std::strtoul(kept, nullptr, 10);
  const LSTATUS status = kept[0] ? RegSetValueExA(key.get(), kSignedSetting, 0, REG_DWORD,
                                                  reinterpret_cast<const BYTE*>(&number), sizeof number)
                                 : RegDeleteValueA(key.get(), kSignedSetting);
  // What is kept goes last, and only if the setting is what it was.
  if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) RegDeleteValueA(key.get(), kKeptSetting);
  return true;
}

}  // namespace machine
