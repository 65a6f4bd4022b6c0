// CustomAction25: the accounts that it is given, and how they are resolved.

#include <lm.h>

#include "actions/security/security_support.h"
#include "rig/function.h"

namespace folder_access_accounts_test {

using security_test::BeginFullControl;
using security_test::Calls;
using security_test::ListOf;

constexpr char kPath[] = "S:\\Data";

class FolderAccessAccountsTest : public security_test::SecurityTest {
 protected:
  // Runs the action with this data and expects these lines.
  void ExpectLog(const std::string& data, const std::vector<std::string>& lines) {
    SetData(data);
    EXPECT_EQ(Run(25), 0u) << data;
    std::vector<std::string> all;
    for (const std::string& line : lines) {
      all.push_back("Hx Setup Log: " + line);
    }
    EXPECT_EQ(Installer().Log(), all) << data;
  }
};

TEST_F(FolderAccessAccountsTest, AccountsOfThisComputerAreLookedUpHere) {
  struct Spelling {
    const char* given;
    const char* account;
  };
  for (const Spelling& spelling : {Spelling{".\\svc", ".\\svc"},
                                   {"\\.\\svc", ".\\svc"},
                                   {"\\\\svc", "\\svc"},
                                   {"SVC", "SVC"},
                                   {".\\SvC", ".\\SvC"}}) {
    std::string account = spelling.account;
    SetData(spelling.given + std::string("*S:\\Data"));
    EXPECT_EQ(Run(25), 0u);
    std::string name = account.substr(account.rfind('\\') + 1);
    EXPECT_TRACE((BeginFullControl(account, spelling.given)
                      .LookUp("null", name)
                      .SetList(kPath)
                      .Log("set ACL for " + account)
                      .lines));
    EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "PC7\\svc")});
    NewScene();
  }
}

TEST_F(FolderAccessAccountsTest, ThisComputersNameInAnyCaseIsThisComputer) {
  for (const char* domain : {"PC7", "pc7", "Pc7"}) {
    std::string account = domain + std::string("\\svc");
    SetData(account + "*S:\\Data");
    EXPECT_EQ(Run(25), 0u);
    Calls calls = BeginFullControl(account);
    calls.AskComputer().LookUp("null", "svc").SetList(kPath).Log("set ACL for " + account);
    EXPECT_TRACE((calls.lines));
    EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "PC7\\svc")});
    NewScene();
  }
}

TEST_F(FolderAccessAccountsTest, AccountsOfADomainAreLookedUpAtItsController) {
  SetData("corp\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("corp\\svc");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "corp", *) = 0)")
      .LookUp(R"("\\\\DC1")", "svc")
      .Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0")
      .SetList(kPath)
      .Log("set ACL for corp\\svc");
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "CORP\\svc")});
}

// Anything that only starts like ".\" is a domain, and the first backslash separates it from the name.
TEST_F(FolderAccessAccountsTest, TheDomainIsTheTextBeforeTheFirstBackslash) {
  Accounts().domains[".."].controller = "\\\\DC2";
  Accounts().domains[".."].accounts["svc\\x"];
  SetData("..\\svc\\x*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("..\\svc\\x");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "..", *) = 0)")
      .LookUp(R"("\\\\DC2")", "svc\\x")
      .Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0")
      .SetList(kPath)
      .Log("set ACL for ..\\svc\\x");
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "..\\svc\\x")});
}

