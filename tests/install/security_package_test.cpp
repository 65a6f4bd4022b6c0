// The server's service, its account, its access and the package's other demands, in the runs of a product's
// life. A witness in the package sees what this engine keeps only for the installer's process.

#include <windows.h>
// After windows.h, which it needs.
#include <lm.h>

#include "install/agent_rig.h"
#include "install/security_rig.h"

namespace install {
namespace {

class SecurityPackageTest : public SecurityTest {
 protected:
  const std::string folder = FromWide(server);
  const std::string setupFile = folder + "\\vantor.inf";

  static std::string AccountOf(const std::string& name) { return ComputerName() + "\\" + name; }
  static std::string IsThere(const std::string& name) {
    return "Witness: " + name + " is an account of this computer";
  }
  static std::string IsGone(const std::string& name) { return "Witness: " + name + " is no account"; }

  /// Returns the lines of the library and the witness, in order, without the witness's lines about access.
  static Texts Told(const InstallerRun& run) {
    Texts told;
    for (const std::string& line : run.lines) {
      if (line.rfind("Hx Setup Log: ", 0) == 0) told.push_back(line.substr(14));
      if (line.rfind("Witness: ", 0) == 0 && line.find(" D:") == std::string::npos) told.push_back(line);
    }
    return told;
  }

  /// Returns the value that the section of the INF file writes.
  static std::optional<std::string> EventSource() {
    return GetRegistryText(HKEY_LOCAL_MACHINE, kEventSourceKey, "EventMessageFile");
  }

  static void Append(Texts& texts, const Texts& more) { texts.insert(texts.end(), more.begin(), more.end()); }

  std::string RunsSection(const std::string& section) const {
    return "InstallHinfSection(" + section + " 128 " + setupFile + ")";
  }
  /// Returns CustomAction33's line for a service with a new account.
  std::string ServerAccessLine(const std::string& name) const {
    return Expected({"set ACL (-36) for " + AccountOf(name) + "=500 on " + folder})[0];
  }
  /// Returns the witness's line about an account that an earlier run has made.
  static std::string IsKept(const std::string& name) {
    return ByEngine(Differs::kAccounts, IsGone(name), IsThere(name));
  }
  /// Returns CustomAction25's lines for the witness's own access, for the user who installs.
  static Texts WitnessAccessLines() {
    const std::string user = UserName();
    return {"setting ACL for " + user + " on " + user, "set ACL for " + user};
  }

