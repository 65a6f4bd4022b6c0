// CustomAction38: restarts the agent in every session.

#include <windows.h>

#include <wtsapi32.h>

#include <algorithm>
#include <set>

#include "rig/action_test.h"

namespace agent_restart_test {

using Lines = std::vector<std::string>;
using Asking = rig::TerminalSession::Asking;

constexpr char kMine[] = "C:\\Client\\osua.exe";
constexpr char kNoneStopped[] = "Hx Setup Log: agent restart:  0 agent(s) stopped";
constexpr char kOneStopped[] = "Hx Setup Log: agent restart:  1 agent(s) stopped";

class AgentRestartTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override {
    world.installer.Set("DIR_CLIENT", "C:\\Client\\");
    world.tasks.hasFolder = true;
    world.tasks.folderName = "Quillfern";
    world.tasks.tasks = {"Ostrel User Agent Task"};
    // The library never frees the module of the session functions.
    world.rig.ledger.Deliberate(rig::kModule, "WTSAPI32");
  }
  rig::Sessions& World38() { return TheWorld().sessions; }
  rig::TaskScheduler& Tasks() { return TheWorld().tasks; }

  // An agent with this image.
  rig::Process& AddAgent(DWORD id, const std::string& image, const std::string& name = "osua.exe") {
    World38().processes.push_back({id, 2, name, image});
    return World38().processes.back();
  }
  void AddSession(DWORD id, int state, const std::string& user, Asking asking = Asking::kWorks) {
    World38().sessions.push_back({id, state, user, asking});
  }
  // Returns the trace's lines that start with one of these.
  Lines Calls(const Lines& starts) { return TheRig().trace.LinesStarting(starts); }
  // Returns the processes that were terminated.
  std::set<DWORD> Ended() {
    std::set<DWORD> ended;
    for (const rig::Process& process : World38().processes) {
      if (process.ended) {
        ended.insert(process.id);
      }
    }
    return ended;
  }
  static std::string NotOurs(DWORD id, int prefix) {
    return "Hx Setup Log: agent restart:  pid " + std::to_string(id) + " is not ours, left alone (" +
           std::to_string(prefix) + ")";
  }
};

// ---- the whole run

TEST_F(AgentRestartTest, StopsTheAgentsAndStartsThemAgain) {
  AddAgent(1200, kMine);
  AddAgent(1300, "C:\\Windows\\explorer.exe", "explorer.exe");
  AddSession(2, WTSActive, "someone");
  Tasks().sessions = {2};
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Calls({"MsiGetMode", "Lookup", "OpenP", "Adjust", "CloseH", "LoadLib", "GetProcAddress(WTS",
                   "WTS", "CoI", "CoU", "QueryFull", "Term", "Wait", "task"}),
            (Lines{
                R"(MsiGetMode(session, 17) = 0)",
                R"(LookupPrivilegeValueA(null, "SeDebugPrivilege", *) = 1)",
                R"(OpenProcessToken(INVALID_HANDLE_VALUE, 0x28, *) = 1)",
                R"(AdjustTokenPrivileges(handle#1, 0, *, 16, null, null) = 1)",
                R"(CloseHandle(handle#1) = 1)",
                R"(LoadLibraryA("WTSAPI32") = WTSAPI32)",
                R"(GetProcAddress(WTSAPI32, "WTSEnumerateSessionsW") = *)",
                R"(GetProcAddress(WTSAPI32, "WTSQuerySessionInformationW") = *)",
                R"(GetProcAddress(WTSAPI32, "WTSEnumerateProcessesW") = *)",
                R"(GetProcAddress(WTSAPI32, "WTSFreeMemory") = *)",
                R"(CoInitializeEx(null, 0x6) = 0)",
                R"(WTSEnumerateProcessesW(null, 0, 1, *, *) = 1)",
                R"(OpenProcess(0x101001, 0, 1200) = handle#2)",
                R"(QueryFullProcessImageNameW(handle#2, 0, *, *) = 1)",
                R"(TerminateProcess(handle#2, 0) = 1)",
                R"(WaitForSingleObject(handle#2, 10000) = 0)",
                R"(CloseHandle(handle#2) = 1)",
                R"(WTSEnumerateSessionsW(null, 0, 1, *, *) = 1)",
                R"(WTSQuerySessionInformationW(null, 2, 5, *, *) = 1)",
                R"(task.RunEx(empty, 6, 2, null, *) = 0)",
                R"(WTSFreeMemory(session-memory#3))",
                R"(WTSFreeMemory(session-memory#2))",
                R"(WTSFreeMemory(session-memory#1))",
                R"(CoUninitialize())",
            }));
  EXPECT_LOG({kOneStopped, "Hx Setup Log: agent restart:  session 2 (someone) started"});
  EXPECT_EQ(Ended(), std::set<DWORD>{1200});
  EXPECT_EQ(World38().enabled, std::vector<DWORD>{SE_PRIVILEGE_ENABLED});
}

