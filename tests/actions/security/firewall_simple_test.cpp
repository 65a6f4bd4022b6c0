// CustomAction5 on a system that has no rules yet: authorised applications.
#include "actions/security/firewall_support.h"

namespace firewall_simple_test {

using firewall_test::ApplicationFor;
using firewall_test::Calls;
using firewall_test::kProgram;
using Applications = std::vector<rig::AuthorizedApplication>;
using Lines = std::vector<std::string>;

constexpr char kStarted[] = "installing simple firewall rule";
constexpr char kStartedLine[] = "Hx Setup Log: installing simple firewall rule";

class FirewallSimpleTest : public firewall_test::FirewallTest {
 protected:
  void Arrange(rig::World& world) override {
    FirewallTest::Arrange(world);
    MakeOld(world);
  }
  Calls Opened() { return Calls().Read().Start().OpenProfile().Log(kStarted); }
};

TEST_F(FirewallSimpleTest, AddsAnApplication) {
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram).AddApplication("Vantor", kProgram).AskExceptions().End();
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(TheFirewall().applications, Applications{ApplicationFor("Vantor", kProgram)});
}

TEST_F(FirewallSimpleTest, IgnoresTheSelector) {
  for (const char* selector : {"@tcp", "@udp", "@icmp", "@"}) {
    TheFirewall().applications.clear();
    SetList(std::string("Vantor") + selector + "/C:\\Vantor\\vt.exe");
    EXPECT_EQ(Run(5), 0u);
    EXPECT_EQ(TheFirewall().applications, Applications{ApplicationFor("Vantor", kProgram)}) << selector;
  }
}

TEST_F(FirewallSimpleTest, ASecondRunFindsTheApplication) {
  TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram, "0").Add("foundapplication.get_ProcessImageFileName(*) = 0");
  calls.Add("foundapplication.get_Enabled(*) = 0").AskExceptions().End();
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(TheFirewall().applications.size(), 1u);
}

TEST_F(FirewallSimpleTest, ADisabledOneStaysAndASecondOneIsAdded) {
  TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  TheFirewall().applications[0].enabled = false;
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram, "0").Add("foundapplication.get_ProcessImageFileName(*) = 0");
  calls.Add("foundapplication.get_Enabled(*) = 0");
  calls.AddApplication("Vantor", kProgram).AskExceptions().End();
  EXPECT_TRACE((calls.lines));
  EXPECT_FALSE(TheFirewall().applications.at(0).enabled);
  EXPECT_EQ(TheFirewall().applications.size(), 2u);
}

// The list finds a program in any case. The library compares the case, and rewrites what it finds.
TEST_F(FirewallSimpleTest, TheCaseOfTheProgramMatters) {
  TheFirewall().applications = {ApplicationFor("Old", "C:\\VANTOR\\vt.exe")};
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram, "0").Add("foundapplication.get_ProcessImageFileName(*) = 0");
  calls.Add(R"(foundapplication.put_ProcessImageFileName("C:\\Vantor\\vt.exe") = 0)");
  calls.Add(R"(foundapplication.put_Name("Vantor") = 0)");
  calls.Add("foundapplication.get_Enabled(*) = 0").AskExceptions().End();
  EXPECT_TRACE((calls.lines));
  EXPECT_EQ(TheFirewall().applications, Applications{ApplicationFor("Vantor", kProgram)});
}

TEST_F(FirewallSimpleTest, AnUnreadableProgramCountsAsAnother) {
  TheFirewall().applications = {ApplicationFor("Old", kProgram)};
  TheFirewall().FailMethod("foundapplication.get_ProcessImageFileName", E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().applications, Applications{ApplicationFor("Vantor", kProgram)});
}

TEST_F(FirewallSimpleTest, AnApplicationWithAnUnknownStateDoesNotCount) {
  TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  TheFirewall().FailMethod("foundapplication.get_Enabled", E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheFirewall().applications.size(), 2u);
}

TEST_F(FirewallSimpleTest, AProfileThatIgnoresItsExceptionsIsReported) {
  TheFirewall().ignoresExceptions = true;
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram).AddApplication("Vantor", kProgram).AskExceptions().Notify(25001).End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallSimpleTest, AProfileThatDoesNotSayIsReportedToo) {
  TheFirewall().applications = {ApplicationFor("Vantor", kProgram)};
  TheFirewall().FailMethod("profile.get_ExceptionsNotAllowed", E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Notices(), Lines{"25001"});
  EXPECT_LOG({kStartedLine});
}

TEST_F(FirewallSimpleTest, AFailureIsLoggedAndReported) {
  TheFirewall().FailMethod("applications.Add", E_ACCESSDENIED);
  TheFirewall().ignoresExceptions = true;
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram).AddApplication("Vantor", kProgram, "0x80070005");
  calls.Log("failure -2147024891 (0x80070005) modifying firewall").AskProfile().Notify(25000).End();
  EXPECT_TRACE((calls.lines));
}