  /// Returns the lines of an installation that creates the account, up to the access.
  Texts MakingLines(const std::string& name) const {
    const std::string account = AccountOf(name);
    Texts lines = Expected({"creating local service account " + name,
                            "could not grant right to logon as service", IsThere(name),
                            RunsSection("DefaultInstall"), "setting ACL for " + account + " on " + account,
                            "failure -36 (0xFFFFFFDC) setting ACL for " + account, ServerAccessLine(name)});
    Append(lines, WitnessAccessLines());
    return lines;
  }
};

TEST_F(SecurityPackageTest, APasswordIsHiddenEverywhere) {
  const std::string sample = "aBAA0CAA!DAAqAAA.BAA", stars = kHiddenPassword;
  for (const char* around : {"", " ", "\"", "'", ",", ";", ".", "=", "x", "*"}) {
    std::string text = "Property = " + (around + sample) + around;
    EXPECT_TRUE(HidePasswords(text)) << around;
    EXPECT_EQ(text, "Property = " + (around + stars) + around);
  }
  // If the text around it hides where the password begins, none of the password is left.
  for (const char* around : {"A", "AA", "aBAA"}) {
    std::string text = (around + sample) + around;
    EXPECT_TRUE(HidePasswords(text)) << around;
    EXPECT_EQ(text.find("AA0CAA"), std::string::npos) << text;
  }
  std::string wide, wideStars;
  for (char c : sample) wide += {c, '\0'};
  for (char c : stars) wideStars += {c, '\0'};
  EXPECT_TRUE(HidePasswords(wide));
  EXPECT_EQ(wide, wideStars);
  for (const char* other :
       {"", "aBAA0CAA!DAAqAAA.BA", "BAA0CAA!DAAqAAA.BAA", "aBAA0CAA!DAAqEAA.BAA", "aBAA0CAA!DAA AAA.BAA",
        "wBAA0CAA!DAAqAAA.BAA", "aBAA0CAA!DABqAAA.BAA", "aBAA,0CAA,!DAA,qAAA,.BAA"}) {
    std::string text = other;
    EXPECT_FALSE(HidePasswords(text)) << other;
    EXPECT_EQ(text, other);
  }
}

// The account has another name than the package's, and the service gets another account in the end.
TEST_F(SecurityPackageTest, AServiceLivesAndGoesWithItsAccount) {
  const std::string account = AccountOf("meter");
  const InstallerRun& installed =
      Install(WatchedServer(), L"PROP_SILENCE=-1 PROP_ACCOUNTTYPE=1 PROP_ACCOUNTID=meter SERVICEFOUND=any");
  EXPECT_EQ(installed.exitCode, 0u);
  Texts told = MakingLines("meter");
  told.push_back("installing complex firewall rules");
  EXPECT_EQ(Told(installed), told);
  EXPECT_EQ(installed.Property("PROP_ACCOUNTNAME"), "meter");
  EXPECT_EQ(installed.Property("PROP_ACCOUNTDOMAIN"), ComputerName());
  EXPECT_EQ(installed.LinesWith(kHiddenPassword), Texts{});
  EXPECT_EQ(ServerAccount(), account);
  EXPECT_EQ(NotedAccount(), ".\\meter");
  EXPECT_TRUE(IsServiceRunning("Vantor"));
  EXPECT_EQ(RecordOf("vt.exe: "), Texts{"vt.exe: started"});
  EXPECT_EQ(EventSource(), folder + "\\vt.exe");
  // The witness has seen in the installer what is visible here.
  const std::string list = ByEngine<std::string>(Differs::kAccessOfFolders, " D:(A;OICI;FA;;;SY)", " D:");
  EXPECT_EQ(installed.LinesWith("Witness: " + folder + "\\Data\\" + list).size(), 1u);

  // A repair creates nothing again: nobody knows the password any more. Nor does it change the data folder.
  const InstallerRun& repaired = Reinstall(WatchedServer(), L"PROP_SILENCE=-1 PROP_ACCOUNTTYPE=1");
  EXPECT_EQ(repaired.exitCode, 0u);
  told = {IsKept("meter"), RunsSection("DefaultInstall"), ServerAccessLine("meter")};
  Append(told, WitnessAccessLines());
  told.push_back("installing complex firewall rules");
  EXPECT_EQ(Told(repaired), told);
  EXPECT_EQ(ServerAccount(), account);
  EXPECT_EQ(NotedAccount(), ".\\meter");
  EXPECT_TRUE(IsServiceRunning("Vantor"));

  // A removal that fails leaves the account to the service.
  const std::wstring account24 = L"WITNESSACCOUNT=meter PROP_ACCOUNTID=somebody PROP_ACCOUNTDOMAIN=ELSEWHERE";
  const InstallerRun& failed = Remove(WatchedServer(), account24 + L" WITNESSFAILURE=1");
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_EQ(Told(failed), Expected({"query service sizing failed:  124", "removing complex firewall rules",
                                    RunsSection("Remove"), RunsSection("DefaultInstall"), IsThere("meter")}));
  EXPECT_EQ(EventSource(), folder + "\\vt.exe");
  // The service was deleted by then; the rollback of Wine's engine creates one without an account.
  EXPECT_EQ(ServerAccount(), ByEngine<std::string>(Differs::kRollback, "", account));
  EXPECT_EQ(NotedAccount(), ".\\meter");

  if (!OnWindows(Differs::kAccounts)) SetServerAccount(AccountOf("somebody"));
  const InstallerRun& removed = Remove(WatchedServer(), account24);
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(Told(removed), Expected({"query service sizing failed:  124", "removing complex firewall rules",
                                     RunsSection("Remove"), IsThere("meter"),
                                     "deleting local service account meter", IsGone("meter")}));
  EXPECT_EQ(ServerAccount(), std::nullopt);
  EXPECT_EQ(NotedAccount(), "(none)");
  EXPECT_EQ(EventSource(), std::nullopt);
}

TEST_F(SecurityPackageTest, AnAccountOutlivesItsServiceAndAServerThatIsReplaced) {
  ASSERT_EQ(Install(WatchedServer(), L"PROP_ACCOUNTTYPE=1").exitCode, 0u);
  // Somebody has deleted the service: it is created again, for LocalSystem, which needs no access.
  DeleteServer();
  const InstallerRun& repaired = Reinstall(WatchedServer());
  EXPECT_EQ(repaired.exitCode, 0u);
  Texts told = {"no service account, using LocalSystem", IsKept("vantor"), RunsSection("DefaultInstall")};
  Append(told, WitnessAccessLines());
  told.push_back("installing complex firewall rules");
  EXPECT_EQ(Told(repaired), told);
  EXPECT_EQ(ServerAccount(), "LocalSystem");
  EXPECT_EQ(NotedAccount(), ".\\vantor");

  // A newer server has come: an item with the same name in both belongs to the newer one.
  const InstallerRun& replaced = Remove(
      WatchedServer(), L"WITNESSACCOUNT=vantor UPGRADINGPRODUCTCODE={7B0D2C4E-9A61-4F3B-8E5D-1C7A6B9F0D28}");
  EXPECT_EQ(replaced.exitCode, 0u);
  EXPECT_EQ(Told(replaced), (Texts{IsThere("vantor"), IsThere("vantor")}));
  EXPECT_EQ(EventSource(), folder + "\\vt.exe");
}

// The same for the removal of the product's feature. This engine does not turn it into a removal of the whole
// product, as Windows Installer does at InstallValidate (1400).
TEST_F(SecurityPackageTest, TheRemovalOfAFeatureLeavesTheNewerServersAccount) {
  const std::wstring copy = elsewhere + L"\\server.msi";
  WriteTree(elsewhere, {});
  ChangePackage(WatchedServer().path, copy,
                {"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Whole', 51, "
                 "'REMOVE', 'ALL')",
                 "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('Whole', "
                 "'REMOVE', 1401)"});
  ASSERT_EQ(Msiexec("install", L"/i \"" + copy + L"\" /qn PROP_ACCOUNTTYPE=1").exitCode, 0u);
  SetRegistryText(HKEY_LOCAL_MACHINE, kVantorKey, "Product", "{7B0D2C4E-9A61-4F3B-8E5D-1C7A6B9F0D28}");
  const InstallerRun& removed =
      Msiexec("feature", L"/i \"" + copy + L"\" /qn REMOVE=ServerFeature WITNESSACCOUNT=vantor");
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(Told(removed), (Texts{IsThere("vantor"), IsThere("vantor")}));
}

// An earlier installation has noted an account, and its service is gone: the account gets that name, whatever
// is given.
TEST_F(SecurityPackageTest, ACancelledInstallationDeletesTheAccount) {
  SetRegistryText(HKEY_LOCAL_MACHINE, kVantorKey, "Account", "meter");
  const InstallerRun& cancelled =
      Install(WatchedServer(), L"PROP_ACCOUNTTYPE=1 PROP_ACCOUNTID=other WITNESSFAILURE=cancel");
  EXPECT_EQ(cancelled.exitCode, static_cast<DWORD>(ERROR_INSTALL_USEREXIT));
  EXPECT_EQ(Told(cancelled),
            Expected({"creating local service account meter", "could not grant right to logon as service",
                      "deleting local service account meter"}));
  EXPECT_FALSE(WatchedServer().IsInstalled());
  EXPECT_EQ(ServerAccount(), std::nullopt);
}

// Twice: once the rollback action can read the properties, and once only the actions at the sequence's end
// can.
TEST_F(SecurityPackageTest, ARollbackDeletesTheAccount) {
  const std::wstring package = elsewhere + L"\\server.msi";
  WriteTree(elsewhere, {});
  ChangePackage(WatchedServer().path, package,
                {"DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'CustomAction24.Failed'"});
  const InstallerRun& rolledBack =
      Msiexec("rollback", L"/i \"" + package + L"\" /qn PROP_ACCOUNTTYPE=1 WITNESSFAILURE=1");
  EXPECT_EQ(rolledBack.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  Texts told = MakingLines("vantor");
  if (OnWindows(Differs::kDeferredProperties)) {
    EXPECT_EQ(rolledBack.LinesWith("deleting local service account"), Texts());
    EXPECT_TRUE(HasAccount(L"vantor"));
    EXPECT_EQ(NetUserDel(nullptr, L"vantor"), static_cast<NET_API_STATUS>(NERR_Success));
  } else {
    Append(told, {IsThere("vantor"), "deleting local service account vantor", IsGone("vantor"),
                  RunsSection("Remove")});
    EXPECT_EQ(Told(rolledBack), told);
  }
  EXPECT_FALSE(WatchedServer().IsInstalled());
  EXPECT_EQ(ServerAccount(), std::nullopt);
  // The rollback of Wine's engine deletes the files first, and a section of a missing file is not run.
  EXPECT_EQ(EventSource(),
            ByEngine(Differs::kRollback, std::optional(folder + "\\vt.exe"), std::optional<std::string>()));

  ChangePackage(WatchedServer().path, package,
                {"DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'CustomAction23.Rollback'"});
  const InstallerRun& failed =
      Msiexec("failed", L"/i \"" + package + L"\" /qn PROP_ACCOUNTTYPE=1 WITNESSFAILURE=1");
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  if (OnWindows(Differs::kDeferredProperties)) {
    EXPECT_EQ(failed.LinesWith("deleting local service account vantor").size(), 1u);
    EXPECT_FALSE(HasAccount(L"vantor"));
  } else {
    told = MakingLines("vantor");
    Append(told, {"deleting local service account vantor", IsGone("vantor"), IsGone("vantor"),
                  RunsSection("Remove")});
    EXPECT_EQ(Told(failed), told);
  }

  // Wine's engine lists the properties of a failed run, including the hidden one; no other line has the
  // password.
  for (const InstallerRun* run : {&rolledBack, &failed}) {
    EXPECT_EQ(run->Property("MsiHiddenProperties"), "PROP_ACCOUNTPASS");
    EXPECT_EQ(run->Property("SecureCustomProperties").find("PROP_ACCOUNTPASS"), std::string::npos);
    EXPECT_EQ(run->LinesWith(kHiddenPassword),
              ByEngine(Differs::kHiddenProperties,
                       Texts{std::string("Property(S): PROP_ACCOUNTPASS = ") + kHiddenPassword}, Texts()));
  }
}

// An entry that replaces those of a drive's root would lock everybody else out of the drive.
TEST_F(SecurityPackageTest, ADrivesRootKeepsItsAccess) {
  const std::string before = AccessTo(L"C:\\");
  const InstallerRun& installed = Install(Server(), L"PROP_ACCOUNTTYPE=1 DIR_DATAFOLDER=C:\\");
  EXPECT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.Property("DIR_DATAFOLDER"), "C:\\");
  EXPECT_EQ(Told(installed),
            Expected({"creating local service account vantor", "could not grant right to logon as service",
                      RunsSection("DefaultInstall"), ServerAccessLine("vantor"),
                      "installing complex firewall rules"}));
  EXPECT_EQ(AccessTo(L"C:\\"), before);
  EXPECT_EQ(Remove(Server()).exitCode, 0u);
}

// Another installer has created the service, with an account that this engine can look up.
TEST_F(SecurityPackageTest, AnExistingServiceKeepsItsAccount) {
  HX_NEEDS_WINE(Differs::kServiceWithoutPassword);
  const std::string own = AccountOf(UserName());
  MakeServer(server + L"\\vt.exe", ToWide(own));
  const InstallerRun& installed =
      Install(WatchedServer(), L"PROP_ACCOUNTTYPE=1 ACCOUNTFOUND=vantor ACCOUNTDOMAINFOUND=.");
  EXPECT_EQ(installed.exitCode, 0u);
  Texts told = {IsGone("vantor"), RunsSection("DefaultInstall"), "setting ACL for " + own + " on " + own,
                "set ACL for " + own, "set ACL (0) for " + own + "=500 on " + folder};
  Append(told, WitnessAccessLines());
  told.push_back("installing complex firewall rules");
  EXPECT_EQ(Told(installed), told);
  // This engine does not change an existing service; others do, with the package's account.
  EXPECT_EQ(installed.LinesWith(": InstallServices."), Texts{});
  EXPECT_EQ(ServerAccount(), own);
  EXPECT_EQ(NotedAccount(), "\\");

  // No installation has created an account, whatever a command line says: an account of that name that was
  // created otherwise belongs to somebody else.
  const InstallerRun& removed = Remove(WatchedServer(), L"WITNESSACCOUNT=vantor");
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(Told(removed), (Texts{"query service sizing failed:  124", "removing complex firewall rules",
                                  RunsSection("Remove"), IsThere("vantor"), IsThere("vantor")}));
  EXPECT_EQ(ServerAccount(), std::nullopt);
}

}  // namespace
}  // namespace install
