// CustomAction17: the marker files of the database conversion.

#include "actions/server/server_drives.h"

namespace conversion_markers_test {

using server_test::Calls;
using server_test::ServerTest;

constexpr UINT kCancelled = ERROR_INSTALL_USEREXIT;
constexpr UINT kFailed = ERROR_INSTALL_FAILURE;

// In the order in which they are deleted.
constexpr const char* kMarkers[] = {"dbcon_completed.txt", "dbcon_cancelled.txt", "dbcon_failed.txt",
                                    "dbcon_nospace.txt"};
constexpr size_t kMarkerCount = std::size(kMarkers);

class MarkersTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("CustomActionData", "S:\\Vantor\\Data Folder\\");
  }
  void MakeMarkers(const std::string& folder, unsigned bits) {
    Disk().File(folder + "\\other.txt");
    for (size_t i = 0; i < kMarkerCount; ++i) {
      if ((bits >> i & 1) != 0) Disk().File(folder + "\\" + kMarkers[i]);
    }
  }
  static std::string Deletes(const std::string& folder, size_t marker, bool isThere) {
    return "DeleteFileW(" + server_test::Quoted(folder + "\\" + kMarkers[marker]) +
           ") = " + (isThere ? "1" : "0");
  }
  // Returns the calls for the markers in `folder`, in the state before the run.
  static Calls& TakesMarkers(Calls& calls, const std::string& folder, unsigned bits) {
    calls.TestFile(folder + "\\" + kMarkers[0]).Add(Deletes(folder, 0, (bits & 1) != 0));
    if ((bits & 1) == 0) calls.TestFile(folder + "\\" + kMarkers[1]);
    for (size_t i = 1; i < kMarkerCount; ++i) calls.Add(Deletes(folder, i, (bits >> i & 1) != 0));
    return calls;
  }
  static UINT ResultOf(unsigned bits) { return (bits & 1) != 0 ? 0 : (bits & 2) != 0 ? kCancelled : kFailed; }
};

TEST_F(MarkersTest, JudgesAndDeletesEveryCombination) {
  for (unsigned bits = 0; bits < 1u << kMarkerCount; ++bits) {
    for (const char* dash : {"", "-"}) {
      SCOPED_TRACE(std::string(dash) + " " + std::to_string(bits));
      Disk().Clear();
      MakeMarkers("S:\\Vantor\\Data Folder", bits);
      Installer().Set("CustomActionData", std::string(dash) + "S:\\Vantor\\Data Folder\\");
      EXPECT_EQ(Run(17), dash[0] != 0 ? 0u : ResultOf(bits));
      EXPECT_EQ(Disk().List("S:\\"), (std::vector<std::string>{"Vantor\\", "Vantor\\Data Folder\\",
                                                               "Vantor\\Data Folder\\other.txt = contents"}));
    }
  }
  EXPECT_PUBLISHED({});
  EXPECT_LOG({});
}

TEST_F(MarkersTest, ACompletedConversionSucceeds) {
  MakeMarkers("S:\\Vantor\\Data Folder", 1);
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 1);
  EXPECT_EQ(Run(17), 0u);
  EXPECT_TRACE({calls.lines});
}

TEST_F(MarkersTest, SlashesSeparateNames) {
  for (const char* data : {"S:\\Vantor/Data", "-S:/Vantor/Data/"}) {
    Disk().Clear();
    Disk().Folder("S:\\Data");
    MakeMarkers("S:\\Vantor\\Data", 1);
    Installer().Set("CustomActionData", data);
    EXPECT_EQ(Run(17), 0u) << data;
    EXPECT_EQ(Disk().List("S:\\Vantor"), (std::vector<std::string>{"Data\\", "Data\\other.txt = contents"}))
        << data;
  }
}

// The marker for a cancelled conversion is not checked then.
TEST_F(MarkersTest, ACompletedConversionSucceedsAlsoWhenItWasCancelled) {
  MakeMarkers("S:\\Vantor\\Data Folder", 15);
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 15);
  EXPECT_EQ(Run(17), 0u);
  EXPECT_TRACE({calls.lines});
}

TEST_F(MarkersTest, ACancelledConversionIsTheUsersExit) {
  MakeMarkers("S:\\Vantor\\Data Folder", 2);
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 2);
  EXPECT_EQ(Run(17), kCancelled);
  EXPECT_TRACE({calls.lines});
}

