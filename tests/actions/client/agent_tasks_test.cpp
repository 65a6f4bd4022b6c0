// CustomAction27, CustomAction28, CustomAction31 and CustomAction32: the agent's scheduled tasks.

#include <map>
#include <set>

#include "rig/action_test.h"

namespace agent_tasks_test {

constexpr char kNoInterval[] = "Hx Setup Log: Task install disabled (no update interval)";
constexpr char kInstalled[] = "Hx Setup Log: Task installed";
constexpr char kChecked[] = "Hx Setup Log: Task check OK";

using Lines = std::vector<std::string>;

class AgentTasksTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override {
    world.modules.Loaded("OLE32");
    world.installer.Set("DIR_CLIENT", "C:\\Client\\");
    world.installer.Set("DIR_APPDATA", "C:\\Agent Data\\");
    world.installer.Set("PROP_UPDATEINTERVAL", "7");
    world.tasks.hasFolder = true;
  }
  rig::TaskScheduler& Tasks() { return TheWorld().tasks; }

  // Returns the trace's lines that start with one of these.
  Lines Calls(const Lines& starts) { return TheRig().trace.LinesStarting(starts); }
  bool HasUsedTasks() { return !Calls({"CoCreateInstance"}).empty(); }

  // Makes each call of an installing action fail once. The log must name the failing step, or report success
  // if the step does not matter. `codes` has the codes of the registration. The name of a call that is made
  // twice ends with " again" the second time.
  void ExpectLogs(int number, const std::map<std::string, LONG>& codes) {
    // The codes of the check after the registration. If a call of the same name fails for the second time, it
    // is the check's.
    const std::map<std::string, LONG> checkCodes = {{"CoCreateInstance", -2},  {"service.Connect", -3},
                                                    {"service.GetFolder", -4}, {"root.GetFolder", -5},
                                                    {"folder.GetTask", -6},    {"task.get_State", -7}};
    std::map<std::string, int> times;
    rig::SweepOptions options;
    options.check = [&](const rig::SweepRun& run) {
      std::string name = run.name;
      if (times[name] > 0 && codes.count(name + " again") != 0) name += " again";
      auto code = codes.find(name);
      bool isCheck = times[name]++ > 0 || code == codes.end();
      auto checkCode = checkCodes.find(name);
      if (isCheck && checkCode == checkCodes.end()) {
        return;
      }
      Lines expected = {kInstalled, kChecked};
      if (isCheck) {
        expected[1] = "Hx Setup Log: Task check failed:  " + std::to_string(checkCode->second);
      } else if (code->second != 0) {
        expected = {"Hx Setup Log: Task install failed:  " + std::to_string(code->second)};
      }
      EXPECT_EQ(run.scene.world.installer.Log(), expected) << run.call;
    };
    FailEachCall(number, {}, options);
    for (const auto& [call, code] : codes) {
      EXPECT_NE(times[call], 0) << call;
    }
    for (const auto& [call, code] : checkCodes) {
      EXPECT_NE(times[call], 0) << call;
    }
  }
};

const std::map<std::string, LONG> kCommonCodes = {
    {"CoCreateInstance", -2},
    {"service.Connect", -3},
    {"service.GetFolder", -4},
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
    {"settings.put_ExecutionTimeLimit", -13},
    {"definition.get_Triggers", -15},
    {"definition.get_Actions", -27},
    {"actions.Create", -28},
    {"action.QueryInterface", -29},
    {"program.put_Path", -30},
    {"folder.RegisterTaskDefinition", -32},
    {"task.get_State", E_FAIL},
    {"task.get_Path", E_FAIL},
};

// ---- the user agent's task

