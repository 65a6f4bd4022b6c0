// What a command line can and cannot do to an installed product, and who may run a package at all. An
// ordinary user may start a repair of an installed product, and the engine then runs the deferred actions as
// SYSTEM.

#include "install/agent_rig.h"
#include "install/machine_state.h"
#include "install/security_rig.h"

namespace install {
namespace {

class MaintenanceTest : public SecurityTest {
 protected:
  void TearDown() override {
    DeleteFileW(AuditFile().c_str());
    if (Client().IsInstalled()) Msiexec("clear-up", L"/x \"" + Client().path + L"\" /qn");
    SecurityTest::TearDown();
  }

  /// Writes files that somebody wants SYSTEM to run: a setup file and a converter that leave a trace, and
  /// data with a marker of the conversion, which CustomAction17 deletes.
  void LayDownTraps() {
    WriteTree(
        trap,
        {{"vantor.inf",
          "[Version]\r\nSignature=\"$Windows NT$\"\r\n[DefaultInstall]\r\nAddReg=Trap\r\n[Remove]\r\n"
          "AddReg=Trap\r\n[Trap]\r\nHKLM,\"SOFTWARE\\Halvorstead\\Vantor\",\"Trap\",0x00000000,\"1\"\r\n"},
         {"dbcon.cmd", "@echo off\r\n(echo 1)>\"" + FromWide(trap) + "\\trapped.txt\"\r\n"},
         {"vt.exe", "a program of somebody's"}});
    WriteTree(trapData, {{"format.txt", "1\r\n"}, {"dbcon_failed.txt", "marker"}});
  }

  /// Returns every property of the server package that names a folder or says what was found, with values
  /// that an attacker would give.
  std::wstring Attack() const {
    std::wstring line;
    for (const wchar_t* folder : {L"DIR_SERVER", L"SERVERFOLDERFOUND", L"DIR_EXSERVER", L"PROP_PRE75SERVER"})
      line += std::wstring(folder) + L"=\"" + trap + L"\" ";
    for (const wchar_t* folder : {L"DIR_DATAFOLDER", L"DATAFOLDERFOUND", L"DIR_EXDATA", L"PROP_PREVVTDF"})
      line += std::wstring(folder) + L"=\"" + trapData + L"\" ";
    for (const wchar_t* folder : {L"DIR_UPG", L"DIR_UPG_DATA"})
      line += std::wstring(folder) + L"=\"" + elsewhere + L"\\aside\" ";
    for (const wchar_t* finding : {L"PROP_DFPRESENT", L"PROP_UPGRADE", L"PROP_REPLACING", L"PROP_NODATA",
                                   L"PROP_DATAFOLDERGIVEN", L"PROP_ACCOUNTTYPE"})
      line += std::wstring(finding) + L"=1 ";
    return line +
           L"PROP_UPGRADE_PRODUCTCODE={7B0D2C4E-9A61-4F3B-8E5D-1C7A6B9F0D28} SERVICEFOUND=LocalSystem "
           L"ACCOUNTFOUND=vantor ACCOUNTDOMAINFOUND=. PROP_INSTALLEDSERVER=another";
  }

  /// Returns a copy of a package in which the user of a run with ORDINARY=1 is not an administrator. The
  /// engine keeps the copy, and repairs and removes with it what it has installed.
  std::wstring ForOrdinaryUsers(const Package& package) {
    WriteTree(elsewhere, {});
    const std::wstring copy = elsewhere + L"\\ordinary.msi";
    ChangePackage(
        package.path, copy,
        {"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Ordinary', 51, "
         "'AdminUser', '{}')",
         "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('Ordinary', "
         "'ORDINARY', 5)"});
    return copy;
  }

  /// Returns a copy of a package in which the engine turns the removal of its feature into a removal of the
  /// whole product, at the same place as Windows Installer.
  std::wstring WithWholeRemoval(const Package& package) {
    WriteTree(elsewhere, {});
    const std::wstring copy = elsewhere + L"\\whole.msi";
    ChangePackage(
        package.path, copy,
        {"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Whole', 51, 'REMOVE', "
         "'ALL')",
         "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('Whole', "
         "'REMOVE', "
         "1401)"});
    return copy;
  }

