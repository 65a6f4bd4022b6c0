// Obstacles to a server's upgrade: data in another place or missing, leftovers of an earlier conversion,
// files that resist the rollback.

#include <cstring>
#include <set>

#include "install/server_rig.h"

namespace install {
namespace {

class ServerObstaclesTest : public ServerTest {
 protected:
  /// Writes a file next to one whose name differs only in case. The system ignores case when it opens a file
  /// by its own path; the machine below it does not.
  static void WriteInThisCase(const std::wstring& path, const std::string& bytes) {
    using UnixName = char* CDECL(const wchar_t*);
    auto* unixName = reinterpret_cast<UnixName*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    ASSERT_NE(unixName, nullptr);
    const size_t name = path.rfind(L'\\') + 1;
    char* folder = unixName(path.substr(0, name - 1).c_str());
    ASSERT_NE(folder, nullptr);
    std::wstring exact = L"\\\\?\\unix" + ToWide(folder) + L"/" + path.substr(name);
    HeapFree(GetProcessHeap(), 0, folder);
    HANDLE file = CreateFileW(exact.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << FromWide(exact) << ": " << GetLastError();
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    CloseHandle(file);
  }

  /// Returns the contents of a folder's files whose names begin with `name`, in any case.
  static std::set<std::string> ContentsOf(const std::wstring& folder, const std::string& name) {
    std::set<std::string> contents;
    for (const auto& [path, bytes] : ReadTree(folder)) {
      if (_strnicmp(path.c_str(), name.c_str(), name.size()) == 0) contents.insert(bytes);
    }
    return contents;
  }
};

// The engine knows the older product. Its data have the marker of an earlier conversion, which says nothing
// about this one, and a file that the rollback cannot delete.
TEST_F(ServerObstaclesTest, RollbackRestoresARegisteredServerInSpiteOfObstacles) {
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  Tree older = With(OlderProgram(), "Data", OlderData("9"));
  older["Data\\Helper Data\\locked.dat"] = "read-only";
  older["Data\\dbcon_completed.txt"] = "a marker of long ago";
  WriteTree(server, older);
  MakeReadOnly(server + L"\\Data\\Helper Data\\locked.dat");

  const InstallerRun& failed = Install(Server());
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  ExpectRolledBack(failed);
  EXPECT_TRUE(OlderServer().IsInstalled());
  EXPECT_EQ(ReadTree(server), older);
  const Tree resisted = ReadTree(programs + L"\\" + ToWide(NameWithTime(programs, "Vantor")));
  EXPECT_EQ(resisted.count("Data\\Helper Data\\locked.dat"), 1u);
  EXPECT_FALSE(FileExists(aside));

  // The next attempt moves everything aside, including what the last one has left. This engine's rollback has
  // forgotten which product the older one is a version of, so the upgrade does not find it, and it stays
  // registered.
  Tree whole = ReadTree(server);
  whole["Data\\format.txt"] = "1\r\n";
  WriteTree(server + L"\\Data", {{"format.txt", "1\r\n"}});
  EXPECT_EQ(Install(Server()).exitCode, 0u);
  EXPECT_TRUE(Server().IsInstalled());
  EXPECT_EQ(ReadTree(aside), whole);
  Tree data = Converted(OlderData("1"));
  data["Helper Data\\locked.dat"] = "read-only";
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", data));
}

// The folder cannot be renamed, so its entries are moved back one by one.
TEST_F(ServerObstaclesTest, RollbackRestoresAServerWhoseFolderIsHeld) {
  const Tree older = With(OlderProgram(), "Data", OlderData("1"));
  WriteTree(server, older);
  const InstallerRun& failed = InstallInterrupted([] {}, server);
  EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  ExpectRolledBack(failed);
  Tree restored = ReadTree(server);
  EXPECT_EQ(TakeStamped(restored), With({}, "Data", OlderData("1")));
  EXPECT_EQ(restored, older);
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kUpgradeKey));
}

// What an earlier upgrade has moved aside cannot be renamed, or the server's folder cannot be moved. Nothing
// was moved then, so nothing must be moved back.
TEST_F(ServerObstaclesTest, AServerThatCannotBeMovedAsideStaysAsItIs) {
  const Tree older = With(OlderProgram(), "Data", OlderData("1"));
  const Tree earlier = {{"vt.exe", "of an earlier version"}, {"Data\\", ""}, {"Data\\format.txt", "0\r\n"}};
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    for (const std::wstring& folder : {aside, server}) {
      SCOPED_TRACE(FromWide(data) + ", " + FromWide(folder));
      DeleteTree(programs);
      DeleteTree(elsewhere);
      WriteTree(aside, earlier);
      WriteTree(server, older);
      WriteTree(data, OlderData("1"));
      SetDataSetting(data);
      HANDLE held = HoldFolder(folder);
      const InstallerRun& stopped = Install(Server(), L"PROP_SILENCE=-1");
      CloseHandle(held);
      // Wine's engine has another code for a program that fails, which is the check of the place here.
      if (folder == server) EXPECT_EQ(stopped.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
      ExpectRolledBack(stopped);
      EXPECT_EQ(stopped.LinesWith(kCannotMoveAside).size(), folder == aside ? 0 : NoticesOfTheScript());
      EXPECT_EQ(stopped.FailuresOf("CheckServerFree").size(), folder == aside ? 1u : 0u);
      EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kUpgradeKey));
      EXPECT_EQ(ReadTree(server), older);
      // If only the server's folder is held, the earlier one has another name by then.
      const std::wstring kept =
          folder == aside ? L"Vantor (previous)" : ToWide(NameWithTime(programs, "Vantor (previous)"));
      EXPECT_EQ(ReadTree(programs + L"\\" + kept), earlier);
      EXPECT_EQ(Names(programs).size(), 2u);
      if (data == outsideData) {
        EXPECT_EQ(ReadTree(outsideData), OlderData("1"));
        EXPECT_EQ(Names(elsewhere), std::vector<std::string>{"Data"});
      }
    }
  }
}

