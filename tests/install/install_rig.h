// What the tests of the install level share: runs of Wine's msiexec with their logs, the packages, the
// agent's settings stores, and the registry. Used by tests/install/*_test.cpp only.
//
// Environment: HX_PACKAGES is the folder of the packages, HX_ARTIFACTS the folder where the logs are left.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace install {

/// Texts are UTF-8 unless something else is said. These convert; characters that have no form become '?'.
std::wstring ToWide(const std::string& text, UINT codePage = CP_UTF8);
std::string FromWide(const std::wstring& text, UINT codePage = CP_UTF8);

/// What stands in the logs, and so in the lines and properties of a run, for a password of the server's
/// account.
extern const char kHiddenPassword[];
/// Puts that in the place of whatever looks like such a password, wherever it stands in `text`: five groups
/// of four characters, of which the first is one of the password's alphabet, the second one of four letters,
/// and the others "AA"; in bytes, or in UTF-16. True where there was one.
bool HidePasswords(std::string& text);

/// One run of msiexec, as it left things.
struct InstallerRun {
  std::string name;                               ///< the step, and the name of its log
  DWORD exitCode = 0;                             ///< the whole code of the process, not its low byte
  std::vector<std::string> lines;                 ///< the verbose log
  std::map<std::string, std::string> properties;  ///< the properties at the end of the run

  /// The value of a property, or an empty text where it was not set.
  std::string Property(const std::string& property) const;
  /// The log's lines that hold `mark`, whole and in order.
  std::vector<std::string> LinesWith(const std::string& mark) const;
  /// The lines that the library wrote.
  std::vector<std::string> SetupLines() const { return LinesWith("Hx Setup Log:"); }
};

/// A package file and what its database says.
struct Package {
  std::wstring path;
  std::string productCode;     ///< with braces
  std::string version;         ///< ProductVersion, which the engine writes into the uninstall entry
  std::string displayVersion;  ///< PROP_VERSION, which the entry shall show

  /// Whether the engine knows the product as installed.
  bool IsInstalled() const;
  /// "DisplayVersion" of the uninstall entry in a registry view (0, KEY_WOW64_64KEY or KEY_WOW64_32KEY);
  /// nothing where the entry or the value is missing.
  std::optional<std::string> ShownVersion(REGSAM view) const;
  /// The library's log lines of a run that states this package's version.
  std::vector<std::string> VersionLines() const;
  /// All of the library's log lines of a run of the client package that installs it, with no agent running.
  /// The engine behind these tests has neither the logon trigger nor the idle settings that the tasks need.
  std::vector<std::string> InstallLines() const;
};

/// What an action that ends a run says to people, as the package file `path` has it; empty where there is no
/// such action. This engine shows it to people only, so no log has it.
std::string RefusalText(const std::wstring& path, const std::string& action);

/// What the actions for the client's tasks and agents log in such a run, behind the version; and all that is
/// logged in a removal.
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

/// The file that the client package installs.
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

/// The keys with the agent's settings, and the key above them that the tests make and take away; above the
/// service's settings that is the service's own key, which they leave alone while there is such a service.
extern const char kUserKey[], kUserKeyAbove[], kServiceKey[], kServiceKeyAbove[];

/// The settings file's path in the Windows folder.
std::wstring SettingsFile();
/// Writes the settings file with the switch and settings; `codePage` is the one that the file is written in.
void WriteSettingsFile(int storeSwitch, const Settings& settings, UINT codePage = CP_ACP);
/// Writes settings into a registry store.
void WriteRegistrySettings(Store store, const Settings& settings);
/// Different settings for each of the three stores: every value begins with the store's name.
Settings SettingsOf(Store store);
/// Fills all three stores with their settings and sets the switch, so that a wrong choice shows.
void FillAllStores(int storeSwitch);
/// The settings as a run's properties show them.
Settings PublishedSettings(const InstallerRun& run);

bool operator==(const Settings& left, const Settings& right);
void PrintTo(const Settings& settings, std::ostream* stream);

/// Every test begins and ends with the same machine: the stores empty and the installed products those that
/// were there. A test that fails prints what matters of its runs' logs.
class InstallTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Runs msiexec with `arguments`, to which the log is added; the log's file is named after the test and
  /// `step`. Fails the test when the installer does not come to an end.
  const InstallerRun& Msiexec(const std::string& step, const std::wstring& arguments);

  /// The steps of a product's life, without dialogs; `properties` as on a command line.
  const InstallerRun& Install(const Package& package, const std::wstring& properties = L"");
  const InstallerRun& Reinstall(const Package& package, const std::wstring& properties = L"");
  const InstallerRun& Remove(const Package& package, const std::wstring& properties = L"");

 private:
  std::string before_;
  std::vector<std::unique_ptr<InstallerRun>> runs_;
};

/// Tests with the client package installed already: one installation for all of them, and one removal. A test
/// runs the package over itself.
class InstalledClientTest : public InstallTest {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
};

/// Runs msiexec outside a test, with the log named `name`.
InstallerRun RunInstaller(const std::string& name, const std::wstring& arguments);

}  // namespace install
