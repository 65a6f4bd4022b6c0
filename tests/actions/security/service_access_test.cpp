// CustomAction33: gives access to a file or folder to the account that a service runs under.

#include "actions/security/security_support.h"
#include "rig/function.h"

namespace service_access_test {

using security_test::Calls;
using security_test::ListOf;

constexpr char kPath[] = "S:\\Data";

class ServiceAccessTest : public security_test::SecurityTest {
 protected:
  void Arrange(rig::World& world) override {
    security_test::SecurityTest::Arrange(world);
    Vantor().account = ".\\svc";
    Vantor().program = "C:\\Vantor\\vantor.exe";
    Vantor().displayName = "Vantor";
  }
  rig::Service& Vantor() { return TheWorld().services.Of("Vantor"); }
  // Returns the calls before those for the configuration.
  static Calls Begin() {
    Calls calls;
    calls.Read("CustomActionData").MakePath(kPath).OpenService("Vantor", "0x1");
    return calls;
  }
  static Calls BeginQuery() {
    return Begin()
        .Add("QueryServiceConfigA(service#2, null, 0, *) = 0")
        .Add("QueryServiceConfigA(service#2, *, " + std::string(kSize) + ", *) = 1");
  }
  // The size of the configuration with the account ".\svc".
  static constexpr char kSize[] = "100";
  // Runs the action, and expects one log line and no list.
  void ExpectOnlyLog(const std::string& line) {
    EXPECT_EQ(Run(33), 0u);
    EXPECT_LOG({"Hx Setup Log: " + line});
    EXPECT_TRUE(Lists().applied.empty());
  }
};

TEST_F(ServiceAccessTest, TheAccountOfTheServiceGetsAccess) {
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((BeginQuery()
                    .LookUp("null", "svc")
                    .SetList(kPath)
                    .Log("set ACL (0) for .\\svc=700 on S:\\Data")
                    .CloseService()
                    .lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "PC7\\svc")});
}

TEST_F(ServiceAccessTest, SlashesInThePathSeparateNames) {
  SetData("Vantor*rwx*S:\\Srv/Data/");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Srv\\Data", "0x10000000", "PC7\\svc")});
}

TEST_F(ServiceAccessTest, EachLetterAddsItsRight) {
  struct Case {
    const char* letters;
    const char* rights;
    const char* mode;
  };
  for (const Case& one : {Case{"", "0x0", "000"},
                          {"r", "0x80000000", "400"},
                          {"w", "0x40000000", "200"},
                          {"x", "0x20000000", "100"},
                          {"rw", "0xc0000000", "600"},
                          {"rx", "0xa0000000", "500"},
                          {"wx", "0x60000000", "300"},
                          {"rwx", "0x10000000", "700"},
                          {"xwr", "0x10000000", "700"},
                          {"rr", "0x80000000", "400"},
                          {"xxrxx", "0xa0000000", "500"},
                          {"RWX", "0x0", "000"},
                          {"Rw", "0x40000000", "200"},
                          {"q", "0x0", "000"},
                          {"r, x", "0xa0000000", "500"},
                          {"7", "0x0", "000"},
                          {"r\\w", "0xc0000000", "600"},
                          {"rＷ", "0x80000000", "400"},
                          {"ŷѲx", "0x20000000", "100"}}) {
    SetData("Vantor*" + std::string(one.letters) + "*S:\\Data");
    EXPECT_EQ(Run(33), 0u);
    EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, one.rights, "PC7\\svc")}) << one.letters;
    EXPECT_LOG({"Hx Setup Log: set ACL (0) for .\\svc=" + std::string(one.mode) + " on S:\\Data"});
    NewScene();
  }
}

TEST_F(ServiceAccessTest, InARollbackNothingIsRead) {
  Installer().rollback = true;
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE({"MsiGetMode(session, 17) = 1"});
}

