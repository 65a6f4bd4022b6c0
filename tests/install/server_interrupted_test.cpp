// Upgrades of a server that were interrupted in their script, and the attempts after that. The engine here
// does not roll back a script that was cancelled, so a package that is cancelled at a place of the sequence
// does what an engine does that is ended there. The next attempt is refused, because the registry has the
// note that an upgrade is under way.

#include <msi.h>
#include <msiquery.h>

#include <algorithm>
#include <thread>
#include <tuple>

#include "install/machine_state.h"
#include "install/server_rig.h"

namespace install {
namespace {

// The action that refuses, and its text in the package.
const char kRefusal[] = "RefuseInterrupted";
const char kText[] =
    "An upgrade of this server was interrupted, or not all of it was undone. Start the installation again. "
    "If this text comes again, do what server-upgrade.md says. Server: [NOTEDSERVER], kept in [NOTEDASIDE]{; "
    "data: [NOTEDDATA], kept in [NOTEDASIDEDATA]}.";

// The lines that docs/server-upgrade.md has for an administrator, in their order, and the page's folders of
// the data.
const char kStop[] = R"page(net stop Vantor)page";
const char kLook[] = R"page(reg query HKLM\SOFTWARE\Halvorstead\Vantor\Upgrade)page";
const char kCopyAway[] = R"page(ren "C:\Program Files\Halvorstead\Vantor\Data" "Data (part)")page";
const char kEntryBack[] =
    R"page(move "C:\Program Files\Halvorstead\Vantor (previous) (rest)\Data" "C:\Program Files\Halvorstead\Vantor")page";
const char kNoRest[] = R"page(rd "C:\Program Files\Halvorstead\Vantor (previous) (rest)")page";
const char kServerAway[] = R"page(ren "C:\Program Files\Halvorstead\Vantor" "Vantor (part)")page";
const char kServerBack[] = R"page(ren "C:\Program Files\Halvorstead\Vantor (previous)" "Vantor")page";
const char kDataAway[] = R"page(ren "D:\Store\Data" "Data (part)")page";
const char kDataBack[] = R"page(ren "D:\Store\Data 2026-11-15" "Data")page";
const char kNewAway[] = R"page(ren "D:\New Store\Data" "Data (part)")page";
const char kSetting[] =
    R"page(reg add HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings /v vtdf /d "D:\Store\Data\\" /f)page";
const char kCompare[] = R"page(dir "C:\Program Files\Halvorstead\Vantor" "D:\Store\Data")page";
const char kForget[] = R"page(reg delete HKLM\SOFTWARE\Halvorstead\Vantor\Upgrade /f)page";
const char kPagesEntry[] = "Data";
const char kPagesData[] = "D:\\Store\\Data", kPagesNew[] = "D:\\New Store\\Data";

// Types of actions: an entry point of the library, deferred or in a rollback, without impersonation.
constexpr int kDeferredAction = 3073, kRollbackAction = 3329;
// The types of actions that run the program in a property, in the same way.
constexpr int kDeferredProgram = 3122, kRollbackProgram = 3442;

// Replaces each `from` in `text`.
void Replace(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
}

// Returns a text of a package with these properties in place of their names, as the engine makes it.
std::string WithProperties(const std::wstring& package, const std::string& text,
                           const std::map<std::string, std::string>& properties) {
  constexpr DWORD kIgnoreMachine = 1;  // MSIOPENPACKAGEFLAGS_IGNOREMACHINESTATE
  MSIHANDLE session = 0;
  MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
  EXPECT_EQ(MsiOpenPackageExW(package.c_str(), kIgnoreMachine, &session), 0u);
  for (const auto& [name, value] : properties)
    EXPECT_EQ(MsiSetPropertyW(session, ToWide(name).c_str(), ToWide(value).c_str()), 0u);
  MSIHANDLE record = MsiCreateRecord(0);
  MsiRecordSetStringW(record, 0, ToWide(text).c_str());
  wchar_t shown[2048] = {};
  DWORD size = static_cast<DWORD>(std::size(shown));
  EXPECT_EQ(MsiFormatRecordW(session, record, shown, &size), 0u);
  MsiCloseHandle(record);
  MsiCloseHandle(session);
  return FromWide(shown);
}

// Returns a refusal's text with the properties of a run in place of their names, as the engine shows it.
std::string Formatted(const std::wstring& package, const std::string& text, const InstallerRun& run) {
  std::map<std::string, std::string> properties;
  for (const char* name : {"NOTEDSERVER", "NOTEDASIDE", "NOTEDDATA", "NOTEDASIDEDATA"})
    properties[name] = run.Property(name);
  return WithProperties(package, text, properties);
}

// Runs the command processor with these arguments. Returns its result.
DWORD RunCommand(const std::wstring& arguments) {
  std::wstring line = L"cmd.exe " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
    return GetLastError();
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return code;
}

// Runs a command as an administrator does at a prompt. Returns its result.
DWORD Command(const std::wstring& command) {
  return RunCommand(L"/d /c " + command);
}

// Returns a folder of the note without its last backslash.
std::string Folder(std::string noted) {
  if (!noted.empty()) noted.pop_back();
  return noted;
}

// The end of a script that a package is given: cancelled, or failed.
enum class End { kCancelled, kFailed };

class ServerInterruptedTest : public ServerTest {
 protected:
  void TearDown() override {
    DeleteTree(stop);
    ServerTest::TearDown();
  }

