// CustomAction5 on a system that has rules.
#include "actions/security/firewall_support.h"

namespace firewall_exceptions_test {

using firewall_test::Calls;
using firewall_test::kProgram;
using firewall_test::RuleFor;
using firewall_test::TextOf;
using Rules = std::vector<rig::FirewallRule>;
using Lines = std::vector<std::string>;

constexpr char kStarted[] = "installing complex firewall rules";
constexpr char kStartedLine[] = "Hx Setup Log: installing complex firewall rules";
constexpr char kDenied[] = "0x80070005";

class FirewallRulesTest : public firewall_test::FirewallTest {};

TEST_F(FirewallRulesTest, AddsBothRules) {
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.FindRule(kProgram, 1000).AddRule(kProgram, 1000);
  calls.FindRule(kProgram, 1010).AddRule(kProgram, 1010).End();
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(TheFirewall().rules, (Rules{RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)}));
}

TEST_F(FirewallRulesTest, AddsTheRuleOfTheSelector) {
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.FindRule(kProgram, 1000).AddRule(kProgram, 1000).End();
  EXPECT_TRACE((calls.lines));
  TheRig().trace.Clear();
  SetList("Vantor@udp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, (Rules{RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)}));
}

TEST_F(FirewallRulesTest, AnUnknownSelectorAddsNoRule) {
  SetList("Vantor@icmp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_TRACE((Calls().Read().Start().OpenRules().Log(kStarted).End().lines));
}

TEST_F(FirewallRulesTest, SelectorsMatchInAnyCaseButOnlyWhole) {
  const std::map<std::string, Rules> made = {
      {"TCP", {RuleFor(kProgram, 1000)}},
      {"Udp", {RuleFor(kProgram, 1010)}},
      {"aLL", {RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)}},
      {"", {}},
      {" tcp", {}},
      {"tcp ", {}},
      {"tc-p", {}},
      {"tcp@udp", {}},
      {"tcpudp", {}},
      {"al", {}},
  };
  for (const auto& [selector, rules] : made) {
    TheFirewall().rules.clear();
    SetList("Vantor@" + selector + "/C:\\Vantor\\vt.exe");
    EXPECT_EQ(Run(5), 0u);
    EXPECT_EQ(TheFirewall().rules, rules) << selector;
  }
}

TEST_F(FirewallRulesTest, ASecondRunFindsTheRules) {
  TheFirewall().rules = {RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)};
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  for (int base : {1000, 1010}) {
    calls.FindRule(kProgram, base, "0");
    calls.Add("found.get_ApplicationName(*) = 0").Add("found.get_Enabled(*) = 0");
  }
  EXPECT_TRACE((calls.End().lines));
  EXPECT_EQ(TheFirewall().rules.size(), 2u);
}

TEST_F(FirewallRulesTest, ADisabledRuleStaysAndASecondOneIsAdded) {
  rig::FirewallRule disabled = RuleFor(kProgram, 1000);
  disabled.enabled = false;
  TheFirewall().rules = {disabled};
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted).FindRule(kProgram, 1000, "0");
  calls.Add("found.get_ApplicationName(*) = 0").Add("found.get_Enabled(*) = 0");
  EXPECT_TRACE((calls.AddRule(kProgram, 1000).End().lines));
  EXPECT_EQ(TheFirewall().rules, (Rules{disabled, RuleFor(kProgram, 1000)}));
  // The first of the two is found again, and a third one is added.
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules.size(), 3u);
}

TEST_F(FirewallRulesTest, ARuleForAnotherProgramIsRewritten) {
  rig::FirewallRule other = RuleFor(kProgram, 1000);
  other.program = "C:\\Old\\vt.exe";
  other.grouping = "old";
  other.description = "old";
  other.profiles = 2;
  TheFirewall().rules = {other};
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted).FindRule(kProgram, 1000, "0");
  calls.Add("found.get_ApplicationName(*) = 0").Describe("found", kProgram, 1000);
  EXPECT_TRACE((calls.Add("found.get_Enabled(*) = 0").End().lines));
  other.program = kProgram;
  other.grouping = TextOf(kProgram, 1001);
  other.description = TextOf(kProgram, 1002);
  EXPECT_EQ(TheFirewall().rules, Rules{other});
}

TEST_F(FirewallRulesTest, TheCaseOfTheProgramMatters) {
  TheFirewall().rules = {RuleFor(kProgram, 1000)};
  TheFirewall().rules[0].program = "C:\\Vantor\\VT.exe";
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, Rules{RuleFor(kProgram, 1000)});
}

