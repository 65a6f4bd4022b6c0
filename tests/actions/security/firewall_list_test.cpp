// What CustomAction5 and CustomAction19 share: the list of exceptions, COM, and the choice between rules and
// authorised applications.
#include "actions/security/firewall_support.h"

namespace firewall_list_test {

using firewall_test::ApplicationFor;
using firewall_test::Calls;
using firewall_test::kProgram;
using firewall_test::RuleFor;
using firewall_test::TextOf;
using Applications = std::vector<rig::AuthorizedApplication>;
using Rules = std::vector<rig::FirewallRule>;
using Lines = std::vector<std::string>;

constexpr char kRules[] = "Hx Setup Log: installing complex firewall rules";
constexpr char kSimpleRule[] = "Hx Setup Log: installing simple firewall rule";
constexpr char kNoFirewall[] = "Hx Setup Log: failure opening firewall";

// ---- the list

struct ListCase {
  const char* list;
  Applications applications;
};

// On an older system the names and paths can be seen as they are read.
class FirewallListTest : public firewall_test::FirewallTest {
 protected:
  void ExpectApplications(const std::vector<ListCase>& cases) {
    MakeOld(TheWorld());
    for (const ListCase& one : cases) {
      TheFirewall().applications.clear();
      SetList(one.list);
      EXPECT_EQ(Run(5), 0u);
      EXPECT_EQ(TheFirewall().applications, one.applications) << one.list;
    }
  }
};

TEST_F(FirewallListTest, TakesEachEntry) {
  ExpectApplications({
      {"a/p", {ApplicationFor("a", "p")}},
      {"a/p;b/q", {ApplicationFor("a", "p"), ApplicationFor("b", "q")}},
      {"a@tcp/p;b@x/q;c/r", {ApplicationFor("a", "p"), ApplicationFor("b", "q"), ApplicationFor("c", "r")}},
  });
}

TEST_F(FirewallListTest, EndsWhereItsTextEnds) {
  ExpectApplications({
      {"", {}},
      {"a/p;", {ApplicationFor("a", "p")}},
      {"a/p;;", {ApplicationFor("a", "p")}},
      {"a/p;b", {ApplicationFor("a", "p")}},
      {"a/p;b@tcp;c", {ApplicationFor("a", "p")}},
      {"a", {}},
      {";", {}},
      {"a;b;c", {}},
  });
}

// An empty piece does not end the list, and an entry without a path swallows the text that follows it.
TEST_F(FirewallListTest, LooksForThePathInTheWholeRest) {
  ExpectApplications({
      {";a/p", {ApplicationFor(";a", "p")}},
      {"a/p;;b/q", {ApplicationFor("a", "p"), ApplicationFor(";b", "q")}},
      {"a;b/p", {ApplicationFor("a;b", "p")}},
      {"a/p;b;c@udp/q;d/r", {ApplicationFor("a", "p"), ApplicationFor("b;c", "q"), ApplicationFor("d", "r")}},
      {"a@tcp;b/p", {ApplicationFor("a", "p")}},
  });
}

TEST_F(FirewallListTest, CutsAtTheFirstMarks) {
  ExpectApplications({
      {"a/p/q", {ApplicationFor("a", "p/q")}},
      {"a//", {ApplicationFor("a", "/")}},
      {"a/p@udp", {ApplicationFor("a", "p@udp")}},
      {"a@b@c/p", {ApplicationFor("a", "p")}},
      {"a@/p", {ApplicationFor("a", "p")}},
  });
}

TEST_F(FirewallListTest, KeepsBlanksAndEveryCharacter) {
  ExpectApplications({
      {" a b / C:\\Program Files\\p .exe ", {ApplicationFor(" a b ", " C:\\Program Files\\p .exe ")}},
      {" /p", {ApplicationFor(" ", "p")}},
      {"\xC3\xA9\xE6\xBC\xA2/C:\\\xD0\x96\\\xF0\x9F\x98\x80.exe",
       {ApplicationFor("\xC3\xA9\xE6\xBC\xA2", "C:\\\xD0\x96\\\xF0\x9F\x98\x80.exe")}},
      {"%s%d/C:\\%n%s.exe", {ApplicationFor("%s%d", "C:\\%n%s.exe")}},
  });
}

TEST_F(FirewallListTest, AnEntryThatFailsDoesNotEndIt) {
  ExpectApplications({
      {"/p;b/q", {ApplicationFor("b", "q")}},
      {"a/;b/q", {ApplicationFor("b", "q")}},
      {"@/;/;b/q", {ApplicationFor("b", "q")}},
  });
}

TEST_F(FirewallListTest, EachEntryHasItsOwnSelector) {
  SetList("a@tcp/C:\\a.exe;b@udp/C:\\b.exe;c@x/C:\\c.exe;d/C:\\d.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, (Rules{RuleFor("C:\\a.exe", 1000), RuleFor("C:\\b.exe", 1010),
                                        RuleFor("C:\\d.exe", 1000), RuleFor("C:\\d.exe", 1010)}));
  EXPECT_LOG({kRules, kRules, kRules, kRules});
}

