// CustomAction34: the previous server's data folder.

#include <map>

#include "actions/server/server_drives.h"

namespace server_data_folder_previous_test {

using server_test::Calls;
using server_test::ServerTest;

class PreviousDataTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("DIR_UPG", "S:\\Halvorstead\\Old Data\\");
    world.installer.Set("PROP_PRE75SERVER", "S:\\Earlier Server\\");
    world.installer.Set("DIR_SERVER", "S:\\Halvorstead\\Server\\");
  }
  // Returns the calls that find the answer if it is not in the settings.
  Calls WithoutSettings() {
    return Expected().OpenSettings("2").ReadPath("DIR_UPG", "S:\\Halvorstead\\Old Data\\");
  }
};

TEST_F(PreviousDataTest, TheSettingsComeFirst) {
  SetData(TheWorld(), "D:\\Store\\Data");
  for (const char* folder : {"D:\\Store\\Data", "S:\\Halvorstead\\Old Data", "S:\\Earlier Server\\Old Data",
                             "S:\\Halvorstead\\Server\\Old Data"}) {
    Disk().Folder(folder);
  }
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({Expected()
                    .OpenSettings()
                    .QueryData()
                    .Spell("D:\\Store\\Data")
                    .Attributes("D:\\Store\\Data")
                    .CloseSettings()
                    .Set("PROP_PREVVTDF", "D:\\Store\\Data\\")
                    .lines});
  EXPECT_PUBLISHED({"PROP_PREVVTDF = D:\\Store\\Data\\"});
  EXPECT_LOG({});
}

// As people write it. A folder that matches only the last name is a different one.
TEST_F(PreviousDataTest, SlashesInTheSettingsSeparateNames) {
  for (const char* written : {"S:\\Srv/Data", "S:/Srv/Data", "S:/Srv\\Data/"}) {
    Disk().Clear();
    Disk().Folder("S:\\Srv\\Data");
    Disk().Folder("S:\\Data");
    SetData(TheWorld(), written);
    EXPECT_EQ(Run(34), 0u);
    EXPECT_EQ(Installer().Published().back(), "PROP_PREVVTDF = S:\\Srv\\Data\\") << written;
  }
}

TEST_F(PreviousDataTest, SlashesInFoldersSeparateNames) {
  Installer().Set("DIR_UPG", "S:/Halvorstead/Old Data/");
  Installer().Set("PROP_PRE75SERVER", "S:/Earlier Server");
  Disk().Folder("S:\\Earlier Server\\Old Data");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_PUBLISHED({"PROP_PREVVTDF = S:\\Earlier Server\\Old Data\\"});
}

TEST_F(PreviousDataTest, ThenTheEarlierServersFolder) {
  Disk().Folder("S:\\Earlier Server\\Old Data");
  Disk().Folder("S:\\Halvorstead\\Server\\Old Data");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({WithoutSettings()
                    .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                    .Join("S:\\Earlier Server\\Old Data")
                    .Attributes("S:\\Earlier Server\\Old Data")
                    .Set("PROP_PREVVTDF", "S:\\Earlier Server\\Old Data\\")
                    .lines});
}

TEST_F(PreviousDataTest, ThenTheServersFolder) {
  Disk().Folder("S:\\Halvorstead\\Server\\Old Data");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({WithoutSettings()
                    .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                    .Attributes("S:\\Earlier Server\\Old Data")
                    .ReadPath("DIR_SERVER", "S:\\Halvorstead\\Server\\")
                    .Attributes("S:\\Halvorstead\\Server\\Old Data")
                    .Set("PROP_PREVVTDF", "S:\\Halvorstead\\Server\\Old Data\\")
                    .lines});
}

TEST_F(PreviousDataTest, FinallyTheUpgradesFolderWhetherItExistsOrNot) {
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({WithoutSettings()
                    .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                    .Attributes("S:\\Earlier Server\\Old Data")
                    .ReadPath("DIR_SERVER", "S:\\Halvorstead\\Server\\")
                    .Attributes("S:\\Halvorstead\\Server\\Old Data")
                    .Set("PROP_PREVVTDF", "S:\\Halvorstead\\Old Data\\")
                    .lines});
  EXPECT_PUBLISHED({"PROP_PREVVTDF = S:\\Halvorstead\\Old Data\\"});
}