TEST_F(AgentTasksTest, RegistersAndChecksTheUserAgentTask) {
  EXPECT_EQ(Run(27), 0u);
  EXPECT_EQ(
      Calls({"GetModuleHandleA(\"OLE", "GetProcAddress(OLE", "Co", "triggers", "program", "folder", "task",
             "daily"}),
      (Lines{
          R"(GetModuleHandleA("OLE32") = OLE32)",
          R"(GetProcAddress(OLE32, "CoInitializeEx") = *)",
          R"(CoInitializeEx(null, 0x6) = 0)",
          R"(CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 0x1, {2FABA4C7-4DA9-4013-9697-20CC3FD40F85}, *) = 0)",
          R"(folder.DeleteTask("Ostrel User Agent Task", 0) = 0x80070002)",
          R"(triggers.Create(9, *) = 0)",
          R"(program.put_Path("C:\\Client\\osua.exe") = 0)",
          R"(folder.RegisterTaskDefinition("Ostrel User Agent Task", definition, 6, "Builtin\\Users", empty, 4, "", *) = 0)",
          R"(task.get_State(*) = 0)",
          R"(task.get_Path(*) = 0)",
          R"(CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 0x1, {2FABA4C7-4DA9-4013-9697-20CC3FD40F85}, *) = 0)",
          R"(folder.GetTask("Ostrel User Agent Task", *) = 0)",
          R"(task.get_State(*) = 0)",
          R"(CoUninitialize())",
      }));
  EXPECT_LOG({kInstalled, kChecked});
  EXPECT_EQ(Tasks().tasks, std::set<std::string>{"Ostrel User Agent Task"});
}

TEST_F(AgentTasksTest, TheLogSaysWhichStepOfTheUserAgentTaskFailed) {
  std::map<std::string, LONG> codes = kCommonCodes;
  codes.insert({{"triggers.Create", -16},
                {"trigger.QueryInterface", -17},
                {"logon.put_Id", 0},
                {"logon.put_StartBoundary", 0},
                {"logon.put_UserId", -18}});
  ExpectLogs(27, codes);
}

TEST_F(AgentTasksTest, WithoutAPathTheUserAgentTaskIsStillRegistered) {
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> void* { return nullptr; });
  EXPECT_EQ(Run(27), 0u);
  EXPECT_EQ(Calls({"program."}), Lines{"program.put_Path(null) = 0"});
  EXPECT_LOG({kInstalled, kChecked});
}

TEST_F(AgentTasksTest, AStateThatCannotBeReadIsAFailedInstall) {
  Tasks().FailMethod("task.get_State", E_ACCESSDENIED);
  EXPECT_EQ(Run(27), 0u);
  EXPECT_LOG({"Hx Setup Log: Task install failed:  -2147024891"});
}

TEST_F(AgentTasksTest, AFailedCheckIsLogged) {
  Tasks().FailMethod("folder.GetTask", E_ACCESSDENIED);
  EXPECT_EQ(Run(27), 0u);
  EXPECT_LOG({kInstalled, "Hx Setup Log: Task check failed:  -6"});
}

// ---- starting COM

class AgentTasksComTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override {
    world.installer.Set("DIR_CLIENT", "C:\\Client\\");
    world.installer.Set("DIR_APPDATA", "C:\\Data\\");
    world.installer.Set("PROP_UPDATEINTERVAL", "7");
    world.tasks.hasFolder = true;
    world.tasks.tasks = {"Ostrel User Agent Task", "Ostrel Auto-update Task"};
  }
  // Returns true if COM was started or used.
  bool HasUsedCom() {
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.rfind("Co", 0) == 0 && line.rfind("Com", 0) != 0) {
        return true;
      }
    }
    return false;
  }
};

TEST_F(AgentTasksComTest, ComIsNotLoadedForTheTasks) {
  for (int number : {27, 31}) {
    EXPECT_EQ(Run(number), 0u);
  }
  EXPECT_LOG({"Hx Setup Log: Task install not possible (no OLE lib)",
              "Hx Setup Log: Task install not possible (no OLE lib)"});
  for (int number : {28, 32}) {
    EXPECT_EQ(Run(number), 0u);
  }
  EXPECT_EQ(Installer().Log().size(), 2u);
  EXPECT_FALSE(HasUsedCom());
  for (const std::string& line : TheRig().trace.Lines()) {
    EXPECT_NE(line.rfind("LoadLibrary", 0), 0u) << line;
  }
}

