// CustomAction23 in failures: the codes, the report to the user, missing functions, and the failures of the
// directory.

#include "actions/security/service_account_support.h"
#include "rig/function.h"
// Needs windows.h and the directory's interfaces first.
#include <adshlp.h>
#include <lm.h>
#include <ntsecapi.h>

namespace service_account_failure_test {

using service_account_test::Calls;
using service_account_test::kNoAccount;
using Log = std::vector<std::string>;

constexpr char kUsingSystem[] = "Hx Setup Log: no service account, using LocalSystem";
constexpr char kNoRight[] = "Hx Setup Log: could not grant right to logon as service";
constexpr char kNamesFailed[] =
    "Hx Setup Log: failure -1 (0xFFFFFFFF) adding service principal name for CN=svc,CN=Users,DC=CORP";
constexpr char kNamesAdded[] = "Hx Setup Log: added service principal name for CN=svc,CN=Users,DC=CORP";

class ServiceAccountFailureTest : public service_account_test::ServiceAccountTest {
 protected:
  void SetType(const std::string& type) { Installer().Set("PROP_ACCOUNTTYPE", type); }
  static std::string Failure(const std::string& code) {
    return "Hx Setup Log: failure " + code + " adding account";
  }
  // Returns the log lines after the one about the account's type.
  Log LogBehindKind() {
    Log log = Installer().Log();
    if (!log.empty()) log.erase(log.begin());
    return log;
  }
};

TEST_F(ServiceAccountFailureTest, ARefusedLocalAccountMeansNoAccount) {
  SetType("1");
  Accounts().users["SVC"];
  EXPECT_EQ(Run(23), 0u);
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE").Read("PROP_ACCOUNTID");
  calls.Add("CoCreateGuid(*) = 0").Log("creating local service account svc").Read("PROP_ACCOUNTDESC");
  calls.Late("NETAPI32", "NetUserAdd(null, 2, *, null) = 2224");
  calls.Log("failure 2224 (0x000008B0) adding account");
  calls.Add(R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)").NoAccount();
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(Published(), kNoAccount);
  EXPECT_EQ(Accounts().users["svc"].record, "");
}

TEST_F(ServiceAccountFailureTest, WithoutAGuidThereIsNoPasswordAndNoAccount) {
  SetType("0");
  Accounts().Refuse("CoCreateGuid", 0x8007000E);
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({Failure("-2147024882 (0x8007000E)"), kUsingSystem});
  EXPECT_EQ(Published(), kNoAccount);
  EXPECT_TRUE(DomainUsers().empty());
}

// ---- the directory

TEST_F(ServiceAccountFailureTest, TheFirstStepOfTheDirectoryThatFailsDecides) {
  const std::vector<std::string> steps = {"ADsGetObject", "container.Create", "object.QueryInterface",
                                          "user.SetInfo"};
  for (const std::string& step : steps) {
    TheRig().trace.Clear();
    Accounts().chances.push_back(Accounts().chances.front());
    SetType("0");
    bool isQuery = step == "object.QueryInterface";
    if (isQuery) Directory().HideUsers();
    Directory().Refuse(step, 0x80070005);
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(LogBehindKind()[0],
              isQuery ? Failure("-2147467262 (0x80004002)") : Failure("-2147024891 (0x80070005)"));
    EXPECT_EQ(LogBehindKind()[1], kUsingSystem);
    EXPECT_EQ(Published(), kNoAccount) << step;
    EXPECT_TRUE(DomainUsers().empty());
    std::string last;
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.find("ADsGetObject(\"") == 0 || line.find("container.") == 0 || line.find("object.") == 0 ||
          line.find("user.") == 0) {
        last = line;
      }
    }
    EXPECT_EQ(last.rfind(step, 0), 0u) << last;
    // What was obtained before an early failure is never released.
    EXPECT_EQ(TheRig().ledger.Count(rig::kInterface), isQuery                      ? 2u
                                                      : step == "container.Create" ? 1u
                                                                                   : 0u)
        << step;
    NameLost(TheRig());
    NewScene();
  }
}

TEST_F(ServiceAccountFailureTest, TheContainerIsKeptIfCreatingTheUserFails) {
  SetType("0");
  Directory().Refuse("container.Create", 0x80070005);
  EXPECT_EQ(Run(23), 0u);
  TheRig().ledger.Deliberate(rig::kInterface, "container");
}

