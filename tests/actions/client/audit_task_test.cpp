// CustomAction6, CustomAction7 and CustomAction8: the audit's work item.

#include <cstring>
#include <map>

#include "rig/action_test.h"

namespace audit_task_test {

using Lines = std::vector<std::string>;

class AuditTaskTest : public rig::ActionTest {
 protected:
  static void Populate(rig::World& world) {
    world.modules.Loaded("OLE32");
    world.services.Of("Schedule").state = SERVICE_STOPPED;
    world.installer.Set("DIR_CLIENT", "C:\\Client\\");
    world.installer.Set("PROP_TASKUSER", "auditor");
    world.installer.Set("PROP_TASKPASS", "secret");
    world.installer.Set("PROP_TASKHOUR", "3");
    world.installer.Set("PROP_TASKTIME", "60000");
    world.installer.Set("PROP_TASKPARAM", "-quiet");
  }
  void Arrange(rig::World& world) override { Populate(world); }
  rig::TaskScheduler& Tasks() { return TheWorld().tasks; }
  // The library never releases the trigger.
  void ExpectKeptTrigger() { TheRig().ledger.Deliberate(rig::kInterface, "schedule"); }

  // Returns the calls of the Task Scheduler and of the service manager.
  Lines Calls(const Lines& starts = {"CoCreate", "scheduler", "item", "schedule", "file"}) {
    return TheRig().trace.LinesStarting(starts);
  }
};

// ---- creating

TEST_F(AuditTaskTest, CreatesTheWorkItem) {
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(
      Calls({"MsiGet", "GetModuleHandleA(\"OLE", "GetProcAddress(OLE", "Co", "Open", "Query", "Start",
             "Close", "scheduler", "item", "schedule", "file"}),
      (Lines{
          R"(MsiGetPropertyW(session, "PROP_TASKUSER", *, *) = 0)",
          R"(MsiGetPropertyW(session, "PROP_TASKPASS", *, *) = 0)",
          R"(MsiGetPropertyW(session, "DIR_CLIENT", *, *) = 0)",
          R"(MsiGetPropertyA(session, "PROP_TASKHOUR", *, *) = 0)",
          R"(MsiGetPropertyA(session, "PROP_TASKTIME", *, *) = 0)",
          R"(MsiGetPropertyW(session, "PROP_TASKPARAM", *, *) = 0)",
          R"(GetModuleHandleA("OLE32") = OLE32)",
          R"(GetProcAddress(OLE32, "CoInitializeEx") = *)",
          R"(CoInitializeEx(null, 0x6) = 0)",
          R"(OpenSCManagerA(null, null, 0x1) = service#1)",
          R"(OpenServiceA(service#1, "Schedule", 0x14) = service#2)",
          R"(CloseServiceHandle(service#1) = 1)",
          R"(QueryServiceStatus(service#2, *) = 1)",
          R"(StartServiceA(service#2, 0, null) = 1)",
          R"(CloseServiceHandle(service#2) = 1)",
          R"(CoCreateInstance({148BD52A-A2AB-11CE-B11F-00AA00530503}, null, 0x1, {148BD527-A2AB-11CE-B11F-00AA00530503}, *) = 0)",
          R"(scheduler.NewWorkItem("Ostrel", {148BD520-A2AB-11CE-B11F-00AA00530503}, {148BD524-A2AB-11CE-B11F-00AA00530503}, *) = 0)",
          R"(item.SetApplicationName("C:\\Client\\ostrel32.exe") = 0)",
          R"(item.SetParameters("-quiet") = 0)",
          R"(item.SetMaxRunTime(60000) = 0)",
          R"(item.SetAccountInformation("auditor", "secret") = 0)",
          R"(item.CreateTrigger(*, *) = 0)",
          R"(schedule.SetTrigger(*) = 0)",
          R"(item.QueryInterface({0000010B-0000-0000-C000-000000000046}, *) = 0)",
          R"(file.Save(null, 1) = 0)",
          R"(CoUninitialize())",
      }));
  EXPECT_LOG({});
  EXPECT_EQ(Tasks().items, std::set<std::string>{"Ostrel"});
}

TEST_F(AuditTaskTest, TheTriggerIsTheRecordToTheByte) {
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  const unsigned char expected[48] = {48, 0, 0, 0, 0xD0, 0x07, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0,
                                      3,  0, 0, 0, 0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                      1,  0, 0, 0, 1,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  static_assert(sizeof expected == sizeof(TASK_TRIGGER));
  EXPECT_EQ(std::memcmp(expected, &Tasks().schedule, sizeof expected), 0);
}

TEST_F(AuditTaskTest, HoursAreTakenModuloADay) {
  const std::map<std::string, int> hours = {
      {"0", 0},
      {"23", 23},
      {"24", 0},
      {"26", 2},
      {"7pm", 7},
      {"", 0},
      {"-5", 0},
      {"+5", 0},
      {" 5", 0},
      {"0x10", 0},
      {"x", 0},
      {"24", 0},
      {"2147483647", 7},
      {"2147483648", 16},
      {"4294967272", 0},
      {"4294967295", 23},
      {"4294967297", 1},
      {"07" + std::string(29, ' '), 7},
      {"07" + std::string(30, ' '), 0},
  };
  for (const auto& [text, hour] : hours) {
    Tasks().items.clear();
    ExpectKeptTrigger();
    Installer().Set("PROP_TASKHOUR", text);
    EXPECT_EQ(Run(6), 0u);
    EXPECT_EQ(Tasks().schedule.wStartHour, hour) << text;
  }
  Installer().FailReading("PROP_TASKHOUR");
  Tasks().items.clear();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Tasks().schedule.wStartHour, 0);
  ExpectKeptTrigger();
}

TEST_F(AuditTaskTest, RunTimesArePassedAsMilliseconds) {
  const std::map<std::string, std::string> times = {
      {"1", "1"},
      {"90 s", "90"},
      {"2147483647", "0x7fffffff"},
      {"4294967297", "1"},
      {"0", ""},
      {"", ""},
      {"-5", ""},
      {"+5", ""},
      {"2147483648", ""},
      {"4294967295", ""},
      {"abc", ""},
      {"5" + std::string(30, ' '), "5"},
      {"5" + std::string(31, ' '), ""},
  };
  for (const auto& [text, time] : times) {
    Tasks().items.clear();
    TheRig().trace.Clear();
    ExpectKeptTrigger();
    Installer().Set("PROP_TASKTIME", text);
    EXPECT_EQ(Run(6), 0u);
    EXPECT_EQ(Calls({"item.SetMaxRunTime"}),
              time.empty() ? Lines{} : Lines{"item.SetMaxRunTime(" + time + ") = 0"})
        << text;
  }
}

TEST_F(AuditTaskTest, ParametersOfMoreThan31CharactersAreReplaced) {
  const std::map<std::string, std::string> parameters = {{std::string(31, 'p'), std::string(31, 'p')},
                                                         {std::string(32, 'p'), "-auditmode"},
                                                         {"", "-auditmode"},
                                                         {"-a b", "-a b"}};
  for (const auto& [text, expected] : parameters) {
    Tasks().items.clear();
    TheRig().trace.Clear();
    ExpectKeptTrigger();
    Installer().Set("PROP_TASKPARAM", text);
    EXPECT_EQ(Run(6), 0u);
    EXPECT_EQ(Calls({"item.SetParameters"}), Lines{"item.SetParameters(\"" + expected + "\") = 0"});
  }
  Tasks().items.clear();
  TheRig().trace.Clear();
  Installer().Set("PROP_TASKPARAM", "-quiet");
  Installer().FailReading("PROP_TASKPARAM");
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Calls({"item.SetParameters"}), Lines{"item.SetParameters(\"-auditmode\") = 0"});
  ExpectKeptTrigger();
}