TEST_F(AgentTasksComTest, ComWithoutItsStartFunctionIsNotUsed) {
  TheModules().Loaded("OLE32");
  TheModules().MissingFunction("OLE32", "CoInitializeEx");
  for (int number : {27, 31, 28, 32}) {
    EXPECT_EQ(Run(number), 0u);
  }
  EXPECT_LOG({"Hx Setup Log: Task install not possible (no OLE lib)",
              "Hx Setup Log: Task install not possible (no OLE lib)"});
  EXPECT_FALSE(HasUsedCom());
}

TEST_F(AgentTasksComTest, AFailedStartIsLogged) {
  TheModules().Loaded("OLE32");
  TheWorld().com.start = E_OUTOFMEMORY;
  for (int number : {27, 31, 28, 32}) {
    EXPECT_EQ(Run(number), 0u);
  }
  EXPECT_LOG({"Hx Setup Log: Task install failed (CoInit):  -2147024882",
              "Hx Setup Log: Task install failed (CoInit):  -2147024882"});
  EXPECT_EQ(TheWorld().tasks.tasks.size(), 2u);
}

TEST_F(AgentTasksComTest, AThreadInAnotherComModeIsAccepted) {
  TheModules().Loaded("OLE32");
  for (HRESULT start : {HRESULT{RPC_E_CHANGED_MODE}, HRESULT{S_FALSE}}) {
    TheWorld().com.start = start;
    for (int number : {27, 31, 28, 32}) {
      EXPECT_EQ(Run(number), 0u);
    }
    EXPECT_TRUE(TheWorld().tasks.tasks.empty());
  }
  EXPECT_LOG({kInstalled, kChecked, kInstalled, kChecked, kInstalled, kChecked, kInstalled, kChecked});
}

// ---- the auto-update task

TEST_F(AgentTasksTest, RegistersAndChecksTheAutoUpdateTask) {
  EXPECT_EQ(Run(31), 0u);
  EXPECT_EQ(
      Calls({"program", "folder", "daily.put_Days", "principal", "settings.put_Run", "CoI", "CoU"}),
      (Lines{
          R"(CoInitializeEx(null, 0x6) = 0)",
          R"(folder.DeleteTask("Ostrel Auto-update Task", 0) = 0x80070002)",
          R"(settings.put_RunOnlyIfNetworkAvailable(-1) = 0)",
          R"(daily.put_DaysInterval(7) = 0)",
          R"(principal.put_RunLevel(1) = 0)",
          R"(program.put_Path("C:\\Client\\osau.exe") = 0)",
          R"(program.put_Arguments("-X \"C:\\Agent Data\\osau.xml\"") = 0)",
          R"(folder.RegisterTaskDefinition("Ostrel Auto-update Task", definition, 6, "SYSTEM", empty, 5, "", *) = 0)",
          R"(folder.GetTask("Ostrel Auto-update Task", *) = 0)",
          R"(CoUninitialize())",
      }));
  EXPECT_LOG({kInstalled, kChecked});
}

TEST_F(AgentTasksTest, TheLogSaysWhichStepOfTheAutoUpdateTaskFailed) {
  std::map<std::string, LONG> codes = kCommonCodes;
  codes.insert({{"settings.put_RunOnlyIfNetworkAvailable", 0},
                {"definition.get_Settings again", -19},
                {"settings.get_IdleSettings", -19},
                {"idle.put_WaitTimeout", -20},
                {"triggers.Create", -21},
                {"trigger.QueryInterface", -22},
                {"daily.put_Id", 0},
                {"daily.put_StartBoundary", 0},
                {"daily.put_DaysInterval", -23},
                {"daily.put_RandomDelay", 0},
                {"daily.put_ExecutionTimeLimit", 0},
                {"definition.get_Principal", -24},
                {"principal.put_RunLevel", -25},
                {"program.put_Arguments", -31}});
  ExpectLogs(31, codes);
}

