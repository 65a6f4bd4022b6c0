// The library's operations on tasks, against Wine's Task Scheduler. This engine has no logon triggers and no
// idle settings, and cannot run tasks; the tests also fix the operations' results in these cases.

#include "client/registered_task.h"
#include "client/schedule_service.h"
#include "client/task_registration.h"
#include "install/agent_scheduler.h"
#include "rig/internals.h"

namespace agent_operations_test {

using install::kForeignTask;
using install::Texts;

HX_INTERNAL(EnsureScheduleService);
HX_INTERNAL(RegisterAgentTask);
HX_INTERNAL(RunAgentTask);
HX_INTERNAL(CheckAgentTask);
HX_INTERNAL(DeleteAgentTask);

// Without the fixture: a connection to the Task Scheduler does not always survive the end of its service.
TEST(AgentScheduleTest, TheServiceIsStartedIfItDoesNotRun) {
  rig::Library library("hxinternals.dll");
  install::StopService("Schedule");
  EXPECT_FALSE(install::IsServiceRunning("Schedule"));
  EXPECT_EQ(EnsureScheduleService(), 0u);
  // The operation only asks for the start and does not wait for it.
  install::WaitUntil("the service runs", [] { return install::IsServiceRunning("Schedule"); });
  EXPECT_EQ(EnsureScheduleService(), 0u);
  if (!install::IsServiceRunning("Schedule")) install::RunService("Schedule");
}

// Without a package: the library is loaded into this process, with nothing between it and Windows.
class AgentOperationsTest : public testing::Test {
 protected:
  void SetUp() override { scheduler.Clear(); }
  void TearDown() override { scheduler.Clear(); }

  const Texts none, noFolder = {"(no folder)"};
  const Texts user = {"Ostrel User Agent Task"}, update = {"Ostrel Auto-update Task"};
  const Texts foreign = {"Somebody else's task"};
  // Starts COM, which the caller must do.
  install::Scheduler scheduler;

 private:
  rig::Library library_{"hxinternals.dll"};
};

TEST_F(AgentOperationsTest, RegistrationsFailAtWhatThisEngineDoesNotSupport) {
  // They create the folder, and leave it.
  EXPECT_EQ(RegisterAgentTask(kAutoUpdateTask, L"C:\\update.exe", L"-X", nullptr, 1), kStepIdleSettings);
  EXPECT_EQ(scheduler.Tasks(), none);
  EXPECT_EQ(RegisterAgentTask(kUserAgentTask, L"C:\\agent.exe", nullptr, L"Builtin\\Users", kAtLogon),
            kStepLogonTrigger);
  EXPECT_EQ(scheduler.Tasks(), none);

  // An older task of the same name is deleted first, and no other.
  scheduler.RegisterDaily(kUserAgentTask);
  scheduler.RegisterDaily(kAutoUpdateTask);
  scheduler.RegisterDaily(kForeignTask);
  EXPECT_EQ(RegisterAgentTask(kAutoUpdateTask, L"C:\\update.exe", L"-X", nullptr, 1), kStepIdleSettings);
  EXPECT_EQ(scheduler.Tasks(), (Texts{user[0], foreign[0]}));
  EXPECT_EQ(RegisterAgentTask(kUserAgentTask, L"C:\\agent.exe", nullptr, L"Builtin\\Users", kAtLogon),
            kStepLogonTrigger);
  EXPECT_EQ(scheduler.Tasks(), foreign);
}

TEST_F(AgentOperationsTest, CheckFindsWhatIsRegistered) {
  EXPECT_EQ(CheckAgentTask(kAutoUpdateTask), kAccessFolder);
  scheduler.RegisterDaily(kAutoUpdateTask);
  EXPECT_EQ(CheckAgentTask(kAutoUpdateTask), 0);
  EXPECT_EQ(CheckAgentTask(kUserAgentTask), kAccessTask);
  EXPECT_EQ(scheduler.Tasks(), update);
}

TEST_F(AgentOperationsTest, RunningAsksForTheUserAgentTaskOnly) {
  EXPECT_EQ(RunAgentTask(nullptr, 1), kAccessFolder);
  scheduler.RegisterDaily(kAutoUpdateTask);
  EXPECT_EQ(RunAgentTask(nullptr, 1), kAccessTask);
  scheduler.RegisterDaily(kUserAgentTask);
  EXPECT_EQ(RunAgentTask(nullptr, 1), kAccessUse);
  EXPECT_EQ(RunAgentTask(L"somebody", -1), kAccessUse);
}

TEST_F(AgentOperationsTest, DeletingTakesTheFolderWithTheLastTask) {
  EXPECT_EQ(DeleteAgentTask(kUserAgentTask), kAccessFolder);
  scheduler.RegisterDaily(kUserAgentTask);
  scheduler.RegisterDaily(kAutoUpdateTask);
  EXPECT_EQ(DeleteAgentTask(kForeignTask), 0);
  EXPECT_EQ(scheduler.Tasks(), (Texts{user[0], update[0]}));
  EXPECT_EQ(DeleteAgentTask(kUserAgentTask), 0);
  EXPECT_EQ(scheduler.Tasks(), update);
  EXPECT_EQ(DeleteAgentTask(kAutoUpdateTask), 0);
  EXPECT_EQ(scheduler.Tasks(), noFolder);
}

}  // namespace agent_operations_test
