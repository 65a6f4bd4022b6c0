// CustomAction20: the folders of a server upgrade.

#include <algorithm>

#include "actions/server/server_drives.h"

namespace server_migration_folders_test {

using server_test::Calls;
using server_test::ServerTest;

class UpgradeFoldersTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("DIR_SERVER", "S:\\Halvorstead\\Vantor Server\\");
    world.installer.Set("DIR_UPG", "D:\\Any place\\Old Server\\");
    world.installer.Set("DIR_UPG_DATA", "D:\\Any place\\Old Server\\Data Folder\\");
    world.installer.Set("DIR_UPG_HELPERDATA", "D:\\Any place\\Helper Data\\");
    world.installer.Set("DIR_UPG_VRDF", "D:\\Any place\\Reports Store\\");
    world.installer.Set("DIR_UPG_VRDF_PREFS", "D:\\Any place\\Report Preferences\\");
  }
  // Returns the calls up to the settings if DIR_SERVER is the old server.
  Calls OldServerFound() {
    return Expected()
        .Read("PROP_PRE75SERVER")
        .ReadPath("DIR_SERVER", "S:\\Halvorstead\\Vantor Server\\")
        .Set("DIR_EXSERVER", "S:\\Halvorstead\\Vantor Server\\");
  }
  // Reads the last name of a property and publishes the folder that is made with it.
  static void Publishes(Calls& calls, const std::string& name, const std::string& read,
                        const std::string& folder) {
    calls.ReadPath(name, read).Join(folder).Set(name, folder + "\\");
  }
  // Returns the calls after DIR_EXDATA if the data goes to `data`.
  static std::vector<std::string> ChainCalls(Calls& calls, const std::string& around,
                                             const std::string& data) {
    Publishes(calls, "DIR_UPG", "D:\\Any place\\Old Server\\", around + "Old Server");
    Publishes(calls, "DIR_UPG_DATA", "D:\\Any place\\Old Server\\Data Folder\\", data);
    Publishes(calls, "DIR_UPG_HELPERDATA", "D:\\Any place\\Helper Data\\", data + "\\Helper Data");
    Publishes(calls, "DIR_UPG_VRDF", "D:\\Any place\\Reports Store\\", data + "\\Helper Data\\Reports Store");
    Publishes(calls, "DIR_UPG_VRDF_PREFS", "D:\\Any place\\Report Preferences\\",
              data + "\\Helper Data\\Reports Store\\Report Preferences");
    return calls.lines;
  }
  // Returns all published properties, in order.
  static std::vector<std::string> Chain(const std::string& server, const std::string& outside,
                                        const std::string& around, const std::string& data) {
    const std::string helper = data + "Helper Data\\";
    return {"DIR_EXSERVER = " + server,
            "DIR_EXDATA = " + outside,
            "DIR_UPG = " + around + "Old Server\\",
            "DIR_UPG_DATA = " + data,
            "DIR_UPG_HELPERDATA = " + helper,
            "DIR_UPG_VRDF = " + helper + "Reports Store\\",
            "DIR_UPG_VRDF_PREFS = " + helper + "Reports Store\\Report Preferences\\"};
  }
  // The same, if the data is inside the old server folder.
  static std::vector<std::string> InsideChain() {
    return Chain("S:\\Halvorstead\\Vantor Server\\", "", "S:\\Halvorstead\\",
                 "S:\\Halvorstead\\Old Server\\Data Folder\\");
  }
  // The same, if the data is outside, in `folder`, and goes to `data`.
  static std::vector<std::string> OutsideChain(const std::string& folder, const std::string& data) {
    return Chain("S:\\Halvorstead\\Vantor Server\\", folder, "S:\\Halvorstead\\", data);
  }
  // Checks a run with a failing call: it may publish only lines of the right chain, in their order. A
  // property that the installer refuses to read counts as not set, so its name is missing in all later lines.
  // Settings that cannot be read count as missing. Neither is true if out of memory.
  static void CheckChain(const rig::SweepRun& run, const std::vector<std::string>& whole) {
    const std::vector<std::string>& published = run.scene.world.installer.Published();
    const std::vector<std::string> inside = InsideChain();
    server_test::ExpectNoOtherFolder(run, whole);
    const bool failsToRead = run.name == "MsiGetPropertyW";
    const bool failsSettings = run.name == "RegOpenKeyExA" || run.name == "RegQueryValueExA";
    const std::vector<std::string>& chain = failsSettings ? inside : whole;
    if (failsSettings) EXPECT_EQ(published, inside);
    if (run.name == "MsiSetPropertyW") EXPECT_EQ(published.size(), chain.size() - 1) << run.call;
    size_t at = 0;
    for (const std::string& line : published) {
      while (at < chain.size() && chain[at] != line && !(failsToRead && WithoutOneName(chain[at], line)))
        ++at;
      EXPECT_LT(at, chain.size()) << run.call << " published " << line;
    }
    // Nothing is derived from a folder that could not be published.
    const bool hasUpgrade = std::any_of(published.begin(), published.end(), [](const std::string& line) {
      return line.rfind("DIR_UPG = ", 0) == 0;
    });
    if (!hasUpgrade && run.name != "MsiSetPropertyW") EXPECT_LE(published.size(), 2u) << run.call;
  }
  // Returns true if `shorter` is `line` without one of the names in the properties.
  static bool WithoutOneName(const std::string& line, const std::string& shorter) {
    for (const char* name : {"Old Server\\", "Data Folder\\", "Data Folder", "Helper Data\\",
                             "Reports Store\\", "Report Preferences\\"}) {
      size_t at = line.find(name);
      if (at == line.npos) continue;
      std::string without = line;
      if (without.erase(at, std::string(name).size()) == shorter) return true;
    }
    return false;
  }
  // Returns what was published since `before`.
  std::vector<std::string> PublishedSince(size_t before) {
    const std::vector<std::string>& all = Installer().Published();
    return {all.begin() + static_cast<ptrdiff_t>(before), all.end()};
  }
};