TEST_F(AgentRestartTest, NoMessageBoxOfTheSystemAppearsWhenTheLibraryIsLoaded) {
  EXPECT_EQ(Run(38), 0u);
  const Lines& lines = TheRig().trace.Lines();
  auto load = std::find(lines.begin(), lines.end(), "LoadLibraryA(\"WTSAPI32\") = WTSAPI32");
  ASSERT_NE(load, lines.end());
  EXPECT_EQ(load[-1], "SetErrorMode(0x8001) = 16384");
  EXPECT_EQ(load[1], "SetErrorMode(0x4000) = 32769");
}

class AgentRollbackTest : public rig::ActionTest {};

TEST_F(AgentRollbackTest, InARollbackNothingHappens) {
  Installer().rollback = true;
  EXPECT_EQ(Run(38), 0u);
  EXPECT_TRACE({"MsiGetMode(session, 17) = 1"});
}

// ---- the privilege

TEST_F(AgentRestartTest, WithoutThePrivilegeItGoesOn) {
  const char kLine[] =
      "Hx Setup Log: agent restart:  no debug privilege, other sessions may not be reachable";
  AddAgent(1200, kMine);
  World38().hasDebugPrivilege = false;
  EXPECT_EQ(Run(38), 0u);
  World38().hasDebugPrivilege = true;
  World38().tokenError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(38), 0u);
  World38().tokenError = ERROR_SUCCESS;
  World38().privilegeError = ERROR_NOT_ALL_ASSIGNED;
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kLine, kOneStopped, kLine, kOneStopped, kLine, kOneStopped});
  // Loaded once more by each of the two later runs.
  TheRig().ledger.Deliberate(rig::kModule, "WTSAPI32");
  TheRig().ledger.Deliberate(rig::kModule, "WTSAPI32");
}

// The adjustment reports the missing privilege only in the last error, which an earlier call may have set.
TEST_F(AgentRestartTest, AStaleLastErrorIsIgnored) {
  TheWorld().On<::OpenProcessToken>([](HANDLE, DWORD, HANDLE* token) {
    *token = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetLastError(ERROR_NOT_ALL_ASSIGNED);
    return TRUE;
  });
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kNoneStopped});
}

// ---- what is missing from the system

class AgentRestartBareTest : public rig::ActionTest {};

TEST_F(AgentRestartBareTest, WithoutTheLibraryNothingIsPossible) {
  TheModules().Missing("WTSAPI32");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({"Hx Setup Log: agent restart not possible (no WTS lib)"});
}

class AgentRestartFunctionTest : public AgentRestartTest, public testing::WithParamInterface<const char*> {};

TEST_P(AgentRestartFunctionTest, WithoutOneOfItsFunctionsNothingIsPossible) {
  TheModules().MissingFunction("WTSAPI32", GetParam());
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({"Hx Setup Log: agent restart not possible (no WTS entries)"});
  EXPECT_EQ(Calls({"CoI", "WTS"}), Lines{});
}

