// The server's service, its account, its access and what else the package asks of the machine, in the runs of
// a product's life. A witness in the package sees what this engine keeps for the installer's process only.

#include <regex>

#include "install/agent_rig.h"
#include "install/security_rig.h"

namespace install {
namespace {

class SecurityPackageTest : public SecurityTest {
 protected:
  const std::string folder = FromWide(server);
  const std::string account = ComputerName() + "\\vantor";
  const std::string setupFile = folder + "\\vantor.inf";

  /// What the library and the witness said, in order and without what the witness says of access.
  static Texts Told(const InstallerRun& run) {
    Texts told;
    for (const std::string& line : run.lines) {
      if (line.rfind("Hx Setup Log: ", 0) == 0) told.push_back(line.substr(14));
      if (line.rfind("Witness: ", 0) == 0 && line.find(" D:") == std::string::npos) told.push_back(line);
    }
    return told;
  }

  /// The value that the section of the INF file writes.
  static std::optional<std::string> EventSource() {
    return GetRegistryText(HKEY_LOCAL_MACHINE, kEventSourceKey, "EventMessageFile");
  }

  /// What the actions say of a service whose account has this name, and which this engine cannot look up;
  /// then of the witness's own access.
  Texts AccessLines() const {
    const std::string user = UserName();
    return {"set ACL (-36) for " + account + "=500 on " + folder, "setting ACL for " + user + " on " + user,
            "set ACL for " + user};
  }

  static void Append(Texts& texts, const Texts& more) { texts.insert(texts.end(), more.begin(), more.end()); }

  /// What an installation says that makes the account, up to the access.
  Texts MakingLines() const {
    Texts lines = {"creating local service account vantor",
                   "could not grant right to logon as service",
                   "Witness: vantor is an account of this computer",
                   "InstallHinfSection(DefaultInstall 128 " + setupFile + ")",
                   "setting ACL for " + account + " on " + account,
                   "failure -36 (0xFFFFFFDC) setting ACL for " + account};
    Append(lines, AccessLines());
    return lines;
  }

