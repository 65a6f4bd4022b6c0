// CustomAction12 and CustomAction35: the folder of 64-bit programs, and the old administration folder.

#include <shlobj.h>

#include "actions/server/server_drives.h"
#include "rig/print.h"

namespace server_upgrade_properties_test {

using server_test::Calls;
using server_test::ServerTest;

class Programs64Test : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("VersionNT64", "603");
    world.shell.Set(CSIDL_PROGRAM_FILES, L"S:\\Program Files (x86)");
  }
  // Returns the calls up to the look-up of the folder.
  Calls Asked(const std::string& read = "0") {
    return Expected()
        .Read("VersionNT64", read)
        .Add("SetErrorMode(0x8001) = 16384")
        .Add(R"(LoadLibraryA("SHFOLDER") = SHFOLDER)")
        .Add("SetErrorMode(0x4000) = 32769")
        .Add(R"(GetProcAddress(SHFOLDER, "SHGetFolderPathW") = *)")
        .Add("SHGetFolderPathW(null, 38, null, 0, *) = 0")
        .Add("FreeLibrary(SHFOLDER) = 1");
  }
};

TEST_F(Programs64Test, PublishesTheFolderWithoutTheSuffix) {
  Disk().Folder("S:\\Program Files");
  EXPECT_EQ(Run(12), 0u);
  EXPECT_TRACE({Asked().LookUp("S:\\Program Files").Set("DIR_PROGRAMS64", "S:\\Program Files\\").lines});
  EXPECT_PUBLISHED({"DIR_PROGRAMS64 = S:\\Program Files\\"});
  EXPECT_LOG({});
}

TEST_F(Programs64Test, TheVersionMakesNoDifference) {
  Disk().Folder("S:\\Program Files");
  Installer().FailReading("VersionNT64");
  EXPECT_EQ(Run(12), 0u);
  EXPECT_TRACE(
      {Asked("1627").LookUp("S:\\Program Files").Set("DIR_PROGRAMS64", "S:\\Program Files\\").lines});
  Installer().FailReading("VersionNT64", ERROR_SUCCESS);
  for (const std::string& version : {std::string(), std::string("0"), std::string(400, '6')}) {
    Installer().Set("VersionNT64", version);
    Installer().Set("DIR_PROGRAMS64", "");
    EXPECT_EQ(Run(12), 0u);
    EXPECT_EQ(Installer().Get("DIR_PROGRAMS64"), "S:\\Program Files\\") << version;
  }
}

TEST_F(Programs64Test, ReadsTheVersionIntoABufferOf272Characters) {
  DWORD room = 0;
  TheWorld().On<::MsiGetPropertyW>([&](MSIHANDLE, const wchar_t*, wchar_t*, DWORD* count) -> UINT {
    room = *count;
    return ERROR_FUNCTION_FAILED;
  });
  EXPECT_EQ(Run(12), 0u);
  EXPECT_EQ(room, 272u);
}

