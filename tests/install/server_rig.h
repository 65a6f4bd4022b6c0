// Shared by the tests of the server package: its folders, an older server that the tests write themselves,
// and whole folder trees as values. Used by tests/install/server_*_test.cpp and conversion_test.cpp.
#pragma once

#include <functional>

#include "install/install_rig.h"

namespace install {

/// A folder's content: each relative path in it, with backslashes, and the bytes of the file. A folder's path
/// ends in a backslash and has no bytes. A missing folder has one entry, "(missing)".
using Tree = std::map<std::string, std::string>;

/// The content of a link in a tree.
extern const char kLink[];

/// Returns the content of a folder, all levels. Reads names and bytes itself, without the library's walker. A
/// link to a folder has one entry, which ends in a backslash and has the bytes of kLink; its target is not
/// read.
Tree ReadTree(const std::wstring& folder);
/// Removes from `tree` what was renamed aside: the entries, with their content, whose first name ends in a
/// date and a time. Returns them under their earlier names.
Tree TakeStamped(Tree& tree);
/// Returns the name in a folder that is `name` with a date and a time after it; empty if there is none or
/// more than one.
std::string NameWithTime(const std::wstring& folder, const std::string& name);
/// Creates the folder with the content of `tree`; existing content stays.
void WriteTree(const std::wstring& folder, const Tree& tree);
/// Marks a file as read-only: it can then be copied and moved, but not deleted.
void MakeReadOnly(const std::wstring& path);
/// Creates the link `path` to a folder. `target` is written into the link unchanged: a path of this system,
/// or "." for the folder that contains the link. Wine has no working call for it, so there the machine below
/// creates the link.
void MakeLink(const std::wstring& path, const std::wstring& target);
/// Opens a folder as a console window does whose current folder it is: the folder cannot be renamed. The
/// caller closes the handle.
HANDLE HoldFolder(const std::wstring& folder);
/// Deletes a folder with everything in it, but nothing that a link leads to.
void DeleteTree(const std::wstring& folder);
/// Returns the names in a folder, one level.
std::vector<std::string> Names(const std::wstring& folder);

/// The server package, and the package of the version before it.
const Package& Server();
const Package& OlderServer();

/// The key of the server's own settings, the service's key above it, and the key of the maker, in which the
/// packages keep the server's folder.
extern const char kServerSettingsKey[], kServerKeyAbove[], kMakerKey[];

/// The key of the note that an upgrade is under way.
extern const char kUpgradeKey[];

/// Returns data of an older server: nested folders; long names, names outside ASCII and outside the system's
/// code page, names like short (8.3) names; an empty file and an empty folder. The converter reads `format`:
/// it converts "1" to "2", and fails for anything but "1" and "2".
Tree OlderData(const std::string& format);
/// Returns `data` as the new server keeps them: in format 2.
Tree Converted(Tree data);
/// The program files of the two versions.
Tree OlderProgram();
Tree NewProgram();
/// Returns `inner`, placed in the folder `name` (without a backslash), together with `outer`.
Tree With(Tree outer, const std::string& name, const Tree& inner);

/// Stops and deletes the service "Vantor", if it exists, as an administrator would.
void DeleteServer();

/// Copies the package file `source` to `target` and runs statements of the installer's SQL on the copy.
void ChangePackage(const std::wstring& source, const std::wstring& target,
                   const std::vector<std::string>& statements);

/// Tests of the server package begin and end without a server: no folder, no key, no product.
class ServerTest : public InstallTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// The parts of the texts of errors 26000 and 26001 that are certain to be in the log.
  static constexpr char kCannotMoveAside[] = "The folder of the older server could not be moved aside";
  static constexpr char kCannotMerge[] = "Some files of the older server could not be copied";

  /// The default folder of servers, and the folders next to it; no backslash at the end.
  const std::wstring programs = L"C:\\Program Files\\Halvorstead";
  const std::wstring server = programs + L"\\Vantor";
  const std::wstring aside = programs + L"\\Vantor (previous)";
  /// A place for data outside the server's folder, and for a server of the earlier layout.
  const std::wstring elsewhere = L"C:\\Vantor Store";
  const std::wstring outsideData = elsewhere + L"\\Data";

  /// Returns a blank and the local ISO date, as CustomAction20 writes them after a name.
  static std::wstring DateBehindName();

  /// Sets the data folder in the server's settings.
  void SetDataSetting(const std::wstring& folder);
  /// Returns the data folder from the server's settings; empty without such a value.
  std::optional<std::string> DataSetting();

  /// Returns how often a deferred action's notice is in a log of a run that asks for notices. Such an action
  /// must read the property that asks.
  static size_t NoticesOfTheScript() { return ByEngine<size_t>(Differs::kDeferredProperties, 1, 0); }

  /// Installs a copy of the server package. Its conversion waits while `meanwhile` runs, and leaves no
  /// marker, so the run fails. From then until the end of the run this process holds the folder `held`; empty
  /// for none. `statements` are run on the copy too.
  const InstallerRun& InstallInterrupted(const std::function<void()>& meanwhile,
                                         const std::wstring& held = L"",
                                         std::vector<std::string> statements = {});

  /// Checks the product's state and the program files, after a run that installed it.
  void ExpectInstalled(const InstallerRun& run);
  /// Expects nothing of the new server, after a run that was rolled back.
  void ExpectRolledBack(const InstallerRun& run);
  /// Expects that the package's error action `action` has ended the run before there was a script.
  void ExpectRefused(const InstallerRun& run, const std::string& action);
  /// Compares the properties at the end of a run, by name.
  void ExpectPublished(const InstallerRun& run, const std::map<std::string, std::wstring>& expected);
  /// Returns the library's actions for folders and data that ran in the installer's script, in order,
  /// including those of a rollback.
  std::vector<std::string> DeferredActions(const InstallerRun& run);

 private:
  void ClearAway();
};

}  // namespace install