TEST_F(UpgradeFoldersTest, WithoutSettingsTheDataGoesIntoTheUpgradesFolder) {
  EXPECT_EQ(Run(20), 0u);
  Calls calls = OldServerFound().OpenSettings("2").Set("DIR_EXDATA", "");
  EXPECT_TRACE({ChainCalls(calls, "S:\\Halvorstead\\", "S:\\Halvorstead\\Old Server\\Data Folder")});
  EXPECT_PUBLISHED({InsideChain()});
  EXPECT_LOG({});
}

// As people write them. Folders that match only the last names are different ones.
TEST_F(UpgradeFoldersTest, SlashesSeparateNames) {
  for (const char* folder :
       {"S:\\Halvorstead\\Vantor Server", "S:\\Vantor Server", "D:\\Store\\Data", "D:\\Data"}) {
    Disk().Folder(folder);
  }
  TheWorld().clock.local = {2026, 11, 0, 15, 11, 30, 45, 0};
  Installer().Set("DIR_SERVER", "S:\\Halvorstead/Vantor Server/");
  Installer().Set("DIR_UPG", "D:/Any place/Old Server/");
  SetData(TheWorld(), "D:\\Store/Data");
  EXPECT_EQ(Run(20), 0u);
  std::vector<std::string> published = Installer().Published();
  ASSERT_GE(published.size(), 4u);
  published.resize(4);
  EXPECT_EQ(published, (std::vector<std::string>{"DIR_EXSERVER = S:\\Halvorstead\\Vantor Server\\",
                                                 "DIR_EXDATA = D:\\Store\\Data\\",
                                                 "DIR_UPG = S:\\Halvorstead\\Old Server\\",
                                                 "DIR_UPG_DATA = D:\\Store\\Data Folder 2026-11-15\\"}));
}

TEST_F(UpgradeFoldersTest, SettingsThatCannotBeOpenedAreIgnored) {
  SetData(TheWorld(), "D:\\Store");
  TheRegistry().Deny(kSettings);
  EXPECT_EQ(Run(20), 0u);
  Calls calls = OldServerFound().OpenSettings("5").Set("DIR_EXDATA", "");
  EXPECT_TRACE({ChainCalls(calls, "S:\\Halvorstead\\", "S:\\Halvorstead\\Old Server\\Data Folder")});
}