TEST_F(FirewallSimpleTest, AFirewallThatIsOffIsLoggedAndNotReported) {
  TheFirewall().FailMethod("applications.Add", E_ACCESSDENIED);
  TheFirewall().enabled = false;
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.FindApplication(kProgram).AddApplication("Vantor", kProgram, "0x80070005");
  calls.Log("failure -2147024891 (0x80070005) modifying firewall").AskProfile();
  EXPECT_TRACE((calls.Log("it seems that the Firewall is disabled").End().lines));
}

TEST_F(FirewallSimpleTest, AFirewallThatCannotBeAskedIsNotOff) {
  TheFirewall().FailMethod("applications.Add", E_ACCESSDENIED);
  TheFirewall().FailMethod("profile.get_FirewallEnabled", E_ACCESSDENIED);
  TheFirewall().enabled = false;
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Notices(), Lines{"25000"});
}

TEST_F(FirewallSimpleTest, AServiceThatDoesNotRunIsLoggedAndNotReported) {
  TheFirewall().StopService();
  EXPECT_EQ(Run(5), 0u);
  Calls calls = Opened();
  calls.Add("profile.get_AuthorizedApplications(*) = 0x800706d9");
  calls.Log("failure -2147023143 (0x800706D9) modifying firewall").AskProfile("0x800706d9");
  EXPECT_TRACE((calls.Log("it seems that the Firewall is disabled").End().lines));
}

TEST_F(FirewallSimpleTest, ANameIsNeeded) {
  SetList("@tcp/C:\\Vantor\\vt.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kStartedLine, "Hx Setup Log: failure -2147024882 (0x8007000E) modifying firewall"});
  EXPECT_EQ(Notices(), Lines{"25000"});
}

TEST_F(FirewallSimpleTest, AFailureToSetTheScopeIsIgnored) {
  TheFirewall().FailMethod("application.put_Scope", E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({kStartedLine});
  EXPECT_EQ(TheFirewall().applications.size(), 1u);
}

TEST_F(FirewallSimpleTest, TheProfileIsNeeded) {
  const std::map<std::string, int> openings = {{"manager.get_LocalPolicy", 1},
                                               {"localpolicy.get_CurrentProfile", 2}};
  for (const auto& [method, number] : openings) {
    TheRig().trace.Clear();
    TheFirewall().FailMethod(method, E_ACCESSDENIED);
    EXPECT_EQ(Run(5), 0u);
    EXPECT_EQ(Installer().Log().back(), "Hx Setup Log: failure opening firewall") << method;
    TheFirewall().FailMethod(method, S_OK);
  }
  TheFirewall().Withhold("profile");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_LOG({"Hx Setup Log: failure opening firewall", "Hx Setup Log: failure opening firewall",
              "Hx Setup Log: failure opening firewall"});
  EXPECT_EQ(Notices(), Lines{});
}

// A failing step means a line in the log and no application, except for the scope and the query after it.
TEST_F(FirewallSimpleTest, SurvivesEveryFailure) {
  const std::map<std::string, Lines> logs = {
      {"manager.get_LocalPolicy", {"Hx Setup Log: failure opening firewall"}},
      {"localpolicy.get_CurrentProfile", {"Hx Setup Log: failure opening firewall"}},
      {"application.put_Scope", {kStartedLine}},
      {"profile.get_ExceptionsNotAllowed", {kStartedLine}},
      {"applications.Item", {kStartedLine}},
  };
  const std::set<std::string> steps = {"profile.get_AuthorizedApplications",
                                       "application.put_ProcessImageFileName", "application.put_Name",
                                       "applications.Add"};
  std::set<std::string> met;
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) {
    auto log = logs.find(run.name);
    Lines expected = {kStartedLine, "Hx Setup Log: failure -2147467259 (0x80004005) modifying firewall"};
    if (log != logs.end()) {
      expected = log->second;
    } else if (steps.count(run.name) == 0) {
      return;
    }
    met.insert(run.name);
    EXPECT_EQ(run.scene.world.installer.Log(), expected) << run.call;
    EXPECT_EQ(TheFirewall().applications.size(), expected == Lines{kStartedLine} ? 1u : 0u) << run.call;
  };
  EXPECT_GT(FailEachCall(5, {}, options), 20u);
  EXPECT_EQ(met.size(), logs.size() + steps.size());
}

TEST_F(FirewallSimpleTest, SurvivesEveryFailureAmongApplications) {
  FailEachCall(5, [this](rig::World&) {
    TheFirewall().applications = {ApplicationFor("Old", "C:\\VANTOR\\VT.exe")};
    TheFirewall().applications[0].enabled = false;
    TheFirewall().ignoresExceptions = true;
  });
  FailEachCall(5, [this](rig::World&) { TheFirewall().FailMethod("applications.Add", E_ACCESSDENIED); });
}

}  // namespace firewall_simple_test
