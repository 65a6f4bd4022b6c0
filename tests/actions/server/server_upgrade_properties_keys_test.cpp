// CustomAction13: moves the portable keys of the users.

#include <shlobj.h>

#include <cstdio>

#include "actions/server/server_drives.h"

namespace server_upgrade_properties_keys_test {

using server_test::Calls;
using server_test::ServerTest;

// 15 November 2026, 10:30:45, in seconds since 1970: the time of the world's clock.
constexpr unsigned kNow = 1794738645;

std::string KeyName(unsigned number) {
  char name[16];
  std::snprintf(name, sizeof name, "%08X.pky", number);
  return name;
}

class PortableKeysTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.shell.Set(CSIDL_LOCAL_APPDATA, L"S:\\Profiles of all\\ann\\Local Settings\\Application Data");
    world.shell.Set(CSIDL_COMMON_APPDATA, L"S:\\Profiles of all\\All Users\\Application Data");
  }
  static std::string UserFolder(const std::string& user) {
    return "S:\\Profiles of all\\" + user + "\\Local Settings\\Application Data\\portable.dir";
  }
  static constexpr char kTarget[] = "S:\\Profiles of all\\All Users\\Application Data\\Ostrel\\portable.dir";
  // Returns the calls up to the listing of the profiles.
  Calls Asked() {
    Calls calls = Expected();
    calls.Add("SetErrorMode(0x8001) = 16384")
        .Add(R"(LoadLibraryA("SHFOLDER") = SHFOLDER)")
        .Add("SetErrorMode(0x4000) = 32769")
        .Add(R"(GetProcAddress(SHFOLDER, "SHGetFolderPathW") = *)")
        .Add("SHGetFolderPathW(null, 28, null, 0, *) = 0");
    return calls.Add("SHGetFolderPathW(null, 35, null, 0, *) = 0");
  }
  // The library never frees the module of the folder functions.
  void SetUp() override {
    ServerTest::SetUp();
    TheRig().ledger.Deliberate(rig::kModule, "SHFOLDER");
  }
};

TEST_F(PortableKeysTest, MovesTheKeyOfEachUser) {
  Disk().File(UserFolder("ann") + "\\portable.pky", "ann's");
  Disk().File(UserFolder("bob") + "\\portable.pky", "bob's");
  Disk().Folder(UserFolder("cid"));
  Disk().File("S:\\Profiles of all\\a file");
  Disk().Folder(kTarget);
  EXPECT_EQ(Run(13), 0u);
  EXPECT_FALSE(Disk().HasFile(UserFolder("ann") + "\\portable.pky"));
  EXPECT_FALSE(Disk().HasFile(UserFolder("bob") + "\\portable.pky"));
  EXPECT_EQ(Disk().List(kTarget),
            (std::vector<std::string>{KeyName(kNow) + " = ann's", KeyName(kNow + 1) + " = bob's"}));
  EXPECT_PUBLISHED({});
  EXPECT_LOG({});
}

TEST_F(PortableKeysTest, LooksWhereAKeyMayBe) {
  const std::string key = UserFolder("ann") + "\\portable.pky";
  Disk().File(key, "ann's");
  Disk().Folder(kTarget);
  Calls calls = Asked();
  calls.Join("S:\\Profiles of all\\All Users\\Application Data\\Ostrel")
      .Join(kTarget)
      .Add("SetErrorMode(0x8001) = 16384")
      .Search(R"(FindFirstFileW("S:\\Profiles of all\\*.*", *))")
      .Add("SetErrorMode(0x4000) = 32769")
      // The folder itself, its parent, and the first entry that counts.
      .NextEntry(3)
      .NextEntry(3)
      .Join(UserFolder("All Users"))
      .Join(UserFolder("All Users") + "\\portable.pky")
      .TestFile(UserFolder("All Users") + "\\portable.pky")
      .NextEntry(3)
      .Join(UserFolder("ann"))
      .Join(key)
      .TestFile(key)
      .Join(std::string(kTarget) + "\\" + KeyName(kNow))
      .Add("MoveFileExW(" + server_test::Quoted(key) + ", " +
           server_test::Quoted(std::string(kTarget) + "\\" + KeyName(kNow)) + ", 0x1) = 1")
      .EndSearch(3);
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRACE({calls.lines});
}

TEST_F(PortableKeysTest, DoesNothingIfTheFoldersShareOnlyADrive) {
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, L"S:\\ProgramData");
  Disk().File("S:\\ann\\Local Settings\\Application Data\\portable.dir\\portable.pky");
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRACE({Asked().lines});
}

TEST_F(PortableKeysTest, DoesNothingIfTheFoldersShareNothing) {
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, L"D:\\Profiles of all\\All Users\\Application Data");
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRACE({Asked().lines});
}

TEST_F(PortableKeysTest, AFolderOfOneLetterBelowTheDriveIsEnough) {
  TheWorld().shell.Set(CSIDL_LOCAL_APPDATA, L"S:\\P\\ann\\Local Settings\\Application Data");
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, L"S:\\P\\All Users\\Application Data");
  Disk().File("S:\\P\\ann\\Local Settings\\Application Data\\portable.dir\\portable.pky", "ann's");
  Disk().Folder("S:\\P\\All Users\\Application Data\\Ostrel\\portable.dir");
  EXPECT_EQ(Run(13), 0u);
  EXPECT_EQ(Disk().List("S:\\P\\All Users\\Application Data\\Ostrel\\portable.dir"),
            std::vector<std::string>{KeyName(kNow) + " = ann's"});
}