TEST_F(UpgradeFoldersTest, SettingsWithoutADataFolderEmptyTheProperty) {
  MakeSettings(TheWorld());
  Installer().Set("DIR_EXDATA", "S:\\Stale\\");
  EXPECT_EQ(Run(20), 0u);
  Calls calls = OldServerFound().OpenSettings().QueryData("2").CloseSettings().Set("DIR_EXDATA", "");
  EXPECT_TRACE({ChainCalls(calls, "S:\\Halvorstead\\", "S:\\Halvorstead\\Old Server\\Data Folder")});
  EXPECT_PUBLISHED({InsideChain()});
}

TEST_F(UpgradeFoldersTest, DataInsideTheOldServerIsNotSeparate) {
  SetData(TheWorld(), "S:\\Halvorstead\\Vantor Server\\Data Store");
  EXPECT_EQ(Run(20), 0u);
  Calls calls = OldServerFound()
                    .OpenSettings()
                    .QueryData()
                    .Spell("S:\\Halvorstead\\Vantor Server\\Data Store")
                    .CloseSettings()
                    .Set("DIR_EXDATA", "");
  EXPECT_TRACE({ChainCalls(calls, "S:\\Halvorstead\\", "S:\\Halvorstead\\Old Server\\Data Folder")});
  EXPECT_PUBLISHED({InsideChain()});
}

TEST_F(UpgradeFoldersTest, DataOutsideGetsADatedFolderBesideIt) {
  SetData(TheWorld(), "D:\\Vantor Data\\Store of 2019");
  EXPECT_EQ(Run(20), 0u);
  Calls calls = OldServerFound()
                    .OpenSettings()
                    .QueryData()
                    .Spell("D:\\Vantor Data\\Store of 2019")
                    .CloseSettings()
                    .Set("DIR_EXDATA", "D:\\Vantor Data\\Store of 2019\\");
  EXPECT_TRACE({ChainCalls(calls, "S:\\Halvorstead\\", "D:\\Vantor Data\\Data Folder 2026-11-15")});
  EXPECT_PUBLISHED(
      {OutsideChain("D:\\Vantor Data\\Store of 2019\\", "D:\\Vantor Data\\Data Folder 2026-11-15\\")});
}

TEST_F(UpgradeFoldersTest, TheDateIsTheLocalOne) {
  SetData(TheWorld(), "D:\\Vantor Data\\Store of 2019");
  TheWorld().clock.local = {2027, 1, 0, 1, 0, 30, 0, 0};
  TheWorld().clock.utc = {2026, 12, 0, 31, 23, 30, 0, 0};
  EXPECT_EQ(Run(20), 0u);
  EXPECT_EQ(Installer().Get("DIR_UPG_DATA"), "D:\\Vantor Data\\Data Folder 2027-01-01\\");
}

TEST_F(UpgradeFoldersTest, TellsInsideFromOutside) {
  struct Case {
    const char* data;
    const char* goesTo;  // Null: the data is inside.
  };
  const Case cases[] = {
      {"S:\\Halvorstead\\Vantor Server\\Data", nullptr},
      {"S:\\Halvorstead\\Vantor Server\\a\\b\\c\\", nullptr},
      {"S:\\Halvorstead\\Vantor Server", nullptr},
      {"S:\\Halvorstead\\Vantor Server\\", nullptr},
      // Letters are compared without regard to case.
      {"s:\\halvorstead\\VANTOR server\\Data", nullptr},
      {"s:\\HALVORSTEAD\\vantor server", nullptr},
      // A name that starts like that of the server.
      {"S:\\Halvorstead\\Vantor Server Data", "S:\\Halvorstead\\"},
      {"S:\\Halvorstead\\Vantor Serve", "S:\\Halvorstead\\"},
      {"S:\\Halvorstead\\Data", "S:\\Halvorstead\\"},
      // A parent of the server folder.
      {"S:\\Halvorstead", "S:\\"},
      {"S:\\", "S:\\"},
      // Another drive, also with the same folders.
      {"D:\\Halvorstead\\Vantor Server\\Data", "D:\\Halvorstead\\Vantor Server\\"},
      {"D:\\Halvorstead\\Vantor Server", "D:\\Halvorstead\\"},
      {"E:\\No Drive\\Data", "E:\\No Drive\\"},
      {"\\\\files\\share\\Data", "\\\\files\\share\\"},
      // A relative path starts at the current folder.
      {"Data", "S:\\Current\\"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.data);
    Arrange(TheWorld());
    SetData(TheWorld(), c.data);
    size_t before = Installer().Published().size();
    EXPECT_EQ(Run(20), 0u);
    std::string outside = std::string(c.data) == "Data" ? "S:\\Current\\Data" : c.data;
    if (outside.back() != '\\') outside += "\\";
    EXPECT_EQ(PublishedSince(before),
              c.goesTo == nullptr
                  ? InsideChain()
                  : OutsideChain(outside, std::string(c.goesTo) + "Data Folder 2026-11-15\\"));
  }
}

