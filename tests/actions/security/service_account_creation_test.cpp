// CustomAction23: creates the service account, on this computer or in its domain.

#include "actions/security/service_account_support.h"
#include "rig/function.h"

namespace service_account_creation_test {

using service_account_test::Calls;
using service_account_test::kNoAccount;

constexpr char kLocalRecord[] =
    "name=\"svc\" password=\"<password>\" age=0 priv=1 home=null comment=null flags=0x201 script=null auth=0 "
    "full=\"Vantor service\" remark=null parms=null stations=null on=0 off=0 expires=0xffffffff "
    "storage=0xffffffff units=0 hours=null bad=0 logons=0 server=null country=0 page=0";
constexpr char kNoRight[] = "could not grant right to logon as service";

class ServiceAccountCreationTest : public service_account_test::ServiceAccountTest {
 protected:
  // Returns the calls up to the one that reads the account's type.
  static Calls Begin(const std::string& type) {
    Calls calls;
    calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE").Read("PROP_ACCOUNTID");
    calls.Add("CoCreateGuid(*) = 0");
    return type == "0" ? calls.AskWorkgroup(1) : calls;
  }
  // Returns the calls that create and publish a local account.
  static Calls& MakeLocal(Calls& calls) {
    return calls.Log("creating local service account svc")
        .Read("PROP_ACCOUNTDESC")
        .Late("NETAPI32", "NetUserAdd(null, 2, *, null) = 0")
        .Set("PROP_ACCOUNTNAME", "svc")
        .Set("PROP_ACCOUNTPASS", "<password>");
  }
  static Calls& MakeOfDomain(Calls& calls) {
    return calls.Log("creating domain service account CORP\\svc")
        .Read("PROP_ACCOUNTDESC")
        .OpenContainer()
        .Add(R"(container.Create("user", "svc", *) = 0)")
        .Add("object.QueryInterface({3E37E320-17E2-11CF-ABC4-02608C9E7553}, *) = 0")
        .Add(R"(user.SetPassword("<password>") = 0)")
        .Add(R"(user.put_FullName("Vantor service") = 0)")
        .Add("user.SetInfo() = 0")
        .Set("PROP_ACCOUNTNAME", "svc")
        .Set("PROP_ACCOUNTPASS", "<password>");
  }
  static Calls& PublishLocal(Calls& calls, const std::string& computer = "PC7") {
    return calls.Add("GetComputerNameW(*, *) = " + std::string(computer == "." ? "0" : "1"))
        .Set("PROP_ACCOUNTDOMAIN", computer);
  }
  void SetType(const std::string& type) { Installer().Set("PROP_ACCOUNTTYPE", type); }
};

TEST_F(ServiceAccountCreationTest, ALocalAccountIsCreatedGivenItsRightAndPublished) {
  SetType("1");
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("1");
  MakeLocal(calls).Grant("null");
  PublishLocal(calls);
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(Accounts().users["svc"].record, kLocalRecord);
  EXPECT_EQ(Accounts().users["svc"].password, rig::kSecretMark);
  EXPECT_EQ(Accounts().rights, std::vector<std::string>{"PC7\\svc SeServiceLogonRight (38 of 40)"});
  EXPECT_EQ(Published(), "svc|<password>|PC7");
}

TEST_F(ServiceAccountCreationTest, ALongNameIsUsedWholeAndCutInTheLog) {
  const std::string name(300, 'n');
  SetType("1");
  Installer().Set("PROP_ACCOUNTID", name);
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: " + ("creating local service account " + name).substr(0, 255)});
  EXPECT_EQ(Accounts().users.count(name), 1u);
  EXPECT_EQ(Published(), name + "|<password>|PC7");
}

TEST_F(ServiceAccountCreationTest, AnAccountOfTheDomainIsCreatedInItsDirectory) {
  SetType("0");
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("0");
  MakeOfDomain(calls).Late("NETAPI32", R"(NetGetDCName(null, "CORP", *) = 0)").Grant(R"("\\\\DC1")");
  calls.Set("PROP_ACCOUNTDOMAIN", "CORP").Log("adding service principal name").Translate();
  calls.Read("PROP_SERVICENAME").UpdateNames("VANTOR", 0);
  calls.Log("added service principal name for CN=svc,CN=Users,DC=CORP");
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(DomainUsers()["svc"].password, rig::kSecretMark);
  EXPECT_EQ(DomainUsers()["svc"].fullName, "Vantor service");
  EXPECT_EQ(Accounts().rights, std::vector<std::string>{"CORP\\svc SeServiceLogonRight (38 of 40)"});
  EXPECT_EQ(Directory().registered,
            (std::set<std::string>{"CN=svc,CN=Users,DC=CORP VANTOR/PC7",
                                   "CN=svc,CN=Users,DC=CORP VANTOR/pc7.corp.example"}));
  EXPECT_TRUE(Accounts().users.empty());
  EXPECT_EQ(Published(), "svc|<password>|CORP");
}

// The longest one has 1023 characters.
TEST_F(ServiceAccountCreationTest, TheLongestDistinguishedNameGetsItsNames) {
  const std::string name = "CN=" + std::string(1020, 'n');
  Directory().distinguishedNames["CORP\\svc"] = name;
  SetType("0");
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: creating domain service account CORP\\svc",
              "Hx Setup Log: adding service principal name",
              "Hx Setup Log: " + ("added service principal name for " + name).substr(0, 255)});
  EXPECT_EQ(Directory().registered,
            (std::set<std::string>{name + " VANTOR/PC7", name + " VANTOR/pc7.corp.example"}));
}

