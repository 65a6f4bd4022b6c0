// Links to folders in the data of a server that is upgraded, which anybody who may write the data can put
// there. The upgrade and its rollback read, write and delete nothing outside their own folders.

#include "install/machine_state.h"
#include "install/security_rig.h"

namespace install {
namespace {

class ServerLinksTest : public SecurityTest {
 protected:
  void SetUp() override {
    SecurityTest::SetUp();
    WriteTree(secret, kSecret);
  }

  /// Lays down the older server with its data in `data`; if `fails`, the data have a format that cannot be
  /// converted.
  Tree LayDown(const std::wstring& data, bool fails = false) {
    const Tree content = With({{"format.txt", fails ? "9\r\n" : "1\r\n"}, {"counts.dat", "17"}}, "Reports",
                              {{"first.txt", "1"}});
    WriteTree(server, OlderProgram());
    WriteTree(data, content);
    SetDataSetting(data);
    return content;
  }

  /// Expects that `action` has ended the run, that the log says so, and that the run was rolled back.
  void ExpectStopped(const InstallerRun& run, const std::string& action) {
    EXPECT_EQ(run.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    ExpectRolledBack(run);
    EXPECT_EQ(run.LinesWith(kCannotMoveAside).size(), NoticesOfTheScript());
    EXPECT_EQ(run.FailuresOf(action).size(), 1u) << action;
    EXPECT_EQ(run.ScriptActions({action}).size(), 1u) << action;
    EXPECT_EQ(run.ScriptActions({"CustomAction16.Data", "CustomAction17.Clear", "CustomAction25.Data"}),
              Texts());
    if (Server().IsInstalled()) Remove(Server());
  }

  void ExpectSecretKept() { EXPECT_EQ(ReadTree(secret), kSecret); }

  static Tree WithLinks(Tree tree, const std::vector<std::string>& names) {
    for (const std::string& name : names) tree[name + "\\"] = kLink;
    return tree;
  }

  static constexpr wchar_t kLoud[] = L"PROP_SILENCE=-1";
  const Tree kSecret = {{"secret.txt", "nobody's business"}, {"More\\", ""}, {"More\\other.txt", "nor this"}};
  /// A folder that has nothing to do with the server.
  const std::wstring secret = elsewhere + L"\\Secret";
};

// Two links to the folder that contains them make an endless tree.
TEST_F(ServerLinksTest, LinksInTheOlderDataAreNotCopied) {
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    SCOPED_TRACE(FromWide(data));
    DeleteTree(programs);
    Tree older = LayDown(data);
    MakeLink(data + L"\\Reports\\linked", secret);
    MakeLink(data + L"\\again", L".");
    MakeLink(data + L"\\and again", L".");
    const InstallerRun& upgraded = Install(Server(), L"PROP_SILENCE=-1");
    ExpectInstalled(upgraded);
    EXPECT_EQ(upgraded.LinesWith(kCannotMerge).size(), NoticesOfTheScript());
    EXPECT_EQ(ReadTree(data), Converted(older));
    std::wstring kept = ToWide(upgraded.Property("DIR_UPG_DATA"));
    kept.pop_back();
    EXPECT_EQ(ReadTree(kept), WithLinks(older, {"Reports\\linked", "again", "and again"}));
    ExpectSecretKept();
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// A server of the earlier layout gets a new data folder. Somebody has created that folder before, with links
// under the names of the older data, or as a link itself. If the run did not stop, the new server would start
// with part of the data or none, without a message.
TEST_F(ServerLinksTest, LinksInTheNewDataFolderStopAnUpgrade) {
  const std::wstring earlier = elsewhere + L"\\Vantor 7";
  const Tree older =
      With(OlderProgram(), "Data", With({{"format.txt", "1\r\n"}}, "Reports", {{"first.txt", "1"}}));
  // The note of the upgrade leaves the keys above it.
  SetRegistryText(HKEY_LOCAL_MACHINE, std::string(kMakerKey) + "\\Vantor", "Kept", "1");
  for (const bool isAllLink : {false, true}) {
    SCOPED_TRACE(isAllLink);
    DeleteTree(programs);
    WriteTree(earlier, older);
    WriteTree(server, {});
    if (isAllLink) {
      MakeLink(server + L"\\Data", secret);
    } else {
      WriteTree(server + L"\\Data", {{"dbcon_failed.txt", "marker"}});
      MakeLink(server + L"\\Data\\Reports", secret);
    }
    const MachineState before = MachineState::Now();
    const InstallerRun& stopped = Install(Server(), L"PROP_PRE75SERVER=\"" + earlier + L"\" " + kLoud);
    ExpectStopped(stopped, "CustomAction15.LookAtData");
    EXPECT_EQ(MachineState::Now().Since(before), "");
    ExpectSecretKept();
  }
}

// A removed server has left its data. Its service's account could replace the folder by a link, or put a link
// into it, and the next steps run there as SYSTEM: the markers are deleted, the data converted, the folder's
// access list replaced.
TEST_F(ServerLinksTest, LinksInExistingDataStopAnInstallation) {
  const std::string account = ComputerName() + "\\" + UserName();
  WriteTree(secret, {{"format.txt", "1\r\n"}, {"dbcon_failed.txt", "marker"}});
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    for (const bool isAllLink : {false, true}) {
      SCOPED_TRACE(FromWide(data) + (isAllLink ? ", a link" : ", with a link in it"));
      DeleteTree(programs);
      DeleteTree(outsideData);
      // This engine's rollback deletes an empty folder.
      WriteTree(server, {{"left.txt", "of the server before"}});
      if (isAllLink) {
        MakeLink(data, secret);
      } else {
        WriteTree(data, {{"format.txt", "1\r\n"}, {"dbcon_failed.txt", "marker"}, {"Reports\\", ""}});
        MakeLink(data + L"\\Reports\\linked", secret);
      }
      // A service with an account that this engine can look up.
      MakeServer(server + L"\\vt.exe", ToWide(account));
      const MachineState before = MachineState::Now();
      const std::wstring given = data == outsideData ? L"DIR_DATAFOLDER=\"" + data + L"\" " : L"";
      const InstallerRun& stopped = Install(Server(), given + kLoud);
      ExpectStopped(stopped, "CustomAction15.LookAtData");
      EXPECT_EQ(stopped.Property("PROP_DFPRESENT"), "1");
      EXPECT_EQ(MachineState::Now().Since(before), "");
      DeleteServer();
    }
  }
}

// A repair checks for links only if it creates the service again, with an account: no other repair gives
// access to the folder.
TEST_F(ServerLinksTest, ALinkStopsARepairThatGivesAccess) {
  ASSERT_EQ(Install(Server(), L"PROP_ACCOUNTTYPE=1").exitCode, 0u);
  DeleteTree(server + L"\\Data");
  MakeLink(server + L"\\Data", secret);
  const InstallerRun& plain = Reinstall(Server(), L"PROP_ACCOUNTTYPE=1");
  EXPECT_EQ(plain.exitCode, 0u);
  EXPECT_EQ(DeferredActions(plain), Texts());

  DeleteServer();
  const InstallerRun& stopped = Reinstall(Server(), std::wstring(L"PROP_ACCOUNTTYPE=1 ") + kLoud);
  EXPECT_EQ(stopped.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_EQ(stopped.LinesWith(kCannotMoveAside).size(), NoticesOfTheScript());
  EXPECT_EQ(stopped.LinesWith("setting ACL"), Texts());
  ExpectSecretKept();
  // LocalSystem gets no access entry, so the data folder may be a link.
  const InstallerRun& repaired = Reinstall(Server());
  EXPECT_EQ(repaired.exitCode, 0u);
  EXPECT_EQ(DeferredActions(repaired), Texts());
  ExpectSecretKept();

  // Nor is there anything to check in a folder that the repair itself creates.
  DeleteServer();
  DeleteTree(programs);
  const InstallerRun& made = Reinstall(Server(), L"PROP_ACCOUNTTYPE=1 REINSTALLMODE=amus");
  EXPECT_EQ(made.exitCode, 0u);
  EXPECT_EQ(DeferredActions(made), Texts());
  EXPECT_NE(made.LinesWith("setting ACL"), Texts());
}

// SYSTEM has only the computer's rights there, and a share itself cannot be looked up by its name. Wine's
// engine turns such a name into another folder during costing, so the package sets it after that.
TEST_F(ServerLinksTest, NoLinksAreLookedForOnAShare) {
  HX_NEEDS_WINE(Differs::kShares);
  const std::wstring package = elsewhere + L"\\server.msi";
  for (const auto& [folder, isLookedInto] :
       {std::pair("\\\\nowhere\\share\\Data\\", false), std::pair("C:\\Vantor Store\\Data\\", true)}) {
    WriteTree(outsideData, {});
    ChangePackage(Server().path, package,
                  {"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Move', 51, "
                   "'DIR_DATAFOLDER', '" +
                       std::string(folder) + "')",
                   "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('Move', 1505)"});
    const InstallerRun& run = Msiexec("share", L"/i \"" + package + L"\" /qn");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(DeferredActions(run), isLookedInto ? Texts{"CustomAction15.LookAtData"} : Texts()) << folder;
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// Usually an administrator's own link or a mount point. It would be moved aside as a link, and the new server
// would start without data.
TEST_F(ServerLinksTest, AnOlderDataFolderThatIsALinkStopsAnUpgrade) {
  const std::wstring real = elsewhere + L"\\Volume";
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    SCOPED_TRACE(FromWide(data));
    DeleteTree(programs);
    LayDown(real);
    SetDataSetting(data);
    MakeLink(data, real);
    const MachineState before = MachineState::Now();
    const InstallerRun& stopped = Install(Server(), kLoud);
    ExpectStopped(stopped, "CustomAction15.LookAtOlder");
    EXPECT_EQ(MachineState::Now().Since(before), "");

    // Naming the real folder is enough.
    SetDataSetting(real);
    const InstallerRun& upgraded = Install(Server());
    ExpectInstalled(upgraded);
    EXPECT_EQ(ReadTree(real)["format.txt"], "2\r\n");
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
    // Delete the link first: the tools here do not see a link whose target is gone.
    DeleteTree(programs);
    DeleteTree(elsewhere);
    WriteTree(secret, kSecret);
  }
}

// Between the copy and CustomAction17 a folder of the new data becomes a link, and the conversion fails;
// whoever may write there can cause both. The rollback moves the copies away only by the name of their
// folder.
TEST_F(ServerLinksTest, NothingIsDeletedThroughALinkCreatedDuringTheConversion) {
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    SCOPED_TRACE(FromWide(data));
    DeleteTree(programs);
    const Tree older = LayDown(data, true);
    const bool isOutside = data == outsideData;
    const InstallerRun& failed = InstallInterrupted([&] {
      DeleteTree(data + L"\\Reports");
      MakeLink(data + L"\\Reports", secret);
    });
    EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    ExpectRolledBack(failed);
    ExpectSecretKept();
    EXPECT_EQ(ReadTree(data), older);
    // The copies are in the folder that was renamed.
    const std::wstring copy = isOutside
                                  ? elsewhere + L"\\" + ToWide(NameWithTime(elsewhere, "Data"))
                                  : programs + L"\\" + ToWide(NameWithTime(programs, "Vantor")) + L"\\Data";
    EXPECT_EQ(ReadTree(copy), WithLinks({{"format.txt", "9\r\n"}, {"counts.dat", "17"}}, {"Reports"}));
  }
}

// The search for a file in the data folder, which decides whether the folder is in use.
TEST_F(ServerLinksTest, TheSearchForDataEndsOnLinks) {
  WriteTree(server + L"\\Data", {{"Reports\\", ""}});
  MakeLink(server + L"\\Data\\again", L".");
  MakeLink(server + L"\\Data\\Reports\\and again", L".");
  MakeLink(server + L"\\Data\\linked", secret);
  const InstallerRun& stopped = Install(Server(), kLoud);
  ExpectStopped(stopped, "CustomAction15.LookAtData");
  ExpectPublished(stopped, {{"PROP_DFPRESENT", L""}, {"PROP_UPGRADE", L""}});
  ExpectSecretKept();
}

}  // namespace
}  // namespace install