TEST_F(FirewallRulesTest, ADisabledRuleForAnotherProgramIsRewrittenAndASecondOneIsAdded) {
  TheFirewall().rules = {RuleFor(kProgram, 1000)};
  TheFirewall().rules[0].program = "C:\\Old\\vt.exe";
  TheFirewall().rules[0].enabled = false;
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  rig::FirewallRule disabled = RuleFor(kProgram, 1000);
  disabled.enabled = false;
  EXPECT_EQ(TheFirewall().rules, (Rules{disabled, RuleFor(kProgram, 1000)}));
}

TEST_F(FirewallRulesTest, ARuleCountsEvenIfRewritingItFails) {
  for (const char* method : {"found.put_ApplicationName", "found.put_Name", "found.put_Grouping"}) {
    TheFirewall().rules = {RuleFor(kProgram, 1000)};
    TheFirewall().rules[0].program = "C:\\Old\\vt.exe";
    TheFirewall().FailMethod(method, E_ACCESSDENIED);
    SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
    EXPECT_EQ(Run(5), 0u);
    EXPECT_EQ(TheFirewall().rules.size(), 1u) << method;
  }
  EXPECT_LOG({kStartedLine, kStartedLine, kStartedLine});
}

TEST_F(FirewallRulesTest, ARuleWithAnUnknownStateDoesNotCount) {
  TheFirewall().rules = {RuleFor(kProgram, 1000)};
  TheFirewall().FailMethod("found.get_Enabled", E_ACCESSDENIED);
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules, (Rules{RuleFor(kProgram, 1000), RuleFor(kProgram, 1000)}));
}

TEST_F(FirewallRulesTest, AFailureIsLoggedForItsProtocolAndReportedOnce) {
  TheFirewall().FailMethod("rules.Add", E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.FindRule(kProgram, 1000).AddRule(kProgram, 1000, kDenied);
  calls.Log("failure -2147024891 (0x80070005) modifying firewall for TCP");
  calls.FindRule(kProgram, 1010).AddRule(kProgram, 1010, kDenied);
  calls.Log("failure -2147024891 (0x80070005) modifying firewall for UDP");
  calls.AskPolicy().Notify(25000).End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallRulesTest, TheFailureOfTcpAloneIsReported) {
  TheFirewall().FailMethod("rules.Add", E_ACCESSDENIED);
  SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.FindRule(kProgram, 1000).AddRule(kProgram, 1000, kDenied);
  calls.Log("failure -2147024891 (0x80070005) modifying firewall for TCP");
  EXPECT_TRACE((calls.AskPolicy().Notify(25000).End().lines));
}

// If both rules are added, only a failure of the second one is shown to the user.
TEST_F(FirewallRulesTest, TheFailureOfTcpIsNotReportedIfUdpWorks) {
  TheFirewall().FailCall("rules.Add", 1, E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.FindRule(kProgram, 1000).AddRule(kProgram, 1000, kDenied);
  calls.Log("failure -2147024891 (0x80070005) modifying firewall for TCP");
  calls.FindRule(kProgram, 1010).AddRule(kProgram, 1010).End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallRulesTest, TheFailureOfUdpIsReportedIfTcpWorks) {
  TheFirewall().FailCall("rules.Add", 2, E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kStartedLine, "Hx Setup Log: failure -2147024891 (0x80070005) modifying firewall for UDP"});
  EXPECT_EQ(Notices(), Lines{"25000"});
}

// The result for UDP decides. That the service was not running for TCP does not matter.
TEST_F(FirewallRulesTest, OnlyTheFailureOfUdpShowsThatTheServiceIsStopped) {
  TheFirewall().FailCall("rules.Add", 1, rig::Firewall::kNotRunning);
  TheFirewall().FailCall("rules.Add", 2, E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Notices(), Lines{"25000"});
}

TEST_F(FirewallRulesTest, AFirewallThatIsOffIsLoggedAndNotReported) {
  TheFirewall().FailMethod("rules.Add", E_ACCESSDENIED);
  TheFirewall().enabled = false;
  SetList("Vantor@udp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.FindRule(kProgram, 1010).AddRule(kProgram, 1010, kDenied);
  calls.Log("failure -2147024891 (0x80070005) modifying firewall for UDP").AskPolicy();
  EXPECT_TRACE((calls.Log("it seems that the Firewall is disabled").End().lines));
}

TEST_F(FirewallRulesTest, AFirewallThatCannotBeAskedIsNotOff) {
  TheFirewall().FailMethod("rules.Add", E_ACCESSDENIED);
  TheFirewall().FailMethod("policy.get_FirewallEnabled", E_ACCESSDENIED);
  TheFirewall().enabled = false;
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Notices(), Lines{"25000"});
}

TEST_F(FirewallRulesTest, AServiceThatDoesNotRunIsLoggedAndNotReported) {
  TheFirewall().StopService();
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kStarted);
  calls.Add("policy.get_Rules(*) = 0x800706d9");
  calls.Log("failure -2147023143 (0x800706D9) modifying firewall for TCP");
  calls.Add("policy.get_Rules(*) = 0x800706d9");
  calls.Log("failure -2147023143 (0x800706D9) modifying firewall for UDP");
  calls.AskPolicy("0x800706d9").Log("it seems that the Firewall is disabled").End();
  EXPECT_TRACE((calls.lines));
}

