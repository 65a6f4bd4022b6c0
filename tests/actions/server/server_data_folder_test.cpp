// CustomAction14: decides whether a server is replaced whose data folder is elsewhere.

#include "actions/server/server_drives.h"

namespace server_data_folder_test {

using server_test::Calls;
using server_test::ServerTest;

constexpr char kProductCode[] = "{6F1B2C3D-0A4E-4D57-9C31-7E2A90B1C4D5}";

// Returns a folder path of exactly so many bytes, without names that may be short ones.
std::string LongPath(size_t length) {
  std::string path = "S:";
  while (path.size() < length) {
    // What is left after the name is long enough for another one.
    size_t left = length - path.size() - 1;
    path += "\\" + std::string(left > 100 ? 60 : left, 'd');
  }
  return path;
}

class DataProbeTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("DIR_DATAFOLDER", "S:\\Vantor\\Data\\");
    world.installer.Set("PROP_UPGRADE_PRODUCTCODE", kProductCode);
  }
  // Returns the calls up to the settings if no data folder is found.
  Calls SearchedInVain() {
    Calls calls = Expected();
    return calls.ReadA("DIR_DATAFOLDER")
        .Spell("S:\\Vantor\\Data\\")
        .Attributes("S:\\Vantor\\Data")
        .Read("DIR_UPG_DATA");
  }
  // The same, and the call that sets PROP_REPLACING.
  Calls Marked() {
    return SearchedInVain().OpenSettings().Read("PROP_UPGRADE_PRODUCTCODE").Set("PROP_REPLACING", "1");
  }
};

TEST_F(DataProbeTest, DoesNothingWithoutADataFolder) {
  Disk().Folder("S:\\Current");
  MakeSettings(TheWorld());
  Installer().Set("DIR_DATAFOLDER", "");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Expected().ReadA("DIR_DATAFOLDER").lines});
  TheRig().trace.Clear();
  Installer().FailReading("DIR_DATAFOLDER");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Expected().ReadA("DIR_DATAFOLDER", "1627").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, StopsIfTheDataFolderExists) {
  Disk().Folder("S:\\Vantor\\Data");
  MakeSettings(TheWorld());
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE(
      {Expected().ReadA("DIR_DATAFOLDER").Spell("S:\\Vantor\\Data\\").Attributes("S:\\Vantor\\Data").lines});
  EXPECT_PUBLISHED({});
}

// As people write it. A folder that matches only the last name is a different one.
TEST_F(DataProbeTest, SlashesSeparateNames) {
  Disk().Folder("S:\\Srv\\Found");
  Disk().Folder("S:\\Missing");
  MakeSettings(TheWorld());
  Installer().Set("PROP_UPGRADE_PRODUCTCODE", "{1}");
  Installer().Set("DIR_UPG_DATA", "S:/Srv/Missing");
  Installer().Set("DIR_DATAFOLDER", "S:\\Srv/Found");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_EQ(TheRig().trace.Lines().back(), R"(GetFileAttributesW("S:\\Srv\\Found") = 16)");
  EXPECT_PUBLISHED({});
  Installer().Set("DIR_DATAFOLDER", "S:\\Srv/Missing");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_PUBLISHED({"PROP_REPLACING = 1"});
  Installer().Set("DIR_UPG_DATA", "S:\\Srv/Found");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_EQ(Installer().Published().size(), 1u);
}