INSTANTIATE_TEST_SUITE_P(Each, AgentRestartFunctionTest,
                         testing::Values("WTSEnumerateSessionsW", "WTSQuerySessionInformationW",
                                         "WTSEnumerateProcessesW", "WTSFreeMemory"));

TEST_F(AgentRestartTest, IfComCannotBeStartedNothingIsStopped) {
  AddAgent(1200, kMine);
  TheWorld().com.start = E_OUTOFMEMORY;
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({"Hx Setup Log: agent restart failed (CoInit):  -2147024882"});
  EXPECT_EQ(Ended(), std::set<DWORD>{});
}

TEST_F(AgentRestartTest, AThreadInAnotherComModeIsAccepted) {
  TheWorld().com.start = RPC_E_CHANGED_MODE;
  AddSession(2, WTSActive, "someone");
  Tasks().sessions = {2};
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kNoneStopped, "Hx Setup Log: agent restart:  session 2 (someone) started"});
}

TEST_F(AgentRestartTest, AnotherSuccessOfComIsUninitializedToo) {
  TheWorld().com.start = S_FALSE;
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Calls({"CoU"}).size(), 1u);
}

TEST_F(AgentRestartTest, WithoutAClientPathAgentsAreOnlyStarted) {
  AddAgent(1200, kMine);
  AddSession(2, WTSActive, "someone");
  Tasks().sessions = {2};
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> void* { return nullptr; });
  EXPECT_EQ(Run(38), 0u);
  // Formatting a wide name needs memory, which is not available here.
  EXPECT_EQ(Installer().Log()[0],
            "Hx Setup Log: agent restart:  no client path, running agents cannot be identified");
  EXPECT_EQ(Installer().Log()[1].rfind("Hx Setup Log: agent restart:  session 2 (", 0), 0u);
  EXPECT_EQ(Installer().Log().size(), 2u);
  EXPECT_EQ(Ended(), std::set<DWORD>{});
  EXPECT_EQ(Calls({"WTSEnumerateProcesses"}), Lines{});
}

// ---- whose agent it is

TEST_F(AgentRestartTest, AgentsOfOtherFoldersAreLeftAlone) {
  AddAgent(1, "D:\\Elsewhere\\osua.exe");
  AddAgent(2, "C:\\Clients\\osua.exe");
  AddAgent(3, "C:\\Client");
  AddAgent(4, "C:\\Windows\\Installer");
  AddAgent(5, "D:\\Windows\\Installer\\osua.exe");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({
      NotOurs(1, 10),
      "JN Setup Log: D:\\Elsewhere\\osua.exe",
      "JN Setup Log: C:\\Client\\osua.exe",
      NotOurs(2, 10),
      "JN Setup Log: C:\\Clients\\osua.exe",
      "JN Setup Log: C:\\Client\\osua.exe",
      NotOurs(3, 10),
      "JN Setup Log: C:\\Client",
      "JN Setup Log: C:\\Client\\osua.exe",
      NotOurs(4, 10),
      "JN Setup Log: C:\\Windows\\Installer",
      "JN Setup Log: C:\\Client\\osua.exe",
      NotOurs(5, 10),
      "JN Setup Log: D:\\Windows\\Installer\\osua.exe",
      "JN Setup Log: C:\\Client\\osua.exe",
      kNoneStopped,
  });
  EXPECT_EQ(Ended(), std::set<DWORD>{});
  EXPECT_EQ(Calls({"Term", "Wait"}), Lines{});
}