TEST_F(FolderAccessAccountsTest, AComputerWithoutANameMatchesNoDomain) {
  Accounts().Refuse("GetComputerNameExW", ERROR_MORE_DATA);
  SetData("PC7\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("PC7\\svc");
  calls.Add("GetComputerNameExW(0, *, *) = 0")
      .Late("NETAPI32", R"(NetGetDCName(null, "PC7", *) = 2453)")
      .Log("failure -36 (0xFFFFFFDC) setting ACL for PC7\\svc");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, ADomainWithoutAControllerResolvesNothing) {
  SetData("BRANCH\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("BRANCH\\svc");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "BRANCH", *) = 2453)")
      .Log("failure -36 (0xFFFFFFDC) setting ACL for BRANCH\\svc");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, WhatAFailedControllerSearchStoresIsNotFreed) {
  TheWorld().On<::NetGetDCName>([](const wchar_t*, const wchar_t*, BYTE** out) -> DWORD {
    *out = reinterpret_cast<BYTE*>(uintptr_t{0xBADBAD0});
    return NERR_DCNotFound;
  });
  ExpectLog("CORP\\svc*S:\\Data",
            {"setting ACL for CORP\\svc on CORP\\svc", "failure -36 (0xFFFFFFDC) setting ACL for CORP\\svc"});
}

TEST_F(FolderAccessAccountsTest, AnUnknownAccountIsAFailure) {
  SetData("ghost*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("ghost")
                    .LookUp("null", "ghost", "0")
                    .Log("failure -36 (0xFFFFFFDC) setting ACL for ghost")
                    .lines));
}

TEST_F(FolderAccessAccountsTest, AnUnknownDomainAccountFreesItsControllersName) {
  SetData("CORP\\ghost*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("CORP\\ghost");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "CORP", *) = 0)")
      .LookUp(R"("\\\\DC1")", "ghost", "0")
      .Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0")
      .Log("failure -36 (0xFFFFFFDC) setting ACL for CORP\\ghost");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, AnEmptyNameIsNotLookedUp) {
  for (const char* account : {".\\", "PC7\\"}) {
    SetData(account + std::string("*S:\\Data"));
    EXPECT_EQ(Run(25), 0u);
    Calls calls = BeginFullControl(account);
    if (account[0] != '.') {
      calls.AskComputer();
    }
    calls.Log("failure -36 (0xFFFFFFDC) setting ACL for " + std::string(account));
    EXPECT_TRACE((calls.lines));
    NewScene();
  }
  // The controller is found before the name is checked.
  SetData("CORP\\*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("CORP\\");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "CORP", *) = 0)")
      .Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0")
      .Log("failure -36 (0xFFFFFFDC) setting ACL for CORP\\");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, TheSystemsOwnAccountsAreNotLookedUp) {
  struct Known {
    const char* account;
    const char* type;
    const char* owner;
  };
  for (const Known& known : {Known{"LocalSystem", "22", "<LocalSystem>"},
                             {"localsystem", "22", "<LocalSystem>"},
                             {"LOCALSYSTEM", "22", "<LocalSystem>"},
                             {"LocalService", "23", "<LocalService>"},
                             {"lOCALsERVICE", "23", "<LocalService>"}}) {
    std::string account = known.account;
    SetData(account + "*S:\\Data");
    EXPECT_EQ(Run(25), 0u);
    EXPECT_TRACE((BeginFullControl(account)
                      .Late("ADVAPI32", "CreateWellKnownSid(" + std::string(known.type) + ", null, *, *) = 1")
                      .SetList(kPath)
                      .Log("set ACL for " + account)
                      .lines));
    EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", known.owner)});
    EXPECT_EQ(Lists().wellKnownSizes, std::vector<DWORD>{68});
    NewScene();
  }
}

TEST_F(FolderAccessAccountsTest, OnlyTheBareNamesAreTheSystemsAccounts) {
  for (const char* account : {".\\LocalSystem", "LocalSystemX", "LocalSyste", "NetworkService"}) {
    std::string name = account;
    SetData(name + "*S:\\Data");
    EXPECT_EQ(Run(25), 0u);
    EXPECT_TRACE((BeginFullControl(name)
                      .LookUp("null", name.substr(name.rfind('\\') + 1), "0")
                      .Log("failure -36 (0xFFFFFFDC) setting ACL for " + name)
                      .lines));
    NewScene();
  }
}

