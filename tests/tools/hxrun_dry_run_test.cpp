// Dry runs: for each entry point the machine is the same afterwards; and what is listed for each kind of
// change.
#include <gtest/gtest.h>

#include "hxrun/entry_points.h"
#include "install/machine_state.h"
#include "rig/print.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {
namespace {

using Texts = std::vector<std::string>;

constexpr wchar_t kGiven[] = L"C:\\hxrun-given";
constexpr char kWindowsKey[] = "Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows";

// The command line of an entry point for which this machine is arranged: where it can, it would change
// something.
std::wstring CommandOf(const std::string& name) {
  static const std::map<std::string, const wchar_t*> given = {
      {"CustomAction4", L"CustomAction4 PROP_CLEAN=yes"},
      {"CustomAction5", L"CustomAction5 PROP_FIREWALLDATA=\"Vantor@tcp/C:\\hxrun-given\\vt.exe\""},
      {"CustomAction6",
       L"CustomAction6 PROP_TASKUSER=root PROP_TASKPASS=secret DIR_CLIENT=C:\\hxrun-given\\"},
      {"CustomAction15",
       L"CustomAction15 --data \"hxsetup -mobl \\\"C:\\hxrun-given\\A\\.\\\" "
       L"\\\"C:\\hxrun-given\\B\\.\\\"\""},
      {"CustomAction16",
       L"CustomAction16 --data \"hxsetup -ckrnil \\\"C:\\hxrun-given\\A\\.\\\" "
       L"\\\"C:\\hxrun-given\\B\\.\\\"\""},
      {"CustomAction17", L"CustomAction17 --data -C:\\hxrun-given\\A\\"},
      {"CustomAction19", L"CustomAction19 PROP_FIREWALLDATA=\"Vantor@tcp/C:\\hxrun-given\\vt.exe\""},
      {"CustomAction20", L"CustomAction20 DIR_SERVER=C:\\hxrun-given\\A\\ DIR_UPG=Previous"},
      {"CustomAction22", L"CustomAction22 DIR_DATAFOLDER=C:\\hxrun-given\\A\\ PROP_UPGRADE=1"},
      {"CustomAction23", L"CustomAction23 PROP_ACCOUNTTYPE=1 PROP_ACCOUNTID=hxmeter"},
      {"CustomAction24", L"CustomAction24 PROP_ACCOUNTID=hxmeter PROP_ACCOUNTNAME=hxmeter"},
      {"CustomAction25", L"CustomAction25 --data Users*C:\\hxrun-given\\A"},
      {"CustomAction27", L"CustomAction27 DIR_CLIENT=C:\\hxrun-given\\"},
      {"CustomAction30",
       L"CustomAction30 ProductCode={11111111-2222-3333-4444-555555555555} PROP_VERSION=7.1"},
      {"CustomAction31",
       L"CustomAction31 DIR_CLIENT=C:\\hxrun-given\\ DIR_APPDATA=C:\\hxrun-given\\ PROP_UPDATEINTERVAL=3"},
      {"CustomAction33", L"CustomAction33 --data \"rwx*Schedule*C:\\hxrun-given\\A\""},
      {"CustomAction36", L"CustomAction36 --data \"DefaultInstall 128 C:\\hxrun-given\\x.inf\""},
      {"CustomAction37", L"CustomAction37 PROP_COMPONENT=Schedule"},
      {"CustomAction38", L"CustomAction38 DIR_CLIENT=C:\\hxrun-given\\"},
  };
  auto found = given.find(name);
  return found == given.end() ? rig::ToWide(name) : found->second;
}

void SetValue(HKEY root, const char* path, const char* name, const char* value) {
  HKEY key;
  ASSERT_EQ(RegCreateKeyExA(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
  RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                 static_cast<DWORD>(strlen(value) + 1));
  RegCloseKey(key);
}

// Starts or stops the service of the Task Scheduler.
void SetSchedulerRuns(bool runs) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE service = OpenServiceW(manager, L"Schedule", SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS);
  SERVICE_STATUS status = {};
  if (runs) {
    StartServiceW(service, 0, nullptr);
  } else {
    ControlService(service, SERVICE_CONTROL_STOP, &status);
  }
  const DWORD wanted = runs ? SERVICE_RUNNING : SERVICE_STOPPED;
  for (int look = 0; look < 300 && status.dwCurrentState != wanted; ++look) {
    Sleep(100);
    QueryServiceStatus(service, &status);
  }
  EXPECT_EQ(status.dwCurrentState, wanted);
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

constexpr char kUninstallKey[] =
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{11111111-2222-3333-4444-555555555555}";
constexpr char kSettingsKey[] = "Software\\Quillfern\\Ostrel\\logon";

class HxRunDryRunTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    LayDownHxRun();
    WriteBytes(std::wstring(kGiven) + L"\\A\\f.txt", "one");
    WriteBytes(std::wstring(kGiven) + L"\\A\\sub\\g.txt", "two");
    WriteBytes(std::wstring(kGiven) + L"\\A\\sub\\deep\\h.txt", "three");
    CreateDirectoryW((std::wstring(kGiven) + L"\\B").c_str(), nullptr);
    WriteBytes(L"C:\\ProgramData\\Ostrel Audit", "an audit of many bytes");
    SetValue(HKEY_LOCAL_MACHINE, kWindowsKey, "AppInit_DLLs", "OTHER.DLL OSTRACK.DLL");
    SetValue(HKEY_LOCAL_MACHINE, kUninstallKey, "DisplayName", "Example");
  }
  static void TearDownTestSuite() {
    DeleteFolder(kGiven);
    DeleteFolder(kRunFolder);
    DeleteFileW(L"C:\\ProgramData\\Ostrel Audit");
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, kUninstallKey);
    RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, kWindowsKey, "AppInit_DLLs");
  }

  // Runs the entry point without a change and returns what it prints.
  static HxRun DryRun(const std::string& name) { return RunHxRun(L"--dry-run " + CommandOf(name)); }

  // Returns what it prints after the first lines.
  static std::string StoryOf(const std::string& name) { return DryRun(name).Story(); }
};

