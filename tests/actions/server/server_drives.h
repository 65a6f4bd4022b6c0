// Drives for the tests of the server actions, and the calls that these actions often make. The library sees
// "S:" and "D:", which map to real folders, so that a trace is the same wherever the test runs. Used by
// tests/actions/server/server_*_test.cpp and conversion_markers_test.cpp.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "rig/action_test.h"

namespace server_test {

/// The drives S and D, empty at first. "S:\Current" is the current folder, which need not exist. No other
/// drive exists. Paths are in UTF-8.
class Drives {
 public:
  /// Creates the folders of the drives, in the temporary folder.
  Drives();
  /// Deletes the folders.
  ~Drives();
  Drives(const Drives&) = delete;
  Drives& operator=(const Drives&) = delete;

  /// Redirects the library's calls for files and folders to these drives.
  void Answer(rig::World& world);
  /// Empties both drives.
  void Clear();

  /// Creates a folder and its parents.
  void Folder(const std::string& path);
  /// Creates a file with `contents`, and the folders above it.
  void File(const std::string& path, const std::string& contents = "contents");
  /// Deletes a file, or a folder with everything in it.
  void Remove(const std::string& path);
  /// Makes a look-up of `path` find the entry `name` of the same folder, as if the last name of `path` were
  /// its short name.
  void Shorten(const std::string& path, const std::string& name);
  /// Returns true if the file exists.
  bool HasFile(const std::string& path) const;
  /// Returns true if the folder exists.
  bool HasFolder(const std::string& path) const;
  /// Returns true if the file or folder exists.
  bool Has(const std::string& path) const { return HasFile(path) || HasFolder(path); }
  /// Returns everything below a folder, sorted: "Name\" for a folder, "Name\Name = contents" for a file.
  std::vector<std::string> List(const std::string& path) const;

 private:
  /// Returns the real path of a path from the library; empty for none, and for a drive that does not exist.
  std::wstring RealName(const wchar_t* path) const;
  /// The same for a path from a test.
  std::filesystem::path RealPath(const std::string& path) const;

  std::filesystem::path base_;
  std::map<std::wstring, std::wstring> shortened_;
};

/// The calls that a test expects, with the numbers of the handles in them. A line depends on what exists on
/// the drives when it is added.
class Calls {
 public:
  /// The lines so far.
  std::vector<std::string> lines;

  /// Starts without calls.
  explicit Calls(const Drives& disk) : disk_(disk) {}

  /// Adds a line.
  Calls& Add(const std::string& line);
  /// Adds lines.
  Calls& Add(const std::vector<std::string>& more);
  /// Reads a property as wide text.
  Calls& Read(const std::string& name, const std::string& result = "0");
  /// Reads a property as 8-bit text.
  Calls& ReadA(const std::string& name, const std::string& result = "0");
  /// Sets a property.
  Calls& Set(const std::string& name, const std::string& value, const std::string& result = "0");
  /// Looks up a path.
  Calls& LookUp(const std::string& path);
  /// Spells a path as on the disk: looks up the names that may be short, and the last one.
  Calls& Spell(const std::string& path);
  /// Reads a property whose value is this path, and spells it; only reads an empty path.
  Calls& ReadPath(const std::string& name, const std::string& path);
  /// Joins a name: looks up the resulting path if its last name may be short.
  Calls& Join(const std::string& path);
  /// Gets the attributes of a path.
  Calls& Attributes(const std::string& path);
  /// Opens the server's settings with this result.
  Calls& OpenSettings(const std::string& result = "0");
  /// Reads "vtdf" from the settings.
  Calls& QueryData(const std::string& result = "0");
  /// Closes the settings.
  Calls& CloseSettings();
  /// Opens a file to see whether it exists, and looks it up if it does.
  Calls& TestFile(const std::string& path);
  /// Starts a search, "search#1"; the line is the call up to its result.
  Calls& Search(const std::string& call);
  /// Asks for another entry of a search (0: the last search); `result` says whether there is one.
  Calls& NextEntry(int search = 0, const std::string& result = "1");
  /// Closes a search.
  Calls& CloseSearch(int search = 0);
  /// Finds no more entries in a search, and closes it.
  Calls& EndSearch(int search = 0) { return NextEntry(search, "0").CloseSearch(search); }
  /// Sends the notice of this number.
  Calls& Notify(int number);

 private:
  const Drives& disk_;
  int searches_ = 0;
  int keys_ = 0;
  int handles_ = 0;
};

/// Returns a path as the trace shows it.
std::string Quoted(const std::string& path);

/// Checks a run of a sweep. If an allocation failed, each property that was set must have the value of a run
/// without failures, which the lines `plain` ("NAME = value") contain. A missing last name would give the
/// parent folder.
void ExpectNoOtherFolder(const rig::SweepRun& run, const std::vector<std::string>& plain);

/// A test of an action for the server upgrade.
class ServerTest : public rig::ActionTest {
 protected:
  /// Also checks that nothing was logged, and that no notice and no message box appeared, unless `IsHeard`
  /// was called.
  void TearDown() override;
  void Arrange(rig::World& world) override { drives_.Answer(world); }

  /// Returns the drives of this test, which its sweeps share.
  Drives& Disk() { return drives_; }
  /// Returns an empty list of expected calls.
  Calls Expected() const { return Calls(drives_); }
  /// Declares that this test is about a notice or a message box.
  void IsHeard() { isHeard_ = true; }
  /// Creates the server's settings key in the world's registry.
  static void MakeSettings(rig::World& world) { world.registry.Create(kSettings); }
  /// Creates the key with a data folder in "vtdf", as text with its terminator.
  static void SetData(rig::World& world, const std::string& folder) {
    world.registry.SetText(kSettings, "vtdf", folder);
  }
  /// Creates the key and sets "vtdf" to exactly these bytes.
  static void SetDataBytes(rig::World& world, const std::string& bytes, DWORD type = REG_SZ) {
    world.registry.SetBytes(kSettings, "vtdf", type, bytes);
  }

  /// The server's settings key.
  static constexpr char kSettings[] =
      "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\Vantor\\Settings";

 private:
  Drives drives_;
  bool isHeard_ = false;
};

}  // namespace server_test
