// Stopping the running agents if the agent's path has no folder.
#include "client/agent_processes.h"

#include "rig/internals_test.h"

namespace agent_processes_test {

HX_INTERNAL(StopAgentProcesses);

class AgentProcessesTest : public rig::RiggedInternalsTest {
 protected:
  // Stops the agents of the world; `agentPath` is the path of the agent.
  int Stop(const wchar_t* agentPath) {
    wchar_t name[] = L"osua.exe";
    std::vector<WTS_PROCESS_INFOW> entries;
    for (const rig::Process& process : TheWorld().sessions.processes) {
      entries.push_back({process.session, process.id, name, nullptr});
    }
    return StopAgentProcesses(static_cast<MSIHANDLE>(TheRig().session), entries.data(),
                              static_cast<DWORD>(entries.size()), agentPath);
  }
};

TEST_F(AgentProcessesTest, WithoutAFolderEveryAgentIsStoppedWithoutAQuery) {
  TheWorld().sessions.processes = {{1, 2, "osua.exe", "D:\\Elsewhere\\osua.exe"}, {2, 2, "osua.exe", ""}};
  EXPECT_EQ(Stop(L"osua.exe"), 2);
  EXPECT_TRUE(TheWorld().sessions.processes[0].ended);
  EXPECT_TRUE(TheWorld().sessions.processes[1].ended);
  for (const std::string& line : TheRig().trace.Lines()) {
    EXPECT_NE(line.rfind("QueryFull", 0), 0u) << line;
  }
  EXPECT_LOG({});
}

TEST_F(AgentProcessesTest, ARootIsAFolder) {
  TheWorld().sessions.processes = {{1, 2, "osua.exe", "\\osua.exe"}, {2, 2, "osua.exe", "C:\\osua.exe"}};
  EXPECT_EQ(Stop(L"\\osua.exe"), 1);
  EXPECT_LOG({"Hx Setup Log: agent restart:  pid 2 is not ours, left alone (1)", "JN Setup Log: C:\\osua.exe",
              "JN Setup Log: \\osua.exe"});
}

TEST_F(AgentProcessesTest, FoldersAreComparedWithoutWhatFollowsThem) {
  TheRig().MakeLoud("CompareStringW");
  TheWorld().sessions.processes = {{1, 2, "osua.exe", "C:\\Windows\\Installer\\MSI1.tmp"}};
  EXPECT_EQ(Stop(L"C:\\Vendor\\Client\\bin\\osua.exe"), 1);
  EXPECT_EQ(
      TheRig().trace.LinesStarting({"CompareStringW("}),
      (std::vector<std::string>{
          R"(CompareStringW(0, 1, "osua.exe", -1, "osua.exe", -1) = 2)",
          R"(CompareStringW(0, 1, "C:\\Windows\\Installer\\", 21, "C:\\Vendor\\Client\\bin\\", 21) = 3)",
          R"(CompareStringW(0, 1, "C:\\Windows\\Installer\\", 21, "C:\\Windows\\Installer\\", 21) = 2)",
      }));
}

TEST_F(AgentProcessesTest, ANullListHasNoAgents) {
  EXPECT_EQ(Stop(L"C:\\Client\\osua.exe"), 0);
}

}  // namespace agent_processes_test
