// CustomAction3, CustomAction4 and CustomAction26: the agent's stored settings.

#include "rig/action_test.h"

namespace client_settings_test {

constexpr char kFile[] = "ostrel.ini";
constexpr char kUserKey[] = "HKEY_CURRENT_USER\\Software\\Quillfern\\Ostrel";
constexpr char kServiceKey[] = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings";

// Writes a setting to the store that the switch selects.
void Store(rig::World& world, const std::string& store, const std::string& group, const std::string& name,
           const std::string& value) {
  world.profile.Set(kFile, "options", "registry", store);
  if (store == "0") world.profile.Set(kFile, group, name, value);
  if (store == "1") world.registry.SetText(std::string(kUserKey) + "\\" + group, name, value);
  if (store == "2") world.registry.SetText(std::string(kServiceKey) + "\\" + group, name, value);
}

void StoreOptions(rig::World& world, const std::string& store) {
  Store(world, store, "options", "site", "Lund");
  Store(world, store, "options", "assetID", "A-17");
  Store(world, store, "options", "assetLocation", "Floor 3");
  Store(world, store, "options", "assetOwner", "Finance");
}

class HostTest : public rig::ActionTest {};

TEST_F(HostTest, TakesTheHostOfTheSettingsFile) {
  Store(TheWorld(), "0", "logon", "host", "meter.example");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_HOSTNAME", *, *) = 0)",
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 0)",
      R"(GetPrivateProfileStringA("logon", "host", "", *, 256, "ostrel.ini") = 13)",
      R"(MsiSetPropertyA(session, "PROP_HOSTNAME", "meter.example") = 0)",
  });
  EXPECT_LOG({});
}

TEST_F(HostTest, TakesTheHostOfTheUserRegistry) {
  Store(TheWorld(), "1", "logon", "host", "meter.example");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_HOSTNAME", *, *) = 0)",
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 1)",
      R"(RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel\\logon", 0, 0x1, *) = 0)",
      R"(RegQueryValueExA(key#1, "host", null, null, *, *) = 0)",
      R"(RegCloseKey(key#1) = 0)",
      R"(MsiSetPropertyA(session, "PROP_HOSTNAME", "meter.example") = 0)",
  });
}

TEST_F(HostTest, TakesTheHostOfTheServiceRegistry) {
  Store(TheWorld(), "2", "logon", "host", "meter.example");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_HOSTNAME", *, *) = 0)",
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 2)",
      R"(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings\\logon", 0, 0x1, *) = 0)",
      R"(RegQueryValueExA(key#1, "host", null, null, *, *) = 0)",
      R"(RegCloseKey(key#1) = 0)",
      R"(MsiSetPropertyA(session, "PROP_HOSTNAME", "meter.example") = 0)",
  });
}

TEST_F(HostTest, ReadsNothingUnderAnyOtherSwitch) {
  for (const char* store : {"3", "-1", "4", "256", "4294967294"}) {
    SCOPED_TRACE(store);
    TheRig().trace.Clear();
    for (const char* other : {"0", "1", "2"}) Store(TheWorld(), other, "logon", "host", "meter.example");
    TheWorld().profile.Set(kFile, "options", "registry", store);
    EXPECT_EQ(Run(3), 0u);
    EXPECT_EQ(TheRig().trace.Lines().size(), 2u);
    EXPECT_PUBLISHED({});
  }
}

TEST_F(HostTest, ReplacesTheDefaultOfTheDialogs) {
  Installer().Set("PROP_HOSTNAME", "vantor");
  Store(TheWorld(), "0", "logon", "host", "meter.example");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_PUBLISHED({"PROP_HOSTNAME = meter.example"});
}

TEST_F(HostTest, KeepsAHostThatIsGiven) {
  for (const char* given : {"other.example", "Vantor", "vantor ", "vanto", "vantor2", " "}) {
    SCOPED_TRACE(given);
    TheRig().trace.Clear();
    Installer().Set("PROP_HOSTNAME", given);
    Store(TheWorld(), "0", "logon", "host", "meter.example");
    EXPECT_EQ(Run(3), 0u);
    EXPECT_TRACE({R"(MsiGetPropertyA(session, "PROP_HOSTNAME", *, *) = 0)"});
    EXPECT_EQ(Installer().Get("PROP_HOSTNAME"), given);
  }
}

