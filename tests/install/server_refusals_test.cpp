// What a server package refuses before anything changes: missing or unusable names, folders that contain each
// other, and folders written in a form that no action can use.

#include "install/server_rig.h"

namespace install {
namespace {

const Tree kData = {{"format.txt", "1\r\n"}};

class ServerRefusalsTest : public ServerTest {
 protected:
  /// Installs a copy of the server package in which `statements` have been run.
  const InstallerRun& InstallChanged(const std::vector<std::string>& statements,
                                     const std::wstring& properties = L"") {
    WriteTree(elsewhere, {});
    const std::wstring package = elsewhere + L"\\server.msi";
    ChangePackage(Server().path, package, statements);
    const InstallerRun& run = Msiexec("changed", L"/i \"" + package + L"\" /qn " + properties);
    DeleteFileW(package.c_str());
    return run;
  }

  /// Returns a statement that gives a property of the package another value, or deletes it.
  static std::string Change(const std::string& property, const std::string& value) {
    return "UPDATE `Property` SET `Value` = '" + value + "' WHERE `Property` = '" + property + "'";
  }
  static std::string Delete(const std::string& property) {
    return "DELETE FROM `Property` WHERE `Property` = '" + property + "'";
  }
  /// Returns statements that set a property at a place of the execute sequence.
  static std::vector<std::string> SetAt(int place, const std::string& property, const std::string& value) {
    return {"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Move', 51, '" +
                property + "', '" + value + "')",
            "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('Move', " +
                std::to_string(place) + ")"};
  }

  /// Lays down an older server, in the folder of a maker with other content.
  void LayDownOlderServer() {
    WriteTree(server, With(OlderProgram(), "Data", kData));
    WriteTree(programs + L"\\Ostrel", {{"ostrel.ini", "the client's"}});
    before_ = ReadTree(programs);
  }
  /// Expects that an action has refused the run, and that the older server and everything next to it are
  /// unchanged.
  void ExpectNothingMoved(const InstallerRun& run, const std::string& action) {
    ExpectRefused(run, action);
    EXPECT_EQ(ReadTree(programs), before_) << action;
    DeleteTree(programs);
    LayDownOlderServer();
  }

