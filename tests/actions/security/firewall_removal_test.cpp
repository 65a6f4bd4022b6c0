// CustomAction19: removes the exceptions.
#include "actions/security/firewall_support.h"

namespace firewall_removal_test {

using firewall_test::ApplicationFor;
using firewall_test::Calls;
using firewall_test::kProgram;
using firewall_test::RuleFor;
using Rules = std::vector<rig::FirewallRule>;

constexpr char kNotFound[] = "0x80070002";
constexpr char kRules[] = "removing complex firewall rules";
constexpr char kRulesLine[] = "Hx Setup Log: removing complex firewall rules";
constexpr char kSimpleRule[] = "removing simple firewall rule";
constexpr char kSimpleRuleLine[] = "Hx Setup Log: removing simple firewall rule";
constexpr char kNoFirewall[] = "Hx Setup Log: failure initializing firewall";

class FirewallRemovalTest : public firewall_test::FirewallTest {};

TEST_F(FirewallRemovalTest, RemovesBothRules) {
  TheFirewall().rules = {RuleFor(kProgram, 1000), RuleFor("C:\\other.exe", 1000), RuleFor(kProgram, 1010)};
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kRules);
  EXPECT_TRACE((calls.RemoveRule(kProgram, 1000).RemoveRule(kProgram, 1010).End().lines));
  EXPECT_EQ(TheFirewall().rules, Rules{RuleFor("C:\\other.exe", 1000)});
}

TEST_F(FirewallRemovalTest, RemovesBothWhateverTheSelector) {
  for (const char* selector : {"@tcp", "@udp", "@icmp", "@"}) {
    TheFirewall().rules = {RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)};
    SetList(std::string("Vantor") + selector + "/C:\\Vantor\\vt.exe");
    EXPECT_EQ(Run(19), 0u);
    EXPECT_TRUE(TheFirewall().rules.empty()) << selector;
  }
}

TEST_F(FirewallRemovalTest, RulesThatWereNeverAddedAreNotAFailure) {
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kRules);
  calls.RemoveRule(kProgram, 1000, kNotFound).RemoveRule(kProgram, 1010, kNotFound).End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallRemovalTest, UnavailableRulesAreNotLogged) {
  TheFirewall().FailMethod("policy.get_Rules", E_ACCESSDENIED);
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Log(kRules);
  calls.Add("policy.get_Rules(*) = 0x80070005").Add("policy.get_Rules(*) = 0x80070005").End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallRemovalTest, RemovesTheApplication) {
  MakeOld(TheWorld());
  TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenProfile().Log(kSimpleRule).RemoveApplication(kProgram).End();
  EXPECT_TRACE((calls.lines));
  EXPECT_TRUE(TheFirewall().applications.empty());
}

TEST_F(FirewallRemovalTest, AnApplicationThatWasNeverAddedIsNotAFailure) {
  MakeOld(TheWorld());
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenProfile().Log(kSimpleRule).RemoveApplication(kProgram, kNotFound).End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallRemovalTest, UnavailableApplicationsAreNotLogged) {
  MakeOld(TheWorld());
  TheFirewall().FailMethod("profile.get_AuthorizedApplications", E_ACCESSDENIED);
  EXPECT_EQ(Run(19), 0u);
  EXPECT_LOG({kSimpleRuleLine});
}

TEST_F(FirewallRemovalTest, AnApplicationWithoutAPathHasNoKey) {
  MakeOld(TheWorld());
  SetList("Vantor/");
  EXPECT_EQ(Run(19), 0u);
  Calls calls;
  calls.Read().Start().OpenProfile().Log(kSimpleRule).Add("profile.get_AuthorizedApplications(*) = 0").End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallRemovalTest, AFirewallThatCannotBeOpenedIsLoggedForEachEntry) {
  MakeOld(TheWorld());
  TheFirewall().FailMethod("manager.get_LocalPolicy", E_ACCESSDENIED);
  SetList("Vantor/C:\\Vantor\\vt.exe;Ostrel/C:\\osua.exe");
  EXPECT_EQ(Run(19), 0u);
  EXPECT_LOG({kNoFirewall, kNoFirewall});
  EXPECT_TRUE(Notices().empty());
}

TEST_F(FirewallRemovalTest, GoesThroughTheList) {
  TheFirewall().rules = {RuleFor("C:\\b.exe", 1010), RuleFor("C:\\a.exe", 1000)};
  SetList("a@tcp/C:\\a.exe;b@udp/C:\\b.exe;;");
  EXPECT_EQ(Run(19), 0u);
  EXPECT_LOG({kRulesLine, kRulesLine});
  EXPECT_TRUE(TheFirewall().rules.empty());
}

TEST_F(FirewallRemovalTest, AListThatCannotBeReadIsIgnored) {
  Installer().FailReading("PROP_FIREWALLDATA");
  EXPECT_EQ(Run(19), 0u);
  EXPECT_TRACE((Calls().Read("1627").lines));
}

TEST_F(FirewallRemovalTest, WithoutComNothingIsDone) {
  TheWorld().com.start = E_OUTOFMEMORY;
  EXPECT_EQ(Run(19), 0u);
  EXPECT_TRACE((Calls().Read().Start("0x8007000e").lines));
}

TEST_F(FirewallRemovalTest, RemovesWhatWasAdded) {
  SetList("a/C:\\a.exe;b@udp/C:\\b.exe;c@tcp/C:\\c.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().rules.size(), 4u);
  EXPECT_EQ(Run(19), 0u);
  EXPECT_TRUE(TheFirewall().rules.empty());
}

TEST_F(FirewallRemovalTest, SurvivesEveryFailure) {
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) {
    if (run.name.rfind("rules.", 0) == 0 || run.name.rfind("policy.", 0) == 0) {
      EXPECT_EQ(run.scene.world.installer.Log(), std::vector<std::string>{kRulesLine}) << run.call;
      EXPECT_EQ(TheFirewall().rules.size(), 1u) << run.call;
    }
  };
  auto arrange = [this](rig::World&) {
    TheFirewall().rules = {RuleFor(kProgram, 1000), RuleFor(kProgram, 1010)};
  };
  EXPECT_GT(FailEachCall(19, arrange, options), 15u);
}

TEST_F(FirewallRemovalTest, SurvivesEveryFailureOfAnOlderSystem) {
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) {
    if (run.name == "applications.Remove" || run.name == "profile.get_AuthorizedApplications") {
      EXPECT_EQ(run.scene.world.installer.Log(), std::vector<std::string>{kSimpleRuleLine}) << run.call;
    }
    if (run.name == "manager.get_LocalPolicy" || run.name == "localpolicy.get_CurrentProfile") {
      EXPECT_EQ(run.scene.world.installer.Log(), std::vector<std::string>{kNoFirewall}) << run.call;
    }
  };
  auto arrange = [this](rig::World& world) {
    MakeOld(world);
    TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  };
  EXPECT_GT(FailEachCall(19, arrange, options), 10u);
}

}  // namespace firewall_removal_test
