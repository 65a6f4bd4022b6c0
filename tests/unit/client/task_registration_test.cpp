// Registering the agent's tasks; running, checking and deleting registered tasks.
#include <algorithm>
#include <map>
#include <set>

#include "client/registered_task.h"
#include "client/task_registration.h"
#include "rig/internals_test.h"

namespace task_registration_test {

HX_INTERNAL(RegisterAgentTask);
HX_INTERNAL(RunAgentTask);
HX_INTERNAL(CheckAgentTask);
HX_INTERNAL(DeleteAgentTask);

constexpr wchar_t kProgram[] = L"C:\\Client\\agent.exe";
constexpr wchar_t kArguments[] = L"-X \"C:\\Data\\agent.xml\"";
constexpr wchar_t kGroup[] = L"Builtin\\Users";
constexpr wchar_t kTask[] = L"Some Task";

using Lines = std::vector<std::string>;

// What an operation returns if a call fails, by the call's name; for SysAllocString, by the call with its
// text.
using Codes = std::map<std::string, int>;
constexpr char kNameString[] = "SysAllocString(\"Some Task\")";

class AgentTaskTest : public rig::RiggedInternalsTest {
 protected:
  // The caller starts COM, so these operations find it started.
  void Arrange(rig::World& world) override { world.com.start = RPC_E_CHANGED_MODE; }
  rig::TaskScheduler& Tasks() { return TheWorld().tasks; }

  // Returns the lines of the trace that begin with `start`, without their results.
  std::vector<std::string> Calls(const std::string& start) {
    std::vector<std::string> calls = TheRig().trace.LinesStarting({start});
    for (std::string& call : calls) call = call.substr(0, call.rfind(" = "));
    return calls;
  }

  // Returns the trace from the first line that begins with `start`.
  Lines Rest(const std::string& start) {
    const Lines& all = TheRig().trace.Lines();
    auto first = std::find_if(all.begin(), all.end(),
                              [&](const std::string& line) { return line.rfind(start, 0) == 0; });
    return {first, all.end()};
  }

  // Makes each call fail once. The operation must return what `codes` says, and make every call in it. A
  // call that is made twice may have its own entry for the second time, with " again" after its name.
  // Creating the string with the task's name may happen several times: the results must be `nameCodes`, in
  // this order.
  void ExpectCodes(const std::function<int()>& operation, const Codes& codes,
                   const std::vector<int>& nameCodes) {
    rig::SweepOptions options;
    for (const auto& [call, code] : codes) {
      options.results.insert(static_cast<UINT>(code));
    }
    options.results.insert(0);
    std::set<std::string> met;
    std::vector<int> nameResults;
    options.check = [&](const rig::SweepRun& run) {
      std::string call = run.name == "SysAllocString" ? run.call : run.name;
      if (met.count(call) != 0 && codes.count(call + " again") != 0) call += " again";
      int result = static_cast<int>(run.result);
      if (call == kNameString) {
        nameResults.push_back(result);
        return;
      }
      met.insert(call);
      auto code = codes.find(call);
      ASSERT_NE(code, codes.end()) << call;
      EXPECT_EQ(result, code->second) << call;
    };
    FailEachCall([&](rig::Scene&) { return static_cast<UINT>(operation()); }, WithFolderAndTask, options);
    EXPECT_EQ(met.size(), codes.size()) << "some call was never made";
    EXPECT_EQ(nameResults, nameCodes);
  }