TEST_F(AgentRestartTest, AgentsOfTheClientFolderAndOfTheInstallersCacheAreStopped) {
  AddAgent(1, "c:\\CLIENT\\OSUA.EXE");
  AddAgent(2, "C:\\Client\\Sub\\osua.exe");
  AddAgent(3, "C:\\Windows\\Installer\\MSI12.tmp");
  AddAgent(4, "c:\\wINDOWS\\installer\\x");
  AddAgent(5, "C:\\Client\\");
  AddAgent(6, "C:\\Windows\\Installer\\");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({"Hx Setup Log: agent restart:  6 agent(s) stopped"});
  EXPECT_EQ(Ended(), (std::set<DWORD>{1, 2, 3, 4, 5, 6}));
}

TEST_F(AgentRestartTest, TheWholeNameIsComparedIgnoringCase) {
  AddAgent(1, kMine, "OSUA.EXE");
  AddAgent(2, kMine, "osua.exe2");
  AddAgent(3, kMine, "xosua.exe");
  AddAgent(4, kMine, "osua");
  AddAgent(5, kMine, "");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Ended(), std::set<DWORD>{1});
  EXPECT_EQ(Calls({"OpenProcess("}).size(), 1u);
}

TEST_F(AgentRestartTest, AnUnreadableImageIsNotOurs) {
  AddAgent(7, "");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({NotOurs(7, 10), "JN Setup Log: ", "JN Setup Log: C:\\Client\\osua.exe", kNoneStopped});
}

TEST_F(AgentRestartTest, ImagesOfUpTo260CharactersAreRead) {
  AddAgent(1, "C:\\Client\\" + std::string(250, 'x'));
  AddAgent(2, "C:\\Client\\" + std::string(251, 'x'));
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Ended(), std::set<DWORD>{1});
  EXPECT_EQ(Installer().Log()[1], "JN Setup Log: ");
}

TEST_F(AgentRestartTest, WithoutTheQueryEveryAgentIsOurs) {
  AddAgent(1, "D:\\Elsewhere\\osua.exe");
  TheModules().MissingFunction("KERNEL32", "QueryFullProcessImageNameW");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Calls({"OpenProcess("}), Lines{"OpenProcess(0x100001, 0, 1) = handle#2"});
  EXPECT_EQ(Calls({"QueryFull"}), Lines{});
  EXPECT_LOG({kOneStopped});
}

TEST_F(AgentRestartTest, AClientPathInNonAsciiLettersIsCompared) {
  Installer().Set("DIR_CLIENT", L"C:\\Ärger\\");
  AddAgent(1, "C:\\äRGER\\osua.exe");
  AddAgent(2, "C:\\Arger\\osua.exe");
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Ended(), std::set<DWORD>{1});
  EXPECT_EQ(Installer().Log()[2], "JN Setup Log: C:\\Ärger\\osua.exe");
}

// ---- stopping

TEST_F(AgentRestartTest, EachFailureToStopIsLogged) {
  AddAgent(1, kMine).openError = ERROR_ACCESS_DENIED;
  AddAgent(2, kMine).terminateError = ERROR_GEN_FAILURE;
  AddAgent(3, kMine).waitResult = WAIT_TIMEOUT;
  AddAgent(4, kMine).waitResult = WAIT_FAILED;
  AddAgent(5, kMine);
  World38().processes[0].session = 9;
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({
      "Hx Setup Log: agent restart:  cannot open pid 1 in session 9:  5",
      "Hx Setup Log: agent restart:  cannot stop pid 2:  31",
      "Hx Setup Log: agent restart:  pid 3 did not exit",
      "Hx Setup Log: agent restart:  pid 4 did not exit",
      kOneStopped,
  });
  EXPECT_EQ(Calls({"Wait"}).size(), 3u);
}

TEST_F(AgentRestartTest, WithoutTheListOfProcessesAgentsAreOnlyStarted) {
  AddAgent(1, kMine);
  AddSession(2, WTSActive, "someone");
  Tasks().sessions = {2};
  World38().processesError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({"Hx Setup Log: agent restart:  process enumeration failed:  5",
              "Hx Setup Log: agent restart:  session 2 (someone) started"});
}