TEST_F(HostTest, LeavesTheDefaultIfNoHostIsStored) {
  Installer().Set("PROP_HOSTNAME", "vantor");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_PUBLISHED({});
  EXPECT_EQ(Installer().Get("PROP_HOSTNAME"), "vantor");
}

TEST_F(HostTest, LeavesTheDefaultIfTheRegistryKeyIsMissing) {
  for (const char* store : {"1", "2"}) {
    TheWorld().profile.Set(kFile, "options", "registry", store);
    EXPECT_EQ(Run(3), 0u);
    EXPECT_PUBLISHED({});
  }
}

TEST_F(HostTest, LeavesTheDefaultIfTheValueIsMissing) {
  Store(TheWorld(), "1", "logon", "port", "80");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(HostTest, DoesNothingWhenThePropertyCannotBeRead) {
  Installer().FailReading("PROP_HOSTNAME");
  Store(TheWorld(), "0", "logon", "host", "meter.example");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_TRACE({R"(MsiGetPropertyA(session, "PROP_HOSTNAME", *, *) = 1627)"});
}

TEST_F(HostTest, KeepsAPropertyTooLongToBeRead) {
  Store(TheWorld(), "0", "logon", "host", "meter.example");
  for (size_t length : {255u, 256u, 257u}) {
    SCOPED_TRACE(length);
    TheRig().trace.Clear();
    Installer().Set("PROP_HOSTNAME", std::string(length, 'h'));
    EXPECT_EQ(Run(3), 0u);
    EXPECT_TRACE({std::string(R"(MsiGetPropertyA(session, "PROP_HOSTNAME", *, *) = )") +
                  (length < 256 ? "0" : "234")});
  }
}

// What each store returns for a value of so many characters: the file cuts it, the registry drops it if it
// does not fit.
TEST_F(HostTest, CutsOrDropsValuesThatAreTooLong) {
  struct Case {
    const char* store;
    size_t length;
    size_t published;
  };
  for (const Case& c : {Case{"0", 255, 255},
                        {"0", 256, 255},
                        {"0", 257, 255},  //
                        {"1", 255, 255},
                        {"1", 256, 0},
                        {"1", 257, 0},  //
                        {"2", 255, 255},
                        {"2", 256, 0},
                        {"2", 257, 0}}) {
    SCOPED_TRACE(std::string(c.store) + ": " + std::to_string(c.length));
    Installer().Set("PROP_HOSTNAME", "");
    Store(TheWorld(), c.store, "logon", "host", std::string(c.length, 'h'));
    EXPECT_EQ(Run(3), 0u);
    EXPECT_EQ(Installer().Get("PROP_HOSTNAME"), std::string(c.published, 'h'));
  }
}

TEST_F(HostTest, TakesTheBytesOfARegistryValueWhateverItsType) {
  struct Case {
    DWORD type;
    std::string bytes;
    std::string published;
  };
  const std::string key = std::string(kUserKey) + "\\logon";
  TheWorld().profile.Set(kFile, "options", "registry", "1");
  for (const Case& c : {Case{REG_SZ, "unterminated", "unterminated"},
                        {REG_BINARY, std::string("binary\0", 7), "binary"},
                        {REG_BINARY, std::string("first\0second", 12), "first"},
                        {REG_DWORD, std::string("AB\0\0", 4), "AB"},
                        {REG_BINARY, std::string(256, 'x'), std::string(255, 'x')},
                        {REG_BINARY, std::string(257, 'x'), ""},
                        {REG_BINARY, "", ""},
                        {REG_SZ, std::string("\0x", 2), ""}}) {
    SCOPED_TRACE(c.bytes);
    Installer().Set("PROP_HOSTNAME", "");
    TheRegistry().SetBytes(key, "host", c.type, c.bytes);
    EXPECT_EQ(Run(3), 0u);
    EXPECT_EQ(Installer().Get("PROP_HOSTNAME"), c.published);
  }
}

TEST_F(HostTest, IgnoresWhatAFailedQueryLeavesInTheBuffer) {
  Store(TheWorld(), "1", "logon", "host", "meter.example");
  TheWorld().On<::RegQueryValueExA>([](HKEY, LPCSTR, DWORD*, DWORD*, BYTE* data, DWORD*) -> LSTATUS {
    data[0] = 'x';
    return ERROR_MORE_DATA;
  });
  EXPECT_EQ(Run(3), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(HostTest, CarriesAHostOutsideTheAsciiRange) {
  Store(TheWorld(), "0", "logon", "host", "m\xE4tare.example");
  EXPECT_EQ(Run(3), 0u);
  EXPECT_PUBLISHED({"PROP_HOSTNAME = m\xC3\xA4tare.example"});
}

TEST_F(HostTest, ReturnsZeroWhenThePropertyCannotBeSet) {
  Store(TheWorld(), "0", "logon", "host", "meter.example");
  Installer().FailSetting("PROP_HOSTNAME");
  EXPECT_EQ(Run(3), 0u);
}

TEST_F(HostTest, SurvivesTheFailureOfEachCall) {
  for (const char* store : {"0", "1", "2"}) {
    SCOPED_TRACE(store);
    FailEachCall(3, [&](rig::World& world) { Store(world, store, "logon", "host", "meter.example"); },
                 {.check = [](const rig::SweepRun& run) {
                   // The host depends on every call that can fail.
                   EXPECT_EQ(run.scene.world.installer.Get("PROP_HOSTNAME"), "") << run.call;
                   EXPECT_TRUE(run.scene.world.installer.Log().empty());
                 }});
  }
}

class OptionsTest : public rig::ActionTest {};

TEST_F(OptionsTest, FillsTheFourPropertiesFromTheSettingsFile) {
  StoreOptions(TheWorld(), "0");
  EXPECT_EQ(Run(26), 0u);
  EXPECT_TRACE({
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 0)",
      R"(GetPrivateProfileStringA("options", "site", "", *, 256, "ostrel.ini") = 4)",
      R"(MsiSetPropertyA(session, "PROP_SITE", "Lund") = 0)",
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 0)",
      R"(GetPrivateProfileStringA("options", "assetID", "", *, 256, "ostrel.ini") = 4)",
      R"(MsiSetPropertyA(session, "PROP_ASSETID", "A-17") = 0)",
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 0)",
      R"(GetPrivateProfileStringA("options", "assetLocation", "", *, 256, "ostrel.ini") = 7)",
      R"(MsiSetPropertyA(session, "PROP_ASSETLOCATION", "Floor 3") = 0)",
      R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = 0)",
      R"(GetPrivateProfileStringA("options", "assetOwner", "", *, 256, "ostrel.ini") = 7)",
      R"(MsiSetPropertyA(session, "PROP_ASSETOWNER", "Finance") = 0)",
  });
  EXPECT_LOG({});
}

