// CustomAction25, full control of a file or folder for an account: the data, the access list, and failures.

#include "actions/security/security_support.h"
#include "rig/function.h"

namespace folder_access_test {

using security_test::BeginFullControl;
using security_test::Calls;
using security_test::ListOf;

constexpr char kPath[] = "S:\\Data";

class FolderAccessTest : public security_test::SecurityTest {};

TEST_F(FolderAccessTest, AnAccountOfThisComputerGetsFullControl) {
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc").LookUp("null", "svc").SetList(kPath).Log("set ACL for svc").lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "PC7\\svc")});
  EXPECT_EQ(Accounts().rooms, (std::vector<std::pair<DWORD, DWORD>>{{256, 256}}));
}

TEST_F(FolderAccessTest, InARollbackNothingIsRead) {
  Installer().rollback = true;
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE({"MsiGetMode(session, 17) = 1"});
}

TEST_F(FolderAccessTest, WithoutReadableDataNothingIsDone) {
  Installer().FailReading("CustomActionData");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((Calls().Read("CustomActionData", "1627").lines));
}

TEST_F(FolderAccessTest, DataWithoutAPathIsLoggedWhole) {
  for (const char* data : {"", "svc", "\\svc", "C:\\Data", "\\"}) {
    SetData(data);
    EXPECT_EQ(Run(25), 0u);
    EXPECT_TRACE(
        (Calls().Read("CustomActionData").Log("no path to apply ACL (" + std::string(data) + ")").lines));
    NewScene();
  }
}

TEST_F(FolderAccessTest, WithoutAnAccountNothingIsChanged) {
  SetData("*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((Calls().Read("CustomActionData").Log("no change to ACL on ").lines));
  for (const char* data : {"\\*S:\\Data", "\\*path", "\\*"}) {
    NewScene();
    SetData(data);
    EXPECT_EQ(Run(25), 0u);
    EXPECT_TRACE((Calls().Read("CustomActionData").Log("no change to ACL on \\").lines));
  }
}

// Both names in the line are the account; one of them is without the backslash.
TEST_F(FolderAccessTest, OneBackslashBeforeTheAccountIsIgnored) {
  SetData("\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE(
      (BeginFullControl("svc", "\\svc").LookUp("null", "svc").SetList(kPath).Log("set ACL for svc").lines));
}

TEST_F(FolderAccessTest, WithoutAPathTheFailureIsAMissingArgument) {
  SetData("svc*");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((Calls()
                    .Read("CustomActionData")
                    .Log("setting ACL for svc on svc")
                    .Log("failure -50 (0xFFFFFFCE) setting ACL for svc")
                    .lines));
}

// Everything after the first "*" is the path.
TEST_F(FolderAccessTest, APathMayContainTheSeparator) {
  SetData("svc*S:\\Data\\*.txt");
  EXPECT_EQ(Run(25), 0u);
  // A name with an asterisk is not looked up.
  EXPECT_TRACE((Calls()
                    .Read("CustomActionData")
                    .Log("setting ACL for svc on svc")
                    .LookUp("null", "svc")
                    .SetList("S:\\Data\\*.txt")
                    .Log("set ACL for svc")
                    .lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Data\\*.txt", "0x10000000", "PC7\\svc")});
}

TEST_F(FolderAccessTest, ATrailingBackslashOfThePathIsDropped) {
  SetData("svc*S:\\Data\\");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc").LookUp("null", "svc").SetList(kPath).Log("set ACL for svc").lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Data", "0x10000000", "PC7\\svc")});
}

TEST_F(FolderAccessTest, SlashesInThePathSeparateNames) {
  SetData("svc*S:\\Srv/Data/");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Srv\\Data", "0x10000000", "PC7\\svc")});
}

TEST_F(FolderAccessTest, SystemsWithoutAccessListsNeedNoChange) {
  // Version 4 of the NT family, and systems of another family.
  for (DWORD version : {DWORD{0x05650004}, DWORD{0xC0000A04}, DWORD{0x80000005}, DWORD{0x8000000A}}) {
    TheWorld().clock.version = version;
    SetData("svc*S:\\Data");
    EXPECT_EQ(Run(25), 0u);
    EXPECT_TRACE((BeginFullControl("svc").Log("set ACL for svc").lines));
    EXPECT_TRUE(Lists().applied.empty());
    NewScene();
  }
}

TEST_F(FolderAccessTest, Version5HasAccessLists) {
  TheWorld().clock.version = 0x08930005;
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc").LookUp("null", "svc").SetList(kPath).Log("set ACL for svc").lines));
  EXPECT_EQ(Lists().applied.size(), 1u);
}

TEST_F(FolderAccessTest, AFailureToMakeTheListIsLogged) {
  Lists().entriesError = ERROR_INVALID_ACL;
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc")
                    .LookUp("null", "svc")
                    .Late("ADVAPI32", "SetEntriesInAclW(1, *, null, *) = 1336")
                    .Log("failure 1336 (0x00000538) setting ACL for svc")
                    .lines));
}