TEST_F(ServiceAccountFailureTest, ContainerAndObjectAreKeptIfTheUserHasNoInterface) {
  SetType("0");
  Directory().HideUsers();
  EXPECT_EQ(Run(23), 0u);
  TheRig().ledger.Deliberate(rig::kInterface, "container");
  TheRig().ledger.Deliberate(rig::kInterface, "object");
}

TEST_F(ServiceAccountFailureTest, AUserWithoutPasswordOrFullNameCountsAsCreated) {
  SetType("0");
  Directory().Refuse("user.SetPassword", 0x800708C5);
  Directory().Refuse("user.put_FullName", 0x80070057);
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(Published(), "svc|<password>|CORP");
  EXPECT_EQ(DomainUsers().count("svc"), 1u);
  EXPECT_EQ(LogBehindKind(), (Log{"Hx Setup Log: adding service principal name", kNamesAdded}));
}

TEST_F(ServiceAccountFailureTest, WithoutAContainerTheLastErrorDecides) {
  SetType("0");
  TheWorld().On<::ADsGetObject>([](const wchar_t*, const IID&, void** out) {
    *out = nullptr;
    SetLastError(5);
    return HRESULT{S_FALSE};
  });
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(LogBehindKind(), (Log{Failure("5 (0x00000005)"), kUsingSystem}));
}

TEST_F(ServiceAccountFailureTest, WithoutAContainerAndWithoutAnErrorTheAccountCountsAsCreated) {
  SetType("0");
  TheWorld().On<::ADsGetObject>([](const wchar_t*, const IID&, void** out) {
    *out = nullptr;
    SetLastError(0);
    return HRESULT{S_OK};
  });
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: creating domain service account CORP\\svc", kNoRight,
              "Hx Setup Log: adding service principal name", "Hx Setup Log: distinguished name not found"});
  EXPECT_EQ(Published(), "svc|<password>|CORP");
}

TEST_F(ServiceAccountFailureTest, AnExistingUserOfTheDomainIsUnchanged) {
  SetType("0");
  DomainUsers()["svc"].fullName = "somebody";
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(LogBehindKind(), (Log{Failure("-2147022672 (0x800708B0)"), kUsingSystem}));
  EXPECT_EQ(DomainUsers()["svc"].fullName, "somebody");
}

TEST_F(ServiceAccountFailureTest, WhatAFailedControllerSearchStoresIsNotFreed) {
  SetType("0");
  TheWorld().On<::NetGetDCName>([](const wchar_t*, const wchar_t*, BYTE** out) -> DWORD {
    *out = reinterpret_cast<BYTE*>(uintptr_t{0xBADBAD0});
    return NERR_DCNotFound;
  });
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(LogBehindKind(), (Log{kNoRight, "Hx Setup Log: adding service principal name", kNamesAdded}));
}

// A status that is not a failure: the policy is open, and the result of adding the right decides.
TEST_F(ServiceAccountFailureTest, APolicyMayOpenWithAnotherSuccessStatus) {
  for (NTSTATUS added : {NTSTATUS{0}, static_cast<NTSTATUS>(0xC0000060)}) {
    SetType("1");
    auto policy = reinterpret_cast<LSA_HANDLE>(uintptr_t{0x50110C});
    TheWorld().On<::LsaOpenPolicy>(
        [policy](LSA_UNICODE_STRING*, LSA_OBJECT_ATTRIBUTES*, ACCESS_MASK, LSA_HANDLE* out) {
          *out = policy;
          return NTSTATUS{0x40000000};
        });
    TheWorld().On<::LsaAddAccountRights>(
        [added](LSA_HANDLE, void*, LSA_UNICODE_STRING*, ULONG) { return added; });
    TheWorld().On<::LsaClose>([](LSA_HANDLE) { return NTSTATUS{0}; });
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(LogBehindKind(), added == 0 ? Log{} : Log{kNoRight});
    EXPECT_EQ(Published(), "svc|<password>|PC7");
    NewScene();
  }
}

// ---- the service principal names

TEST_F(ServiceAccountFailureTest, TheClassOfTheNamesIsFromThePackageOrVantor) {
  const std::vector<std::pair<std::string, std::string>> classes = {
      {"MSSQL", "MSSQL"}, {"", "VANTOR"}, {"unreadable", "VANTOR"}};
  for (const auto& [property, expected] : classes) {
    DomainUsers().clear();
    Directory().registered.clear();
    Accounts().chances.push_back(Accounts().chances.front());
    Installer().Set("PROP_SERVICENAME", property);
    if (property == "unreadable") Installer().FailReading("PROP_SERVICENAME");
    SetType("0");
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(Directory().registered.count("CN=svc,CN=Users,DC=CORP " + expected + "/PC7"), 1u) << property;
  }
}

