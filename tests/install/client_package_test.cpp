// The life of the client package: installed, upgraded to the next version and removed, with values in each of
// the settings stores. settings_test.cpp runs the same version over itself.

#include "install/install_rig.h"

namespace install {
namespace {

// Properties that nothing sets are absent; the host has the package's default.
const Settings kNothingStored = {"vantor", "", "", "", ""};

class ClientPackageTest : public InstallTest {
 protected:
  void TearDown() override {
    for (const Package* package : {&Client(), &NewerClient()}) {
      if (package->IsInstalled()) Msiexec("clear-up", L"/x \"" + package->path + L"\" /qn");
    }
    InstallTest::TearDown();
  }

  // Checks the result of every run that installs.
  void ExpectInstalled(const InstallerRun& run, const Package& package) {
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.SetupLines(), package.InstallLines());
    EXPECT_TRUE(package.IsInstalled());
    EXPECT_EQ(package.ShownVersion(0), package.displayVersion);
    EXPECT_EQ(package.ShownVersion(KEY_WOW64_64KEY), package.displayVersion);
    EXPECT_EQ(package.ShownVersion(KEY_WOW64_32KEY), std::nullopt);
    EXPECT_TRUE(FileExists(InstalledFile()));
  }

  void ExpectRemoved(const InstallerRun& run, const Package& package) {
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.SetupLines(), RemovalLines());
    EXPECT_FALSE(package.IsInstalled());
    EXPECT_EQ(package.ShownVersion(KEY_WOW64_64KEY), std::nullopt);
    EXPECT_FALSE(FileExists(InstalledFile()));
  }

  void ExpectAllStoresFull() {
    ExpectUsersStoresFull();
    EXPECT_EQ(GetRegistryText(HKEY_LOCAL_MACHINE, std::string(kServiceKey) + "\\options", "site"),
              SettingsOf(kServiceStore).site);
  }

  // The stores that are not deleted with the service.
  void ExpectUsersStoresFull() {
    EXPECT_TRUE(FileExists(SettingsFile()));
    EXPECT_EQ(GetRegistryText(HKEY_CURRENT_USER, std::string(kUserKey) + "\\logon", "host"),
              SettingsOf(kUserStore).host);
  }
};

class StoreTest : public ClientPackageTest, public testing::WithParamInterface<Store> {};

TEST_P(StoreTest, SettingsSurviveUpgradesAndTheServicesSettingsGoWithIt) {
  FillAllStores(GetParam());
  const Settings stored = SettingsOf(GetParam());

  const InstallerRun& installed = Install(Client());
  ExpectInstalled(installed, Client());
  EXPECT_EQ(PublishedSettings(installed), stored);

  const InstallerRun& upgraded = Install(NewerClient());
  ExpectInstalled(upgraded, NewerClient());
  EXPECT_EQ(PublishedSettings(upgraded), stored);
  EXPECT_FALSE(Client().IsInstalled());
  EXPECT_EQ(Client().ShownVersion(0), std::nullopt);
  ExpectAllStoresFull();

  // A removal does not need the settings and does not change them; the service's key is deleted with the
  // service.
  const InstallerRun& removed = Remove(NewerClient());
  ExpectRemoved(removed, NewerClient());
  EXPECT_EQ(PublishedSettings(removed), kNothingStored);
  ExpectUsersStoresFull();
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kServiceKeyAbove));
}

std::string StoreName(const testing::TestParamInfo<Store>& info) {
  const char* const names[] = {"File", "User", "Service"};
  return names[info.param];
}

INSTANTIATE_TEST_SUITE_P(EachStore, StoreTest, testing::Values(kFileStore, kUserStore, kServiceStore),
                         StoreName);

TEST_F(ClientPackageTest, OtherSwitchValuesReadNoStore) {
  FillAllStores(kNoStore);
  const InstallerRun& installed = Install(NewerClient());
  ExpectInstalled(installed, NewerClient());
  EXPECT_EQ(PublishedSettings(installed), kNothingStored);
  ExpectAllStoresFull();

  // An older package is refused before it changes anything, even if it is asked to clean.
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kServiceKey);
  SetRegistryText(HKEY_LOCAL_MACHINE, kServiceKey, "flat", "without subkeys");
  const InstallerRun& refused = Install(Client(), L"PROP_CLEAN=yes");
  EXPECT_EQ(refused.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_EQ(refused.SetupLines(), std::vector<std::string>());
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kServiceKey));
  EXPECT_EQ(NewerClient().ShownVersion(0), NewerClient().displayVersion);

  // A removal cleans on request, also the stores that are not deleted with the service.
  DeleteRegistryTree(HKEY_CURRENT_USER, kUserKey);
  SetRegistryText(HKEY_CURRENT_USER, kUserKey, "flat", "without subkeys");
  ExpectRemoved(Remove(NewerClient(), L"PROP_CLEAN=yes"), NewerClient());
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kUserKey));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kServiceKeyAbove));
}

}  // namespace
}  // namespace install