TEST_F(FolderAccessAccountsTest, ALookUpThatWantsMoreRoomGetsIt) {
  using Rooms = std::vector<std::pair<DWORD, DWORD>>;
  // More for the identifier, more for the domain, more for both, and more again; less of one than before.
  for (const Rooms& demands :
       {Rooms{{300, 4}}, {{28, 400}}, {{512, 512}}, {{257, 4}, {260, 300}, {28, 301}}}) {
    Accounts().demands.assign(demands.begin(), demands.end());
    SetData("svc*S:\\Data");
    EXPECT_EQ(Run(25), 0u);
    Calls calls = BeginFullControl("svc");
    for (size_t at = 0; at < demands.size(); ++at) {
      calls.LookUp("null", "svc", "0");
    }
    EXPECT_TRACE((calls.LookUp("null", "svc").SetList(kPath).Log("set ACL for svc").lines));
    Rooms rooms = demands;
    rooms.insert(rooms.begin(), {256, 256});
    EXPECT_EQ(Accounts().rooms, rooms);
    EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "PC7\\svc")});
    NewScene();
  }
}

TEST_F(FolderAccessAccountsTest, ALookUpThatWantsNoMoreRoomIsNotRepeatedForever) {
  Accounts().demands.assign(5, {256, 256});
  ExpectLog("svc*S:\\Data", {"setting ACL for svc on svc", "failure -36 (0xFFFFFFDC) setting ACL for svc"});
  EXPECT_EQ(Accounts().rooms.size(), 1u);
}

TEST_F(FolderAccessAccountsTest, MemoryForTheLookUpMayBeMissing) {
  Accounts().demands = {{0x70000000, 4}};
  ExpectLog("svc*S:\\Data", {"setting ACL for svc on svc", "failure -36 (0xFFFFFFDC) setting ACL for svc"});
}

TEST_F(FolderAccessAccountsTest, OtherFailuresOfALookUpAreFinal) {
  Accounts().Refuse("LookupAccountNameW", ERROR_TRUSTED_RELATIONSHIP_FAILURE);
  ExpectLog("svc*S:\\Data", {"setting ACL for svc on svc", "failure -36 (0xFFFFFFDC) setting ACL for svc"});
  EXPECT_EQ(Accounts().rooms.size(), 1u);
}

// The lines of the log are UTF-8, whatever the system's code page.
TEST_F(FolderAccessAccountsTest, NamesMayHaveAnyCharacters) {
  Accounts().users["Jürgen"];
  SetData("Jürgen*S:\\Daten für 日本");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("Jürgen", "Jürgen", "S:\\Daten für 日本")
                    .LookUp("null", "Jürgen")
                    .SetList("S:\\Daten für 日本")
                    .Log("set ACL for Jürgen")
                    .lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf("S:\\Daten für 日本", "0x10000000", "PC7\\Jürgen")});
}

TEST_F(FolderAccessAccountsTest, DomainsMayHaveAnyCharacters) {
  Accounts().domains["ВЕТВЬ"].controller = "\\\\DC𝔘";
  Accounts().domains["ВЕТВЬ"].accounts["служба"];
  SetData("ВЕТВЬ\\служба*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("ВЕТВЬ\\служба");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "ВЕТВЬ", *) = 0)")
      .LookUp(R"("\\\\DC𝔘")", "служба")
      .Late("NETAPI32", "NetApiBufferFree(net-buffer#1) = 0")
      .SetList(kPath)
      .Log("set ACL for ВЕТВЬ\\служба");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, OverlongNamesAreCutInTheLogOnly) {
  std::string user(400, 'u');
  Accounts().users[user];
  SetData(user + "*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_LOG({"Hx Setup Log: setting ACL for " + std::string(239, 'u'),
              "Hx Setup Log: set ACL for " + std::string(243, 'u')});
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", "PC7\\" + user)});
}

