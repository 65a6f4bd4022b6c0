// Drives for the tests of the server actions: the library sees "S:" and "D:", behind which lie real folders,
// so that a trace reads the same wherever the test runs; and the traces of what these actions often do. Used
// by tests/actions/server_*_test.cpp and conversion_markers_test.cpp.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "rig/action_test.h"

namespace server_test {

/// The drives S and D, empty at first. "S:\Current" is the current folder, which need not exist. Any other
/// drive does not exist. Paths are given in UTF-8.
class Drives {
 public:
  /// Makes the folders behind the drives, below the temporary folder.
  Drives();
  /// Removes them.
  ~Drives();
  Drives(const Drives&) = delete;
  Drives& operator=(const Drives&) = delete;

  /// Sends what the library asks of files and folders to these drives.
  void Answer(rig::World& world);
  /// Empties both.
  void Clear();

  /// Makes a folder and those above it.
  void Folder(const std::string& path);
  /// Makes a file that holds `contents`, and the folders above it.
  void File(const std::string& path, const std::string& contents = "contents");
  /// Deletes a file or a folder with everything in it.
  void Remove(const std::string& path);
  /// A look-up of `path` finds the entry `name` of the same folder, as if the path's last name were its short
  /// one.
  void Shorten(const std::string& path, const std::string& name);
  /// Whether there is a file.
  bool HasFile(const std::string& path) const;
  /// Whether there is a folder.
  bool HasFolder(const std::string& path) const;
  /// Whether there is either.
  bool Has(const std::string& path) const { return HasFile(path) || HasFolder(path); }
  /// Everything below a folder, sorted: "Name\" for a folder, "Name\Name = contents" for a file.
  std::vector<std::string> List(const std::string& path) const;

 private:
  /// The real name behind a name that the library uses; empty for none, and for a drive that does not exist.
  std::wstring RealName(const wchar_t* path) const;
  /// The same for a test's name.
  std::filesystem::path RealPath(const std::string& path) const;

  std::filesystem::path base_;
  std::map<std::wstring, std::wstring> shortened_;
};

/// The calls that a test expects, with the numbers of what they take. What is there and what is not the
/// drives say at the moment when a line is added.
class Calls {
 public:
  /// The lines so far.
  std::vector<std::string> lines;

  /// No call yet.
  explicit Calls(const Drives& disk) : disk_(disk) {}

  /// Adds any line.
  Calls& Add(const std::string& line);
  /// Adds lines.
  Calls& Add(const std::vector<std::string>& more);
  /// Reads a property as wide text.
  Calls& Read(const std::string& name, const std::string& result = "0");
  /// Reads a property as 8-bit text.
  Calls& ReadA(const std::string& name, const std::string& result = "0");
  /// Sets a property.
  Calls& Set(const std::string& name, const std::string& value, const std::string& result = "0");
  /// Looks a path up.
  Calls& LookUp(const std::string& path);
  /// Spells a path as it stands on the disk: looks up the names that may be short, and the last one.
  Calls& Spell(const std::string& path);
  /// Reads a property, whose value is this path, and spells it; of an empty path only reads.
  Calls& ReadPath(const std::string& name, const std::string& path);
  /// Joins a name: looks up the path that results when its last name may be short.
  Calls& Join(const std::string& path);
  /// Asks for the attributes.
  Calls& Attributes(const std::string& path);
  /// Opens the server's settings; `result` is what that gives.
  Calls& OpenSettings(const std::string& result = "0");
  /// Reads "vtdf" from them.
  Calls& QueryData(const std::string& result = "0");
  /// Closes them.
  Calls& CloseSettings();
  /// Opens a file to see whether it is there, and looks it up when it is.
  Calls& TestFile(const std::string& path);
  /// Takes a search, "search#1"; the line is the call up to its result.
  Calls& Search(const std::string& call);
  /// Asks for another entry of a search (0: the last one); `result` says whether there is one.
  Calls& NextEntry(int search = 0, const std::string& result = "1");
  /// Closes it.
  Calls& CloseSearch(int search = 0);
  /// Finds that it has no more entries, and closes it.
  Calls& EndSearch(int search = 0) { return NextEntry(search, "0").CloseSearch(search); }
  /// Sends the notice of this number.
  Calls& Notify(int number);

 private:
  const Drives& disk_;
  int searches_ = 0;
  int keys_ = 0;
  int handles_ = 0;
};

/// A path as it stands in a trace.
std::string Quoted(const std::string& path);

/// Checks a run of a sweep: if an allocation failed, each property that was set has the value that a run
/// without failures gives it, as the lines `plain` ("NAME = value") say. A missing last name would give the
/// parent folder.
void ExpectNoOtherFolder(const rig::SweepRun& run, const std::vector<std::string>& plain);

/// A test of an action of the server's upgrade.
class ServerTest : public rig::ActionTest {
 protected:
  /// Checks also that nothing was logged, and that no message and no box appeared, unless `IsHeard` was
  /// called.
  void TearDown() override;
  void Arrange(rig::World& world) override { drives_.Answer(world); }

  /// The drives of this test, which its sweeps share.
  Drives& Disk() { return drives_; }
  /// The start of a list of expected calls.
  Calls Expected() const { return Calls(drives_); }
  /// This test is about a message or a box.
  void IsHeard() { isHeard_ = true; }
  /// Makes the server's settings key in the world's registry.
  static void MakeSettings(rig::World& world) { world.registry.Create(kSettings); }
  /// Makes it with a data folder in "vtdf", as text with its terminator.
  static void SetData(rig::World& world, const std::string& folder) {
    world.registry.SetText(kSettings, "vtdf", folder);
  }
  /// Makes it and sets "vtdf" to exactly these bytes.
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