  // Arranges the Quillfern folder with the task in it, and a task that can be run.
  static void WithFolderAndTask(rig::World& world) {
    world.tasks.hasFolder = true;
    world.tasks.tasks = {"Some Task", "Ostrel User Agent Task"};
    world.tasks.sessions = {3};
    world.tasks.users = {"", "someone"};
  }
};

// ---- the two kinds of task, field by field and in order

TEST_F(AgentTaskTest, RegistersTheLogonTask) {
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), 0);
  EXPECT_TRACE({
      R"(CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 0x1, {2FABA4C7-4DA9-4013-9697-20CC3FD40F85}, *) = 0)",
      R"(service.Connect(empty, empty, empty, empty) = 0)",
      R"(service.GetFolder("\\", *) = 0)",
      R"(root.GetFolder("Quillfern", *) = 0x80070002)",
      R"(root.CreateFolder("Quillfern", empty, *) = 0)",
      R"(folder.DeleteTask("Some Task", 0) = 0x80070002)",
      R"(service.NewTask(0, *) = 0)",
      R"(definition.get_RegistrationInfo(*) = 0)",
      R"(info.put_Author("Halvorstead Client Installer") = 0)",
      R"(definition.get_Settings(*) = 0)",
      R"(settings.put_StartWhenAvailable(-1) = 0)",
      R"(settings.put_MultipleInstances(0) = 0)",
      R"(settings.put_AllowDemandStart(-1) = 0)",
      R"(settings.put_AllowHardTerminate(0) = 0)",
      R"(settings.put_DisallowStartIfOnBatteries(0) = 0)",
      R"(settings.put_StopIfGoingOnBatteries(0) = 0)",
      R"(settings.put_ExecutionTimeLimit("PT0S") = 0)",
      R"(definition.get_Triggers(*) = 0)",
      R"(triggers.Create(9, *) = 0)",
      R"(trigger.QueryInterface({72DADE38-FAE4-4B3E-BAF4-5D009AF02B1C}, *) = 0)",
      R"(logon.put_Id("LogonTrigger") = 0)",
      R"(logon.put_StartBoundary("2016-01-01T00:00:00") = 0)",
      R"(logon.put_UserId(null) = 0)",
      R"(definition.get_Actions(*) = 0)",
      R"(actions.Create(0, *) = 0)",
      R"(action.QueryInterface({4C3D624D-FD6B-49A3-B9B7-09CB3CD3F047}, *) = 0)",
      R"(program.put_Path("C:\\Client\\agent.exe") = 0)",
      R"(folder.RegisterTaskDefinition("Some Task", definition, 6, "Builtin\\Users", empty, 4, "", *) = 0)",
      R"(task.get_State(*) = 0)",
      R"(task.get_Path(*) = 0)",
  });
}

TEST_F(AgentTaskTest, RegistersTheDailyTask) {
  Tasks().hasFolder = true;
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, kArguments, nullptr, 7), 0);
  EXPECT_TRACE({
      R"(CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 0x1, {2FABA4C7-4DA9-4013-9697-20CC3FD40F85}, *) = 0)",
      R"(service.Connect(empty, empty, empty, empty) = 0)",
      R"(service.GetFolder("\\", *) = 0)",
      R"(root.GetFolder("Quillfern", *) = 0)",
      R"(folder.DeleteTask("Some Task", 0) = 0x80070002)",
      R"(service.NewTask(0, *) = 0)",
      R"(definition.get_RegistrationInfo(*) = 0)",
      R"(info.put_Author("Halvorstead Client Installer") = 0)",
      R"(definition.get_Settings(*) = 0)",
      R"(settings.put_StartWhenAvailable(-1) = 0)",
      R"(settings.put_MultipleInstances(0) = 0)",
      R"(settings.put_AllowDemandStart(-1) = 0)",
      R"(settings.put_AllowHardTerminate(-1) = 0)",
      R"(settings.put_DisallowStartIfOnBatteries(-1) = 0)",
      R"(settings.put_StopIfGoingOnBatteries(-1) = 0)",
      R"(settings.put_RunOnlyIfNetworkAvailable(-1) = 0)",
      R"(settings.put_ExecutionTimeLimit("PT0S") = 0)",
      R"(definition.get_Triggers(*) = 0)",
      R"(definition.get_Settings(*) = 0)",
      R"(settings.get_IdleSettings(*) = 0)",
      R"(idle.put_WaitTimeout("PT5M") = 0)",
      R"(triggers.Create(2, *) = 0)",
      R"(trigger.QueryInterface({126C5CD8-B288-41D5-8DBF-E491446ADC5C}, *) = 0)",
      R"(daily.put_Id("UpdateTrigger") = 0)",
      R"(daily.put_StartBoundary("2016-01-01T02:30:00") = 0)",
      R"(daily.put_DaysInterval(7) = 0)",
      R"(daily.put_RandomDelay("P1DT0S") = 0)",
      R"(daily.put_ExecutionTimeLimit("PT1H") = 0)",
      R"(definition.get_Principal(*) = 0)",
      R"(principal.put_RunLevel(1) = 0)",
      R"(definition.get_Actions(*) = 0)",
      R"(actions.Create(0, *) = 0)",
      R"(action.QueryInterface({4C3D624D-FD6B-49A3-B9B7-09CB3CD3F047}, *) = 0)",
      R"(program.put_Path("C:\\Client\\agent.exe") = 0)",
      R"(program.put_Arguments("-X \"C:\\Data\\agent.xml\"") = 0)",
      R"(folder.RegisterTaskDefinition("Some Task", definition, 6, "SYSTEM", empty, 5, "", *) = 0)",
      R"(task.get_State(*) = 0)",
      R"(task.get_Path(*) = 0)",
  });
}