  const std::wstring trap = elsewhere + L"\\Trap", trapData = elsewhere + L"\\Trap Data";
};

TEST_F(MaintenanceTest, AnInstalledServerTakesNothingFromACommandLine) {
  ASSERT_EQ(Install(Server()).exitCode, 0u);
  WriteTree(server + L"\\Data", {{"format.txt", "1\r\n"}});
  LayDownTraps();
  const MachineState before = MachineState::Now();
  const std::string folder = FromWide(server);
  const InstallerRun& repaired = Reinstall(Server(), Attack());
  EXPECT_EQ(repaired.exitCode, 0u);
  const InstallerRun& again = Install(Server(), Attack());
  EXPECT_EQ(again.exitCode, 0u);
  for (const InstallerRun* run : {&repaired, &again}) {
    EXPECT_EQ(DeferredActions(*run), Texts());
    EXPECT_EQ(run->SetupLines(),
              (Texts{SetupLine("InstallHinfSection(DefaultInstall 128 " + folder + "\\vantor.inf)"),
                     SetupLine("installing complex firewall rules")}));
    ExpectPublished(*run, {{"DIR_SERVER", server + L"\\"},
                           {"DIR_DATAFOLDER", server + L"\\Data\\"},
                           {"PROP_UPGRADE", L""},
                           {"PROP_PRE75SERVER", L""},
                           {"PROP_DFPRESENT", L""},
                           {"PROP_REPLACING", L""},
                           {"PROP_NODATA", L""},
                           {"PROP_DATAFOLDERGIVEN", L""},
                           {"DIR_EXSERVER", L""},
                           {"DIR_EXDATA", L""},
                           {"DIR_UPG_DATA", L""},
                           {"PROP_UPGRADE_PRODUCTCODE", L""}});
  }
  EXPECT_EQ(MachineState::Now().Since(before), "");

  const Tree traps = ReadTree(elsewhere);
  const InstallerRun& removed = Remove(Server(), Attack());
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(
      removed.SetupLines(),
      Expected({SetupLine("query service sizing failed:  124"), SetupLine("removing complex firewall rules"),
                SetupLine("InstallHinfSection(Remove 128 " + folder + "\\vantor.inf)")}));
  EXPECT_EQ(ReadTree(elsewhere), traps);
  EXPECT_EQ(ReadTree(server), With({}, "Data", {{"format.txt", "1\r\n"}}));
}

// The folder is not where the registry says, and nothing else says where it is.
TEST_F(MaintenanceTest, ARepairThatFindsNoFolderUsesThePackagesDefault) {
  ASSERT_EQ(Install(Server()).exitCode, 0u);
  LayDownTraps();
  const MachineState before = MachineState::Now();
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMakerKey);
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kServerSettingsKey);
  EXPECT_EQ(Reinstall(Server(), Attack()).exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(before), "");
}

// A command line may give an installation its folders, but not what it finds there.
TEST_F(MaintenanceTest, AFirstInstallationFindsThingsItself) {
  LayDownTraps();
  const Tree traps = ReadTree(elsewhere);
  const InstallerRun& installed = Install(
      Server(),
      L"PROP_DFPRESENT=1 PROP_REPLACING=1 PROP_NODATA=1 PROP_UPGRADE_PRODUCTCODE=any DIR_EXSERVER=\"" + trap +
          L"\" DIR_EXDATA=\"" + trapData + L"\" PROP_PREVVTDF=\"" + trapData + L"\" DATAFOLDERFOUND=\"" +
          trapData + L"\"");
  ExpectInstalled(installed);
  EXPECT_EQ(DeferredActions(installed), Texts{"CustomAction15.LookAtData"});
  EXPECT_EQ(ReadTree(elsewhere), traps);
  ExpectPublished(installed, {{"DIR_DATAFOLDER", server + L"\\Data\\"},
                              {"DIR_EXSERVER", server + L"\\"},
                              {"DIR_EXDATA", L""},
                              {"PROP_UPGRADE", L""},
                              {"PROP_REPLACING", L""},
                              {"PROP_DFPRESENT", L""}});
}

TEST_F(MaintenanceTest, AnInstalledClientTakesNoFolderFromACommandLine) {
  ASSERT_EQ(Install(Client()).exitCode, 0u);
  WriteTree(trap, {{"osau.exe", "a program of somebody's"}});
  const std::string key = "SOFTWARE\\Halvorstead\\Ostrel";
  const auto folder = GetRegistryText(HKEY_LOCAL_MACHINE, key, "Folder");
  const InstallerRun& repaired = Reinstall(Client(), L"DIR_CLIENT=\"" + trap + L"\" CLIENTFOLDERFOUND=\"" +
                                                         trap + L"\" DIR_APPDATA=\"" + trap + L"\"");
  EXPECT_EQ(repaired.exitCode, 0u);
  EXPECT_EQ(repaired.Property("DIR_CLIENT"), folder);
  // Below the programs, where an ordinary user cannot create it first: the update task reads in it as SYSTEM.
  EXPECT_EQ(repaired.Property("DIR_APPDATA"), *folder + "Update\\");
  EXPECT_EQ(GetRegistryText(HKEY_LOCAL_MACHINE, key, "Folder"), folder);
  EXPECT_EQ(Names(trap), Texts{"osau.exe"});
  EXPECT_EQ(Remove(Client(), L"DIR_CLIENT=\"" + trap + L"\"").exitCode, 0u);
  EXPECT_EQ(Names(trap), Texts{"osau.exe"});
}

