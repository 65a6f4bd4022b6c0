// What the fragments refuse if a package does not have the folders that their actions need: in an
// installation and in a repair, with a text, and before anything changes. A removal is never refused.

#include "install/machine_state.h"
#include "install/security_rig.h"

namespace install {
namespace {

class PackageRefusalsTest : public SecurityTest {
 protected:
  void SetUp() override {
    SecurityTest::SetUp();
    machine_.Take();
    ClearAwayGauge();
  }
  void TearDown() override {
    for (const Package* package : {&Client(), &Gauge("access"), &Server()}) {
      if (package->IsInstalled()) Msiexec("clear-up", L"/x \"" + package->path + L"\" /qn");
    }
    ClearAwayGauge();
    SecurityTest::TearDown();
    machine_.GiveBack();
  }

  /// Returns a copy of a package in which `statements` have been run.
  std::wstring Changed(const Package& package, const std::vector<std::string>& statements) {
    WriteTree(elsewhere, {});
    const std::wstring copy = elsewhere + L"\\changed.msi";
    ChangePackage(package.path, copy, statements);
    return copy;
  }

  /// Runs the engine with a package, and expects that `action` refuses the run with `text` and that nothing
  /// changes.
  void ExpectRefusal(const std::wstring& package, const std::wstring& properties, const std::string& action,
                     const std::string& text) {
    const MachineState before = MachineState::Now();
    const InstallerRun& run = Msiexec("refused", L"/i \"" + package + L"\" /qn " + properties);
    EXPECT_EQ(run.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    EXPECT_EQ(run.FailuresOf(action).size(), 1u);
    EXPECT_EQ(run.LinesWith(": InstallInitialize.").size(), 0u);
    EXPECT_EQ(RefusalText(package, action), text);
    EXPECT_EQ(MachineState::Now().Since(before), "") << action;
  }

  /// Does all of it: makes a copy of `package`, changed by `statements`, that loses a folder's property after
  /// costing in a run with LOSES=1, and expects the refusals.
  void ExpectRefusedWithout(const Package& package, const std::string& folder,
                            std::vector<std::string> statements, const std::string& action,
                            const std::string& text) {
    SCOPED_TRACE(action + " without " + folder);
    statements.push_back(
        "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Lose', 51, '" + folder +
        "', '{}')");
    statements.push_back(
        "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('Lose', "
        "'LOSES', 1005)");
    const std::wstring copy = Changed(package, statements);
    ExpectRefusal(copy, L"LOSES=1", action, text);
    ASSERT_EQ(Msiexec("install", L"/i \"" + copy + L"\" /qn").exitCode, 0u);
    ExpectRefusal(copy, L"LOSES=1 REINSTALL=ALL REINSTALLMODE=omus", action, text);
    EXPECT_TRUE(package.IsInstalled());
    const InstallerRun& removed = Msiexec("remove", L"/x \"" + copy + L"\" /qn LOSES=1");
    EXPECT_EQ(removed.exitCode, 0u);
    EXPECT_EQ(removed.LinesWith(": " + action + ".").size(), 0u);
    EXPECT_FALSE(package.IsInstalled());
  }

 private:
  static void ClearAwayGauge() {
    DeleteTree(L"C:\\Program Files\\Brackwell");
    DeleteTree(L"C:\\ProgramData\\Brackwell");
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Brackwell");
  }

  AgentMachine machine_;
};

const char kNoClientFolder[] =
    "This package has no folder DIR_CLIENT, by which its actions find the programs. Nothing was changed. "
    "Tell its "
    "author: a Directory of the package must have this name.";

TEST_F(PackageRefusalsTest, AClientWithoutItsFolder) {
  ExpectRefusedWithout(Client(), "DIR_CLIENT", {}, "RefuseNoClientFolder", kNoClientFolder);
}

// The author's mistake itself: the folder has another name.
TEST_F(PackageRefusalsTest, AClientWhoseFolderHasAnotherName) {
  const std::wstring copy = Changed(
      Client(), {"INSERT INTO `Directory` (`Directory`, `Directory_Parent`, `DefaultDir`) VALUES "
                 "('ClientFolder', 'MakerFolder', 'Ostrel')",
                 "UPDATE `Component` SET `Directory_` = 'ClientFolder' WHERE `Directory_` = 'DIR_CLIENT'",
                 "UPDATE `Directory` SET `Directory_Parent` = 'ClientFolder' WHERE `Directory_Parent` = "
                 "'DIR_CLIENT'",
                 "DELETE FROM `Directory` WHERE `Directory` = 'DIR_CLIENT'"});
  ExpectRefusal(copy, L"", "RefuseNoClientFolder", kNoClientFolder);
}

TEST_F(PackageRefusalsTest, AServiceWithAnAccountWithoutTheFoldersThatItReaches) {
  for (const char* folder : {"DIR_SERVER", "DIR_DATAFOLDER"}) {
    ExpectRefusedWithout(
        Gauge("access"), folder, {}, "RefuseNoAccessFolders",
        "This package has no folder DIR_SERVER or no folder DIR_DATAFOLDER, to which its service's account "
        "gets access. Nothing was changed. Tell its author: a Directory of the package must have each of "
        "these names.");
  }
}

// In the model server_access.wxi comes first; another package may include only the other fragment.
TEST_F(PackageRefusalsTest, ASetupFileWithoutItsFolder) {
  ExpectRefusedWithout(Server(), "DIR_SERVER",
                       {"DELETE FROM `InstallExecuteSequence` WHERE `Action` = 'RefuseNoAccessFolders'"},
                       "RefuseNoSetupFolder",
                       "This package has no folder DIR_SERVER, in which its setup file is. Nothing was "
                       "changed. Tell its author: a Directory "
                       "of the package must have this name.");
}

}  // namespace
}  // namespace install
