// CustomAction36: runs a section of a setup information file.

#include "actions/security/security_support.h"

namespace inf_section_test {

using security_test::Quoted;

constexpr char kCommand[] = "DefaultInstall 132 C:\\Vantor\\driver.inf";

class InfSectionTest : public security_test::SecurityTest {
 protected:
  using Lines = std::vector<std::string>;

  // Returns the call that loads the setup library, with its result, "SETUPAPI" or "null".
  static Lines Load(const std::string& result) {
    return {"SetErrorMode(0x8001) = 16384", "LoadLibraryA(\"SETUPAPI\") = " + result,
            "SetErrorMode(0x4000) = 32769"};
  }
  // Returns the calls up to the log; reading the data has this result.
  static Lines Begin(const std::string& read = "0") {
    Lines lines = Load("SETUPAPI");
    lines.push_back("GetProcAddress(SETUPAPI, \"InstallHinfSectionA\") = *");
    lines.push_back("MsiGetPropertyA(session, \"CustomActionData\", *, *) = " + read);
    return lines;
  }
  static void AddLog(Lines& lines, const std::string& text) {
    lines.insert(
        lines.end(),
        {"MsiCreateRecord(2) = record#1", "MsiRecordSetStringA(record#1, 0, \"Hx Setup Log: [1]\") = 0",
         "MsiRecordSetStringA(record#1, 1, " + Quoted(text) + ") = 0",
         "MsiProcessMessage(session, 0x4000000, record#1) = 1", "MsiCloseHandle(record#1) = 0"});
  }
  // Returns all calls for data that can be read.
  static Lines All(const std::string& data, const std::string& logged) {
    Lines lines = Begin();
    AddLog(lines, logged);
    lines.push_back("InstallHinfSectionA(null, null, " + Quoted(data) + ", 0)");
    lines.push_back("FreeLibrary(SETUPAPI) = 1");
    return lines;
  }
};

TEST_F(InfSectionTest, IsRunWithTheDataUnchanged) {
  for (const char* data : {kCommand, "x", "  A  0  B  ", "\"quoted\" 128 %1", "100% %s%ls"}) {
    SetData(data);
    EXPECT_EQ(Run(36), 0u);
    EXPECT_TRACE((All(data, "InstallHinfSection(" + std::string(data) + ")")));
    EXPECT_EQ(TheWorld().setup.sections, Lines{data});
    NewScene();
  }
}

// The installer returns the data in the system's code page, and the setup library expects them in it.
TEST_F(InfSectionTest, IsRunWithTheDataInTheSystemsCodePage) {
  SetData("Jürgen 128 C:\\für.inf");
  EXPECT_EQ(Run(36), 0u);
  EXPECT_EQ(TheWorld().setup.sections, Lines{"J\xFCrgen 128 C:\\f\xFCr.inf"});
  EXPECT_LOG({"Hx Setup Log: InstallHinfSection(Jürgen 128 C:\\für.inf)"});
}

// The action does not check for a rollback: the package decides when it runs.
TEST_F(InfSectionTest, IsRunInARollbackToo) {
  Installer().rollback = true;
  SetData(kCommand);
  EXPECT_EQ(Run(36), 0u);
  EXPECT_TRACE((All(kCommand, "InstallHinfSection(" + std::string(kCommand) + ")")));
}

TEST_F(InfSectionTest, EmptyDataIsLoggedAndRun) {
  EXPECT_EQ(Run(36), 0u);
  EXPECT_TRACE((All("", "InstallHinfSection()")));
  EXPECT_EQ(TheWorld().setup.sections, Lines{""});
}

TEST_F(InfSectionTest, UnreadableDataIsLoggedAndNotRun) {
  Installer().FailReading("CustomActionData");
  EXPECT_EQ(Run(36), 0u);
  Lines lines = Begin("1627");
  AddLog(lines, "InstallHinfSection()");
  lines.push_back("FreeLibrary(SETUPAPI) = 1");
  EXPECT_TRACE((lines));
  EXPECT_TRUE(TheWorld().setup.sections.empty());
}

TEST_F(InfSectionTest, OverlongDataIsCutInTheLogOnly) {
  std::string data = "Section 128 C:\\" + std::string(600, 'i');
  SetData(data);
  EXPECT_EQ(Run(36), 0u);
  // The first buffer for the data is too small.
  Lines lines = Begin("234");
  lines.push_back("MsiGetPropertyA(session, \"CustomActionData\", *, *) = 0");
  AddLog(lines, ("InstallHinfSection(" + data).substr(0, 255));
  lines.push_back("InstallHinfSectionA(null, null, " + Quoted(data) + ", 0)");
  lines.push_back("FreeLibrary(SETUPAPI) = 1");
  EXPECT_TRACE((lines));
  EXPECT_EQ(TheWorld().setup.sections, Lines{data});
}

TEST_F(InfSectionTest, WithoutTheSetupLibraryNothingIsRead) {
  TheModules().Missing("SETUPAPI");
  SetData(kCommand);
  EXPECT_EQ(Run(36), 0u);
  EXPECT_TRACE((Load("null")));
}

TEST_F(InfSectionTest, WithoutItsFunctionTheSetupLibraryIsFreed) {
  TheModules().MissingFunction("SETUPAPI", "InstallHinfSectionA");
  SetData(kCommand);
  EXPECT_EQ(Run(36), 0u);
  Lines lines = Load("SETUPAPI");
  lines.push_back("GetProcAddress(SETUPAPI, \"InstallHinfSectionA\") = null");
  lines.push_back("FreeLibrary(SETUPAPI) = 1");
  EXPECT_TRACE((lines));
}

// Nothing is kept from one run to the next.
TEST_F(InfSectionTest, EachRunLoadsTheSetupLibrary) {
  SetData(kCommand);
  EXPECT_EQ(Run(36), 0u);
  EXPECT_EQ(Run(36), 0u);
  size_t count = 0;
  for (const std::string& line : TheRig().trace.Lines()) {
    count += line == "LoadLibraryA(\"SETUPAPI\") = SETUPAPI";
  }
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(TheWorld().setup.sections, (Lines{kCommand, kCommand}));
}

TEST_F(InfSectionTest, SurvivesEveryFailure) {
  size_t calls = SweepAction(
      36, [](rig::World& world) { world.installer.Set("CustomActionData", std::string(300, 'd')); },
      [this](const rig::SweepRun& run) {
        for (const std::string& section : TheWorld().setup.sections) {
          EXPECT_EQ(section, std::string(300, 'd')) << run.call;
        }
        bool isRead = run.name != "MsiGetPropertyA" && run.name != "HeapAlloc" && run.name != "HeapReAlloc";
        bool isFound = run.name != "LoadLibraryA" && run.name != "GetProcAddress";
        EXPECT_EQ(TheWorld().setup.sections.size(), isRead && isFound ? 1u : 0u) << run.call;
      });
  EXPECT_GE(calls, 7u);
}

}  // namespace inf_section_test