TEST_F(ServiceAccountCreationTest, OnlyTheFirstCharacterOfTheTypeCounts) {
  for (const char* type : {"1x", "10", "1 ", "0x", "01"}) {
    Accounts().users.clear();
    DomainUsers().clear();
    Accounts().chances.push_back(Accounts().chances.front());
    SetType(type);
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(Accounts().users.count("svc"), type[0] == '1' ? 1u : 0u) << type;
    EXPECT_EQ(DomainUsers().count("svc"), type[0] == '0' ? 1u : 0u) << type;
  }
}

TEST_F(ServiceAccountCreationTest, AnyOtherTypeMeansNoAccount) {
  for (const char* type : {"", "2", "/", "9", "-1", " 1", "x", "\xEF\xBC\x91", "-"}) {
    TheRig().trace.Clear();
    SetType(type);
    Installer().Set("PROP_ACCOUNTNAME", "old");
    Installer().Set("PROP_ACCOUNTPASS", "old");
    Installer().Set("PROP_ACCOUNTDOMAIN", "old");
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(Published(), kNoAccount) << type;
    EXPECT_EQ(TheRig().trace.Lines()[1], R"(MsiGetPropertyW(session, "PROP_ACCOUNTTYPE", *, *) = 0)");
    EXPECT_EQ(TheRig().trace.Lines().size(), 10u) << type;
  }
  EXPECT_TRUE(Accounts().users.empty());
  EXPECT_TRUE(DomainUsers().empty());
}

TEST_F(ServiceAccountCreationTest, WithoutATypeNothingElseIsRead) {
  Installer().FailReading("PROP_ACCOUNTTYPE");
  Installer().Set("PROP_SILENCE", "-1");
  EXPECT_EQ(Run(23), 0u);
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE", "1627").NoAccount();
  EXPECT_TRACE((calls.lines));
}

TEST_F(ServiceAccountCreationTest, WithoutANameTheFailureIsReported) {
  SetType("1");
  Installer().FailReading("PROP_ACCOUNTID");
  EXPECT_EQ(Run(23), 0u);
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 0").Read("PROP_ACCOUNTTYPE").Read("PROP_ACCOUNTID", "1627");
  calls.Add(R"(MsiGetPropertyA(session, "PROP_SILENCE", *, *) = 0)").NoAccount();
  EXPECT_TRACE((calls.lines));
}

TEST_F(ServiceAccountCreationTest, AnEmptyNameIsLeftToTheSystemToRefuse) {
  SetType("1");
  Installer().Set("PROP_ACCOUNTID", "");
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: creating local service account ",
              "Hx Setup Log: failure 2202 (0x0000089A) adding account",
              "Hx Setup Log: no service account, using LocalSystem"});
}

TEST_F(ServiceAccountCreationTest, WithoutADomainTheAccountIsLocal) {
  for (const char* workgroup : {"", "\1", "refused"}) {
    Accounts().users.clear();
    Accounts().chances.push_back(Accounts().chances.front());
    Accounts().workgroup = workgroup;
    if (Accounts().workgroup == "refused") Accounts().Refuse("NetWkstaGetInfo", ERROR_ACCESS_DENIED);
    SetType("0");
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(Published(), "svc|<password>|PC7");
    EXPECT_EQ(Accounts().users.count("svc"), 1u);
  }
}

