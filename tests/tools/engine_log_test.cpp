// What the install tests read in the logs of both engines. The lines of Microsoft's engine are in the form
// that its documentation and published logs show.

#include <gtest/gtest.h>

#include <set>

#include "install/engine.h"

namespace install {
namespace {

using Texts = std::vector<std::string>;

TEST(EngineLogTest, AFailedAction) {
  EXPECT_TRUE(SaysFailed(Engine::kWine, "Action ended 5:00:22: Fail. Return value 0.", "Fail"));
  EXPECT_FALSE(SaysFailed(Engine::kWine, "Action ended 5:00:22: Fail. Return value 1.", "Fail"));
  EXPECT_FALSE(SaysFailed(Engine::kWine, "Action ended 5:00:22: Fail. Return value 3.", "Fail"));
  EXPECT_TRUE(SaysFailed(Engine::kWindows, "Action ended 10:00:31: Fail. Return value 3.", "Fail"));
  EXPECT_TRUE(SaysFailed(Engine::kWindows, "Action ended 10:00:31: Fail. Return value 2.", "Fail"));
  EXPECT_FALSE(SaysFailed(Engine::kWindows, "Action ended 10:00:31: Fail. Return value 1.", "Fail"));
  EXPECT_FALSE(SaysFailed(Engine::kWindows, "Action ended 10:00:31: NoFail. Return value 3.", "Fail"));
  EXPECT_TRUE(
      SaysFailed(Engine::kWindows,
                 "CustomAction Fail returned actual error code 1603 (note this may not be 100% accurate if "
                 "translation happened inside sandbox)",
                 "Fail"));
}

TEST(EngineLogTest, ActionsOfTheScript) {
  const Texts names = {"CustomAction15", "CustomAction17"};
  EXPECT_EQ(ScriptActions(Engine::kWine,
                          {"Action start 5:00:22: CustomAction15.Server.",
                           "Action start 5:00:22: CustomAction17.Judge.",
                           "Action start 5:00:23: CustomAction15.Server.",
                           "Action start 5:00:23: InstallFiles.", "Action start 5:00:23: InstallFiles.",
                           "Action ended 5:00:23: CustomAction15.Server. Return value 1."},
                          names),
            Texts{"CustomAction15.Server"});
  const std::string head = "MSI (s) (50:20) [09:10:00:321]: Executing op: ";
  EXPECT_EQ(
      ScriptActions(
          Engine::kWindows,
          {"Action start 9:10:00: CustomAction15.Server.", "Action start 9:10:00: CustomAction15.Server.",
           head + "CustomActionSchedule(Action=CustomAction15.Rollback,ActionType=3329,Source=BinaryData,"
                  "Target=CustomAction15,)",
           head + "CustomActionSchedule(Action=CustomAction15.Server,ActionType=3073,Source=BinaryData,"
                  "Target=CustomAction15,"
                  "CustomActionData=hxsetup -ckrnil)",
           head +
               "CustomActionSchedule(Action=Fail,ActionType=3073,Source=BinaryData,Target=CustomAction17,)",
           head + "CustomActionRollback(Action=CustomAction15.Rollback,ActionType=3329,Source=BinaryData,"
                  "Target=x,)"},
          names),
      (Texts{"CustomAction15.Server", "CustomAction15.Rollback"}));
}

// A notice to the user, with the lines around it.
TEST(EngineLogTest, ANoticeCountsOnce) {
  const std::string notice = "Halvorstead Client is running as a service on this computer.  Setup will try.",
                    repeat = "MSI (s) (50:20) [09:10:00:321]: Product: Ostrel -- " + notice;
  const Texts log = {"MSI (s) (50:20) [09:10:00:300]: Doing action: CustomAction1",
                     "Action start 9:10:00: CustomAction1.",
                     "MSI (s) (50:20) [09:10:00:318]: Note: 1: 2205 2:  3: Error ",
                     notice,
                     repeat,
                     "MSI (s) (50:20) [09:10:01:100]: Product: Ostrel. Restart required.",
                     "Property(S): Text = [x]: Product: Ostrel -- " + notice,
                     "Action ended 9:10:01: CustomAction1. Return value 1."};
  EXPECT_EQ(WithoutRepeats(Engine::kWine, log), log);
  Texts once = log;
  once.erase(once.begin() + 4);
  EXPECT_EQ(WithoutRepeats(Engine::kWindows, log), once);
}

TEST(EngineLogTest, ARunWithFilesInUseHasSucceeded) {
  for (unsigned long code : {0ul, 1602ul, 1603ul, 1618ul, 1641ul}) {
    EXPECT_EQ(ResultOf(Engine::kWine, code), code);
    EXPECT_EQ(ResultOf(Engine::kWindows, code), code);
  }
  EXPECT_EQ(ResultOf(Engine::kWine, 3010), 3010u);
  EXPECT_EQ(ResultOf(Engine::kWindows, 3010), 0u);
}

TEST(EngineLogTest, AnAgentWhoseProgramWasMovedCountsAsStopped) {
  const std::string head = "Hx Setup Log: agent restart:  ",
                    client = "JN Setup Log: C:\\Program Files\\Halvorstead\\Ostrel\\osua.exe";
  const Texts log = {"Hx Setup Log: set ARP version to 1.0.0 (default)",
                     head + "pid 4711 is not ours, left alone (36)",
                     "JN Setup Log: C:\\Config.Msi\\3c2d1.rbf",
                     client,
                     head + "pid 4712 is not ours, left alone (36)",
                     "JN Setup Log: C:\\Ostrel elsewhere\\osua.exe",
                     client,
                     head + "pid 4713 is not ours, left alone (36)",
                     "JN Setup Log: C:\\CONFIG.MSI\\3c2d2.rbf",
                     client,
                     head + "1 agent(s) stopped",
                     head + "session 1 (me) started"};
  EXPECT_EQ(WithMovedAgents(Engine::kWine, log), log);
  EXPECT_EQ(WithMovedAgents(Engine::kWindows, log),
            (Texts{log[0], log[4], log[5], log[6], head + "3 agent(s) stopped", log[11]}));
  // The lines of one agent that was cut off are left as they are.
  const Texts cut(log.begin(), log.begin() + 3);
  EXPECT_EQ(WithMovedAgents(Engine::kWindows, cut), cut);
}

TEST(EngineLogTest, LinesThatDiffer) {
  const Texts wine = {"Hx Setup Log: creating local service account vantor",
                      "Hx Setup Log: could not grant right to logon as service",
                      "failure -36 (0xFFFFFFDC) setting ACL for PC7\\vantor",
                      "Hx Setup Log: set ACL (-36) for PC7\\vantor=500 on C:\\V",
                      "query service sizing failed:  124",
                      "Hx Setup Log: Task install failed:  -16",
                      "Hx Setup Log: Task install failed:  -19",
                      "Hx Setup Log: Task uninstall failed:  -5",
                      "+ C:\\windows\\system32\\tasks\\Quillfern\\",
                      "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\PreshutdownTimeout = 180000",
                      "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Start = 2"};
  EXPECT_EQ(LinesOf(Engine::kWine, wine), wine);
  EXPECT_EQ(Expected(wine), wine);
  EXPECT_EQ(
      LinesOf(Engine::kWindows, wine),
      (Texts{"Hx Setup Log: creating local service account vantor", "set ACL for PC7\\vantor",
             "Hx Setup Log: set ACL (0) for PC7\\vantor=500 on C:\\V", "service has no failure actions",
             "Hx Setup Log: Task installed", "Hx Setup Log: Task check OK", "Hx Setup Log: Task installed",
             "Hx Setup Log: Task check OK", "+ C:\\windows\\system32\\tasks\\Quillfern\\",
             "+ C:\\windows\\system32\\tasks\\Quillfern\\Ostrel Auto-update Task",
             "+ C:\\windows\\system32\\tasks\\Quillfern\\Ostrel User Agent Task",
             "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Start = 2"}));
}

TEST(EngineLogTest, EachDifferenceIsDescribedAndHasItsOwnName) {
  std::set<std::string> names;
  for (int i = 0; i < static_cast<int>(Differs::kCount); ++i) {
    const Difference& row = RowOf(static_cast<Differs>(i));
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    for (const std::string text : {row.name, row.wine, row.windows, row.source}) {
      EXPECT_FALSE(text.empty()) << row.name;
      EXPECT_EQ(text.find_first_of("\t\n"), std::string::npos) << row.name;
    }
  }
  EXPECT_EQ(ThisEngine(), Engine::kWine);
}

}  // namespace
}  // namespace install
