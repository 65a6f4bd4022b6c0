// Installs and removes the two packages of the authors' guide, exactly as they are on its page, and compares
// the whole machine before and after.

#include "install/agent_scheduler.h"
#include "install/machine_state.h"
#include "install/security_rig.h"

namespace install {
namespace {

// Appends the lines for an entry in the list of installed programs, which follow the product's name.
void AppendListed(Texts& lines, const Package& package, const std::string& name, const std::string& shown) {
  lines.push_back("+ " + UninstallKey(name));
  lines.push_back("+ " + UninstallKey(name) + "Comments = \"\"");
  lines.push_back("+ " + UninstallKey(name) + "DisplayName = \"" + shown + "\"");
  lines.push_back("+ " + UninstallKey(name) + "DisplayVersion = \"" + package.version + "\"");
  lines.push_back("+ " + UninstallKey(name) + "Publisher = \"Halvorstead\"");
}

// Appends the lines for the registry key of the service that the package installs, up to "ObjectName" and
// "PreshutdownTimeout".
void AppendService(Texts& lines, const std::string& name, const std::string& program,
                   const std::string& account) {
  const std::string key = "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\" + name + "\\";
  for (const std::string& line :
       {std::string(), "DisplayName = \"" + name + "\"", std::string("ErrorControl = 1"),
        "ImagePath = \"" + program + "\"", "ObjectName = \"" + account + "\"",
        std::string("PreshutdownTimeout = 180000")})
    lines.push_back(key + line);
}

class GuideClientTest : public AgentTest {
 protected:
  void SetUp() override {
    AgentTest::SetUp();
    // An earlier test may have left it, as every removal does.
    RemoveDirectoryW(L"C:\\Program Files\\Halvorstead");
    before = MachineState::Now();
  }
  void TearDown() override {
    if (GuideClient().IsInstalled()) Msiexec("clear-up", L"/x \"" + GuideClient().path + L"\" /qn");
    AgentTest::TearDown();
  }

  std::string Changes() const { return MachineState::Now().Since(before); }

  const std::string folder = FromWide(kClientFolder) + "\\";
  MachineState before;
};

TEST_F(GuideClientTest, IsInstalledAndRemoved) {
  const InstallerRun& installed = Install(GuideClient());
  ASSERT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.SetupLines(), TaskLines());
  // The package's own default, not the fragment's.
  EXPECT_EQ(installed.Property("PROP_UPDATEINTERVAL"), "7");
  EXPECT_EQ(Record(), (Texts{"ostrel.exe: started", "ostrel.exe: control 200"}));

  const std::string service = "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel\\";
  Texts changes = {"+ C:\\Program Files\\Halvorstead\\",
                   "+ " + folder,
                   "+ " + folder + "osau.exe",
                   "+ " + folder + "ostrel.exe",
                   "+ " + folder + "ostrel32.exe",
                   "+ " + folder + "osua.exe",
                   "+ C:\\windows\\system32\\tasks\\Quillfern\\",
                   "+ HKLM\\SOFTWARE\\Halvorstead\\",
                   "+ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\",
                   "+ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\Folder = \"" + folder + "\"",
                   "+ HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\Product = \"{guide-client}\""};
  AppendListed(changes, GuideClient(), "{guide-client}", "Ostrel");
  AppendService(changes, "Ostrel", folder + "ostrel.exe", "LocalSystem");
  for (const std::string& line :
       {service + "Start = 2", service + "Type = 16", "+ product {guide-client} = " + GuideClient().version,
        std::string("+ service Ostrel = running")})
    changes.push_back(line);
  EXPECT_EQ(Changes(), Joined(Expected(changes)));

