// Upgrades of the client that fail because a tool or the service does not stop, and one that succeeds. All
// tests share one machine and its consecutive runs of the installer.

#include "install/agent_scheduler.h"

namespace install {
namespace {

class AgentUpgradeTest : public testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite() {
    life_->processes.clear();
    life_->machine.GiveBack();
    delete life_;
  }

  struct Life {
    AgentMachine machine;
    std::map<std::string, std::unique_ptr<Process>> processes;
    AgentState older, refused, blocked, stubborn, upgraded, removed;
    Texts workItem;  ///< before the first upgrade
    bool agentOutlivesFailures = false;
  };
  static Life* life_;

  static Texts ProgramsOf(const Package& package) {
    // The agent of a session is the same in all versions.
    return {"about.txt", "osau.exe, " + package.version, "ostrel.exe, " + package.version,
            "ostrel32.exe, " + package.version, "osua.exe"};
  }

  // The tasks of an installed client, where the engine registers them, and others.
  static Texts TasksWith(const Texts& others) {
    Texts tasks = ByEngine(Differs::kTasks, Texts{}, Texts{FromWide(kUserTask), FromWide(kUpdateTask)});
    tasks.insert(tasks.end(), others.begin(), others.end());
    return tasks;
  }

  // The older version is unchanged, and the newer one has not begun.
  void ExpectOlderIsWhole(const AgentState& state) {
    EXPECT_EQ(state.run.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    EXPECT_EQ(state.run.LinesWith(": InstallValidate.").size(), 0u);
    EXPECT_EQ(state.run.SetupLines(), Texts{});
    EXPECT_TRUE(state.hasClient);
    EXPECT_FALSE(state.hasNewerClient);
    EXPECT_EQ(state.programs, ProgramsOf(Client()));
    EXPECT_EQ(state.service, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(state.tasks, TasksWith({FromWide(kForeignTask)}));
    EXPECT_EQ(state.workItem, life_->workItem);
    EXPECT_EQ(state.libraries, LibraryList{});
    EXPECT_EQ(state.audit, std::nullopt);
  }

  const AgentState& older = life_->older;
  const AgentState& upgraded = life_->upgraded;
  const AgentState& removed = life_->removed;
};

AgentUpgradeTest::Life* AgentUpgradeTest::life_ = nullptr;

void AgentUpgradeTest::SetUpTestSuite() {
  life_ = new Life;
  Life& life = *life_;
  life.machine.Take();
  const std::wstring upgrade = L"/i \"" + NewerClient().path + L"\" /qn";

  // There is no audit file to reset, and no key for the list of libraries.
  SetLibraryList({false, {}, {}});
  life.older = RunAndLook("AgentUpgradeTest.older", L"/i \"" + Client().path + L"\" /qn PROP_RESETAUDIT=1");
  SetLibraryList({});
  life.processes["agent"] = StartAgent(std::wstring(kClientFolder) + L"\\osua.exe");
  Scheduler scheduler;
  scheduler.RegisterDaily(kForeignTask);
  scheduler.MakeWorkItem(L"C:\\audit.exe");
  life.workItem = scheduler.WorkItem();
  EXPECT_EQ(life.workItem.at(0), "program C:\\audit.exe");

  // One tool closes, the second refuses once, and the third is after it.
  life.processes["Audra"] = OpenTool("AudraClass", "Audra");
  life.processes["Warden"] = OpenTool("Warden", "Warden", 1);
  life.processes["Lendo32"] = OpenTool("Lendo32", "Lendo", 1000);
  life.refused = RunAndLook("AgentUpgradeTest.refused", upgrade);

  // The next attempt reaches the tool that never closes.
  life.blocked = RunAndLook("AgentUpgradeTest.blocked", upgrade);
  life.processes.erase("Lendo32");

  // The network tools close in the end, the service does not stop.
  life.processes["Tollgate"] = OpenTool("Tollgate", "Ostrel", 2);
  life.processes["Tollgate32"] = OpenTool("Tollgate32", "Ostrel", 1);
  const std::wstring command = ServiceCommand();
  StopAgentService();
  SetServiceCommand(command + L" stubborn");
  RunService("Ostrel");
  life.stubborn = RunAndLook("AgentUpgradeTest.stubborn", upgrade);
  life.agentOutlivesFailures = life.processes["agent"]->IsRunning();

  StopAgentService();
  SetServiceCommand(command);
  RunService("Ostrel");
  life.upgraded = RunAndLook("AgentUpgradeTest.upgraded", upgrade);

  SetLibraryList({true, "OSTRACK.DLL other.dll OSTRACK.DLL", 5});
  life.removed = RunAndLook("AgentUpgradeTest.removed", L"/x \"" + NewerClient().path + L"\" /qn");
}

TEST_F(AgentUpgradeTest, MissingItemsAreNotCreated) {
  EXPECT_EQ(older.run.exitCode, 0u);
  EXPECT_TRUE(older.hasClient);
  EXPECT_EQ(older.audit, std::nullopt);
  EXPECT_EQ(older.libraries,
            ByEngine(Differs::kSharedKey, LibraryList{false, {}, {}}, LibraryList{true, "OSTRACK.DLL", 1}));
  EXPECT_EQ(older.workItem, Texts{});
  // The tasks' folder is created, although Wine then refuses the tasks.
  EXPECT_EQ(older.tasks, TasksWith({}));
  EXPECT_EQ(older.record, (Texts{"ostrel.exe: started", "ostrel.exe: control 200"}));
  EXPECT_EQ(older.programs, ProgramsOf(Client()));
}

TEST_F(AgentUpgradeTest, AToolThatRefusesEndsTheUpgradeBeforeAnythingElseIsAsked) {
  EXPECT_EQ(life_->refused.record,
            (Texts{"AudraClass: WM_CLOSE", "AudraClass: closed", "Warden: WM_CLOSE refused"}));
  ExpectOlderIsWhole(life_->refused);
}

TEST_F(AgentUpgradeTest, TheNextAttemptStartsFromTheBeginning) {
  EXPECT_EQ(life_->blocked.record,
            (Texts{"Warden: WM_CLOSE", "Warden: closed", "Lendo32: WM_CLOSE refused"}));
  ExpectOlderIsWhole(life_->blocked);
}

TEST_F(AgentUpgradeTest, NetworkToolsAreAskedInThreeWaysAndAServiceThatKeepsRunningEndsTheUpgrade) {
  EXPECT_EQ(life_->stubborn.record,
            (Texts{"Tollgate: 2024 refused", "Tollgate: WM_ENDSESSION refused", "Tollgate: WM_COMMAND 1001",
                   "Tollgate: closed", "Tollgate32: 2024 refused", "Tollgate32: WM_ENDSESSION",
                   "Tollgate32: closed", "ostrel.exe: control 1"}));
  ExpectOlderIsWhole(life_->stubborn);
}

TEST_F(AgentUpgradeTest, AgentsAreStoppedByTheUpgradeThatSucceeds) {
  EXPECT_TRUE(life_->agentOutlivesFailures);
  Note(Differs::kFilesInUse);
  // An agent whose program the upgrade has moved aside is left alone. Wine's engine moves none.
  EXPECT_EQ(life_->processes["agent"]->IsRunning(), upgraded.run.HasMovedAgents());
  Texts counts;
  for (const std::string& line : upgraded.run.AgentLines()) {
    if (line.find("agent(s) stopped") != std::string::npos) counts.push_back(line);
  }
  EXPECT_EQ(counts, Texts{"Hx Setup Log: agent restart:  " + std::to_string(1 + StartedAgents()) +
                          " agent(s) stopped"});
}

TEST_F(AgentUpgradeTest, TheUpgradeReplacesTheClientAndKeepsWhatIsShared) {
  EXPECT_EQ(upgraded.run.exitCode, 0u);
  EXPECT_FALSE(upgraded.hasClient);
  EXPECT_TRUE(upgraded.hasNewerClient);
  EXPECT_EQ(upgraded.programs, ProgramsOf(NewerClient()));
  EXPECT_EQ(upgraded.record, (Texts{"ostrel.exe: control 1", "ostrel.exe: stopped", "ostrel.exe: started",
                                    "ostrel.exe: control 200"}));
  EXPECT_EQ(upgraded.service, static_cast<DWORD>(SERVICE_RUNNING));
  EXPECT_EQ(upgraded.tasks, TasksWith({FromWide(kForeignTask)}));
  EXPECT_EQ(upgraded.workItem, life_->workItem);
  // The key existed, without a value.
  EXPECT_EQ(upgraded.libraries, (LibraryList{true, "OSTRACK.DLL", 1}));
}

TEST_F(AgentUpgradeTest, ARemovalDeletesOnlyItsOwnItems) {
  EXPECT_EQ(removed.run.exitCode, 0u);
  EXPECT_FALSE(removed.hasNewerClient);
  EXPECT_EQ(removed.service, 0u);
  EXPECT_EQ(removed.programs, Texts{});
  EXPECT_EQ(removed.workItem, Texts{});
  // The folder stays for the other task.
  EXPECT_EQ(removed.tasks, Texts{"Somebody else's task"});
  // The list had the name twice.
  EXPECT_EQ(removed.libraries, (LibraryList{true, "other.dll OSTRACK.DLL", 5}));
}

}  // namespace
}  // namespace install
