// CustomAction22: decides whether this is an upgrade, and whether there is data.

#include <algorithm>

#include "actions/server/server_drives.h"
#include "unit/files/name_disk.h"

namespace server_data_folder_decision_test {

using server_test::Calls;
using server_test::ServerTest;

constexpr char kProductCode[] = "{6F1B2C3D-0A4E-4D57-9C31-7E2A90B1C4D5}";

class UpgradeDecisionTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("DIR_DATAFOLDER", "S:\\Vantor Data\\Store\\");
    world.installer.Set("DIR_SERVER", "S:\\Vantor Server\\");
  }
  // Returns the calls that read the data folder.
  Calls ReachesData() {
    return Expected()
        .Read("PROP_UPGRADE_PRODUCTCODE")
        .Read("PROP_UPGRADE")
        .ReadPath("DIR_DATAFOLDER", "S:\\Vantor Data\\Store\\");
  }
  // Returns the calls that start the walk through a folder.
  static Calls& Lists(Calls& calls, const std::string& folder) {
    calls.Add("SetErrorMode(0x8001) = 16384");
    return calls.Search("FindFirstFileW(" + server_test::Quoted(folder + "\\*.*") + ", *)")
        .Add("SetErrorMode(0x4000) = 32769");
  }
  // Returns the search results of an empty folder: itself, its parent, nothing else.
  static Calls& ListsEmpty(Calls& calls, const std::string& folder) {
    return Lists(calls, folder).NextEntry().EndSearch();
  }
};

TEST_F(UpgradeDecisionTest, AProductCodeDecidesAlone) {
  Installer().Set("PROP_UPGRADE_PRODUCTCODE", kProductCode);
  Installer().Set("PROP_UPGRADE", "0");
  Disk().File("S:\\Vantor Data\\Store\\a.dat");
  Disk().File("S:\\Vantor Server\\vt.exe");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_TRACE({Expected()
                    .Read("PROP_UPGRADE_PRODUCTCODE")
                    .Set("PROP_UPGRADE", "1")
                    .Set("PROP_REPLACING", "1")
                    .lines});
  EXPECT_PUBLISHED({"PROP_UPGRADE = 1", "PROP_REPLACING = 1"});
  EXPECT_LOG({});
}

TEST_F(UpgradeDecisionTest, SetsTheSecondPropertyAlsoWhenTheFirstCannotBeSet) {
  Installer().Set("PROP_UPGRADE_PRODUCTCODE", "x");
  Installer().FailSetting("PROP_UPGRADE");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_PUBLISHED({"PROP_REPLACING = 1"});
}

TEST_F(UpgradeDecisionTest, StopsIfTheUpgradeIsDecided) {
  for (const char* decided : {"1", "yes", " ", " 0", "S:\\Vantor\\vtadmin.exe", "-0", "10", "\xC3\xA9"}) {
    SCOPED_TRACE(decided);
    TheRig().trace.Clear();
    Installer().Set("PROP_UPGRADE", decided);
    Disk().File("S:\\Vantor Data\\Store\\a.dat");
    EXPECT_EQ(Run(22), 0u);
    EXPECT_TRACE({Expected().Read("PROP_UPGRADE_PRODUCTCODE").Read("PROP_UPGRADE").lines});
    EXPECT_PUBLISHED({});
  }
}

TEST_F(UpgradeDecisionTest, AZeroDecidesNothing) {
  for (const char* undecided : {"0", "00", "01", "0yes"}) {
    SCOPED_TRACE(undecided);
    Installer().Set("PROP_UPGRADE", undecided);
    Disk().File("S:\\Vantor Data\\Store\\a.dat");
    Disk().File("S:\\Vantor Server\\vt.exe");
    size_t before = Installer().Published().size();
    EXPECT_EQ(Run(22), 0u);
    ASSERT_EQ(Installer().Published().size(), before + 2);
    EXPECT_EQ(Installer().Published()[before], "PROP_DFPRESENT = 1");
    EXPECT_EQ(Installer().Published()[before + 1], "PROP_UPGRADE = 1");
  }
}