TEST_F(HxRunDryRunTest, ChangesNothingAndShowsItsCalls) {
  // Windows itself writes files when a program first uses it.
  DryRun("CustomAction27");
  const install::MachineState before = install::MachineState::Now();
  for (const hxrun::EntryPoint& entry : hxrun::EntryPoints()) {
    SCOPED_TRACE(entry.name);
    const HxRun run = RunHxRun(L"--dry-run --trace " + CommandOf(entry.name));
    EXPECT_TRUE(run.status == 0 || run.status == 3 || run.status == 4)
        << run.status << run.output << run.errors;
    EXPECT_EQ(run.errors, "");
    EXPECT_FALSE(run.Lines("call: ").empty()) << run.output;
    EXPECT_EQ(install::MachineState::Now().Since(before), "");
  }
}

TEST_F(HxRunDryRunTest, TheFirstLinesSayWhoRunsWhat) {
  const HxRun run = DryRun("CustomAction12");
  EXPECT_EQ(run.Lines("run as "),
            Texts{"HXSETUP\\root, not by the installer: rights and registry views may differ"});
  const Texts second = run.Lines("CustomAction12 of hxsetup.dll ");
  ASSERT_EQ(second.size(), 1u);
  EXPECT_EQ(second[0].substr(second[0].find(',')), ", immediate, dry run: nothing is changed");
}

TEST_F(HxRunDryRunTest, MovesAFolderAside) {
  const HxRun run = DryRun("CustomAction15");
  const Texts changes = run.Changes();
  ASSERT_EQ(changes.size(), 2u) << run.output;
  const std::string aside = "move C:\\hxrun-given\\B to C:\\hxrun-given\\B ";
  EXPECT_EQ(changes[0].substr(0, aside.size()), aside);
  EXPECT_EQ(changes[1], "move C:\\hxrun-given\\A to C:\\hxrun-given\\B");
  EXPECT_EQ(run.Lines("returned "), Texts{"0: success, if all of this succeeds"});
}

TEST_F(HxRunDryRunTest, CopiesATree) {
  EXPECT_EQ(StoryOf("CustomAction16"),
            "what would be done, in order:\n"
            "  would fail to create the folder C:\\hxrun-given\\B (error 183)\n"
            "  would copy C:\\hxrun-given\\A\\f.txt to C:\\hxrun-given\\B\\f.txt\n"
            "  would create the folder C:\\hxrun-given\\B\\sub\n"
            "  would create the folder C:\\hxrun-given\\B\\sub\\deep\n"
            "  would copy C:\\hxrun-given\\A\\sub\\deep\\h.txt to C:\\hxrun-given\\B\\sub\\deep\\h.txt\n"
            "  would copy C:\\hxrun-given\\A\\sub\\g.txt to C:\\hxrun-given\\B\\sub\\g.txt\n"
            "returned 0: success, if all of this succeeds\n");
}

