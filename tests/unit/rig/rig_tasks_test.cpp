// The rig's own tests: the objects of the Task Scheduler.
#include <algorithm>

#include "client/logon_trigger.h"
#include "rig-subject/subject_tasks.h"
#include "unit/rig/rig_subject.h"

namespace rig_test {

HX_INTERNAL(SubjectTaskFolder);
HX_INTERNAL(SubjectRegisterTask);
HX_INTERNAL(SubjectRunTask);
HX_INTERNAL(SubjectDeleteTask);
HX_INTERNAL(SubjectMakeWorkItem);
HX_INTERNAL(SubjectDeleteWorkItem);

using Lines = std::vector<std::string>;

constexpr HRESULT kNoFile = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr IID kDailyId = {0x126C5CD8, 0xB288, 0x41D5, {0x8D, 0xBF, 0xE4, 0x91, 0x44, 0x6A, 0xDC, 0x5C}};
constexpr CLSID kItemClass = {0x148BD520, 0xA2AB, 0x11CE, {0xB1, 0x1F, 0x00, 0xAA, 0x00, 0x53, 0x05, 0x03}};
// The flags of IRegisteredTask::RunEx.
constexpr LONG kNoConstraints = 2;
constexpr LONG kInSession = 6;

class RigTasksTest : public RigTest {
 protected:
  rig::TaskScheduler& Tasks() { return TheWorld().tasks; }
  HRESULT RegisterDaily(const wchar_t* name, SubjectTaskFault fault = kSubjectTaskSound) {
    return SubjectRegisterTask(name, TASK_TRIGGER_DAILY, &kDailyId, fault);
  }
  HRESULT MakeWorkItem(const wchar_t* name, SubjectItemFault fault = kSubjectItemSound) {
    return SubjectMakeWorkItem(name, &kItemClass, 5, fault);
  }
};

TEST_F(RigTasksTest, ATaskIsRegisteredStepByStep) {
  EXPECT_EQ(RegisterDaily(L"Task"), S_OK);
  EXPECT_TRUE(Tasks().hasFolder);
  EXPECT_EQ(Tasks().tasks, (std::set<std::string>{"Task"}));
  EXPECT_TRACE({
      "CoInitializeEx(null, 0x2) = 0",
      "CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 0x1, "
      "{2FABA4C7-4DA9-4013-9697-20CC3FD40F85}, *) = 0",
      "service.Connect(empty, empty, empty, empty) = 0",
      "service.GetFolder(\"\", *) = 0",
      "root.GetFolder(\"Subject\", *) = 0x80070002",
      "root.CreateFolder(\"Subject\", empty, *) = 0",
      "service.NewTask(0, *) = 0",
      "definition.get_RegistrationInfo(*) = 0",
      "info.put_Author(\"Subject\") = 0",
      "definition.get_Settings(*) = 0",
      "settings.put_StartWhenAvailable(-1) = 0",
      "settings.get_IdleSettings(*) = 0",
      "idle.put_WaitTimeout(\"PT5M\") = 0",
      "definition.get_Triggers(*) = 0",
      "triggers.Create(2, *) = 0",
      "trigger.QueryInterface({126C5CD8-B288-41D5-8DBF-E491446ADC5C}, *) = 0",
      "daily.put_Id(\"Trigger\") = 0",
      "definition.get_Actions(*) = 0",
      "actions.Create(0, *) = 0",
      "action.QueryInterface({4C3D624D-FD6B-49A3-B9B7-09CB3CD3F047}, *) = 0",
      "program.put_Path(\"C:\\\\subject.exe\") = 0",
      "definition.get_Principal(*) = 0",
      "principal.put_RunLevel(1) = 0",
      "folder.RegisterTaskDefinition(\"Task\", definition, 6, \"SYSTEM\", empty, 5, \"\", *) = 0",
      "task.get_State(*) = 0",
      "task.get_Path(*) = 0",
      "CoUninitialize()",
  });
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, TheRootHasTwoNames) {
  Tasks().hasFolder = true;
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderGets), S_OK);
  EXPECT_EQ(SubjectTaskFolder(L"\\", L"Subject", kSubjectFolderGets), S_OK);
  EXPECT_EQ(SubjectTaskFolder(L"\\Other", L"Subject", kSubjectFolderGets), kNoFile);
}

TEST_F(RigTasksTest, AFolderHasTheArrangedNameOrTheFirstOneAskedFor) {
  Tasks().hasFolder = true;
  Tasks().folderName = "Named";
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderGets), kNoFile);
  EXPECT_EQ(SubjectTaskFolder(L"", L"Named", kSubjectFolderGets), S_OK);
  Tasks().folderName.clear();
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderGets), S_OK);
  EXPECT_EQ(Tasks().folderName, "Subject");
  EXPECT_EQ(SubjectTaskFolder(L"", L"Named", kSubjectFolderGets), kNoFile);
}

