// Shared by the tests of the install level: runs of msiexec with their logs, the packages, the agent's
// settings stores, and the registry. Used only by tests/install/*_test.cpp.
//
// Environment: HX_PACKAGES is the folder of the packages, HX_ARTIFACTS the folder for the logs.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "install/engine.h"
#include "machine/passwords.h"
#include "machine/texts.h"

namespace install {

using machine::FromWide;
using machine::HidePasswords;
using machine::Joined;
using machine::kHiddenPassword;
using machine::Replaced;
using machine::ToWide;

/// The result of one run of msiexec.
struct InstallerRun {
  std::string name;    ///< the step, and the name of its log
  DWORD exitCode = 0;  ///< the whole code of the process, not its low byte, as ResultOf returns it
  std::vector<std::string> lines;                 ///< the verbose log
  std::map<std::string, std::string> properties;  ///< the properties at the end of the run

  /// Returns the value of a property; empty if it was not set.
  std::string Property(const std::string& property) const;
  /// Returns the log's lines that contain `mark`, whole and in order. A notice counts once, also where the
  /// engine repeats it for the event log.
  std::vector<std::string> LinesWith(const std::string& mark) const;
  /// Returns the lines that the library wrote. Where the engine runs tasks, they have started agents that no
  /// test counts: there "0 agent(s) stopped" means any number, also of agents whose program was moved aside.
  std::vector<std::string> SetupLines() const;
  /// Returns all lines of the library, those with paths too. An agent whose program was moved aside counts as
  /// stopped.
  std::vector<std::string> AgentLines() const;
  /// True if the library left an agent alone because its program was moved aside.
  bool HasMovedAgents() const;
  /// Returns the lines that say that an action failed.
  std::vector<std::string> FailuresOf(const std::string& action) const;
  /// Returns the actions that ran in the script and whose names begin with one of `names`, in order, also in
  /// a rollback.
  std::vector<std::string> ScriptActions(const std::vector<std::string>& names) const;
};

/// A package file and the contents of its database.
struct Package {
  std::wstring path;
  std::string productCode;     ///< with braces
  std::string version;         ///< ProductVersion, which the engine writes into the uninstall entry
  std::string displayVersion;  ///< PROP_VERSION, which the entry must show

  /// True if the engine knows the product as installed.
  bool IsInstalled() const;
  /// Returns "DisplayVersion" of the uninstall entry in a registry view (0, KEY_WOW64_64KEY or
  /// KEY_WOW64_32KEY); empty if the entry or the value is missing.
  std::optional<std::string> ShownVersion(REGSAM view) const;
  /// Returns the library's log lines of a run that writes this package's version.
  std::vector<std::string> VersionLines() const;
  /// Returns all log lines of the library in a run of the client package that installs it, with no agent
  /// running. The engine of these tests has neither the logon trigger nor the idle settings that the tasks
  /// need.
  std::vector<std::string> InstallLines() const;
};

/// Returns the text that an action which ends the run shows to the user, from the package file `path`; empty
/// if there is no such action. This engine only shows the text, so no log has it.
std::string RefusalText(const std::wstring& path, const std::string& action);
/// Returns the column Target of an action in a package: its command line, or the value that it sets; empty if
/// there is no such action.
std::string ActionTarget(const std::wstring& path, const std::string& action);

/// Returns the sessions of users of this machine, each as "session N (USER)", as the library's log names
/// them. On Wine that is this process's session.
std::vector<std::string> UserSessions();

/// Returns how many agents an installation has started: one for each session, where the engine runs tasks.
size_t StartedAgents();

/// The lines of the actions for the client's tasks and agents in such a run, after the version; and all lines
/// of a removal.
std::vector<std::string> TaskLines();
std::vector<std::string> RemovalLines();

/// The client package, and its next version.
const Package& Client();
const Package& NewerClient();

/// The two packages of the authors' guide.
const Package& GuideClient();
const Package& GuideServer();

/// The package of another maker's product, its next version, and the one with a single fragment: "firewall",
/// "account" or "access".
const Package& Gauge();
const Package& NewerGauge();
const Package& Gauge(const std::string& fragment);

/// The client package of that maker, and its next version.
const Package& Probe();
const Package& NewerProbe();

/// Returns all packages.
std::vector<const Package*> AllPackages();

/// Returns the entries of a folder, ordered by name, that count in a comparison of the machine: all of them
/// on Wine, and on Windows, where other programs make and delete theirs, those that the tests can have made
/// (machine::CanBeOurs). Never the engine's own folder "Config.Msi", which keeps files that were in use until
/// the machine restarts.
std::vector<std::string> ComparedNames(const std::wstring& folder);

/// Returns the path of the file that the client package installs.
std::wstring InstalledFile();

bool FileExists(const std::wstring& path);

// ---- the registry

bool KeyExists(HKEY root, const std::string& path, REGSAM view = 0);
std::optional<std::string> GetRegistryText(HKEY root, const std::string& path, const std::string& name,
                                           REGSAM view = 0);
void SetRegistryText(HKEY root, const std::string& path, const std::string& name, const std::string& value);
void DeleteRegistryTree(HKEY root, const std::string& path);

// ---- the agent's settings

/// The stores by the number of the switch that selects them; other numbers select none.
enum Store { kFileStore = 0, kUserStore = 1, kServiceStore = 2, kNoStore = 3 };

struct Settings {
  std::string host, site, assetId, assetLocation, assetOwner;
};

/// The keys with the agent's settings, and the key above each, which the tests create and delete. Above the
/// service's settings that is the service's own key, which the tests do not touch while there is such a
/// service.
extern const char kUserKey[], kUserKeyAbove[], kServiceKey[], kServiceKeyAbove[];

/// Returns the settings file's path in the Windows folder.
std::wstring SettingsFile();
/// Writes the settings file with the switch and settings, in `codePage`.
void WriteSettingsFile(int storeSwitch, const Settings& settings, UINT codePage = CP_ACP);
/// Writes settings into a registry store.
void WriteRegistrySettings(Store store, const Settings& settings);
/// Returns different settings for each of the three stores: every value begins with the store's name.
Settings SettingsOf(Store store);
/// Fills all three stores with their settings and sets the switch, so that a wrong choice shows.
void FillAllStores(int storeSwitch);
/// Returns the settings from a run's properties.
Settings PublishedSettings(const InstallerRun& run);

bool operator==(const Settings& left, const Settings& right);
void PrintTo(const Settings& settings, std::ostream* stream);

/// Every test begins and ends with the same machine: the stores empty and the same products installed. A
/// failing test prints the important part of its runs' logs.
class InstallTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Runs msiexec with `arguments` and a log, which is named after the test and `step`. Fails the test if the
  /// installer does not end.
  const InstallerRun& Msiexec(const std::string& step, const std::wstring& arguments);

  /// The steps of a product's life, without dialogs; `properties` as on a command line.
  const InstallerRun& Install(const Package& package, const std::wstring& properties = L"");
  const InstallerRun& Reinstall(const Package& package, const std::wstring& properties = L"");
  const InstallerRun& Remove(const Package& package, const std::wstring& properties = L"");

 private:
  std::string before_;
  std::vector<std::unique_ptr<InstallerRun>> runs_;
};

/// Tests with an installed client package: one installation for all of them, and one removal. A test runs the
/// package over itself.
class InstalledClientTest : public InstallTest {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
};

/// Runs msiexec outside a test, with the log named `name`.
InstallerRun RunInstaller(const std::string& name, const std::wstring& arguments);

}  // namespace install