TEST_F(ServiceAccountCreationTest, ALongDomainIsCutTo63Characters) {
  for (size_t length : {62, 63, 64, 65, 200}) {
    const std::string name = std::string(std::min<size_t>(length, 63), 'D');
    Accounts().domains.clear();
    Accounts().domains[name].controller = "\\\\DC1";
    Accounts().chances.push_back(Accounts().chances.front());
    Accounts().workgroup = std::string(length, 'D');
    SetType("0");
    EXPECT_EQ(Run(23), 0u);
    EXPECT_EQ(Published(), "svc|<password>|" + name) << length;
    EXPECT_EQ(Accounts().domains[name].accounts.count("svc"), 1u);
  }
}

TEST_F(ServiceAccountCreationTest, AWorkgroupIsTreatedAsADomainAndFails) {
  SetType("0");
  Accounts().workgroup = "WORKGROUP";
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: creating domain service account WORKGROUP\\svc",
              "Hx Setup Log: failure -2147023541 (0x8007054B) adding account",
              "Hx Setup Log: no service account, using LocalSystem"});
  EXPECT_EQ(Published(), kNoAccount);
  EXPECT_TRUE(Accounts().users.empty());
}

TEST_F(ServiceAccountCreationTest, TheFullNameIsTheDescriptionOrIfUnreadableTheName) {
  const std::vector<std::pair<std::string, std::string>> names = {
      {"Vantor service", "Vantor service"}, {"", ""}, {"unreadable", "svc"}};
  for (const auto& [description, fullName] : names) {
    for (const char* type : {"1", "0"}) {
      Accounts().users.clear();
      DomainUsers().clear();
      Accounts().chances.push_back(Accounts().chances.front());
      Installer().Set("PROP_ACCOUNTDESC", description);
      if (description == "unreadable") Installer().FailReading("PROP_ACCOUNTDESC");
      SetType(type);
      EXPECT_EQ(Run(23), 0u);
      EXPECT_EQ((*type == '1' ? Accounts().users : DomainUsers())["svc"].fullName, fullName) << description;
    }
  }
}

TEST_F(ServiceAccountCreationTest, NamesOutsideAsciiPassWhole) {
  Installer().codePage = CP_UTF8;
  const std::string name = "\xC3\xA9l\xC3\xA8ve \xE6\x97\xA5\xF0\x9F\x98\x80";
  Installer().Set("PROP_ACCOUNTID", name);
  Installer().Set("PROP_ACCOUNTDESC", "\xC3\x84 service");
  SetType("1");
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(Accounts().users[name].fullName, "\xC3\x84 service");
  EXPECT_EQ(Published(), name + "|<password>|PC7");
  EXPECT_LOG({"Hx Setup Log: creating local service account " + name});
  Accounts().workgroup = "\xC3\x9Cml\xC3\xA4ut";
  Accounts().domains[Accounts().workgroup].controller = "\\\\DC1";
  Accounts().chances.push_back({0, 0, 0x16, 0, 0, 0x2C, 0, 0, 0x36, 0, 0, 0, 0, 0, 0, 0});
  SetType("0");
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(Accounts().domains[Accounts().workgroup].accounts.count(name), 1u);
  EXPECT_EQ(
      Directory().registered.count("CN=" + name + ",CN=Users,DC=" + Accounts().workgroup + " VANTOR/PC7"),
      1u);
}

TEST_F(ServiceAccountCreationTest, TheDomainOfALocalAccountIsADotWithoutAComputerName) {
  SetType("1");
  Accounts().computer = std::string(64, 'P');
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("1");
  PublishLocal(MakeLocal(calls).Grant("null"), ".");
  EXPECT_TRACE((calls.lines));
  Accounts().users.clear();
  Accounts().chances.push_back({0, 0, 0x16, 0, 0, 0x2C, 0, 0, 0x36, 0, 0, 0, 0, 0, 0, 0});
  Accounts().computer = std::string(63, 'P');
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(Installer().Get("PROP_ACCOUNTDOMAIN"), Accounts().computer);
}