// ---- the order of releases

// The settings are released before get_Triggers. For the idle wait they are fetched again, and released
// right after get_IdleSettings.
TEST_F(AgentTaskTest, ReleasesObjectsInAFixedOrder) {
  TheWorld().com.ShowReleases();
  TheRig().MakeLoud("SysFreeString");
  Tasks().hasFolder = true;
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), 0);
  EXPECT_EQ(
      Rest("definition.get_Settings"),
      (Lines{
          R"(definition.get_Settings(*) = 0)",
          R"(settings.put_StartWhenAvailable(-1) = 0)",
          R"(settings.put_MultipleInstances(0) = 0)",
          R"(settings.put_AllowDemandStart(-1) = 0)",
          R"(settings.put_AllowHardTerminate(0) = 0)",
          R"(settings.put_DisallowStartIfOnBatteries(0) = 0)",
          R"(settings.put_StopIfGoingOnBatteries(0) = 0)",
          R"(settings.put_ExecutionTimeLimit("PT0S") = 0)",
          R"(SysFreeString(string#4))",
          R"(settings.Release() = 0)",
          R"(definition.get_Triggers(*) = 0)",
          R"(triggers.Create(9, *) = 0)",
          R"(trigger.QueryInterface({72DADE38-FAE4-4B3E-BAF4-5D009AF02B1C}, *) = 0)",
          R"(logon.put_Id("LogonTrigger") = 0)",
          R"(SysFreeString(string#5))",
          R"(logon.put_StartBoundary("2016-01-01T00:00:00") = 0)",
          R"(SysFreeString(string#6))",
          R"(trigger.Release() = 0)",
          R"(logon.put_UserId(null) = 0)",
          R"(logon.Release() = 0)",
          R"(triggers.Release() = 0)",
          R"(definition.get_Actions(*) = 0)",
          R"(actions.Create(0, *) = 0)",
          R"(action.QueryInterface({4C3D624D-FD6B-49A3-B9B7-09CB3CD3F047}, *) = 0)",
          R"(program.put_Path("C:\\Client\\agent.exe") = 0)",
          R"(SysFreeString(string#7))",
          R"(program.Release() = 0)",
          R"(action.Release() = 0)",
          R"(actions.Release() = 0)",
          R"(folder.RegisterTaskDefinition("Some Task", definition, 6, "Builtin\\Users", empty, 4, "", *) = 0)",
          R"(SysFreeString(string#10))",
          R"(SysFreeString(string#9))",
          R"(SysFreeString(string#8))",
          R"(task.get_State(*) = 0)",
          R"(task.get_Path(*) = 0)",
          R"(SysFreeString(string#11))",
          R"(task.Release() = 0)",
          R"(definition.Release() = 0)",
          R"(folder.Release() = 0)",
          R"(root.Release() = 0)",
      }));
  TheRig().trace.Clear();
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, nullptr, 7), 0);
  Lines daily = Rest("settings.put_ExecutionTimeLimit");
  daily.resize(std::min<size_t>(daily.size(), 11));
  EXPECT_EQ(daily, (Lines{
                       R"(settings.put_ExecutionTimeLimit("PT0S") = 0)",
                       R"(SysFreeString(string#15))",
                       R"(settings.Release() = 0)",
                       R"(definition.get_Triggers(*) = 0)",
                       R"(definition.get_Settings(*) = 0)",
                       R"(settings.get_IdleSettings(*) = 0)",
                       R"(settings.Release() = 0)",
                       R"(idle.put_WaitTimeout("PT5M") = 0)",
                       R"(idle.Release() = 0)",
                       R"(triggers.Create(2, *) = 0)",
                       R"(trigger.QueryInterface({126C5CD8-B288-41D5-8DBF-E491446ADC5C}, *) = 0)",
                   }));
}

// The account's text is freed right after the call that uses it.
TEST_F(AgentTaskTest, FreesTheAccountBeforeReleasingObjects) {
  WithFolderAndTask(TheWorld());
  TheWorld().com.ShowReleases();
  TheRig().MakeLoud("SysFreeString");
  for (const wchar_t* account : {L"someone", L"nobody"}) {
    TheRig().trace.Clear();
    const bool runs = RunAgentTask(account, -1) == 0;
    EXPECT_EQ(runs, account == std::wstring(L"someone"));
    Lines rest = Rest("task.RunEx");
    ASSERT_FALSE(rest.empty());
    rest.erase(rest.begin());
    EXPECT_EQ(rest, runs ? (Lines{"SysFreeString(string#4)", "running.Release() = 0", "task.Release() = 0"})
                         : (Lines{"SysFreeString(string#8)", "task.Release() = 0"}));
  }
}