TEST_F(RigTasksTest, AFolderIsCreatedOnceAndDeletedWhenEmpty) {
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderGets), kNoFile);
  EXPECT_TRUE(FAILED(SubjectTaskFolder(L"", L"Subject", kSubjectFolderDeletes)));
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderMakes), S_OK);
  EXPECT_EQ(SubjectTaskFolder(L"", L"Other", kSubjectFolderGets), kNoFile);
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderMakes),
            HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS));
  Tasks().tasks = {"Task"};
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderDeletes),
            HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
  EXPECT_TRUE(Tasks().hasFolder);
  EXPECT_EQ(SubjectDeleteTask(L"Task"), S_OK);
  EXPECT_EQ(SubjectTaskFolder(L"", L"Subject", kSubjectFolderDeletes), S_OK);
  EXPECT_FALSE(Tasks().hasFolder);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, AMissingTaskIsNotFound) {
  EXPECT_EQ(SubjectDeleteTask(L"Task"), kNoFile);
  Tasks().hasFolder = true;
  Tasks().tasks = {"Other"};
  EXPECT_EQ(SubjectDeleteTask(L"Task"), kNoFile);
  EXPECT_EQ(SubjectRunTask(L"Task", kNoConstraints, 0, nullptr), kNoFile);
  EXPECT_EQ(Tasks().tasks, (std::set<std::string>{"Other"}));
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, ATaskRunsInTheSessionsAndForTheUsersThatTheTestNames) {
  Tasks().hasFolder = true;
  Tasks().tasks = {"Task"};
  Tasks().sessions = {3};
  Tasks().users = {"Mercer"};
  EXPECT_EQ(SubjectRunTask(L"Task", kInSession, 3, nullptr), S_OK);
  EXPECT_EQ(SubjectRunTask(L"Task", kInSession, 4, nullptr), E_ACCESSDENIED);
  EXPECT_EQ(SubjectRunTask(L"Task", kInSession, 4, L"Mercer"), E_ACCESSDENIED);
  EXPECT_EQ(SubjectRunTask(L"Task", kNoConstraints, 0, L"Mercer"), S_OK);
  EXPECT_EQ(SubjectRunTask(L"Task", kNoConstraints, 3, L"Okafor"), E_ACCESSDENIED);
  EXPECT_EQ(SubjectRunTask(L"Task", kNoConstraints, 0, nullptr), E_ACCESSDENIED);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, ATriggerHasTheInterfaceOfItsKindAndNoOther) {
  EXPECT_EQ(RegisterDaily(L"Daily"), S_OK);
  EXPECT_EQ(SubjectRegisterTask(L"Logon", TASK_TRIGGER_LOGON, &kLogonTriggerId, kSubjectTaskSound), S_OK);
  EXPECT_EQ(SubjectRegisterTask(L"Wrong", TASK_TRIGGER_DAILY, &kLogonTriggerId, kSubjectTaskSound),
            E_NOINTERFACE);
  EXPECT_EQ(SubjectRegisterTask(L"Wrong", TASK_TRIGGER_LOGON, &kDailyId, kSubjectTaskSound), E_NOINTERFACE);
  EXPECT_EQ(SubjectRegisterTask(L"Wrong", TASK_TRIGGER_BOOT, &kDailyId, kSubjectTaskSound), E_INVALIDARG);
  EXPECT_EQ(Tasks().tasks, (std::set<std::string>{"Daily", "Logon"}));
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, AnInterfaceCanBeMissing) {
  Tasks().MissingInterface("daily");
  Tasks().MissingInterface("logon");
  Tasks().MissingInterface("file");
  EXPECT_EQ(RegisterDaily(L"Task"), E_NOINTERFACE);
  EXPECT_EQ(SubjectRegisterTask(L"Task", TASK_TRIGGER_LOGON, &kLogonTriggerId, kSubjectTaskSound),
            E_NOINTERFACE);
  EXPECT_EQ(MakeWorkItem(L"Item"), E_NOINTERFACE);
  EXPECT_TRUE(Tasks().tasks.empty());
  EXPECT_TRUE(Tasks().items.empty());
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, TheInterfaceOfAProgramCanBeMissing) {
  Tasks().MissingInterface("program");
  EXPECT_EQ(RegisterDaily(L"Task"), E_NOINTERFACE);
  EXPECT_EQ(TheRig().trace.Lines().at(19),
            "action.QueryInterface({4C3D624D-FD6B-49A3-B9B7-09CB3CD3F047}, *) = 0x80004002");
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, AMethodThatFailsDoesNothing) {
  Tasks().FailMethod("root.CreateFolder", E_ACCESSDENIED);
  EXPECT_EQ(RegisterDaily(L"Task"), E_ACCESSDENIED);
  EXPECT_FALSE(Tasks().hasFolder);
  Tasks().hasFolder = true;
  Tasks().tasks = {"Old"};
  Tasks().FailMethod("folder.RegisterTaskDefinition", E_INVALIDARG);
  EXPECT_EQ(RegisterDaily(L"Task"), E_INVALIDARG);
  Tasks().FailMethod("folder.DeleteTask", E_OUTOFMEMORY);
  EXPECT_EQ(SubjectDeleteTask(L"Old"), E_OUTOFMEMORY);
  EXPECT_EQ(Tasks().tasks, (std::set<std::string>{"Old"}));
  // A failing method returns no object.
  Tasks().FailMethod("definition.get_Principal", E_FAIL);
  EXPECT_EQ(RegisterDaily(L"Task"), E_FAIL);
  Tasks().FailMethod("service.NewTask", E_UNEXPECTED);
  EXPECT_EQ(RegisterDaily(L"Task"), E_UNEXPECTED);
  Tasks().FailMethod("file.Save", E_ACCESSDENIED);
  EXPECT_EQ(MakeWorkItem(L"Item"), E_ACCESSDENIED);
  EXPECT_TRUE(Tasks().items.empty());
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, ObjectsThatAreKeptOrUsedTooLateAreFound) {
  EXPECT_EQ(RegisterDaily(L"Task", kSubjectTaskKeepsDefinition), S_OK);
  EXPECT_TRUE(Has(EndOfAction(), "definition was not released"));
  EXPECT_TRUE(Has(Reported([&] { RegisterDaily(L"Task", kSubjectTaskUsesReleased); }),
                  "task.get_State is called, but the library holds no reference to task"));
  EXPECT_TRUE(Has(Reported([&] { RegisterDaily(L"Task", kSubjectTaskLosesDefinition); }),
                  "folder.RegisterTaskDefinition is given a interface ("));
  EXPECT_EQ(RegisterDaily(L"Task", kSubjectTaskKeepsPath), S_OK);
  EXPECT_TRUE(Has(EndOfAction(), "was not released"));
}