TEST_F(HxRunDryRunTest, EndsWhereTheRestDepends) {
  const HxRun run = RunHxRun(
      L"--dry-run CustomAction16 --data \"hxsetup -crn \\\"C:\\hxrun-given\\A\\.\\\" "
      L"\\\"C:\\hxrun-given\\new\\.\\\"\"");
  EXPECT_EQ(run.status, 4u);
  EXPECT_EQ(
      run.Story(),
      "what would be done, in order:\n"
      "  would create the folder C:\\hxrun-given\\new\n"
      "the rest depends on this change: create the folder C:\\hxrun-given\\new (FindFirstFileW asks for what "
      "it would have changed)\n");
}

TEST_F(HxRunDryRunTest, AChangeThatWouldFailFails) {
  const HxRun run = RunHxRun(
      L"--dry-run CustomAction15 --data \"hxsetup -m \\\"C:\\hxrun-given\\none\\.\\\" "
      L"\\\"C:\\hxrun-given\\x\\.\\\"\"");
  EXPECT_EQ(run.status, 3u);
  EXPECT_EQ(run.Story(),
            "nothing would be changed, because these calls would fail:\n"
            "  would fail to move C:\\hxrun-given\\none to C:\\hxrun-given\\x (error 2)\n"
            "returned 1603: ends the installation with an error\n");
}

// The installer's process runs in the system folder.
TEST_F(HxRunDryRunTest, RelativePathsAreThoseOfTheInstallersProcess) {
  WriteBytes(std::wstring(kRunFolder) + L"\\here\\f.txt", "x");
  const HxRun run =
      RunHxRun(L"--dry-run CustomAction15 --data \"hxsetup -m \\\"here\\.\\\" \\\"\\there\\.\\\"\"");
  EXPECT_EQ(run.Lines("  would fail to move "), Texts{"C:\\windows\\system32\\here to C:\\there (error 2)"})
      << run.output;
  DeleteFolder(std::wstring(kRunFolder) + L"\\here");
}

// A folder above one that would have been moved, and what lies in it.
TEST_F(HxRunDryRunTest, ALookAtTheFolderAboveAChangeDependsOnIt) {
  const HxRun run = RunHxRun(
      L"--dry-run CustomAction16 --data \"hxsetup -crn \\\"C:\\hxrun-given\\.\\\" "
      L"\\\"C:\\hxrun-given\\A\\sub\\deep\\.\\\"\"");
  EXPECT_EQ(run.status, 4u) << run.output;
  EXPECT_EQ(
      run.Lines("the rest depends on this change: "),
      Texts{"create the folder C:\\hxrun-given\\A\\sub\\deep\\A (FindFirstFileW asks for what it would have "
            "changed)"})
      << run.output;
}

// The same folder by its long and by its short name.
TEST_F(HxRunDryRunTest, KnowsAFolderByItsShortName) {
  const std::wstring folder = std::wstring(kGiven) + L"\\A long name";
  WriteBytes(folder + L"\\Old\\f.txt", "x");
  wchar_t given[MAX_PATH];
  ASSERT_NE(GetShortPathNameW(folder.c_str(), given, MAX_PATH), 0u);
  const std::wstring brief = given;
  ASSERT_NE(brief, folder);
  const HxRun run = RunHxRun(L"--dry-run CustomAction15 --data \"hxsetup -mo \\\"" + brief +
                             L"\\Old\\.\\\" \\\"" + folder + L"\\Old\\.\\\"\"");
  EXPECT_EQ(run.Lines("  would "), (Texts{"delete C:\\hxrun-given\\A long name\\Old\\f.txt",
                                          "delete the folder C:\\hxrun-given\\A long name\\Old",
                                          "fail to move " + rig::ToUtf8(brief) +
                                              "\\Old to C:\\hxrun-given\\A long name\\Old (error 2)"}))
      << run.output;
  DeleteFolder(folder);
}