  const InstallerRun& removed = Remove(GuideClient());
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(removed.SetupLines(), RemovalLines());
  EXPECT_EQ(Changes(),
            ByEngine<std::string>(Differs::kEmptyFolders, "+ C:\\Program Files\\Halvorstead\\\n", ""));
}

class GuideServerTest : public SecurityTest {
 protected:
  void TearDown() override {
    if (GuideServer().IsInstalled()) Msiexec("clear-up", L"/x \"" + GuideServer().path + L"\" /qn");
    SecurityTest::TearDown();
  }

  const std::string folder = FromWide(server) + "\\", data = FromWide(outsideData) + "\\";
};

// With the guide's command line: an account of the server's own, and the data elsewhere. The data exist
// already, in a format that the example's converter changes.
TEST_F(GuideServerTest, IsInstalledWithAnAccountOverItsDataAndRemoved) {
  WriteTree(outsideData, {{"format.txt", "1\r\n"}, {"counts.dat", "17"}});
  const MachineState before = MachineState::Now();
  const InstallerRun& installed =
      Install(GuideServer(), L"PROP_ACCOUNTTYPE=1 DIR_DATAFOLDER=\"" + outsideData + L"\"");
  ASSERT_EQ(installed.exitCode, 0u);
  const std::string account = ComputerName() + "\\vantor";
  EXPECT_EQ(installed.SetupLines(),
            Expected({SetupLine("creating local service account vantor"),
                      SetupLine("could not grant right to logon as service"),
                      SetupLine("setting ACL for " + account + " on " + account),
                      SetupLine("failure -36 (0xFFFFFFDC) setting ACL for " + account),
                      SetupLine("set ACL (-36) for " + account + "=500 on " + FromWide(server)),
                      SetupLine("installing complex firewall rules")}));
  EXPECT_EQ(RecordOf("vt.exe: "), Texts{"vt.exe: started"});
  EXPECT_EQ(ReadTree(outsideData), (Tree{{"format.txt", "2\r\n"}, {"counts.dat", "17"}}));

  const std::string service = "+ HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vantor\\",
                    vantor = "+ HKLM\\SOFTWARE\\Halvorstead\\Vantor\\";
  Texts changes = {"+ " + FromWide(programs) + "\\",
                   "+ " + folder,
                   "+ " + folder + "dbcon.cmd",
                   "+ " + folder + "vt.exe",
                   "~ " + data + "format.txt",
                   "+ HKLM\\SOFTWARE\\Halvorstead\\",
                   vantor,
                   vantor + "Account = \"vantor\"",
                   vantor + "AccountDomain = \".\"",
                   vantor + "Product = \"{guide-server}\"",
                   vantor + "ServerFolder = \"" + folder + "\""};
  AppendListed(changes, GuideServer(), "{guide-server}", "Vantor Server");
  AppendService(changes, "Vantor", folder + "vt.exe", account);
  for (const std::string& line :
       {service + "Settings\\", service + "Settings\\vtdf = \"" + data + "\"", service + "Start = 2",
        service + "Type = 16", "+ product {guide-server} = " + GuideServer().version,
        std::string("+ service Vantor = running")})
    changes.push_back(line);
  EXPECT_EQ(MachineState::Now().Since(before), Joined(Expected(changes)));

  const InstallerRun& removed = Remove(GuideServer());
  EXPECT_EQ(removed.exitCode, 0u);
  EXPECT_EQ(removed.SetupLines(), (Texts{SetupLine("removing complex firewall rules"),
                                         SetupLine("deleting local service account vantor")}));
  // The data stay, and so does the value with the server's folder.
  Texts left = ByEngine(Differs::kEmptyFolders, Texts{"+ " + FromWide(programs) + "\\"}, Texts());
  for (const std::string& line : {"~ " + data + "format.txt", std::string("+ HKLM\\SOFTWARE\\Halvorstead\\"),
                                  vantor, vantor + "ServerFolder = \"" + folder + "\""})
    left.push_back(line);
  EXPECT_EQ(MachineState::Now().Since(before), Joined(left));
}

}  // namespace
}  // namespace install