TEST_F(AgentTaskTest, AnIntervalOfZeroDaysNeedsNoNetwork) {
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, nullptr, 0), 0);
  EXPECT_EQ(Calls("settings.put_RunOnly"), std::vector<std::string>{});
  EXPECT_EQ(Calls("daily.put_DaysInterval"), std::vector<std::string>{"daily.put_DaysInterval(0)"});
  EXPECT_EQ(Calls("settings.put_AllowHard"), std::vector<std::string>{"settings.put_AllowHardTerminate(-1)"});
}

TEST_F(AgentTaskTest, AnIntervalIsCutToSixteenBits) {
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, nullptr, 0x10007), 0);
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, nullptr, 0x8000), 0);
  EXPECT_EQ(Calls("daily.put_DaysInterval"),
            (std::vector<std::string>{"daily.put_DaysInterval(7)", "daily.put_DaysInterval(-32768)"}));
  EXPECT_EQ(Calls("settings.put_RunOnly").size(), 2u);
}

TEST_F(AgentTaskTest, AnyNegativeIntervalMeansLogon) {
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, kArguments, nullptr, -2147483647 - 1), 0);
  EXPECT_EQ(Calls("triggers.Create"), std::vector<std::string>{"triggers.Create(9, *)"});
  EXPECT_EQ(Calls("program.put_Arguments").size(), 1u);
}

TEST_F(AgentTaskTest, AMissingProgramIsPassedToTheService) {
  EXPECT_EQ(RegisterAgentTask(kTask, nullptr, nullptr, kGroup, -1), 0);
  EXPECT_EQ(Calls("program."), std::vector<std::string>{"program.put_Path(null)"});
}

TEST_F(AgentTaskTest, AnEmptyArgumentIsSet) {
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, L"", kGroup, -1), 0);
  EXPECT_EQ(Calls("program.put_Arguments"), std::vector<std::string>{"program.put_Arguments(\"\")"});
}

TEST_F(AgentTaskTest, RegisteringTwiceLeavesOneTask) {
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), 0);
  TheRig().trace.Clear();
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), 0);
  EXPECT_EQ(Tasks().tasks, std::set<std::string>{"Some Task"});
  EXPECT_EQ(TheRig().trace.Lines()[4], "folder.DeleteTask(\"Some Task\", 0) = 0");
}

// ---- every step that can fail

// The codes of both kinds of task, with an existing folder.
const Codes kCommonCodes = {
    {"CoCreateInstance", -2},
    {"service.Connect", -3},
    {"SysAllocString(\"\\\\\")", -4},
    {"service.GetFolder", -4},
    {"SysAllocString(\"Quillfern\")", -4},
    {"root.GetFolder", -4},
    {"folder.DeleteTask", 0},
    {"service.NewTask", -5},
    {"definition.get_RegistrationInfo", -6},
    {"info.put_Author", -7},
    {"definition.get_Settings", -8},
    {"settings.put_StartWhenAvailable", -9},
    {"settings.put_MultipleInstances", -33},
    {"settings.put_AllowDemandStart", -34},
    {"settings.put_AllowHardTerminate", -10},
    {"settings.put_DisallowStartIfOnBatteries", -11},
    {"settings.put_StopIfGoingOnBatteries", -12},
    {"SysAllocString(\"PT0S\")", -13},
    {"settings.put_ExecutionTimeLimit", -13},
    {"definition.get_Triggers", -15},
    {"definition.get_Actions", -27},
    {"actions.Create", -28},
    {"action.QueryInterface", -29},
    {"SysAllocString(\"C:\\\\Client\\\\agent.exe\")", -30},
    {"program.put_Path", -30},
    {"SysAllocString(\"\")", -32},
    {"folder.RegisterTaskDefinition", -32},
    {"task.get_State", E_FAIL},
    {"task.get_Path", E_FAIL},
};

