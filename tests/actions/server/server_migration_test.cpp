// CustomAction15: moves the old server folder aside.

#include <utility>

#include "actions/server/server_migration_support.h"

namespace server_migration_test {

using server_test::Calls;
using server_test::kFallbackTitle;
using server_test::MigrationTest;

constexpr char kAsideText[] =
    "Setup was unable to move the older Server folder aside.  Either the target already exists, or the "
    "Server "
    "folder is open in another process.  The install must abort.";

class MoveAsideTest : public MigrationTest {
 protected:
  void Arrange(rig::World& world) override {
    MigrationTest::Arrange(world);
    world.installer.Set("CustomActionData", kMove);
  }
  static constexpr char kMove[] = R"(hx -m "S:\Old\." "S:\New\.")";
};

TEST_F(MoveAsideTest, MovesTheFolder) {
  EXPECT_EQ(Run(15), 0u);
  EXPECT_TRACE({Splits(kMove)
                    .Add(R"(FindFirstFileW("S:\\New", *) = INVALID_HANDLE_VALUE)")
                    .Add(R"(MoveFileW("S:\\Old", "S:\\New") = 1)")
                    .Add(kFree)
                    .lines});
  EXPECT_EQ(Disk().List("S:\\New"), OldServer());
  EXPECT_FALSE(Disk().Has("S:\\Old"));
  EXPECT_PUBLISHED({});
  EXPECT_LOG({});
}

TEST_F(MoveAsideTest, AnExistingTargetEndsTheInstallation) {
  IsHeard();
  Disk().File("S:\\New\\kept", "kept");
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  Calls calls = Splits(kMove).LookUp("S:\\New").Add(kFree);
  EXPECT_TRACE({calls.Notify(26000).lines});
  ASSERT_EQ(Installer().Messages().size(), 1u);
  EXPECT_EQ(Installer().Messages()[0].type, 0x03000040u);
  EXPECT_EQ(Installer().Messages()[0].fields, (std::vector<std::string>{"", "26000", ""}));
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(Disk().List("S:\\New"), std::vector<std::string>{"kept = kept"});
  EXPECT_LOG({});
}

TEST_F(MoveAsideTest, AFolderThatCannotBeMovedEndsTheInstallation) {
  IsHeard();
  TheWorld().On<::MoveFileW>([](const wchar_t*, const wchar_t*) {
    SetLastError(ERROR_SHARING_VIOLATION);
    return FALSE;
  });
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  Calls calls = Splits(kMove).LookUp("S:\\New").Add(R"(MoveFileW("S:\\Old", "S:\\New") = 0)").Add(kFree);
  EXPECT_TRACE({calls.Notify(26000).lines});
  EXPECT_TRUE(IsUntouched());
}

// It is also used as a rollback action.
TEST_F(MoveAsideTest, RollbackIsNotAskedFor) {
  Installer().rollback = true;
  EXPECT_EQ(Run(15), 0u);
  EXPECT_EQ(Disk().List("S:\\New"), OldServer());
  TheRig().trace.Clear();
  IsHeard();
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  for (const std::string& call : TheRig().trace.Lines()) EXPECT_NE(call.rfind("MsiGetMode", 0), 0u) << call;
  EXPECT_EQ(Installer().Messages().size(), 1u);
}

TEST_F(MoveAsideTest, UnreadableDataEndsTheInstallation) {
  IsHeard();
  Installer().FailReading("CustomActionData");
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_TRACE({Expected().Read("CustomActionData", "1627").Notify(26000).lines});
}

TEST_F(MoveAsideTest, ShowsNothingUnlessTheInstallationIsSilent) {
  Disk().Folder("S:\\New");
  for (const char* silence : {"", "0", "1", "-10", "-1 ", "yes"}) {
    SCOPED_TRACE(silence);
    TheRig().trace.Clear();
    Installer().Set("PROP_SILENCE", silence);
    EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
    EXPECT_EQ(TheRig().trace.Lines().back(), R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)");
  }
}

TEST_F(MoveAsideTest, ShowsNothingIfTheGateCannotBeRead) {
  Disk().Folder("S:\\New");
  Installer().FailReading("PROP_SILENCE");
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(TheRig().trace.Lines().back(), R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 1627)");
}

TEST_F(MoveAsideTest, ShowsNoBoxEither) {
  Disk().Folder("S:\\New");
  Installer().Set("PROP_SILENCE", "");
  Installer().refusesRecords = true;
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
}

TEST_F(MoveAsideTest, WithoutARecordABoxIsShown) {
  IsHeard();
  Disk().Folder("S:\\New");
  Installer().refusesRecords = true;
  Installer().Set("ProductName", "Vantor Server 8");
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_TRACE(
      {Splits(kMove)
           .LookUp("S:\\New")
           .Add(kFree)
           .ReadA("PROP_SILENCE")
           .Add("MsiCreateRecord(2) = 0")
           .ReadA("ProductName")
           .Add("MessageBoxA(null, " + server_test::Quoted(kAsideText) + R"(, "Vantor Server 8", 0x10) = 1)")
           .lines});
  EXPECT_TRUE(Installer().Messages().empty());
}

TEST_F(MoveAsideTest, TheBoxsTitleIsReadWithTheWholeBuffer) {
  IsHeard();
  Disk().Folder("S:\\New");
  Installer().refusesRecords = true;
  for (const auto& [name, title] : {std::pair{std::string(127, 'P'), std::string(127, 'P')},
                                    {std::string(128, 'P'), std::string(kFallbackTitle)},
                                    {std::string(), std::string(kFallbackTitle)}}) {
    Installer().Set("ProductName", name);
    TheWorld().desktop.boxes.clear();
    EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
    EXPECT_EQ(TheWorld().desktop.boxes,
              (std::vector<rig::Desktop::Box>{{kAsideText, title, MB_OK | MB_ICONERROR}}));
  }
  Installer().FailReading("ProductName");
  TheWorld().desktop.boxes.clear();
  EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(TheWorld().desktop.boxes,
            (std::vector<rig::Desktop::Box>{{kAsideText, kFallbackTitle, MB_OK | MB_ICONERROR}}));
}

// Malformed data: each ends the installation and moves nothing.
TEST_F(MoveAsideTest, MalformedDataEndsTheInstallation) {
  IsHeard();
  const char* const data[] = {
      "",
      " ",
      "hx",
      "-",
      "--",
      "\"hx",
      "\"\"",
      // Two elements.
      R"(hx S:\Old)",
      R"(hx "S:\Old" )",
      "hx -",
      "hx --",
      "hx -m",
      R"(-m "S:\Old")",
      // The element that is ignored is a source that the author meant.
      R"("S:\Old" "S:\New")",
      // The quote is not closed, so both are one element.
      R"(hx "S:\Old S:\New)",
      // A folder that does not exist.
      R"(hx -m "S:\Gone" "S:\New")",
      R"(hx -r "S:\Gone" "S:\New")",
      R"(hx -m "E:\Old" "S:\New")",
      R"(hx -m "S:\Old" "S:\No such\New")",
      R"(hx -m "S:\Old" "")",
      R"(hx -m "" "S:\New")",
      // A blank that should be in quotes makes other sources and another target.
      R"(hx -m S:\Gone folder S:\New)",
      // A letter that does not exist leaves the copy without folders; capital letters do not exist.
      R"(hx -M "S:\Old" "S:\New")",
      R"(hx "S:\Old" "S:\New")",
      R"(hx - "S:\Old" "S:\New")",
      R"(hx -- "S:\Old" "S:\New")",
      // Options apply only to the sources after them.
      R"(hx "S:\Old" -m "S:\New")",
      // Another dash than the one that starts options.
      "hx \xE2\x80\x93m S:\\Old S:\\New",
      R"(hx /m S:\Old S:\New)",
  };
  for (const char* one : data) {
    SCOPED_TRACE(one);
    size_t before = Installer().Messages().size();
    SetData(one);
    EXPECT_EQ(Run(15), UINT{ERROR_INSTALL_FAILURE});
    EXPECT_EQ(Installer().Messages().size(), before + 1);
    EXPECT_TRUE(IsUntouched());
    EXPECT_FALSE(Disk().Has("S:\\New"));
  }
}