TEST_F(AgentTasksTest, IntervalsThatMakeATask) {
  const std::map<std::string, int> intervals = {
      {"7", 7},     {"+3", 3},         {"0x0A", 10},       {"0xa", 10},
      {"007", 7},   {"7 days", 7},     {"+0x1F", 31},      {"1" + std::string(62, 'x'), 1},
      {"365", 365}, {"4294967303", 7}, {"0x100000005", 5}, {"-4294967295", 1},
      {"65543", 7}, {"0x10zz", 16},
  };
  for (const auto& [text, interval] : intervals) {
    Installer().Set("PROP_UPDATEINTERVAL", text);
    TheRig().trace.Clear();
    EXPECT_EQ(Run(31), 0u);
    EXPECT_EQ(Calls({"daily.put_Days"}),
              Lines{"daily.put_DaysInterval(" + std::to_string(interval) + ") = 0"})
        << text;
  }
}

TEST_F(AgentTasksTest, IntervalsThatDisableTheTask) {
  Lines log;
  for (const std::string& text :
       {std::string(), std::string("0"), std::string("-3"), std::string("abc"), std::string("0X5"),
        std::string("0x"), std::string(" 7"), std::string("+-7"), std::string("2147483648"),
        std::string("4294967295"), std::string("0x80000000"), std::string("0xFFFFFFFF"),
        std::string("4294967296"), std::string("-0x1"), "1" + std::string(63, 'x'), std::string(300, '1')}) {
    Installer().Set("PROP_UPDATEINTERVAL", text);
    EXPECT_EQ(Run(31), 0u);
    log.push_back(kNoInterval);
    EXPECT_EQ(Installer().Log(), log) << text;
  }
  Installer().FailReading("PROP_UPDATEINTERVAL");
  EXPECT_EQ(Run(31), 0u);
  log.push_back(kNoInterval);
  EXPECT_EQ(Installer().Log(), log);
  EXPECT_FALSE(HasUsedTasks());
  EXPECT_EQ(Calls({"MsiGetPropertyW"}), Lines{});
}

TEST_F(AgentTasksTest, TheLargestIntervalIsCutTo16Bits) {
  Installer().Set("PROP_UPDATEINTERVAL", "2147483647");
  EXPECT_EQ(Run(31), 0u);
  EXPECT_EQ(Calls({"daily.put_Days"}), Lines{"daily.put_DaysInterval(-1) = 0"});
}

TEST_F(AgentTasksTest, WithoutADataFolderThereIsNoTask) {
  Installer().Set("DIR_APPDATA", "");
  EXPECT_EQ(Run(31), 0u);
  Installer().Set("DIR_APPDATA", "C:\\Data");
  Installer().FailReading("DIR_APPDATA");
  EXPECT_EQ(Run(31), 0u);
  EXPECT_LOG({"Hx Setup Log: Task install not possible (no data dir)",
              "Hx Setup Log: Task install not possible (no data dir)"});
  EXPECT_FALSE(HasUsedTasks());
}

TEST_F(AgentTasksTest, WithoutAClientFolderThereIsNoAutoUpdateTask) {
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> void* { return nullptr; });
  EXPECT_EQ(Run(31), 0u);
  EXPECT_LOG({"Hx Setup Log: Task install not possible (no client dir)"});
  EXPECT_FALSE(HasUsedTasks());
}