TEST_F(UpgradeFoldersTest, PrefersTheEarlierServer) {
  Installer().Set("PROP_PRE75SERVER", "D:\\Earlier Programs\\Server of old\\");
  SetData(TheWorld(), "D:\\Earlier Programs\\Server of old\\Data");
  EXPECT_EQ(Run(20), 0u);
  Calls calls = Expected()
                    .ReadPath("PROP_PRE75SERVER", "D:\\Earlier Programs\\Server of old\\")
                    .Set("DIR_EXSERVER", "D:\\Earlier Programs\\Server of old\\")
                    .OpenSettings()
                    .QueryData()
                    .Spell("D:\\Earlier Programs\\Server of old\\Data")
                    .CloseSettings()
                    .Set("DIR_EXDATA", "");
  EXPECT_TRACE(
      {ChainCalls(calls, "D:\\Earlier Programs\\", "D:\\Earlier Programs\\Old Server\\Data Folder")});
}

TEST_F(UpgradeFoldersTest, DoesNothingWithoutAServer) {
  SetData(TheWorld(), "D:\\Vantor Data");
  Installer().Set("DIR_SERVER", "");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_TRACE({Expected().Read("PROP_PRE75SERVER").Read("DIR_SERVER").lines});
  TheRig().trace.Clear();
  Installer().FailReading("PROP_PRE75SERVER");
  Installer().FailReading("DIR_SERVER");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_TRACE({Expected().Read("PROP_PRE75SERVER", "1627").Read("DIR_SERVER", "1627").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(UpgradeFoldersTest, TheParentOfAServerDirectlyBelowADriveIsTheDrive) {
  Installer().Set("DIR_SERVER", "S:\\Vantor Server");
  SetData(TheWorld(), "D:\\Vantor Data");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_PUBLISHED(
      {Chain("S:\\Vantor Server\\", "D:\\Vantor Data\\", "S:\\", "D:\\Data Folder 2026-11-15\\")});
}

TEST_F(UpgradeFoldersTest, ADriveIsItsOwnParent) {
  Installer().Set("DIR_SERVER", "S:\\");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_PUBLISHED({Chain("S:\\", "", "S:\\", "S:\\Old Server\\Data Folder\\")});
}

// An empty name means the folder that it is joined to.
TEST_F(UpgradeFoldersTest, UnsetPropertiesHaveAnEmptyName) {
  for (const char* name :
       {"DIR_UPG", "DIR_UPG_DATA", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF", "DIR_UPG_VRDF_PREFS"}) {
    Installer().Set(name, "");
  }
  EXPECT_EQ(Run(20), 0u);
  Calls calls = OldServerFound().OpenSettings("2").Set("DIR_EXDATA", "");
  for (const char* name :
       {"DIR_UPG", "DIR_UPG_DATA", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF", "DIR_UPG_VRDF_PREFS"}) {
    calls.Read(name).Set(name, "S:\\Halvorstead\\");
  }
  EXPECT_TRACE({calls.lines});
}

TEST_F(UpgradeFoldersTest, AnEmptyNameBesideOutsideDataLeavesTheDate) {
  Installer().Set("DIR_UPG_DATA", "");
  SetData(TheWorld(), "D:\\Vantor Data\\Store");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_EQ(Installer().Get("DIR_UPG_DATA"), "D:\\Vantor Data\\ 2026-11-15\\");
}

TEST_F(UpgradeFoldersTest, NamesAreCutAt255Bytes) {
  const std::string longName(300, 'n');
  const std::string cut(255, 'n');
  for (const char* name :
       {"DIR_UPG", "DIR_UPG_DATA", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF", "DIR_UPG_VRDF_PREFS"}) {
    Installer().Set(name, "D:\\" + longName + "\\");
  }
  EXPECT_EQ(Run(20), 0u);
  EXPECT_EQ(Installer().Get("DIR_UPG_VRDF_PREFS"),
            "S:\\Halvorstead\\" + cut + "\\" + cut + "\\" + cut + "\\" + cut + "\\" + cut + "\\");
}

TEST_F(UpgradeFoldersTest, NameAndDateTogetherAreCutAt255Bytes) {
  SetData(TheWorld(), "D:\\Vantor Data\\Store");
  const std::string date = " 2026-11-15";
  for (size_t length : {244u, 245u, 250u, 254u, 255u, 300u}) {
    SCOPED_TRACE(length);
    const std::string name(length, 'n');
    Installer().Set("DIR_UPG_DATA", "D:\\" + name);
    EXPECT_EQ(Run(20), 0u);
    EXPECT_EQ(Installer().Get("DIR_UPG_DATA"), "D:\\Vantor Data\\" + (name + date).substr(0, 255) + "\\");
    Installer().Set("DIR_UPG", "D:\\Any place\\Old Server\\");
  }
}

TEST_F(UpgradeFoldersTest, AnAccentOfTwoBytesMayBeCutInTwo) {
  Installer().Set("DIR_UPG", "D:\\" + std::string(254, 'n') + "\xC3\xA9");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_EQ(Installer().Get("DIR_UPG"), "S:\\Halvorstead\\" + std::string(254, 'n') + "\xEF\xBF\xBD\\");
}

TEST_F(UpgradeFoldersTest, ShortNamesAreSpelledAsOnTheDisk) {
  Disk().Folder("S:\\Halvorstead\\The Old Server of years");
  Disk().Folder("S:\\Halvorstead\\The Old Server of years\\dAtA");
  Disk().Shorten("S:\\Halvorstead\\THEOLD~1", "The Old Server of years");
  Installer().Set("DIR_UPG", "D:\\Any place\\THEOLD~1");
  Installer().Set("DIR_UPG_DATA", "D:\\Any place\\DATA");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_EQ(Installer().Get("DIR_UPG"), "S:\\Halvorstead\\The Old Server of years\\");
  EXPECT_EQ(Installer().Get("DIR_UPG_DATA"), "S:\\Halvorstead\\The Old Server of years\\dAtA\\");
}

// A name that goes up makes no folder.
TEST_F(UpgradeFoldersTest, StopsIfTheUpgradesFolderCannotBeMade) {
  Installer().Set("DIR_UPG", "D:\\Any place\\..");
  EXPECT_EQ(Run(20), 0u);
  EXPECT_TRACE({OldServerFound()
                    .OpenSettings("2")
                    .Set("DIR_EXDATA", "")
                    .ReadPath("DIR_UPG", "D:\\Any place\\..")
                    .lines});
  EXPECT_PUBLISHED({"DIR_EXSERVER = S:\\Halvorstead\\Vantor Server\\", "DIR_EXDATA = "});
}

TEST_F(UpgradeFoldersTest, GoesOnIfAPropertyCannotBeSet) {
  for (const char* name : {"DIR_EXSERVER", "DIR_EXDATA", "DIR_UPG"}) Installer().FailSetting(name);
  SetData(TheWorld(), "D:\\Vantor Data\\Store");
  EXPECT_EQ(Run(20), 0u);
  std::vector<std::string> chain = OutsideChain("", "D:\\Vantor Data\\Data Folder 2026-11-15\\");
  EXPECT_PUBLISHED({std::vector<std::string>(chain.begin() + 3, chain.end())});
}

TEST_F(UpgradeFoldersTest, ReadsTheSettingsUpTo256Bytes) {
  const std::string end(1, '\0');
  const std::string path255 = "D:\\Store\\" + std::string(246, 'd');
  struct Case {
    std::string bytes;
    DWORD type;
    std::string data;  // Empty: there is no data folder.
  };
  const Case cases[] = {
      {path255 + end, REG_SZ, path255},
      {path255, REG_SZ, path255},
      // A value that fills the buffer loses its last byte.
      {path255 + "x", REG_SZ, path255},
      {path255 + "x" + end, REG_SZ, ""},
      {path255 + path255 + "xx", REG_SZ, ""},
      {"D:\\Vantor Data", REG_SZ, "D:\\Vantor Data"},
      {"D:\\Vantor Data", REG_BINARY, "D:\\Vantor Data"},
      {"D:\\Vantor Data", REG_EXPAND_SZ, "D:\\Vantor Data"},
      {"D:\\d", REG_DWORD, "D:\\d"},
      {"D:\\Donn\xC3\xA9"
       "es",
       REG_BINARY,
       "D:\\Donn\xC3\xA9"
       "es"},
      {"D:\\Donn\xE9"
       "es",
       REG_SZ,
       "D:\\Donn\xEF\xBF\xBD"
       "es"},
      {end, REG_SZ, ""},
      {"", REG_BINARY, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.bytes.size()) + " bytes: " + c.bytes);
    SetDataBytes(TheWorld(), c.bytes, c.type);
    EXPECT_EQ(Run(20), 0u);
    EXPECT_EQ(Installer().Get("DIR_EXDATA"), c.data.empty() ? "" : c.data + "\\");
  }
}

// Windows cannot complete a path of blanks only.
TEST_F(UpgradeFoldersTest, ATextThatIsNotAPathIsNotADataFolder) {
  SetData(TheWorld(), "  ");
  TheWorld().On<::GetFullPathNameW>([](const wchar_t*, DWORD, wchar_t*, wchar_t**) {
    SetLastError(ERROR_INVALID_NAME);
    return DWORD{0};
  });
  EXPECT_EQ(Run(20), 0u);
  EXPECT_PUBLISHED({InsideChain()});
}

// Whatever fails, the published properties are the first ones of the right chain.
TEST_F(UpgradeFoldersTest, SurvivesTheFailureOfEachCallWithDataOutside) {
  const std::vector<std::string> chain =
      OutsideChain("D:\\Vantor Data\\Store\\", "D:\\Vantor Data\\Data Folder 2026-11-15\\");
  FailEachCall(20,
               [&](rig::World& world) {
                 Disk().Clear();
                 SetData(world, "D:\\Vantor Data\\Store");
               },
               {.check = [&](const rig::SweepRun& run) { CheckChain(run, chain); }});
}

TEST_F(UpgradeFoldersTest, SurvivesTheFailureOfEachCallWithDataInside) {
  FailEachCall(20,
               [&](rig::World& world) {
                 Disk().Clear();
                 SetData(world, "S:\\Halvorstead\\Vantor Server\\Data Store");
               },
               {.check = [&](const rig::SweepRun& run) { CheckChain(run, InsideChain()); }});
}

// Values that do not fit at first are read again into a block that grows.
TEST_F(UpgradeFoldersTest, SurvivesTheFailureOfEachCallWithLongProperties) {
  FailEachCall(20,
               [&](rig::World& world) {
                 Disk().Clear();
                 for (const char* name : {"DIR_UPG", "DIR_UPG_DATA", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF",
                                          "DIR_UPG_VRDF_PREFS"}) {
                   const std::string value = world.installer.Get(name);
                   world.installer.Set(name, "D:\\" + std::string(260, 'p') + value.substr(2));
                 }
               },
               {.check = [&](const rig::SweepRun& run) { CheckChain(run, InsideChain()); }});
}

}  // namespace server_migration_folders_test