// The folder that Windows returns, and the folder that is looked for ("" for none).
TEST_F(Programs64Test, MakesTheNameOfTheOtherFolder) {
  struct Case {
    const wchar_t* programs;
    std::string wanted;
  };
  const std::wstring deep = L"S:\\" + std::wstring(249, L'd');
  const Case cases[] = {
      {L"S:\\Program Files (x86)", "S:\\Program Files"},
      {L"S:\\Program Files (x86)\\", "S:\\Program Files"},
      {L"S:\\Programme (x86)", "S:\\Programme"},
      {L"S:\\Program Files", "S:\\Program Files"},
      {L"S:\\Program Files\\", "S:\\Program Files"},
      {L"S:\\Programme", "S:\\Program Files"},
      {L"S:\\Work\\Programs", "S:\\Work\\Program Files"},
      // The letters count, and so does the blank.
      {L"S:\\Program Files (X86)", "S:\\Program Files"},
      {L"S:\\Programme(x86)", "S:\\Program Files"},
      {L"S:\\Programme (x86) ", "S:\\Program Files"},
      // Only one backslash is dropped.
      {L"S:\\Programme\\\\", "S:\\Programme\\Program Files"},
      // The suffix is not stripped if it is the whole path.
      {L" (x86)", ""},
      {L"\\ (x86)", "\\"},
      {L"Programs", ""},
      {L"Programs\\", ""},
      {L"S:\\", ""},
      {L"S:", ""},
      {L"\\", ""},
      // The longest path that Windows returns, from which the new name is made.
      {deep.c_str(), "S:\\Program Files"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(rig::ToUtf8(c.programs));
    TheRig().trace.Clear();
    TheWorld().shell.Set(CSIDL_PROGRAM_FILES, c.programs);
    EXPECT_EQ(Run(12), 0u);
    Calls calls = Asked();
    if (!c.wanted.empty()) calls.LookUp(c.wanted);
    // None of these folders exists.
    EXPECT_TRACE({calls.lines});
  }
  EXPECT_PUBLISHED({});
}

TEST_F(Programs64Test, AFileIsNotAFolder) {
  Disk().File("S:\\Program Files");
  EXPECT_EQ(Run(12), 0u);
  EXPECT_TRACE({Asked().LookUp("S:\\Program Files").lines});
  EXPECT_PUBLISHED({});
}

TEST_F(Programs64Test, StopsWithoutTheFunctionsModule) {
  TheModules().Missing("SHFOLDER");
  EXPECT_EQ(Run(12), 0u);
  EXPECT_TRACE({Expected()
                    .Read("VersionNT64")
                    .Add("SetErrorMode(0x8001) = 16384")
                    .Add(R"(LoadLibraryA("SHFOLDER") = null)")
                    .Add("SetErrorMode(0x4000) = 32769")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(Programs64Test, StopsWithoutTheFunction) {
  TheModules().MissingFunction("SHFOLDER", "SHGetFolderPathW");
  EXPECT_EQ(Run(12), 0u);
  EXPECT_TRACE({Expected()
                    .Read("VersionNT64")
                    .Add("SetErrorMode(0x8001) = 16384")
                    .Add(R"(LoadLibraryA("SHFOLDER") = SHFOLDER)")
                    .Add("SetErrorMode(0x4000) = 32769")
                    .Add(R"(GetProcAddress(SHFOLDER, "SHGetFolderPathW") = null)")
                    .Add("FreeLibrary(SHFOLDER) = 1")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(Programs64Test, StopsWithoutAnAnswer) {
  Disk().Folder("S:\\Program Files");
  TheWorld().shell.Set(CSIDL_PROGRAM_FILES, L"");
  EXPECT_EQ(Run(12), 0u);
  EXPECT_TRACE({Asked().lines});
  TheWorld().shell.Fail(CSIDL_PROGRAM_FILES);
  EXPECT_EQ(Run(12), 0u);
  EXPECT_PUBLISHED({});
}

// The buffer then still holds the version, which is not the folder.
TEST_F(Programs64Test, AnAnswerThatWritesNothingIsIgnored) {
  Disk().Folder("S:\\Program Files");
  Installer().Set("VersionNT64", "S:\\Program Files (x86)");
  TheWorld().On<::SHGetFolderPathW>([](HWND, int, HANDLE, DWORD, wchar_t*) { return S_OK; });
  EXPECT_EQ(Run(12), 0u);
  EXPECT_PUBLISHED({});
}

// What a failed call leaves in the buffer is not the folder.
TEST_F(Programs64Test, AFailedAnswerIsIgnored) {
  Disk().Folder("S:\\Program Files");
  TheWorld().On<::SHGetFolderPathW>([](HWND, int, HANDLE, DWORD, wchar_t* path) {
    lstrcpyW(path, L"S:\\Program Files (x86)");
    return E_ACCESSDENIED;
  });
  EXPECT_EQ(Run(12), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(Programs64Test, SurvivesTheFailureOfEachCall) {
  FailEachCall(12,
               [&](rig::World&) {
                 Disk().Clear();
                 Disk().Folder("S:\\Program Files");
               },
               {.check = [](const rig::SweepRun& run) {
                 const std::vector<std::string>& published = run.scene.world.installer.Published();
                 if (run.name == "MsiGetPropertyW") {
                   EXPECT_EQ(published.size(), 1u);
                 } else if (run.name == "CompareStringW") {
                   // A suffix that cannot be compared is replaced with the rest of the last name; the result
                   // is the same folder here.
                   EXPECT_EQ(published.size(), 1u);
                 } else {
                   EXPECT_TRUE(published.empty()) << run.call;
                 }
               }});
}

// ---- CustomAction35

class AdminFolderTest : public ServerTest {
 protected:
  void Arrange(rig::World& world) override {
    ServerTest::Arrange(world);
    world.installer.Set("PROP_UPGRADE", "S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
    world.installer.Set("DIR_UPG", "D:\\New\\Old Server\\");
  }
};

TEST_F(AdminFolderTest, PublishesTheFolderAndTheOneBeside) {
  Disk().File("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_TRACE({Expected()
                    .ReadPath("PROP_UPGRADE", "S:\\Halvorstead\\Admin Tools\\vtadmin.exe")
                    .TestFile("S:\\Halvorstead\\Admin Tools\\vtadmin.exe")
                    .Set("DIR_EXADMIN", "S:\\Halvorstead\\Admin Tools\\")
                    .ReadPath("DIR_UPG", "D:\\New\\Old Server\\")
                    .Set("DIR_UPG", "S:\\Halvorstead\\Old Server\\")
                    .lines});
  EXPECT_PUBLISHED(
      {"DIR_EXADMIN = S:\\Halvorstead\\Admin Tools\\", "DIR_UPG = S:\\Halvorstead\\Old Server\\"});
  EXPECT_LOG({});
}

TEST_F(AdminFolderTest, SlashesSeparateNames) {
  Disk().File("S:\\Halvorstead\\Admin\\vtadmin.exe");
  Disk().File("S:\\vtadmin.exe");
  Installer().Set("PROP_UPGRADE", "S:\\Halvorstead/Admin/vtadmin.exe");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED({"DIR_EXADMIN = S:\\Halvorstead\\Admin\\", "DIR_UPG = S:\\Halvorstead\\Old Server\\"});
}

TEST_F(AdminFolderTest, DoesNothingWithoutTheFile) {
  EXPECT_EQ(Run(35), 0u);
  EXPECT_TRACE({Expected()
                    .ReadPath("PROP_UPGRADE", "S:\\Halvorstead\\Admin Tools\\vtadmin.exe")
                    .TestFile("S:\\Halvorstead\\Admin Tools\\vtadmin.exe")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(AdminFolderTest, AFolderIsNotAFile) {
  Disk().Folder("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(AdminFolderTest, AFolderThatOpensLikeAFileIsNotAFile) {
  Disk().Folder("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
  TheWorld().UseReal("CloseHandle");
  TheWorld().On<::CreateFileW>([](const wchar_t*, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    return CreateEventW(nullptr, FALSE, FALSE, nullptr);
  });
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED({});
}

TEST_F(AdminFolderTest, DoesNothingWithoutTheProperty) {
  Installer().Set("PROP_UPGRADE", "");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_TRACE({Expected().Read("PROP_UPGRADE").lines});
  TheRig().trace.Clear();
  Installer().FailReading("PROP_UPGRADE");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_TRACE({Expected().Read("PROP_UPGRADE", "1627").lines});
  EXPECT_PUBLISHED({});
}

// As the other actions set it: a value that is not the name of a file in the current folder.
TEST_F(AdminFolderTest, ADecisionIsNotAPath) {
  Installer().Set("PROP_UPGRADE", "1");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_TRACE({Expected()
                    .Read("PROP_UPGRADE")
                    .Add(R"(GetFullPathNameW("1", 1025, *, null) = 12)")
                    .Spell("S:\\Current\\1")
                    .TestFile("S:\\Current\\1")
                    .lines});
  EXPECT_PUBLISHED({});
}

TEST_F(AdminFolderTest, TheFolderOfAFileDirectlyBelowADriveIsTheDrive) {
  Installer().Set("PROP_UPGRADE", "D:\\vtadmin.exe");
  Disk().File("D:\\vtadmin.exe");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED({"DIR_EXADMIN = D:\\", "DIR_UPG = D:\\Old Server\\"});
}

TEST_F(AdminFolderTest, AFolderDirectlyBelowADriveHasItsNeighbourOnTheDrive) {
  Installer().Set("PROP_UPGRADE", "D:\\Admin Tools\\vtadmin.exe");
  Disk().File("D:\\Admin Tools\\vtadmin.exe");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED({"DIR_EXADMIN = D:\\Admin Tools\\", "DIR_UPG = D:\\Old Server\\"});
}

// An empty name means the folder that it is joined to.
TEST_F(AdminFolderTest, WithoutANameTheUpgradesFolderIsTheParent) {
  Disk().File("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
  Installer().Set("DIR_UPG", "");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED({"DIR_EXADMIN = S:\\Halvorstead\\Admin Tools\\", "DIR_UPG = S:\\Halvorstead\\"});
}

TEST_F(AdminFolderTest, AShortNameIsSpelledAsOnTheDisk) {
  Disk().File("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
  Disk().Folder("S:\\Halvorstead\\Old Server of years");
  Disk().Shorten("S:\\Halvorstead\\OLDSER~1", "Old Server of years");
  Installer().Set("DIR_UPG", "S:\\Elsewhere\\OLDSER~1");
  EXPECT_EQ(Run(35), 0u);
  EXPECT_PUBLISHED(
      {"DIR_EXADMIN = S:\\Halvorstead\\Admin Tools\\", "DIR_UPG = S:\\Halvorstead\\Old Server of years\\"});
}

TEST_F(AdminFolderTest, TheNameIsCutAt255Bytes) {
  Disk().File("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
  Installer().Set("DIR_UPG", "S:\\" + std::string(256, 'n'));
  EXPECT_EQ(Run(35), 0u);
  EXPECT_EQ(Installer().Get("DIR_UPG"), "S:\\Halvorstead\\" + std::string(255, 'n') + "\\");
}

TEST_F(AdminFolderTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(35,
               [&](rig::World&) {
                 Disk().Clear();
                 Disk().File("S:\\Halvorstead\\Admin Tools\\vtadmin.exe");
               },
               {.check = [](const rig::SweepRun& run) {
                 // A property that the installer refuses to read counts as not set, so its name is empty.
                 const bool failsToRead = run.name == "MsiGetPropertyW";
                 for (const std::string& published : run.scene.world.installer.Published()) {
                   EXPECT_TRUE((failsToRead && published == "DIR_UPG = S:\\Halvorstead\\") ||
                               published == "DIR_EXADMIN = S:\\Halvorstead\\Admin Tools\\" ||
                               published == "DIR_UPG = S:\\Halvorstead\\Old Server\\")
                       << run.call << ": " << published;
                 }
               }});
}

}  // namespace server_upgrade_properties_test