TEST_F(ServiceAccessTest, WithoutReadableDataNothingIsDone) {
  Installer().FailReading("CustomActionData");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Calls().Read("CustomActionData", "1627").lines));
}

TEST_F(ServiceAccessTest, DataWithoutASeparatorIsIgnoredSilently) {
  for (const char* data : {"", "Vantor", "Vantor*", "Vantor*rwx", "Vantor*rwx S:\\Data", "*", "*rwx"}) {
    SetData(data);
    EXPECT_EQ(Run(33), 0u);
    EXPECT_TRACE((Calls().Read("CustomActionData").lines));
    NewScene();
  }
}

TEST_F(ServiceAccessTest, WithoutAPathTheResultIsAMissingArgument) {
  SetData("Vantor*rwx*");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Calls()
                    .Read("CustomActionData")
                    .OpenService("Vantor", "0x1")
                    .Add("QueryServiceConfigA(service#2, null, 0, *) = 0")
                    .Add("QueryServiceConfigA(service#2, *, " + std::string(kSize) + ", *) = 1")
                    .Log("set ACL (-50) for .\\svc=700 on ")
                    .CloseService()
                    .lines));
}

TEST_F(ServiceAccessTest, AnEmptyServiceNameIsLeftToTheSystemToRefuse) {
  SetData("*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Calls()
                    .Read("CustomActionData")
                    .MakePath(kPath)
                    .Add("OpenSCManagerA(null, null, 0x80000000) = service#1")
                    .Add(R"(OpenServiceW(service#1, "", 0x1) = null)")
                    .Log("opening service failed:  123")
                    .Add("CloseServiceHandle(service#1) = 1")
                    .lines));
}

// Everything after the second "*" is the path.
TEST_F(ServiceAccessTest, APathMayContainTheSeparator) {
  SetData("Vantor*r*S:\\Data\\*.txt");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Data\\*.txt", "0x80000000", "PC7\\svc")});
  EXPECT_LOG({"Hx Setup Log: set ACL (0) for .\\svc=400 on S:\\Data\\*.txt"});
}

TEST_F(ServiceAccessTest, WithoutTheManagerNothingIsSet) {
  TheWorld().services.managerError = RPC_S_SERVER_UNAVAILABLE;
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Calls()
                    .Read("CustomActionData")
                    .MakePath(kPath)
                    .Add("OpenSCManagerA(null, null, 0x80000000) = null")
                    .Log("opening service control manager failed:  1722")
                    .lines));
}

TEST_F(ServiceAccessTest, AMissingServiceIsLogged) {
  SetData("Ghost*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Calls()
                    .Read("CustomActionData")
                    .MakePath(kPath)
                    .Add("OpenSCManagerA(null, null, 0x80000000) = service#1")
                    .Add(R"(OpenServiceW(service#1, "Ghost", 0x1) = null)")
                    .Log("opening service failed:  1060")
                    .Add("CloseServiceHandle(service#1) = 1")
                    .lines));
}

TEST_F(ServiceAccessTest, AServiceThatCannotBeOpenedIsLogged) {
  Vantor().openError = ERROR_ACCESS_DENIED;
  SetData("Vantor*rwx*S:\\Data");
  ExpectOnlyLog("opening service failed:  5");
}

TEST_F(ServiceAccessTest, AConfigurationWithoutASizeIsLogged) {
  Vantor().sizingError = ERROR_SERVICE_MARKED_FOR_DELETE;
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Begin()
                    .Add("QueryServiceConfigA(service#2, null, 0, *) = 0")
                    .Log("query service sizing failed:  1072")
                    .CloseService()
                    .lines));
}

TEST_F(ServiceAccessTest, ASizeReturnedWithSuccessIsUsed) {
  Vantor().sizingError = ERROR_SUCCESS;
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Begin()
                    .Add("QueryServiceConfigA(service#2, null, 0, *) = 1")
                    .Add("QueryServiceConfigA(service#2, *, " + std::string(kSize) + ", *) = 1")
                    .LookUp("null", "svc")
                    .SetList(kPath)
                    .Log("set ACL (0) for .\\svc=700 on S:\\Data")
                    .CloseService()
                    .lines));
  EXPECT_EQ(Lists().applied.size(), 1u);
}