TEST_F(HxRunDryRunTest, DeletesATree) {
  const HxRun run = RunHxRun(
      L"--dry-run CustomAction15 --data \"hxsetup -mo \\\"C:\\hxrun-given\\B\\.\\\" "
      L"\\\"C:\\hxrun-given\\A\\.\\\"\"");
  EXPECT_EQ(run.Changes(),
            (Texts{"delete C:\\hxrun-given\\A\\f.txt", "delete C:\\hxrun-given\\A\\sub\\deep\\h.txt",
                   "delete the folder C:\\hxrun-given\\A\\sub\\deep", "delete C:\\hxrun-given\\A\\sub\\g.txt",
                   "delete the folder C:\\hxrun-given\\A\\sub", "delete the folder C:\\hxrun-given\\A",
                   "move C:\\hxrun-given\\B to C:\\hxrun-given\\A"}))
      << run.output;
}

TEST_F(HxRunDryRunTest, WorksOutFoldersWithoutAChange) {
  EXPECT_EQ(StoryOf("CustomAction20"),
            "set: DIR_EXSERVER = \"C:\\hxrun-given\\A\\\" (was not set)\n"
            "set: DIR_EXDATA = \"\" (was not set)\n"
            "set: DIR_UPG = \"C:\\hxrun-given\\Previous\\\" (was \"Previous\")\n"
            "set: DIR_UPG_DATA = \"C:\\hxrun-given\\Previous\\\" (was not set)\n"
            "set: DIR_UPG_HELPERDATA = \"C:\\hxrun-given\\Previous\\\" (was not set)\n"
            "set: DIR_UPG_VRDF = \"C:\\hxrun-given\\Previous\\\" (was not set)\n"
            "set: DIR_UPG_VRDF_PREFS = \"C:\\hxrun-given\\Previous\\\" (was not set)\n"
            "nothing would be changed\n"
            "returned 0: success\n");
}

TEST_F(HxRunDryRunTest, CreatesAnAccount) {
  EXPECT_EQ(
      RunHxRun(L"--dry-run CustomAction23 PROP_ACCOUNTTYPE=1 PROP_ACCOUNTID=hxmeter PROP_ACCOUNTDESC=\"The "
               L"meter\"")
          .Story(),
      "log: Hx Setup Log: creating local service account hxmeter\n"
      "set: PROP_ACCOUNTNAME = \"hxmeter\" (was not set)\n"
      "set: PROP_ACCOUNTPASS = \"<password>\" (was not set)\n"
      "what would be done, in order:\n"
      "  would create the account hxmeter (The meter) with a new password\n"
      "the rest depends on this change: create the account hxmeter (The meter) with a new password "
      "(LookupAccountNameW asks for what it would have changed)\n");
}

// The engine of these tests has neither logon triggers nor idle settings.
TEST_F(HxRunDryRunTest, RegistersTasks) {
  EXPECT_EQ(StoryOf("CustomAction27"),
            "log: Hx Setup Log: Task install failed:  -16\n"
            "what would be done, in order:\n"
            "  would create the folder of the Task Scheduler \\Quillfern\n"
            "returned 0: success, if all of this succeeds\n");
  EXPECT_EQ(StoryOf("CustomAction31"),
            "log: Hx Setup Log: Task install failed:  -19\n"
            "what would be done, in order:\n"
            "  would create the folder of the Task Scheduler \\Quillfern\n"
            "returned 0: success, if all of this succeeds\n");
}

TEST_F(HxRunDryRunTest, ChangesTheRegistry) {
  EXPECT_EQ(DryRun("CustomAction10").Changes(),
            Texts{"set the value AppInit_DLLs of HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows "
                  "NT\\CurrentVersion\\Windows to \"OTHER.DLL\""});
  EXPECT_EQ(DryRun("CustomAction9").Changes(),
            Texts{"set the value LoadAppInit_DLLs of HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows "
                  "NT\\CurrentVersion\\Windows to 1"});
}

TEST_F(HxRunDryRunTest, EmptiesAFile) {
  EXPECT_EQ(DryRun("CustomAction11").Changes(), (Texts{"cut C:\\ProgramData\\Ostrel Audit to 0 bytes",
                                                       "write 12 bytes to C:\\ProgramData\\Ostrel Audit: "
                                                       "\"\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0\""}));
}

