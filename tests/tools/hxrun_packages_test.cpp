// Runs of entry points through hxrun against the runs of the model packages: the same lines in the log, the
// same properties, and the same changes of the machine. The values come from the log of the package's run.

#include "install/agent_scheduler.h"
#include "install/security_rig.h"
#include "rig/print.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {
namespace {

using install::InstallerRun;
using Texts = std::vector<std::string>;

// Returns the lines that the library wrote in all runs of an action.
Texts LinesOf(const InstallerRun& run, const std::string& action) {
  const std::string start = "Action start ", end = "Action ended ", name = ": " + action + ".";
  Texts lines;
  bool isRunning = false;
  for (const std::string& line : run.lines) {
    const bool isOfAction = line.find(name) != std::string::npos;
    if (isOfAction && line.compare(0, start.size(), start) == 0) isRunning = true;
    if (isOfAction && line.compare(0, end.size(), end) == 0) isRunning = false;
    if (isRunning && line.find(" Setup Log: ") != std::string::npos) lines.push_back(line);
  }
  return lines;
}

// Runs an action through hxrun, with the values of a package's log.
HxRun RunFrom(const InstallerRun& run, const std::string& action, const std::wstring& more = L"") {
  wchar_t folder[MAX_PATH];
  GetEnvironmentVariableW(L"HX_ARTIFACTS", folder, MAX_PATH);
  return RunHxRun(L"--yes --from-log \"" + std::wstring(folder) + L"\\" + rig::ToWide(run.name) + L".log\" " +
                  rig::ToWide(action) + L" " + more);
}

// The properties that a run of hxrun set, with their values at its end.
std::map<std::string, std::string> PropertiesOf(const HxRun& run) {
  std::map<std::string, std::string> values;
  for (const std::string& line : run.Lines("set: ")) {
    const size_t equals = line.find(" = \"");
    values[line.substr(0, equals)] = line.substr(equals + 4, line.rfind("\" (was") - equals - 4);
  }
  return values;
}

void ExpectSameLines(const InstallerRun& run, const Texts& actions) {
  for (const std::string& action : actions) {
    const HxRun own = RunFrom(run, action);
    EXPECT_EQ(own.status, 0u) << action << "\n" << own.output << own.errors;
    EXPECT_EQ(own.Log(), LinesOf(run, action)) << action;
    EXPECT_FALSE(own.Log().empty()) << action;
  }
}

// Runs an action that sets no property, and returns what it printed. It must log what the package's run
// logged.
HxRun ExpectSameRun(const InstallerRun& run, const std::string& action) {
  HxRun own = RunFrom(run, action);
  EXPECT_EQ(own.status, 0u) << action << "\n" << own.output << own.errors;
  EXPECT_EQ(own.Log(), LinesOf(run, action)) << action;
  EXPECT_EQ(own.Lines("set: "), Texts{}) << action;
  return own;
}

class HxRunServerTest : public install::SecurityTest {
 protected:
  void SetUp() override {
    DeleteFolder(kRunFolder);
    SecurityTest::SetUp();
    LayDownHxRun();
  }
  void TearDown() override {
    DeleteFolder(kRunFolder);
    SecurityTest::TearDown();
  }