TEST_F(ServiceAccessTest, AConfigurationThatCannotBeReadIsLogged) {
  Vantor().configurationError = ERROR_ACCESS_DENIED;
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Begin()
                    .Add("QueryServiceConfigA(service#2, null, 0, *) = 0")
                    .Add("QueryServiceConfigA(service#2, *, " + std::string(kSize) + ", *) = 0")
                    .Log("query service failed:  5")
                    .CloseService()
                    .lines));
}

TEST_F(ServiceAccessTest, RunningOutOfMemoryIsNotLogged) {
  Vantor().demand = 0x7FFFFFFF;
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Begin().Add("QueryServiceConfigA(service#2, null, 0, *) = 0").CloseService().lines));
}

TEST_F(ServiceAccessTest, AServiceUnderTheSystemsAccountNeedsNoLookUp) {
  Vantor().account = "LocalSystem";
  SetData("Vantor*rx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_TRACE((Begin()
                    .Add("QueryServiceConfigA(service#2, null, 0, *) = 0")
                    .Add("QueryServiceConfigA(service#2, *, 106, *) = 1")
                    .Late("ADVAPI32", "CreateWellKnownSid(22, null, *, *) = 1")
                    .SetList(kPath)
                    .Log("set ACL (0) for LocalSystem=500 on S:\\Data")
                    .CloseService()
                    .lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0xa0000000", "<LocalSystem>")});
}

TEST_F(ServiceAccessTest, AServiceUnderAnAccountOfTheDomainIsLookedUpThere) {
  Vantor().account = "CORP\\svc";
  SetData("Vantor*rwx*S:\\Data");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "CORP\\svc")});
  EXPECT_LOG({"Hx Setup Log: set ACL (0) for CORP\\svc=700 on S:\\Data"});
}

// The accounts in the spellings of the service manager, and the account that each resolves to.
TEST_F(ServiceAccessTest, EverySpellingOfTheServicesAccountIsResolved) {
  struct Spelling {
    const char* account;
    const char* system;  // The name that is looked up; null if none is.
    const char* owner;   // Empty if there is none.
  };
  for (const Spelling& one : {Spelling{"svc", "null", "PC7\\svc"},
                              {".\\svc", "null", "PC7\\svc"},
                              {"\\svc", "null", "PC7\\svc"},
                              {"pC7\\SVC", "null", "PC7\\svc"},
                              {"corp\\svc", R"("\\\\DC1")", "CORP\\svc"},
                              {"LOCALSYSTEM", nullptr, "<LocalSystem>"},
                              {"localservice", nullptr, "<LocalService>"},
                              {".\\LocalSystem", "null", ""},
                              {"ghost", "null", ""}}) {
    std::string account = one.account;
    SCOPED_TRACE(account);
    Vantor().account = account;
    SetData("Vantor*rx*S:\\Data");
    EXPECT_EQ(Run(33), 0u);
    Calls calls = Begin();
    // The account follows a record of 64 bytes and the texts before it, as for ".\svc".
    calls.Add("QueryServiceConfigA(service#2, null, 0, *) = 0")
        .Add("QueryServiceConfigA(service#2, *, " + std::to_string(94 + account.size() + 1) + ", *) = 1");
    size_t backslash = account.find('\\');
    bool hasDomain = backslash != std::string::npos && backslash != 0 && account[0] != '.';
    bool isOfDomain = hasDomain && one.system[0] == '"';
    if (hasDomain) calls.AskComputer();
    if (isOfDomain) calls.Late("NETAPI32", R"(NetGetDCName(null, "corp", *) = 0)");
    bool isFound = one.owner[0] != '\0';
    if (one.system != nullptr) {
      calls.LookUp(one.system, account.substr(backslash + 1), isFound ? "1" : "0");
    } else {
      const char* type = account == "LOCALSYSTEM" ? "22" : "23";
      calls.Late("ADVAPI32", std::string("CreateWellKnownSid(") + type + ", null, *, *) = 1");
    }
    if (isOfDomain) calls.Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0");
    if (isFound) calls.SetList(kPath);
    calls.Log(std::string("set ACL (") + (isFound ? "0" : "-36") + ") for " + account + "=500 on S:\\Data");
    EXPECT_TRACE((calls.CloseService().lines));
    const std::vector<std::string> set = {ListOf(kPath, "0xa0000000", one.owner)};
    EXPECT_EQ(Lists().applied, isFound ? set : std::vector<std::string>{});
    NewScene();
  }
}

