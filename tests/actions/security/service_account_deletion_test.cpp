// CustomAction24, and CustomAction23 in a rollback: deletes the service account if the installer created it.

#include "actions/security/service_account_support.h"

namespace service_account_deletion_test {

using service_account_test::Calls;

class ServiceAccountDeletionTest : public service_account_test::ServiceAccountTest {
 protected:
  void Arrange(rig::World& world) override {
    ServiceAccountTest::Arrange(world);
    Accounts().users["svc"];
    Accounts().users["other"];
    DomainUsers()["svc"];
    DomainUsers()["other"];
    Directory().registered = {"CN=svc,CN=Users,DC=CORP VANTOR/PC7",
                              "CN=svc,CN=Users,DC=CORP VANTOR/pc7.corp.example",
                              "CN=svc,CN=Users,DC=CORP HOST/PC7"};
  }
  // Returns the accounts that exist, as "svc other|svc other": those of the computer and of the domain.
  std::string Left() {
    std::string left;
    for (const rig::AccountMap* map : {&Accounts().users, &DomainUsers()}) {
      left += map == &Accounts().users ? "" : "|";
      for (const auto& [name, account] : *map) left += (left.empty() || left.back() == '|' ? "" : " ") + name;
    }
    return left;
  }
  static constexpr char kAll[] = "other svc|other svc";
  static constexpr char kLocalDeleted[] = "other|other svc";
  static constexpr char kDomainDeleted[] = "other svc|other";