TEST_F(MarkersTest, WithoutSpaceItFailed) {
  MakeMarkers("S:\\Vantor\\Data Folder", 8);
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 8);
  EXPECT_EQ(Run(17), kFailed);
  EXPECT_TRACE({calls.lines});
  EXPECT_FALSE(Disk().Has("S:\\Vantor\\Data Folder\\dbcon_nospace.txt"));
}

TEST_F(MarkersTest, CleaningUpNeverFails) {
  MakeMarkers("S:\\Vantor\\Data Folder", 10);
  Installer().Set("CustomActionData", "-S:\\Vantor\\Data Folder\\");
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 10);
  EXPECT_EQ(Run(17), 0u);
  EXPECT_TRACE({calls.lines});
}

TEST_F(MarkersTest, AMissingFolderHasNoMarkers) {
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 0);
  EXPECT_EQ(Run(17), kFailed);
  EXPECT_TRACE({calls.lines});
  Installer().Set("CustomActionData", "-S:\\Vantor\\Data Folder\\");
  EXPECT_EQ(Run(17), 0u);
}

TEST_F(MarkersTest, RollbackIsNotAskedFor) {
  Installer().rollback = true;
  MakeMarkers("S:\\Vantor\\Data Folder", 2);
  Calls calls = Expected();
  calls.ReadPath("CustomActionData", "S:\\Vantor\\Data Folder\\");
  TakesMarkers(calls, "S:\\Vantor\\Data Folder", 2);
  EXPECT_EQ(Run(17), kCancelled);
  EXPECT_TRACE({calls.lines});
}

// Without a folder the markers are searched for in the root of the current drive.
TEST_F(MarkersTest, WithoutAFolderTheRootIsLookedAt) {
  MakeMarkers("S:", 1);
  Installer().Set("CustomActionData", "");
  Calls calls = Expected();
  calls.Read("CustomActionData");
  TakesMarkers(calls, "", 1);
  EXPECT_EQ(Run(17), 0u);
  EXPECT_TRACE({calls.lines});
  EXPECT_FALSE(Disk().Has("S:\\dbcon_completed.txt"));
}

TEST_F(MarkersTest, ADashAloneLooksAtTheRootToo) {
  MakeMarkers("S:", 2);
  Installer().Set("CustomActionData", "-");
  Calls calls = Expected();
  calls.Read("CustomActionData");
  TakesMarkers(calls, "", 2);
  EXPECT_EQ(Run(17), 0u);
  EXPECT_TRACE({calls.lines});
}

TEST_F(MarkersTest, UnreadableDataHasNoFolderAndNoDash) {
  MakeMarkers("S:", 2);
  Installer().FailReading("CustomActionData");
  Calls calls = Expected();
  calls.Read("CustomActionData", "1627");
  TakesMarkers(calls, "", 2);
  EXPECT_EQ(Run(17), kCancelled);
  EXPECT_TRACE({calls.lines});
}

// One dash is skipped; a second one belongs to the path.
TEST_F(MarkersTest, ASecondDashBelongsToThePath) {
  MakeMarkers("S:\\Current\\-", 1);
  Installer().Set("CustomActionData", "--");
  Calls calls = Expected();
  calls.Read("CustomActionData").Add(R"(GetFullPathNameW("-", 1025, *, null) = 12)").Spell("S:\\Current\\-");
  TakesMarkers(calls, "S:\\Current\\-", 1);
  EXPECT_EQ(Run(17), 0u);
  EXPECT_TRACE({calls.lines});
}

TEST_F(MarkersTest, TheWholeDataIsOnePath) {
  struct Case {
    const char* data;
    const char* folder;
  };
  const Case cases[] = {
      {"S:\\Vantor\\Data Folder", "S:\\Vantor\\Data Folder"},
      {"S:\\Vantor\\Data Folder\\.", "S:\\Vantor\\Data Folder"},
      {"D:\\Donn\xC3\xA9"
       "es \xE4\xB8\xAD",
       "D:\\Donn\xC3\xA9"
       "es \xE4\xB8\xAD"},
      {"Data Folder", "S:\\Current\\Data Folder"},
      {"-Data Folder", "S:\\Current\\Data Folder"},
      {"\\Data Folder", "S:\\Data Folder"},
      {" Data Folder", "S:\\Current\\ Data Folder"},
      {" -Data Folder", "S:\\Current\\ -Data Folder"},
      {"- Data Folder", "S:\\Current\\ Data Folder"},
      {"D:\\", "D:"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.data);
    Disk().Clear();
    MakeMarkers(c.folder, 1);
    Installer().Set("CustomActionData", c.data);
    EXPECT_EQ(Run(17), 0u);
    EXPECT_FALSE(Disk().Has(std::string(c.folder) + "\\dbcon_completed.txt"));
  }
}