TEST_F(OptionsTest, FillsTheFourPropertiesFromEitherRegistryStore) {
  for (const char* store : {"1", "2"}) {
    SCOPED_TRACE(store);
    TheRig().trace.Clear();
    StoreOptions(TheWorld(), store);
    EXPECT_EQ(Run(26), 0u);
    const std::string root = store[0] == '1' ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE";
    const std::string path = store[0] == '1'
                                 ? R"(Software\\Quillfern\\Ostrel\\options)"
                                 : R"(SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings\\options)";
    std::vector<std::string> expected;
    int key = store[0] == '1' ? 1 : 5;
    for (const auto& [setting, publish] : {std::pair{"site", R"("PROP_SITE", "Lund")"},
                                           {"assetID", R"("PROP_ASSETID", "A-17")"},
                                           {"assetLocation", R"("PROP_ASSETLOCATION", "Floor 3")"},
                                           {"assetOwner", R"("PROP_ASSETOWNER", "Finance")"}}) {
      const std::string name = "key#" + std::to_string(key++);
      expected.push_back(std::string(R"(GetPrivateProfileIntA("options", "registry", 0, "ostrel.ini") = )") +
                         store);
      expected.push_back("RegOpenKeyExA(" + root + ", \"" + path + "\", 0, 0x1, *) = 0");
      expected.push_back("RegQueryValueExA(" + name + ", \"" + setting + "\", null, null, *, *) = 0");
      expected.push_back("RegCloseKey(" + name + ") = 0");
      expected.push_back(std::string("MsiSetPropertyA(session, ") + publish + ") = 0");
    }
    EXPECT_TRACE({expected});
  }
}

TEST_F(OptionsTest, OverwritesWhatIsStoredAndLeavesTheRest) {
  Installer().Set("PROP_SITE", "given");
  Installer().Set("PROP_ASSETID", "given");
  Installer().Set("PROP_ASSETLOCATION", "given");
  Store(TheWorld(), "0", "options", "site", "Lund");
  Store(TheWorld(), "0", "options", "assetID", "");
  EXPECT_EQ(Run(26), 0u);
  EXPECT_PUBLISHED({"PROP_SITE = Lund"});
  EXPECT_EQ(Installer().Get("PROP_ASSETID"), "given");
  EXPECT_EQ(Installer().Get("PROP_ASSETLOCATION"), "given");
  EXPECT_EQ(Installer().Get("PROP_ASSETOWNER"), "");
}