TEST_F(ServiceAccountFailureTest, NamesThatCannotBeWrittenAreLogged) {
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"DsGetSpnW", "-1 (0xFFFFFFFF)"},
      {"DsBindW", "-1 (0xFFFFFFFF)"},
      {"DsWriteAccountSpnW", "8453 (0x00002105)"}};
  for (const auto& [step, code] : steps) {
    SetType("0");
    Directory().Refuse(step, 8453);
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(LogBehindKind().back(),
              "Hx Setup Log: failure " + code + " adding service principal name for CN=svc,CN=Users,DC=CORP");
    EXPECT_EQ(Published(), "svc|<password>|CORP");
    EXPECT_TRUE(Directory().registered.empty());
    NewScene();
  }
}

TEST_F(ServiceAccountFailureTest, WithoutADistinguishedNameNoNamesAreWritten) {
  SetType("0");
  Directory().Refuse("translator.Get", 0x80072030);
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(LogBehindKind(), (Log{"Hx Setup Log: adding service principal name",
                                  "Hx Setup Log: distinguished name not found"}));
  EXPECT_EQ(TheRig().trace.Lines().back().rfind("MsiCloseHandle", 0), 0u);
}

// ---- what is missing

struct Missing {
  const char* module;
  const char* function;  // Null: the whole module.
  Log log;               // After the line about the account's type.
  const char* published;
  const rig::Kind* lost;  // What cannot be freed then.
};

TEST_F(ServiceAccountFailureTest, WhatIsMissingMakesItsStepFail) {
  const Log kAdded = {"Hx Setup Log: adding service principal name", kNamesAdded};
  const Log kNotAdded = {"Hx Setup Log: adding service principal name", kNamesFailed};
  const Log kNotGranted = {kNoRight, "Hx Setup Log: adding service principal name", kNamesAdded};
  const Log kNotMade = {Failure("-1 (0xFFFFFFFF)"), kUsingSystem};
  constexpr char kOfDomain[] = "svc|<password>|CORP";
  const std::vector<Missing> table = {
      {"NETAPI32", nullptr, kNotMade, kNoAccount, nullptr},
      {"NETAPI32", "NetWkstaGetInfo", {}, "svc|<password>|PC7", nullptr},
      {"NETAPI32", "NetGetDCName", kNotGranted, kOfDomain, nullptr},
      {"NETAPI32", "NetApiBufferFree", kAdded, kOfDomain, &rig::kNetBuffer},
      {"NETAPI32", "NetUserAdd", kAdded, kOfDomain, nullptr},
      {"ACTIVEDS", nullptr, kNotMade, kNoAccount, nullptr},
      {"ACTIVEDS", "ADsGetObject", kNotMade, kNoAccount, nullptr},
      {"ADVAPI32", nullptr, kNotGranted, kOfDomain, nullptr},
      {"ADVAPI32", "LookupAccountNameW", kNotGranted, kOfDomain, nullptr},
      {"NTDSAPI", nullptr, kNotAdded, kOfDomain, nullptr},
      {"NTDSAPI", "DsGetSpnW", kNotAdded, kOfDomain, nullptr},
      {"NTDSAPI", "DsBindW", kNotAdded, kOfDomain, nullptr},
      {"NTDSAPI", "DsWriteAccountSpnW", kNotAdded, kOfDomain, nullptr},
      {"NTDSAPI", "DsUnBindW", kAdded, kOfDomain, &rig::kDirectory},
      {"NTDSAPI", "DsFreeSpnArrayW", kAdded, kOfDomain, &rig::kPrincipalNames},
  };
  for (const Missing& one : table) {
    const std::string what = one.function == nullptr ? one.module : one.function;
    SCOPED_TRACE(what);
    if (one.function == nullptr) {
      TheModules().Missing(one.module);
    } else {
      TheModules().MissingFunction(one.module, one.function);
    }
    SetType("0");
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(LogBehindKind(), one.log);
    EXPECT_EQ(Published(), one.published);
    if (one.lost != nullptr) {
      EXPECT_NE(TheRig().ledger.Count(*one.lost), 0u);
      while (TheRig().ledger.Count(*one.lost) != 0) {
        TheRig().ledger.Give(*one.lost, TheRig().ledger.Values(*one.lost).front(), "the test");
      }
    }
    NewScene();
  }
}

