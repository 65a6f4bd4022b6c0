// Runs of entry points through hxrun against the runs of the model packages: the same lines in the log, and
// the same properties. The values come from the log of the package's run.

#include "install/agent_rig.h"
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
  ExpectSameLines(removal, {"CustomAction19"});
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

}  // namespace
}  // namespace hxrun_test