TEST_F(OptionsTest, ReadsTheSwitchAgainForEachSetting) {
  StoreOptions(TheWorld(), "0");
  TheRegistry().SetText(std::string(kUserKey) + "\\options", "assetID", "from the registry");
  UINT calls = 0;
  TheWorld().On<::GetPrivateProfileIntA>([&](LPCSTR, LPCSTR, INT, LPCSTR) -> UINT { return calls++ % 4; });
  EXPECT_EQ(Run(26), 0u);
  EXPECT_EQ(calls, 4u);
  EXPECT_PUBLISHED({"PROP_SITE = Lund", "PROP_ASSETID = from the registry"});
}

TEST_F(OptionsTest, PublishesNothingUnderAnotherSwitchOrWithoutKeys) {
  for (const char* store : {"1", "2", "3"}) {
    TheWorld().profile.Set(kFile, "options", "registry", store);
    EXPECT_EQ(Run(26), 0u);
  }
  EXPECT_PUBLISHED({});
}

TEST_F(OptionsTest, CutsOrDropsValuesThatAreTooLong) {
  for (size_t length : {255u, 256u, 257u}) {
    for (const char* store : {"0", "1", "2"}) {
      SCOPED_TRACE(std::string(store) + ": " + std::to_string(length));
      const size_t expected = length == 255 || store[0] == '0' ? 255 : 0;
      for (const auto& [setting, property] : {std::pair{"site", "PROP_SITE"},
                                              {"assetID", "PROP_ASSETID"},
                                              {"assetLocation", "PROP_ASSETLOCATION"},
                                              {"assetOwner", "PROP_ASSETOWNER"}}) {
        Installer().Set(property, "");
        Store(TheWorld(), store, "options", setting, std::string(length, 'v'));
      }
      EXPECT_EQ(Run(26), 0u);
      for (const char* property : {"PROP_SITE", "PROP_ASSETID", "PROP_ASSETLOCATION", "PROP_ASSETOWNER"}) {
        EXPECT_EQ(Installer().Get(property), std::string(expected, 'v'));
      }
    }
  }
}

TEST_F(OptionsTest, SurvivesTheFailureOfEachCall) {
  for (const char* store : {"0", "1", "2"}) {
    SCOPED_TRACE(store);
    FailEachCall(26, [&](rig::World& world) { StoreOptions(world, store); },
                 {.check = [](const rig::SweepRun& run) {
                   // The setting whose call failed is missing, the other three are there.
                   EXPECT_EQ(run.scene.world.installer.Published().size(), 3u) << run.call;
                 }});
  }
}

class CleanTest : public rig::ActionTest {
 protected:
  static void StoreFlat(rig::World& world) {
    world.registry.SetText(kUserKey, "version", "1");
    world.registry.SetText(kServiceKey, "version", "1");
  }
  static void StoreNested(rig::World& world) {
    StoreFlat(world);
    world.registry.SetText(std::string(kUserKey) + "\\logon", "host", "meter.example");
    world.registry.SetText(std::string(kServiceKey) + "\\logon", "host", "meter.example");
  }
  bool SettingsExist() { return TheRegistry().Exists(kUserKey) && TheRegistry().Exists(kServiceKey); }
  bool SettingsAreGone() { return !TheRegistry().Exists(kUserKey) && !TheRegistry().Exists(kServiceKey); }
};

TEST_F(CleanTest, DeletesKeysWithoutSubkeys) {
  Installer().Set("PROP_CLEAN", "yes");
  StoreFlat(TheWorld());
  EXPECT_EQ(Run(4), 0u);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_CLEAN", *, *) = 0)",
      R"(RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel") = 0)",
      R"(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings") = 0)",
      R"(SetErrorMode(0x8001) = 16384)",
      R"(LoadLibraryA("SHLWAPI.DLL") = SHLWAPI)",
      R"(SetErrorMode(0x4000) = 32769)",
      R"(GetProcAddress(SHLWAPI, "SHDeleteKey") = null)",
      R"(FreeLibrary(SHLWAPI) = 1)",
  });
  EXPECT_TRUE(SettingsAreGone());
  EXPECT_LOG({});
}