TEST_F(ServiceAccountFailureTest, ALocalAccountNeedsItsFunctionOnly) {
  SetType("1");
  for (const char* function : {"NetWkstaGetInfo", "NetGetDCName", "NetApiBufferFree"}) {
    TheModules().MissingFunction("NETAPI32", function);
  }
  TheModules().Missing("ACTIVEDS");
  TheModules().Missing("NTDSAPI");
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(Published(), "svc|<password>|PC7");
  EXPECT_EQ(LogBehindKind(), Log{});
  NewScene();
  SetType("1");
  TheModules().MissingFunction("NETAPI32", "NetUserAdd");
  EXPECT_EQ(Run(23), 0u);
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE").Read("PROP_ACCOUNTID");
  calls.Add("CoCreateGuid(*) = 0").Log("creating local service account svc").Read("PROP_ACCOUNTDESC");
  calls.LackFunction("NETAPI32", "NetUserAdd").Log("failure -1 (0xFFFFFFFF) adding account");
  calls.Add(R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)").NoAccount();
  EXPECT_TRACE((calls.lines));
}

TEST_F(ServiceAccountFailureTest, AModuleIsLookedForAgainAtTheNextUse) {
  SetType("0");
  TheModules().Missing("NETAPI32");
  EXPECT_EQ(Run(23), 0u);
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE").Read("PROP_ACCOUNTID");
  calls.Add("CoCreateGuid(*) = 0").LackModule("NETAPI32").Log("creating local service account svc");
  calls.Read("PROP_ACCOUNTDESC").LackModule("NETAPI32").Log("failure -1 (0xFFFFFFFF) adding account");
  calls.Add(R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)").NoAccount();
  EXPECT_TRACE((calls.lines));
}

// ---- the report

class ServiceAccountReportTest : public ServiceAccountFailureTest {
 protected:
  static constexpr char kText[] =
      "The service account could not be created.  The service process will be installed to run in the "
      "LocalSystem account.";
  static constexpr char kTitle[] = "Halvorstead Vantor Platform Component";

  void Fail() {
    SetType("1");
    Accounts().chances = {{0, 0, 0x16, 0, 0, 0x2C, 0, 0, 0x36, 0, 0, 0, 0, 0, 0, 0}};
    Accounts().Refuse("NetUserAdd", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(23), 0u);
  }
  size_t Notices() {
    size_t count = 0;
    for (const rig::Message& message : Installer().Messages()) {
      count += message.type == 0x02000030 && message.fields[1] == "27000" ? 1 : 0;
    }
    return count;
  }
};

TEST_F(ServiceAccountReportTest, IsTheNoticeOfThePackage) {
  Installer().Set("PROP_SILENCE", "-1");
  Fail();
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE").Read("PROP_ACCOUNTID");
  calls.Add("CoCreateGuid(*) = 0").Log("creating local service account svc").Read("PROP_ACCOUNTDESC");
  calls.Late("NETAPI32", "NetUserAdd(null, 2, *, null) = 5").Log("failure 5 (0x00000005) adding account");
  calls.Notice(27000).NoAccount();
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(Notices(), 1u);
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
}

TEST_F(ServiceAccountReportTest, IsShownOnlyIfTheSilenceIsExactlyMinusOne) {
  for (const char* silence : {"", "0", "1", "-1 ", " -1", "-10", "-", "-2"}) {
    Installer().Set("PROP_SILENCE", silence);
    Fail();
    EXPECT_EQ(Notices(), 0u) << silence;
  }
  Installer().Set("PROP_SILENCE", "-1" + std::string(126, '1'));
  Fail();
  Installer().Set("PROP_SILENCE", "-1");
  Installer().FailReading("PROP_SILENCE");
  Fail();
  EXPECT_EQ(Notices(), 0u);
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
}

TEST_F(ServiceAccountReportTest, IsABoxIfNoRecordCanBeCreated) {
  Installer().Set("PROP_SILENCE", "-1");
  Installer().refusesRecords = true;
  // The title's buffer has the length of "-1" as its size, so one character fits.
  const std::vector<std::pair<std::string, std::string>> titles = {
      {"P", "P"}, {"PP", kTitle}, {"Vantor", kTitle}, {std::string(127, 'P'), kTitle}, {"", kTitle}};
  std::vector<rig::Desktop::Box> boxes;
  for (const auto& [product, title] : titles) {
    Installer().Set("ProductName", product);
    Fail();
    boxes.push_back({kText, title, 0x30});
  }
  Installer().Set("ProductName", "P");
  Installer().FailReading("ProductName");
  Fail();
  boxes.push_back({kText, kTitle, 0x30});
  EXPECT_EQ(TheWorld().desktop.boxes, boxes);
}

}  // namespace service_account_failure_test