TEST_F(FolderAccessAccountsTest, OverlongDomainsAreAskedForWhole) {
  std::string domain(300, 'D');
  Accounts().domains[domain].controller = "\\\\" + std::string(500, 'c');
  Accounts().domains[domain].accounts["svc"];
  SetData(domain + "\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  // The name of the domain does not fit in the first buffer.
  EXPECT_EQ(Accounts().rooms, (std::vector<std::pair<DWORD, DWORD>>{{256, 256}, {28, 301}}));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", domain + "\\svc")});
}

TEST_F(FolderAccessAccountsTest, AnOverlongNameOfThisComputerIsNotRead) {
  Accounts().computer = std::string(64, 'P');
  ExpectLog(std::string(64, 'P') + "\\svc*S:\\Data",
            {"setting ACL for " + std::string(64, 'P') + "\\svc on " + std::string(64, 'P') + "\\svc",
             "failure -36 (0xFFFFFFDC) setting ACL for " + std::string(64, 'P') + "\\svc"});
}

TEST_F(FolderAccessAccountsTest, TheLongestNameOfThisComputerIsRead) {
  Accounts().computer = std::string(63, 'P');
  const std::string account = std::string(63, 'p') + "\\svc";
  SetData(account + "*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl(account);
  calls.AskComputer().LookUp("null", "svc").SetList(kPath).Log("set ACL for " + account);
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(Lists().applied, std::vector{ListOf(kPath, "0x10000000", std::string(63, 'P') + "\\svc")});
}

TEST_F(FolderAccessAccountsTest, WithoutLookUpsNoAccountIsFound) {
  TheModules().MissingFunction("ADVAPI32", "LookupAccountNameW");
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc")
                    .LackFunction("ADVAPI32", "LookupAccountNameW")
                    .Log("failure -36 (0xFFFFFFDC) setting ACL for svc")
                    .lines));
}

TEST_F(FolderAccessAccountsTest, WithoutWellKnownIdentifiersTheSystemsAccountsAreNotFound) {
  TheModules().MissingFunction("ADVAPI32", "CreateWellKnownSid");
  SetData("LocalService*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("LocalService")
                    .LackFunction("ADVAPI32", "CreateWellKnownSid")
                    .Log("failure -36 (0xFFFFFFDC) setting ACL for LocalService")
                    .lines));
}

TEST_F(FolderAccessAccountsTest, WithoutTheirModuleNoAccountIsFound) {
  TheModules().Missing("ADVAPI32");
  SetData("svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  EXPECT_TRACE((BeginFullControl("svc")
                    .LackModule("ADVAPI32")
                    .Log("failure -36 (0xFFFFFFDC) setting ACL for svc")
                    .lines));
}

TEST_F(FolderAccessAccountsTest, WithoutTheNetworkNoDomainIsFound) {
  TheModules().Missing("NETAPI32");
  SetData("CORP\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("CORP\\svc");
  calls.AskComputer().LackModule("NETAPI32").Log("failure -36 (0xFFFFFFDC) setting ACL for CORP\\svc");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, WithoutTheSearchForControllersNoDomainIsFound) {
  TheModules().MissingFunction("NETAPI32", "NetGetDCName");
  SetData("CORP\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("CORP\\svc");
  calls.AskComputer()
      .LackFunction("NETAPI32", "NetGetDCName")
      .Log("failure -36 (0xFFFFFFDC) setting ACL for CORP\\svc");
  EXPECT_TRACE((calls.lines));
}

TEST_F(FolderAccessAccountsTest, WithoutItsFunctionTheControllersNameIsNotFreed) {
  TheModules().MissingFunction("NETAPI32", "NetApiBufferFree");
  SetData("CORP\\svc*S:\\Data");
  EXPECT_EQ(Run(25), 0u);
  Calls calls = BeginFullControl("CORP\\svc");
  calls.AskComputer()
      .Late("NETAPI32", R"(NetGetDCName(null, "CORP", *) = 0)")
      .LookUp(R"("\\\\DC1")", "svc")
      .LackFunction("NETAPI32", "NetApiBufferFree")
      .SetList(kPath)
      .Log("set ACL for CORP\\svc");
  EXPECT_TRACE((calls.lines));
  // Nothing can free it.
  EXPECT_EQ(TheRig().ledger.Count(rig::kNetBuffer), 1u);
}

}  // namespace folder_access_accounts_test
