// CustomAction30: the version in the list of installed programs.

#include "rig/action_test.h"

namespace installed_programs_test {

constexpr char kProduct[] = "{6F1B2C3D-0A4E-4D57-9C31-7E2A90B1C4D5}";
constexpr char kEntry[] =
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\"
    "{6F1B2C3D-0A4E-4D57-9C31-7E2A90B1C4D5}";

class InstalledProgramsTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override {
    world.installer.Set("ProductCode", kProduct);
    world.installer.Set("PROP_VERSION", "7.5.2");
  }

  // Returns the calls that write one log line; `record` is the record's number in the trace.
  static std::vector<std::string> LogCalls(int record, const std::string& text) {
    const std::string name = "record#" + std::to_string(record);
    return {
        "MsiCreateRecord(2) = " + name,
        "MsiRecordSetStringA(" + name + ", 0, \"Hx Setup Log: [1]\") = 0",
        "MsiRecordSetStringA(" + name + ", 1, \"" + text + "\") = 0",
        "MsiProcessMessage(session, 0x4000000, " + name + ") = 1",
        "MsiCloseHandle(" + name + ") = 0",
    };
  }

  static void Append(std::vector<std::string>& lines, const std::vector<std::string>& more) {
    lines.insert(lines.end(), more.begin(), more.end());
  }
};

TEST_F(InstalledProgramsTest, WritesTheVersionInEveryView) {
  TheRegistry().Create(kEntry);
  TheRegistry().Create(kEntry, rig::View::k32);
  EXPECT_EQ(Run(30), 0u);

  std::vector<std::string> expected = {
      R"(MsiGetPropertyA(session, "ProductCode", *, *) = 0)",
      R"(MsiGetPropertyA(session, "PROP_VERSION", *, *) = 0)",
  };
  int number = 0;
  for (const auto& [view, access] : {std::pair{"default", "0x3"}, {"64-bit", "0x103"}, {"32-bit", "0x203"}}) {
    ++number;
    const std::string key = "key#" + std::to_string(number);
    Append(expected, {std::string("RegOpenKeyExA(HKEY_LOCAL_MACHINE, "
                                  R"("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\)") +
                          kProduct + "\", 0, " + access + ", *) = 0",
                      "RegSetValueExA(" + key + R"(, "DisplayVersion", 0, 1, "7.5.2\0", 6) = 0)",
                      "RegCloseKey(" + key + ") = 0"});
    Append(expected, LogCalls(number, std::string("set ARP version to 7.5.2 (") + view + ")"));
  }
  EXPECT_TRACE({expected});
  for (rig::View view : {rig::View::k64, rig::View::k32}) {
    EXPECT_EQ(TheRegistry().Bytes(kEntry, "DisplayVersion", view), std::string("7.5.2\0", 6));
    EXPECT_EQ(TheRegistry().Type(kEntry, "DisplayVersion", view), DWORD{REG_SZ});
  }
}

TEST_F(InstalledProgramsTest, FreesTheProductCodeBeforeItReadsTheVersion) {
  TheRig().MakeLoud("HeapFree");
  EXPECT_EQ(Run(30), 0u);
  const std::vector<std::string>& calls = TheRig().trace.Lines();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls[0].rfind("MsiGetPropertyA(session, \"ProductCode\"", 0), 0u) << calls[0];
  EXPECT_EQ(calls[1].rfind("HeapFree(", 0), 0u) << calls[1];
  EXPECT_EQ(calls[2].rfind("MsiGetPropertyA(session, \"PROP_VERSION\"", 0), 0u) << calls[2];
}

TEST_F(InstalledProgramsTest, SaysWhichViewHasNoEntry) {
  TheRegistry().Create(kEntry, rig::View::k32);
  EXPECT_EQ(Run(30), 0u);
  EXPECT_LOG({
      "Hx Setup Log: can't open uninstall registry key (default)",
      "Hx Setup Log: can't open uninstall registry key (64-bit)",
      "Hx Setup Log: set ARP version to 7.5.2 (32-bit)",
  });
  EXPECT_FALSE(TheRegistry().Exists(kEntry));
}

TEST_F(InstalledProgramsTest, NeverCreatesAnEntry) {
  EXPECT_EQ(Run(30), 0u);
  EXPECT_LOG({
      "Hx Setup Log: can't open uninstall registry key (default)",
      "Hx Setup Log: can't open uninstall registry key (64-bit)",
      "Hx Setup Log: can't open uninstall registry key (32-bit)",
  });
  EXPECT_FALSE(TheRegistry().Exists(kEntry));
  EXPECT_FALSE(TheRegistry().Exists(kEntry, rig::View::k32));
}

