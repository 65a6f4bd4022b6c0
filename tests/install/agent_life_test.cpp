// Installs, repairs and removes the client package on a machine where a client already runs. All tests share
// one machine and three runs of the installer; each checks one result of these runs.

#include "install/agent_scheduler.h"

namespace install {
namespace {

const wchar_t kPassword[] = L"Nobody-sees-this-1";

class AgentLifeTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    life_ = new Life;
    life_->machine.Take();
    life_->InstallOverRunningClient();
    life_->RepairAQuietMachine();
    life_->RemoveEverything();
  }
  static void TearDownTestSuite() {
    life_->processes.clear();
    life_->machine.GiveBack();
    delete life_;
  }

  const AgentState& installed = life_->installed;
  const AgentState& repaired = life_->repaired;
  const AgentState& removed = life_->removed;

  struct Life {
    AgentMachine machine;
    AuditAccount account{kPassword};
    std::map<std::string, std::unique_ptr<Process>> processes;
    AgentState installed, repaired, removed;
    Texts running;  ///< the names of the processes that still ran after the installation
    DWORD foreignAgent = 0;

    void InstallOverRunningClient();
    void RepairAQuietMachine();
    void RemoveEverything();
  };
  static Life* life_;
};

AgentLifeTest::Life* AgentLifeTest::life_ = nullptr;

void AgentLifeTest::Life::InstallOverRunningClient() {
  // Tools, opened in another order than they are closed in; the last one is busy. Also windows that only look
  // like them.
  for (auto [windowClass, title] : {std::pair("Tollgate32", "Ostrel"),
                                    {"Warden32", "Warden"},
                                    {"Lendo32", "Lendo"},
                                    {"Lendo", "Lendo"},
                                    {"Warden", "Warden"},
                                    {"AudraClass", "Audra"},
                                    {"Tollgate", "Ostrel"}})
    processes[windowClass] = OpenTool(windowClass, title);
  processes["PVMain"] = OpenTool("PVMain", "Provo", 0, 300);
  processes["window of another title"] = OpenTool("Lendo", "Lendo - report");
  processes["window of no tool"] = OpenTool("Tollgate32", "Tollgate");

  for (auto [name, folder] : {std::pair("agent of the client", kClientFolder),
                              {"agent of the cache", kInstallerCache},
                              {"agent elsewhere", kOtherFolder}}) {
    LayDownProgram(std::wstring(folder) + L"\\osua.exe");
    processes[name] = StartAgent(std::wstring(folder) + L"\\osua.exe");
  }
  foreignAgent = processes["agent elsewhere"]->Id();

  const std::wstring service = std::wstring(kOtherFolder) + L"\\ostrel.exe";
  LayDownProgram(service);
  MakeService(service);
  RunService("Ostrel");

  Scheduler scheduler;
  scheduler.RegisterDaily(kUserTask);
  scheduler.RegisterDaily(kUpdateTask);
  scheduler.MakeWorkItem(L"C:\\older.exe");
  SetLibraryList({true, "other.dll", 2});
  WriteAuditFile("the counts of a month");

  // A copy of the package that writes its progress into the record: before CustomAction1, and after it, when
  // the script, which replaces files, has not begun.
  const std::wstring package = std::wstring(kOtherFolder) + L"\\client.msi";
  const std::wstring marker = std::wstring(kOtherFolder) + L"\\osau.exe";
  LayDownProgram(marker);
  ChangePackage(
      Client().path, package,
      {"INSERT INTO `Property` (`Property`, `Value`) VALUES ('MarkProgram', '" + FromWide(marker) + "')",
       "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('MarkFront', 50, "
       "'MarkProgram', 'in front')",
       "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('MarkBehind', 50, "
       "'MarkProgram', 'behind')",
       "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('MarkFront', 1379)",
       "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('MarkBehind', 1381)"});
  installed = RunAndLook("AgentLifeTest.install",
                         L"/i \"" + package +
                             L"\" /qn PROP_SILENCE=-1 PROP_RESETAUDIT=1 PROP_TASKUSER=auditor"
                             L" PROP_TASKPASS=" +
                             kPassword +
                             L" PROP_TASKHOUR=26h PROP_TASKTIME=7200000"
                             L" PROP_TASKPARAM=\"-auditmode -all\"");
  for (const auto& [name, process] : processes) {
    if (process->IsRunning()) running.push_back(name);
  }
}