TEST_F(HxRunDryRunTest, AddsFirewallRules) {
  const HxRun run = DryRun("CustomAction5");
  const std::string rule = "add the rule to the firewall: @C:\\hxrun-given\\vt.exe,-1000";
  EXPECT_EQ(run.Changes(), Texts{rule}) << run.output;
  EXPECT_EQ(run.Lines("    INetFwRule.put_Name"), Texts{"(\"@C:\\\\hxrun-given\\\\vt.exe,-1000\") = 0"});
  // The engine of these tests cannot look a rule up.
  EXPECT_EQ(run.Lines("the rest depends on this change: "),
            Texts{rule + " (nothing shows whether it would succeed)"});
  EXPECT_EQ(
      StoryOf("CustomAction19"),
      "log: Hx Setup Log: removing complex firewall rules\n"
      "what would be done, in order:\n"
      "  would remove from the firewall the rule @C:\\hxrun-given\\vt.exe,-1000\n"
      "the rest depends on this change: remove from the firewall the rule @C:\\hxrun-given\\vt.exe,-1000 "
      "(nothing shows whether it would succeed)\n");
}

TEST_F(HxRunDryRunTest, ReplacesAnAccessList) {
  EXPECT_EQ(DryRun("CustomAction25").Changes(),
            Texts{"replace the access list of C:\\hxrun-given\\A by D:(A;OICI;GA;;;BU)"});
  EXPECT_EQ(
      RunHxRun(L"--dry-run CustomAction25 --data Users*C:\\hxrun-given\\none").Story(),
      "log: Hx Setup Log: setting ACL for Users on Users\n"
      "log: Hx Setup Log: failure 2 (0x00000002) setting ACL for Users\n"
      "nothing would be changed, because these calls would fail:\n"
      "  would fail to replace the access list of C:\\hxrun-given\\none by D:(A;OICI;GA;;;BU) (error 2)\n"
      "returned 0: success\n");
}

TEST_F(HxRunDryRunTest, RunsASection) {
  EXPECT_EQ(StoryOf("CustomAction36"),
            "log: Hx Setup Log: InstallHinfSection(DefaultInstall 128 C:\\hxrun-given\\x.inf)\n"
            "nothing would be changed, because these calls would fail:\n"
            "  would fail to run the section of a setup information file: DefaultInstall 128 "
            "C:\\hxrun-given\\x.inf (error 2)\n"
            "returned 0: success\n");
  WriteBytes(std::wstring(kGiven) + L"\\y.inf", "[DefaultInstall]\r\n");
  EXPECT_EQ(
      RunHxRun(L"--dry-run CustomAction36 --data \"DefaultInstall 128 C:\\hxrun-given\\y.inf\"").Changes(),
      Texts{"run the section of a setup information file: DefaultInstall 128 C:\\hxrun-given\\y.inf"});
  DeleteFileW((std::wstring(kGiven) + L"\\y.inf").c_str());
}

TEST_F(HxRunDryRunTest, SavesAWorkItemOrStartsItsServiceFirst) {
  SetSchedulerRuns(true);
  EXPECT_EQ(StoryOf("CustomAction6"),
            "what would be done, in order:\n"
            "  would save the work item C:\\windows\\Tasks\\Ostrel.job\n"
            "    ITask.SetApplicationName(\"C:\\\\hxrun-given\\\\ostrel32.exe\") = 0\n"
            "    ITask.SetParameters(\"-auditmode\") = 0\n"
            "    ITask.SetAccountInformation(\"root\", \"<password>\") = 0\n"
            "    ITaskTrigger.SetTrigger(*) = 0\n"
            "returned 0: success, if all of this succeeds\n");
  // Windows refuses the work item of an account that it does not find.
  const HxRun unknown = RunHxRun(
      L"--dry-run CustomAction6 PROP_TASKUSER=nobody PROP_TASKPASS=secret DIR_CLIENT=C:\\hxrun-given\\");
  EXPECT_EQ(unknown.status, 4u);
  EXPECT_EQ(
      unknown.Lines("the rest depends on this change: "),
      Texts{"save the work item C:\\windows\\Tasks\\Ostrel.job (nothing shows whether it would succeed)"});
  EXPECT_EQ(StoryOf("CustomAction7"),
            "nothing would be changed, because these calls would fail:\n"
            "  would fail to delete the work item Ostrel (error 0x80070002)\n"
            "returned 0: success\n");
  SetSchedulerRuns(false);
  EXPECT_EQ(
      StoryOf("CustomAction6"),
      "what would be done, in order:\n"
      "  would start the service Schedule\n"
      "the rest depends on this change: start the service Schedule (CoCreateInstance asks for what it would "
      "have changed)\n");
  SetSchedulerRuns(true);
}

}  // namespace
}  // namespace hxrun_test