// Otherwise the update task would read the given folder as SYSTEM in every later run.
TEST_F(MaintenanceTest, NoCommandLineMovesTheUpdateFolder) {
  WriteTree(trap, {});
  const InstallerRun& installed = Install(Client(), L"DIR_APPDATA=\"" + trap + L"\"");
  ASSERT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.Property("DIR_APPDATA"), installed.Property("DIR_CLIENT") + "Update\\");
}

// An administrator's mistake: nothing replaces the older server, so it must stay. If only the feature is
// named, that is not noticed before the data folder turns out to be missing.
TEST_F(MaintenanceTest, AnInstallationOfNothingLeavesTheOlderServer) {
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    for (const wchar_t* slip : {L"REMOVE=ALL", L"REMOVE=ServerFeature"}) {
      SCOPED_TRACE(FromWide(data) + ", " + FromWide(slip));
      DeleteTree(programs);
      DeleteTree(elsewhere);
      ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
      WriteTree(data, {{"format.txt", "1\r\n"}, {"dbcon_failed.txt", "marker"}});
      SetDataSetting(data);
      const Tree olderServer = ReadTree(server), olderData = ReadTree(data);
      const InstallerRun& run = Install(Server(), slip);
      EXPECT_FALSE(Server().IsInstalled());
      EXPECT_TRUE(OlderServer().IsInstalled());
      EXPECT_EQ(ReadTree(server), olderServer);
      EXPECT_EQ(ReadTree(data), olderData);
      EXPECT_EQ(Names(programs), Texts{"Vantor"});
      if (slip == std::wstring(L"REMOVE=ALL")) EXPECT_EQ(DeferredActions(run), Texts());
      EXPECT_EQ(Remove(OlderServer()).exitCode, 0u);
    }
  }
}

// Data in the folder of a server that was removed.
TEST_F(MaintenanceTest, AnInstallationOfNothingConvertsNothing) {
  const Tree data = With({}, "Data", {{"format.txt", "1\r\n"}, {"other.txt", "not a marker"}});
  WriteTree(server, data);
  for (const wchar_t* slip : {L"REMOVE=ALL", L"REMOVE=ServerFeature"}) {
    const InstallerRun& run = Install(Server(), slip);
    if (slip == std::wstring(L"REMOVE=ALL")) EXPECT_EQ(DeferredActions(run), Texts());
    EXPECT_EQ(ReadTree(server), data);
    EXPECT_FALSE(Server().IsInstalled());
  }
}

// The removal of the older client must not remove the newer one's tasks, hook and agents, however it is
// requested. This engine does not turn it into a removal of the whole product itself.
TEST_F(MaintenanceTest, RemovingTheFeatureLeavesTheNewerClientsItems) {
  const std::wstring copy = WithWholeRemoval(Client());
  ASSERT_EQ(Msiexec("install", L"/i \"" + copy + L"\" /qn").exitCode, 0u);
  const std::string key = "SOFTWARE\\Halvorstead\\Ostrel";
  SetRegistryText(HKEY_LOCAL_MACHINE, key, "Product", NewerClient().productCode);
  const InstallerRun& removed = Msiexec("feature", L"/i \"" + copy + L"\" /qn REMOVE=Agent");
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(removed.Property("ClientIsReplaced"), "1");
  EXPECT_EQ(removed.SetupLines(), Texts());
}

// Only a removal may act as one by a newer version.
TEST_F(MaintenanceTest, OnlyARemovalActsAsOneByANewerVersion) {
  const std::wstring slip = L"UPGRADINGPRODUCTCODE={7B0D2C4E-9A61-4F3B-8E5D-1C7A6B9F0D28}";
  const InstallerRun& installed = Install(Client(), slip);
  EXPECT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.SetupLines(), Client().InstallLines());
  EXPECT_EQ(installed.Property("ClientIsReplaced"), "");
  EXPECT_EQ(Reinstall(Client(), slip).Property("ClientIsReplaced"), "");
  EXPECT_EQ(Remove(Client()).exitCode, 0u);
  EXPECT_EQ(Install(Client(), slip + L" REMOVE=Agent").Property("ClientIsReplaced"), "");
  EXPECT_EQ(Install(Server(), slip + L" REMOVE=ServerFeature").Property("ServerIsReplaced"), "");
  EXPECT_EQ(Install(Server(), slip).Property("ServerIsReplaced"), "");
  EXPECT_EQ(Reinstall(Server(), slip).Property("ServerIsReplaced"), "");
}

