// A client package of another maker, with its own key: installed, repaired, upgraded and removed while the
// client Ostrel is installed. It does not use Ostrel's folder and key.

#include "install/machine_state.h"

namespace install {
namespace {

const char kProbeKey[] = "HKLM\\SOFTWARE\\Brackwell\\Probe\\";

class OtherClientTest : public AgentTest {
 protected:
  void SetUp() override {
    AgentTest::SetUp();
    ClearAwayProbe();
  }
  void TearDown() override {
    for (const Package* package : {&Probe(), &NewerProbe()}) {
      if (package->IsInstalled()) Msiexec("clear-up", L"/x \"" + package->path + L"\" /qn");
    }
    ClearAwayProbe();
    AgentTest::TearDown();
  }

  /// Returns the lines for what a package adds to its folder, which has a backslash at its end, and to the
  /// registry.
  static Texts Brought(const Package& package, const std::string& name, const std::string& folder) {
    return {"+ " + folder + "probe.exe",
            "+ HKLM\\SOFTWARE\\Brackwell\\",
            std::string("+ ") + kProbeKey,
            std::string("+ ") + kProbeKey + "Folder = \"" + folder + "\"",
            std::string("+ ") + kProbeKey + "Product = \"" + name + "\"",
            "+ " + UninstallKey(name),
            "+ " + UninstallKey(name) + "Comments = \"\"",
            "+ " + UninstallKey(name) + "DisplayName = \"Brackwell Probe\"",
            "+ " + UninstallKey(name) + "DisplayVersion = \"" + package.version + "\"",
            "+ " + UninstallKey(name) + "Publisher = \"Brackwell\"",
            "+ product " + name + " = " + package.version};
  }

  const std::wstring chosen = L"C:\\Probes", another = L"C:\\Another";

 private:
  void ClearAwayProbe() {
    for (const std::wstring& folder : {std::wstring(L"C:\\Program Files\\Brackwell"), chosen, another})
      DeleteTree(folder);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Brackwell");
  }
};

TEST_F(OtherClientTest, LivesBesideTheClientInAFolderOfItsOwn) {
  ASSERT_EQ(Install(Client()).exitCode, 0u);
  const MachineState before = MachineState::Now();
  const std::string folder = FromWide(chosen) + "\\Probe\\";
  const std::string given = "DIR_CLIENT=\"" + FromWide(chosen) + "\\Probe\"";

  const InstallerRun& installed = Install(Probe(), ToWide(given));
  ASSERT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.SetupLines(), Texts());
  // Neither Ostrel's folder nor its product was found.
  EXPECT_EQ(installed.Property("CLIENTFOLDERFOUND"), "");
  EXPECT_EQ(installed.Property("PROP_INSTALLEDCLIENT"), "");
  Texts changes = {"+ C:\\Probes\\", "+ " + folder};
  for (const std::string& line : Brought(Probe(), "{other-client}", folder)) changes.push_back(line);
  const MachineState there = MachineState::Now();
  EXPECT_EQ(there.Since(before), Joined(changes));

  // The folder comes from the package's own key, whatever a command line says.
  const InstallerRun& repaired =
      Reinstall(Probe(), L"DIR_CLIENT=\"" + another + L"\" CLIENTFOLDERFOUND=\"" + another + L"\"");
  EXPECT_EQ(repaired.exitCode, 0u);
  EXPECT_EQ(repaired.Property("DIR_CLIENT"), folder);
  EXPECT_EQ(MachineState::Now().Since(there), "");

  // The newer version is installed into the same folder, and finds the older one.
  const InstallerRun& upgraded = Install(NewerProbe());
  ASSERT_EQ(upgraded.exitCode, 0u);
  EXPECT_EQ(upgraded.Property("DIR_CLIENT"), folder);
  EXPECT_EQ(upgraded.Property("PROP_INSTALLEDCLIENT"), Probe().productCode);
  changes = {"+ C:\\Probes\\", "+ " + folder};
  for (const std::string& line : Brought(NewerProbe(), "{other-client-newer}", folder))
    changes.push_back(line);
  EXPECT_EQ(MachineState::Now().Since(before), Joined(changes));

  // Ostrel has its own folder, and its removal leaves the other client alone.
  const InstallerRun& ostrel = Reinstall(Client());
  EXPECT_EQ(ostrel.exitCode, 0u);
  EXPECT_EQ(ostrel.Property("DIR_CLIENT"), FromWide(kClientFolder) + "\\");
  EXPECT_EQ(ostrel.Property("PROP_INSTALLEDCLIENT"), Client().productCode);
  EXPECT_EQ(MachineState::Now().Since(before), Joined(changes));

  EXPECT_EQ(Remove(NewerProbe()).exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(before),
            ByEngine<std::string>(Differs::kEmptyFolders, "+ C:\\Probes\\\n", ""));
}

}  // namespace
}  // namespace install
