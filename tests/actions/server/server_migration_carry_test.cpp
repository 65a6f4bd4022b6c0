// CustomAction16: moves files from the old server folder to the new one.

#include <algorithm>

#include "actions/server/server_migration_support.h"
#include "unit/files/name_disk.h"

namespace server_migration_carry_test {

using server_test::Calls;
using server_test::kFallbackTitle;
using server_test::MigrationTest;

constexpr char kCarryText[] =
    "Setup was unable to move some files from the old Server folder into the new Server folder.";

class CarryOverTest : public MigrationTest {
 protected:
  void Arrange(rig::World& world) override {
    MigrationTest::Arrange(world);
    Disk().File("S:\\New\\vt.exe", "new program");
    world.installer.Set("CustomActionData", kMerge);
  }
  // Returns what the action leaves in the new server's folder.
  static std::vector<std::string> Merged() {
    return {"Data\\", "Data\\a.dat = data", "Empty\\", "vt.exe = new program"};
  }
  static constexpr char kMerge[] = R"(hx -r "S:\Old\*" "S:\New\.")";
  static constexpr char kFailing[] = R"(hx -m S:\Gone S:\Newer)";
  // Returns the calls of the job that fails.
  Calls FailsToMove() {
    return Splits(kFailing).LookUp("S:\\Newer").Add(R"(MoveFileW("S:\\Gone", "S:\\Newer") = 0)").Add(kFree);
  }
};

// What is already in the new server's folder is left unchanged.
TEST_F(CarryOverTest, MergesIntoTheNewServer) {
  Calls calls = Splits(kMerge);
  calls
      .Search(R"(FindFirstFileW("S:\\Old\\*", *))")
      // The folder itself, its parent, and the first entry that counts.
      .NextEntry(1)
      .NextEntry(1)
      .LookUp("S:\\New\\Data")
      .LookUp("S:\\Old\\Data")
      .Add(R"(CreateDirectoryW("S:\\New\\Data", null) = 1)")
      .Search(R"(FindFirstFileW("S:\\Old\\Data\\*", *))")
      .NextEntry(3)
      .NextEntry(3)
      .LookUp("S:\\New\\Data\\a.dat")
      .LookUp("S:\\Old\\Data\\a.dat")
      .Add(R"(CopyFileW("S:\\Old\\Data\\a.dat", "S:\\New\\Data\\a.dat", 1) = 1)")
      .EndSearch(3)
      .NextEntry(1)
      .LookUp("S:\\New\\Empty")
      .LookUp("S:\\Old\\Empty")
      .Add(R"(CreateDirectoryW("S:\\New\\Empty", null) = 1)")
      .Search(R"(FindFirstFileW("S:\\Old\\Empty\\*", *))")
      .NextEntry(6)
      .EndSearch(6)
      .NextEntry(1)
      .LookUp("S:\\New\\vt.exe")
      .EndSearch(1)
      .Add(kFree);
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({calls.lines});
  EXPECT_EQ(Disk().List("S:\\New"), Merged());
  EXPECT_TRUE(IsUntouched());
  EXPECT_PUBLISHED({});
  EXPECT_LOG({});
}

// An entry whose name leads to another one, which already exists, is not copied, and the action reports that.
TEST_F(CarryOverTest, SaysThatAnEntryWithACutNameIsNotCopied) {
  name_disk::Disk disk;
  const std::string report = "report", other = "another report";
  for (const wchar_t* name : {L"Old", L"New"}) disk.Plant(L"S:", name, nullptr);
  disk.Plant(L"S:\\Old", L"report", &report);
  disk.Plant(L"S:\\Old", L"report.", &other);
  disk.Install(TheRig());
  IsHeard();
  SetData(R"(hx -ckrni "S:\Old\*" -e "S:\Old\*" "S:\New\.")");
  EXPECT_EQ(Run(16), 0u);
  ASSERT_EQ(Installer().Messages().size(), 1u);
  EXPECT_EQ(Installer().Messages()[0].fields, (std::vector<std::string>{"", "26001", ""}));
  EXPECT_EQ(disk.Tree(), (std::map<std::wstring, std::string>{{L"Old", "<folder>"},
                                                              {L"Old\\report", report},
                                                              {L"Old\\report.", other},
                                                              {L"New", "<folder>"},
                                                              {L"New\\report", report}}));
}

TEST_F(CarryOverTest, MakesTheseCalls) {
  SetData(R"(hx S:\Old\vt.exe S:\Newer.exe)");
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({Splits(R"(hx S:\Old\vt.exe S:\Newer.exe)")
                    .Add(R"(FindFirstFileW("S:\\Newer.exe", *) = INVALID_HANDLE_VALUE)")
                    .LookUp("S:\\Old\\vt.exe")
                    .Add(R"(CopyFileW("S:\\Old\\vt.exe", "S:\\Newer.exe", 1) = 1)")
                    .Add(kFree)
                    .lines});
}

TEST_F(CarryOverTest, AFailureIsShownAndTheUpgradeGoesOn) {
  IsHeard();
  SetData(kFailing);
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({FailsToMove().Add("MsiGetMode(session, 17) = 0").Notify(26001).lines});
  ASSERT_EQ(Installer().Messages().size(), 1u);
  EXPECT_EQ(Installer().Messages()[0].type, 0x03000040u);
  EXPECT_EQ(Installer().Messages()[0].fields, (std::vector<std::string>{"", "26001", ""}));
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
  EXPECT_LOG({});
}

TEST_F(CarryOverTest, AFailureDuringRollbackIsNotShown) {
  SetData(kFailing);
  Installer().rollback = true;
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({FailsToMove().Add("MsiGetMode(session, 17) = 1").lines});
}

TEST_F(CarryOverTest, DoesItsJobDuringRollbackToo) {
  Installer().rollback = true;
  EXPECT_EQ(Run(16), 0u);
  EXPECT_EQ(Disk().List("S:\\New"), Merged());
}

TEST_F(CarryOverTest, UnreadableDataIsAFailure) {
  IsHeard();
  Installer().FailReading("CustomActionData");
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE(
      {Expected().Read("CustomActionData", "1627").Add("MsiGetMode(session, 17) = 0").Notify(26001).lines});
}

TEST_F(CarryOverTest, UnreadableDataDuringRollbackIsNotShown) {
  Installer().FailReading("CustomActionData");
  Installer().rollback = true;
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({Expected().Read("CustomActionData", "1627").Add("MsiGetMode(session, 17) = 1").lines});
}

TEST_F(CarryOverTest, ShowsNothingUnlessTheInstallationIsSilent) {
  SetData(kFailing);
  Installer().Set("PROP_SILENCE", "1");
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({FailsToMove().Add("MsiGetMode(session, 17) = 0").ReadA("PROP_SILENCE").lines});
}

TEST_F(CarryOverTest, WithoutARecordABoxIsShown) {
  IsHeard();
  SetData(kFailing);
  Installer().refusesRecords = true;
  EXPECT_EQ(Run(16), 0u);
  EXPECT_TRACE({FailsToMove()
                    .Add("MsiGetMode(session, 17) = 0")
                    .ReadA("PROP_SILENCE")
                    .Add("MsiCreateRecord(2) = 0")
                    .ReadA("ProductName")
                    .Add("MessageBoxA(null, " + server_test::Quoted(kCarryText) + ", " +
                         server_test::Quoted(kFallbackTitle) + ", 0x10) = 1")
                    .lines});
  Installer().Set("ProductName", std::string(127, 'P'));
  EXPECT_EQ(Run(16), 0u);
  EXPECT_EQ(TheWorld().desktop.boxes.back(),
            (rig::Desktop::Box{kCarryText, std::string(127, 'P'), MB_OK | MB_ICONERROR}));
}

TEST_F(CarryOverTest, MalformedDataIsAFailure) {
  IsHeard();
  for (const char* one :
       {"", "hx", "-", "--", "hx -", R"(hx S:\Old)", R"(hx "S:\Old S:\New)", R"(hx "S:\Old\" "S:\New\")",
        R"(hx S:\Gone S:\Newer)", R"(hx -r S:\Gone\* S:\New\)"}) {
    SCOPED_TRACE(one);
    size_t before = Installer().Messages().size();
    SetData(one);
    EXPECT_EQ(Run(16), 0u);
    EXPECT_EQ(Installer().Messages().size(), before + 1);
    EXPECT_TRUE(IsUntouched());
    EXPECT_EQ(Disk().List("S:\\New"), std::vector<std::string>{"vt.exe = new program"});
  }
}

TEST_F(CarryOverTest, GoesOnAfterAnErrorIfToldTo) {
  SetData(R"(hx -ri S:\Gone S:\Newer "S:\Old\*" "S:\New\.")");
  EXPECT_EQ(Run(16), 0u);
  EXPECT_EQ(Disk().List("S:\\New"), Merged());
}

// Nothing of either server is lost, and a run without a notice has everything.
TEST_F(CarryOverTest, SurvivesTheFailureOfEachCall) {
  IsHeard();
  FailEachCall(16, {}, {.check = [&](const rig::SweepRun& run) {
                 EXPECT_TRUE(IsUntouched()) << run.call;
                 const std::vector<std::string> now = Disk().List("S:\\New");
                 const std::vector<std::string> merged = Merged();
                 EXPECT_EQ(std::count(now.begin(), now.end(), "vt.exe = new program"), 1) << run.call;
                 for (const std::string& line : now) {
                   EXPECT_NE(std::count(merged.begin(), merged.end(), line), 0) << run.call << ": " << line;
                 }
                 // A listing that fails looks like the end of the listing.
                 const bool isListing = run.name == "FindFirstFileW" || run.name == "FindNextFileW";
                 if (run.scene.world.installer.Messages().empty() && !isListing)
                   EXPECT_EQ(now, merged) << run.call;
               }});
}

TEST_F(CarryOverTest, ItsNoticeSurvivesTheFailureOfEachCall) {
  FailEachCall(16, [&](rig::World& world) { world.installer.Set("CustomActionData", kFailing); },
               {.check = [&](const rig::SweepRun& run) {
                 EXPECT_EQ(run.scene.world.desktop.boxes.size(), run.name == "MsiCreateRecord" ? 1u : 0u);
                 EXPECT_TRUE(IsUntouched()) << run.call;
               }});
}

}  // namespace server_migration_carry_test