// Rules do not use the name in the list.
TEST_F(FirewallListTest, RulesNeedNoName) {
  SetList("@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, Rules{RuleFor(kProgram, 1000)});
}

TEST_F(FirewallListTest, RulesKeepEveryCharacterOfThePath) {
  constexpr char kPath[] = "C:\\\xD0\x96 %s\\\xF0\x9F\x98\x80.exe";
  SetList(std::string("a@tcp/") + kPath);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, Rules{RuleFor(kPath, 1000)});
}

// wsprintfW writes at most 1,024 characters: the rule's program is complete, its texts are cut.
TEST_F(FirewallListTest, TheTextsOfVeryLongPathsAreCut) {
  for (size_t length : {1000, 1015, 1016, 1017, 1018, 1022, 1023, 1024, 1025, 3000}) {
    std::string path = "C:\\" + std::string(length - 3, 'x');
    SetList("a@udp/" + path);
    TheFirewall().rules.clear();
    EXPECT_EQ(Run(5), 0u);
    ASSERT_EQ(TheFirewall().rules.size(), 1u);
    const rig::FirewallRule& rule = TheFirewall().rules[0];
    EXPECT_EQ(rule.program, path);
    for (const auto& [text, number] :
         {std::pair(rule.name, 1010), std::pair(rule.grouping, 1011), std::pair(rule.description, 1012)}) {
      std::string whole = TextOf(path, number);
      if (whole.size() < 1024) {
        EXPECT_EQ(text, whole);
      } else {
        EXPECT_GE(text.size(), 1023u) << length;
        EXPECT_LE(text.size(), 1024u) << length;
        EXPECT_EQ(text, whole.substr(0, text.size())) << length;
      }
    }
    EXPECT_EQ(Run(19), 0u);
    EXPECT_TRUE(TheFirewall().rules.empty()) << length;
  }
}

TEST_F(FirewallListTest, TakesALongList) {
  std::string list;
  Rules rules;
  for (int number = 100; number < 160; ++number) {
    std::string path = "C:\\Program Files\\" + std::to_string(number) + ".exe";
    list += "program@udp/" + path + ";";
    rules.push_back(RuleFor(path, 1010));
  }
  SetList(list);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, rules);
}

TEST_F(FirewallListTest, AListThatCannotBeReadIsIgnored) {
  Installer().FailReading("PROP_FIREWALLDATA", ERROR_INVALID_HANDLE);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_TRACE((Calls().Read("6").lines));
}

TEST_F(FirewallListTest, AnUnsetListIsEmpty) {
  Installer().Set("PROP_FIREWALLDATA", "");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_TRACE((Calls().Read().lines));
}

// ---- COM, which is started for each entry

class FirewallComTest : public firewall_test::FirewallTest {
 protected:
  void Arrange(rig::World& world) override {
    FirewallTest::Arrange(world);
    world.installer.Set("PROP_FIREWALLDATA", "a@x/C:\\a.exe;b@x/C:\\b.exe");
  }
};