// A case-sensitive folder can have such pairs. If the folder is held, its entries are moved back one by one,
// and the second of the pair finds the first in its place.
TEST_F(ServerObstaclesTest, RollbackLosesNeitherOfTwoNamesThatDifferInCaseOnly) {
  HX_NEEDS_WINE(Differs::kCaseOfNames);
  const std::set<std::string> both = {"first", "second"};
  for (const std::wstring& data : {server + L"\\Data", outsideData}) {
    SCOPED_TRACE(FromWide(data));
    DeleteTree(programs);
    WriteTree(server, OlderProgram());
    WriteTree(data, {{"format.txt", "9\r\n"}});
    SetDataSetting(data);
    const std::wstring folder = data == outsideData ? outsideData : server;
    WriteInThisCase(folder + L"\\Notes.txt", "first");
    WriteInThisCase(folder + L"\\notes.TXT", "second");
    ASSERT_EQ(ContentsOf(folder, "notes.txt"), both);

    const bool isOutside = data == outsideData;
    const InstallerRun& failed = InstallInterrupted([] {}, isOutside ? L"" : server);
    EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    ExpectRolledBack(failed);
    EXPECT_EQ(ContentsOf(folder, "notes.txt"), both);
    // Data outside are moved back by renaming their folder.
    const std::wstring kept = ToWide(failed.Property(isOutside ? "DIR_UPG_DATA" : "DIR_UPG"));
    EXPECT_EQ(ReadTree(kept + L"."), (Tree{{"(missing)", ""}}));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kUpgradeKey));
  }
}

TEST_F(ServerObstaclesTest, DataThatAreNotWhereTheyShouldBeAreRefused) {
  const Tree older = With(OlderProgram(), "Data", With(OlderData("1"), "Store", {{"data.db", "deep"}}));
  WriteTree(server, older);
  SetDataSetting(elsewhere + L"\\gone");
  ExpectRefused(Install(Server()), "RefuseMissingData");
  SetDataSetting(server + L"\\Data\\Store");
  ExpectRefused(Install(Server()), "RefuseDeepData");
  SetDataSetting(server);
  ExpectRefused(Install(Server()), "RefuseDeepData");
  EXPECT_EQ(DataSetting(), FromWide(server));

  // A package that would keep the folder under its own name; the comparison ignores case.
  const std::wstring package = elsewhere + L"\\server.msi";
  WriteTree(elsewhere, {});
  ChangePackage(Server().path, package,
                {"UPDATE `Property` SET `Value` = 'VANTOR' WHERE `Property` = 'ServerAsideName'"});
  SetDataSetting(server + L"\\Data");
  ExpectRefused(Msiexec("own-name", L"/i \"" + package + L"\" /qn"), "RefuseAsideFolder");

  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
}

