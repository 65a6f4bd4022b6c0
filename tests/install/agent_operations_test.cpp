// The library's operations on tasks, against the real Task Scheduler. Wine has no logon triggers and no idle
// settings, and cannot run tasks; the tests also fix the operations' results in these cases.

#include "client/registered_task.h"
#include "client/schedule_service.h"
#include "client/task_registration.h"
#include "install/agent_scheduler.h"
#include "rig/internals.h"

namespace agent_operations_test {

using install::ByEngine;
using install::Differs;
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
  if (install::OnWindows(Differs::kScheduleService)) {
    EXPECT_EQ(EnsureScheduleService(), 0u);
    return;
  }
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

TEST_F(AgentOperationsTest, RegistrationsFailOnlyAtWhatTheEngineDoesNotSupport) {
  // They create the folder, and leave it.
  const int idle = ByEngine<int>(Differs::kTasks, kStepIdleSettings, 0);
  const int logon = ByEngine<int>(Differs::kTasks, kStepLogonTrigger, 0);
  EXPECT_EQ(RegisterAgentTask(kAutoUpdateTask, L"C:\\update.exe", L"-X", nullptr, 1), idle);
  EXPECT_EQ(scheduler.Tasks(), ByEngine(Differs::kTasks, none, update));
  EXPECT_EQ(RegisterAgentTask(kUserAgentTask, L"C:\\agent.exe", nullptr, L"Builtin\\Users", kAtLogon), logon);
  EXPECT_EQ(scheduler.Tasks(), ByEngine(Differs::kTasks, none, Texts{user[0], update[0]}));

  // An older task of the same name is deleted first, and no other.
  scheduler.RegisterDaily(kUserAgentTask);
  scheduler.RegisterDaily(kAutoUpdateTask);
  scheduler.RegisterDaily(kForeignTask);
  const Texts all = {user[0], update[0], foreign[0]};
  EXPECT_EQ(RegisterAgentTask(kAutoUpdateTask, L"C:\\update.exe", L"-X", nullptr, 1), idle);
  EXPECT_EQ(scheduler.Tasks(), ByEngine(Differs::kTasks, Texts{user[0], foreign[0]}, all));
  EXPECT_EQ(RegisterAgentTask(kUserAgentTask, L"C:\\agent.exe", nullptr, L"Builtin\\Users", kAtLogon), logon);
  EXPECT_EQ(scheduler.Tasks(), ByEngine(Differs::kTasks, foreign, all));
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
  DWORD session = 0;
  ProcessIdToSessionId(GetCurrentProcessId(), &session);
  EXPECT_EQ(RunAgentTask(nullptr, static_cast<int>(session)), ByEngine<int>(Differs::kTasks, kAccessUse, 0));
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