TEST_F(DataProbeTest, StopsIfTheUpgradesDataFolderExists) {
  Installer().Set("DIR_UPG_DATA", "S:\\Upgrade\\Data");
  Disk().Folder("S:\\Upgrade\\Data");
  MakeSettings(TheWorld());
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({SearchedInVain().Spell("S:\\Upgrade\\Data").Attributes("S:\\Upgrade\\Data").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, DoesNotTakeAFileForAFolder) {
  Installer().Set("DIR_DATAFOLDER", "S:\\Vantor\\Data");
  Installer().Set("DIR_UPG_DATA", "S:\\Upgrade\\Data");
  Disk().File("S:\\Vantor\\Data");
  Disk().File("S:\\Upgrade\\Data");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Expected()
                    .ReadA("DIR_DATAFOLDER")
                    .Spell("S:\\Vantor\\Data")
                    .Attributes("S:\\Vantor\\Data")
                    .ReadPath("DIR_UPG_DATA", "S:\\Upgrade\\Data")
                    .Attributes("S:\\Upgrade\\Data")
                    .OpenSettings("2")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, DoesNothingWithoutSettings) {
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({SearchedInVain().OpenSettings("2").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, DoesNothingWithSettingsThatItCannotOpen) {
  SetData(TheWorld(), "S:\\Elsewhere");
  TheRegistry().Deny(kSettings);
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({SearchedInVain().OpenSettings("5").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, MarksAReplacement) {
  SetData(TheWorld(), "S:\\Elsewhere");
  Disk().Folder("S:\\Elsewhere");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE(
      {Marked().QueryData().Spell("S:\\Elsewhere").Attributes("S:\\Elsewhere").CloseSettings().lines});
  EXPECT_PUBLISHED({"PROP_REPLACING = 1"});
  EXPECT_LOG({});
}

TEST_F(DataProbeTest, MarksAReplacementWithoutAValueInTheSettings) {
  MakeSettings(TheWorld());
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Marked().QueryData("2").CloseSettings().lines});
  EXPECT_PUBLISHED({"PROP_REPLACING = 1"});
}

TEST_F(DataProbeTest, MarksAReplacementIfTheDataFolderIsNotAFolder) {
  Disk().File("S:\\File");
  for (const char* folder : {"S:\\Gone", "S:\\File", "E:\\No Drive"}) {
    SCOPED_TRACE(folder);
    SetData(TheWorld(), folder);
    EXPECT_EQ(Run(14), 0u);
  }
  EXPECT_PUBLISHED({"PROP_REPLACING = 1", "PROP_REPLACING = 1", "PROP_REPLACING = 1"});
}

TEST_F(DataProbeTest, MarksNothingWithoutAProductCode) {
  MakeSettings(TheWorld());
  Installer().Set("PROP_UPGRADE_PRODUCTCODE", "");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({SearchedInVain()
                    .OpenSettings()
                    .Read("PROP_UPGRADE_PRODUCTCODE")
                    .QueryData("2")
                    .CloseSettings()
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, MarksNothingIfTheProductCodeCannotBeRead) {
  MakeSettings(TheWorld());
  Installer().FailReading("PROP_UPGRADE_PRODUCTCODE");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({SearchedInVain()
                    .OpenSettings()
                    .Read("PROP_UPGRADE_PRODUCTCODE", "1627")
                    .QueryData("2")
                    .CloseSettings()
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, ReadsTheSettingsUpTo512Bytes) {
  struct Case {
    std::string bytes;
    DWORD type;
    std::string named;  // Empty: no folder is checked.
    const char* result;
  };
  const std::string accent =
      "S:\\Donn\xC3\xA9"
      "es of the server";
  const std::string end(1, '\0');
  const Case cases[] = {
      {LongPath(255) + end, REG_SZ, LongPath(255), "0"},
      {LongPath(256) + end, REG_SZ, LongPath(256), "0"},
      {LongPath(511) + end, REG_SZ, LongPath(511), "0"},
      {LongPath(511), REG_SZ, LongPath(511), "0"},
      // A value that fills the buffer loses its last byte.
      {LongPath(512), REG_SZ, LongPath(512).substr(0, 511), "0"},
      {LongPath(512) + end, REG_SZ, "", "234"},
      {LongPath(513), REG_SZ, "", "234"},
      {"S:\\Data folder", REG_SZ, "S:\\Data folder", "0"},
      {"S:\\Data folder", REG_EXPAND_SZ, "S:\\Data folder", "0"},
      {"S:\\Data folder" + end + "S:\\More" + end + end, REG_MULTI_SZ, "S:\\Data folder", "0"},
      {accent, REG_BINARY, accent, "0"},
      {end, REG_SZ, "", "0"},
      {"", REG_BINARY, "", "0"},
      // A four-byte number is read as four letters.
      {"S:\\d", REG_DWORD, "S:\\d", "0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.bytes.size()) + " bytes: " + c.bytes);
    SetDataBytes(TheWorld(), c.bytes, c.type);
    rig::Rig& rig = TheRig();
    rig.trace.Clear();
    EXPECT_EQ(Run(14), 0u);
    std::vector<std::string> all = rig.trace.Lines();
    Calls expected = Expected();
    expected.QueryData(c.result);
    if (!c.named.empty()) expected.Spell(c.named).Attributes(c.named);
    // The calls from the query on, without the number of the key.
    std::vector<std::string> tail(all.end() - static_cast<ptrdiff_t>(expected.lines.size()) - 1,
                                  all.end() - 1);
    tail[0].replace(tail[0].find('#') + 1, tail[0].find(',') - tail[0].find('#') - 1, "0");
    rig::CompareLines(__FILE__, __LINE__, "end of the trace", expected.lines, tail);
  }
}

TEST_F(DataProbeTest, ReadsAPropertyLongerThanTheFirstBuffer) {
  const std::string folder = LongPath(300);
  Installer().Set("DIR_DATAFOLDER", folder);
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Expected()
                    .ReadA("DIR_DATAFOLDER", "234")
                    .ReadA("DIR_DATAFOLDER")
                    .Spell(folder)
                    .Attributes(folder)
                    .Read("DIR_UPG_DATA")
                    .OpenSettings("2")
                    .lines});
}

// The 8-bit text is read as UTF-8, so text in another code page is not found.
TEST_F(DataProbeTest, TakesTheDataFolderAsUtf8) {
  const std::string folder =
      "S:\\Donn\xC3\xA9"
      "es of the server";
  const std::string misread =
      "S:\\Donn\xEF\xBF\xBD"
      "es of the server";
  Disk().Folder(folder);
  Installer().Set("DIR_DATAFOLDER", folder);
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Expected()
                    .ReadA("DIR_DATAFOLDER")
                    .Spell(misread)
                    .Attributes(misread)
                    .Read("DIR_UPG_DATA")
                    .OpenSettings("2")
                    .lines});
  TheRig().trace.Clear();
  Installer().codePage = CP_UTF8;
  EXPECT_EQ(Run(14), 0u);
  Calls calls = Expected();
  EXPECT_EQ(TheRig().trace.Lines().back(), calls.Attributes(folder).lines[0]);
}

TEST_F(DataProbeTest, CompletesARelativeFolder) {
  Disk().Folder("S:\\Current\\Data");
  Installer().Set("DIR_DATAFOLDER", "Data");
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({Expected()
                    .ReadA("DIR_DATAFOLDER")
                    .Add(R"(GetFullPathNameW("Data", 1025, *, null) = 15)")
                    .Spell("S:\\Current\\Data")
                    .Attributes("S:\\Current\\Data")
                    .lines});
}

TEST_F(DataProbeTest, GoesOnWhenThePropertyCannotBeSet) {
  Installer().FailSetting("PROP_REPLACING");
  MakeSettings(TheWorld());
  EXPECT_EQ(Run(14), 0u);
  EXPECT_TRACE({SearchedInVain()
                    .OpenSettings()
                    .Read("PROP_UPGRADE_PRODUCTCODE")
                    .Set("PROP_REPLACING", "1", "1627")
                    .QueryData("2")
                    .CloseSettings()
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(DataProbeTest, SurvivesTheFailureOfEachCall) {
  size_t calls =
      FailEachCall(14,
                   [&](rig::World& world) {
                     Disk().Clear();
                     Disk().Folder("S:\\Elsewhere");
                     world.installer.Set("DIR_UPG_DATA", "S:\\Upgrade\\Data");
                     SetData(world, "S:\\Elsewhere");
                   },
                   {.check = [](const rig::SweepRun& run) {
                     const std::vector<std::string>& published = run.scene.world.installer.Published();
                     if (run.name == "RegQueryValueExA") EXPECT_EQ(published.size(), 1u);
                     if (run.name == "RegOpenKeyExA" || run.name == "MsiSetPropertyW")
                       EXPECT_EQ(published.size(), 0u);
                     if (!published.empty()) {
                       EXPECT_EQ(published, std::vector<std::string>{"PROP_REPLACING = 1"}) << run.call;
                     }
                   }});
  EXPECT_GE(calls, 20u);
}

TEST_F(DataProbeTest, NoFailureMarksAReplacementIfTheDataFolderIsKnown) {
  FailEachCall(14,
               [&](rig::World& world) {
                 Disk().Clear();
                 Disk().Folder("S:\\Vantor\\Data");
                 SetData(world, "S:\\Vantor\\Data");
               },
               {.check = [](const rig::SweepRun& run) {
                 // The only folder that is missed is one that Windows itself denies.
                 if (run.name != "GetFileAttributesW") {
                   EXPECT_TRUE(run.scene.world.installer.Published().empty()) << run.call;
                 }
               }});
}

}  // namespace server_data_folder_test