TEST_F(AgentTaskTest, EachStepOfTheLogonTaskHasItsCode) {
  Codes codes = kCommonCodes;
  codes.insert({
      {"triggers.Create", -16},
      {"trigger.QueryInterface", -17},
      {"SysAllocString(\"LogonTrigger\")", 0},
      {"logon.put_Id", 0},
      {"SysAllocString(\"2016-01-01T00:00:00\")", 0},
      {"logon.put_StartBoundary", 0},
      {"logon.put_UserId", -18},
      {"SysAllocString(\"Builtin\\\\Users\")", -32},
  });
  // The result ignores a failing string of the old task's name, but not of the new one's.
  ExpectCodes([] { return RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1); }, codes, {0, -32});
}

TEST_F(AgentTaskTest, EachStepOfTheDailyTaskHasItsCode) {
  Codes codes = kCommonCodes;
  codes.insert({
      {"settings.put_RunOnlyIfNetworkAvailable", 0},
      {"definition.get_Settings again", -19},
      {"settings.get_IdleSettings", -19},
      {"idle.put_WaitTimeout", -20},
      {"triggers.Create", -21},
      {"trigger.QueryInterface", -22},
      {"SysAllocString(\"UpdateTrigger\")", 0},
      {"daily.put_Id", 0},
      {"SysAllocString(\"2016-01-01T02:30:00\")", 0},
      {"daily.put_StartBoundary", 0},
      {"daily.put_DaysInterval", -23},
      {"SysAllocString(\"P1DT0S\")", 0},
      {"daily.put_RandomDelay", 0},
      {"SysAllocString(\"PT1H\")", 0},
      {"daily.put_ExecutionTimeLimit", 0},
      {"definition.get_Principal", -24},
      {"principal.put_RunLevel", -25},
      {"SysAllocString(\"-X \\\"C:\\\\Data\\\\agent.xml\\\"\")", -31},
      {"program.put_Arguments", -31},
      {"SysAllocString(\"SYSTEM\")", -32},
  });
  ExpectCodes([] { return RegisterAgentTask(kTask, kProgram, kArguments, nullptr, 1); }, codes, {0, -32});
}

TEST_F(AgentTaskTest, AFolderThatCannotBeCreatedFails) {
  Tasks().FailMethod("root.CreateFolder", E_ACCESSDENIED);
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), -4);
  EXPECT_EQ(Calls("folder."), std::vector<std::string>{});
}

// Also the one that is one less than success.
TEST_F(AgentTaskTest, EveryNegativeResultIsAFailure) {
  Tasks().FailMethod("program.put_Path", HRESULT{-1});
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, 1), -30);
  EXPECT_TRUE(Tasks().tasks.empty());
}

TEST_F(AgentTaskTest, ATriggerOfAnotherKindFails) {
  Tasks().MissingInterface("daily");
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, 1), -22);
  Tasks().MissingInterface("logon");
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), -17);
  EXPECT_TRUE(Tasks().tasks.empty());
}

TEST_F(AgentTaskTest, AnActionOfAnotherKindFails) {
  Tasks().MissingInterface("program");
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, 1), -29);
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), -29);
  EXPECT_TRUE(Tasks().tasks.empty());
}

TEST_F(AgentTaskTest, TheErrorOfReadingTheStateIsReturned) {
  Tasks().FailMethod("task.get_State", E_ACCESSDENIED);
  EXPECT_EQ(RegisterAgentTask(kTask, kProgram, nullptr, kGroup, -1), E_ACCESSDENIED);
  EXPECT_EQ(Calls("task."), std::vector<std::string>{"task.get_State(*)"});
  EXPECT_EQ(Tasks().tasks.size(), 1u);
}

// ---- running, checking, deleting

const Codes kReachCodes = {
    {"CoCreateInstance", -2},
    {"service.Connect", -3},
    {"SysAllocString(\"\")", -4},
    {"service.GetFolder", -4},
    {"SysAllocString(\"Quillfern\")", -5},
    {"root.GetFolder", -5},
};

TEST_F(AgentTaskTest, RunsTheTaskInASession) {
  WithFolderAndTask(TheWorld());
  EXPECT_EQ(RunAgentTask(nullptr, 3), 0);
  EXPECT_TRACE({
      R"(CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 0x1, {2FABA4C7-4DA9-4013-9697-20CC3FD40F85}, *) = 0)",
      R"(service.Connect(empty, empty, empty, empty) = 0)",
      R"(service.GetFolder("", *) = 0)",
      R"(root.GetFolder("Quillfern", *) = 0)",
      R"(folder.GetTask("Ostrel User Agent Task", *) = 0)",
      R"(task.RunEx(empty, 6, 3, null, *) = 0)",
  });
}

