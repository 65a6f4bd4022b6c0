// What a run of the client package does with stored settings and with its command line.

#include <algorithm>

#include "install/install_rig.h"

namespace install {
namespace {

class SettingsTest : public InstalledClientTest {
 protected:
  // Runs the package over itself, and expects that it succeeds and writes its version again.
  const InstallerRun& RunOverItself(const std::wstring& properties = L"") {
    const InstallerRun& run = Reinstall(Client(), properties);
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.SetupLines(), Client().InstallLines());
    EXPECT_EQ(Client().ShownVersion(0), Client().displayVersion);
    EXPECT_TRUE(FileExists(InstalledFile()));
    return run;
  }

  void ExpectCleaning(const std::wstring& properties, bool cleans);
};

TEST_F(SettingsTest, HostOfTheCommandLineIsKeptAndOtherFieldsAreReplaced) {
  FillAllStores(kUserStore);
  Settings expected = SettingsOf(kUserStore);
  expected.host = "chosen.example";
  EXPECT_EQ(PublishedSettings(RunOverItself(L"PROP_HOSTNAME=chosen.example PROP_SITE=chosen")), expected);
}

TEST_F(SettingsTest, EmptyHostOfTheCommandLineIsReplaced) {
  FillAllStores(kServiceStore);
  EXPECT_EQ(PublishedSettings(RunOverItself(L"PROP_HOSTNAME=\"\"")), SettingsOf(kServiceStore));
}

TEST_F(SettingsTest, MissingKeysChangeNothing) {
  WriteSettingsFile(kUserStore, SettingsOf(kFileStore));
  const Settings expected = {"vantor", "chosen", "", "", ""};
  EXPECT_EQ(PublishedSettings(RunOverItself(L"PROP_SITE=chosen")), expected);
}

// The stores and the properties are read and set through the system's 8-bit functions, so a setting passes
// through the system's 8-bit code page. Under Wine, whose locale here is English, that is 1252.
TEST_F(SettingsTest, SettingsOutsideAsciiPassThroughTheSystemsCodePage) {
  ASSERT_EQ(GetACP(), 1252u);
  // Two characters of the code page; the file has one byte for each.
  Settings settings = SettingsOf(kFileStore);
  settings.host = "z\u00E4hler-\u20AC.example";
  WriteSettingsFile(kFileStore, settings, 1252);
  EXPECT_EQ(PublishedSettings(RunOverItself()), settings);
}

TEST_F(SettingsTest, CharactersOutsideTheCodePageAreLost) {
  ASSERT_EQ(GetACP(), 1252u);
  FillAllStores(kUserStore);
  Settings settings = SettingsOf(kUserStore);
  settings.host = "z\u00E4hler-\u0416.example";
  WriteRegistrySettings(kUserStore, settings);
  settings.host = "z\u00E4hler-?.example";
  EXPECT_EQ(PublishedSettings(RunOverItself()), settings);
}

TEST_F(SettingsTest, WithDialogsTheInterfaceSequenceReadsTheSettings) {
  FillAllStores(kFileStore);
  const std::wstring level = ByEngine<std::wstring>(Differs::kInterface, L"", L" /qr");
  const InstallerRun& run =
      Msiexec("dialogs", L"/i \"" + Client().path + L"\"" + level + L" REINSTALL=ALL REINSTALLMODE=omus");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(run.Property("UILevel"), ByEngine<std::string>(Differs::kInterface, "5", "4"));
  EXPECT_EQ(PublishedSettings(run), SettingsOf(kFileStore));
  EXPECT_EQ(run.SetupLines(), Client().InstallLines());
  // The level of the user interface is lowered directly before the execute sequence begins.
  std::vector<std::string> starts;
  for (const std::string& line : run.LinesWith("Action start"))
    starts.push_back(line.substr(line.rfind(' ') + 1));
  auto lowered = std::find(starts.begin(), starts.end(), "CustomAction2.");
  ASSERT_NE(lowered, starts.end());
  ASSERT_NE(lowered + 1, starts.end());
  EXPECT_EQ(lowered[1], "ExecuteAction.");
}

TEST_F(SettingsTest, WithoutAVersionTheEnginesOwnStays) {
  const InstallerRun& run = Reinstall(Client(), L"PROP_VERSION=\"\"");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(run.SetupLines(), TaskLines());
  EXPECT_EQ(Client().ShownVersion(0), Client().version);
}

// ---- PROP_CLEAN

// With `properties` on the command line, the service's key, which has no subkeys here, is deleted or kept;
// the user's key, which has some, always stays.
void SettingsTest::ExpectCleaning(const std::wstring& properties, bool cleans) {
  // The name that the library looks up to delete whole trees; no Windows exports it.
  HMODULE shellApi = LoadLibraryA("SHLWAPI.DLL");
  ASSERT_NE(shellApi, nullptr);
  ASSERT_EQ(reinterpret_cast<void*>(GetProcAddress(shellApi, "SHDeleteKey")), nullptr);

  WriteSettingsFile(kFileStore, SettingsOf(kFileStore));
  WriteRegistrySettings(kUserStore, SettingsOf(kUserStore));
  SetRegistryText(HKEY_LOCAL_MACHINE, kServiceKey, "flat", "without subkeys");
  const InstallerRun& run = RunOverItself(properties);

  EXPECT_EQ(KeyExists(HKEY_LOCAL_MACHINE, kServiceKey), !cleans);
  EXPECT_EQ(GetRegistryText(HKEY_CURRENT_USER, std::string(kUserKey) + "\\logon", "host"),
            SettingsOf(kUserStore).host);
  // The settings file is never cleaned, and was read before.
  EXPECT_TRUE(FileExists(SettingsFile()));
  EXPECT_EQ(PublishedSettings(run), SettingsOf(kFileStore));
}

TEST_F(SettingsTest, CleanNotGivenKeeps) {
  ExpectCleaning(L"", false);
}
TEST_F(SettingsTest, CleanEmptyDeletes) {
  ExpectCleaning(L"PROP_CLEAN=\"\"", true);
}
TEST_F(SettingsTest, CleanYesDeletes) {
  ExpectCleaning(L"PROP_CLEAN=yes", true);
}
TEST_F(SettingsTest, CleanOneDeletes) {
  ExpectCleaning(L"PROP_CLEAN=1", true);
}
TEST_F(SettingsTest, CleanCapitalYesKeeps) {
  ExpectCleaning(L"PROP_CLEAN=Yes", false);
}
TEST_F(SettingsTest, CleanTrueKeeps) {
  ExpectCleaning(L"PROP_CLEAN=true", false);
}

TEST_F(SettingsTest, CleaningTreatsBothKeysAlike) {
  SetRegistryText(HKEY_CURRENT_USER, kUserKey, "flat", "without subkeys");
  WriteRegistrySettings(kServiceStore, SettingsOf(kServiceStore));
  RunOverItself(L"PROP_CLEAN=yes");
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kUserKey));
  EXPECT_EQ(GetRegistryText(HKEY_LOCAL_MACHINE, std::string(kServiceKey) + "\\logon", "host"),
            SettingsOf(kServiceStore).host);
}

}  // namespace
}  // namespace install
