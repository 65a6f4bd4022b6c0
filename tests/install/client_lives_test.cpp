// Whole lives of a client package. Each run compares the whole machine before and after.

#include <algorithm>

#include "install/agent_scheduler.h"
#include "install/machine_state.h"

namespace install {
namespace {

// Left by every removal: the switch of the libraries' list, which others may need.
const char kLeftSwitch[] =
    "+ HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\LoadAppInit_DLLs = 1";

// All that a removal leaves: also `above`, the folder above that of the client, where the engine does not
// delete it.
Texts Left(const std::string& above = "C:\\Program Files\\Halvorstead\\") {
  return ByEngine(Differs::kEmptyFolders, Texts{"+ " + above, kLeftSwitch}, Texts{kLeftSwitch});
}

// The lines for an installation of a client into `folder`, without the folder itself.
Texts Installed(const Package& package, const std::string& name, const std::string& folder) {
  const std::string service = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\";
  return Expected({
      "+ " + folder + "about.txt",
      "+ " + folder + "osau.exe",
      "+ " + folder + "ostrel.exe",
      "+ " + folder + "ostrel32.exe",
      "+ " + folder + "osua.exe",
      "+ C:\\windows\\system32\\OSTRACK.DLL",
      "+ C:\\windows\\system32\\tasks\\Quillfern\\",
      "+ HKLM\\SOFTWARE\\Halvorstead\\",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\Folder = \"" + folder + "\"",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\Product = \"" + name + "\"",
      "+ HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\AppInit_DLLs = \"OSTRACK.DLL\"",
      "+ HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\LoadAppInit_DLLs = 1",
      "+ " + UninstallKey(name),
      "+ " + UninstallKey(name) + "Comments = \"Software metering client agent\"",
      "+ " + UninstallKey(name) + "DisplayName = \"Ostrel\"",
      "+ " + UninstallKey(name) + "DisplayVersion = \"" + package.displayVersion + "\"",
      "+ " + UninstallKey(name) + "Publisher = \"Halvorstead\"",
      "+ " + service,
      "+ " + service + "Description = \"Software metering agent\"",
      "+ " + service + "DisplayName = \"Ostrel\"",
      "+ " + service + "ErrorControl = 1",
      "+ " + service + "ImagePath = \"" + folder + "ostrel.exe\"",
      "+ " + service + "ObjectName = \"LocalSystem\"",
      "+ " + service + "PreshutdownTimeout = 180000",
      "+ " + service + "Start = 2",
      "+ " + service + "Type = 16",
      "+ product " + name + " = " + package.version,
      "+ service Ostrel = running",
  });
}

Texts operator+(Texts texts, const Texts& more) {
  texts.insert(texts.end(), more.begin(), more.end());
  return texts;
}

class ClientLivesTest : public AgentTest {
 protected:
  void SetUp() override {
    AgentTest::SetUp();
    // An earlier test may have left it, as every removal does.
    RemoveDirectoryW(L"C:\\Program Files\\Halvorstead");
    before = MachineState::Now();
  }
  void TearDown() override {
    DeleteTree(kMetering);
    AgentTest::TearDown();
  }

  // Returns the changes since the test began.
  std::string Changes() const { return MachineState::Now().Since(before); }