TEST_F(MarkersTest, QuotesHaveNoMeaning) {
  MakeMarkers("S:\\Vantor\\Data Folder", 1);
  Installer().Set("CustomActionData", "\"S:\\Vantor\\Data Folder\"");
  EXPECT_EQ(Run(17), kFailed);
  EXPECT_TRUE(Disk().Has("S:\\Vantor\\Data Folder\\dbcon_completed.txt"));
}

TEST_F(MarkersTest, FoldersWithTheirNamesAreNotMarkers) {
  for (const char* name : kMarkers) Disk().Folder(std::string("S:\\Vantor\\Data Folder\\") + name);
  EXPECT_EQ(Run(17), kFailed);
  for (const char* name : kMarkers)
    EXPECT_TRUE(Disk().HasFolder(std::string("S:\\Vantor\\Data Folder\\") + name));
}

TEST_F(MarkersTest, AMarkerThatCannotBeDeletedStillCounts) {
  TheWorld().On<::DeleteFileW>([](const wchar_t*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  });
  MakeMarkers("S:\\Vantor\\Data Folder", 1);
  EXPECT_EQ(Run(17), 0u);
  MakeMarkers("S:\\Vantor\\Data Folder", 15);
  Disk().Remove("S:\\Vantor\\Data Folder\\dbcon_completed.txt");
  EXPECT_EQ(Run(17), kCancelled);
}

TEST_F(MarkersTest, ALongPathIsReadWhole) {
  const std::string folder = "S:\\" + std::string(120, 'a') + "\\" + std::string(180, 'b');
  Installer().Set("CustomActionData", folder);
  Calls calls = Expected();
  calls.Read("CustomActionData", "234").ReadPath("CustomActionData", folder);
  TakesMarkers(calls, folder, 0);
  EXPECT_EQ(Run(17), kFailed);
  EXPECT_TRACE({calls.lines});
}

// No failure turns an incomplete conversion into a success.
TEST_F(MarkersTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(17,
               [&](rig::World&) {
                 Disk().Clear();
                 MakeMarkers("S:\\Vantor\\Data Folder", 14);
               },
               {.results = {kCancelled, kFailed}});
}

TEST_F(MarkersTest, SurvivesTheFailureOfEachCallOfACompletedConversion) {
  FailEachCall(17,
               [&](rig::World&) {
                 Disk().Clear();
                 MakeMarkers("S:\\Vantor\\Data Folder", 15);
               },
               {.results = {0, kCancelled, kFailed}, .check = [](const rig::SweepRun& run) {
                  if (run.name == "DeleteFileW") EXPECT_EQ(run.result, 0u) << run.call;
                  if (run.name == "CreateFileW" || run.name == "FindFirstFileW") {
                    // Either the look-up of the folder's name failed, which is then used unchanged, or that
                    // of the marker.
                    EXPECT_EQ(run.result, run.call.find("dbcon") == run.call.npos ? 0u : kCancelled)
                        << run.call;
                  }
                }});
}

TEST_F(MarkersTest, CleaningUpSurvivesTheFailureOfEachCall) {
  FailEachCall(17,
               [&](rig::World& world) {
                 Disk().Clear();
                 MakeMarkers("S:\\Vantor\\Data Folder", 14);
                 world.installer.Set("CustomActionData", "-S:\\Vantor\\Data Folder\\");
               },
               {.results = {0, kFailed}, .check = [](const rig::SweepRun& run) {
                  // If the data cannot be read, the action does not know that this is only cleaning up.
                  bool isRead = run.name != "MsiGetPropertyW" && run.call != "HeapAlloc(*, 8, 512)";
                  EXPECT_EQ(run.result, isRead ? 0u : kFailed) << run.call;
                }});
}

}  // namespace conversion_markers_test