TEST_F(AgentTaskTest, RunsTheTaskInSessionZero) {
  WithFolderAndTask(TheWorld());
  Tasks().sessions = {0};
  EXPECT_EQ(RunAgentTask(L"someone", 0), 0);
  EXPECT_EQ(Calls("task."), std::vector<std::string>{"task.RunEx(empty, 6, 0, \"someone\", *)"});
}

TEST_F(AgentTaskTest, RunsTheTaskForAUser) {
  WithFolderAndTask(TheWorld());
  EXPECT_EQ(RunAgentTask(L"someone", -1), 0);
  EXPECT_EQ(RunAgentTask(nullptr, -7), 0);
  EXPECT_EQ(RunAgentTask(L"nobody", -1), -7);
  EXPECT_EQ(Calls("task."), (std::vector<std::string>{"task.RunEx(empty, 2, 0, \"someone\", *)",
                                                      "task.RunEx(empty, 2, 0, null, *)",
                                                      "task.RunEx(empty, 2, 0, \"nobody\", *)"}));
}

TEST_F(AgentTaskTest, RunningReportsTheFailedStep) {
  Codes codes = kReachCodes;
  codes.insert({{"SysAllocString(\"Ostrel User Agent Task\")", -6},
                {"folder.GetTask", -6},
                {"SysAllocString(\"someone\")", -7},
                {"task.RunEx", -7}});
  ExpectCodes([] { return RunAgentTask(L"someone", -1); }, codes, {});
}

TEST_F(AgentTaskTest, ChecksATaskWhateverItsState) {
  WithFolderAndTask(TheWorld());
  EXPECT_EQ(CheckAgentTask(kTask), 0);
  EXPECT_EQ(Calls("service.GetFolder"), std::vector<std::string>{"service.GetFolder(\"\", *)"});
  EXPECT_EQ(Calls("task."), std::vector<std::string>{"task.get_State(*)"});
  EXPECT_EQ(CheckAgentTask(L"Another"), -6);
}

TEST_F(AgentTaskTest, CheckingReportsTheFailedStep) {
  Codes codes = kReachCodes;
  codes.insert({{"folder.GetTask", -6}, {"task.get_State", -7}});
  ExpectCodes([] { return CheckAgentTask(kTask); }, codes, {-6});
}

TEST_F(AgentTaskTest, DeletesTheTaskAndTheEmptyFolder) {
  Tasks().hasFolder = true;
  Tasks().tasks = {"Some Task", "Another"};
  EXPECT_EQ(DeleteAgentTask(kTask), 0);
  EXPECT_EQ(Tasks().tasks, std::set<std::string>{"Another"});
  EXPECT_TRUE(Tasks().hasFolder);
  EXPECT_EQ(DeleteAgentTask(L"Another"), 0);
  EXPECT_FALSE(Tasks().hasFolder);
  EXPECT_EQ(Calls("root.DeleteFolder"), (std::vector<std::string>{"root.DeleteFolder(\"Quillfern\", 0)",
                                                                  "root.DeleteFolder(\"Quillfern\", 0)"}));
  EXPECT_EQ(DeleteAgentTask(kTask), -5);
}

TEST_F(AgentTaskTest, DeletingReportsTheFailedStep) {
  Codes codes = kReachCodes;
  codes.insert({{"folder.DeleteTask", 0}, {"root.DeleteFolder", 0}});
  // The second string with this text is the name of the folder to delete; its failure is ignored.
  codes.erase("SysAllocString(\"Quillfern\")");
  std::vector<int> folderResults;
  rig::SweepOptions options;
  options.results = {0, static_cast<UINT>(-2), static_cast<UINT>(-3), static_cast<UINT>(-4),
                     static_cast<UINT>(-5)};
  options.check = [&](const rig::SweepRun& run) {
    int result = static_cast<int>(run.result);
    if (run.call == "SysAllocString(\"Quillfern\")") {
      folderResults.push_back(result);
    } else if (run.call != kNameString) {
      EXPECT_EQ(result, codes.at(run.name == "SysAllocString" ? run.call : run.name)) << run.call;
    } else {
      EXPECT_EQ(result, 0);
    }
  };
  EXPECT_EQ(FailEachCall([](rig::Scene&) { return static_cast<UINT>(DeleteAgentTask(kTask)); },
                         [](rig::World& world) {
                           world.tasks.hasFolder = true;
                           world.tasks.tasks = {"Some Task"};
                         },
                         options),
            10u);
  EXPECT_EQ(folderResults, (std::vector<int>{-5, 0}));
}

}  // namespace task_registration_test