// The list starts a run without administrator's rights, which is refused.
TEST_F(MaintenanceTest, TheListOfInstalledProgramsOffersARemovalOnly) {
  for (const Package* package : {&Server(), &Client()}) {
    ASSERT_EQ(Install(*package).exitCode, 0u);
    const std::string key =
        "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + package->productCode;
    for (const char* name : {"NoModify", "NoRepair"}) {
      DWORD value = 0, size = sizeof value;
      EXPECT_EQ(RegGetValueA(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_DWORD, nullptr, &value, &size),
                0)
          << name;
      EXPECT_EQ(value, 1u) << name;
    }
    EXPECT_EQ(Remove(*package).exitCode, 0u);
  }
}

// Users' key files are gathered once, not in every repair.
TEST_F(MaintenanceTest, ARepairMovesNoKeyFiles) {
  const std::string start = ": CustomAction13.";
  EXPECT_NE(Install(Server()).LinesWith(start), Texts());
  EXPECT_EQ(Reinstall(Server()).LinesWith(start), Texts());
  EXPECT_EQ(Install(Server()).LinesWith(start), Texts());
  EXPECT_EQ(Remove(Server()).LinesWith(start), Texts());
}

// The service has an account that this engine can look up, and its folder has explicit entries.
TEST_F(MaintenanceTest, ARepairReplacesNoAccessListWhateverItIsGiven) {
  HX_NEEDS_WINE(Differs::kServiceWithoutPassword);
  const std::string account = ComputerName() + "\\" + UserName();
  MakeServer(server + L"\\vt.exe", ToWide(account));
  ASSERT_EQ(Install(Server()).exitCode, 0u);
  const std::wstring data = server + L"\\Data";
  SetAccess(data, "D:(A;OICI;FA;;;USER)(A;OICI;0x1200a9;;;WD)");
  const std::string before = AccessTo(data);
  for (const wchar_t* given : {L"PROP_DATAFOLDERGIVEN=1", L"PROP_NODATA=1", L"PROP_ACCOUNTTYPE=1"}) {
    const InstallerRun& repaired = Reinstall(Server(), given + (L" DIR_DATAFOLDER=\"" + data + L"\""));
    EXPECT_EQ(repaired.exitCode, 0u);
    EXPECT_EQ(repaired.LinesWith("setting ACL"), Texts()) << FromWide(given);
    EXPECT_EQ(repaired.LinesWith("set ACL (0) for " + account + "=500").size(), 1u);
    EXPECT_EQ(AccessTo(data), before);
  }
}

// In an installation, a repair and a removal.
TEST_F(MaintenanceTest, EachRunWithoutAdministratorRightsIsRefused) {
  for (const Package* package : {&Server(), &Client()}) {
    SCOPED_TRACE(FromWide(package->path));
    const std::wstring ordinary = ForOrdinaryUsers(*package);
    WriteAuditFile("what somebody wants to keep");
    const MachineState before = MachineState::Now();
    auto expectRefused = [&](const std::wstring& arguments, const MachineState& machine) {
      const InstallerRun& run = Msiexec("ordinary", arguments);
      EXPECT_EQ(run.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
      EXPECT_EQ(run.FailuresOf("RefuseNoAdministrator").size(), 1u);
      EXPECT_EQ(run.SetupLines(), Texts());
      EXPECT_EQ(MachineState::Now().Since(machine), "") << FromWide(arguments);
    };
    expectRefused(L"/i \"" + ordinary + L"\" /qn ORDINARY=1 PROP_RESETAUDIT=1", before);
    ASSERT_EQ(Msiexec("install", L"/i \"" + ordinary + L"\" /qn").exitCode, 0u);
    const MachineState installed = MachineState::Now();
    expectRefused(
        L"/i \"" + ordinary + L"\" /qn ORDINARY=1 REINSTALL=ALL REINSTALLMODE=omus PROP_RESETAUDIT=1",
        installed);
    expectRefused(L"/x \"" + ordinary + L"\" /qn ORDINARY=1 PROP_RESETAUDIT=1", installed);
    EXPECT_TRUE(package->IsInstalled());
    EXPECT_EQ(Remove(*package).exitCode, 0u);
  }
}

}  // namespace
}  // namespace install