TEST_F(InstalledProgramsTest, SaysWhichViewCannotBeWritten) {
  TheRegistry().Create(kEntry);
  TheRegistry().Create(kEntry, rig::View::k32);
  TheRegistry().DenySetting(kEntry);
  EXPECT_EQ(Run(30), 0u);
  EXPECT_LOG({
      "Hx Setup Log: failed to set version for ARP tweak (default)",
      "Hx Setup Log: failed to set version for ARP tweak (64-bit)",
      "Hx Setup Log: set ARP version to 7.5.2 (32-bit)",
  });
}

TEST_F(InstalledProgramsTest, TriesTheOtherViewsWhenOneIsClosed) {
  TheRegistry().Create(kEntry);
  TheRegistry().Create(kEntry, rig::View::k32);
  TheRegistry().Deny(kEntry, ERROR_ACCESS_DENIED, rig::View::k32);
  EXPECT_EQ(Run(30), 0u);
  EXPECT_LOG({
      "Hx Setup Log: set ARP version to 7.5.2 (default)",
      "Hx Setup Log: set ARP version to 7.5.2 (64-bit)",
      "Hx Setup Log: can't open uninstall registry key (32-bit)",
  });
}

TEST_F(InstalledProgramsTest, WritesAnEmptyVersionAsATerminator) {
  Installer().Set("PROP_VERSION", "");
  TheRegistry().SetText(kEntry, "DisplayVersion", "1.0");
  EXPECT_EQ(Run(30), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kEntry, "DisplayVersion"), std::string("\0", 1));
  EXPECT_LOG({
      "Hx Setup Log: set ARP version to  (default)",
      "Hx Setup Log: set ARP version to  (64-bit)",
      "Hx Setup Log: can't open uninstall registry key (32-bit)",
  });
}

TEST_F(InstalledProgramsTest, StopsWithoutAProductCode) {
  Installer().FailReading("ProductCode");
  TheRegistry().Create(kEntry);
  EXPECT_EQ(Run(30), 0u);
  std::vector<std::string> expected = {R"(MsiGetPropertyA(session, "ProductCode", *, *) = 1627)"};
  Append(expected, LogCalls(1, "no product code for ARP tweak"));
  EXPECT_TRACE({expected});
}

TEST_F(InstalledProgramsTest, StopsWithoutAVersion) {
  Installer().FailReading("PROP_VERSION");
  TheRegistry().Create(kEntry);
  EXPECT_EQ(Run(30), 0u);
  std::vector<std::string> expected = {R"(MsiGetPropertyA(session, "ProductCode", *, *) = 0)",
                                       R"(MsiGetPropertyA(session, "PROP_VERSION", *, *) = 1627)"};
  Append(expected, LogCalls(1, "no version for ARP tweak"));
  EXPECT_TRACE({expected});
}

TEST_F(InstalledProgramsTest, WritesALongVersionWholeAndCutsTheLogLine) {
  const std::string version(400, '7');
  Installer().Set("PROP_VERSION", version);
  TheRegistry().Create(kEntry);
  EXPECT_EQ(Run(30), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kEntry, "DisplayVersion"), version + std::string("\0", 1));
  EXPECT_EQ(Installer().Log()[0], "Hx Setup Log: " + ("set ARP version to " + version).substr(0, 255));
}

TEST_F(InstalledProgramsTest, CutsThePathOfALongProductCodeAt255Bytes) {
  Installer().Set("ProductCode", std::string(300, 'P'));
  const std::string prefix = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
  const std::string cut = prefix + std::string(255 - prefix.size(), 'P');
  TheRegistry().Create("HKEY_LOCAL_MACHINE\\" + cut);
  EXPECT_EQ(Run(30), 0u);
  EXPECT_EQ(TheRegistry().Bytes("HKEY_LOCAL_MACHINE\\" + cut, "DisplayVersion"), std::string("7.5.2\0", 6));
}

TEST_F(InstalledProgramsTest, GoesOnIfNoRecordCanBeCreated) {
  TheRegistry().Create(kEntry);
  Installer().refusesRecords = true;
  EXPECT_EQ(Run(30), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kEntry, "DisplayVersion"), std::string("7.5.2\0", 6));
  EXPECT_LOG({});
}

TEST_F(InstalledProgramsTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(30,
               [](rig::World& world) {
                 world.registry.Create(kEntry);
                 world.registry.Create(kEntry, rig::View::k32);
               },
               {.check = [](const rig::SweepRun& run) {
                 if (run.name == "RegOpenKeyExA" || run.name == "RegSetValueExA") {
                   EXPECT_EQ(run.scene.world.installer.Log().size(), 3u) << run.call;
                 }
               }});
}

}  // namespace installed_programs_test