TEST_F(AgentTasksTest, SlashesInFoldersSeparateNames) {
  Installer().Set("DIR_CLIENT", "C:/Client/Agent/");
  Installer().Set("DIR_APPDATA", "C:\\Agent/Data");
  EXPECT_EQ(Run(31), 0u);
  EXPECT_EQ(Calls({"program.put"}),
            (Lines{R"(program.put_Path("C:\\Client\\Agent\\osau.exe") = 0)",
                   R"(program.put_Arguments("-X \"C:\\Agent\\Data\\osau.xml\"") = 0)"}));
}

TEST_F(AgentTasksTest, ALongDataFolderFits) {
  std::string folder = "C:";
  for (int level = 0; level < 30; ++level) {
    folder += "\\folder-" + std::to_string(100 + level);
  }
  ASSERT_GT(folder.size(), 300u);
  Installer().Set("DIR_APPDATA", folder);
  EXPECT_EQ(Run(31), 0u);
  std::string printed = folder + "\\osau.xml";
  for (size_t at = 0; (at = printed.find('\\', at)) != std::string::npos; at += 2) {
    printed.insert(at, 1, '\\');
  }
  EXPECT_EQ(Calls({"program.put_Arguments"}),
            Lines{"program.put_Arguments(\"-X \\\"" + printed + "\\\"\") = 0"});
}

// Which line about something missing is logged if an allocation fails.
TEST_F(AgentTasksTest, EachFailedAllocationHasItsLine) {
  std::set<std::string> lines;
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) {
    if (run.name == "HeapAlloc" || run.name == "HeapReAlloc") {
      Lines log = run.scene.world.installer.Log();
      ASSERT_FALSE(log.empty());
      lines.insert(log.front());
    }
  };
  FailEachCall(31, {}, options);
  EXPECT_EQ(lines.count("Hx Setup Log: Task install not possible (no client dir)"), 1u);
  EXPECT_EQ(lines.count("Hx Setup Log: Task install not possible (no data dir)"), 1u);
  EXPECT_EQ(lines.count("Hx Setup Log: Task install not possible (no memory)"), 1u);
}

// ---- deleting

TEST_F(AgentTasksTest, DeletesTheTasksAndThenTheFolder) {
  Tasks().tasks = {"Ostrel User Agent Task", "Ostrel Auto-update Task"};
  EXPECT_EQ(Run(28), 0u);
  EXPECT_EQ(Tasks().tasks, std::set<std::string>{"Ostrel Auto-update Task"});
  EXPECT_TRUE(Tasks().hasFolder);
  EXPECT_EQ(Run(32), 0u);
  EXPECT_FALSE(Tasks().hasFolder);
  EXPECT_LOG({});
  EXPECT_EQ(Calls({"folder", "root.Delete"}), (Lines{
                                                  R"(folder.DeleteTask("Ostrel User Agent Task", 0) = 0)",
                                                  R"(root.DeleteFolder("Quillfern", 0) = 0x80070091)",
                                                  R"(folder.DeleteTask("Ostrel Auto-update Task", 0) = 0)",
                                                  R"(root.DeleteFolder("Quillfern", 0) = 0)",
                                              }));
}

TEST_F(AgentTasksTest, DeletingMissingTasksIsSilent) {
  EXPECT_EQ(Run(28), 0u);
  EXPECT_EQ(Run(32), 0u);
  EXPECT_LOG({"Hx Setup Log: Task uninstall failed:  -5"});
}

TEST_F(AgentTasksTest, TheLogSaysWhyNothingCouldBeDeleted) {
  const std::map<std::string, LONG> codes = {
      {"CoCreateInstance", -2}, {"service.Connect", -3}, {"service.GetFolder", -4}, {"root.GetFolder", -5}};
  for (int number : {28, 32}) {
    size_t met = 0;
    rig::SweepOptions options;
    options.check = [&](const rig::SweepRun& run) {
      Lines log = run.scene.world.installer.Log();
      auto code = codes.find(run.name);
      if (code != codes.end()) {
        ++met;
        EXPECT_EQ(log, Lines{"Hx Setup Log: Task uninstall failed:  " + std::to_string(code->second)});
      } else if (run.name != "SysAllocString") {
        EXPECT_EQ(log, Lines{}) << run.call;
      }
    };
    FailEachCall(number, {}, options);
    EXPECT_EQ(met, codes.size());
  }
}

}  // namespace agent_tasks_test