// The command line says where the server and its data are, without the backslash that folders have; the
// registry says something else of both.
TEST_F(ServerObstaclesTest, GivenFoldersTakePrecedenceOverFoundOnes) {
  const Tree older = With(OlderProgram(), "Data", OlderData("1"));
  WriteTree(server, older);
  SetDataSetting(elsewhere + L"\\gone");
  SetRegistryText(HKEY_LOCAL_MACHINE, std::string(kMakerKey) + "\\Vantor", "ServerFolder",
                  FromWide(elsewhere + L"\\other\\"));
  const InstallerRun& upgraded = Install(
      Server(), L"PROP_SILENCE=-1 DIR_SERVER=\"" + server + L"\" DIR_DATAFOLDER=\"" + server + L"\\Data\"");
  ExpectInstalled(upgraded);
  EXPECT_EQ(
      DeferredActions(upgraded),
      (std::vector<std::string>{"CustomAction15.LookAtOlder", "CustomAction15.FreeServer",
                                "CustomAction15.Server", "CustomAction15.LookAtData", "CustomAction16.Data",
                                "CustomAction17.Clear", "CustomAction17.Judge"}));
  EXPECT_EQ(upgraded.LinesWith(kCannotMerge).size(), 0u);
  EXPECT_EQ(ReadTree(aside), older);
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", Converted(OlderData("1"))));
  EXPECT_FALSE(FileExists(elsewhere));
  EXPECT_EQ(DataSetting(), FromWide(server + L"\\Data\\"));
  ExpectPublished(upgraded, {{"DIR_SERVER", server + L"\\"},
                             {"DIR_DATAFOLDER", server + L"\\Data\\"},
                             {"DIR_EXDATA", elsewhere + L"\\gone\\"},
                             {"PROP_PREVVTDF", server + L"\\Data\\"},
                             {"PROP_DATAFOLDERGIVEN", L"1"},
                             {"PROP_NODATA", L""}});
}

TEST_F(ServerObstaclesTest, AServerWithoutDataIsUpgraded) {
  // The engine knows this server, which has no data folder.
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  const InstallerRun& missing = Install(Server(), L"PROP_SILENCE=-1");
  ExpectInstalled(missing);
  EXPECT_EQ(DeferredActions(missing),
            (std::vector<std::string>{"CustomAction15.FreeServer", "CustomAction15.Server",
                                      "CustomAction15.LookAtData", "CustomAction17.Clear",
                                      "CustomAction17.Judge"}));
  EXPECT_EQ(missing.LinesWith(kCannotMerge).size(), 0u);
  EXPECT_EQ(ReadTree(aside), OlderProgram());
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", {}));
  ExpectPublished(missing, {{"PROP_NODATA", L"1"},
                            {"PROP_PREVVTDF", server + L"\\Data\\"},
                            {"DIR_DATAFOLDER", server + L"\\Data\\"},
                            {"DIR_EXDATA", L""}});
  EXPECT_EQ(Remove(Server()).exitCode, 0u);

  // This server is only found, and its data folder is empty.
  DeleteTree(programs);
  WriteTree(server, With(OlderProgram(), "Data", {}));
  const InstallerRun& empty = Install(Server(), L"PROP_SILENCE=-1 PROP_UPGRADE=1");
  ExpectInstalled(empty);
  EXPECT_EQ(
      DeferredActions(empty),
      (std::vector<std::string>{"CustomAction15.LookAtOlder", "CustomAction15.FreeServer",
                                "CustomAction15.Server", "CustomAction15.LookAtData", "CustomAction16.Data",
                                "CustomAction17.Clear", "CustomAction17.Judge"}));
  EXPECT_EQ(empty.LinesWith(kCannotMerge).size(), 0u);
  EXPECT_EQ(ReadTree(aside), With(OlderProgram(), "Data", {}));
  EXPECT_EQ(ReadTree(server), With(NewProgram(), "Data", {}));
  ExpectPublished(empty, {{"PROP_NODATA", L""}});
}

// The converter runs as SYSTEM, and whoever can write the data writes its input.
TEST_F(ServerObstaclesTest, DataCannotMakeTheConverterRunACommand) {
  WriteTree(elsewhere, {});
  const std::wstring gained = elsewhere + L"\\gained.txt";
  const std::string command = "echo gained>\"" + FromWide(gained) + "\"";
  for (const std::string& format : {"1\" == \"1\" " + command + " & rem \"", "\" & " + command + " & rem \"",
                                    "2\" & " + command, "& " + command}) {
    SCOPED_TRACE(format);
    DeleteTree(programs);
    const Tree older = With(OlderProgram(), "Data", {{"format.txt", format + "\r\n"}});
    WriteTree(server, older);

    const InstallerRun& failed = Install(Server());
    EXPECT_EQ(failed.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    ExpectRolledBack(failed);
    EXPECT_FALSE(FileExists(gained));
    Tree restored = ReadTree(server);
    TakeStamped(restored);
    EXPECT_EQ(restored, older);
  }
}

}  // namespace
}  // namespace install