TEST_F(PreviousDataTest, FilesAreNotFolders) {
  SetData(TheWorld(), "S:\\File");
  Disk().File("S:\\File");
  Disk().File("S:\\Earlier Server\\Old Data");
  Disk().File("S:\\Halvorstead\\Server\\Old Data");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({Expected()
                    .OpenSettings()
                    .QueryData()
                    .Spell("S:\\File")
                    .Attributes("S:\\File")
                    .CloseSettings()
                    .ReadPath("DIR_UPG", "S:\\Halvorstead\\Old Data\\")
                    .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                    .Attributes("S:\\Earlier Server\\Old Data")
                    .ReadPath("DIR_SERVER", "S:\\Halvorstead\\Server\\")
                    .Attributes("S:\\Halvorstead\\Server\\Old Data")
                    .Set("PROP_PREVVTDF", "S:\\Halvorstead\\Old Data\\")
                    .lines});
}

TEST_F(PreviousDataTest, FoldersThatAreNotSetAreSkipped) {
  Installer().Set("PROP_PRE75SERVER", "");
  Installer().Set("DIR_SERVER", "");
  Disk().Folder("S:\\Current\\Old Data");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({WithoutSettings()
                    .Read("PROP_PRE75SERVER")
                    .Read("DIR_SERVER")
                    .Set("PROP_PREVVTDF", "S:\\Halvorstead\\Old Data\\")
                    .lines});
}

