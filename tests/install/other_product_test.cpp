// A package of another product, service and maker, which uses the fragments of a server: installed, upgraded
// and removed while the client and the server are installed; and the same package with only one of the
// fragments.

#include "install/machine_state.h"
#include "install/security_rig.h"

namespace install {
namespace {

const char kGaugeKey[] = "SOFTWARE\\Brackwell\\Gauge";
const char kGaugeService[] = "SYSTEM\\CurrentControlSet\\Services\\Gauge";

class OtherProductTest : public SecurityTest {
 protected:
  void SetUp() override {
    ClearAwayGauge();
    SecurityTest::SetUp();
    machine_.Take();
  }
  void TearDown() override {
    for (const Package* package : {&Gauge(), &NewerGauge(), &Gauge("firewall"), &Gauge("account"),
                                   &Gauge("access"), &Client(), &Server()}) {
      if (package->IsInstalled()) Msiexec("clear-up", L"/x \"" + package->path + L"\" /qn");
    }
    ClearAwayGauge();
    DeleteTree(programs);
    DeleteTree(elsewhere);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMakerKey);
    machine_.GiveBack();
    SecurityTest::TearDown();
  }

  /// Returns the account that the service "Gauge" runs under, and the one that is noted for it.
  static std::string Accounts() {
    return GetRegistryText(HKEY_LOCAL_MACHINE, kGaugeService, "ObjectName").value_or("(none)") + ", " +
           GetRegistryText(HKEY_LOCAL_MACHINE, kGaugeKey, "AccountDomain").value_or("(none)") + "\\" +
           GetRegistryText(HKEY_LOCAL_MACHINE, kGaugeKey, "Account").value_or("(none)");
  }