// The firewall may report that it is on although its service did not answer.
TEST_F(FirewallRulesTest, TheCodeOfTheServiceAloneMeansThatTheFirewallIsOff) {
  TheFirewall().FailMethod("rules.Add", rig::Firewall::kNotRunning);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Installer().Log().back(), "Hx Setup Log: it seems that the Firewall is disabled");
  EXPECT_EQ(Notices(), Lines{});
}

TEST_F(FirewallRulesTest, FailuresOfOtherSettersAreIgnored) {
  for (const char* method : {"rule.put_Grouping", "rule.put_Description", "rule.put_Direction",
                             "rule.put_Action", "rule.put_Protocol", "rule.put_Profiles"}) {
    TheFirewall().FailMethod(method, E_ACCESSDENIED);
  }
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kStartedLine});
  EXPECT_EQ(TheFirewall().rules.size(), 2u);
}

TEST_F(FirewallRulesTest, EachStepThatCountsIsReported) {
  const Lines methods = {"rules.Add", "rule.put_Enabled", "rule.put_Name", "rule.put_ApplicationName",
                         "policy.get_Rules"};
  HRESULT error = static_cast<HRESULT>(0x8007000A);
  for (const std::string& method : methods) {
    TheFirewall().FailMethod(method, --error);
    SetList("Vantor@tcp/C:\\Vantor\\vt.exe");
    EXPECT_EQ(Run(5), 0u);
    EXPECT_EQ(Installer().Log().back(), "Hx Setup Log: failure " + std::to_string(error) + " (0x8007000" +
                                            std::to_string(error & 0xF) + ") modifying firewall for TCP")
        << method;
    EXPECT_TRUE(TheFirewall().rules.empty());
  }
}

TEST_F(FirewallRulesTest, AnotherSuccessCodeIsASuccess) {
  TheFirewall().FailMethod("rules.Add", S_FALSE);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kStartedLine});
}

TEST_F(FirewallRulesTest, AProgramWithoutAPathIsRefused) {
  SetList("Vantor@tcp/");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kStartedLine, "Hx Setup Log: failure -2147024882 (0x8007000E) modifying firewall for TCP"});
}

// A failing step means a line in the log and one rule fewer; a failing setting means neither.
TEST_F(FirewallRulesTest, SurvivesEveryFailure) {
  const std::set<std::string> steps = {"policy.get_Rules", "rule.put_ApplicationName", "rule.put_Name",
                                       "rule.put_Enabled", "rules.Add"};
  const std::set<std::string> settings = {"rule.put_Grouping", "rule.put_Description", "rule.put_Direction",
                                          "rule.put_Action",   "rule.put_Protocol",    "rule.put_Profiles"};
  std::map<std::string, int> met;
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) {
    size_t failures = steps.count(run.name);
    if (failures == 0 && settings.count(run.name) == 0) {
      return;
    }
    ++met[run.name];
    Lines log = run.scene.world.installer.Log();
    ASSERT_EQ(log.size(), 1 + failures) << run.call;
    EXPECT_EQ(TheFirewall().rules.size(), 2 - failures) << run.call;
    if (failures != 0) {
      const char* protocol = TheFirewall().rules.at(0).protocol == 17 ? "TCP" : "UDP";
      EXPECT_EQ(
          log[1],
          std::string("Hx Setup Log: failure -2147467259 (0x80004005) modifying firewall for ") + protocol)
          << run.call;
    }
  };
  EXPECT_GT(FailEachCall(5, {}, options), 60u);
  EXPECT_EQ(met.size(), steps.size() + settings.size());
}

// The same with a rule for another program and a disabled one, and with everything failing.
TEST_F(FirewallRulesTest, SurvivesEveryFailureAmongRules) {
  FailEachCall(5, [this](rig::World&) {
    TheFirewall().rules = {RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)};
    TheFirewall().rules[0].program = "C:\\Old\\vt.exe";
    TheFirewall().rules[1].enabled = false;
  });
  FailEachCall(5, [this](rig::World&) { TheFirewall().FailMethod("rules.Add", E_ACCESSDENIED); });
}

}  // namespace firewall_exceptions_test
