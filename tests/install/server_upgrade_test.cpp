// The upgrade of a server in place: what is moved aside, what is restored, the package's properties, and what
// is left if a step fails.

#include <algorithm>

#include "install/security_rig.h"

namespace install {
namespace {

class ServerUpgradeTest : public ServerTest {
 protected:
  /// Expects that the program contains the texts that the firewall shows for its rules.
  static void ExpectFirewallTexts(const std::wstring& program) {
    HMODULE image = LoadLibraryExW(program.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(image, nullptr) << GetLastError();
    for (const auto& [base, protocol] : {std::pair(1000, "TCP"), std::pair(1010, "UDP")}) {
      auto textAt = [image = image, base = base](int offset) {
        wchar_t text[256] = {};
        return LoadStringW(image, base + offset, text, 256) ? FromWide(text) : "(none)";
      };
      EXPECT_EQ(textAt(0), std::string("Vantor server (") + protocol + ")");
      EXPECT_EQ(textAt(1), "Vantor server");
      EXPECT_EQ(textAt(2),
                std::string("Lets the metering clients reach the Vantor server by ") + protocol + ".");
    }
    FreeLibrary(image);
  }

  /// Returns a later version of the server package, which upgrades it.
  Package LaterServer() {
    Package later = Server();
    later.path = elsewhere + L"\\later.msi";
    later.productCode = "{7B0D2C4E-9A61-4F3B-8E5D-1C7A6B9F0D28}";
    later.version = "9.0.0";
    WriteTree(elsewhere, {});
    const std::string upgradeCode = "{0D1E5A3B-7E6F-4B53-8C79-2B8B54E1C6A0}";
    ChangePackage(
        Server().path, later.path,
        {"UPDATE `Property` SET `Value` = '" + later.productCode + "' WHERE `Property` = 'ProductCode'",
         "UPDATE `Property` SET `Value` = '9.0.0' WHERE `Property` = 'ProductVersion'",
         "INSERT INTO `Upgrade` (`UpgradeCode`, `VersionMin`, `VersionMax`, `Attributes`, "
         "`ActionProperty`) VALUES ('" +
             upgradeCode +
             "', '1.0.0', '9.0.0', 256, "
             "'PROP_UPGRADE_PRODUCTCODE')"});
    return later;
  }
};

TEST_F(ServerUpgradeTest, DataInsideTheOlderFolder) {
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  ASSERT_EQ(ReadTree(server), OlderProgram());

  const Tree older = With(OlderProgram(), "Data", OlderData("1"));
  WriteTree(server, older);
  const InstallerRun& upgraded = Install(Server());
  ExpectInstalled(upgraded);
  EXPECT_EQ(
      DeferredActions(upgraded),
      (std::vector<std::string>{"CustomAction15.LookAtOlder", "CustomAction15.FreeServer",
                                "CustomAction15.Server", "CustomAction15.LookAtData", "CustomAction16.Data",
                                "CustomAction17.Clear", "CustomAction17.Judge"}));
  EXPECT_EQ(ReadTree(aside), older);
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", Converted(OlderData("1"))));
  EXPECT_EQ(DataSetting(), FromWide(server + L"\\Data\\"));
  EXPECT_EQ(Names(programs), (std::vector<std::string>{"Vantor", "Vantor (previous)"}));

  ExpectPublished(upgraded,
                  {
                      {"PROP_UPGRADE_PRODUCTCODE", ToWide(OlderServer().productCode)},
                      {"PROP_UPGRADE", L"1"},
                      {"PROP_REPLACING", L"1"},
                      {"PROP_DFPRESENT", L""},
                      {"PROP_PREVVTDF", server + L"\\Data\\"},
                      {"DIR_PROGRAMS64", L"C:\\Program Files\\"},
                      {"DIR_SERVER", server + L"\\"},
                      {"DIR_DATAFOLDER", server + L"\\Data\\"},
                      {"DIR_EXSERVER", server + L"\\"},
                      {"DIR_EXDATA", L""},
                      {"DIR_UPG", aside + L"\\"},
                      {"DIR_UPG_DATA", aside + L"\\Data\\"},
                      {"DIR_UPG_HELPERDATA", aside + L"\\Data\\Helper Data\\"},
                      {"DIR_UPG_VRDF", aside + L"\\Data\\Helper Data\\Reports\\"},
                      {"DIR_UPG_VRDF_PREFS", aside + L"\\Data\\Helper Data\\Reports\\Preferences\\"},
                      {"DIR_EXADMIN", L""},
                  });

  // A repair moves nothing, even if it finds the data folder of a server and a program in it.
  const InstallerRun& repaired = Reinstall(Server());
  ExpectInstalled(repaired);
  EXPECT_EQ(DeferredActions(repaired), std::vector<std::string>());
  EXPECT_EQ(ReadTree(aside), older);
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", Converted(OlderData("1"))));

  // The data and the folders that were moved aside stay after the removal.
  const InstallerRun& removed = Remove(Server());
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(DeferredActions(removed), std::vector<std::string>());
  EXPECT_EQ(ReadTree(server), With({}, "Data", Converted(OlderData("1"))));
  EXPECT_EQ(ReadTree(aside), older);
}

TEST_F(ServerUpgradeTest, DataOutsideTheOlderFolderOfAServerThatTheEngineDoesNotKnow) {
  WriteTree(server, OlderProgram());
  WriteTree(outsideData, OlderData("1"));
  SetDataSetting(outsideData);

  // The conversion fails, and CustomAction17 looks elsewhere, so the converter's files stay in the copy.
  Tree older = OlderData("9");
  older["dbcon.log"] = "no marker";
  older["locked.dat"] = "read-only";
  WriteTree(outsideData, older);
  MakeReadOnly(outsideData + L"\\locked.dat");
  const std::wstring package = elsewhere + L"\\server.msi";
  ChangePackage(
      Server().path, package,
      {"UPDATE `CustomAction` SET `Target` = '[DIR_SERVER]' WHERE `Action` = 'SetJudgeConversion'"});
  const InstallerRun& failed = Msiexec("fail", L"/i \"" + package + L"\" /qn");
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  ExpectRolledBack(failed);
  ASSERT_NE(failed.Property("DIR_UPG_DATA"), "");
  // Everything has its old place again, with the copies next to it: a rollback deletes nothing.
  EXPECT_EQ(ReadTree(outsideData), older);
  Tree copied = older;
  copied["dbcon_failed.txt"] = "The data are in a format that cannot be converted.\r\n";
  EXPECT_EQ(ReadTree(elsewhere + L"\\" + ToWide(NameWithTime(elsewhere, "Data"))), copied);
  EXPECT_FALSE(FileExists(ToWide(failed.Property("DIR_UPG_DATA")) + L"."));
  EXPECT_EQ(ReadTree(server), OlderProgram());
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});