  /// Returns the library's lines for creating the account and giving it access to the folders.
  static Texts MakingLines() {
    return Expected({SetupLine("creating local service account gauge"),
                     SetupLine("could not grant right to logon as service")});
  }
  Texts AccessLines() const {
    const std::string account = ComputerName() + "\\gauge";
    return Expected({SetupLine("setting ACL for " + account + " on " + account),
                     SetupLine("failure -36 (0xFFFFFFDC) setting ACL for " + account),
                     SetupLine("set ACL (-36) for " + account + "=500 on " + program)});
  }
  static Texts Together(std::initializer_list<Texts> parts) {
    Texts all;
    for (const Texts& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }

  /// Returns the lines for what a package adds: its program, and the service if it has one; up to the state
  /// of the product.
  Texts Brought(const Package& package, const std::string& name, bool hasService) const {
    Texts lines = {"+ C:\\Program Files\\Brackwell\\",      "+ " + program + "\\",
                   "+ " + program + "\\gauge.exe",          "+ C:\\ProgramData\\Brackwell\\",
                   "+ C:\\ProgramData\\Brackwell\\Gauge\\", "+ HKLM\\SOFTWARE\\Brackwell\\",
                   "+ HKLM\\SOFTWARE\\Brackwell\\Gauge\\"};
    if (hasService) {
      lines.push_back("+ HKLM\\SOFTWARE\\Brackwell\\Gauge\\Account = \"gauge\"");
      lines.push_back("+ HKLM\\SOFTWARE\\Brackwell\\Gauge\\AccountDomain = \".\"");
    }
    lines.push_back("+ HKLM\\SOFTWARE\\Brackwell\\Gauge\\Product = \"" + name + "\"");
    lines.push_back("+ " + UninstallKey(name));
    lines.push_back("+ " + UninstallKey(name) + "Comments = \"\"");
    lines.push_back("+ " + UninstallKey(name) + "DisplayName = \"Brackwell Gauge\"");
    lines.push_back("+ " + UninstallKey(name) + "DisplayVersion = \"" + package.version + "\"");
    lines.push_back("+ " + UninstallKey(name) + "Publisher = \"Brackwell\"");
    if (hasService) {
      const std::string service = "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\Gauge\\";
      for (const std::string& line :
           {std::string(), std::string("DisplayName = \"Brackwell Gauge\""), std::string("ErrorControl = 1"),
            "ImagePath = \"" + program + "\\gauge.exe\"", "ObjectName = \"" + ComputerName() + "\\gauge\"",
            std::string("PreshutdownTimeout = 180000"), std::string("Start = 2"), std::string("Type = 16")})
        lines.push_back(service + line);
    }
    lines.push_back("+ product " + name + " = " + package.version);
    if (hasService) lines.push_back("+ service Gauge = running");
    return Expected(lines);
  }
  /// Returns what a removal leaves.
  static std::string Left() {
    return ByEngine<std::string>(Differs::kEmptyFolders, "+ C:\\Program Files\\Brackwell\\\n", "");
  }

  const std::string program = "C:\\Program Files\\Brackwell\\Gauge";

 private:
  static void ClearAwayGauge() {
    DeleteTree(L"C:\\Program Files\\Brackwell");
    DeleteTree(L"C:\\ProgramData\\Brackwell");
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Brackwell");
  }

  AgentMachine machine_;
};

TEST_F(OtherProductTest, LivesBesideClientAndServer) {
  ASSERT_EQ(Install(Client()).exitCode, 0u);
  ASSERT_EQ(Install(Server()).exitCode, 0u);
  const MachineState before = MachineState::Now();

  const InstallerRun& installed = Install(Gauge(), L"PROP_ACCOUNTTYPE=1");
  ASSERT_EQ(installed.exitCode, 0u);
  const Texts firewall = {SetupLine("installing complex firewall rules")};
  EXPECT_EQ(installed.SetupLines(), Together({MakingLines(), AccessLines(), firewall}));
  const MachineState there = MachineState::Now();
  EXPECT_EQ(there.Since(before), Joined(Brought(Gauge(), "{other}", true)));
  const std::string accounts = ComputerName() + "\\gauge, .\\gauge";
  EXPECT_EQ(Accounts(), accounts);

  // The newer version's MajorUpgrade removes the older one directly after InstallFinalize. The account stays,
  // and is not created again.
  const InstallerRun& upgraded = Install(NewerGauge(), L"PROP_ACCOUNTTYPE=1");
  ASSERT_EQ(upgraded.exitCode, 0u);
  EXPECT_EQ(upgraded.SetupLines(), Together({AccessLines(), firewall}));
  EXPECT_EQ(Accounts(), accounts);
  EXPECT_EQ(MachineState::Now().Since(before), Joined(Brought(NewerGauge(), "{other-newer}", true)));
  EXPECT_FALSE(Gauge().IsInstalled());

  const InstallerRun& removed = Remove(NewerGauge());
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(removed.SetupLines(), (Texts{SetupLine("removing complex firewall rules"),
                                         SetupLine("deleting local service account gauge")}));
  EXPECT_EQ(MachineState::Now().Since(before), Left());
}

// After InstallFinalize the product is installed, and its service has the account. A failure there, such as
// that of removing an older version, must not delete the account: Windows Installer leaves the product
// installed.
TEST_F(OtherProductTest, AFailureDirectlyAfterInstallFinalizeDeletesNoAccount) {
  WriteTree(elsewhere, {});
  const std::wstring package = elsewhere + L"\\other.msi";
  for (const auto& [place, isDeleted] : {std::pair(6565, true), std::pair(6601, false)}) {
    SCOPED_TRACE(place);
    ChangePackage(Gauge().path, package,
                  {"DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'RemoveExistingProducts'",
                   "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Fail', 19, "
                   "'', 'Failed.')",
                   "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('Fail', " +
                       std::to_string(place) + ")"});
    const InstallerRun& failed = Msiexec("fail", L"/i \"" + package + L"\" /qn PROP_ACCOUNTTYPE=1");
    EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    // Before the script's run the end of the sequence deletes the account.
    EXPECT_EQ(failed.LinesWith(": CustomAction24.Failed.").empty(), !isDeleted);
    EXPECT_EQ(failed.LinesWith(": InstallExecuteAgain.").empty(), isDeleted);
    // The service has been started with its password, which the sequence empties before anything can fail.
    EXPECT_EQ(RecordOf("gauge.exe: started").size(), isDeleted ? 0u : 1u);
    if (!isDeleted) EXPECT_EQ(failed.Property("PROP_ACCOUNTPASS"), "");
    EXPECT_EQ(failed.Property("AccountAsked"), isDeleted ? "1" : "");
  }
}

// Each fragment by itself, while another product has the keys of the client and of the server.
TEST_F(OtherProductTest, OneFragmentOnly) {
  for (const char* key : {"SOFTWARE\\Halvorstead\\Ostrel", "SOFTWARE\\Halvorstead\\Vantor"}) {
    SetRegistryText(HKEY_LOCAL_MACHINE, key, "Product", "{another}");
    SetRegistryText(HKEY_LOCAL_MACHINE, key, "Folder", "C:\\Another\\");
    SetRegistryText(HKEY_LOCAL_MACHINE, key, "Account", "another");
    SetRegistryText(HKEY_LOCAL_MACHINE, key, "AccountDomain", ".");
  }
  const MachineState before = MachineState::Now();
  const Texts deleting = {SetupLine("deleting local service account gauge")};
  struct Kind {
    const char* name;
    bool hasService;
    Texts made, gone;
  };
  for (const Kind& kind : {Kind{"firewall",
                                false,
                                {SetupLine("installing complex firewall rules")},
                                {SetupLine("removing complex firewall rules")}},
                           Kind{"account", true, MakingLines(), deleting},
                           Kind{"access", true, Together({MakingLines(), AccessLines()}), deleting}}) {
    SCOPED_TRACE(kind.name);
    const Package& package = Gauge(kind.name);
    const InstallerRun& installed = Install(package, L"PROP_ACCOUNTTYPE=1");
    EXPECT_EQ(installed.exitCode, 0u);
    EXPECT_EQ(installed.SetupLines(), kind.made);
    EXPECT_EQ(MachineState::Now().Since(before),
              Joined(Brought(package, std::string("{other-") + kind.name + "}", kind.hasService)));
    const InstallerRun& removed = Remove(package);
    EXPECT_EQ(removed.exitCode, 0u);
    EXPECT_EQ(removed.SetupLines(), kind.gone);
    EXPECT_EQ(MachineState::Now().Since(before), Left());
    DeleteTree(L"C:\\Program Files\\Brackwell");
    DeleteTree(L"C:\\ProgramData\\Brackwell");
  }
}

// CustomAction24 checks the service "Vantor" first, whatever the package's own service is called. It finds an
// account that is not the package's, leaves it alone, and looks no further.
TEST_F(OtherProductTest, TheAccountOfTheServiceVantorIsLeftAlone) {
  const std::string account = ComputerName() + "\\" + UserName();
  MakeServer(server + L"\\vt.exe", ToWide(account));
  const Package& package = Gauge("account");
  ASSERT_EQ(Install(package, L"PROP_ACCOUNTTYPE=1").exitCode, 0u);
  const InstallerRun& removed = Remove(package);
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(removed.SetupLines(),
            Texts{SetupLine("account was not created by installer (" + UserName() + ")")});
  EXPECT_EQ(ServerAccount(), account);
  DeleteServer();
}

}  // namespace
}  // namespace install
