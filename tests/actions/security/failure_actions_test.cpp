// CustomAction37: removes the failure actions of a service.

#include "actions/security/security_support.h"
#include "rig/function.h"

namespace failure_actions_test {

using security_test::Calls;

constexpr SC_ACTION kRestart = {SC_ACTION_RESTART, 60000};
constexpr SC_ACTION kRun = {SC_ACTION_RUN_COMMAND, 1};

class FailureActionsTest : public security_test::SecurityTest {
 protected:
  void Arrange(rig::World& world) override {
    security_test::SecurityTest::Arrange(world);
    Vantor().actions = {kRestart, kRun};
    world.installer.Set("PROP_COMPONENT", "Vantor");
  }
  rig::Service& Vantor() { return TheWorld().services.Of("Vantor"); }
  // Returns the calls before those for the failure actions.
  static Calls Begin() {
    Calls calls;
    return calls.Read("PROP_COMPONENT").OpenService("Vantor", "0x3");
  }
  static Calls& AskSize(Calls&& calls) {
    return calls.Add("QueryServiceConfig2A(service#2, 2, null, 0, *) = 0");
  }
  static Calls& Ask(Calls& calls, const std::string& size, const std::string& result = "1") {
    return calls.Add("QueryServiceConfig2A(service#2, 2, *, " + size + ", *) = " + result);
  }
  // The size of the failure actions that Arrange makes.
  static constexpr char kSize[] = "79";
  // Runs the action, and expects one log line and no change.
  void ExpectOnlyLog(const std::string& line) {
    EXPECT_EQ(Run(37), 0u);
    EXPECT_LOG({"Hx Setup Log: " + line});
    EXPECT_TRUE(Vantor().changes.empty());
  }
};

TEST_F(FailureActionsTest, AreRemovedWithTheListLeftInPlace) {
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Ask(AskSize(Begin()), kSize)
                    .Add("ChangeServiceConfig2A(service#2, 2, *) = 1")
                    .Log("service failure actions removed")
                    .CloseService()
                    .lines));
  EXPECT_EQ(Vantor().changes, std::vector<std::string>{
                                  "level=2 reset=0xffffffff reboot=null command=null count=0 actions=kept"});
  EXPECT_TRUE(Vantor().actions.empty());
  EXPECT_EQ(Vantor().resetPeriod, INFINITE);
}

TEST_F(FailureActionsTest, AreRemovedWhateverTheOtherFieldsAre) {
  for (bool hasTexts : {false, true}) {
    Vantor().actions.assign(9, kRun);
    Vantor().resetPeriod = 0;
    Vantor().rebootMessage.reset();
    Vantor().command.reset();
    if (hasTexts) {
      Vantor().rebootMessage = std::string(3000, 'm');
      Vantor().command = "";
    }
    EXPECT_EQ(Run(37), 0u);
    EXPECT_EQ(
        Vantor().changes,
        std::vector<std::string>{"level=2 reset=0xffffffff reboot=null command=null count=0 actions=kept"});
    EXPECT_LOG({"Hx Setup Log: service failure actions removed"});
    NewScene();
  }
}

TEST_F(FailureActionsTest, InARollbackNothingIsRead) {
  Installer().rollback = true;
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE({"MsiGetMode(session, 17) = 1"});
}

TEST_F(FailureActionsTest, WithoutAReadableNameNothingIsDone) {
  Installer().FailReading("PROP_COMPONENT");
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Calls().Read("PROP_COMPONENT", "1627").lines));
}

TEST_F(FailureActionsTest, AnEmptyNameIsLeftToTheSystemToRefuse) {
  Installer().Set("PROP_COMPONENT", "");
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Calls()
                    .Read("PROP_COMPONENT")
                    .Add("OpenSCManagerA(null, null, 0x80000000) = service#1")
                    .Add(R"(OpenServiceW(service#1, "", 0x3) = null)")
                    .Log("opening service failed:  123")
                    .Add("CloseServiceHandle(service#1) = 1")
                    .lines));
}

TEST_F(FailureActionsTest, NamesMayHaveAnyCharacters) {
  TheWorld().services.Of("Dienst für 日本").actions = {kRestart};
  Installer().Set("PROP_COMPONENT", "Dienst für 日本");
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Ask(Calls()
                        .Read("PROP_COMPONENT")
                        .OpenService("Dienst für 日本", "0x3")
                        .Add("QueryServiceConfig2A(service#2, 2, null, 0, *) = 0"),
                    "71")
                    .Add("ChangeServiceConfig2A(service#2, 2, *) = 1")
                    .Log("service failure actions removed")
                    .CloseService()
                    .lines));
  EXPECT_EQ(TheWorld().services.Of("Dienst für 日本").changes.size(), 1u);
  EXPECT_TRUE(Vantor().changes.empty());
}