  // This engine's rollback also deletes registry values that it has not written yet.
  SetDataSetting(outsideData);
  DeleteTree(elsewhere);
  WriteTree(outsideData, OlderData("1"));

  // Around midnight the run's date is one of two.
  std::wstring date = DateBehindName();
  const InstallerRun& upgraded = Install(Server());
  if (upgraded.Property("DIR_UPG_DATA").find(FromWide(date)) == std::string::npos) date = DateBehindName();

  ExpectInstalled(upgraded);
  EXPECT_EQ(DeferredActions(upgraded),
            (std::vector<std::string>{
                "CustomAction15.LookAtOlder", "CustomAction15.FreeServer", "CustomAction15.FreeData",
                "CustomAction15.Server", "CustomAction15.Data", "CustomAction15.LookAtData",
                "CustomAction16.Data", "CustomAction17.Clear", "CustomAction17.Judge"}));
  const std::wstring data = outsideData + date;
  EXPECT_EQ(ReadTree(aside), OlderProgram());
  EXPECT_EQ(ReadTree(server), NewProgram());
  EXPECT_EQ(ReadTree(data), OlderData("1"));
  EXPECT_EQ(ReadTree(outsideData), Converted(OlderData("1")));
  EXPECT_EQ(Names(elsewhere), (std::vector<std::string>{"Data", "Data" + FromWide(date)}));
  EXPECT_EQ(DataSetting(), FromWide(outsideData + L"\\"));
  ExpectPublished(upgraded, {
                                {"PROP_UPGRADE_PRODUCTCODE", L""},
                                {"PROP_UPGRADE", L"1"},
                                {"PROP_REPLACING", L""},
                                {"PROP_DFPRESENT", L"1"},
                                {"PROP_PREVVTDF", outsideData + L"\\"},
                                {"DIR_DATAFOLDER", outsideData + L"\\"},
                                {"DIR_EXSERVER", server + L"\\"},
                                {"DIR_EXDATA", outsideData + L"\\"},
                                {"DIR_UPG", aside + L"\\"},
                                {"DIR_UPG_DATA", data + L"\\"},
                                {"DIR_UPG_HELPERDATA", data + L"\\Helper Data\\"},
                                {"DIR_UPG_VRDF", data + L"\\Helper Data\\Reports\\"},
                                {"DIR_UPG_VRDF_PREFS", data + L"\\Helper Data\\Reports\\Preferences\\"},
                            });
}

// One older server, and three attempts to upgrade it.
TEST_F(ServerUpgradeTest, FailuresLeaveTheOlderServerAndTheNextAttemptSucceeds) {
  Tree older = With(OlderProgram(), "Data", OlderData("1"));
  older["Data\\in use.dat"] = "in use";
  WriteTree(server, older);

  // Another process (this one) holds the folder, like a console window whose current folder it is.
  HANDLE folder = CreateFileW(server.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  ASSERT_NE(folder, INVALID_HANDLE_VALUE);
  const InstallerRun& stopped = Install(Server(), L"PROP_SILENCE=-1");
  CloseHandle(folder);
  EXPECT_EQ(stopped.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  ExpectRolledBack(stopped);
  EXPECT_EQ(stopped.LinesWith(kCannotMoveAside).size(), NoticesOfTheScript());
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
  EXPECT_EQ(DataSetting(), std::nullopt);

  // Data that the converter refuses: by then the server has been moved and its data copied. All of it is
  // undone; only the copies stay, in a folder with the time after its name.
  older["Data\\format.txt"] = "9\r\n";
  WriteTree(server, older);
  const InstallerRun& refused = Install(Server(), L"PROP_SILENCE=-1");
  EXPECT_EQ(refused.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  ExpectRolledBack(refused);
  EXPECT_EQ(refused.LinesWith(kCannotMoveAside).size(), 0u);
  EXPECT_EQ(refused.LinesWith(kCannotMerge).size(), 0u);
  Tree copied = OlderData("9");
  copied["in use.dat"] = "in use";
  const std::string replaced = NameWithTime(programs, "Vantor");
  EXPECT_EQ(ReadTree(programs + L"\\" + ToWide(replaced)), With({}, "Data", copied));
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_FALSE(FileExists(aside));
  EXPECT_EQ(DataSetting(), std::nullopt);

  // None of that hinders the next attempt. A file in the middle of the data cannot be read and is not copied
  // back; the upgrade continues, and the folders that were moved aside are complete.
  older["Data\\format.txt"] = "1\r\n";
  WriteTree(server, older);
  HANDLE file = CreateFileW((server + L"\\Data\\in use.dat").c_str(), GENERIC_READ, FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  const InstallerRun& upgraded = Install(Server(), L"PROP_SILENCE=-1");
  CloseHandle(file);
  ExpectInstalled(upgraded);
  EXPECT_EQ(upgraded.LinesWith(kCannotMerge).size(), NoticesOfTheScript());
  EXPECT_EQ(upgraded.LinesWith(kCannotMoveAside).size(), 0u);
  EXPECT_EQ(ReadTree(aside), older);
  EXPECT_EQ(Names(programs), (std::vector<std::string>{"Vantor", "Vantor (previous)", replaced}));
  // Only that one file is missing; all files after it were copied.
  EXPECT_EQ(ReadTree(server + L"\\Data"), Converted(OlderData("1")));
}

TEST_F(ServerUpgradeTest, ServerOfTheEarlierLayoutKeepsWhatAlreadyExists) {
  const std::wstring earlier = elsewhere + L"\\Vantor 7";
  const std::wstring earlierAside = elsewhere + L"\\Vantor (previous)";
  const std::wstring administration = elsewhere + L"\\Vantor Administration\\";
  const Tree older = With(OlderProgram(), "Data", OlderData("2"));
  WriteTree(earlier, older);
  WriteTree(administration, {{"admin.exe", "the older administration program"}});
  // An earlier upgrade has left its folder, and the new data folder has files: both are kept.
  const Tree oldest = {{"oldest.txt", "left by an upgrade before"}};
  WriteTree(earlierAside, oldest);
  const Tree there = {{"a.b.c", "of the new server"},
                      {"Helper Data\\", ""},
                      {"Helper Data\\Reports\\", ""},
                      {"Helper Data\\Reports\\new.txt", "new"}};
  WriteTree(server + L"\\Data", there);

  const InstallerRun& upgraded = Install(
      Server(), L"PROP_PRE75SERVER=\"" + earlier + L"\" PROP_UPGRADE=\"" + administration + L"admin.exe\"");
  ExpectInstalled(upgraded);
  EXPECT_EQ(ReadTree(earlierAside), older);
  Tree merged = there;
  for (const auto& [path, bytes] : OlderData("2")) merged.emplace(path, bytes);
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", merged));
  std::vector<std::string> names = Names(elsewhere);
  ASSERT_EQ(names.size(), 3u);
  EXPECT_EQ(names[0], "Vantor (previous)");
  EXPECT_EQ(names[2], "Vantor Administration");
  EXPECT_EQ(ReadTree(elsewhere + L"\\" + ToWide(names[1])), oldest) << names[1];
  ExpectPublished(upgraded, {
                                {"PROP_PREVVTDF", earlier + L"\\Data\\"},
                                {"DIR_EXSERVER", earlier + L"\\"},
                                {"DIR_UPG", earlierAside + L"\\"},
                                {"DIR_DATAFOLDER", server + L"\\Data\\"},
                                {"DIR_EXADMIN", administration},
                                {"PROP_UPGRADE", administration + L"admin.exe"},
                                {"PROP_DFPRESENT", L""},
                            });
}

TEST_F(ServerUpgradeTest, WithoutAnOlderServerNothingIsMoved) {
  // Folders without a file do not count as data.
  const Tree empty = {{"Reports\\", ""}, {"Reports\\2024\\", ""}};
  WriteTree(server + L"\\Data", empty);
  const InstallerRun& fresh = Install(Server());
  ExpectInstalled(fresh);
  EXPECT_EQ(DeferredActions(fresh), std::vector<std::string>{"CustomAction15.LookAtData"});
  // Nobody has asked for an account: the service runs as LocalSystem, and the folders keep their access
  // lists.
  const std::string folder = FromWide(server);
  EXPECT_EQ(fresh.SetupLines(),
            (std::vector<std::string>{
                SetupLine("no service account, using LocalSystem"),
                SetupLine("InstallHinfSection(DefaultInstall 128 " + folder + "\\vantor.inf)"),
                SetupLine("installing complex firewall rules"),
            }));
  EXPECT_EQ(ServerAccount(), "LocalSystem");
  // Where entries are inherited, both folders have those of the folder above them, and none of their own.
  if (OnWindows(Differs::kAccessOfFolders)) {
    for (const std::wstring& path : {server, server + L"\\Data"})
      EXPECT_FALSE(machine::HasOwnEntry(AccessTo(path)));
  } else {
    const std::string made = "D:(A;OICI;FA;;;SY)(A;OICI;FA;;;USER)(A;OICI;0x1200a9;;;WD)";
    EXPECT_EQ(AccessTo(server), made);
    EXPECT_EQ(AccessTo(server + L"\\Data"), made);
  }
  ExpectFirewallTexts(server + L"\\vt.exe");
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", empty));
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
  ExpectPublished(fresh, {{"PROP_DFPRESENT", L""}, {"PROP_UPGRADE", L""}, {"PROP_REPLACING", L""}});

  // The server is removed, its data stay; the next installation finds and converts them in place.
  WriteTree(server + L"\\Data", {{"format.txt", "1\r\n"}});
  const InstallerRun& removed = Remove(Server());
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(removed.SetupLines(), (std::vector<std::string>{
                                      Expected({SetupLine("query service sizing failed:  124")})[0],
                                      SetupLine("removing complex firewall rules"),
                                      SetupLine("InstallHinfSection(Remove 128 " + folder + "\\vantor.inf)"),
                                  }));
  Tree kept = empty;
  kept["format.txt"] = "1\r\n";
  EXPECT_EQ(ReadTree(server), With({}, "Data", kept));
  const InstallerRun& again = Install(Server());
  ExpectInstalled(again);
  EXPECT_EQ(DeferredActions(again),
            (std::vector<std::string>{"CustomAction15.LookAtData", "CustomAction17.Clear",
                                      "CustomAction17.Judge"}));
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", Converted(kept)));
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
  ExpectPublished(again, {{"PROP_DFPRESENT", L"1"}, {"PROP_UPGRADE", L""}});
}

// The data folder of the upgraded server is new, and the service's account must have the same access as to
// the old one.
TEST_F(ServerUpgradeTest, AnUpgradeGivesTheServicesAccountTheNewDataFolder) {
  HX_NEEDS_WINE(Differs::kServiceWithoutPassword);
  const Package later = LaterServer();
  // Others inherit nothing, but this engine makes every folder readable for them.
  SetAccess(elsewhere, "D:(A;OICI;FA;;;USER)");
  const std::string made = "D:(A;OICI;FA;;;SY)(A;OICI;FA;;;USER)(A;OICI;0x1200a9;;;WD)";
  const std::string given = "D:(A;OICI;FA;;;SY)(A;OICI;FA;;;USER)";
  const std::wstring dataFolder = L" DIR_DATAFOLDER=\"" + outsideData;
  ASSERT_EQ(Install(Server(), L"PROP_ACCOUNTTYPE=1" + dataFolder + L"\"").exitCode, 0u);
  WriteTree(outsideData, OlderData("1"));
  // An account that this engine can look up.
  const std::string account = ComputerName() + "\\" + UserName(), folder = FromWide(server);
  const std::vector<std::string> lines = {
      SetupLine("InstallHinfSection(DefaultInstall 128 " + folder + "\\vantor.inf)"),
      SetupLine("setting ACL for " + account + " on " + account),
      SetupLine("set ACL for " + account),
      SetupLine("set ACL (0) for " + account + "=500 on " + folder),
      SetupLine("installing complex firewall rules"),
  };
  SetServerAccount(account);
  EXPECT_EQ(AccessTo(outsideData), made);

  const InstallerRun& upgraded = Install(later, L"PROP_ACCOUNTTYPE=1");
  EXPECT_EQ(upgraded.exitCode, 0u);
  EXPECT_TRUE(later.IsInstalled());
  EXPECT_FALSE(Server().IsInstalled());
  EXPECT_EQ(upgraded.SetupLines(), lines);
  EXPECT_EQ(ReadTree(outsideData), Converted(OlderData("1")));
  EXPECT_EQ(AccessTo(outsideData), given);
  EXPECT_EQ(AccessTo(ToWide(upgraded.Property("DIR_UPG_DATA"))), made);
  // The removal of the older version, inside this run, has left what both versions have in common.
  EXPECT_EQ(ServerAccount(), account);
  EXPECT_EQ(NotedAccount(), ".\\vantor");
  EXPECT_NE(GetRegistryText(HKEY_LOCAL_MACHINE, kEventSourceKey, "EventMessageFile"), std::nullopt);

  // A repair also gives access if it does not find the folder that the server's settings name, and creates
  // it. It takes no other folder, whatever it is given.
  DeleteTree(outsideData);
  EXPECT_EQ(Reinstall(later, dataFolder + L" 2\"").SetupLines(), lines);
  EXPECT_EQ(AccessTo(outsideData), given);
  EXPECT_EQ(DataSetting(), FromWide(outsideData) + "\\");
  EXPECT_FALSE(FileExists(outsideData + L" 2"));
  EXPECT_FALSE(FileExists(server + L"\\Data"));

  EXPECT_EQ(Remove(later).exitCode, 0u);
  EXPECT_EQ(NotedAccount(), "(none)");
}

}  // namespace
}  // namespace install
