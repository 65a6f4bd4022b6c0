#include "install/server_rig.h"

#include <msi.h>
#include <msiquery.h>

#include <algorithm>
#include <thread>

#include "install/agent_rig.h"

namespace install {

namespace {

std::string FileBytes(const std::wstring& path) {
  std::string bytes;
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return "(unreadable)";
  char block[4096];
  DWORD count;
  while (ReadFile(file, block, sizeof block, &count, nullptr) && count) bytes.append(block, count);
  CloseHandle(file);
  return bytes;
}

bool IsDots(const wchar_t* name) {
  return wcscmp(name, L".") == 0 || wcscmp(name, L"..") == 0;
}

bool IsFolder(const WIN32_FIND_DATAW& entry) {
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsLinkToFolder(const WIN32_FIND_DATAW& entry) {
  return IsFolder(entry) && (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

/// The system calls of the machine below that create and delete a link.
#if defined(__aarch64__)
constexpr long long kMakeLinkCall = 36, kDeleteCall = 35, kCurrentFolder = -100;

long long MachineCall(long long number, long long first, long long second, long long third) {
  register long long call asm("x8") = number;
  register long long result asm("x0") = first;
  register long long x1 asm("x1") = second;
  register long long x2 asm("x2") = third;
  asm volatile("svc #0" : "+r"(result) : "r"(call), "r"(x1), "r"(x2) : "memory");
  return result;
}
#else
constexpr long long kMakeLinkCall = 88, kDeleteCall = 87;

long long MachineCall(long long number, long long first, long long second) {
  long long result = number;
  asm volatile("syscall" : "+a"(result) : "D"(first), "S"(second) : "rcx", "r11", "memory");
  return result;
}
#endif

/// Returns the machine's own name of a path.
std::string MachineName(const std::wstring& path) {
  using UnixName = char* CDECL(const wchar_t*);
  auto* unixName = reinterpret_cast<UnixName*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
  char* found = unixName ? unixName(path.c_str()) : nullptr;
  const std::string name = found ? found : "";
  if (found) HeapFree(GetProcessHeap(), 0, found);
  EXPECT_NE(name, "") << FromWide(path);
  return name;
}

/// Returns the machine's own name of the entry `path` itself, even if it is a link or does not exist yet.
std::string MachineNameOfEntry(const std::wstring& path) {
  const size_t name = path.rfind(L'\\');
  return MachineName(path.substr(0, name)) + "/" + FromWide(path.substr(name + 1));
}

void DeleteLink(const std::wstring& path) {
  if (OnWindows(Differs::kLinks)) {
    EXPECT_TRUE(RemoveDirectoryW(path.c_str())) << FromWide(path);
    return;
  }
  const std::string name = MachineNameOfEntry(path);
#if defined(__aarch64__)
  EXPECT_EQ(MachineCall(kDeleteCall, kCurrentFolder, reinterpret_cast<long long>(name.c_str()), 0), 0);
#else
  EXPECT_EQ(MachineCall(kDeleteCall, reinterpret_cast<long long>(name.c_str()), 0), 0);
#endif
}

/// Calls `visit` for each entry of a folder; returns false if the folder could not be listed.
template <class Visit>
bool ForEachEntry(const std::wstring& folder, Visit visit) {
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return false;
  do {
    if (!IsDots(entry.cFileName)) visit(entry);
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  return true;
}

bool AddTree(const std::wstring& folder, const std::string& prefix, Tree& tree) {
  return ForEachEntry(folder, [&](const WIN32_FIND_DATAW& entry) {
    std::wstring path = folder + L"\\" + entry.cFileName;
    std::string name = prefix + FromWide(entry.cFileName);
    if (IsLinkToFolder(entry)) {
      tree[name + "\\"] = kLink;
    } else if (IsFolder(entry)) {
      tree[name + "\\"];
      AddTree(path, name + "\\", tree);
    } else {
      tree[name] = FileBytes(path);
    }
  });
}

// How long to wait for a package's conversion, and how often to check for it (milliseconds).
constexpr DWORD kWaitLimit = 120 * 1000, kWaitStep = 20;

// The end of a name that was renamed aside; "0" stands for a digit.
constexpr char kTime[] = " 0000-00-00 00-00-00";

bool EndsInTime(const std::string& name) {
  constexpr size_t length = sizeof kTime - 1;
  if (name.size() <= length) return false;
  for (size_t i = 0; i < length; ++i) {
    const char c = name[name.size() - length + i];
    if (kTime[i] == '0' ? c < '0' || c > '9' : c != kTime[i]) return false;
  }
  return true;
}

}  // namespace

const char kLink[] = "(link)";
const char kServerKeyAbove[] = "SYSTEM\\CurrentControlSet\\Services\\Vantor";
const char kServerSettingsKey[] = "SYSTEM\\CurrentControlSet\\Services\\Vantor\\Settings";
const char kMakerKey[] = "SOFTWARE\\Halvorstead";
const char kUpgradeKey[] = "SOFTWARE\\Halvorstead\\Vantor\\Upgrade";

Tree ReadTree(const std::wstring& folder) {
  Tree tree;
  if (!AddTree(folder, "", tree)) tree["(missing)"];
  return tree;
}

Tree TakeStamped(Tree& tree) {
  Tree stamped;
  for (auto entry = tree.begin(); entry != tree.end();) {
    const std::string& path = entry->first;
    const size_t end = std::min(path.find('\\'), path.size());
    if (!EndsInTime(path.substr(0, end))) {
      ++entry;
      continue;
    }
    stamped[path.substr(0, end - sizeof kTime + 1) + path.substr(end)] = entry->second;
    entry = tree.erase(entry);
  }
  return stamped;
}

std::string NameWithTime(const std::wstring& folder, const std::string& name) {
  std::vector<std::string> found;
  for (const std::string& entry : Names(folder)) {
    if (EndsInTime(entry) && entry.substr(0, entry.size() - sizeof kTime + 1) == name) found.push_back(entry);
  }
  return found.size() == 1 ? found[0] : "";
}

Tree With(Tree outer, const std::string& name, const Tree& inner) {
  outer[name + "\\"];
  for (const auto& [path, bytes] : inner) outer[name + "\\" + path] = bytes;
  return outer;
}

void WriteTree(const std::wstring& folder, const Tree& tree) {
  for (size_t end = folder.find(L'\\', 3); end != std::wstring::npos; end = folder.find(L'\\', end + 1))
    CreateDirectoryW(folder.substr(0, end).c_str(), nullptr);
  CreateDirectoryW(folder.c_str(), nullptr);
  // A folder sorts before its content.
  for (const auto& [path, bytes] : tree) {
    std::wstring target = folder + L"\\" + ToWide(path);
    if (target.back() == L'\\') {
      CreateDirectoryW(target.c_str(), nullptr);
      continue;
    }
    HANDLE file = CreateFileW(target.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << path << ": " << GetLastError();
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    EXPECT_EQ(written, bytes.size()) << path;
  }
}

void MakeLink(const std::wstring& path, const std::wstring& target) {
  if (OnWindows(Differs::kLinks)) {
    ASSERT_TRUE(CreateSymbolicLinkW(path.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY))
        << FromWide(path) << ": " << GetLastError();
    return;
  }
  const std::string link = MachineNameOfEntry(path), text = target == L"." ? "." : MachineName(target);
#if defined(__aarch64__)
  const long long result = MachineCall(kMakeLinkCall, reinterpret_cast<long long>(text.c_str()),
                                       kCurrentFolder, reinterpret_cast<long long>(link.c_str()));
#else
  const long long result = MachineCall(kMakeLinkCall, reinterpret_cast<long long>(text.c_str()),
                                       reinterpret_cast<long long>(link.c_str()));
#endif
  ASSERT_EQ(result, 0) << FromWide(path);
  constexpr DWORD kFolderLink = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  ASSERT_EQ(GetFileAttributesW(path.c_str()) & kFolderLink, kFolderLink) << FromWide(path);
}

HANDLE HoldFolder(const std::wstring& folder) {
  HANDLE held = CreateFileW(folder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  EXPECT_NE(held, INVALID_HANDLE_VALUE) << FromWide(folder);
  return held;
}

void MakeReadOnly(const std::wstring& path) {
  EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY)) << FromWide(path);
}

void DeleteTree(const std::wstring& folder) {
  ForEachEntry(folder, [&](const WIN32_FIND_DATAW& entry) {
    std::wstring path = folder + L"\\" + entry.cFileName;
    if (IsLinkToFolder(entry)) {
      DeleteLink(path);
    } else if (IsFolder(entry)) {
      DeleteTree(path);
    } else {
      SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileW(path.c_str());
    }
  });
  RemoveDirectoryW(folder.c_str());
}

std::vector<std::string> Names(const std::wstring& folder) {
  std::vector<std::string> names;
  ForEachEntry(folder, [&](const WIN32_FIND_DATAW& entry) { names.push_back(FromWide(entry.cFileName)); });
  std::sort(names.begin(), names.end());
  return names;
}

Tree OlderData(const std::string& format) {
  const std::string longName(120, 'n');
  Tree data = {
      {"format.txt", format + "\r\n"},
      {"empty.dat", ""},
      {"Empty Folder\\", ""},
      {"LONGNA~1.TXT", "a name like those of the 8.3 form"},
      {"Helper Data\\", ""},
      {"Helper Data\\Reports\\", ""},
      {"Helper Data\\Reports\\Preferences\\", ""},
      {"Helper Data\\Reports\\Preferences\\user.prefs",
       std::string("\0\x01\xFF", 3) + std::string(9000, 'p')},
      {longName + "\\", ""},
      {longName + "\\" + longName.substr(20) + ".txt", "long"},
      {"Z\u00E4hlerst\u00E4nde\\", ""},
      {"Z\u00E4hlerst\u00E4nde\\\u0416\u0438\u043B \u6E2C\u5B9A \U0001F4C8.csv", "outside the code page"},
      {"a.b.c", "dots"},
      {"with 'quotes' & %signs%", "signs"},
  };
  std::string deep = "deep\\";
  for (int level = 0; level < 12; ++level, deep += "level " + std::to_string(level) + "\\") {
    data[deep];
    data[deep + "leaf.txt"] = "level " + std::to_string(level);
  }
  return data;
}

Tree Converted(Tree data) {
  data["format.txt"] = "2\r\n";
  return data;
}

Tree OlderProgram() {
  return {{"vt.exe", "The program of the Vantor server, version 1.\n"},
          {"older readme.txt", "The Vantor server, version 1.\nHalvorstead\n"}};
}

Tree NewProgram() {
  // The package's files; the end of the program shows that they are version 2.
  Tree program = ReadTree(L"C:\\Program Files\\Halvorstead\\Vantor");
  const std::string version = "\nVantor server " + Server().version + "\n";
  const std::string& bytes = program["vt.exe"];
  EXPECT_EQ(bytes.rfind(version), bytes.size() - version.size());
  EXPECT_NE(program["dbcon.cmd"].find("Converts the server's data"), std::string::npos);
  EXPECT_NE(program["vantor.inf"].find("[DefaultInstall]"), std::string::npos);
  return {{"vt.exe", program["vt.exe"]},
          {"dbcon.cmd", program["dbcon.cmd"]},
          {"vantor.inf", program["vantor.inf"]}};
}

void ChangePackage(const std::wstring& source, const std::wstring& target,
                   const std::vector<std::string>& statements) {
  // The header has the mode only for the 8-bit function; it is a number in place of a pointer.
  const auto writeDirectly = reinterpret_cast<const wchar_t*>(MSIDBOPEN_DIRECT);
  MSIHANDLE database = 0;
  ASSERT_TRUE(CopyFileW(source.c_str(), target.c_str(), FALSE));
  ASSERT_EQ(MsiOpenDatabaseW(target.c_str(), writeDirectly, &database), 0u);
  for (const std::string& statement : statements) {
    MSIHANDLE view = 0;
    EXPECT_EQ(MsiDatabaseOpenViewW(database, ToWide(statement).c_str(), &view), 0u) << statement;
    EXPECT_EQ(MsiViewExecute(view, 0), 0u) << statement;
    MsiCloseHandle(view);
  }
  EXPECT_EQ(MsiDatabaseCommit(database), 0u);
  MsiCloseHandle(database);
}

void DeleteServer() {
  static const char name[] = "Vantor";
  SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (SC_HANDLE service = OpenServiceA(manager, name, SERVICE_ALL_ACCESS)) {
    // An emulated stand-in can end before it has answered; what counts is that it ends.
    SERVICE_STATUS status;
    ControlService(service, SERVICE_CONTROL_STOP, &status);
    WaitUntil("the service stops", [&] { return !IsServiceRunning(name); });
    DeleteService(service);
    CloseServiceHandle(service);
  }
  CloseServiceHandle(manager);
}

void ServerTest::ClearAway() {
  // The service stays after the removal if an older version is registered as well.
  DeleteServer();
  WaitUntil("the program is deleted", [&] {
    DeleteTree(programs);
    return !FileExists(programs);
  });
  DeleteTree(elsewhere);
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kServerKeyAbove);
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMakerKey);
}

void ServerTest::SetUp() {
  ClearAway();
  InstallTest::SetUp();
}

void ServerTest::TearDown() {
  for (const Package* package : {&Server(), &OlderServer()}) {
    if (package->IsInstalled()) Msiexec("clear-up", L"/x \"" + package->path + L"\" /qn");
  }
  ClearAway();
  InstallTest::TearDown();
}

void ServerTest::SetDataSetting(const std::wstring& folder) {
  SetRegistryText(HKEY_LOCAL_MACHINE, kServerSettingsKey, "vtdf", FromWide(folder));
}

std::wstring ServerTest::DateBehindName() {
  SYSTEMTIME now = {};
  GetLocalTime(&now);
  wchar_t text[16] = {};
  swprintf(text, std::size(text), L" %04u-%02u-%02u", now.wYear, now.wMonth, now.wDay);
  return text;
}

std::optional<std::string> ServerTest::DataSetting() {
  return GetRegistryText(HKEY_LOCAL_MACHINE, kServerSettingsKey, "vtdf");
}

const InstallerRun& ServerTest::InstallInterrupted(const std::function<void()>& meanwhile,
                                                   const std::wstring& held,
                                                   std::vector<std::string> statements) {
  const std::wstring package = elsewhere + L"\\server.msi", script = elsewhere + L"\\wait.cmd",
                     reached = elsewhere + L"\\reached.txt", go = elsewhere + L"\\go.txt";
  WriteTree(elsewhere,
            {{"wait.cmd", "@echo off\r\necho >\"" + FromWide(reached) + "\"\r\n:wait\r\nif not exist \"" +
                              FromWide(go) + "\" goto wait\r\n"}});
  statements.push_back("UPDATE `CustomAction` SET `Target` = '\"[System64Folder]cmd.exe\" /d /c \"\"" +
                       FromWide(script) + "\"\"' WHERE `Action` = 'ConvertDatabase'");
  ChangePackage(Server().path, package, statements);
  HANDLE folder = nullptr;
  std::thread other([&] {
    for (DWORD waited = 0; !FileExists(reached) && waited < kWaitLimit; waited += kWaitStep) Sleep(kWaitStep);
    meanwhile();
    if (!held.empty()) folder = HoldFolder(held);
    WriteTree(elsewhere, {{"go.txt", ""}});
  });
  const InstallerRun& run = Msiexec("interrupted", L"/i \"" + package + L"\" /qn");
  other.join();
  if (folder) CloseHandle(folder);
  for (const std::wstring& file : {package, script, reached, go}) DeleteFileW(file.c_str());
  return run;
}

void ServerTest::ExpectInstalled(const InstallerRun& run) {
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_TRUE(Server().IsInstalled());
  EXPECT_FALSE(OlderServer().IsInstalled());
  EXPECT_EQ(Server().ShownVersion(0), Server().version);
}

void ServerTest::ExpectRolledBack(const InstallerRun& run) {
  EXPECT_FALSE(Server().IsInstalled());
  EXPECT_EQ(Server().ShownVersion(0), std::nullopt);
  EXPECT_NE(run.exitCode, 0u);
}

void ServerTest::ExpectRefused(const InstallerRun& run, const std::string& action) {
  EXPECT_EQ(run.exitCode, static_cast<DWORD>(ERROR_INSTALL_FAILURE));
  EXPECT_FALSE(Server().IsInstalled());
  // Wine's engine only shows the text of such an action, so its log does not have it.
  EXPECT_EQ(run.FailuresOf(action).size(), 1u) << action;
  EXPECT_EQ(run.LinesWith(": InstallInitialize.").size(), 0u);
  EXPECT_EQ(DeferredActions(run), std::vector<std::string>());
}

void ServerTest::ExpectPublished(const InstallerRun& run,
                                 const std::map<std::string, std::wstring>& expected) {
  for (const auto& [name, value] : expected) EXPECT_EQ(run.Property(name), FromWide(value)) << name;
}

std::vector<std::string> ServerTest::DeferredActions(const InstallerRun& run) {
  return run.ScriptActions({"CustomAction15", "CustomAction16", "CustomAction17"});
}

}  // namespace install