void AgentLifeTest::Life::RepairAQuietMachine() {
  StopAgentService();
  WriteAuditFile("the counts of a month");
  repaired = RunAndLook("AgentLifeTest.repair",
                        L"/i \"" + Client().path + L"\" /qn REINSTALL=ALL REINSTALLMODE=omus");
}

void AgentLifeTest::Life::RemoveEverything() {
  Scheduler scheduler;
  scheduler.RegisterDaily(kUserTask);
  scheduler.RegisterDaily(kUpdateTask);
  processes["agent of the cache"] = StartAgent(std::wstring(kInstallerCache) + L"\\osua.exe");
  removed = RunAndLook("AgentLifeTest.remove", L"/x \"" + Client().path + L"\" /qn");
}

// The lines of CustomAction38 at the end of a run, with an agent that is not the package's.
Texts RestartLines(const Texts& before, DWORD foreignAgent, size_t stopped, int code) {
  const std::string head = "Hx Setup Log: agent restart:  ";
  Texts lines = before;
  lines.push_back(head + "pid " + std::to_string(foreignAgent) + " is not ours, left alone (36)");
  lines.push_back("JN Setup Log: C:\\Ostrel elsewhere\\osua.exe");
  lines.push_back("JN Setup Log: C:\\Program Files\\Halvorstead\\Ostrel\\osua.exe");
  lines.push_back(head + std::to_string(stopped) + " agent(s) stopped");
  for (const std::string& session : UserSessions())
    lines.push_back(head + session + (code ? " failed:  " + std::to_string(code) : std::string(" started")));
  return lines;
}

// ---- what was running

TEST_F(AgentLifeTest, ToolsAndServiceGoInOrderBeforeTheScriptBegins) {
  EXPECT_EQ(installed.run.exitCode, 0u);
  EXPECT_TRUE(installed.hasClient);
  // Each tool has closed before the next one is asked, even the slow one.
  EXPECT_EQ(
      installed.record,
      (Texts{"osau.exe: started in front", "AudraClass: WM_CLOSE", "AudraClass: closed", "Lendo: WM_CLOSE",
             "Lendo: closed", "Warden: WM_CLOSE", "Warden: closed", "PVMain: WM_CLOSE", "PVMain: closed",
             "Lendo32: WM_CLOSE", "Lendo32: closed", "Warden32: WM_CLOSE", "Warden32: closed",
             "Tollgate: 2024", "Tollgate: closed", "Tollgate32: 2024", "Tollgate32: closed",
             "ostrel.exe: control 1", "ostrel.exe: stopped", "osau.exe: started behind",
             // The package starts the service in its script; then the new service gets its control 200.
             "ostrel.exe: started", "ostrel.exe: control 200"}));
  EXPECT_EQ(installed.service, static_cast<DWORD>(SERVICE_RUNNING));
}

TEST_F(AgentLifeTest, LookalikesOfTheClientKeepRunning) {
  EXPECT_EQ(life_->running, (Texts{"agent elsewhere", "window of another title", "window of no tool"}));
}

TEST_F(AgentLifeTest, ASilentInstallationLogsTheNoticeAndGoesOn) {
  // The text of the package, which PROP_SILENCE=-1 asks for. The other runs do not set it.
  const std::string notice =
      "Halvorstead Client is running as a service on this computer.  Setup will try to stop the service now "
      "so "
      "that all files can be copied successfully.";
  Note(Differs::kNoticesInLog);
  EXPECT_EQ(installed.run.LinesWith("running as a service"), Texts{notice});
  EXPECT_EQ(removed.run.LinesWith("running as a service"), Texts{});
}

TEST_F(AgentLifeTest, AServiceThatDoesNotRunIsLeftToThePackage) {
  EXPECT_EQ(repaired.run.exitCode, 0u);
  EXPECT_EQ(repaired.record, (Texts{"osau.exe: started in front", "osau.exe: started behind",
                                    "ostrel.exe: started", "ostrel.exe: control 200"}));
  EXPECT_EQ(repaired.service, static_cast<DWORD>(SERVICE_RUNNING));
}