// Each function that is missing, and each module.
TEST_F(ServiceAccessTest, WhatIsMissingDecidesTheResult) {
  struct Missing {
    const char* module;
    const char* function;  // Null: the whole module.
    const char* account;
    const char* result;
  };
  for (const Missing& one : {Missing{"ADVAPI32", nullptr, ".\\svc", "-36"},
                             {"ADVAPI32", nullptr, "LocalSystem", "-36"},
                             {"ADVAPI32", "LookupAccountNameW", ".\\svc", "-36"},
                             {"ADVAPI32", "LookupAccountNameW", "LocalSystem", "0"},
                             {"ADVAPI32", "CreateWellKnownSid", "LocalSystem", "-36"},
                             {"ADVAPI32", "CreateWellKnownSid", ".\\svc", "0"},
                             {"ADVAPI32", "SetEntriesInAclW", ".\\svc", "-1"},
                             {"ADVAPI32", "SetNamedSecurityInfoW", ".\\svc", "-1"},
                             {"NETAPI32", nullptr, "CORP\\svc", "-36"},
                             {"NETAPI32", nullptr, ".\\svc", "0"},
                             {"NETAPI32", "NetGetDCName", "CORP\\svc", "-36"},
                             {"NETAPI32", "NetApiBufferFree", "CORP\\svc", "0"}}) {
    SCOPED_TRACE(std::string(one.function == nullptr ? one.module : one.function) + " for " + one.account);
    if (one.function == nullptr) {
      TheModules().Missing(one.module);
    } else {
      TheModules().MissingFunction(one.module, one.function);
    }
    Vantor().account = one.account;
    SetData("Vantor*rwx*S:\\Data");
    EXPECT_EQ(Run(33), 0u);
    EXPECT_LOG(
        {std::string("Hx Setup Log: set ACL (") + one.result + ") for " + one.account + "=700 on S:\\Data"});
    EXPECT_EQ(Lists().applied.size(), std::string(one.result) == "0" ? 1u : 0u);
    NewScene();
  }
}

// A driver has no account.
TEST_F(ServiceAccessTest, AServiceWithoutAnAccountIsAMissingArgument) {
  Vantor().account.reset();
  SetData("Vantor*rwx*S:\\Data");
  ExpectOnlyLog("set ACL (-50) for =700 on S:\\Data");
}

TEST_F(ServiceAccessTest, AnEmptyAccountIsNotFound) {
  Vantor().account = "";
  SetData("Vantor*rw*S:\\Data");
  ExpectOnlyLog("set ACL (-36) for =600 on S:\\Data");
}

TEST_F(ServiceAccessTest, AnUnknownAccountIsNotFound) {
  Vantor().account = "ghost";
  SetData("Vantor*rw*S:\\Data");
  ExpectOnlyLog("set ACL (-36) for ghost=600 on S:\\Data");
}