  static Calls& DeleteLocal(Calls& calls, const std::string& name = "svc") {
    return calls.Late("NETAPI32", "NetUserGetInfo(null, \"" + name + "\", 1, *) = 0")
        .Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0")
        .Late("NETAPI32", "NetUserDel(null, \"" + name + "\") = 0");
  }
  static Calls& DeleteOfDomain(Calls& calls) {
    return calls.OpenContainer()
        .Add(R"(container.GetObjectA("user", "svc", *) = 0)")
        .Translate()
        .Read("PROP_SERVICENAME")
        .UpdateNames("VANTOR", 2)
        .OpenContainer()
        .Add(R"(container.Delete("user", "svc") = 0)");
  }
};

TEST_F(ServiceAccountDeletionTest, TheServicesOwnAccountIsDeleted) {
  SetService(".\\svc");
  EXPECT_EQ(Run(24), 0u);
  Calls calls;
  calls.AskService(".\\svc").Read("PROP_ACCOUNTID").Log("deleting local service account svc");
  EXPECT_TRACE((DeleteLocal(calls).lines));
  EXPECT_EQ(Left(), kLocalDeleted);
}

TEST_F(ServiceAccountDeletionTest, TheServicesAccountOfADomainIsDeletedThereWithItsNames) {
  SetService("CORP\\svc");
  EXPECT_EQ(Run(24), 0u);
  Calls calls;
  calls.AskService("CORP\\svc").Read("PROP_ACCOUNTID").Add("GetComputerNameW(*, *) = 1");
  calls.Log("deleting domain service account CORP\\svc");
  EXPECT_TRACE((DeleteOfDomain(calls).lines));
  EXPECT_EQ(Left(), kDomainDeleted);
  EXPECT_EQ(Directory().registered, std::set<std::string>{"CN=svc,CN=Users,DC=CORP HOST/PC7"});
}

// The longest one has 1023 characters.
TEST_F(ServiceAccountDeletionTest, TheLongestDistinguishedNameLosesItsNames) {
  const std::string name = "CN=" + std::string(1020, 'n');
  Directory().distinguishedNames["CORP\\svc"] = name;
  Directory().registered = {name + " VANTOR/PC7", name + " VANTOR/pc7.corp.example", name + " HOST/PC7"};
  SetService("CORP\\svc");
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(Left(), kDomainDeleted);
  EXPECT_EQ(Directory().registered, std::set<std::string>{name + " HOST/PC7"});
}

TEST_F(ServiceAccountDeletionTest, WithoutAServiceThePublishedAccountIsDeleted) {
  Installer().Set("PROP_ACCOUNTNAME", "svc");
  Installer().Set("PROP_ACCOUNTDOMAIN", "PC7");
  EXPECT_EQ(Run(24), 0u);
  Calls calls;
  calls.LackService().Read("PROP_ACCOUNTNAME").Read("PROP_ACCOUNTDOMAIN").Read("PROP_ACCOUNTID");
  calls.Add("GetComputerNameW(*, *) = 1").Log("deleting local service account svc");
  EXPECT_TRACE((DeleteLocal(calls).lines));
  EXPECT_EQ(Left(), kLocalDeleted);
}

// ---- spellings

struct Spelling {
  std::string account;
  const char* log;
  const char* left;
};

TEST_F(ServiceAccountDeletionTest, EverySpellingOfAnAccountFindsItsPlace) {
  constexpr char kLocal[] = "deleting local service account svc";
  constexpr char kDomain[] = "deleting domain service account CORP\\svc";
  const std::vector<Spelling> spellings = {
      {"svc", kLocal, kLocalDeleted},
      {".\\svc", kLocal, kLocalDeleted},
      {"\\svc", kLocal, kLocalDeleted},
      {"PC7\\svc", kLocal, kLocalDeleted},
      {"pc7\\svc", kLocal, kLocalDeleted},
      {"Pc7\\SVC", "deleting local service account SVC", kLocalDeleted},
      {".\\SvC", "deleting local service account SvC", kLocalDeleted},
      {"CORP\\svc", kDomain, kDomainDeleted},
      {"corp\\svc", "deleting domain service account corp\\svc", kDomainDeleted},
      {"..\\svc", "deleting domain service account ..\\svc", kAll},
      {"PC77\\svc", "deleting domain service account PC77\\svc", kAll},
      {"PC\\svc", "deleting domain service account PC\\svc", kAll},
      {"svc@corp.example", "account was not created by installer (svc@corp.example)", kAll},
      {"CORP\\other", "account was not created by installer (other)", kAll},
      {"PC7\\other", "account was not created by installer (other)", kAll},
      {"svc2", "account was not created by installer (svc2)", kAll},
      {".\\PC7\\svc", "account was not created by installer (PC7\\svc)", kAll},
      {"CORP\\\\svc", "account was not created by installer (\\svc)", kAll},
      {"CORP\\", "no account to delete", kAll},
      {".\\", "no account to delete", kAll},
      {"\\", "no account to delete", kAll},
      {"NT AUTHORITY\\LocalService", "account was not created by installer (LocalService)", kAll},
  };
  for (const Spelling& one : spellings) {
    SCOPED_TRACE(one.account);
    SetService(one.account);
    EXPECT_EQ(Run(24), 0u);
    EXPECT_LOG({std::string("Hx Setup Log: ") + one.log});
    EXPECT_EQ(Left(), one.left);
    NewScene();
  }
}

TEST_F(ServiceAccountDeletionTest, LocalSystemInAnyCaseIsNotTheServicesAccount) {
  Installer().Set("PROP_ACCOUNTID", "LocalSystem");
  Accounts().users["LocalSystem"];
  using Account = std::optional<std::string>;
  for (const Account& account :
       {Account("LocalSystem"), Account("localsystem"), Account("LOCALSYSTEM"), Account(""), Account()}) {
    TheRig().trace.Clear();
    SetService(account);
    EXPECT_EQ(Run(24), 0u);
    EXPECT_LOG({});
    EXPECT_EQ(TheRig().trace.Lines().back(), R"(MsiGetPropertyW(session, "PROP_ACCOUNTNAME", *, *) = 0)");
  }
  EXPECT_EQ(Accounts().users.count("LocalSystem"), 1u);
  // Then the published account is used.
  Installer().Set("PROP_ACCOUNTID", "svc");
  Installer().Set("PROP_ACCOUNTNAME", "svc");
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(Accounts().users.count("svc"), 0u);
}

TEST_F(ServiceAccountDeletionTest, APublishedAccountWithoutADomainIsLocal) {
  const std::vector<std::pair<std::string, std::string>> domains = {
      {"", kLocalDeleted},      {".", kLocalDeleted},          {"PC7", kLocalDeleted}, {"pC7", kLocalDeleted},
      {"CORP", kDomainDeleted}, {"unreadable", kLocalDeleted}, {"ELSEWHERE", kAll}};
  for (const auto& [domain, left] : domains) {
    SCOPED_TRACE(domain);
    Installer().Set("PROP_ACCOUNTNAME", "svc");
    Installer().Set("PROP_ACCOUNTDOMAIN", domain);
    if (domain == "unreadable") Installer().FailReading("PROP_ACCOUNTDOMAIN");
    EXPECT_EQ(Run(24), 0u);
    EXPECT_EQ(Left(), left);
    NewScene();
  }
}

TEST_F(ServiceAccountDeletionTest, WithoutAnyAccountNothingIsLogged) {
  for (bool isUnreadable : {false, true}) {
    if (isUnreadable) Installer().FailReading("PROP_ACCOUNTNAME");
    TheRig().trace.Clear();
    EXPECT_EQ(Run(24), 0u);
    Calls calls;
    calls.LackService().Read("PROP_ACCOUNTNAME", isUnreadable ? "1627" : "0");
    EXPECT_LOG({});
    EXPECT_EQ(TheRig().trace.Lines().back(), calls.lines.back());
    EXPECT_EQ(TheRig().trace.Lines().size(), calls.lines.size());
  }
  EXPECT_EQ(Left(), kAll);
}

TEST_F(ServiceAccountDeletionTest, AnAccountOfAnotherNameIsLeftAlone) {
  for (const char* own : {"", "svc2", "sv", "unreadable", "PC7\\svc", "svc "}) {
    SCOPED_TRACE(own);
    SetService(".\\svc");
    Installer().Set("PROP_ACCOUNTID", own);
    bool isUnreadable = std::string(own) == "unreadable";
    if (isUnreadable) Installer().FailReading("PROP_ACCOUNTID");
    EXPECT_EQ(Run(24), 0u);
    Calls calls;
    calls.AskService(".\\svc").Read("PROP_ACCOUNTID", isUnreadable ? "1627" : "0");
    EXPECT_TRACE((calls.Log("account was not created by installer (svc)").lines));
    EXPECT_EQ(Left(), kAll);
    NewScene();
  }
}

TEST_F(ServiceAccountDeletionTest, NamesOutsideAsciiAreFoundInAnyCase) {
  Installer().codePage = CP_UTF8;
  Installer().Set("PROP_ACCOUNTID", "\xC3\x89L\xC3\x88VE \xE6\x97\xA5");
  const std::string name = "\xC3\xA9l\xC3\xA8ve \xE6\x97\xA5";
  Accounts().users[name];
  Accounts().computer = "\xC3\x9CML";
  SetService("\xC3\xBCml\\" + name);
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(Accounts().users.count(name), 0u);
  EXPECT_LOG({"Hx Setup Log: deleting local service account " + name});
}

TEST_F(ServiceAccountDeletionTest, WithoutAComputerNameADomainCountsAsAnother) {
  SetService("PC7\\svc");
  Accounts().Refuse("GetComputerNameW", ERROR_BUFFER_OVERFLOW);
  EXPECT_EQ(Run(24), 0u);
  EXPECT_LOG({"Hx Setup Log: deleting domain service account PC7\\svc"});
  EXPECT_EQ(Left(), kAll);
}

TEST_F(ServiceAccountDeletionTest, ALongNameIsComparedAndDeletedWhole) {
  const std::string name(300, 'n');
  for (const std::string& other : {name + "n", name.substr(1)}) Accounts().users[other];
  Accounts().users[name];
  Installer().Set("PROP_ACCOUNTID", name);
  for (const std::string& account : {name + "n", name.substr(1), name}) {
    Installer().Set("PROP_ACCOUNTNAME", account);
    EXPECT_EQ(Run(24), 0u);
    EXPECT_EQ(Accounts().users.count(account), account == name ? 0u : 1u);
  }
  EXPECT_LOG(
      {"Hx Setup Log: " + ("account was not created by installer (" + name + "n)").substr(0, 255),
       "Hx Setup Log: " + ("account was not created by installer (" + name.substr(1) + ")").substr(0, 255),
       "Hx Setup Log: " + ("deleting local service account " + name).substr(0, 255)});
}

// ---- the service's configuration

TEST_F(ServiceAccountDeletionTest, AServiceThatCannotBeAskedLeavesThePublishedAccount) {
  Installer().Set("PROP_ACCOUNTNAME", "svc");
  for (const char* call : {"OpenSCManagerA", "OpenServiceW", "QueryServiceConfigW"}) {
    SetService("CORP\\svc");
    Installer().Set("PROP_ACCOUNTNAME", "svc");
    RefuseCall(call, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(24), 0u);
    EXPECT_EQ(Left(), kLocalDeleted) << call;
    NewScene();
  }
}

// ---- deletions that fail

TEST_F(ServiceAccountDeletionTest, ALocalAccountThatIsNotThereIsNotDeleted) {
  SetService(".\\svc");
  Accounts().users.clear();
  EXPECT_EQ(Run(24), 0u);
  Calls calls;
  calls.AskService(".\\svc").Read("PROP_ACCOUNTID").Log("deleting local service account svc");
  EXPECT_TRACE((calls.Late("NETAPI32", R"(NetUserGetInfo(null, "svc", 1, *) = 2221)").lines));
}

TEST_F(ServiceAccountDeletionTest, ADomainThatDoesNotOpenEndsIt) {
  SetService("ELSEWHERE\\svc");
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(TheRig().trace.Lines().back(),
            R"(ADsGetObject("WinNT://ELSEWHERE", {001677D0-FD16-11CE-ABC4-02608C9E7553}, *) = 0x8007054b)");
}

TEST_F(ServiceAccountDeletionTest, AUserThatIsNotInTheDomainEndsIt) {
  SetService("CORP\\svc");
  DomainUsers().erase("svc");
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(TheRig().trace.Lines().back(), R"(container.GetObjectA("user", "svc", *) = 0x800708ad)");
  EXPECT_EQ(Directory().registered.size(), 3u);
}

TEST_F(ServiceAccountDeletionTest, AUserWithoutADistinguishedNameIsDeletedWithoutItsNames) {
  SetService("CORP\\svc");
  Directory().Refuse("translator.Set", 0x80072030);
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(Left(), kDomainDeleted);
  EXPECT_EQ(Directory().registered.size(), 3u);
}

TEST_F(ServiceAccountDeletionTest, TheClassOfTheNamesIsFromThePackageOrVantor) {
  const std::vector<std::pair<std::string, size_t>> classes = {
      {"HOST", 2}, {"", 1}, {"unreadable", 1}, {"VANTOR", 1}, {"MSSQL", 3}};
  for (const auto& [property, left] : classes) {
    SetService("CORP\\svc");
    Installer().Set("PROP_SERVICENAME", property);
    if (property == "unreadable") Installer().FailReading("PROP_SERVICENAME");
    EXPECT_EQ(Run(24), 0u);
    EXPECT_EQ(Directory().registered.size(), left) << property;
    EXPECT_EQ(Left(), kDomainDeleted);
    NewScene();
  }
}

TEST_F(ServiceAccountDeletionTest, DeletionsThatFailAreNotLogged) {
  for (const char* account : {"CORP\\svc", ".\\svc"}) {
    SetService(account);
    Accounts().Refuse("NetUserDel", ERROR_ACCESS_DENIED);
    Directory().Refuse("container.Delete", 0x80070005);
    Directory().Refuse("DsWriteAccountSpnW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(24), 0u);
    EXPECT_EQ(Installer().Log().size(), 1u);
    EXPECT_EQ(Left(), kAll);
    NewScene();
  }
}

struct Missing {
  const char* module;
  const char* function;  // Null: the whole module.
  const char* localLeft;
  const char* domainLeft;
};

TEST_F(ServiceAccountDeletionTest, WhatIsMissingMakesItsStepFail) {
  const std::vector<Missing> table = {
      {"NETAPI32", nullptr, kAll, kDomainDeleted},
      {"NETAPI32", "NetUserGetInfo", kAll, kDomainDeleted},
      {"NETAPI32", "NetUserDel", kAll, kDomainDeleted},
      {"ACTIVEDS", nullptr, kLocalDeleted, kAll},
      {"ACTIVEDS", "ADsGetObject", kLocalDeleted, kAll},
      {"NTDSAPI", nullptr, kLocalDeleted, kDomainDeleted},
      {"NTDSAPI", "DsGetSpnW", kLocalDeleted, kDomainDeleted},
      {"NTDSAPI", "DsBindW", kLocalDeleted, kDomainDeleted},
      {"NTDSAPI", "DsWriteAccountSpnW", kLocalDeleted, kDomainDeleted},
  };
  for (const Missing& one : table) {
    SCOPED_TRACE(one.function == nullptr ? one.module : one.function);
    for (const char* account : {".\\svc", "CORP\\svc"}) {
      if (one.function == nullptr) {
        TheModules().Missing(one.module);
      } else {
        TheModules().MissingFunction(one.module, one.function);
      }
      SetService(account);
      EXPECT_EQ(Run(24), 0u);
      EXPECT_EQ(Left(), account[0] == '.' ? one.localLeft : one.domainLeft) << account;
      EXPECT_EQ(Installer().Log().size(), 1u);
      NewScene();
    }
  }
}

TEST_F(ServiceAccountDeletionTest, WithoutTheFreeingFunctionTheAccountIsStillDeleted) {
  SetService(".\\svc");
  TheModules().MissingFunction("NETAPI32", "NetApiBufferFree");
  EXPECT_EQ(Run(24), 0u);
  EXPECT_EQ(Left(), kLocalDeleted);
  TheRig().ledger.Deliberate(rig::kNetBuffer);
}

// ---- rollback

TEST_F(ServiceAccountDeletionTest, InARollbackTheCreationDeletes) {
  Installer().rollback = true;
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  Installer().Set("PROP_ACCOUNTNAME", "svc");
  Installer().Set("PROP_ACCOUNTDOMAIN", "PC7");
  EXPECT_EQ(Run(23), 0u);
  Calls calls;
  calls.Add("MsiGetMode(session, 17) = 1").LackService().Read("PROP_ACCOUNTNAME").Read("PROP_ACCOUNTDOMAIN");
  calls.Read("PROP_ACCOUNTID").Add("GetComputerNameW(*, *) = 1").Log("deleting local service account svc");
  EXPECT_TRACE((DeleteLocal(calls).lines));
  EXPECT_EQ(Left(), kLocalDeleted);
  EXPECT_PUBLISHED({});
}

TEST_F(ServiceAccountDeletionTest, InARollbackAnyOtherAccountIsLeftAlone) {
  Installer().rollback = true;
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  Installer().Set("PROP_ACCOUNTNAME", "svc");
  SetService("PC7\\other");
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: account was not created by installer (other)"});
  EXPECT_EQ(Left(), kAll);
}

TEST_F(ServiceAccountDeletionTest, ARollbackOfARefusedCreationLeavesTheOlderAccount) {
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  EXPECT_EQ(Run(23), 0u);
  Installer().rollback = true;
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: creating local service account svc",
              "Hx Setup Log: failure 2224 (0x000008B0) adding account",
              "Hx Setup Log: no service account, using LocalSystem"});
  EXPECT_EQ(Left(), kAll);
}

}  // namespace service_account_deletion_test