TEST_F(UpgradeDecisionTest, FindsDataAndTheServer) {
  Disk().File("S:\\Vantor Data\\Store\\a.dat");
  Disk().File("S:\\Vantor Server\\vt.exe");
  EXPECT_EQ(Run(22), 0u);
  Calls calls = ReachesData();
  EXPECT_TRACE({Lists(calls, "S:\\Vantor Data\\Store")
                    .NextEntry()
                    .NextEntry()
                    .CloseSearch()
                    .Set("PROP_DFPRESENT", "1")
                    .ReadPath("DIR_SERVER", "S:\\Vantor Server\\")
                    .Join("S:\\Vantor Server\\vt.exe")
                    .TestFile("S:\\Vantor Server\\vt.exe")
                    .Set("PROP_UPGRADE", "1")
                    .lines});
  EXPECT_PUBLISHED({"PROP_DFPRESENT = 1", "PROP_UPGRADE = 1"});
  EXPECT_LOG({});
}

// As people write them. Folders that match only the last names are different ones.
TEST_F(UpgradeDecisionTest, SlashesSeparateNames) {
  Disk().File("S:\\Srv\\Data\\a.dat");
  Disk().File("S:\\Srv\\Vantor\\vt.exe");
  Disk().Folder("S:\\Data");
  Disk().Folder("S:\\Vantor");
  Installer().Set("DIR_DATAFOLDER", "S:\\Srv/Data");
  Installer().Set("DIR_SERVER", "S:\\Srv/Vantor/");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_PUBLISHED({"PROP_DFPRESENT = 1", "PROP_UPGRADE = 1"});
}

// A link to its own folder would make the walk endless.
TEST_F(UpgradeDecisionTest, LinksToFoldersAreNotData) {
  name_disk::Disk disk;
  disk.Plant(L"S:", L"Vantor Data", nullptr);
  disk.Plant(L"S:\\Vantor Data", L"Empty", nullptr);
  disk.PlantLink(L"S:\\Vantor Data", L"Self", L"S:\\Vantor Data");
  disk.Install(TheRig());
  Installer().Set("DIR_DATAFOLDER", "S:\\Vantor Data");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_PUBLISHED({});
  const std::string contents = "data";
  disk.Plant(L"S:\\Vantor Data\\Empty", L"z", &contents);
  EXPECT_EQ(Run(22), 0u);
  EXPECT_EQ(Installer().Published().front(), "PROP_DFPRESENT = 1");
}

TEST_F(UpgradeDecisionTest, FindsAFileDeepBelow) {
  Disk().File("S:\\Vantor Data\\Store\\one\\two\\three\\a.dat");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_PUBLISHED({"PROP_DFPRESENT = 1"});
}

TEST_F(UpgradeDecisionTest, EmptyFoldersAreNotData) {
  Disk().Folder("S:\\Vantor Data\\Store\\one\\two");
  Disk().File("S:\\Vantor Server\\vt.exe");
  EXPECT_EQ(Run(22), 0u);
  Calls calls = ReachesData();
  Lists(calls, "S:\\Vantor Data\\Store").NextEntry().NextEntry();
  Lists(calls, "S:\\Vantor Data\\Store\\one").NextEntry().NextEntry();
  ListsEmpty(calls, "S:\\Vantor Data\\Store\\one\\two");
  EXPECT_TRACE({calls.EndSearch(3).EndSearch(2).lines});
  EXPECT_PUBLISHED({});
}