// The Windows folder then replaces both, and the common ancestor of two paths with the same text is their
// parent.
TEST_F(PortableKeysTest, DoesNothingWithoutTheFolderFunction) {
  TheModules().Missing("SHFOLDER");
  TheRig().ledger.Forget();
  TheWorld().On<::GetWindowsDirectoryW>([](wchar_t* folder, UINT) -> UINT {
    lstrcpyW(folder, L"S:\\Windows folder");
    return 17;
  });
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(LoadLibraryA("SHFOLDER") = null)",
      "SetErrorMode(0x4000) = 32769",
      "GetWindowsDirectoryW(*, 260) = 17",
      "GetWindowsDirectoryW(*, 260) = 17",
  });
}

TEST_F(PortableKeysTest, ReplacesAFileOfTheSameName) {
  Disk().File(UserFolder("ann") + "\\portable.pky", "new");
  Disk().File(std::string(kTarget) + "\\" + KeyName(kNow), "old");
  EXPECT_EQ(Run(13), 0u);
  EXPECT_EQ(Disk().List(kTarget), std::vector<std::string>{KeyName(kNow) + " = new"});
}

// The folder is not created, and the number is used up by a file that cannot be moved.
TEST_F(PortableKeysTest, AFileThatCannotBeMovedStays) {
  Disk().File(UserFolder("ann") + "\\portable.pky", "ann's");
  Disk().File(UserFolder("bob") + "\\portable.pky", "bob's");
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRUE(Disk().HasFile(UserFolder("ann") + "\\portable.pky"));
  EXPECT_TRUE(Disk().HasFile(UserFolder("bob") + "\\portable.pky"));
  EXPECT_FALSE(Disk().Has("S:\\Profiles of all\\All Users"));
  std::vector<std::string> moves;
  for (const std::string& call : TheRig().trace.Lines()) {
    if (call.rfind("MoveFileExW(", 0) == 0) moves.push_back(call.substr(call.rfind("\\\\") + 2));
  }
  EXPECT_EQ(moves,
            (std::vector<std::string>{KeyName(kNow) + "\", 0x1) = 0", KeyName(kNow + 1) + "\", 0x1) = 0"}));
}

TEST_F(PortableKeysTest, AFolderWithTheKeysNameIsNotAKey) {
  Disk().Folder(UserFolder("ann") + "\\portable.pky");
  Disk().Folder(kTarget);
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRUE(Disk().HasFolder(UserFolder("ann") + "\\portable.pky"));
  EXPECT_EQ(Disk().List(kTarget), std::vector<std::string>{});
}

TEST_F(PortableKeysTest, LooksOneLevelDeepOnly) {
  Disk().File(UserFolder("group\\ann") + "\\portable.pky", "ann's");
  Disk().Folder(kTarget);
  EXPECT_EQ(Run(13), 0u);
  EXPECT_TRUE(Disk().HasFile(UserFolder("group\\ann") + "\\portable.pky"));
}

// Here "Ostrel" is the short name of the folder "Application Data", so a user's folder is the target.
TEST_F(PortableKeysTest, AKeyInTheTargetStaysThere) {
  TheWorld().shell.Set(CSIDL_COMMON_APPDATA, L"S:\\Profiles of all\\ann\\Local Settings");
  TheWorld().shell.Set(CSIDL_LOCAL_APPDATA, L"S:\\Profiles of all\\bob\\Local Settings\\Application Data");
  Disk().File(UserFolder("ann") + "\\portable.pky", "ann's");
  Disk().File(UserFolder("bob") + "\\portable.pky", "bob's");
  Disk().Shorten("S:\\Profiles of all\\ann\\Local Settings\\Ostrel", "Application Data");
  EXPECT_EQ(Run(13), 0u);
  EXPECT_EQ(Disk().List(UserFolder("ann")),
            (std::vector<std::string>{KeyName(kNow) + " = bob's", "portable.pky = ann's"}));
}

TEST_F(PortableKeysTest, SurvivesTheFailureOfEachCall) {
  TheRig().ledger.Forget();
  FailEachCall(13,
               [&](rig::World& world) {
                 world.rig.ledger.Deliberate(rig::kModule, "SHFOLDER");
                 Disk().Clear();
                 Disk().File(UserFolder("ann") + "\\portable.pky", "ann's");
                 Disk().File(UserFolder("bob") + "\\portable.pky", "bob's");
                 Disk().Folder(kTarget);
                 world.On<::GetWindowsDirectoryW>([](wchar_t* folder, UINT) -> UINT {
                   lstrcpyW(folder, L"D:\\Windows folder");
                   return 17;
                 });
               },
               {.check = [&](const rig::SweepRun& run) {
                 // Each key is complete, either with its user or in the target.
                 std::vector<std::string> moved = Disk().List(kTarget);
                 for (const char* user : {"ann", "bob"}) {
                   size_t copies = Disk().HasFile(UserFolder(user) + "\\portable.pky");
                   for (const std::string& line : moved)
                     copies += line.find(std::string(" = ") + user + "'s") != line.npos;
                   EXPECT_EQ(copies, 1u) << user << ": " << run.call;
                 }
                 EXPECT_TRUE(run.scene.world.installer.Published().empty());
               }});
}

}  // namespace server_upgrade_properties_keys_test