// ---- starting

TEST_F(AgentRestartTest, OnlyActiveAndDisconnectedSessionsGetAnAgent) {
  for (DWORD state = WTSActive; state <= WTSInit; ++state) {
    AddSession(10 + state, static_cast<int>(state), "user" + std::to_string(state));
    Tasks().sessions.insert(static_cast<LONG>(10 + state));
  }
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kNoneStopped, "Hx Setup Log: agent restart:  session 10 (user0) started",
              "Hx Setup Log: agent restart:  session 14 (user4) started"});
  EXPECT_EQ(Calls({"WTSQuery"}).size(), 2u);
}

TEST_F(AgentRestartTest, SessionsWithoutAUserGetNone) {
  AddSession(0, WTSDisconnected, "");
  AddSession(1, WTSActive, "SYSTEM");
  AddSession(2, WTSActive, "system");
  AddSession(3, WTSActive, "someone", Asking::kFails);
  AddSession(4, WTSActive, "someone", Asking::kGivesNothing);
  AddSession(5, WTSActive, "SYSTEMS");
  Tasks().sessions = {0, 1, 2, 3, 4, 5};
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kNoneStopped, "Hx Setup Log: agent restart:  session 5 (SYSTEMS) started"});
}

TEST_F(AgentRestartTest, IfTheSessionFailsTheUserIsTried) {
  AddSession(2, WTSActive, "someone");
  AddSession(3, WTSDisconnected, "nobody");
  Tasks().users = {"someone"};
  EXPECT_EQ(Run(38), 0u);
  EXPECT_EQ(Calls({"task"}), (Lines{
                                 R"(task.RunEx(empty, 6, 2, null, *) = 0x80070005)",
                                 R"(task.RunEx(empty, 2, 0, "someone", *) = 0)",
                                 R"(task.RunEx(empty, 6, 3, null, *) = 0x80070005)",
                                 R"(task.RunEx(empty, 2, 0, "nobody", *) = 0x80070005)",
                             }));
  EXPECT_LOG({kNoneStopped, "Hx Setup Log: agent restart:  session 2 (someone) started",
              "Hx Setup Log: agent restart:  session 3 (nobody) failed:  -7"});
}

TEST_F(AgentRestartTest, TheCodeOfTheSecondAttemptIsLogged) {
  AddSession(2, WTSActive, "someone");
  Tasks().tasks.clear();
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kNoneStopped, "Hx Setup Log: agent restart:  session 2 (someone) failed:  -6"});
}

TEST_F(AgentRestartTest, WithoutTheListOfSessionsNoneIsStarted) {
  World38().sessionsError = ERROR_NOT_SUPPORTED;
  AddAgent(1, kMine);
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kOneStopped, "Hx Setup Log: agent restart:  session enumeration failed:  50"});
}

TEST_F(AgentRestartTest, EmptyListsAreNotAFailure) {
  EXPECT_EQ(Run(38), 0u);
  EXPECT_LOG({kNoneStopped});
  EXPECT_EQ(Calls({"WTSFree"}).size(), 2u);
}

// ---- every call failing once

TEST_F(AgentRestartTest, SurvivesEveryFailure) {
  EXPECT_EQ(Run(38), 0u);
  FailEachCall(38, [](rig::World& world) {
    world.sessions.processes = {{1200, 2, "osua.exe", kMine},
                                {1300, 2, "osua.exe", "D:\\Elsewhere\\osua.exe"},
                                {1400, 3, "OSUA.exe", "C:\\Windows\\Installer\\osua.exe"}};
    world.sessions.sessions = {
        {2, WTSActive, "someone"}, {3, WTSDisconnected, "another"}, {0, WTSActive, ""}};
    world.tasks.sessions = {2};
    world.tasks.users = {"another"};
  });
  EXPECT_EQ(Run(38), 0u);
}

}  // namespace agent_restart_test
