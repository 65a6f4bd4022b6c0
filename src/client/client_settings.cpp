// The client agent's stored settings.
//
// CustomAction3   sets PROP_HOSTNAME to the stored host, unless it already names a host other than "vantor".
// CustomAction26  sets PROP_SITE, PROP_ASSETID, PROP_ASSETLOCATION and PROP_ASSETOWNER from the stored
//                 options.
// CustomAction4   deletes the stored settings if PROP_CLEAN is empty, "yes" or "1".
//
// All three log nothing and always return 0.

#include <shlwapi.h>

#include "base/late_binding.h"
#include "base/registry_text.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "format/format.h"
#include "frame/session.h"

namespace {

// The size of the buffer for a setting, and for a property that controls an action, in bytes with the
// terminator.
constexpr DWORD kSettingSize = 256;

// The size of the buffer for a registry path, in bytes with the terminator.
constexpr unsigned kKeyPathSize = 128;

// Without a folder, so the system looks for the file in the Windows folder.
constexpr char kSettingsFile[] = "ostrel.ini";

// A registry key with the agent's settings; each group is a subkey.
struct SettingsKey {
  HKEY root;
  const char* path;
};

const SettingsKey kUserSettings = {HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel"};
const SettingsKey kServiceSettings = {HKEY_LOCAL_MACHINE,
                                      "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings"};

// Where the agent keeps its settings: the value of "registry" in the section "options" of its settings file.
enum SettingsStore : UINT { kStoreFile = 0, kStoreUserRegistry = 1, kStoreServiceRegistry = 2 };

struct OptionProperty {
  const char* setting;
  const char* property;
};

constexpr OptionProperty kOptionProperties[] = {
    {"site", "PROP_SITE"},
    {"assetID", "PROP_ASSETID"},
    {"assetLocation", "PROP_ASSETLOCATION"},
    {"assetOwner", "PROP_ASSETOWNER"},
};

void ReadRegistrySetting(const SettingsKey& settings, const char* group, const char* name, char* buffer) {
  char path[kKeyPathSize];
  FormatString(path, kKeyPathSize, "%s\\%s", settings.path, group);
  RegistryKey key;
  if (!key.keep(RegOpenKeyExA(settings.root, path, 0, KEY_QUERY_VALUE, key.put()) == ERROR_SUCCESS)) return;
  ReadRegistryText(key.get(), name, buffer, kSettingSize);
}

// Reads a setting into `buffer` (kSettingSize bytes); leaves it empty if there is none. Looks up
// where the settings are kept again for each one.
void ReadClientSetting(const char* group, const char* name, char* buffer) {
  FillBytes(buffer, 0, kSettingSize);
  switch (GetPrivateProfileIntA("options", "registry", kStoreFile, kSettingsFile)) {
    case kStoreFile:
      GetPrivateProfileStringA(group, name, "", buffer, kSettingSize, kSettingsFile);
      break;
    case kStoreUserRegistry:
      ReadRegistrySetting(kUserSettings, group, name, buffer);
      break;
    case kStoreServiceRegistry:
      ReadRegistrySetting(kServiceSettings, group, name, buffer);
      break;
  }
}

// Sets `property` to a stored setting; leaves the property unchanged if the setting is missing or empty.
void PublishSetting(MSIHANDLE session, const char* group, const char* name, const char* property) {
  char value[kSettingSize];
  ReadClientSetting(group, name, value);
  if (value[0]) MsiSetPropertyA(session, property, value);
}

}  // namespace

extern "C" UINT WINAPI CustomAction3(MSIHANDLE session) {
  char host[kSettingSize];
  if (!ReadShortProperty(session, "PROP_HOSTNAME", host)) return ERROR_SUCCESS;
  // "vantor" is the default of the dialogs, not a choice of the user.
  if (host[0] && TxtCompareA(host, "vantor") != 0) return ERROR_SUCCESS;
  PublishSetting(session, "logon", "host", "PROP_HOSTNAME");
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction26(MSIHANDLE session) {
  for (const OptionProperty& option : kOptionProperties) {
    PublishSetting(session, "options", option.setting, option.property);
  }
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction4(MSIHANDLE session) {
  char clean[kSettingSize];
  if (!ReadShortProperty(session, "PROP_CLEAN", clean)) return ERROR_SUCCESS;
  // On purpose: an empty value, and so an unset property, deletes the settings too.
  if (clean[0] && TxtCompareA(clean, "yes") != 0 && TxtCompareA(clean, "1") != 0) return ERROR_SUCCESS;

  const SettingsKey keys[] = {kUserSettings, kServiceSettings};
  for (const SettingsKey& key : keys) RegDeleteKeyA(key.root, key.path);

  // On purpose: the name is looked up without the suffix of the 8-bit or the wide form. If the library does
  // not export that name, keys that have subkeys are not deleted.
  Module shellApi(LoadLate("SHLWAPI.DLL"));
  if (auto* deleteKey = FindFunction<decltype(SHDeleteKeyA)>(shellApi.get(), "SHDeleteKey")) {
    for (const SettingsKey& key : keys) deleteKey(key.root, key.path);
  }
  return ERROR_SUCCESS;
}
