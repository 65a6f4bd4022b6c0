// What the tests of the server package share: its folders, an older server that is laid down by hand, and
// whole folder trees as values. Used by tests/install/server_*_test.cpp and conversion_test.cpp.
#pragma once

#include <functional>

#include "install/install_rig.h"

namespace install {

/// A folder's content: each path in it, relative and with backslashes, with the bytes of the file; a folder's
/// path ends in a backslash and has no bytes. A folder that does not exist has one entry, "(missing)".
using Tree = std::map<std::string, std::string>;

/// What a tree has in the place of a link's content.
extern const char kLink[];

/// The content of a folder, all levels. Reads names and bytes itself, without the library's walker. A link to
/// a folder has one entry, which ends in a backslash and has the bytes of kLink; nothing is read through it.
Tree ReadTree(const std::wstring& folder);
/// Takes out of `tree` what was renamed aside: the entries, with all in them, whose first name ends in a date
/// and a time. Returns it under the names that it had before.
Tree TakeStamped(Tree& tree);
/// The name in a folder that is `name` with a date and a time after it; empty where there is none or more
/// than one.
std::string NameWithTime(const std::wstring& folder, const std::string& name);
/// Creates the folder with all that `tree` says; what stands there already stays.
void WriteTree(const std::wstring& folder, const Tree& tree);
/// Marks a file as read-only: it can be copied and moved then, but not deleted.
void MakeReadOnly(const std::wstring& path);
/// Makes the link `path` to a folder, whose name `target` is as it is written into the link: a path of this
/// system, or "." for the folder that the link is in. The system has no call of its own for it that works, so
/// it is made by the machine below.
void MakeLink(const std::wstring& path, const std::wstring& target);
/// Holds a folder as a console window does that is in it: it cannot be renamed.
HANDLE HoldFolder(const std::wstring& folder);
/// Deletes a folder with everything in it, but nothing that a link leads to.
void DeleteTree(const std::wstring& folder);
/// The names in a folder, one level.
std::vector<std::string> Names(const std::wstring& folder);

/// The server package, and the package of the version before it.
const Package& Server();
const Package& OlderServer();

/// The server's own settings, and the key of the maker, where the packages keep the server's folder.
extern const char kServerSettingsKey[], kServerKeyAbove[], kMakerKey[];

/// What an older server's data are like: nested folders; long names, names outside ASCII and outside the
/// system's code page, names like those of the 8.3 form; an empty file and an empty folder. `format` is the
/// data's format, which the converter reads: "1" is converted to "2", anything else but "2" fails.
Tree OlderData(const std::string& format);
/// `data` as the new server keeps them: in format 2.
Tree Converted(Tree data);
/// The program files of the two versions.
Tree OlderProgram();
Tree NewProgram();
/// `inner`, placed in the folder `name` (without a backslash), together with `outer`.
Tree With(Tree outer, const std::string& name, const Tree& inner);

/// Stops and deletes the service "Vantor", where there is one, as an administrator would.
void DeleteServer();

/// Copies the package file `source` to `target` and runs statements of the installer's SQL over the copy.
void ChangePackage(const std::wstring& source, const std::wstring& target,
                   const std::vector<std::string>& statements);

/// Tests of the server package begin and end without a server: no folder, no key, no product.
class ServerTest : public InstallTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// The texts of errors 26000 and 26001, as far as they are sure to stand in the log.
  static constexpr char kCannotMoveAside[] = "The folder of the older server could not be moved aside";
  static constexpr char kCannotMerge[] = "Some files of the older server could not be copied";

  /// Where servers are installed when nothing else is said, and what stands beside it; no backslash at the
  /// end.
  const std::wstring programs = L"C:\\Program Files\\Halvorstead";
  const std::wstring server = programs + L"\\Vantor";
  const std::wstring aside = programs + L"\\Vantor (previous)";
  /// A place for data outside of the server's folder, and for a server of the earlier layout.
  const std::wstring elsewhere = L"C:\\Vantor Store";
  const std::wstring outsideData = elsewhere + L"\\Data";

  /// Says in the server's settings where its data are.
  void SetDataSetting(const std::wstring& folder);
  /// What the server's settings say about it, nothing where there is no such value.
  std::optional<std::string> DataSetting();

  /// Installs a copy of the server package whose conversion waits while `meanwhile` runs, and leaves no
  /// marker: the run then fails. `held` is a folder that this process holds from then on until the run has
  /// ended; empty for none.
  const InstallerRun& InstallInterrupted(const std::function<void()>& meanwhile,
                                         const std::wstring& held = L"");

  /// The product's state and the program files, after a run that installed it.
  void ExpectInstalled(const InstallerRun& run);
  /// After a run that was rolled back: nothing of the new server.
  void ExpectRolledBack(const InstallerRun& run);
  /// After a run that the error action `action` of the package has ended, before there was a script.
  void ExpectRefused(const InstallerRun& run, const std::string& action);
  /// The properties at the end of a run, by their names.
  void ExpectPublished(const InstallerRun& run, const std::map<std::string, std::wstring>& expected);
  /// The library's actions for folders and data that ran in the installer's script, in order; those of a
  /// rollback among them.
  std::vector<std::string> DeferredActions(const InstallerRun& run);

 private:
  void ClearAway();
};

}  // namespace install
