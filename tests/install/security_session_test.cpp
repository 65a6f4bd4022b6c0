// The actions for accounts, access, firewall and service configuration, one by one, as far as this engine
// supports them.

#include <windows.h>
// After windows.h, which it needs.
#include <lm.h>

#include <algorithm>

#include "install/agent_rig.h"
#include "install/security_rig.h"

namespace install {
namespace {

class SecuritySessionTest : public SecurityTest {
 protected:
  void TearDown() override {
    for (const wchar_t* name : {L"vantor", L"somebody"}) {
      if (HasAccount(name)) NetUserDel(nullptr, name);
    }
    SecurityTest::TearDown();
  }
};

// True if `text` has the password's format: five groups of four characters. The last three of each say with
// which of four values the byte of the first one began.
bool HasPasswordShape(const std::string& text) {
  if (text.size() != 20) return false;
  for (size_t i = 0; i < text.size(); i += 4) {
    if (text[i + 1] < 'A' || text[i + 1] > 'D' || text.substr(i + 2, 2) != "AA") return false;
  }
  return true;
}

TEST_F(SecuritySessionTest, AnAccountIsMadePublishedAndDeleted) {
  Session session;
  session.Set("PROP_ACCOUNTTYPE", "1");
  session.Set("PROP_ACCOUNTID", "vantor");
  session.Set("PROP_ACCOUNTDESC", "The server's account");
  // Wine does not look up the accounts that it creates, and so grants them nothing.
  EXPECT_EQ(session.Run("CustomAction23"),
            Expected({"creating local service account vantor", "could not grant right to logon as service"}));
  EXPECT_TRUE(HasAccount(L"vantor"));
  EXPECT_EQ(session.Get("PROP_ACCOUNTNAME"), "vantor");
  EXPECT_EQ(session.Get("PROP_ACCOUNTDOMAIN"), ComputerName());
  EXPECT_TRUE(HasPasswordShape(session.Get("PROP_ACCOUNTPASS")));

  // An account of another name belongs to somebody else, whoever published it.
  USER_INFO_1 other = {};
  wchar_t name[] = L"somebody";
  other.usri1_name = other.usri1_password = name;
  other.usri1_priv = USER_PRIV_USER;
  ASSERT_EQ(NetUserAdd(nullptr, 1, reinterpret_cast<BYTE*>(&other), nullptr),
            static_cast<NET_API_STATUS>(NERR_Success));
  session.Set("PROP_ACCOUNTNAME", "somebody");
  EXPECT_EQ(session.Run("CustomAction24"), Texts{"account was not created by installer (somebody)"});
  EXPECT_TRUE(HasAccount(L"somebody"));
  EXPECT_TRUE(HasAccount(L"vantor"));

  // The service's account takes precedence over the published one.
  MakeServer(server + L"\\vt.exe", L".\\vantor");
  EXPECT_EQ(session.Run("CustomAction24"), Texts{"deleting local service account vantor"});
  EXPECT_TRUE(HasAccount(L"somebody"));
  EXPECT_FALSE(HasAccount(L"vantor"));
}

TEST_F(SecuritySessionTest, WithoutAnAccountTheServiceRunsAsLocalSystem) {
  Session session;
  session.Set("PROP_SILENCE", "-1");
  for (const char* type : {"", "2", "local"}) {
    session.Set("PROP_ACCOUNTTYPE", type);
    session.Set("PROP_ACCOUNTNAME", "somebody");
    session.Set("PROP_ACCOUNTDOMAIN", "ELSEWHERE");
    session.Set("PROP_ACCOUNTPASS", "given");
    EXPECT_EQ(session.Run("CustomAction23"), Texts{"no service account, using LocalSystem"}) << type;
    EXPECT_EQ(session.Get("PROP_ACCOUNTNAME"), "");
    EXPECT_EQ(session.Get("PROP_ACCOUNTDOMAIN"), "");
    EXPECT_EQ(session.Get("PROP_ACCOUNTPASS"), "");
    EXPECT_EQ(session.Run("CustomAction24"), Texts{});
  }
  // Outside a domain, a computer is in a workgroup, here with the computer's own name; no directory knows it.
  session.Set("PROP_ACCOUNTTYPE", "0");
  const Texts domain = session.Run("CustomAction23");
  if (OnWindows(Differs::kAccounts)) {
    // The workgroup has a name of its own there, and another error says that no domain controller is found.
    ASSERT_FALSE(domain.empty());
    EXPECT_EQ(domain.front().rfind("creating domain service account ", 0), 0u) << domain.front();
    EXPECT_EQ(domain.back(), "no service account, using LocalSystem");
    return;
  }
  EXPECT_EQ(domain,
            (Texts{"creating domain service account " + ComputerName() + "\\vantor",
                   "failure -2147467259 (0x80004005) adding account",
                   "Notice: Warning 27000.The account for the Vantor server could not be created, so the "
                   "server will run as "
                   "LocalSystem. The reason is in the installation's log.",
                   "no service account, using LocalSystem"}));
}

// This engine keeps only the part of a list that the system below it supports: the rights of the owner and of
// everybody. A folder's entries always show as inherited.
TEST_F(SecuritySessionTest, AccessIsSetOnOneFolderAndReadBack) {
  const std::wstring data = elsewhere + L"\\Data", sub = data + L"\\Sub", file = sub + L"\\file.txt";
  const std::wstring other = elsewhere + L"\\Other";
  WriteTree(data, {{"Sub\\", ""}, {"Sub\\file.txt", "x"}});
  WriteTree(other, {});
  const std::string user = UserName();
  // Only the right to pass through is inherited.
  if (OnWindows(Differs::kInheritance)) {
    Session session;
    session.Set("CustomActionData", "\\" + user + "*" + FromWide(data) + "\\");
    EXPECT_EQ(session.Run("CustomAction25"),
              (Texts{"setting ACL for " + user + " on \\" + user, "set ACL for " + user}));
    EXPECT_TRUE(machine::HasOwnEntry(AccessTo(data))) << AccessTo(data);
    // What is created in the folder afterwards inherits the entry.
    WriteTree(data, {{"New\\", ""}, {"new.txt", "x"}});
    for (const wchar_t* name : {L"\\New", L"\\new.txt"}) {
      const std::string list = AccessTo(data + name);
      EXPECT_FALSE(machine::HasOwnEntry(list)) << list;
      EXPECT_NE(list.find(";;;USER)"), std::string::npos) << list;
    }
    return;
  }
  SetAccess(elsewhere, "D:(A;OICI;0x1200a0;;;USER)");
  const std::string before = AccessTo(data), beforeSub = AccessTo(sub), beforeFile = AccessTo(file);

  Session session;
  session.Set("CustomActionData", "\\" + user + "*" + FromWide(data) + "\\");
  EXPECT_EQ(session.Run("CustomAction25"),
            (Texts{"setting ACL for " + user + " on \\" + user, "set ACL for " + user}));
  EXPECT_EQ(before, "D:(A;OICI;FA;;;SY)(A;OICI;FA;;;USER)(A;OICI;0x1200a9;;;WD)");
  EXPECT_EQ(AccessTo(data), "D:(A;OICI;FA;;;SY)(A;OICI;FA;;;USER)");
  EXPECT_EQ(AccessTo(sub), beforeSub);
  EXPECT_EQ(AccessTo(file), beforeFile);
  // Nor does this engine pass the entry on to what is created in the folder afterwards: inheritance cannot be
  // seen here.
  WriteTree(data, {{"New\\", ""}, {"new.txt", "x"}});
  EXPECT_EQ(AccessTo(data + L"\\New"), beforeSub);
  EXPECT_EQ(AccessTo(data + L"\\new.txt"), beforeFile);

  // The account of a real service, named by its letters. The right to change the list itself is the owner's.
  MakeServer(server + L"\\vt.exe", ToWide(ComputerName() + "\\" + user));
  session.Set("CustomActionData", "Vantor*rx*" + FromWide(other));
  EXPECT_EQ(session.Run("CustomAction33"),
            Texts{"set ACL (0) for " + ComputerName() + "\\" + user + "=500 on " + FromWide(other)});
  EXPECT_EQ(AccessTo(other), "D:(A;OICI;FA;;;SY)(A;OICI;0x1e00a9;;;USER)");
  // Inherited entries are added to the entry; the file's own earlier entries are not.
  SetAccess(sub, "D:(A;OICI;0x1200a0;;;USER)");
  session.Set("CustomActionData", "Vantor*r*" + FromWide(file));
  EXPECT_EQ(session.Run("CustomAction33"),
            Texts{"set ACL (0) for " + ComputerName() + "\\" + user + "=400 on " + FromWide(file)});
  EXPECT_EQ(beforeFile, "D:(A;;FA;;;SY)(A;;FA;;;USER)(A;;0x1200a9;;;WD)");
  EXPECT_EQ(AccessTo(file), "D:(A;;FA;;;SY)(A;;0x1e00a9;;;USER)");
  SetAccess(sub, "D:(A;OICI;FA;;;USER)");
  SetAccess(elsewhere, "D:(A;OICI;FA;;;USER)(A;OICI;0x1200a9;;;WD)");
}

TEST_F(SecuritySessionTest, AccessThatCannotBeSetIsLogged) {
  const std::wstring data = elsewhere + L"\\Data";
  WriteTree(data, {});
  const std::string before = AccessTo(data), path = "*" + FromWide(data);
  Session session;
  auto granting = [&](const std::string& text) {
    session.Set("CustomActionData", text);
    return session.Run("CustomAction25");
  };
  EXPECT_EQ(granting("nobody here" + path), (Texts{"setting ACL for nobody here on nobody here",
                                                   "failure -36 (0xFFFFFFDC) setting ACL for nobody here"}));
  EXPECT_EQ(granting("LocalService" + path + "\\missing"),
            (Texts{"setting ACL for LocalService on LocalService",
                   "failure 2 (0x00000002) setting ACL for LocalService"}));
  EXPECT_EQ(granting("\\" + path), Texts{"no change to ACL on \\"});
  EXPECT_EQ(granting("nobody"), Texts{"no path to apply ACL (nobody)"});
  session.Set("CustomActionData", "Vantor*rx" + path);
  EXPECT_EQ(session.Run("CustomAction33"), Texts{"opening service failed:  1060"});
  EXPECT_EQ(AccessTo(data), before);
}

TEST_F(SecuritySessionTest, FailureActionsAreQueried) {
  Session session;
  session.Set("PROP_COMPONENT", "Vantor");
  EXPECT_EQ(session.Run("CustomAction37"), Texts{"opening service failed:  1060"});
  MakeServer(server + L"\\vt.exe", L"LocalSystem");
  // Wine does not report a service's failure actions.
  EXPECT_EQ(session.Run("CustomAction37"), Expected({"query service sizing failed:  124"}));
}

// True if the firewall keeps a rule for this program. Windows keeps its rules in this key.
bool HasRuleFor(const std::string& program) {
  constexpr char kRules[] =
      "SYSTEM\\CurrentControlSet\\Services\\SharedAccess\\Parameters\\FirewallPolicy\\FirewallRules";
  HKEY key;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kRules, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return false;
  char name[512], rule[4096];
  DWORD length = sizeof name, size = sizeof rule - 1;
  bool isThere = false;
  for (DWORD i = 0; RegEnumValueA(key, i, name, &length, nullptr, nullptr, reinterpret_cast<BYTE*>(rule),
                                  &size) != ERROR_NO_MORE_ITEMS;
       ++i, length = sizeof name, size = sizeof rule - 1) {
    rule[std::min<DWORD>(size, sizeof rule - 1)] = '\0';
    isThere = isThere || std::string(rule).find("|App=" + program + "|") != std::string::npos;
  }
  RegCloseKey(key);
  return isThere;
}

TEST_F(SecuritySessionTest, ExceptionsAreAddedAndRemoved) {
  Session session;
  session.Set("PROP_SILENCE", "-1");
  // Wine accepts every rule and keeps none; the third entry has no program and ends the list.
  session.Set("PROP_FIREWALLDATA", "Server@TCP/C:\\a\\vt.exe;Tool/C:\\b\\tool.exe;no program");
  EXPECT_EQ(session.Run("CustomAction5"), Texts(2, "installing complex firewall rules"));
  EXPECT_EQ(HasRuleFor("C:\\a\\vt.exe"), OnWindows(Differs::kFirewall));
  EXPECT_EQ(session.Run("CustomAction19"), Texts(2, "removing complex firewall rules"));
  EXPECT_FALSE(HasRuleFor("C:\\a\\vt.exe"));
  session.Set("PROP_FIREWALLDATA", "");
  EXPECT_EQ(session.Run("CustomAction5"), Texts{});
  EXPECT_EQ(session.Run("CustomAction19"), Texts{});
}

}  // namespace
}  // namespace install