// Data without any source is a job that is done at once.
TEST_F(MoveAsideTest, DataWithoutASourceSucceedsAndMovesNothing) {
  const char* const data[] = {
      "hx -m -r",
      R"(hx -m "S:\New")",
      "hx - -",
      // A backslash before a quote makes it an ordinary character: all this is one target.
      R"(hx -m "S:\Old\" "S:\New\")",
      R"(hx -m "S:\Old S:\New)",
      // Patterns that match nothing.
      R"(hx -m "S:\Old\*.none" "S:\New\.")",
  };
  for (const char* one : data) {
    SCOPED_TRACE(one);
    SetData(one);
    EXPECT_EQ(Run(15), 0u);
    EXPECT_TRUE(IsUntouched());
    EXPECT_FALSE(Disk().Has("S:\\New"));
  }
}

TEST_F(MoveAsideTest, UnderstandsEveryFormOfTheSameJob) {
  const char* const data[] = {
      R"(hx -m S:\Old S:\New)",
      R"(hx   -m	S:\Old	 S:\New  )",
      R"("any program" -m "S:\Old" "S:\New")",
      // A leading blank makes an empty first element.
      R"( -m S:\Old S:\New)",
      R"("" -m S:\Old S:\New)",
      R"(hx "-m" S:\Old S:\New)",
      R"(hx -qm S:\Old S:\New)",
      R"(hx -cfm S:\Old S:\New)",
      R"(hx -c -m S:\Old S:\New)",
      R"(hx -m "S:\Old\\" "S:\New\\")",
      R"(hx -m S:\Old\ S:\New\)",
      R"(hx -m S:\Old\. S:\New\...)",
      R"(hx -m S:\O"l"d S:\New)",
      // The target's quote is not closed.
      R"(hx -m S:\Old "S:\New)",
  };
  for (const char* one : data) {
    SCOPED_TRACE(one);
    MakeOldServer();
    SetData(one);
    EXPECT_EQ(Run(15), 0u);
    EXPECT_EQ(Disk().List("S:\\New"), OldServer());
    EXPECT_FALSE(Disk().Has("S:\\Old"));
  }
}