  // Installs the older server, with data, as the upgrade finds it.
  void InstallOlder() {
    ASSERT_EQ(Install(install::OlderServer()).exitCode, 0u);
    install::WriteTree(server + L"\\Data", install::OlderData("1"));
  }
};

TEST_F(HxRunServerTest, ALogGivesWhatTheUpgradePublished) {
  InstallOlder();
  const InstallerRun& upgrade = Install(install::Server());
  ASSERT_EQ(upgrade.exitCode, 0u);
  // The machine as it was when the actions ran.
  ASSERT_EQ(Remove(install::Server()).exitCode, 0u);
  install::DeleteTree(server);
  install::DeleteTree(aside);
  InstallOlder();

  const std::map<std::string, Texts> published = {
      {"CustomAction12", {"DIR_PROGRAMS64"}},
      {"CustomAction14", {}},
      {"CustomAction20",
       {"DIR_EXDATA", "DIR_EXSERVER", "DIR_UPG", "DIR_UPG_DATA", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF",
        "DIR_UPG_VRDF_PREFS"}},
      {"CustomAction22", {"PROP_REPLACING", "PROP_UPGRADE"}},
      {"CustomAction34", {"PROP_PREVVTDF"}},
      {"CustomAction35", {}},
  };
  for (const auto& [action, names] : published) {
    // The package lent CustomAction34 this name, and set another value later. This engine's log has only the
    // later one.
    const HxRun run = RunFrom(upgrade, action, action == "CustomAction34" ? L"DIR_UPG=Data" : L"");
    EXPECT_EQ(run.status, 0u) << run.output << run.errors;
    Texts found;
    for (const auto& [name, value] : PropertiesOf(run)) {
      found.push_back(name);
      EXPECT_EQ(value, upgrade.Property(name)) << action << ": " << name;
    }
    EXPECT_EQ(found, names) << run.output;
  }
}

TEST_F(HxRunServerTest, TheLinesOfAnInstallation) {
  const InstallerRun& run = Install(install::Server(), L"PROP_ACCOUNTTYPE=1");
  ASSERT_EQ(run.exitCode, 0u);
  ExpectSameLines(run, {"CustomAction5", "CustomAction23", "CustomAction25.Data", "CustomAction33.Server",
                        "CustomAction36.Install"});
  const InstallerRun& removal = Remove(install::Server());
  ASSERT_EQ(removal.exitCode, 0u);
  // CustomAction37 looks at the service.
  ASSERT_EQ(Install(install::Server(), L"PROP_ACCOUNTTYPE=1").exitCode, 0u);
  ExpectSameLines(removal, {"CustomAction19", "CustomAction24", "CustomAction37"});
}

TEST_F(HxRunServerTest, TheMovesAndCopiesOfAnUpgrade) {
  const std::wstring dataFolder = server + L"\\Data";
  InstallOlder();
  const InstallerRun& upgrade = Install(install::Server());
  ASSERT_EQ(upgrade.exitCode, 0u);
  const install::Tree older = install::ReadTree(aside), converted = install::ReadTree(dataFolder);
  ASSERT_EQ(Remove(install::Server()).exitCode, 0u);
  install::DeleteTree(server);
  install::DeleteTree(aside);
  InstallOlder();

  ExpectSameRun(upgrade, "CustomAction15.LookAtOlder");
  ExpectSameRun(upgrade, "CustomAction15.Server");
  EXPECT_EQ(install::ReadTree(aside), older);
  EXPECT_FALSE(install::FileExists(server));
  // The package creates the folder.
  install::WriteTree(dataFolder, {});
  ExpectSameRun(upgrade, "CustomAction15.LookAtData");
  ExpectSameRun(upgrade, "CustomAction16.Data");
  EXPECT_EQ(install::ReadTree(dataFolder), install::OlderData("1"));
  install::WriteTree(dataFolder, {{"dbcon_failed.txt", "of an earlier conversion"}});
  ExpectSameRun(upgrade, "CustomAction17.Clear");
  EXPECT_EQ(install::ReadTree(dataFolder), install::OlderData("1"));
  // As the package's converter leaves the folder.
  install::WriteTree(dataFolder, install::Converted({{"dbcon_completed.txt", ""}}));
  ExpectSameRun(upgrade, "CustomAction17.Judge");
  EXPECT_EQ(install::ReadTree(dataFolder), converted);
  // And as it leaves it if it fails; the package's run would end there.
  install::WriteTree(dataFolder, {{"dbcon_failed.txt", ""}});
  const HxRun failed = RunFrom(upgrade, "CustomAction17.Judge");
  EXPECT_EQ(failed.status, 3u) << failed.output << failed.errors;
  EXPECT_EQ(failed.Lines("returned "), Texts{"1603: ends the installation with an error"});
  EXPECT_EQ(install::ReadTree(dataFolder), converted);
}

// The profiles and the data of all users have only the drive in common on the Windows of these tests. So the
// action moves no file.
TEST_F(HxRunServerTest, TheKeyFilesStayHere) {
  const std::wstring user = L"C:\\A user", all = L"C:\\ProgramData\\Ostrel";
  const install::Tree keys = {{"Local Settings\\", ""},
                              {"Local Settings\\Application Data\\", ""},
                              {"Local Settings\\Application Data\\portable.dir\\", ""},
                              {"Local Settings\\Application Data\\portable.dir\\portable.pky", "a key"}};
  install::WriteTree(user, keys);
  install::WriteTree(all, {{"portable.dir\\", ""}});
  const InstallerRun& run = Install(install::Server());
  ASSERT_EQ(run.exitCode, 0u);
  EXPECT_EQ(install::ReadTree(user), keys);
  ExpectSameRun(run, "CustomAction13");
  EXPECT_EQ(install::ReadTree(user), keys);
  install::DeleteTree(user);
  install::DeleteTree(all);
}

class HxRunClientTest : public install::AgentTest {
 protected:
  void SetUp() override {
    DeleteFolder(kRunFolder);
    AgentTest::SetUp();
    LayDownHxRun();
  }
  void TearDown() override {
    DeleteFolder(kRunFolder);
    AgentTest::TearDown();
  }
};

TEST_F(HxRunClientTest, TheLinesAndPropertiesOfItsLife) {
  install::FillAllStores(install::kUserStore);
  const InstallerRun& run = Install(install::Client());
  ASSERT_EQ(run.exitCode, 0u);
  ExpectSameLines(run, {"CustomAction27", "CustomAction30", "CustomAction31", "CustomAction38"});
  for (const auto& [action, count] :
       {std::pair<const char*, size_t>{"CustomAction3", 1}, {"CustomAction26", 4}}) {
    const HxRun own = RunFrom(run, action, L"PROP_HOSTNAME=vantor");
    EXPECT_EQ(PropertiesOf(own).size(), count) << own.output << own.errors;
    for (const auto& [name, value] : PropertiesOf(own)) EXPECT_EQ(value, run.Property(name)) << name;
  }
  const InstallerRun& removal = Remove(install::Client());
  ASSERT_EQ(removal.exitCode, 0u);
  ExpectSameLines(removal, {"CustomAction32", "CustomAction38"});
}

// Only a run with dialogs has this action. It writes no line and sets no property.
TEST_F(HxRunClientTest, TheLevelOfTheUserInterface) {
  const InstallerRun& run = Msiexec("dialogs", L"/i \"" + install::Client().path + L"\"");
  ASSERT_EQ(run.exitCode, 0u);
  EXPECT_EQ(run.LinesWith(": CustomAction2.").size(), 2u);
  const HxRun own = RunFrom(run, "CustomAction2", L"--trace");
  EXPECT_EQ(own.status, 0u) << own.output << own.errors;
  EXPECT_EQ(own.Log(), LinesOf(run, "CustomAction2"));
  EXPECT_EQ(own.Lines("set: "), Texts{});
  EXPECT_EQ(own.Lines("call: "), Texts{"MsiSetInternalUI(3, null) = 5"});
}

TEST_F(HxRunClientTest, TheChangesOfItsLife) {
  const install::LibraryList unhooked = {true, "other.dll", 2}, hooked = {true, "other.dll OSTRACK.DLL", 3};
  install::Scheduler scheduler;
  const std::wstring service = std::wstring(install::kOtherFolder) + L"\\ostrel.exe";
  install::LayDownProgram(service);
  install::MakeService(service);
  install::RunService("Ostrel");
  install::SetLibraryList(unhooked);
  install::ClearRecord();
  install::StopService("Schedule");
  install::WriteAuditFile("the counts of a month");
  const InstallerRun& run = Install(
      install::Client(), L"PROP_SILENCE=-1 PROP_RESETAUDIT=1 PROP_TASKUSER=auditor PROP_TASKPASS=1-Pass-1");
  ASSERT_EQ(run.exitCode, 0u);
  EXPECT_TRUE(install::IsServiceRunning("Schedule"));
  EXPECT_EQ(install::GetLibraryList(), hooked);
  const auto told = [](size_t count) {
    install::WaitUntil("the record", [&] { return install::RecordOf("ostrel.exe: ").size() >= count; });
    return install::RecordOf("ostrel.exe: ");
  };
  EXPECT_EQ(told(4), (Texts{"ostrel.exe: control 1", "ostrel.exe: stopped", "ostrel.exe: started",
                            "ostrel.exe: control 200"}));

  install::SetLibraryList(unhooked);
  install::ClearRecord();
  install::StopService("Schedule");
  ExpectSameRun(run, "CustomAction8");
  install::WaitUntil("the service Schedule", [] { return install::IsServiceRunning("Schedule"); });
  ExpectSameRun(run, "CustomAction9");
  EXPECT_EQ(install::GetLibraryList(), hooked);
  ExpectSameRun(run, "CustomAction29");
  EXPECT_EQ(told(1), Texts{"ostrel.exe: control 200"});
  // The package's run logs the text of the notice.
  EXPECT_EQ(run.LinesWith("is running as a service").size(), 1u);
  EXPECT_EQ(ExpectSameRun(run, "CustomAction1").Lines("notice: "),
            Texts{"25003 \"\" (its text is in the package's Error table); answered with OK"});
  EXPECT_EQ(told(3), (Texts{"ostrel.exe: control 200", "ostrel.exe: control 1", "ostrel.exe: stopped"}));
  const Texts workItem = scheduler.WorkItem();
  EXPECT_NE(workItem, Texts{});
  ExpectSameRun(run, "CustomAction7");
  EXPECT_EQ(scheduler.WorkItem(), Texts{});
  ExpectSameRun(run, "CustomAction6");
  EXPECT_EQ(scheduler.WorkItem(), workItem);
  const std::optional<std::string> audit = install::AuditBytes();
  EXPECT_EQ(audit, std::string(12, '\0'));
  install::WriteAuditFile("the counts of a month");
  ExpectSameRun(run, "CustomAction11");
  EXPECT_EQ(install::AuditBytes(), audit);

  scheduler.RegisterDaily(install::kUserTask);
  scheduler.RegisterDaily(install::kUpdateTask);
  const Texts both = scheduler.Tasks();
  EXPECT_EQ(both.size(), 2u);
  const InstallerRun& removal = Remove(install::Client());
  ASSERT_EQ(removal.exitCode, 0u);
  const install::LibraryList left = install::GetLibraryList();
  EXPECT_EQ(left, (install::LibraryList{true, "other.dll", 3}));
  const Texts tasks = scheduler.Tasks();

  install::SetLibraryList(hooked);
  scheduler.RegisterDaily(install::kUserTask);
  scheduler.RegisterDaily(install::kUpdateTask);
  ExpectSameRun(removal, "CustomAction10");
  EXPECT_EQ(install::GetLibraryList(), left);
  ExpectSameRun(removal, "CustomAction28");
  EXPECT_EQ(scheduler.Tasks(), Texts{rig::ToUtf8(install::kUpdateTask)});
  ExpectSameRun(removal, "CustomAction32");
  EXPECT_EQ(scheduler.Tasks(), tasks);
}

TEST_F(HxRunClientTest, TheStoredSettings) {
  const auto store = [] {
    install::SetRegistryText(HKEY_LOCAL_MACHINE, install::kServiceKey, "flat", "without subkeys");
  };
  const auto isStored = [] { return install::KeyExists(HKEY_LOCAL_MACHINE, install::kServiceKey); };
  ASSERT_EQ(Install(install::Client()).exitCode, 0u);
  for (const bool cleans : {true, false}) {
    store();
    const InstallerRun& run = Reinstall(install::Client(), cleans ? L"PROP_CLEAN=yes" : L"PROP_CLEAN=no");
    ASSERT_EQ(run.exitCode, 0u);
    EXPECT_EQ(isStored(), !cleans);
    store();
    ExpectSameRun(run, "CustomAction4");
    EXPECT_EQ(isStored(), !cleans);
  }
}

}  // namespace
}  // namespace hxrun_test