  const AuditAccount account{L"1-Pass-1"};
  const std::string folder = FromWide(kClientFolder) + "\\";
  const std::wstring kMetering = L"C:\\Metering";
  MachineState before;
};

TEST_F(ClientLivesTest, FromTheInstallationToTheRemoval) {
  ASSERT_EQ(Install(Client()).exitCode, 0u);
  const Texts folders = {"+ C:\\Program Files\\Halvorstead\\", "+ " + folder};
  const MachineState installed = MachineState::Now();
  EXPECT_EQ(installed.Since(before), Joined(folders + Installed(Client(), "{client}", folder)));
  // The list's name resolves to the library.
  HMODULE tracking = LoadLibraryW(L"OSTRACK.DLL");
  ASSERT_NE(tracking, nullptr);
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(tracking, path, MAX_PATH);
  EXPECT_STRCASEEQ(FromWide(path).c_str(), "C:\\windows\\system32\\OSTRACK.DLL");
  FreeLibrary(tracking);
  // Nothing else has loaded it: Windows loads only signed libraries during the tests.
  Note(Differs::kTrackingLibrary);
  EXPECT_EQ(RecordOf("OSTRACK.DLL: "), Texts{"OSTRACK.DLL: in install_tests.exe"});

  // A repair restores lost and changed items.
  StopAgentService();
  EndAgentsIn(kClientFolder);
  for (const wchar_t* lost :
       {L"C:\\windows\\system32\\OSTRACK.DLL", L"C:\\Program Files\\Halvorstead\\Ostrel\\osua.exe"})
    EXPECT_TRUE(DeleteFileW(lost));
  WriteTree(kClientFolder, {{"osau.exe", "damaged"}});
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Halvorstead\\Ostrel");
  SetLibraryList({true, "other.dll", 0});
  ASSERT_EQ(Reinstall(Client(), L"REINSTALLMODE=amus").exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(installed),
            "~ HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\AppInit_DLLs = "
            "\"other.dll OSTRACK.DLL\"\n");
  SetLibraryList({true, "OSTRACK.DLL", 1});

  // With other options the audit is registered, and its account's password is stored nowhere.
  ASSERT_EQ(Install(Client(), L"PROP_TASKUSER=auditor PROP_TASKPASS=1-Pass-1 PROP_TASKHOUR=3").exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(installed), "+ C:\\windows\\tasks\\Ostrel.job\n");

  // The next version, whose programs differ, replaces this one.
  ASSERT_EQ(Install(NewerClient()).exitCode, 0u);
  const MachineState upgraded = MachineState::Now();
  EXPECT_EQ(upgraded.Since(installed),
            Joined({"~ " + folder + "osau.exe", "~ " + folder + "ostrel.exe", "~ " + folder + "ostrel32.exe",
                    "+ C:\\windows\\tasks\\Ostrel.job",
                    "~ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\Product = \"{client-newer}\"",
                    "+ " + UninstallKey("{client-newer}"),
                    "+ " + UninstallKey("{client-newer}") + "Comments = \"Software metering client agent\"",
                    "+ " + UninstallKey("{client-newer}") + "DisplayName = \"Ostrel\"",
                    "+ " + UninstallKey("{client-newer}") + "DisplayVersion = \"" +
                        NewerClient().displayVersion + "\"",
                    "+ " + UninstallKey("{client-newer}") + "Publisher = \"Halvorstead\"",
                    "- " + UninstallKey("{client}"), "+ product {client-newer} = " + NewerClient().version,
                    "- product {client}"}));

  ASSERT_EQ(Remove(NewerClient()).exitCode, 0u);
  EXPECT_EQ(Changes(), Joined(Left()));
}

// Only the first run names the folder; every later run finds it.
TEST_F(ClientLivesTest, InAChosenFolder) {
  const std::string chosen = FromWide(kMetering) + "\\Ostrel\\";
  ASSERT_EQ(Install(Client(), L"DIR_CLIENT=\"" + kMetering + L"\\Ostrel\"").exitCode, 0u);
  const Texts folders = {"+ C:\\Metering\\", "+ " + chosen};
  EXPECT_EQ(Changes(), Joined(folders + Installed(Client(), "{client}", chosen)));
  ASSERT_EQ(Install(NewerClient()).exitCode, 0u);
  EXPECT_EQ(Changes(), Joined(folders + Installed(NewerClient(), "{client-newer}", chosen)));
  ASSERT_EQ(Remove(NewerClient()).exitCode, 0u);
  EXPECT_EQ(Changes(), Joined(Left("C:\\Metering\\")));
}

// The script fails after the hook. This engine's own rollback restores nothing: it deletes what it has
// installed, and does not restore the older files, values and service. The actions' results stay as the older
// version left them: the library in the list, the audit, the tasks' folder.
TEST_F(ClientLivesTest, AnUpgradeThatFailsLeavesWhatTheOlderVersionHad) {
  ASSERT_EQ(Install(Client(), L"PROP_TASKUSER=auditor PROP_TASKPASS=1-Pass-1").exitCode, 0u);
  const std::wstring package = std::wstring(kOtherFolder) + L"\\client.msi";
  WriteTree(kOtherFolder, {});
  ChangePackage(NewerClient().path, package, FailInScript(kBehindTheHook));
  const MachineState installed = MachineState::Now();
  EXPECT_EQ(Msiexec("failing", L"/i \"" + package + L"\" /qn").exitCode,
            static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_EQ(
      MachineState::Now().Since(installed),
      Joined(ByEngine(
          Differs::kRollback,
          Texts{"- " + folder, "- C:\\windows\\system32\\OSTRACK.DLL", "- HKLM\\SOFTWARE\\Halvorstead\\",
                "- HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\", "- service Ostrel"},
          Texts())));

  // The older version is whole again after it is installed over the rest.
  EXPECT_EQ(Reinstall(Client()).exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(installed), "");

  // The registry says that a newer version has come, and that version removes this one: what both versions
  // have belongs to the newer one. The removal runs with a log here; this engine does not write one for the
  // removal that an upgrade starts.
  SetRegistryText(HKEY_LOCAL_MACHINE, "SOFTWARE\\Halvorstead\\Ostrel", "Product", "another");
  const InstallerRun& replaced = Remove(Client());
  EXPECT_EQ(replaced.exitCode, 0u);
  EXPECT_EQ(replaced.SetupLines(), Texts{});
  DeleteTree(kOtherFolder);
  Texts left = Left();
  left.pop_back();
  for (const std::string& line :
       Expected({"+ C:\\windows\\system32\\tasks\\Quillfern\\", "+ C:\\windows\\tasks\\Ostrel.job",
                 "+ HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\AppInit_DLLs = "
                 "\"OSTRACK.DLL\"",
                 kLeftSwitch})) {
    left.push_back(line);
  }
  EXPECT_EQ(Changes(), Joined(left));
}

// Every public property of the package on one command line, as in an administrator's deployment.
TEST_F(ClientLivesTest, UnattendedWithEveryProperty) {
  const std::map<std::string, std::string> given = {
      {"DIR_CLIENT", "C:\\Metering\\Ostrel\\"},
      {"PROP_ASSETID", "A-17"},
      {"PROP_ASSETLOCATION", "Room 4"},
      {"PROP_ASSETOWNER", "Brandt"},
      {"PROP_CLEAN", "yes"},
      {"PROP_HOSTNAME", "meter.example"},
      {"PROP_RESETAUDIT", "1"},
      {"PROP_SILENCE", "-1"},
      {"PROP_SITE", "Hall 9"},
      {"PROP_TASKHOUR", "4"},
      {"PROP_TASKPARAM", "-quick"},
      {"PROP_TASKPASS", "1-Pass-1"},
      {"PROP_TASKTIME", "3600000"},
      {"PROP_TASKUSER", "auditor"},
      {"PROP_UPDATEINTERVAL", "7"},
  };
  WriteAuditFile("the counts of a month");
  before = MachineState::Now();
  const InstallerRun& run = Install(Client(), CommandLine(given));
  ASSERT_EQ(run.exitCode, 0u);
  for (const auto& [name, value] : given) EXPECT_EQ(run.Property(name), value) << name;

  // The package has no other public properties, except those that its searches set.
  EXPECT_EQ(run.Property("SecureCustomProperties"),
            SecureList(given, {"CLIENTFOLDERFOUND", "PROP_INSTALLEDCLIENT", "WIX_DOWNGRADE_DETECTED",
                               "WIX_UPGRADE_DETECTED"}));

  Texts changes = Installed(Client(), "{client}", "C:\\Metering\\Ostrel\\");
  changes.insert(changes.begin(), {"+ C:\\Metering\\", "+ C:\\Metering\\Ostrel\\"});
  changes.insert(changes.begin() + 7, "~ C:\\ProgramData\\Ostrel Audit");
  const auto keys = std::find_if(changes.begin(), changes.end(),
                                 [](const std::string& line) { return line.rfind("+ HKLM", 0) == 0; });
  changes.insert(keys, "+ C:\\windows\\tasks\\Ostrel.job");
  EXPECT_EQ(Changes(), Joined(changes));
  Scheduler scheduler;
  EXPECT_EQ(scheduler.WorkItem(),
            (Texts{"program C:\\Metering\\Ostrel\\ostrel32.exe", "parameters -quick", "at most 3600000 ms",
                   "size 48, begins 2000-1-1, ends 0-0-0, at 4:00, duration 0, interval 0, flags 0, type 1, "
                   "every 1 days, random 0"}));
  EXPECT_EQ(AuditBytes(), std::string(12, '\0'));

  // A command line cannot turn this into the removal of a replaced product.
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Halvorstead\\Ostrel", "Product");
  ASSERT_EQ(Remove(Client(), L"PROP_INSTALLEDCLIENT=another").exitCode, 0u);
  Texts left = Left("C:\\Metering\\");
  left.insert(left.end() - 1, "~ C:\\ProgramData\\Ostrel Audit");
  EXPECT_EQ(Changes(), Joined(left));
}

}  // namespace
}  // namespace install