// ---- the right

class ServiceAccountRightTest : public ServiceAccountCreationTest {
 protected:
  void ExpectKeptWithoutRight(const char* domain) {
    std::vector<std::string> log = Installer().Log();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[1], std::string("Hx Setup Log: ") + kNoRight);
    EXPECT_TRUE(Accounts().rights.empty());
    EXPECT_EQ(Published(), std::string("svc|<password>|") + domain);
  }
};

TEST_F(ServiceAccountRightTest, TheIdentifierMayNeedMoreRoom) {
  SetType("1");
  const std::vector<std::pair<DWORD, DWORD>> demands = {{300, 260}, {28, 700}, {68, 3}, {4000, 4000}};
  Accounts().demands = {demands.begin(), demands.begin() + 2};
  EXPECT_EQ(Run(23), 0u);
  EXPECT_EQ(Accounts().rooms, (std::vector<std::pair<DWORD, DWORD>>{{256, 256}, {300, 260}, {28, 700}}));
  EXPECT_EQ(Accounts().rights.size(), 1u);
}

TEST_F(ServiceAccountRightTest, AnAccountThatIsNotFoundIsKeptWithoutTheRight) {
  SetType("1");
  Accounts().Refuse("LookupAccountNameW", ERROR_NONE_MAPPED);
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("1");
  MakeLocal(calls).Late("ADVAPI32", R"(LookupAccountNameW(null, "svc", *, *, *, *, *) = 0)").Log(kNoRight);
  PublishLocal(calls);
  EXPECT_TRACE((calls.lines));
  ExpectKeptWithoutRight("PC7");
}

TEST_F(ServiceAccountRightTest, WithoutAControllerTheAccountIsKeptWithoutTheRight) {
  SetType("0");
  Accounts().domains["CORP"].controller = "";
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("0");
  MakeOfDomain(calls).Late("NETAPI32", R"(NetGetDCName(null, "CORP", *) = 2453)").Log(kNoRight);
  calls.Set("PROP_ACCOUNTDOMAIN", "CORP").Log("adding service principal name").Translate();
  calls.Read("PROP_SERVICENAME").UpdateNames("VANTOR", 0);
  calls.Log("added service principal name for CN=svc,CN=Users,DC=CORP");
  EXPECT_TRACE((calls.lines));
  ExpectKeptWithoutRight("CORP");
}

TEST_F(ServiceAccountRightTest, APolicyThatDoesNotOpenIsLogged) {
  SetType("1");
  Accounts().Refuse("LsaOpenPolicy", 0xC0000022);
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("1");
  MakeLocal(calls).Late("ADVAPI32", R"(LookupAccountNameW(null, "svc", *, *, *, *, *) = 1)");
  calls.Add("LsaOpenPolicy(null, *, 0xf0fff, *) = 0xc0000022").Add("LsaNtStatusToWinError(0xc0000022) = 5");
  PublishLocal(calls.Log(kNoRight));
  EXPECT_TRACE((calls.lines));
  ExpectKeptWithoutRight("PC7");
}

TEST_F(ServiceAccountRightTest, ARightThatIsRefusedIsLogged) {
  SetType("1");
  Accounts().Refuse("LsaAddAccountRights", 0xC0000060);
  EXPECT_EQ(Run(23), 0u);
  Calls calls = Begin("1");
  MakeLocal(calls).Late("ADVAPI32", R"(LookupAccountNameW(null, "svc", *, *, *, *, *) = 1)");
  calls.Add("LsaOpenPolicy(null, *, 0xf0fff, *) = 0");
  calls.Add("LsaAddAccountRights(policy#1, *, *, 1) = 0xc0000060").Add("LsaClose(policy#1) = 0");
  calls.Add("LsaNtStatusToWinError(0xc0000060) = 1313");
  PublishLocal(calls.Log(kNoRight));
  EXPECT_TRACE((calls.lines));
  ExpectKeptWithoutRight("PC7");
}

// A status that is not a failure, but maps to an error.
TEST_F(ServiceAccountRightTest, AnyStatusThatMapsToAnErrorIsLogged) {
  SetType("1");
  Accounts().Refuse("LsaAddAccountRights", 0x00000103);
  EXPECT_EQ(Run(23), 0u);
  ExpectKeptWithoutRight("PC7");
}

}  // namespace service_account_creation_test