TEST_F(ServiceAccessTest, ErrorsOfTheSystemAreTheResult) {
  Lists().applyError = ERROR_FILE_NOT_FOUND;
  SetData("Vantor*w*S:\\Data");
  ExpectOnlyLog("set ACL (2) for .\\svc=200 on S:\\Data");
  NewScene();
  Lists().entriesError = ERROR_NONE_MAPPED;
  SetData("Vantor*w*S:\\Data");
  ExpectOnlyLog("set ACL (1332) for .\\svc=200 on S:\\Data");
}

TEST_F(ServiceAccessTest, MissingFunctionsAreMinus1) {
  for (const char* name : {"SetEntriesInAclW", "SetNamedSecurityInfoW"}) {
    TheModules().MissingFunction("ADVAPI32", name);
    SetData("Vantor*w*S:\\Data");
    ExpectOnlyLog("set ACL (-1) for .\\svc=200 on S:\\Data");
    NewScene();
  }
}

TEST_F(ServiceAccessTest, OnASystemWithoutAccessListsTheResultIsSuccess) {
  TheWorld().clock.version = 0x05650004;
  SetData("Vantor*rwx*S:\\Data");
  ExpectOnlyLog("set ACL (0) for .\\svc=700 on S:\\Data");
}

TEST_F(ServiceAccessTest, NamesMayHaveAnyCharacters) {
  TheWorld().services.Of("Dienst für 日本").account = ".\\Jürgen";
  Accounts().users["Jürgen"];
  Installer().codePage = CP_UTF8;
  SetData("Dienst für 日本*rwx*S:\\Daten für 日本");
  EXPECT_EQ(Run(33), 0u);
  EXPECT_LOG({"Hx Setup Log: set ACL (0) for .\\Jürgen=700 on S:\\Daten für 日本"});
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Daten für 日本", "0x10000000", "PC7\\Jürgen")});
}

TEST_F(ServiceAccessTest, OverlongPathsAreCutInTheLogOnly) {
  std::string path = "S:\\" + std::string(240, 'p');
  SetData("Vantor*rwx*" + path);
  EXPECT_EQ(Run(33), 0u);
  EXPECT_LOG({("Hx Setup Log: set ACL (0) for .\\svc=700 on " + path).substr(0, 14 + 255)});
  EXPECT_EQ(Lists().applied, std::vector{ListOf(path, "0x10000000", "PC7\\svc")});
}

TEST_F(ServiceAccessTest, SurvivesEveryFailure) {
  size_t calls = SweepAction(
      33,
      [this](rig::World& world) {
        Vantor().account = "CORP\\svc";
        world.installer.Set("CustomActionData", "Vantor*rx*S:\\Data");
      },
      [this](const rig::SweepRun& run) {
        for (const std::string& list : Lists().applied) {
          EXPECT_EQ(list, ListOf(kPath, "0xa0000000", "CORP\\svc"));
        }
        const std::map<std::string, std::string> kLines = {
            {"OpenSCManagerA", "opening service control manager failed:  5"},
            {"OpenServiceW", "opening service failed:  5"},
            {"QueryServiceConfigA", run.call.find(", null, 0,") != std::string::npos
                                        ? "query service sizing failed:  5"
                                        : "query service failed:  5"},
            {"LookupAccountNameW", "set ACL (-36) for CORP\\svc=500 on S:\\Data"},
            {"NetGetDCName", "set ACL (-36) for CORP\\svc=500 on S:\\Data"},
            {"SetEntriesInAclW", "set ACL (1336) for CORP\\svc=500 on S:\\Data"},
            {"SetNamedSecurityInfoW", "set ACL (5) for CORP\\svc=500 on S:\\Data"},
        };
        auto line = kLines.find(run.name);
        if (line != kLines.end()) {
          EXPECT_EQ(run.scene.world.installer.Log(),
                    std::vector<std::string>{"Hx Setup Log: " + line->second});
          EXPECT_TRUE(Lists().applied.empty()) << run.call;
        }
      });
  EXPECT_GE(calls, 35u);
}

}  // namespace service_access_test
