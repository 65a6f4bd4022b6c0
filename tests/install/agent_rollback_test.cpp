// Installations of the client that fail late, after the tracking hook. These tests do not check how this
// engine's rollback treats the files and the service of an older version.

#include "install/agent_scheduler.h"

namespace install {
namespace {

// An entry point of the library, in a rollback, without impersonation.
constexpr int kRollback = 1 + 1024 + 256 + 2048;

class AgentRollbackTest : public AgentTest {};

// A copy of the package that fails after the tracking hook, and that would restart the agents in the
// rollback.
TEST_F(AgentRollbackTest, UnhooksTheTrackingLibraryAndChangesNothingElse) {
  const std::wstring package = std::wstring(kOtherFolder) + L"\\client.msi";
  WriteTree(kOtherFolder, {});
  std::vector<std::string> statements = FailInScript(kBehindTheHook);
  statements.push_back(
      "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('RestartBack', " +
      std::to_string(kRollback) + ", 'hxsetup', 'CustomAction38')");
  statements.push_back(
      "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
      "VALUES ('RestartBack', 'NOT REMOVE', 6391)");
  ChangePackage(Client().path, package, statements);
  const std::wstring path = std::wstring(kInstallerCache) + L"\\osua.exe";
  LayDownProgram(path);
  auto agent = StartAgent(path);
  SetLibraryList({true, "", {}});

  if (!OnWindows(Differs::kScheduleService)) StopService("Schedule");

  ClearRecord();
  const InstallerRun& failed = Msiexec("fail", L"/i \"" + package + L"\" /qn");
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_FALSE(Client().IsInstalled());
  EXPECT_EQ(Names(kClientFolder), Texts{});
  // The service had been started by then.
  EXPECT_EQ(Record(), (Texts{"ostrel.exe: started", "ostrel.exe: control 1", "ostrel.exe: stopped"}));
  EXPECT_EQ(ServiceState(), 0u);
  // CustomAction8 has started it; the actions that need it had not run yet.
  EXPECT_TRUE(IsServiceRunning("Schedule"));
  // The switch shows that the library was in the list.
  EXPECT_EQ(GetLibraryList(), (LibraryList{true, {}, 1}));

  // Run once, without a line.
  EXPECT_EQ(failed.ScriptActions({"RestartBack"}), Texts{"RestartBack"});
  EXPECT_EQ(failed.LinesWith("Setup Log:"), Texts{});
  EXPECT_TRUE(agent->IsRunning());
}

// The library of an older version was in the list before, and stays in it.
TEST_F(AgentRollbackTest, LeavesTheTrackingLibraryOfAnOlderVersion) {
  SetLibraryList({true, "other.dll", 0});
  ASSERT_EQ(Install(Client()).exitCode, 0u);
  const LibraryList hooked = {true, "other.dll OSTRACK.DLL", 1};
  EXPECT_EQ(GetLibraryList(), hooked);
  const std::wstring package = std::wstring(kOtherFolder) + L"\\client.msi";
  WriteTree(kOtherFolder, {});
  ChangePackage(NewerClient().path, package, FailInScript(kBehindTheHook));

  const InstallerRun& failed = Msiexec("fail", L"/i \"" + package + L"\" /qn");
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_EQ(failed.FailuresOf("Fail").size(), 1u);
  EXPECT_TRUE(Client().IsInstalled());
  EXPECT_FALSE(NewerClient().IsInstalled());
  EXPECT_EQ(GetLibraryList(), hooked);
}

}  // namespace
}  // namespace install