TEST_F(AgentLifeTest, ARemovalStopsTheServiceAndSendsItNothingElse) {
  EXPECT_EQ(removed.run.exitCode, 0u);
  EXPECT_EQ(removed.record, (Texts{"osau.exe: started in front", "ostrel.exe: control 1",
                                   "ostrel.exe: stopped", "osau.exe: started behind"}));
  EXPECT_EQ(removed.service, 0u);
  EXPECT_FALSE(removed.hasClient);
  EXPECT_EQ(removed.programs, Texts{});
}

// ---- agents and tasks

// All lines of the library in the whole run. Wine has no logon triggers (-16) and no idle settings (-19), so
// neither task can be registered, and none started (-6).
TEST_F(AgentLifeTest, TheLogNamesEachTaskAgentAndSession) {
  const DWORD foreign = life_->foreignAgent;
  Texts registered = Client().VersionLines();
  for (const std::string& line :
       Expected({"Hx Setup Log: Task install failed:  -16", "Hx Setup Log: Task install failed:  -19"}))
    registered.push_back(line);
  // The agents of the client folder and of the installer's cache; the latter again before the removal. Then
  // those that the run before has started.
  const int code = ByEngine(Differs::kTasks, -6, 0);
  Note(Differs::kFilesInUse);
  EXPECT_EQ(installed.run.AgentLines(), RestartLines(registered, foreign, 2, code));
  EXPECT_EQ(repaired.run.AgentLines(), RestartLines(registered, foreign, StartedAgents(), code));
  // The tasks' folder is gone by then. The removal deletes the agent's program, which is in use where agents
  // run.
  EXPECT_EQ(removed.run.AgentLines(), RestartLines({}, foreign, 1 + StartedAgents(), -5));
}

TEST_F(AgentLifeTest, OldTasksAreDeletedAndTheFolderGoesWithTheProduct) {
  // Both tasks existed before the installation, and again before the removal.
  const Texts tasks = ByEngine(Differs::kTasks, Texts{}, Texts{FromWide(kUserTask), FromWide(kUpdateTask)});
  EXPECT_EQ(installed.tasks, tasks);
  EXPECT_EQ(repaired.tasks, tasks);
  EXPECT_EQ(removed.tasks, Texts{"(no folder)"});
}

TEST_F(AgentLifeTest, TheAuditIsReplacedFromTheProperties) {
  const Texts audit = {
      "program C:\\Program Files\\Halvorstead\\Ostrel\\ostrel32.exe", "parameters -auditmode -all",
      "at most 7200000 ms",
      // PROP_TASKHOUR was 26h.
      "size 48, begins 2000-1-1, ends 0-0-0, at 2:00, duration 0, interval 0, flags 0, type 1, every 1 days, "
      "random 0"};
  EXPECT_EQ(installed.workItem, audit);
  // Without an account the existing work item stays.
  EXPECT_EQ(repaired.workItem, audit);
  EXPECT_EQ(removed.workItem, Texts{});
}

TEST_F(AgentLifeTest, ThePasswordIsHiddenFromTheEnginesLog) {
  EXPECT_EQ(installed.run.Property("PROP_TASKUSER"), "auditor");
  EXPECT_EQ(installed.run.Property("MsiHiddenProperties"), "PROP_TASKPASS");
  const Texts lines = ByEngine(Differs::kHiddenProperties,
                               Texts{"Property(S): PROP_TASKPASS = " + FromWide(kPassword)}, Texts{});
  EXPECT_EQ(installed.run.LinesWith(FromWide(kPassword)), lines);
}

// ---- the machine's registry and files

TEST_F(AgentLifeTest, TheTrackingLibraryJoinsTheListOnceAndLeavesIt) {
  // Before: only other.dll, and a switch of 2.
  EXPECT_EQ(installed.libraries, (LibraryList{true, "other.dll OSTRACK.DLL", 3}));
  EXPECT_EQ(repaired.libraries, (LibraryList{true, "other.dll OSTRACK.DLL", 3}));
  EXPECT_EQ(removed.libraries, (LibraryList{true, "other.dll", 3}));
}

TEST_F(AgentLifeTest, TheAuditFileIsEmptiedOnRequestOnly) {
  EXPECT_EQ(installed.audit, std::string(12, '\0'));
  EXPECT_EQ(repaired.audit, "the counts of a month");
  EXPECT_EQ(removed.audit, "the counts of a month");
}

}  // namespace
}  // namespace install