TEST_F(CleanTest, DeletesKeysWithSubkeysIfTheTreeFunctionExists) {
  TheModules().Provide("SHLWAPI", "SHDeleteKey");
  Installer().Set("PROP_CLEAN", "1");
  StoreNested(TheWorld());
  EXPECT_EQ(Run(4), 0u);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_CLEAN", *, *) = 0)",
      R"(RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel") = 5)",
      R"(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings") = 5)",
      R"(SetErrorMode(0x8001) = 16384)",
      R"(LoadLibraryA("SHLWAPI.DLL") = SHLWAPI)",
      R"(SetErrorMode(0x4000) = 32769)",
      R"(GetProcAddress(SHLWAPI, "SHDeleteKey") = *)",
      R"(SHDeleteKey(HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel") = 0)",
      R"(SHDeleteKey(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings") = 0)",
      R"(FreeLibrary(SHLWAPI) = 1)",
  });
  EXPECT_TRUE(SettingsAreGone());
}

TEST_F(CleanTest, LeavesKeysWithSubkeysIfTheTreeFunctionIsMissing) {
  StoreNested(TheWorld());
  EXPECT_EQ(Run(4), 0u);
  EXPECT_TRUE(SettingsExist());
}

TEST_F(CleanTest, LooksForNoFunctionIfTheModuleIsMissing) {
  TheModules().Missing("SHLWAPI");
  EXPECT_EQ(Run(4), 0u);
  EXPECT_TRACE({
      R"(MsiGetPropertyA(session, "PROP_CLEAN", *, *) = 0)",
      R"(RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\Quillfern\\Ostrel") = 2)",
      R"(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings") = 2)",
      R"(SetErrorMode(0x8001) = 16384)",
      R"(LoadLibraryA("SHLWAPI.DLL") = null)",
      R"(SetErrorMode(0x4000) = 32769)",
  });
}

TEST_F(CleanTest, CleansForTheseValues) {
  for (const char* value : {"yes", "1", ""}) {
    SCOPED_TRACE(value);
    Installer().Set("PROP_CLEAN", value);
    StoreFlat(TheWorld());
    EXPECT_EQ(Run(4), 0u);
    EXPECT_TRUE(SettingsAreGone());
  }
}

TEST_F(CleanTest, KeepsForEveryOtherValue) {
  for (const std::string& value :
       {std::string("Yes"), std::string("YES"), std::string("true"), std::string("no"), std::string("0"),
        std::string("11"), std::string("yes "), std::string("ye"), std::string(255, 'y'),
        std::string(256, 'y'), std::string(257, 'y')}) {
    SCOPED_TRACE(value);
    TheRig().trace.Clear();
    Installer().Set("PROP_CLEAN", value);
    StoreFlat(TheWorld());
    EXPECT_EQ(Run(4), 0u);
    EXPECT_TRUE(SettingsExist());
    EXPECT_EQ(TheRig().trace.Lines().size(), 1u);
  }
}

TEST_F(CleanTest, KeepsWhenThePropertyCannotBeRead) {
  Installer().FailReading("PROP_CLEAN");
  StoreFlat(TheWorld());
  EXPECT_EQ(Run(4), 0u);
  EXPECT_TRUE(SettingsExist());
}

TEST_F(CleanTest, CleansIfThePropertyWasNeverSet) {
  StoreFlat(TheWorld());
  EXPECT_EQ(Run(4), 0u);
  EXPECT_TRUE(SettingsAreGone());
}

TEST_F(CleanTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(4,
               [](rig::World& world) {
                 world.modules.Provide("SHLWAPI", "SHDeleteKey");
                 StoreNested(world);
               },
               {.check = [](const rig::SweepRun& run) {
                 const rig::Registry& registry = run.scene.world.registry;
                 const bool userKeyIsGone = !registry.Exists(kUserKey);
                 const bool serviceKeyIsGone = !registry.Exists(kServiceKey);
                 if (run.name == "SHDeleteKey") {
                   // The other key is deleted anyway.
                   EXPECT_NE(userKeyIsGone, serviceKeyIsGone) << run.call;
                 } else {
                   // If the plain deletion fails, that of the tree still deletes the key. Without the
                   // property or the function, nothing is deleted.
                   EXPECT_EQ(userKeyIsGone, run.name == "RegDeleteKeyA") << run.call;
                   EXPECT_EQ(serviceKeyIsGone, userKeyIsGone) << run.call;
                 }
               }});
}

}  // namespace client_settings_test
