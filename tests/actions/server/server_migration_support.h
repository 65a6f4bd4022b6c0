// What the tests of the actions that run the copy/move engine share. Used by
// tests/actions/server/server_migration_*_test.cpp.
#pragma once

#include <string>
#include <vector>

#include "actions/server/server_drives.h"

namespace server_test {

/// The title of a message box if "ProductName" cannot be used.
constexpr char kFallbackTitle[] = "Halvorstead Vantor Platform Component";

/// A test of one of these actions. The old server's folder has a few files; the new one does not exist.
class MigrationTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("PROP_SILENCE", "-1");
    MakeOldServer();
  }
  /// Empties the drives and creates the old server's folder.
  void MakeOldServer() {
    Disk().Clear();
    Disk().File("S:\\Old\\vt.exe", "program");
    Disk().File("S:\\Old\\Data\\a.dat", "data");
    Disk().Folder("S:\\Old\\Empty");
  }
  /// Sets the action's data.
  void SetData(const std::string& data) { Installer().Set("CustomActionData", data); }
  /// Returns what is in the old server's folder.
  static std::vector<std::string> OldServer() {
    return {"Data\\", "Data\\a.dat = data", "Empty\\", "vt.exe = program"};
  }
  /// Returns true if the old server's folder is unchanged.
  bool IsUntouched() { return Disk().List("S:\\Old") == OldServer(); }
  /// Returns the first expected calls: the data is read and split.
  Calls Splits(const std::string& data) {
    return Expected()
        .Read("CustomActionData")
        .Add("CommandLineToArgvW(" + server_test::Quoted(data) + ", *) = local-memory#1");
  }
  /// The call that ends the engine's work.
  static constexpr char kFree[] = "LocalFree(local-memory#1) = null";
};

}  // namespace server_test
