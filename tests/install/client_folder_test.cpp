// A client's folder that somebody has created before the installation, with their access list and files: what
// the engine keeps, and what it overwrites. This is why an administrator checks for such a folder first
// (docs/security.md).

#include "install/agent_rig.h"
#include "install/security_rig.h"

namespace install {
namespace {

class ClientFolderTest : public AgentTest {
 protected:
  void TearDown() override {
    if (Client().IsInstalled()) Msiexec("clear-up", L"/x \"" + Client().path + L"\" /qn");
    DeleteTree(kMade);
    AgentTest::TearDown();
  }

  /// The folder of the library under test, whose file has a version.
  static std::wstring LibraryFolder() {
    wchar_t path[MAX_PATH] = {};
    GetEnvironmentVariableW(L"HX_LIBRARY_DIR", path, MAX_PATH);
    return path;
  }

  const std::wstring kMade = L"C:\\Made before";
  const std::wstring folder = kMade + L"\\Ostrel";
};

TEST_F(ClientFolderTest, AnExistingFolderKeepsItsAccessListAndItsFiles) {
  // The package's program has a lower version than the one that somebody has put in its place.
  const std::wstring package = kMade + L"\\client.msi";
  WriteTree(kMade, {});
  ChangePackage(Client().path, package,
                {"UPDATE `File` SET `Version` = '0.5.0.0' WHERE `File` = 'UserAgentFile'"});
  // In place of the package's files: a text, a program, and a program with a version. Beside them a library
  // that programs of this folder would load, and the file that the update task reads as SYSTEM.
  WriteTree(folder, {{"about.txt", "somebody's text"},
                     {"osau.exe", "a program of somebody's"},
                     {"version.dll", "a library of somebody's"},
                     {"Update\\", ""},
                     {"Update\\osau.xml", "<somebody/>"}});
  ASSERT_TRUE(
      CopyFileW((LibraryFolder() + L"\\hxsetup.dll").c_str(), (folder + L"\\osua.exe").c_str(), FALSE));
  Tree expected = ReadTree(folder);
  // Everybody may write there.
  SetAccess(folder, "D:(A;OICI;FA;;;USER)(A;OICI;0x1301ff;;;WD)");
  const std::string access = AccessTo(folder), accessInside = AccessTo(folder + L"\\Update");
  EXPECT_NE(access.find("0x1301ff;;;WD"), std::string::npos) << access;

  const InstallerRun& installed =
      Msiexec("install", L"/i \"" + package + L"\" /qn DIR_CLIENT=\"" + folder + L"\"");
  ASSERT_EQ(installed.exitCode, 0u);
  EXPECT_EQ(installed.Property("DIR_APPDATA"), FromWide(folder) + "\\Update\\");
  EXPECT_EQ(AccessTo(folder), access);
  EXPECT_EQ(AccessTo(folder + L"\\Update"), accessInside);
  // Files without a version, or with a lower one, are overwritten. The rest is unchanged.
  Tree after = ReadTree(folder);
  for (const char* name : {"about.txt", "osau.exe", "ostrel.exe", "ostrel32.exe"}) {
    EXPECT_NE(after[name], expected[name]) << name;
    expected[name] = after[name];
  }
  EXPECT_EQ(after, expected);

  // Files that are not the package's stay after the removal. Wine's engine also leaves the program with the
  // higher version.
  ASSERT_EQ(Remove(Client()).exitCode, 0u);
  Tree left = ReadTree(folder);
  EXPECT_EQ(left.erase("osua.exe"), ByEngine<size_t>(Differs::kFileVersions, 1, 0));
  EXPECT_EQ(left, (Tree{{"version.dll", "a library of somebody's"},
                        {"Update\\", ""},
                        {"Update\\osau.xml", "<somebody/>"}}));
}

}  // namespace
}  // namespace install