TEST_F(FailureActionsTest, WithoutTheManagerNothingIsDone) {
  TheWorld().services.managerError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Calls()
                    .Read("PROP_COMPONENT")
                    .Add("OpenSCManagerA(null, null, 0x80000000) = null")
                    .Log("opening service control manager failed:  5")
                    .lines));
}

TEST_F(FailureActionsTest, AMissingServiceIsLogged) {
  TheWorld().services.Remove("Vantor");
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Calls()
                    .Read("PROP_COMPONENT")
                    .Add("OpenSCManagerA(null, null, 0x80000000) = service#1")
                    .Add(R"(OpenServiceW(service#1, "Vantor", 0x3) = null)")
                    .Log("opening service failed:  1060")
                    .Add("CloseServiceHandle(service#1) = 1")
                    .lines));
}

TEST_F(FailureActionsTest, AServiceWithoutAnyIsLeftAlone) {
  Vantor().actions.clear();
  EXPECT_EQ(Run(37), 0u);
  // Less than before, by two actions of 8 bytes.
  EXPECT_TRACE((Ask(AskSize(Begin()), "63").Log("service has no failure actions").CloseService().lines));
  EXPECT_TRUE(Vantor().changes.empty());
  EXPECT_EQ(Vantor().resetPeriod, 86400u);
}

TEST_F(FailureActionsTest, AreNotReadWithoutASize) {
  for (DWORD error : {ERROR_ACCESS_DENIED, ERROR_MORE_DATA, ERROR_INVALID_LEVEL}) {
    Vantor().sizingError = error;
    EXPECT_EQ(Run(37), 0u);
    EXPECT_TRACE((
        AskSize(Begin()).Log("query service sizing failed:  " + std::to_string(error)).CloseService().lines));
    EXPECT_TRUE(Vantor().changes.empty());
    NewScene();
  }
}

TEST_F(FailureActionsTest, ASizeReturnedWithSuccessIsUsed) {
  Vantor().sizingError = ERROR_SUCCESS;
  EXPECT_EQ(Run(37), 0u);
  Calls calls = Begin();
  calls.Add("QueryServiceConfig2A(service#2, 2, null, 0, *) = 1");
  EXPECT_TRACE((Ask(calls, kSize)
                    .Add("ChangeServiceConfig2A(service#2, 2, *) = 1")
                    .Log("service failure actions removed")
                    .CloseService()
                    .lines));
  EXPECT_EQ(Vantor().changes.size(), 1u);
}

TEST_F(FailureActionsTest, RunningOutOfMemoryIsNotLogged) {
  Vantor().demand = 0x7FFFFFFF;
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((AskSize(Begin()).CloseService().lines));
}

TEST_F(FailureActionsTest, AFailureToReadThemIsLogged) {
  Vantor().configurationError = ERROR_SERVICE_MARKED_FOR_DELETE;
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Ask(AskSize(Begin()), kSize, "0").Log("query service failed:  1072").CloseService().lines));
  EXPECT_TRUE(Vantor().changes.empty());
}

TEST_F(FailureActionsTest, AFailureBecauseTheyGrewIsLogged) {
  Vantor().demand = 78;
  TheWorld().On<::QueryServiceConfig2A>([](SC_HANDLE, DWORD, BYTE* block, DWORD, DWORD* needed) {
    *needed = block == nullptr ? 78 : 79;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  });
  ExpectOnlyLog("query service failed:  122");
}

TEST_F(FailureActionsTest, AFailureToChangeThemIsLogged) {
  Vantor().changeError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(37), 0u);
  EXPECT_TRACE((Ask(AskSize(Begin()), kSize)
                    .Add("ChangeServiceConfig2A(service#2, 2, *) = 0")
                    .Log("change service failed:  5")
                    .CloseService()
                    .lines));
  EXPECT_EQ(Vantor().actions.size(), 2u);
}

TEST_F(FailureActionsTest, SurvivesEveryFailure) {
  size_t calls = SweepAction(
      37, [](rig::World&) {},
      [this](const rig::SweepRun& run) {
        const std::map<std::string, std::string> kLines = {
            {"OpenSCManagerA", "opening service control manager failed:  5"},
            {"OpenServiceW", "opening service failed:  5"},
            {"QueryServiceConfig2A", run.call.find(", null, 0,") != std::string::npos
                                         ? "query service sizing failed:  5"
                                         : "query service failed:  5"},
            {"ChangeServiceConfig2A", "change service failed:  5"},
        };
        auto line = kLines.find(run.name);
        if (line != kLines.end()) {
          EXPECT_EQ(run.scene.world.installer.Log(),
                    std::vector<std::string>{"Hx Setup Log: " + line->second});
          EXPECT_EQ(Vantor().actions.size(), 2u);
        }
      });
  EXPECT_GE(calls, 10u);
}

}  // namespace failure_actions_test