TEST_F(AuditTaskTest, UserAndPasswordOf127CharactersFit) {
  Installer().Set("PROP_TASKUSER", std::string(127, 'u'));
  Installer().Set("PROP_TASKPASS", std::string(127, 'p'));
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Calls({"item.SetAccount"}), Lines{"item.SetAccountInformation(\"" + std::string(127, 'u') +
                                              "\", \"" + std::string(127, 'p') + "\") = 0"});
}

TEST_F(AuditTaskTest, WithoutUserOrPasswordNothingHappens) {
  for (const char* name : {"PROP_TASKUSER", "PROP_TASKPASS"}) {
    for (const std::string& value : {std::string(), std::string(128, 'x')}) {
      Installer().Set(name, value);
      EXPECT_EQ(Run(6), 0u);
    }
    Installer().Set(name, "text");
    Installer().FailReading(name);
    EXPECT_EQ(Run(6), 0u);
  }
  EXPECT_EQ(Calls({"Co", "Open", "GetModule", "MsiGetPropertyA"}), Lines{});
}

TEST_F(AuditTaskTest, WithoutAPathNothingHappens) {
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> void* { return nullptr; });
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Calls({"MsiGetPropertyA", "CoI", "Open"}), Lines{});
}

TEST_F(AuditTaskTest, AnExistingWorkItemIsUnchanged) {
  Tasks().items = {"Ostrel"};
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Calls({"item"}), Lines{});
}

TEST_F(AuditTaskTest, WithoutATriggerTheItemIsNotSaved) {
  Tasks().FailMethod("item.CreateTrigger", E_FAIL);
  EXPECT_EQ(Run(6), 0u);
  EXPECT_TRUE(Tasks().items.empty());
  EXPECT_EQ(Calls({"item.Q", "file"}), Lines{});
}

TEST_F(AuditTaskTest, ATriggerThatCannotBeSetIsNotReleasedEither) {
  Tasks().FailMethod("schedule.SetTrigger", E_FAIL);
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_TRUE(Tasks().items.empty());
  EXPECT_EQ(Calls({"item.Q", "file"}), Lines{});
}

TEST_F(AuditTaskTest, AnItemWithoutTheFileInterfaceIsNotSaved) {
  Tasks().MissingInterface("file");
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_TRUE(Tasks().items.empty());
}

