// The client agent's stored settings.
//
// CustomAction3   fills PROP_HOSTNAME from the stored host, unless a host is given already.
// CustomAction26  fills PROP_SITE, PROP_ASSETID, PROP_ASSETLOCATION and PROP_ASSETOWNER
//                 from the stored options.
// CustomAction4   deletes the stored settings when PROP_CLEAN asks for it.
//
// All three are silent and return 0 in every outcome.

#include <shlwapi.h>

#include "base/late_binding.h"
#include "base/registry_text.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "format/format.h"
#include "frame/session.h"

namespace {

// The buffer of a setting, and of a property that steers an action, in bytes with the terminator.
constexpr DWORD kSettingSize = 256;

// The buffer of a registry path, in bytes with the terminator.
constexpr unsigned kKeyPathSize = 128;

// Without a folder: the system looks for the file in the Windows folder.
constexpr char kSettingsFile[] = "ostrel.ini";

// A key with the agent's settings, one subkey a group.
struct SettingsKey {
  HKEY root;
  const char* path;
};

const SettingsKey kUserSettings = {HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel"};
const SettingsKey kServiceSettings = {HKEY_LOCAL_MACHINE,
                                      "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings"};

// Where the agent keeps its settings: the value of the switch in its settings file.
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

// Reads a setting into `buffer` (kSettingSize bytes), which stays empty when there is none. The switch is
// read anew for every setting.
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

// Sets `property` to a stored setting; without one the property stays as it is.
void PublishSetting(MSIHANDLE session, const char* group, const char* name, const char* property) {
  char value[kSettingSize];
  ReadClientSetting(group, name, value);
  if (value[0]) MsiSetPropertyA(session, property, value);
}

}  // namespace

extern "C" UINT WINAPI CustomAction3(MSIHANDLE session) {
  char host[kSettingSize];
  if (!ReadShortProperty(session, "PROP_HOSTNAME", host)) return ERROR_SUCCESS;
  // "vantor" is the default of the dialogs, not a choice that somebody made.
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
  // Deliberate: an empty value, and so an unset property, cleans too.
  if (clean[0] && TxtCompareA(clean, "yes") != 0 && TxtCompareA(clean, "1") != 0) return ERROR_SUCCESS;

  const SettingsKey keys[] = {kUserSettings, kServiceSettings};
  for (const SettingsKey& key : keys) RegDeleteKeyA(key.root, key.path);

  // Deliberate: the name is looked up as it stands, without the suffix of the 8-bit or the wide form; where
  // the library does not export it, keys that have subkeys stay.
  Module shellApi(LoadLate("SHLWAPI.DLL"));
  if (auto* deleteKey = FindFunction<decltype(SHDeleteKeyA)>(shellApi.get(), "SHDeleteKey")) {
    for (const SettingsKey& key : keys) deleteKey(key.root, key.path);
  }
  return ERROR_SUCCESS;
}