  /// Installs a copy of the server package whose script ends at this place of the sequence.
  const InstallerRun& InstallUntil(int place, End end = End::kCancelled,
                                   std::vector<std::string> statements = {},
                                   const std::wstring& properties = L"") {
    const std::wstring package = stop + L"\\until.msi";
    WriteTree(stop, end == End::kCancelled ? Tree{{"dbcon_cancelled.txt", ""}} : Tree{});
    for (const std::string& statement :
         {"INSERT INTO `Property` (`Property`, `Value`) VALUES ('Stop', '" + FromWide(stop) + "\\')",
          "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Stop', " +
              std::to_string(kDeferredAction) + ", 'hxsetup', 'CustomAction17')",
          "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('Stop', " +
              std::to_string(place) + ")"})
      statements.push_back(statement);
    ChangePackage(Server().path, package, statements);
    const InstallerRun& run = Msiexec("until", L"/i \"" + package + L"\" /qn " + properties);
    EXPECT_EQ(run.exitCode,
              static_cast<DWORD>(end == End::kCancelled ? ERROR_INSTALL_USEREXIT : ERROR_INSTALL_FAILURE));
    EXPECT_FALSE(Server().IsInstalled());
    DeleteTree(stop);
    return run;
  }

  /// Writes an older server, which the engine does not know, with its data in `data`. Returns its folder.
  Tree WriteOlder(const std::wstring& data) {
    Tree older = OlderProgram();
    if (data == inside) older = With(older, "Data", OlderData("1"));
    WriteTree(server, older);
    WriteTree(data, OlderData("1"));
    SetDataSetting(data);
    return older;
  }

  /// Returns a value of the note; empty without one.
  static std::string Note(const char* name) {
    return GetRegistryText(HKEY_LOCAL_MACHINE, kUpgradeKey, name).value_or("");
  }
  static bool HasNote() { return KeyExists(HKEY_LOCAL_MACHINE, kUpgradeKey); }
  static void WriteNote(const std::wstring& noted, const std::wstring& kept) {
    SetRegistryText(HKEY_LOCAL_MACHINE, kUpgradeKey, "Aside", FromWide(kept) + "\\");
    SetRegistryText(HKEY_LOCAL_MACHINE, kUpgradeKey, "Server", FromWide(noted) + "\\");
  }

  /// Returns the folder next to the outside data whose name is theirs and a date.
  std::wstring Dated() const {
    for (const std::string& name : Names(elsewhere)) {
      if (name.size() == sizeof "Data 2026-11-15" - 1 && name.rfind("Data ", 0) == 0)
        return elsewhere + L"\\" + ToWide(name);
    }
    return elsewhere + L"\\(no date)";
  }