TEST_F(FirewallComTest, IsStartedAndEndedForEachEntry) {
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read();
  for (int entry = 0; entry < 2; ++entry) {
    calls.Start().OpenRules().Log("installing complex firewall rules").End();
  }
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallComTest, MayBeRunningAlready) {
  TheWorld().com.start = S_FALSE;
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kRules, kRules});
}

TEST_F(FirewallComTest, MayBeRunningInAnotherMode) {
  TheWorld().com.start = RPC_E_CHANGED_MODE;
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read();
  for (int entry = 0; entry < 2; ++entry) {
    calls.Start("0x80010106").OpenRules().Log("installing complex firewall rules");
  }
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallComTest, AFailureToStartSkipsTheEntry) {
  TheWorld().com.start = E_OUTOFMEMORY;
  EXPECT_EQ(Run(5), 0u);
  EXPECT_TRACE((Calls().Read().Start("0x8007000e").Start("0x8007000e").lines));
}

TEST_F(FirewallComTest, OneFailureToStartSkipsOneEntry) {
  int starts = 0;
  TheWorld().On<::CoInitializeEx>([&](void*, DWORD) -> HRESULT {
    if (++starts == 1) {
      return E_OUTOFMEMORY;
    }
    TheRig().ledger.Take(rig::kComStart, 1);
    return S_OK;
  });
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(starts, 2);
  EXPECT_LOG({kRules});
}

TEST_F(FirewallComTest, WithoutItsFunctionTheListIsLeftAlone) {
  TheModules().MissingFunction("OLE32", "CoInitializeEx");
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Add("GetModuleHandleA(\"OLE32\") = OLE32");
  EXPECT_TRACE((calls.Add("GetProcAddress(OLE32, \"CoInitializeEx\") = null").lines));
  TheRig().trace.Clear();
  EXPECT_EQ(Run(19), 0u);
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallComTest, WithoutItsModuleTheListIsLeftAlone) {
  TheModules().Missing("OLE32");
  TheWorld().On<::GetModuleHandleA>([](const char*) { return HMODULE{}; });
  EXPECT_EQ(Run(5), 0u);
  EXPECT_TRACE((Calls().Read().Add("GetModuleHandleA(\"OLE32\") = null").lines));
  TheRig().trace.Clear();
  EXPECT_EQ(Run(19), 0u);
  EXPECT_TRACE((Calls().Read().Add("GetModuleHandleA(\"OLE32\") = null").lines));
}

// ---- rules or authorised applications

class FirewallVersionTest : public firewall_test::FirewallTest {
 protected:
  // Returns the log line in which the action says what it adds.
  Lines Says(DWORD major, DWORD minor, DWORD build = 0) {
    TheWorld().clock.versionInfo.dwMajorVersion = major;
    TheWorld().clock.versionInfo.dwMinorVersion = minor;
    TheWorld().clock.versionInfo.dwBuildNumber = build;
    EXPECT_EQ(Run(5), 0u);
    return Installer().Log();
  }
};

TEST_F(FirewallVersionTest, ANewSystemHasRules) {
  EXPECT_EQ(Says(10, 0, 26100), Lines{kRules});
}
TEST_F(FirewallVersionTest, TheFirstOneWithRules) {
  EXPECT_EQ(Says(6, 0), Lines{kRules});
}
TEST_F(FirewallVersionTest, TheLastOneWithoutRules) {
  EXPECT_EQ(Says(5, 255, 0xFFFF), Lines{kSimpleRule});
}
TEST_F(FirewallVersionTest, AnOldSystemHasNoRules) {
  EXPECT_EQ(Says(5, 1, 2600), Lines{kSimpleRule});
}
TEST_F(FirewallVersionTest, AHighMinorVersionIsNotAMajorOne) {
  EXPECT_EQ(Says(5, 0x100, 0), Lines{kSimpleRule});
}
TEST_F(FirewallVersionTest, AHighBuildNumberIsNotAMajorVersion) {
  EXPECT_EQ(Says(5, 255, 0x10000), Lines{kSimpleRule});
}