TEST_F(FolderAccessTest, AFailureToSetTheListIsLogged) {
  Lists().applyError = ERROR_ACCESS_DENIED;
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc")
                    .LookUp("null", "svc")
                    .Late("ADVAPI32", "SetEntriesInAclW(1, *, null, *) = 0")
                    .Late("ADVAPI32",
                          R"(SetNamedSecurityInfoW("S:\\Data", 1, 4, null, null, local-memory#1, null) = 5)")
                    .Add("LocalFree(local-memory#1) = null")
                    .Log("failure 5 (0x00000005) setting ACL for svc")
                    .lines));
}

TEST_F(FolderAccessTest, WithoutTheFunctionThatMakesListsTheFailureIsMinus1) {
  TheModules().MissingFunction("ADVAPI32", "SetEntriesInAclW");
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc")
                    .LookUp("null", "svc")
                    .LackFunction("ADVAPI32", "SetEntriesInAclW")
                    .Log("failure -1 (0xFFFFFFFF) setting ACL for svc")
                    .lines));
}

TEST_F(FolderAccessTest, WithoutTheFunctionThatSetsListsTheFailureIsMinus1) {
  TheModules().MissingFunction("ADVAPI32", "SetNamedSecurityInfoW");
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc")
                    .LookUp("null", "svc")
                    .Late("ADVAPI32", "SetEntriesInAclW(1, *, null, *) = 0")
                    .LackFunction("ADVAPI32", "SetNamedSecurityInfoW")
                    .Add("LocalFree(local-memory#1) = null")
                    .Log("failure -1 (0xFFFFFFFF) setting ACL for svc")
                    .lines));
}

TEST_F(FolderAccessTest, FunctionsAreFoundOncePerProcess) {
  SetData("CORP\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  size_t first = TheRig().trace.Lines().size();
  EXPECT_EQ(Run(25), 0u);
  for (size_t at = first; at < TheRig().trace.Lines().size(); ++at) {
    const std::string& line = TheRig().trace.Lines()[at];
    EXPECT_EQ(line.find("GetProcAddress"), std::string::npos) << line;
    EXPECT_EQ(line.find("GetModuleHandleW"), std::string::npos) << line;
    EXPECT_EQ(line.find("LoadLibraryW"), std::string::npos) << line;
  }
  EXPECT_EQ(Lists().applied.size(), 2u);
}

TEST_F(FolderAccessTest, AFunctionThatWasMissingIsLookedForAgain) {
  TheModules().MissingFunction("ADVAPI32", "SetEntriesInAclW");
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_EQ(Run(25), 0u);
  size_t count = 0;
  for (const std::string& line : TheRig().trace.Lines()) {
    count += line == "GetProcAddress(ADVAPI32, \"SetEntriesInAclW\") = null";
  }
  EXPECT_EQ(count, 2u);
}

TEST_F(FolderAccessTest, SurvivesEveryFailure) {
  size_t calls = SweepAction(
      25,
      [this](rig::World& world) {
        world.installer.Set("CustomActionData", "CORP\\svc*S:\\Data");
        Accounts().demands = {{300, 300}};
      },
      [this](const rig::SweepRun& run) {
        // If a list was set, it is the right one. Any other failure is logged, unless logging is what failed.
        for (const std::string& list : Lists().applied) {
          EXPECT_EQ(list, ListOf(kPath, "0x10000000", "CORP\\svc"));
        }
        std::vector<std::string> log = run.scene.world.installer.Log();
        std::string last = log.empty() ? "" : log.back();
        const std::map<std::string, std::string> kResults = {
            {"LookupAccountNameW", "-36 (0xFFFFFFDC)"},
            {"NetGetDCName", "-36 (0xFFFFFFDC)"},
            {"SetEntriesInAclW", "1336 (0x00000538)"},
            {"SetNamedSecurityInfoW", "5 (0x00000005)"},
        };
        auto result = kResults.find(run.name);
        if (result != kResults.end()) {
          EXPECT_EQ(last, "Hx Setup Log: failure " + result->second + " setting ACL for CORP\\svc")
              << run.call;
          EXPECT_TRUE(Lists().applied.empty()) << run.call;
        }
      });
  EXPECT_GE(calls, 40u);
}

TEST_F(FolderAccessTest, SurvivesEveryFailureForTheSystemsAccounts) {
  SweepAction(
      25, [](rig::World& world) { world.installer.Set("CustomActionData", "LocalSystem*S:\\Data"); },
      [this](const rig::SweepRun& run) {
        if (run.name == "CreateWellKnownSid") {
          EXPECT_EQ(run.scene.world.installer.Log().back(),
                    "Hx Setup Log: failure -36 (0xFFFFFFDC) setting ACL for LocalSystem");
          EXPECT_TRUE(Lists().applied.empty());
        }
      });
}

}  // namespace folder_access_test