  /// Expects that an attempt is refused with the text for the note in the registry, and that it changes
  /// nothing.
  void ExpectInterrupted(const std::wstring& properties = L"") {
    const std::string kept = Note("AsideData");
    const std::string data = kept.empty() ? "" : "; data: " + Note("Data") + ", kept in " + kept;
    const MachineState before = MachineState::Now();
    const InstallerRun& run = Install(Server(), properties);
    EXPECT_EQ(run.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    EXPECT_EQ(MachineState::Now().Since(before), "");
    EXPECT_EQ(run.FailuresOf(kRefusal).size(), 1u);
    for (const std::string& line : run.LinesWith("Action start ")) {
      if (line.find(": Refuse") != std::string::npos)
        EXPECT_NE(line.find(kRefusal), std::string::npos) << line;
    }
    EXPECT_EQ(run.LinesWith(": CustomAction13.").size(), 0u);
    EXPECT_EQ(DeferredActions(run), std::vector<std::string>());
    EXPECT_EQ(
        Formatted(Server().path, RefusalText(Server().path, kRefusal), run),
        "An upgrade of this server was interrupted, or not all of it was undone. Start the installation "
        "again. If this text comes again, do what server-upgrade.md says. Server: " +
            Note("Server") + ", kept in " + Note("Aside") + data + ".");
  }

  /// Types a line of the page, with this test's folders of the data in place of the page's. Returns its
  /// result.
  DWORD Type(const char* line, const std::wstring& newData = L"") {
    std::string text = line;
    const std::string data = Note("Data");
    Replace(text, kPagesNew, FromWide(newData));
    Replace(text, std::string(kPagesData) + " 2026-11-15", Folder(Note("AsideData")));
    Replace(text, kPagesData, data.empty() ? FromWide(inside) : Folder(data));
    return Command(ToWide(text));
  }

  /// Deletes what an earlier round has left, and writes an older server with its data in `data`. Returns its
  /// folder.
  Tree WriteOnlyOlder(const std::wstring& data) {
    DeleteServer();
    DeleteTree(programs);
    DeleteTree(elsewhere);
    return WriteOlder(data);
  }

  /// Does what the page says: types its lines, each of them only if the folder exists that it names. Ends at
  /// the first one that fails. Returns true if all succeeded.
  bool PutBack() {
    Type(kStop);
    if (Type(kLook)) return false;
    const bool isElsewhere = !Note("NewData").empty(), isOutside = !Note("Data").empty();
    const bool isPutBack =
        PutEntriesBack() && PutFolderBack("Aside", "Server", kServerAway, kServerBack) &&
        PutFolderBack("AsideData", "Data", kDataAway, kDataBack) &&
        (!Exists(Note("NewData")) || Type(kNewAway, ToWide(Folder(Note("NewData")))) == 0) &&
        ((!isElsewhere && !isOutside) || Type(kSetting) == 0);
    if (!isPutBack) return false;
    Type(kCompare);
    if (Type(kForget)) return false;
    EXPECT_FALSE(HasNote());
    return true;
  }

  static bool Exists(const std::string& folder) {
    return !folder.empty() && FileExists(ToWide(Folder(folder)));
  }

  /// Types the page's lines for one of the two folders of the older server.
  bool PutFolderBack(const char* kept, const char* noted, const char* awayLine, const char* backLine) {
    if (!Exists(Note(kept))) return true;
    return (!Exists(Note(noted)) || Type(awayLine) == 0) && Type(backLine) == 0;
  }

  /// Types the page's lines for the entries that a rollback has not moved back.
  bool PutEntriesBack() {
    if (!FileExists(rest)) return true;
    for (const std::string& name : Names(rest)) {
      std::string away = kCopyAway, back = kEntryBack;
      Replace(away, std::string("\\") + kPagesEntry + "\"", "\\" + name + "\"");
      Replace(away, std::string("\"") + kPagesEntry + " ", "\"" + name + " ");
      Replace(back, std::string("\\") + kPagesEntry + "\"", "\\" + name + "\"");
      if (FileExists(server + L"\\" + ToWide(name)) && Type(away.c_str())) return false;
      if (Type(back.c_str())) return false;
    }
    return Type(kNoRest) == 0;
  }

  const std::wstring rest = aside + L" (rest)";
  const std::wstring inside = server + L"\\Data";
  const std::wstring stop = L"C:\\Vantor Stop";
};

TEST_F(ServerInterruptedTest, TheTextOfTheRefusal) {
  EXPECT_EQ(RefusalText(Server().path, kRefusal), kText);
}

// With the new server's files and a part of the data, and with the copied data. An attempt takes seconds, so
// only these places: ./hx lives kills upgrades at random moments.
TEST_F(ServerInterruptedTest, TheNextAttemptIsRefusedUntilTheOlderServerIsPutBack) {
  HX_NEEDS_WINE(Differs::kCancelled);
  for (const auto& [data, place] : {std::pair(inside, 4100), {outsideData, 4115}}) {
    SCOPED_TRACE(FromWide(data) + ", " + std::to_string(place));
    const Tree older = WriteOnlyOlder(data);
    InstallUntil(place);
    const bool isOutside = data != inside;
    EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
    EXPECT_EQ(Note("Aside"), FromWide(aside) + "\\");
    EXPECT_EQ(Note("Data"), isOutside ? FromWide(data) + "\\" : "");
    EXPECT_EQ(Note("AsideData"), isOutside ? FromWide(Dated()) + "\\" : "");
    EXPECT_EQ(ReadTree(aside), older);
    if (isOutside) EXPECT_EQ(ReadTree(Dated()), OlderData("1"));
    // A part of the copied data: one file is there in part, the others are missing.
    if (place == 4100) WriteTree(data, {{"format.txt", "1\r\n"}, {"a.b.c", "do"}});

    ExpectInterrupted();
    if (place == 4100) ExpectInterrupted(L"PROP_UPGRADE=1");
    EXPECT_EQ(ReadTree(aside), older);

    EXPECT_TRUE(PutBack());
    EXPECT_EQ(ReadTree(server), older);
    EXPECT_EQ(ReadTree(data), OlderData("1"));
    const InstallerRun& run = Install(Server());
    ExpectInstalled(run);
    EXPECT_EQ(ReadTree(aside), older);
    EXPECT_EQ(ReadTree(data), Converted(OlderData("1")));
    if (isOutside) EXPECT_EQ(ReadTree(Dated()), OlderData("1"));
    EXPECT_EQ(DataSetting(), FromWide(data) + "\\");
    EXPECT_FALSE(HasNote());
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// The data are copied to a folder that no rollback renames, and it has a part of a file. The copies in it
// would win over the data, and the setting names it. So the note stays also after a rollback.
TEST_F(ServerInterruptedTest, ACopyInAnotherFolderIsMovedAway) {
  HX_NEEDS_WINE(Differs::kCancelled);
  const std::wstring other = elsewhere + L"\\New\\Data";
  const std::wstring given = L"PROP_UPGRADE=1 DIR_DATAFOLDER=\"" + other + L"\"";
  for (const auto& [data, end] : {std::pair(inside, End::kFailed), {outsideData, End::kCancelled}}) {
    SCOPED_TRACE(FromWide(data));
    const Tree older = WriteOnlyOlder(data);
    // The failure is after the note is deleted.
    InstallUntil(end == End::kFailed ? 5898 : 5893, end, {}, given);
    EXPECT_EQ(Note("NewData"), FromWide(other) + "\\");
    if (end == End::kCancelled) EXPECT_EQ(DataSetting(), FromWide(other) + "\\");
    if (end == End::kFailed) EXPECT_EQ(ReadTree(server), older);
    WriteTree(other, {{"a.b.c", "do"}});
    const Tree part = ReadTree(other);
    ExpectInterrupted(given);
    EXPECT_TRUE(PutBack());
    EXPECT_EQ(ReadTree(server), older);
    EXPECT_EQ(ReadTree(data), OlderData("1"));
    EXPECT_EQ(ReadTree(other + L" (part)"), part);
    EXPECT_EQ(DataSetting(), FromWide(data) + "\\");
    ExpectInstalled(Install(Server(), given));
    EXPECT_EQ(ReadTree(other), Converted(OlderData("1")));
    EXPECT_EQ(ReadTree(aside), older);
    EXPECT_FALSE(HasNote());
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// The setting names a folder that cannot be found, and the command line names the folder with the only data:
// they are converted in place. Nothing is copied, and nothing must be renamed.
TEST_F(ServerInterruptedTest, DataThatAreConvertedInPlaceStayThere) {
  HX_NEEDS_WINE(Differs::kCancelled);
  const std::wstring only = elsewhere + L"\\Only\\Data";
  const std::wstring given = L"PROP_UPGRADE=1 DIR_DATAFOLDER=\"" + only + L"\"";
  WriteTree(server, OlderProgram());
  WriteTree(only, OlderData("1"));
  SetDataSetting(elsewhere + L"\\gone");
  InstallUntil(4110, End::kCancelled, {}, given);
  EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
  EXPECT_EQ(Note("NewData"), "");
  EXPECT_TRUE(PutBack());
  EXPECT_EQ(ReadTree(server), OlderProgram());
  EXPECT_EQ(ReadTree(only), OlderData("1"));
  ExpectInstalled(Install(Server(), given));
  EXPECT_EQ(ReadTree(only), Converted(OlderData("1")));
  EXPECT_EQ(ReadTree(aside), OlderProgram());
}

// The data move into the server's folder, where they are copied. The copies go away with that folder.
TEST_F(ServerInterruptedTest, CopiesInTheServersFolderGoAwayWithIt) {
  HX_NEEDS_WINE(Differs::kCancelled);
  const std::wstring given = L"PROP_UPGRADE=1 DIR_DATAFOLDER=\"" + inside + L"\"";
  const Tree older = WriteOlder(outsideData);
  InstallUntil(5893, End::kCancelled, {}, given);
  EXPECT_EQ(Note("Data"), FromWide(outsideData) + "\\");
  EXPECT_EQ(Note("NewData"), "");
  EXPECT_EQ(DataSetting(), FromWide(inside) + "\\");
  EXPECT_TRUE(PutBack());
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(ReadTree(outsideData), OlderData("1"));
  EXPECT_EQ(DataSetting(), FromWide(outsideData) + "\\");
}

// The engine knows the older server, which has no data: nothing was copied, and the note is there all the
// same.
TEST_F(ServerInterruptedTest, AServerWithoutDataIsRefusedToo) {
  HX_NEEDS_WINE(Differs::kCancelled);
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  InstallUntil(3720);
  EXPECT_EQ(Note("Data"), "");
  ExpectInterrupted();
  EXPECT_TRUE(PutBack());
  EXPECT_EQ(ReadTree(server), OlderProgram());
  const InstallerRun& run = Install(Server());
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(ReadTree(aside), OlderProgram());
  EXPECT_FALSE(HasNote());
}

// The note is deleted after the conversion and before the service starts. What is there then is whole, and
// the new server may have data of its own: the next attempt takes it for the older server.
TEST_F(ServerInterruptedTest, AfterTheNoteIsDeletedTheNextAttemptGoesOnWithTheNewData) {
  HX_NEEDS_WINE(Differs::kCancelled);
  const Tree older = WriteOlder(inside);
  InstallUntil(5898);
  EXPECT_FALSE(HasNote());
  WriteTree(inside, {{"counted since.dat", "18"}});
  ExpectInstalled(Install(Server()));
  Tree data = Converted(OlderData("1"));
  data["counted since.dat"] = "18";
  EXPECT_EQ(ReadTree(inside), data);
  EXPECT_EQ(ReadTree(programs + L"\\" + ToWide(NameWithTime(programs, "Vantor (previous)"))), older);
}

// Before the note nothing was moved, so nothing is refused.
TEST_F(ServerInterruptedTest, AnUpgradeThatEndsBeforeItsNoteIsNotRefused) {
  HX_NEEDS_WINE(Differs::kCancelled);
  const Tree older = WriteOlder(inside);
  InstallUntil(1996);
  EXPECT_FALSE(HasNote());
  EXPECT_EQ(ReadTree(server), older);
  // The first value of a note without its last one, and one of another upgrade.
  SetRegistryText(HKEY_LOCAL_MACHINE, kUpgradeKey, "Aside", FromWide(aside) + "\\");
  SetRegistryText(HKEY_LOCAL_MACHINE, kUpgradeKey, "AsideData", "D:\\earlier\\");
  InstallUntil(2015);
  EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
  EXPECT_EQ(Note("AsideData"), "");
  EXPECT_TRUE(PutBack());
  ExpectInstalled(Install(Server()));
  EXPECT_EQ(ReadTree(inside), Converted(OlderData("1")));
}

TEST_F(ServerInterruptedTest, ARollbackDeletesTheNote) {
  for (const auto& [data, place] : {std::pair(inside, 1996),
                                    {inside, 2015},
                                    {inside, 4160},
                                    {outsideData, 2007},
                                    {outsideData, 2040},
                                    {outsideData, 5893}}) {
    SCOPED_TRACE(FromWide(data) + ", " + std::to_string(place));
    const Tree older = WriteOnlyOlder(data);
    const InstallerRun& failed = InstallUntil(place, End::kFailed);
    ExpectRolledBack(failed);
    EXPECT_FALSE(HasNote());
    EXPECT_EQ(ReadTree(server), older);
    EXPECT_EQ(ReadTree(data), OlderData("1"));
  }
  // The engine's rollback deletes the setting.
  SetDataSetting(outsideData);
  ExpectInstalled(Install(Server()));
  EXPECT_EQ(ReadTree(outsideData), Converted(OlderData("1")));
  EXPECT_FALSE(HasNote());
}

// A rollback that was interrupted runs again from its beginning. Its actions are in the script twice here:
// the second time they find each folder in its place, and must not rename it.
TEST_F(ServerInterruptedTest, ARollbackThatRunsTwiceChangesNothingMore) {
  const std::pair<const char*, std::string> strings[] = {
      {"Server", "hxsetup -cel \"[DIR_UPG]no such entry*\" -mobl \"[DIR_UPG].\" \"[DIR_EXSERVER].\""},
      {"Entries", "hxsetup -mobinl \"[AsideRest]*\" \"[DIR_EXSERVER].\""},
      {"Data", "hxsetup -cel \"[DIR_UPG_DATA]no such entry*\" -mobl \"[DIR_UPG_DATA].\" \"[DIR_EXDATA].\""}};
  std::vector<std::string> statements;
  int place = 2051;
  for (const auto& [name, text] : strings) {
    const std::string action = std::string("CustomAction16.Again") + name;
    for (const std::string& row :
         {std::string("'Set") + name + "', 51, '" + action + "', '" + text + "'",
          "'" + action + "', " + std::to_string(kRollbackAction) + ", 'hxsetup', 'CustomAction16'"})
      statements.push_back("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES (" +
                           row + ")");
    for (const auto& [placed, number] : {std::pair(std::string("Set") + name, place - 500), {action, place}})
      statements.push_back(
          "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('" + placed +
          "', 'UpgradeData', " + std::to_string(number) + ")");
    ++place;
  }
  const Tree older = WriteOlder(outsideData);
  const InstallerRun& failed = InstallUntil(4160, End::kFailed, statements);
  const std::vector<std::string> actions = DeferredActions(failed);
  for (const char* name :
       {"CustomAction16.AgainServer", "CustomAction16.AgainEntries", "CustomAction16.AgainData"})
    EXPECT_EQ(std::count(actions.begin(), actions.end(), name), 1) << name;
  // They are the package's own.
  for (const auto& [again, own] : {std::pair("AgainServer", "RollbackServerReplace"),
                                   {"AgainEntries", "RollbackServerEntries"},
                                   {"AgainData", "RollbackDataReplace"}})
    EXPECT_EQ(failed.Property(std::string("CustomAction16.") + again),
              failed.Property(std::string("CustomAction16.") + own));
  const auto first = std::find(actions.begin(), actions.end(), "CustomAction16.RollbackServerReplace"),
             second = std::find(actions.begin(), actions.end(), "CustomAction16.AgainServer");
  EXPECT_TRUE(first != actions.end() && first < second);
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(ReadTree(outsideData), OlderData("1"));
  // The copies that the first run has renamed, and nothing else.
  const std::string copies = NameWithTime(elsewhere, "Data");
  EXPECT_NE(copies, "");
  EXPECT_EQ(Names(elsewhere), (std::vector<std::string>{"Data", copies}));
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
}

// What an earlier upgrade has kept has another name before there is a note. So the note's folders exist only
// if this upgrade has moved them.
TEST_F(ServerInterruptedTest, TheNotesFoldersAreFreeUntilTheFirstMove) {
  HX_NEEDS_WINE(Differs::kCancelled);
  const Tree earlier = {{"vt.exe", "of an earlier version"}}, earlierData = {{"format.txt", "0\r\n"}};
  for (const std::wstring& data : {inside, outsideData}) {
    SCOPED_TRACE(FromWide(data));
    const Tree older = WriteOnlyOlder(data);
    WriteTree(aside, earlier);
    const std::wstring dated = data == inside ? L"" : outsideData + DateBehindName();
    if (data != inside) WriteTree(dated, earlierData);
    InstallUntil(2010, End::kCancelled,
                 {"UPDATE `InstallExecuteSequence` SET `Sequence` = 2011 WHERE `Action` = "
                  "'CustomAction15.Server'"});
    EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
    EXPECT_EQ(Note("Aside"), FromWide(aside) + "\\");
    EXPECT_EQ(Note("AsideData"), data == inside ? "" : FromWide(dated) + "\\");
    EXPECT_EQ(ReadTree(server), older);
    EXPECT_EQ(ReadTree(data), OlderData("1"));
    const std::string renamed = NameWithTime(programs, "Vantor (previous)");
    EXPECT_EQ(Names(programs), (std::vector<std::string>{"Vantor", renamed}));
    EXPECT_EQ(ReadTree(programs + L"\\" + ToWide(renamed)), earlier);
    if (data != inside) {
      const std::string renamedData = NameWithTime(elsewhere, "Data" + FromWide(DateBehindName()));
      EXPECT_EQ(Names(elsewhere), (std::vector<std::string>{"Data", renamedData}));
      EXPECT_EQ(ReadTree(elsewhere + L"\\" + ToWide(renamedData)), earlierData);
    }

    ExpectInterrupted();
    EXPECT_TRUE(PutBack());
    ExpectInstalled(Install(Server()));
    EXPECT_EQ(ReadTree(aside), older);
    EXPECT_EQ(ReadTree(data), Converted(OlderData("1")));
    EXPECT_FALSE(HasNote());
    EXPECT_EQ(Remove(Server()).exitCode, 0u);
  }
}

// The folder of an earlier upgrade or of its data is held, or a rollback has left entries of an older server:
// the run ends before its note, and nothing of this server was changed.
TEST_F(ServerInterruptedTest, APlaceThatCannotBeFreedEndsTheRunBeforeItsNote) {
  const Tree earlier = {{"format.txt", "0\r\n"}};
  for (const auto& [data, taken] :
       {std::pair(inside, aside), {inside, rest}, {outsideData, outsideData + DateBehindName()}}) {
    SCOPED_TRACE(FromWide(taken));
    const Tree older = WriteOnlyOlder(data);
    WriteTree(taken, earlier);
    // What a rollback has left can have entries of this server: it ends the run also if it can be renamed.
    HANDLE held = taken == rest ? nullptr : HoldFolder(taken);
    const MachineState before = MachineState::Now();
    const InstallerRun& run = Install(Server());
    const std::string changed = MachineState::Now().Since(before);
    if (held) CloseHandle(held);
    // Wine's engine has another code for a program that fails.
    ExpectRolledBack(run);
    EXPECT_EQ(run.FailuresOf(data == inside ? "CheckServerFree" : "CheckDataFree").size(), 1u);
    EXPECT_EQ(changed, "");
    EXPECT_EQ(ReadTree(taken), earlier);
    EXPECT_EQ(ReadTree(server), older);
    EXPECT_EQ(ReadTree(data), OlderData("1"));
    EXPECT_FALSE(HasNote());
  }
}

// The engine rolls an interrupted run back after the attempt has looked for a note. What cannot be put back
// then has one all the same. An action of the package writes it here.
TEST_F(ServerInterruptedTest, ANoteThatIsWrittenMeanwhileEndsTheRun) {
  const Tree older = WriteOlder(inside);
  const std::wstring package = stop + L"\\resumed.msi";
  WriteTree(stop, {});
  ChangePackage(Server().path, package,
                {"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Resumed', " +
                     std::to_string(kDeferredProgram) +
                     ", 'RegistryProgram', 'add \"[UpgradeNote]\" /v Server /d x /f')",
                 "INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('Resumed', 1996)"});
  const InstallerRun& run = Msiexec("resumed", L"/i \"" + package + L"\" /qn");
  ExpectRolledBack(run);
  EXPECT_EQ(run.FailuresOf("CheckNoNote").size(), 1u);
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
}

// The copies of the data cannot be renamed, so the rollback cannot give the older data their name again. The
// next attempt would take the copies for all data.
TEST_F(ServerInterruptedTest, ARollbackThatPutsNotEverythingBackKeepsTheNote) {
  const Tree older = WriteOlder(outsideData);
  const InstallerRun& failed = InstallInterrupted([] {}, outsideData);
  ExpectRolledBack(failed);
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_FALSE(FileExists(aside));
  EXPECT_EQ(ReadTree(Dated()), OlderData("1"));
  EXPECT_EQ(Note("AsideData"), FromWide(Dated()) + "\\");
  EXPECT_EQ(Note("Server"), FromWide(server) + "\\");

  // The engine's rollback deletes the setting.
  SetDataSetting(outsideData);
  ExpectInterrupted();
  // As long as the copies are held, the page's lines end at them. Nothing is moved into another folder, and
  // the note stays.
  HANDLE held = HoldFolder(outsideData);
  EXPECT_FALSE(PutBack());
  CloseHandle(held);
  EXPECT_EQ(Names(elsewhere),
            (std::vector<std::string>{"Data", FromWide(Dated()).substr(elsewhere.size() + 1)}));
  EXPECT_EQ(ReadTree(Dated()), OlderData("1"));
  EXPECT_TRUE(HasNote());
  EXPECT_TRUE(PutBack());
  EXPECT_EQ(ReadTree(outsideData), OlderData("1"));
  ExpectInstalled(Install(Server()));
  EXPECT_EQ(ReadTree(aside), older);
  EXPECT_EQ(ReadTree(outsideData), Converted(OlderData("1")));
  EXPECT_FALSE(HasNote());
}

// The drive with the data is not connected when the rollback runs, so none of its folders exists. It comes
// back with a part of the data in their place.
TEST_F(ServerInterruptedTest, ARollbackWithoutTheDriveOfTheDataKeepsTheNote) {
  const std::wstring drive = elsewhere + L"\\Drive", away = elsewhere + L"\\Away", data = drive + L"\\Data";
  const Tree older = WriteOlder(data);
  const InstallerRun& failed =
      InstallInterrupted([&] { EXPECT_TRUE(MoveFileW(drive.c_str(), away.c_str())); });
  ExpectRolledBack(failed);
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
  EXPECT_EQ(Note("Data"), FromWide(data) + "\\");
  DeleteTree(drive);
  EXPECT_TRUE(MoveFileW(away.c_str(), drive.c_str()));
  EXPECT_TRUE(PutBack());
  EXPECT_EQ(ReadTree(data), OlderData("1"));
  EXPECT_EQ(ReadTree(server), older);
}

// The note is deleted before the service starts. The installation fails then, and the folder of the data is
// in use: the rollback cannot put them back, and has written the note again.
TEST_F(ServerInterruptedTest, AFailureAfterTheNoteIsDeletedWritesItAgain) {
  const Tree older = WriteOlder(outsideData);
  const InstallerRun& failed = InstallInterrupted(
      [] {}, outsideData,
      {"UPDATE `InstallExecuteSequence` SET `Sequence` = 5898 WHERE `Action` = 'CustomAction17.Judge'"});
  ExpectRolledBack(failed);
  EXPECT_EQ(failed.FailuresOf("CustomAction17.Judge").size(), 1u);
  EXPECT_EQ(ReadTree(server), older);
  EXPECT_EQ(ReadTree(Dated()), OlderData("1"));
  EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
  EXPECT_EQ(Note("Aside"), FromWide(aside) + "\\");
  EXPECT_EQ(Note("Data"), FromWide(outsideData) + "\\");
  EXPECT_EQ(Note("AsideData"), FromWide(Dated()) + "\\");
  EXPECT_EQ(Note("NewData"), "");
  EXPECT_TRUE(PutBack());
  EXPECT_EQ(ReadTree(outsideData), OlderData("1"));
}

// The server's folder cannot be renamed, nor the copies of the data in it: the entries are moved back, but
// for the data.
TEST_F(ServerInterruptedTest, EntriesThatARollbackLeavesAreMovedBackByHand) {
  const Tree older = WriteOlder(inside);
  HANDLE held = nullptr;
  const InstallerRun& failed = InstallInterrupted([&] { held = HoldFolder(server); }, inside);
  CloseHandle(held);
  ExpectRolledBack(failed);
  EXPECT_EQ(ReadTree(rest), With({}, "Data", OlderData("1")));
  EXPECT_FALSE(FileExists(aside));
  EXPECT_EQ(ReadTree(server), With(OlderProgram(), "Data", OlderData("1")));
  EXPECT_EQ(Note("Server"), FromWide(server) + "\\");
  WriteTree(inside, {{"a.b.c", "do"}});
  EXPECT_TRUE(PutBack());
  EXPECT_FALSE(FileExists(rest));
  EXPECT_FALSE(HasNote());
  Tree part = OlderData("1");
  part["a.b.c"] = "do";
  EXPECT_EQ(ReadTree(server), With(older, "Data (part)", part));
}

// The rollback is interrupted while it moves entries back, and runs again from its beginning. The folder
// can be renamed by then, but has entries that are back already.
TEST_F(ServerInterruptedTest, ARollbackOfEntriesGoesOnIfItRunsAgain) {
  const Tree older = WriteOlder(inside);
  const std::wstring reached = stop + L"\\reached.txt", go = stop + L"\\go.txt";
  WriteTree(stop, {{"again.cmd", "@echo off\r\necho >\"" + FromWide(reached) +
                                     "\"\r\n:wait\r\nif not exist \"" + FromWide(go) + "\" goto wait\r\n"}});
  std::vector<std::string> statements = {
      "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Again', " +
          std::to_string(kRollbackProgram) + ", 'CommandProgram', '/d /c \"\"" + FromWide(stop) +
          "\\again.cmd\"\"')",
      "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('Again', "
      "'UpgradeServer', 2059)"};
  int place = 2058;
  for (const char* name : {"ServerReplace", "ServerRest", "ServerEntries"}) {
    const std::string action = std::string("CustomAction16.Again") + name;
    statements.push_back("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Set" +
                         action + "', 51, '" + action + "', '[CustomAction16.Rollback" + name + "]')");
    statements.push_back("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('" +
                         action + "', " + std::to_string(kRollbackAction) + ", 'hxsetup', 'CustomAction16')");
    for (const auto& [placed, number] : {std::pair("Set" + action, place - 500), {action, place}})
      statements.push_back(
          "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('" + placed +
          "', 'UpgradeServer', " + std::to_string(number) + ")");
    --place;
  }
  HANDLE heldServer = nullptr, heldData = nullptr;
  Tree rested;
  std::thread other([&] {
    WaitUntil("the entries are moved", [&] { return FileExists(reached); });
    rested = ReadTree(rest);
    CloseHandle(heldData);
    CloseHandle(heldServer);
    WriteTree(stop, {{"go.txt", ""}});
  });
  const InstallerRun& failed = InstallInterrupted(
      [&] {
        heldServer = HoldFolder(server);
        heldData = HoldFolder(inside);
      },
      L"", statements);
  other.join();
  ExpectRolledBack(failed);
  // The first run has left the data; the second has moved them.
  EXPECT_EQ(rested, With({}, "Data", OlderData("1")));
  Tree restored = ReadTree(server);
  TakeStamped(restored);
  EXPECT_EQ(restored, older);
  EXPECT_EQ(Names(programs), std::vector<std::string>{"Vantor"});
  EXPECT_FALSE(HasNote());
}

// The last command of a rollback, with every state of the folders.
TEST_F(ServerInterruptedTest, TheNoteIsDeletedOnlyIfEverythingIsBack) {
  const std::wstring kept = elsewhere + L"\\Server (previous)", left = kept + L" (rest)",
                     home = elsewhere + L"\\Server", dated = elsewhere + L"\\Data 2026-11-15",
                     other = elsewhere + L"\\New (x) & 'y' Data";
  const Tree file = {{"f.txt", "1"}}, empty;
  struct Case {
    const char* name;
    std::vector<std::pair<std::wstring, Tree>> folders;
    bool isOutside, isNoted, isDeleted;
    std::wstring server = L"", newData = L"";
  };
  const Case cases[] = {
      {"all back", {}, false, false, true},
      {"kept", {{kept, file}}, false, false, false},
      {"kept folder", {{kept, {{"sub\\", ""}}}}, false, false, false},
      {"emptied", {{kept, empty}}, false, false, true},
      {"rest", {{left, file}}, false, false, false},
      {"emptied rest", {{left, empty}}, false, false, true},
      {"no drive", {}, false, false, false, L"Q:\\Server"},
      {"data back", {{outsideData, file}}, true, false, true},
      {"data kept", {{outsideData, file}, {dated, file}}, true, false, false},
      {"data kept, none there", {{dated, file}}, true, false, false},
      {"no drive of the data", {}, true, false, false},
      {"copies that are not noted", {{other, file}}, false, false, true},
      {"no copies", {}, false, true, true},
      {"an empty folder for copies", {{other, empty}}, false, true, true},
      {"copies", {{other, file}}, false, true, false},
      {"a copied folder", {{other, {{"sub\\", ""}}}}, false, true, false},
      {"a name with a semicolon", {{other, {{";f.txt", ""}}}}, false, true, false},
      {"a name with a blank", {{other, {{" f", ""}}}}, false, true, false},
      {"copies and data", {{other, file}, {outsideData, file}}, true, true, false},
      {"no drive of the copies", {}, false, true, false, L"", L"Q:\\Data"},
  };
  const auto textOf = [](const char* action) { return ActionTarget(Server().path, action); };
  // The command line for a case, as the package makes it.
  std::map<std::tuple<std::wstring, std::wstring, bool>, std::wstring> commands;
  const auto commandOf = [&](const Case& one) -> const std::wstring& {
    std::wstring& command = commands[{one.server, one.newData, one.isOutside}];
    if (!command.empty()) return command;
    std::map<std::string, std::string> properties = {
        {"DIR_UPG", FromWide(kept) + "\\"},
        {"DIR_EXSERVER", FromWide(one.server.empty() ? home : one.server) + "\\"},
        {"DIR_EXDATA", FromWide(outsideData) + "\\"},
        {"DIR_UPG_DATA", FromWide(dated) + "\\"},
        {"DIR_DATAFOLDER", FromWide(one.newData.empty() ? other : one.newData) + "\\"},
        {"ServerAsideName", "Server (previous)"},
        {"System64Folder", "C:\\windows\\system32\\"}};
    for (const auto& [name, action] : {std::pair("AsideRest", "SetAsideRest"),
                                       {"UnlessKept", "SetUnlessKept"},
                                       {"IfDataBack", "SetIfDataBack"},
                                       {"UnlessNewData", "SetUnlessNewData"}}) {
      if (std::string(name) != "IfDataBack" || one.isOutside)
        properties[name] = WithProperties(Server().path, textOf(action), properties);
    }
    return command = ToWide(WithProperties(Server().path, textOf("ForgetNoteBack"), properties));
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    DeleteTree(elsewhere);
    WriteTree(elsewhere, {});
    for (const auto& [folder, tree] : one.folders) WriteTree(folder, tree);
    WriteNote(home, kept);
    if (one.isNoted) SetRegistryText(HKEY_LOCAL_MACHINE, kUpgradeKey, "NewData", FromWide(other) + "\\");
    RunCommand(commandOf(one));
    EXPECT_EQ(HasNote(), !one.isDeleted);
    for (const auto& [folder, tree] : one.folders)
      EXPECT_EQ(FileExists(folder), tree.size() != 0 || folder == other) << FromWide(folder);
  }
  // A link to a folder with entries, which a server's folder can be.
  for (const std::wstring& folder : {kept, left}) {
    DeleteTree(elsewhere);
    WriteTree(other, file);
    MakeLink(folder, other);
    WriteNote(home, kept);
    RunCommand(commandOf(cases[0]));
    EXPECT_TRUE(HasNote());
    EXPECT_TRUE(FileExists(folder));
  }
}

// Also a first installation, a server that the engine knows, and the note of a server in another folder.
TEST_F(ServerInterruptedTest, EveryInstallationAndUpgradeIsRefusedWithANote) {
  WriteNote(server, aside);
  ExpectInterrupted();
  ExpectInterrupted(L"DIR_SERVER=\"C:\\Vantor Store\\Server\" DIR_DATAFOLDER=\"C:\\Vantor Store\\Data\"");
  ASSERT_EQ(Install(OlderServer()).exitCode, 0u);
  WriteTree(inside, OlderData("1"));
  ExpectInterrupted();
  WriteNote(elsewhere + L"\\Other", elsewhere + L"\\Other (previous)");
  ExpectInterrupted();
  // What would refuse the run for another reason, which may come from the interruption.
  SetDataSetting(outsideData);
  ExpectInterrupted();
  SetDataSetting(inside + L"\\Helper Data");
  ExpectInterrupted();
}

TEST_F(ServerInterruptedTest, ARepairAndARemovalAreNotRefused) {
  ASSERT_EQ(Install(Server()).exitCode, 0u);
  WriteNote(server, aside);
  const InstallerRun& repaired = Reinstall(Server());
  EXPECT_EQ(repaired.exitCode, 0u);
  EXPECT_EQ(repaired.Property("NOTEDSERVER"), FromWide(server) + "\\");
  EXPECT_EQ(Install(Server()).exitCode, 0u);
  EXPECT_EQ(Remove(Server()).exitCode, 0u);
  EXPECT_FALSE(Server().IsInstalled());
  // The note says where the older server is. A removal leaves it.
  EXPECT_EQ(Note("Aside"), FromWide(aside) + "\\");
}

TEST_F(ServerInterruptedTest, ACommandLineMakesNoNote) {
  const Tree older = WriteOlder(inside);
  const std::wstring given = L"NOTEDSERVER=\"" + server + L"\" NOTEDASIDE=\"" + elsewhere +
                             L"\" NOTEDDATA=\"" + inside + L"\" NOTEDASIDEDATA=\"" + elsewhere + L"\"";
  const InstallerRun& run = Install(Server(), given);
  ExpectInstalled(run);
  for (const char* name : {"NOTEDSERVER", "NOTEDASIDE", "NOTEDDATA", "NOTEDASIDEDATA"})
    EXPECT_EQ(run.Property(name), "") << name;
  EXPECT_NE(run.LinesWith(": CustomAction13.").size(), 0u);
  EXPECT_EQ(ReadTree(aside), older);
  EXPECT_EQ(ReadTree(inside), Converted(OlderData("1")));
  EXPECT_FALSE(HasNote());
}

}  // namespace
}  // namespace install