TEST_F(FirewallVersionTest, ASystemOfTheOtherFamilyHasNoRules) {
  TheWorld().clock.version = 0x80000A04;
  EXPECT_EQ(Says(10, 0), Lines{kSimpleRule});
}

TEST_F(FirewallVersionTest, ASystemOfUnknownVersionHasNoRules) {
  TheWorld().On<::GetVersionExA>([](OSVERSIONINFOA* info) {
    EXPECT_EQ(info->dwOSVersionInfoSize, 156u);
    return FALSE;
  });
  EXPECT_EQ(Says(10, 0), Lines{kSimpleRule});
}

TEST_F(FirewallVersionTest, TheVersionIsAskedForOnce) {
  int questions = 0;
  TheWorld().On<::GetVersionExA>([&](OSVERSIONINFOA* info) {
    ++questions;
    info->dwMajorVersion = 10;
    return TRUE;
  });
  SetList("a@x/C:\\a.exe;b@x/C:\\b.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Run(19), 0u);
  EXPECT_EQ(questions, 1);
}

// ---- classes that are missing from a system

struct LackingCase {
  const char* name;
  DWORD major;
  std::vector<CLSID> lacking;
  Lines log;
  Lines notices;
};

class FirewallLackingTest : public firewall_test::FirewallTest,
                            public testing::WithParamInterface<LackingCase> {
 protected:
  void Arrange(rig::World& world) override {
    for (const CLSID& lacking : GetParam().lacking) {
      world.com.Missing(lacking);
    }
    FirewallTest::Arrange(world);
    world.clock.versionInfo.dwMajorVersion = GetParam().major;
    world.installer.Set("PROP_FIREWALLDATA", "Vantor@udp/C:\\Vantor\\vt.exe");
  }
};

TEST_P(FirewallLackingTest, IsSurvived) {
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Installer().Log(), GetParam().log);
  EXPECT_EQ(Notices(), GetParam().notices);
}

const LackingCase kLacking[] = {
    {"Policy", 10, {__uuidof(NetFwPolicy2)}, {kSimpleRule}, {}},
    {"Both", 10, {__uuidof(NetFwPolicy2), __uuidof(NetFwMgr)}, {kNoFirewall}, {}},
    {"Manager", 5, {__uuidof(NetFwMgr)}, {kNoFirewall}, {}},
    {"ManagerOfANewSystem", 10, {__uuidof(NetFwMgr)}, {kRules}, {}},
    {"Rule",
     10,
     {__uuidof(NetFwRule)},
     {kRules, "Hx Setup Log: failure -2147221164 (0x80040154) modifying firewall for UDP"},
     {"25000"}},
    {"Application",
     5,
     {__uuidof(NetFwAuthorizedApplication)},
     {kSimpleRule, "Hx Setup Log: failure -2147221164 (0x80040154) modifying firewall"},
     {"25000"}},
};
INSTANTIATE_TEST_SUITE_P(Classes, FirewallLackingTest, testing::ValuesIn(kLacking),
                         [](const auto& info) { return std::string(info.param.name); });

// If the policy of the rules cannot be created, the older interfaces are used.
class FirewallFallBackTest : public firewall_test::FirewallTest {
 protected:
  void Arrange(rig::World& world) override {
    world.com.Missing(__uuidof(NetFwPolicy2));
    FirewallTest::Arrange(world);
  }
};

TEST_F(FirewallFallBackTest, AddsAnApplication) {
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules("0x80040154").OpenProfile().Log("installing simple firewall rule");
  calls.FindApplication(kProgram).AddApplication("Vantor", kProgram).AskExceptions().End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallFallBackTest, RemovesAnApplication) {
  TheFirewall().rules = {RuleFor(kProgram, 1000)};
  TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenRules("0x80040154").OpenProfile().Log("removing simple firewall rule");
  EXPECT_TRACE((calls.RemoveApplication(kProgram).End().lines));
  EXPECT_EQ(TheFirewall().rules.size(), 1u);
}

TEST_F(FirewallFallBackTest, SurvivesEveryFailure) {
  FailEachCall(5);
  FailEachCall(19);
}

}  // namespace firewall_list_test