TEST_F(AuditTaskTest, FailuresToConfigureTheItemAreIgnored) {
  for (const char* method : {"item.SetApplicationName", "item.SetParameters", "item.SetMaxRunTime",
                             "item.SetAccountInformation", "file.Save"}) {
    Tasks().FailMethod(method, E_ACCESSDENIED);
  }
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Calls({"file"}), Lines{"file.Save(null, 1) = 0x80070005"});
}

TEST_F(AuditTaskTest, WithoutTheServiceTheSchedulerIsNotAsked) {
  TheWorld().services.Of("Schedule").state = SERVICE_START_PENDING;
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Run(7), 0u);
  EXPECT_EQ(Calls(), Lines{});
  EXPECT_EQ(Calls({"StartService"}).size(), 2u);
}

// ---- deleting

TEST_F(AuditTaskTest, DeletesTheWorkItem) {
  Tasks().items = {"Ostrel", "Another"};
  TheWorld().services.Of("Schedule").state = SERVICE_RUNNING;
  EXPECT_EQ(Run(7), 0u);
  EXPECT_EQ(
      Calls(),
      (Lines{
          R"(CoCreateInstance({148BD52A-A2AB-11CE-B11F-00AA00530503}, null, 0x1, {148BD527-A2AB-11CE-B11F-00AA00530503}, *) = 0)",
          R"(scheduler.Delete("Ostrel") = 0)",
      }));
  EXPECT_EQ(Tasks().items, std::set<std::string>{"Another"});
  EXPECT_EQ(Run(7), 0u);
  EXPECT_LOG({});
  EXPECT_EQ(Calls({"MsiGet"}), Lines{});
}

// ---- only the service

TEST_F(AuditTaskTest, StartsTheService) {
  EXPECT_EQ(Run(8), 0u);
  EXPECT_TRACE({
      R"(GetModuleHandleA("OLE32") = OLE32)",
      R"(GetProcAddress(OLE32, "CoInitializeEx") = *)",
      R"(CoInitializeEx(null, 0x6) = 0)",
      R"(OpenSCManagerA(null, null, 0x1) = service#1)",
      R"(OpenServiceA(service#1, "Schedule", 0x14) = service#2)",
      R"(CloseServiceHandle(service#1) = 1)",
      R"(QueryServiceStatus(service#2, *) = 1)",
      R"(StartServiceA(service#2, 0, null) = 1)",
      R"(CloseServiceHandle(service#2) = 1)",
      R"(CoUninitialize())",
  });
}

TEST_F(AuditTaskTest, AFailingServiceIsIgnored) {
  TheWorld().services.managerError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run(8), 0u);
  EXPECT_LOG({});
}

// ---- starting COM

TEST_F(AuditTaskTest, WithoutComNothingHappens) {
  TheModules().MissingFunction("OLE32", "CoInitializeEx");
  for (int number : {6, 7, 8}) {
    EXPECT_EQ(Run(number), 0u);
  }
  EXPECT_EQ(Calls({"Co", "Open"}), Lines{});
}

TEST_F(AuditTaskTest, IfComCannotBeStartedNothingHappens) {
  TheWorld().com.start = E_UNEXPECTED;
  for (int number : {6, 7, 8}) {
    EXPECT_EQ(Run(number), 0u);
  }
  EXPECT_EQ(Calls({"CoC", "CoU", "Open"}), Lines{});
}

TEST_F(AuditTaskTest, AThreadInAnotherComModeIsAccepted) {
  TheWorld().com.start = RPC_E_CHANGED_MODE;
  ExpectKeptTrigger();
  EXPECT_EQ(Run(6), 0u);
  EXPECT_EQ(Tasks().items.size(), 1u);
  EXPECT_EQ(Run(7), 0u);
  EXPECT_TRUE(Tasks().items.empty());
}

class UnloadedComTest : public rig::ActionTest {};

TEST_F(UnloadedComTest, ComIsNotLoadedForTheAudit) {
  Installer().Set("PROP_TASKUSER", "auditor");
  Installer().Set("PROP_TASKPASS", "secret");
  Installer().Set("DIR_CLIENT", "C:\\Client\\");
  for (int number : {6, 7, 8}) {
    EXPECT_EQ(Run(number), 0u);
  }
  for (const std::string& line : TheRig().trace.Lines()) {
    EXPECT_TRUE(line.rfind("LoadLibrary", 0) != 0 && line.rfind("Open", 0) != 0) << line;
  }
}

// ---- every call failing once

TEST_F(AuditTaskTest, SurvivesEveryFailure) {
  EXPECT_GT(
      FailEachCall(6, [](rig::World& world) { world.rig.ledger.Deliberate(rig::kInterface, "schedule"); }),
      20u);
  EXPECT_GT(FailEachCall(7, [](rig::World& world) { world.tasks.items = {"Ostrel"}; }), 7u);
  EXPECT_EQ(FailEachCall(8), 7u);
}

}  // namespace audit_task_test