TEST_F(UpgradeDecisionTest, AnEmptyDataFolderIsNotData) {
  Disk().Folder("S:\\Vantor Data\\Store");
  Disk().File("S:\\Vantor Server\\vt.exe");
  EXPECT_EQ(Run(22), 0u);
  Calls calls = ReachesData();
  EXPECT_TRACE({ListsEmpty(calls, "S:\\Vantor Data\\Store").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(UpgradeDecisionTest, AMissingDataFolderIsNotData) {
  Disk().File("S:\\Vantor Server\\vt.exe");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_TRACE({ReachesData()
                    .Add("SetErrorMode(0x8001) = 16384")
                    .LookUp("S:\\Vantor Data\\Store\\*.*")
                    .Add("SetErrorMode(0x4000) = 32769")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(UpgradeDecisionTest, AFileInPlaceOfTheDataFolderIsNotData) {
  Installer().Set("DIR_DATAFOLDER", "S:\\Vantor Data");
  Disk().File("S:\\Vantor Data");
  Disk().File("S:\\Vantor Server\\vt.exe");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(UpgradeDecisionTest, StopsWithoutADataFolder) {
  Disk().File("S:\\Current\\a.dat");
  Disk().File("S:\\Vantor Server\\vt.exe");
  Installer().Set("DIR_DATAFOLDER", "");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_TRACE(
      {Expected().Read("PROP_UPGRADE_PRODUCTCODE").Read("PROP_UPGRADE").Read("DIR_DATAFOLDER").lines});
  TheRig().trace.Clear();
  Installer().FailReading("DIR_DATAFOLDER");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_TRACE({Expected()
                    .Read("PROP_UPGRADE_PRODUCTCODE")
                    .Read("PROP_UPGRADE")
                    .Read("DIR_DATAFOLDER", "1627")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(UpgradeDecisionTest, UnreadablePropertiesAreNotSet) {
  Installer().FailReading("PROP_UPGRADE_PRODUCTCODE");
  Installer().FailReading("PROP_UPGRADE");
  Disk().File("S:\\Vantor Data\\Store\\a.dat");
  EXPECT_EQ(Run(22), 0u);
  EXPECT_PUBLISHED({"PROP_DFPRESENT = 1"});
}

TEST_F(UpgradeDecisionTest, StopsWithoutAServerFolder) {
  Disk().File("S:\\Vantor Data\\Store\\a.dat");
  Disk().File("S:\\Current\\vt.exe");
  Installer().Set("DIR_SERVER", "");
  EXPECT_EQ(Run(22), 0u);
  Calls calls = ReachesData();
  EXPECT_TRACE({Lists(calls, "S:\\Vantor Data\\Store")
                    .NextEntry()
                    .NextEntry()
                    .CloseSearch()
                    .Set("PROP_DFPRESENT", "1")
                    .Read("DIR_SERVER")
                    .lines});
  EXPECT_PUBLISHED({"PROP_DFPRESENT = 1"});
}

TEST_F(UpgradeDecisionTest, NeedsTheServersProgramAsAFile) {
  Disk().File("S:\\Vantor Data\\Store\\a.dat");
  for (bool isFolder : {false, true}) {
    TheRig().trace.Clear();
    if (isFolder) Disk().Folder("S:\\Vantor Server\\vt.exe");
    EXPECT_EQ(Run(22), 0u);
    Calls calls = Expected();
    EXPECT_EQ(TheRig().trace.Lines().back(), calls.TestFile("S:\\Vantor Server\\vt.exe").lines.back());
  }
  EXPECT_PUBLISHED({"PROP_DFPRESENT = 1", "PROP_DFPRESENT = 1"});
}

TEST_F(UpgradeDecisionTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(22,
               [&](rig::World& world) {
                 Disk().Clear();
                 Disk().File("S:\\Vantor Data\\Store\\inner\\a.dat");
                 Disk().File("S:\\Vantor Server\\vt.exe");
                 world.installer.Set("PROP_UPGRADE", "0");
               },
               {.check = [](const rig::SweepRun& run) {
                 const std::vector<std::string> whole = {"PROP_DFPRESENT = 1", "PROP_UPGRADE = 1"};
                 const std::vector<std::string>& published = run.scene.world.installer.Published();
                 if (run.name == "MsiSetPropertyW") {
                   EXPECT_EQ(published.size(), 1u);
                 } else {
                   // The published properties are the first ones of the whole run.
                   ASSERT_LE(published.size(), 2u) << run.call;
                   EXPECT_TRUE(std::equal(published.begin(), published.end(), whole.begin())) << run.call;
                 }
               }});
}

TEST_F(UpgradeDecisionTest, NoFailureMakesDataOfEmptyFolders) {
  FailEachCall(22,
               [&](rig::World& world) {
                 Disk().Clear();
                 Disk().Folder("S:\\Vantor Data\\Store\\inner");
                 Disk().File("S:\\Vantor Server\\vt.exe");
                 world.installer.Set("PROP_UPGRADE", "0");
               },
               {.check = [](const rig::SweepRun& run) {
                 EXPECT_TRUE(run.scene.world.installer.Published().empty()) << run.call;
               }});
}

}  // namespace server_data_folder_decision_test