 private:
  Tree before_;
};

// With such a name the folder for the older server would be the maker's folder, with everything in it.
TEST_F(ServerRefusalsTest, InvalidNamesForTheOlderServersFolder) {
  LayDownOlderServer();
  ExpectNothingMoved(InstallChanged({Delete("ServerAsideName")}), "RefuseAsideName");
  for (const char* name : {".", "Vantor ", "Kept\\", "a/b"})
    ExpectNothingMoved(InstallChanged({Change("ServerAsideName", name)}), "RefuseAsideName");
}

TEST_F(ServerRefusalsTest, AFolderToKeepTheOlderServerInThatContainsIt) {
  LayDownOlderServer();
  // Before costing, and after it, because a folder may have changed by then.
  for (const auto& [place, action] :
       {std::pair(699, "RefuseAsideFolder"), std::pair(1005, "RefuseAsideFolderAgain")}) {
    ExpectNothingMoved(InstallChanged(SetAt(place, "DIR_UPG", "[DIR_EXSERVER]")), action);
    ExpectNothingMoved(InstallChanged(SetAt(place, "DIR_UPG", "C:\\PROGRAM FILES\\Halvorstead\\")), action);
    // The new server's folder, and the data folder.
    ExpectNothingMoved(InstallChanged(SetAt(place, "DIR_UPG", FromWide(elsewhere) + "\\"),
                                      L"PROP_UPGRADE=1 DIR_DATAFOLDER=\"" + outsideData + L"\""),
                       action);
  }
  for (const auto& [place, action] :
       {std::pair(699, "RefuseNoFolders"), std::pair(1005, "RefuseNoFoldersAgain")}) {
    for (const char* property : {"DIR_UPG", "DIR_UPG_DATA", "DIR_EXSERVER"})
      ExpectNothingMoved(InstallChanged(SetAt(place, property, "{}")), action);
  }
  // As if CustomAction34 or CustomAction20 had run out of memory: the data would not be found again.
  ExpectNothingMoved(InstallChanged(SetAt(1005, "PROP_PREVVTDF", "{}")), "RefuseNoFoldersAgain");
  ExpectNothingMoved(InstallChanged(SetAt(1005, "DIR_UPG", "[DIR_SERVER]Vantor (previous)\\")),
                     "RefuseNoFoldersAgain");
  ExpectNothingMoved(InstallChanged(SetAt(699, "DIR_UPG_DATA", "[PROP_PREVVTDF]")), "RefuseNoFolders");
}

TEST_F(ServerRefusalsTest, AFolderToKeepTheOlderDataInThatContainsThem) {
  LayDownOlderServer();
  WriteTree(outsideData, kData);
  SetDataSetting(outsideData);
  for (const auto& [place, action] :
       {std::pair(699, "RefuseAsideData"), std::pair(1005, "RefuseAsideDataAgain")}) {
    for (const std::string& folder :
         {FromWide(elsewhere) + "\\", FromWide(elsewhere) + "\\DATA\\", std::string("C:\\Program Files\\")}) {
      ExpectNothingMoved(InstallChanged(SetAt(place, "DIR_UPG_DATA", folder)), action);
      EXPECT_EQ(ReadTree(outsideData), kData) << folder;
    }
  }
}

TEST_F(ServerRefusalsTest, NamesThatTheFragmentsNeed) {
  LayDownOlderServer();
  for (const char* name : {"DIR_UPG_HELPERDATA", "DIR_UPG_VRDF", "DIR_UPG_VRDF_PREFS"})
    ExpectNothingMoved(InstallChanged({Delete(name)}), "RefuseHelperNames");
  ExpectNothingMoved(InstallChanged({Change("ServerDataName", "Data.")}), "RefuseDataName");

  // Also without an older server: the installation would end in the root of the drive.
  DeleteTree(programs);
  const std::string noFolder = "DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'NewServerFolder'";
  ExpectRefused(InstallChanged({Delete("ServerDataName"), noFolder}), "RefuseServerFolder");
  ExpectRefused(InstallChanged({Delete("ServerDataName")}), "RefuseDataName");
  EXPECT_FALSE(FileExists(programs));
  EXPECT_EQ(DataSetting(), std::nullopt);
}

// The engine knows the older server, and the registry says where it is. The folder that is given would be
// taken for the older server's.
TEST_F(ServerRefusalsTest, AnUpgradeIntoAnotherFolder) {
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  WriteTree(server + L"\\Data", kData);
  const std::wstring other = elsewhere + L"\\Server";
  WriteTree(other, {{"notes.txt", "the administrator's"}});
  const Tree before = ReadTree(programs), prepared = ReadTree(elsewhere);
  ExpectRefused(Install(Server(), L"DIR_SERVER=\"" + other + L"\""), "RefuseOtherFolder");
  EXPECT_TRUE(OlderServer().IsInstalled());
  EXPECT_EQ(ReadTree(programs), before);
  EXPECT_EQ(ReadTree(elsewhere), prepared);
  // The same folder, in other letters; the registry's has no backslash at its end.
  SetRegistryText(HKEY_LOCAL_MACHINE, std::string(kMakerKey) + "\\Vantor", "ServerFolder", FromWide(server));
  EXPECT_EQ(Install(Server(), L"DIR_SERVER=\"C:\\PROGRAM FILES\\halvorstead\\VANTOR\"").exitCode, 0u);
  EXPECT_TRUE(Server().IsInstalled());
  EXPECT_FALSE(OlderServer().IsInstalled());
}

TEST_F(ServerRefusalsTest, FoldersInAnUnusableForm) {
  LayDownOlderServer();
  for (const wchar_t* folder :
       {L"C:\\Vantor Store\\Data\\\\", L"C:/Vantor Store/Data/", L"C:\\Vantor Store/Data"}) {
    const std::wstring text = folder;
    ExpectNothingMoved(Install(Server(), L"DIR_DATAFOLDER=\"" + text + L"\""), "RefuseDataFolderText");
    ExpectNothingMoved(Install(Server(), L"DIR_SERVER=\"" + text + L"\""), "RefuseServerFolderText");
  }
  EXPECT_FALSE(FileExists(elsewhere));

  // The server's settings are somebody's text as well.
  WriteTree(outsideData, kData);
  SetDataSetting(outsideData + L"\\\\");
  ExpectNothingMoved(Install(Server()), "RefuseDataSetting");
  EXPECT_EQ(ReadTree(outsideData), kData);
}

// A repair would write the setting again, and the command line cannot change it. A removal is not refused.
TEST_F(ServerRefusalsTest, ASettingInAnUnusableFormStopsARepairButNoRemoval) {
  ASSERT_EQ(Install(Server()).exitCode, 0u);
  for (const wchar_t* folder : {L"C:/Vantor Store/Data", L"C:\\Vantor Store\\Data\\\\"}) {
    SetDataSetting(folder);
    const InstallerRun& repaired = Reinstall(Server());
    EXPECT_EQ(repaired.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    EXPECT_EQ(repaired.FailuresOf("RefuseDataSetting").size(), 1u);
    EXPECT_EQ(DataSetting(), FromWide(folder));
  }
  EXPECT_EQ(Reinstall(Server(), L"DIR_DATAFOLDER=\"" + outsideData + L"\"").exitCode,
            static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_EQ(DataSetting(), "C:\\Vantor Store\\Data\\\\");
  EXPECT_EQ(Remove(Server(), L"DIR_SERVER=C:/Vantor DIR_DATAFOLDER=C:/Vantor").exitCode, 0u);
  EXPECT_FALSE(Server().IsInstalled());
}

}  // namespace
}  // namespace install
