// Whole lives of a server package. Each run compares the whole machine before and after.

#include "install/machine_state.h"
#include "install/security_rig.h"

namespace install {
namespace {

// A server's data, in the format that the converter knows or in another.
Tree Data(const std::string& format) {
  return {{"format.txt", OlderData(format)["format.txt"]},
          {"Helper Data\\", ""},
          {"Helper Data\\counts.dat", "17"}};
}

// Returns the lines for what an installation of the server adds besides files: in its registry, with the
// service's account and the value for the created account.
Texts Registered(const std::string& folder, const std::string& data, const std::string& account,
                 const std::string& made) {
  const std::string services = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\";
  const std::string source = services + "Eventlog\\Application\\Vantor\\", service = services + "Vantor\\";
  return Expected({
      "+ HKLM\\SOFTWARE\\Halvorstead\\",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\Account = \"" + made + "\"",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\AccountDomain = \"" + std::string(made.empty() ? "" : ".") +
          "\"",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\Product = \"{server}\"",
      "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\ServerFolder = \"" + folder + "\"",
      "+ " + UninstallKey("{server}"),
      "+ " + UninstallKey("{server}") + "Comments = \"Software metering server\"",
      "+ " + UninstallKey("{server}") + "DisplayName = \"Vantor Server\"",
      "+ " + UninstallKey("{server}") + "DisplayVersion = \"" + Server().version + "\"",
      "+ " + UninstallKey("{server}") + "Publisher = \"Halvorstead\"",
      "+ " + source,
      "+ " + source + "EventMessageFile = \"" + folder + "vt.exe\"",
      "+ " + source + "TypesSupported = 7",
      "+ " + service,
      "+ " + service + "Description = \"Software metering server\"",
      "+ " + service + "DisplayName = \"Vantor\"",
      "+ " + service + "ErrorControl = 1",
      "+ " + service + "ImagePath = \"" + folder + "vt.exe\"",
      "+ " + service + "ObjectName = \"" + account + "\"",
      "+ " + service + "PreshutdownTimeout = 180000",
      "+ " + service + "Settings\\",
      "+ " + service + "Settings\\vtdf = \"" + data + "\"",
      "+ " + service + "Start = 2",
      "+ " + service + "Type = 16",
      "+ product {server} = " + Server().version,
      "+ service Vantor = running",
  });
}

class ServerLivesTest : public SecurityTest {
 protected:
  void SetUp() override {
    SecurityTest::SetUp();
    // An earlier test may have left it, as every removal does.
    RemoveDirectoryW(programs.c_str());
    before = MachineState::Now();
  }
  void TearDown() override {
    DeleteTree(L"C:\\Metering");
    SecurityTest::TearDown();
  }

  std::string Changes() const { return MachineState::Now().Since(before); }

  const std::string folder = FromWide(server) + "\\", previous = FromWide(aside) + "\\";
  MachineState before;
};

TEST_F(ServerLivesTest, FromTheUpgradeToTheRemoval) {
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  WriteTree(server + L"\\Data", Data("1"));
  const MachineState older = MachineState::Now();

  ASSERT_EQ(Install(Server()).exitCode, 0u);
  const MachineState upgraded = MachineState::Now();
  Texts changes = {
      "+ " + previous,
      "+ " + previous + "Data\\",
      "+ " + previous + "Data\\Helper Data\\",
      "+ " + previous + "Data\\Helper Data\\counts.dat",
      "+ " + previous + "Data\\format.txt",
      "+ " + previous + "older readme.txt",
      "+ " + previous + "vt.exe",
      // The data are converted.
      "~ " + folder + "Data\\format.txt",
      "+ " + folder + "dbcon.cmd",
      "- " + folder + "older readme.txt",
      "+ " + folder + "vantor.inf",
      "~ " + folder + "vt.exe",
  };
  for (const std::string& line : Registered(folder, folder + "Data\\", "LocalSystem", "")) {
    // The older server had these.
    if (line == "+ HKLM\\SOFTWARE\\Halvorstead\\" || line == "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\" ||
        line.find("ServerFolder") != std::string::npos) {
      continue;
    }
    if (line == "+ " + UninstallKey("{server}")) changes.push_back("- " + UninstallKey("{server-older}"));
    if (line.rfind("+ product", 0) == 0) changes.push_back("- product {server-older}");
    changes.push_back(line);
  }
  EXPECT_EQ(upgraded.Since(older), Joined(changes));

  // A repair restores lost and changed items.
  DeleteFileW((server + L"\\dbcon.cmd").c_str());
  WriteTree(server, {{"vantor.inf", "damaged"}});
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kEventSourceKey);
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Halvorstead");
  ASSERT_EQ(Reinstall(Server(), L"REINSTALLMODE=amus").exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(upgraded), "");

