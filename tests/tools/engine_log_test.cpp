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