TEST_F(PreviousDataTest, WithoutAnAnswerNothingIsPublished) {
  for (const char* name : {"DIR_UPG", "PROP_PRE75SERVER", "DIR_SERVER"}) Installer().Set(name, "");
  Disk().Folder("S:\\Current");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE(
      {Expected().OpenSettings("2").Read("DIR_UPG").Read("PROP_PRE75SERVER").Read("DIR_SERVER").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(PreviousDataTest, UnreadablePropertiesAreNotSet) {
  for (const char* name : {"DIR_UPG", "PROP_PRE75SERVER", "DIR_SERVER"}) Installer().FailReading(name);
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({Expected()
                    .OpenSettings("2")
                    .Read("DIR_UPG", "1627")
                    .Read("PROP_PRE75SERVER", "1627")
                    .Read("DIR_SERVER", "1627")
                    .lines});
  EXPECT_PUBLISHED({});
}

// An empty name means the folder itself, which is not looked up again.
TEST_F(PreviousDataTest, WithoutANameTheServersFolderItselfIsTheAnswer) {
  Installer().Set("DIR_UPG", "");
  Disk().Folder("S:\\Halvorstead\\Server");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({Expected()
                    .OpenSettings("2")
                    .Read("DIR_UPG")
                    .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                    .Attributes("S:\\Earlier Server")
                    .ReadPath("DIR_SERVER", "S:\\Halvorstead\\Server\\")
                    .Attributes("S:\\Halvorstead\\Server")
                    .Set("PROP_PREVVTDF", "S:\\Halvorstead\\Server\\")
                    .lines});
}

TEST_F(PreviousDataTest, AnUpgradeFolderThatIsADriveHasNoName) {
  Installer().Set("DIR_UPG", "D:\\");
  Disk().Folder("S:\\Earlier Server");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_PUBLISHED({"PROP_PREVVTDF = S:\\Earlier Server\\"});
}

// Only a bare drive has no backslash. Windows completes it to a folder, but the name does not depend on that.
TEST_F(PreviousDataTest, WithoutABackslashTheWholeTextIsTheName) {
  Installer().Set("DIR_UPG", "D:");
  TheWorld().On<::GetFullPathNameW>([](const wchar_t* text, DWORD, wchar_t* full, wchar_t**) {
    wcscpy(full, text);
    return static_cast<DWORD>(wcslen(text));
  });
  EXPECT_EQ(Run(34), 0u);
  EXPECT_EQ(TheRig().trace.LinesStarting({"GetFileAttributesW"}),
            (std::vector<std::string>{R"(GetFileAttributesW("S:\\Earlier Server\\D:") = 0xffffffff)",
                                      R"(GetFileAttributesW("S:\\Halvorstead\\Server\\D:") = 0xffffffff)"}));
  EXPECT_PUBLISHED({"PROP_PREVVTDF = D:\\"});
}

// Windows has two codes for being out of memory. With any other code the property counts as unset.
TEST_F(PreviousDataTest, WithoutMemoryInTheInstallerNothingIsPublished) {
  Disk().Folder("S:\\Earlier Server");
  for (UINT error : {ERROR_NOT_ENOUGH_MEMORY, ERROR_OUTOFMEMORY, ERROR_FUNCTION_FAILED}) {
    TheRig().trace.Clear();
    Installer().FailReading("DIR_UPG", error);
    EXPECT_EQ(Run(34), 0u);
    Calls calls = Expected().OpenSettings("2").Read("DIR_UPG", std::to_string(error));
    if (error == ERROR_FUNCTION_FAILED) {
      calls.ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
          .Attributes("S:\\Earlier Server")
          .Set("PROP_PREVVTDF", "S:\\Earlier Server\\");
    }
    EXPECT_TRACE({calls.lines});
  }
}

TEST_F(PreviousDataTest, AnEarlierServerWhosePathCannotBeMadeEndsTheSearch) {
  Disk().Folder("S:\\Halvorstead\\Server\\Old Data");
  Installer().Set("PROP_PRE75SERVER", "earlier");
  TheWorld().On<::GetFullPathNameW>([](const wchar_t*, DWORD, wchar_t*, wchar_t**) { return DWORD{0}; });
  EXPECT_EQ(Run(34), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(PreviousDataTest, TheNameNeedsNoBackslashAfterIt) {
  Disk().Folder("S:\\Earlier Server\\Old Data");
  for (const char* folder : {"D:\\Old Data", "D:\\Old Data\\", "D:\\a\\b\\Old Data", "Old Data"}) {
    SCOPED_TRACE(folder);
    Installer().Set("DIR_UPG", folder);
    Installer().Set("PROP_PREVVTDF", "");
    EXPECT_EQ(Run(34), 0u);
    EXPECT_EQ(Installer().Get("PROP_PREVVTDF"), "S:\\Earlier Server\\Old Data\\");
  }
}

TEST_F(PreviousDataTest, AShortNameIsSpelledAsOnTheDisk) {
  Installer().Set("DIR_UPG", "S:\\Gone\\data");
  Disk().Folder("S:\\Earlier Server\\DaTa");
  EXPECT_EQ(Run(34), 0u);
  EXPECT_TRACE({Expected()
                    .OpenSettings("2")
                    .ReadPath("DIR_UPG", "S:\\Gone\\data")
                    .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                    .Join("S:\\Earlier Server\\data")
                    .Attributes("S:\\Earlier Server\\DaTa")
                    .Set("PROP_PREVVTDF", "S:\\Earlier Server\\DaTa\\")
                    .lines});
}

TEST_F(PreviousDataTest, TheNameIsCutAt255Bytes) {
  for (const auto& [name, joined] :
       {std::pair{std::string(255, 'n'), std::string(255, 'n')},
        {std::string(256, 'n'), std::string(255, 'n')},
        {std::string(400, 'n'), std::string(255, 'n')},
        // The cut is in the middle of a two-byte letter.
        {std::string(254, 'n') + "\xC3\xA9", std::string(254, 'n') + "\xEF\xBF\xBD"}}) {
    SCOPED_TRACE(name);
    Installer().Set("DIR_UPG", "S:\\" + name + "\\");
    TheRig().trace.Clear();
    EXPECT_EQ(Run(34), 0u);
    const bool readsTwice = name.size() > 250;
    Calls calls = Expected();
    calls.OpenSettings("2");
    if (readsTwice) calls.Read("DIR_UPG", "234");
    EXPECT_TRACE({calls.ReadPath("DIR_UPG", "S:\\" + name + "\\")
                      .ReadPath("PROP_PRE75SERVER", "S:\\Earlier Server\\")
                      .Attributes("S:\\Earlier Server\\" + joined)
                      .ReadPath("DIR_SERVER", "S:\\Halvorstead\\Server\\")
                      .Attributes("S:\\Halvorstead\\Server\\" + joined)
                      .Set("PROP_PREVVTDF", "S:\\" + name + "\\")
                      .lines});
  }
}

TEST_F(PreviousDataTest, ReadsTheSettingsUpTo256Bytes) {
  struct Case {
    std::string bytes;
    DWORD type;
    std::string named;  // Empty: no folder is checked.
    const char* result;
  };
  const std::string end(1, '\0');
  const std::string path255 = "S:\\" + std::string(252, 'd');
  const std::string accent =
      "S:\\Donn\xC3\xA9"
      "es of the server";
  const Case cases[] = {
      {path255 + end, REG_SZ, path255, "0"},
      {path255, REG_SZ, path255, "0"},
      // A value that fills the buffer loses its last byte.
      {path255 + "x", REG_SZ, path255, "0"},
      {path255 + "x" + end, REG_SZ, "", "234"},
      {path255 + path255 + "xx", REG_SZ, "", "234"},
      {"S:\\Data folder", REG_SZ, "S:\\Data folder", "0"},
      {"S:\\Data folder", REG_EXPAND_SZ, "S:\\Data folder", "0"},
      {"S:\\Data folder", REG_BINARY, "S:\\Data folder", "0"},
      {"S:\\d", REG_DWORD, "S:\\d", "0"},
      {accent, REG_BINARY, accent, "0"},
      {end, REG_SZ, "", "0"},
      {"", REG_BINARY, "", "0"},
  };
  int key = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.bytes.size()) + " bytes: " + c.bytes);
    SetDataBytes(TheWorld(), c.bytes, c.type);
    TheRig().trace.Clear();
    EXPECT_EQ(Run(34), 0u);
    ++key;
    Calls expected = Expected();
    for (int i = 0; i < key; ++i) expected.OpenSettings();
    expected.lines.resize(1);
    expected.QueryData(c.result);
    if (!c.named.empty()) expected.Spell(c.named).Attributes(c.named);
    expected.CloseSettings();
    const std::vector<std::string>& all = TheRig().trace.Lines();
    ASSERT_GE(all.size(), expected.lines.size());
    rig::CompareLines(__FILE__, __LINE__, "start of the trace", expected.lines,
                      {all.begin(), all.begin() + static_cast<ptrdiff_t>(expected.lines.size())});
  }
}

TEST_F(PreviousDataTest, ADataFolderInNonAsciiLettersIsFoundInUtf8) {
  const std::string folder =
      "S:\\Donn\xC3\xA9"
      "es of the server";
  Disk().Folder(folder);
  // The 8-bit functions return text in the system's code page, which is not UTF-8 here.
  SetData(TheWorld(), folder);
  EXPECT_EQ(Run(34), 0u);
  EXPECT_EQ(Installer().Get("PROP_PREVVTDF"), "S:\\Halvorstead\\Old Data\\");
  TheRegistry().codePage = CP_UTF8;
  EXPECT_EQ(Run(34), 0u);
  EXPECT_EQ(Installer().Get("PROP_PREVVTDF"), folder + "\\");
}

// Windows cannot complete a path of blanks only.
TEST_F(PreviousDataTest, ATextThatIsNotAPathIsIgnored) {
  SetData(TheWorld(), "  ");
  TheWorld().On<::GetFullPathNameW>([](const wchar_t*, DWORD, wchar_t*, wchar_t**) {
    SetLastError(ERROR_INVALID_NAME);
    return DWORD{0};
  });
  EXPECT_EQ(Run(34), 0u);
  EXPECT_PUBLISHED({"PROP_PREVVTDF = S:\\Halvorstead\\Old Data\\"});
}

TEST_F(PreviousDataTest, SettingsThatCannotBeOpenedAreIgnored) {
  SetData(TheWorld(), "S:\\Data");
  Disk().Folder("S:\\Data");
  TheRegistry().Deny(kSettings);
  EXPECT_EQ(Run(34), 0u);
  EXPECT_PUBLISHED({"PROP_PREVVTDF = S:\\Halvorstead\\Old Data\\"});
}

TEST_F(PreviousDataTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(34,
               [&](rig::World& world) {
                 Disk().Clear();
                 Disk().Folder("D:\\Store\\Data");
                 Disk().Folder("S:\\Halvorstead\\Server\\Old Data");
                 SetData(world, "D:\\Store\\Gone");
               },
               {.check = [](const rig::SweepRun& run) {
                 const std::vector<std::string>& published = run.scene.world.installer.Published();
                 ASSERT_LE(published.size(), 1u) << run.call;
                 if (published.empty()) return;
                 server_test::ExpectNoOtherFolder(run,
                                                  {"PROP_PREVVTDF = S:\\Halvorstead\\Server\\Old Data\\"});
                 if (run.name == "GetFileAttributesW" || run.name == "MsiGetPropertyW") {
                   // A folder that Windows denies is skipped, and a property that the installer refuses to
                   // read counts as not set.
                   EXPECT_TRUE(published[0] == "PROP_PREVVTDF = S:\\Halvorstead\\Server\\" ||
                               published[0] == "PROP_PREVVTDF = S:\\Halvorstead\\Server\\Old Data\\" ||
                               published[0] == "PROP_PREVVTDF = S:\\Halvorstead\\Old Data\\")
                       << run.call;
                 } else {
                   EXPECT_EQ(published[0], "PROP_PREVVTDF = S:\\Halvorstead\\Server\\Old Data\\") << run.call;
                 }
               }});
}

// If out of memory for a property, the parent of the right folder is not published, although it exists. A
// value that does not fit at first is read again into a block that grows.
TEST_F(PreviousDataTest, WithoutMemoryForAPropertyNothingIsPublished) {
  for (size_t length : {1u, 260u}) {
    SCOPED_TRACE(length);
    std::map<std::string, int> failed;
    FailEachCall(34,
                 [&](rig::World& world) {
                   Disk().Clear();
                   Disk().Folder("S:\\Earlier Server\\Elsewhere");
                   Disk().Folder("S:\\Halvorstead\\Server\\Old Data");
                   world.installer.Set("DIR_UPG", "S:\\" + std::string(length, 'p') + "\\Old Data\\");
                 },
                 {.check = [&](const rig::SweepRun& run) {
                   server_test::ExpectNoOtherFolder(run,
                                                    {"PROP_PREVVTDF = S:\\Halvorstead\\Server\\Old Data\\"});
                   ++failed[run.name];
                 }});
    EXPECT_GT(failed["HeapAlloc"], 10);
    EXPECT_EQ(failed["HeapReAlloc"], length > 1 ? 1 : 0);
  }
}

// No other folder is taken for the data folder because there was no memory to check it.
TEST_F(PreviousDataTest, NoFailureMakesUpAnotherFolder) {
  FailEachCall(34,
               [&](rig::World& world) {
                 Disk().Clear();
                 Disk().Folder("D:\\Store\\Data");
                 Disk().Folder("S:\\Halvorstead\\Server\\Old Data");
                 SetData(world, "D:\\Store\\Data");
               },
               {.check = [](const rig::SweepRun& run) {
                 const std::vector<std::string>& published = run.scene.world.installer.Published();
                 const bool isDenied = run.name == "RegOpenKeyExA" || run.name == "RegQueryValueExA" ||
                                       run.name == "GetFileAttributesW";
                 if (isDenied) {
                   EXPECT_EQ(published,
                             std::vector<std::string>{"PROP_PREVVTDF = S:\\Halvorstead\\Server\\Old Data\\"});
                 } else if (!published.empty()) {
                   EXPECT_EQ(published, std::vector<std::string>{"PROP_PREVVTDF = D:\\Store\\Data\\"})
                       << run.call;
                 }
               }});
}

}  // namespace server_data_folder_previous_test