  // Other options do not matter: an existing service keeps its account.
  ASSERT_EQ(Install(Server(), L"PROP_ACCOUNTTYPE=1 PROP_SILENCE=-1").exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(upgraded), "");

  // The folders of an installed server come from the registry.
  ASSERT_EQ(Reinstall(Server(), L"DIR_DATAFOLDER=\"C:\\Vantor Store\\Data\"").exitCode, 0u);
  EXPECT_EQ(MachineState::Now().Since(upgraded), "");

  // Both servers' data stay, and so does the value with the server's folder.
  ASSERT_EQ(Remove(Server()).exitCode, 0u);
  EXPECT_EQ(Changes(),
            Joined({"+ " + FromWide(programs) + "\\", "+ " + previous, "+ " + previous + "Data\\",
                    "+ " + previous + "Data\\Helper Data\\",
                    "+ " + previous + "Data\\Helper Data\\counts.dat", "+ " + previous + "Data\\format.txt",
                    "+ " + previous + "older readme.txt", "+ " + previous + "vt.exe", "+ " + folder,
                    "+ " + folder + "Data\\", "+ " + folder + "Data\\Helper Data\\",
                    "+ " + folder + "Data\\Helper Data\\counts.dat", "+ " + folder + "Data\\format.txt",
                    "+ HKLM\\SOFTWARE\\Halvorstead\\", "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\",
                    "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\ServerFolder = \"" + folder + "\""}));
}

// The data cannot be converted after the older server has been moved aside and its data copied back.
// Everything is moved back, and the copies stay next to it. Only the engine's own rollback loses something:
// the older package's value.
TEST_F(ServerLivesTest, AnUpgradeThatFailsLeavesTheOlderServer) {
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  WriteTree(server + L"\\Data", Data("9"));
  const MachineState older = MachineState::Now();
  EXPECT_EQ(Install(Server(), L"PROP_ACCOUNTTYPE=1").exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  const std::string replaced = FromWide(programs) + "\\" + NameWithTime(programs, "Vantor") + "\\",
                    copy = replaced + "Data\\";
  Texts changes = {"+ " + replaced, "+ " + copy, "+ " + copy + "Helper Data\\",
                   "+ " + copy + "Helper Data\\counts.dat", "+ " + copy + "format.txt"};
  if (!OnWindows(Differs::kRollback))
    changes.push_back("- HKLM\\SOFTWARE\\Halvorstead\\Vantor\\ServerFolder");
  EXPECT_EQ(MachineState::Now().Since(older), Joined(changes));
}

// Every public property that is an administrator's on one command line, among them other folders for the
// server and for its data, and an account of its own.
TEST_F(ServerLivesTest, UnattendedWithEveryProperty) {
  const std::map<std::string, std::string> given = {
      {"DIR_DATAFOLDER", "C:\\Vantor Store\\Data\\"},
      {"DIR_SERVER", "C:\\Metering\\Vantor\\"},
      {"DIR_UPG_HELPERDATA", "Counts"},
      {"DIR_UPG_VRDF", "Lists"},
      {"DIR_UPG_VRDF_PREFS", "Choices"},
      {"PROP_ACCOUNTDESC", "The meter's server"},
      {"PROP_ACCOUNTID", "meter"},
      {"PROP_ACCOUNTTYPE", "1"},
      {"PROP_SERVICENAME", "METER"},
      {"PROP_SILENCE", "-1"},
      {"PROP_UPGRADE", "0"},
  };
  // The properties that the engine sets for the package; and PROP_PRE75SERVER, for a package that looks for a
  // server of the earlier layout.
  const Texts own = {
      "ACCOUNTDOMAINFOUND",   "DATAFOLDERFOUND",  "SERVERFOLDERFOUND", "ACCOUNTFOUND",
      "PROP_INSTALLEDSERVER", "PROP_NEWERSERVER", "PROP_PRE75SERVER",  "PROP_UPGRADE_PRODUCTCODE",
      "SERVICEFOUND",         "NOTEDSERVER",      "NOTEDASIDE",        "NOTEDDATA",
      "NOTEDASIDEDATA"};
  const InstallerRun& run = Install(Server(), CommandLine(given));
  ASSERT_EQ(run.exitCode, 0u);
  // The package sets the names of the folders in the data folder; they need not come from dialogs.
  std::map<std::string, std::string> secure = given;
  for (const char* name : {"DIR_UPG_HELPERDATA", "DIR_UPG_VRDF", "DIR_UPG_VRDF_PREFS"}) secure.erase(name);
  EXPECT_EQ(run.Property("SecureCustomProperties"), SecureList(secure, own));
  const std::string data = given.at("DIR_DATAFOLDER");
  std::map<std::string, std::string> answered = given;
  answered["DIR_UPG_HELPERDATA"] = "C:\\Metering\\Vantor (previous)\\Data\\Counts\\";
  answered["DIR_UPG_VRDF"] = answered["DIR_UPG_HELPERDATA"] + "Lists\\";
  answered["DIR_UPG_VRDF_PREFS"] = answered["DIR_UPG_VRDF"] + "Choices\\";
  answered["PROP_ACCOUNTNAME"] = "meter";
  answered["PROP_ACCOUNTDOMAIN"] = ComputerName();
  answered["PROP_FIREWALLDATA"] = "Vantor server/C:\\Metering\\Vantor\\vt.exe";
  for (const auto& [name, value] : answered) EXPECT_EQ(run.Property(name), value) << name;

  Texts changes = {"+ C:\\Metering\\",
                   "+ C:\\Metering\\Vantor\\",
                   "+ C:\\Metering\\Vantor\\dbcon.cmd",
                   "+ C:\\Metering\\Vantor\\vantor.inf",
                   "+ C:\\Metering\\Vantor\\vt.exe",
                   "+ C:\\Vantor Store\\",
                   "+ C:\\Vantor Store\\Data\\"};
  for (const std::string& line :
       Registered("C:\\Metering\\Vantor\\", data, ComputerName() + "\\meter", "meter"))
    changes.push_back(line);
  EXPECT_EQ(Changes(), Joined(changes));

  // A command line cannot turn this into the removal of a replaced product.
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Halvorstead\\Vantor", "Product");
  ASSERT_EQ(Remove(Server(), L"PROP_INSTALLEDSERVER=another").exitCode, 0u);
  Texts left = ByEngine(Differs::kEmptyFolders, Texts{"+ C:\\Metering\\"}, Texts());
  for (const char* line :
       {"+ C:\\Vantor Store\\", "+ C:\\Vantor Store\\Data\\", "+ HKLM\\SOFTWARE\\Halvorstead\\",
        "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\",
        "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\ServerFolder = \"C:\\Metering\\Vantor\\\""})
    left.push_back(line);
  EXPECT_EQ(Changes(), Joined(left));
}

}  // namespace
}  // namespace install