TEST_F(RigTasksTest, TextsMustBeSystemStringsOrPlainAsRequired) {
  EXPECT_TRUE(Has(Reported([&] { RegisterDaily(L"Task", kSubjectTaskPlainName); }),
                  "a text of the Task Scheduler is not a system string: Task"));
  EXPECT_TRUE(Has(Reported([&] { RegisterDaily(L"Task", kSubjectTaskPlainUser); }),
                  "a text of the Task Scheduler is not a system string: SYSTEM"));
  EXPECT_TRUE(Has(Reported([&] { RegisterDaily(L"Task", kSubjectTaskSystemAuthor); }),
                  "a text of the Task Scheduler is a system string, but must be a plain one: Subject"));
}

TEST_F(RigTasksTest, ATextThatIsFreedTooEarlyIsFound) {
  EXPECT_TRUE(Has(Reported([&] { RegisterDaily(L"Task", kSubjectTaskFreedName); }), "freed block"));
  EndOfAction();  // Forgets what the crash kept the subject from freeing.
}

TEST_F(RigTasksTest, AWorkItemExistsOnceItIsSaved) {
  EXPECT_EQ(MakeWorkItem(L"Item", kSubjectItemNotSaved), S_OK);
  EXPECT_TRUE(Tasks().items.empty());
  EXPECT_EQ(MakeWorkItem(L"Item"), S_OK);
  EXPECT_EQ(Tasks().items, (std::set<std::string>{"Item"}));
  EXPECT_EQ(Tasks().schedule.wStartHour, 5);
  EXPECT_EQ(Tasks().schedule.cbTriggerSize, sizeof(TASK_TRIGGER));
  EXPECT_EQ(MakeWorkItem(L"Item"), HRESULT_FROM_WIN32(ERROR_FILE_EXISTS));
  EXPECT_EQ(SubjectMakeWorkItem(L"Second", &kDailyId, 5, kSubjectItemSound), E_INVALIDARG);
  EXPECT_EQ(MakeWorkItem(L"Second"), S_OK);
  EXPECT_EQ(SubjectDeleteWorkItem(L"Item"), S_OK);
  EXPECT_EQ(SubjectDeleteWorkItem(L"Item"), kNoFile);
  EXPECT_EQ(Tasks().items, (std::set<std::string>{"Second"}));
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTasksTest, AWorkItemsTriggerThatIsKeptIsFound) {
  EXPECT_EQ(MakeWorkItem(L"Item", kSubjectItemKeepsTrigger), S_OK);
  EXPECT_TRUE(Has(EndOfAction(), "schedule was not released"));
}

TEST_F(RigTasksTest, EveryMethodFailsOnce) {
  std::vector<std::string> failed;
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) { failed.push_back(run.name); };
  FailEachCall(
      [this](rig::Scene&) {
        RegisterDaily(L"Task");
        MakeWorkItem(L"Item");
        return 0U;
      },
      {}, options);
  for (const char* method :
       {"service.Connect", "service.GetFolder", "root.CreateFolder", "service.NewTask", "info.put_Author",
        "idle.put_WaitTimeout", "triggers.Create", "trigger.QueryInterface", "daily.put_Id",
        "program.put_Path", "principal.put_RunLevel", "folder.RegisterTaskDefinition", "task.get_State",
        "task.get_Path", "scheduler.NewWorkItem", "item.CreateTrigger", "schedule.SetTrigger", "file.Save"}) {
    EXPECT_EQ(std::count(failed.begin(), failed.end(), method), 1) << method;
  }
}

}  // namespace rig_test