TEST_F(MoveAsideTest, MovesFoldersWithNonAsciiNames) {
  const std::string folder =
      "D:\\Donn\xC3\xA9"
      "es \xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x98\x80";
  SetData("hx -m S:\\Old \"" + folder + "\"");
  EXPECT_EQ(Run(15), 0u);
  EXPECT_EQ(Disk().List(folder), OldServer());
}

TEST_F(MoveAsideTest, ReadsLongDataWhole) {
  const std::string data = "hx " + std::string(300, ' ') + "-m S:\\Old S:\\New";
  SetData(data);
  EXPECT_EQ(Run(15), 0u);
  EXPECT_TRACE({Expected()
                    .Read("CustomActionData", "234")
                    .Read("CustomActionData")
                    .Add("CommandLineToArgvW(" + server_test::Quoted(data) + ", *) = local-memory#1")
                    .Add(R"(FindFirstFileW("S:\\New", *) = INVALID_HANDLE_VALUE)")
                    .Add(R"(MoveFileW("S:\\Old", "S:\\New") = 1)")
                    .Add(kFree)
                    .lines});
}

TEST_F(MoveAsideTest, AnExistingTargetIsRenamedAsideUnderTheTime) {
  SetData(R"(hx -mob S:\Old S:\New)");
  Disk().File("S:\\New\\kept", "kept");
  EXPECT_EQ(Run(15), 0u);
  EXPECT_EQ(Disk().List("S:\\"),
            (std::vector<std::string>{"New 2026-11-15 11-30-45\\", "New 2026-11-15 11-30-45\\kept = kept",
                                      "New\\", "New\\Data\\", "New\\Data\\a.dat = data", "New\\Empty\\",
                                      "New\\vt.exe = program"}));
}

// Either the folder is moved and no notice appears, or it is unchanged and the installation ends.
TEST_F(MoveAsideTest, SurvivesTheFailureOfEachCall) {
  IsHeard();
  FailEachCall(15, {}, {.results = {0, ERROR_INSTALL_FAILURE}, .check = [&](const rig::SweepRun& run) {
                          EXPECT_EQ(run.result == 0, Disk().List("S:\\New") == OldServer()) << run.call;
                          EXPECT_EQ(run.result != 0, IsUntouched()) << run.call;
                          EXPECT_EQ(run.scene.world.installer.Messages().size(), run.result == 0 ? 0u : 1u)
                              << run.call;
                          EXPECT_TRUE(run.scene.world.installer.Published().empty());
                        }});
}

TEST_F(MoveAsideTest, ItsNoticeSurvivesTheFailureOfEachCall) {
  FailEachCall(15, [&](rig::World&) { Disk().Folder("S:\\New"); },
               {.results = {ERROR_INSTALL_FAILURE}, .check = [&](const rig::SweepRun& run) {
                  EXPECT_TRUE(IsUntouched()) << run.call;
                  EXPECT_EQ(Disk().List("S:\\New"), std::vector<std::string>{}) << run.call;
                  EXPECT_EQ(run.scene.world.desktop.boxes.size(), run.name == "MsiCreateRecord" ? 1u : 0u);
                }});
}

}  // namespace server_migration_test