  /// Whether anything in a log looks like a password.
  static bool HoldsAPassword(const InstallerRun& run) {
    static const std::regex shape("(^|[ =])([^ ][A-D]AA){5}($| )");
    for (const std::string& line : run.lines) {
      if (std::regex_search(line, shape)) return true;
    }
    return false;
  }
};

TEST_F(SecurityPackageTest, AServiceLivesAndGoesWithItsAccount) {
  const InstallerRun& installed = Install(WatchedServer(), L"PROP_SILENCE=-1 PROP_ACCOUNTTYPE=1");
  EXPECT_EQ(installed.exitCode, 0u);
  Texts told = MakingLines();
  told.push_back("installing complex firewall rules");
  EXPECT_EQ(Told(installed), told);
  EXPECT_EQ(installed.Property("PROP_ACCOUNTNAME"), "vantor");
  EXPECT_EQ(installed.Property("PROP_ACCOUNTDOMAIN"), ComputerName());
  EXPECT_FALSE(HoldsAPassword(installed));
  EXPECT_EQ(ServerAccount(), account);
  EXPECT_TRUE(IsServiceRunning("Vantor"));
  EXPECT_EQ(RecordOf("vt.exe: "), Texts{"vt.exe: started"});
  EXPECT_EQ(EventSource(), folder + "\\vt.exe");
  // The witness has seen in the installer what is seen here.
  const std::string list = " D:(A;OICI;FA;;;SY)";
  EXPECT_EQ(installed.LinesWith("Witness: " + folder + "\\Data\\" + list).size(), 1u);

  // A repair makes nothing anew: nobody knows the password any more.
  const InstallerRun& repaired = Reinstall(WatchedServer(), L"PROP_SILENCE=-1 PROP_ACCOUNTTYPE=1");
  EXPECT_EQ(repaired.exitCode, 0u);
  told = {"Witness: vantor is no account", "InstallHinfSection(DefaultInstall 128 " + setupFile + ")"};
  Append(told, AccessLines());
  told.push_back("installing complex firewall rules");
  EXPECT_EQ(Told(repaired), told);
  EXPECT_EQ(ServerAccount(), account);
  EXPECT_TRUE(IsServiceRunning("Vantor"));

  const InstallerRun& removed = Remove(WatchedServer(), L"WITNESSACCOUNT=vantor PROP_ACCOUNTID=somebody");
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(Told(removed),
            (Texts{"query service sizing failed:  124", "Witness: vantor is an account of this computer",
                   "deleting local service account vantor", "Witness: vantor is no account",
                   "InstallHinfSection(Remove 128 " + setupFile + ")", "removing complex firewall rules"}));
  EXPECT_EQ(ServerAccount(), std::nullopt);
  EXPECT_EQ(EventSource(), std::nullopt);
}

// Twice: where the rollback action can read the properties, and where only the actions at the sequence's end
// can.
TEST_F(SecurityPackageTest, ARollbackDeletesTheAccount) {
  const std::wstring package = elsewhere + L"\\server.msi";
  WriteTree(elsewhere, {});
  ChangePackage(WatchedServer().path, package,
                {"DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'CustomAction24.Failed'"});
  const InstallerRun& rolledBack =
      Msiexec("rollback", L"/i \"" + package + L"\" /qn PROP_ACCOUNTTYPE=1 WITNESSFAILURE=1");
  EXPECT_EQ(rolledBack.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  Texts told = MakingLines();
  Append(told, {"Witness: vantor is an account of this computer", "deleting local service account vantor",
                "Witness: vantor is no account", "InstallHinfSection(Remove 128 " + setupFile + ")"});
  EXPECT_EQ(Told(rolledBack), told);
  EXPECT_FALSE(WatchedServer().IsInstalled());
  EXPECT_EQ(ServerAccount(), std::nullopt);
  // This engine's rollback takes the files away first, and no section of a file that is gone is run.
  EXPECT_EQ(EventSource(), folder + "\\vt.exe");

  ChangePackage(WatchedServer().path, package,
                {"DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'CustomAction23.Rollback'"});
  const InstallerRun& failed =
      Msiexec("failed", L"/i \"" + package + L"\" /qn PROP_ACCOUNTTYPE=1 WITNESSFAILURE=1");
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  told = MakingLines();
  Append(told, {"deleting local service account vantor", "Witness: vantor is no account",
                "Witness: vantor is no account", "InstallHinfSection(Remove 128 " + setupFile + ")"});
  EXPECT_EQ(Told(failed), told);

  // This engine lists the properties of a failed run, the hidden one too; no other line has the password.
  for (const InstallerRun* run : {&rolledBack, &failed}) {
    const std::string password = run->Property("PROP_ACCOUNTPASS");
    EXPECT_EQ(password.size(), 20u);
    EXPECT_EQ(run->Property("MsiHiddenProperties"), "PROP_ACCOUNTPASS");
    EXPECT_EQ(run->LinesWith(password), Texts{"Property(S): PROP_ACCOUNTPASS = " + password});
  }
}

// An installation had made an account, and somebody has given the service one of his own since.
TEST_F(SecurityPackageTest, AServiceThatIsThereKeepsItsAccount) {
  const std::string own = ComputerName() + "\\somebody";
  SetRegistryText(HKEY_LOCAL_MACHINE, "SOFTWARE\\Halvorstead\\Vantor", "Account", "vantor");
  MakeServer(server + L"\\vt.exe", ToWide(own));
  const InstallerRun& installed = Install(WatchedServer(), L"PROP_ACCOUNTTYPE=1");
  EXPECT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.LinesWith("service account"), Texts{});
  // This engine does not change a service that is there; others do, with the package's account.
  EXPECT_EQ(installed.LinesWith(": InstallServices."), Texts{});
  EXPECT_EQ(installed.LinesWith("Witness: vantor"), Texts{"Witness: vantor is no account"});
  EXPECT_EQ(ServerAccount(), own);
  const InstallerRun& removed = Remove(WatchedServer(), L"WITNESSACCOUNT=vantor");
  EXPECT_EQ(removed.exitCode, 0u);
  Texts told = Told(removed);
  ASSERT_GE(told.size(), 4u);
  EXPECT_EQ(Texts(told.begin() + 1, told.begin() + 4),
            (Texts{"Witness: vantor is an account of this computer",
                   "account was not created by installer (somebody)",
                   "Witness: vantor is an account of this computer"}));
  EXPECT_EQ(ServerAccount(), std::nullopt);
}

}  // namespace
}  // namespace install
