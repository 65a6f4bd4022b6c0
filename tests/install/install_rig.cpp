#include "install/install_rig.h"

#include <msi.h>
#include <msiquery.h>
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <set>
#include <stdexcept>

#include "install/agent_rig.h"
#include "install/security_rig.h"
#include "machine/places.h"
#include "machine/services.h"

namespace install {

namespace {

// Time limit in milliseconds: an installer that takes longer never ends. Emulated processors are slow.
constexpr DWORD kInstallerTimeLimit = 180 * 1000;
// Microsoft's engine makes a restore point and waits for other installations.
constexpr DWORD kWindowsTimeLimit = 900 * 1000;
// How often the installer is started while another installation runs, and the time between in milliseconds.
constexpr int kBusyAttempts = 20;
constexpr DWORD kBusyWait = 15 * 1000;

// How often the installer is started before the rig gives up.
constexpr int kStartAttempts = 3;

// The interval in milliseconds between checks, and the number of checks in a row without an action process
// after which that process counts as lost. The installer begins to run actions soon after its start.
constexpr DWORD kLookInterval = 1000;
constexpr int kLostLooks = 40;

constexpr char kUninstallKey[] = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

std::wstring Environment(const wchar_t* name) {
  wchar_t value[MAX_PATH];
  DWORD length = GetEnvironmentVariableW(name, value, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) throw std::runtime_error(FromWide(name) + " must be set");
  return value;
}

std::string ReadBytes(const std::wstring& path) {
  std::string bytes;
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return bytes;
  char block[16384];
  DWORD count;
  while (ReadFile(file, block, sizeof block, &count, nullptr) && count) bytes.append(block, count);
  CloseHandle(file);
  return bytes;
}

// Engines write their log as UTF-16 with a byte order mark, or in the system's 8-bit code page.
std::string LogText(const std::string& bytes) {
  if (bytes.size() < 2 || bytes.compare(0, 2, "\xFF\xFE") != 0) return FromWide(ToWide(bytes, CP_ACP));
  return FromWide(
      std::wstring(reinterpret_cast<const wchar_t*>(bytes.data() + 2), (bytes.size() - 2) / sizeof(wchar_t)));
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t start = 0; start < text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    while (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

// Returns the first text that a statement of the installer's SQL finds.
std::string PackageText(MSIHANDLE database, const std::wstring& query) {
  std::string value;
  MSIHANDLE view = 0, record = 0;
  if (MsiDatabaseOpenViewW(database, query.c_str(), &view) == ERROR_SUCCESS &&
      MsiViewExecute(view, 0) == ERROR_SUCCESS && MsiViewFetch(view, &record) == ERROR_SUCCESS) {
    wchar_t text[512];
    DWORD length = 512;
    if (MsiRecordGetStringW(record, 1, text, &length) == ERROR_SUCCESS) value = FromWide(text);
  }
  if (record) MsiCloseHandle(record);
  if (view) MsiCloseHandle(view);
  return value;
}

std::string PackageProperty(MSIHANDLE database, const wchar_t* name) {
  return PackageText(database,
                     std::wstring(L"SELECT `Value` FROM `Property` WHERE `Property` = '") + name + L"'");
}

MSIHANDLE OpenDatabase(const std::wstring& path) {
  MSIHANDLE database = 0;
  // Null for the mode is the header's MSIDBOPEN_READONLY, which exists only in 8-bit form.
  if (MsiOpenDatabaseW(path.c_str(), nullptr, &database) != ERROR_SUCCESS)
    throw std::runtime_error("cannot open " + FromWide(path));
  return database;
}

Package OpenPackage(const wchar_t* fileName) {
  Package package;
  package.path = Environment(L"HX_PACKAGES") + L"\\" + fileName;
  MSIHANDLE database = OpenDatabase(package.path);
  package.productCode = PackageProperty(database, L"ProductCode");
  package.version = PackageProperty(database, L"ProductVersion");
  package.displayVersion = PackageProperty(database, L"PROP_VERSION");
  MsiCloseHandle(database);
  return package;
}

std::set<std::string> UninstallEntries(REGSAM view) {
  std::set<std::string> entries;
  HKEY key;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kUninstallKey, 0, KEY_READ | view, &key) != ERROR_SUCCESS)
    return entries;
  char name[256];
  DWORD length = sizeof name;
  for (DWORD i = 0; RegEnumKeyExA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
       ++i, length = sizeof name) {
    entries.insert(name);
  }
  RegCloseKey(key);
  return entries;
}

bool IsCodeOfAPackage(const std::string& code) {
  for (const Package* package : AllPackages()) {
    if (_stricmp(package->productCode.c_str(), code.c_str()) == 0) return true;
  }
  return false;
}

// Describes everything that a test of this level may change, as a text.
std::string DescribeMachine() {
  std::string text;
  for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
    for (const std::string& entry : UninstallEntries(view)) {
      // Other programs of a Windows update themselves at any time.
      if (ThisEngine() == Engine::kWine || IsCodeOfAPackage(entry)) text += "uninstall entry " + entry + "\n";
    }
  }
  for (const Package* package : {&Client(), &NewerClient(), &OlderServer(), &Server()}) {
    if (package->IsInstalled()) text += "installed: " + FromWide(package->path) + "\n";
  }
  for (const char* key : {kServerKeyAbove, kMakerKey}) {
    if (KeyExists(HKEY_LOCAL_MACHINE, key)) text += std::string("key ") + key + "\n";
  }
  // The engine leaves the maker's folder empty.
  for (const std::string& name : Names(Environment(L"ProgramW6432") + L"\\Halvorstead"))
    text += "program folder " + name + "\n";
  for (const std::string& name : ComparedNames(L"C:")) text += "folder " + name + "\n";
  if (FileExists(InstalledFile())) text += "file " + FromWide(InstalledFile()) + "\n";
  if (FileExists(SettingsFile())) text += "file " + FromWide(SettingsFile()) + "\n";
  if (KeyExists(HKEY_CURRENT_USER, kUserKeyAbove)) text += std::string("key ") + kUserKeyAbove + "\n";
  if (KeyExists(HKEY_LOCAL_MACHINE, kServiceKeyAbove)) text += std::string("key ") + kServiceKeyAbove + "\n";
  return text;
}

bool HasService() {
  SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE service = OpenServiceA(manager, "Ostrel", SERVICE_QUERY_STATUS);
  bool hasService = service != nullptr;
  if (service) CloseServiceHandle(service);
  if (manager) CloseServiceHandle(manager);
  return hasService;
}

void EmptyStores() {
  DeleteFileW(SettingsFile().c_str());
  DeleteRegistryTree(HKEY_CURRENT_USER, kUserKeyAbove);
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, HasService() ? kServiceKey : kServiceKeyAbove);
}

// The lines of the last action if no agent runs. They name the sessions; the task `code` keeps the agent from
// starting, 0 for none.
std::vector<std::string> RestartLines(int code) {
  std::vector<std::string> lines = {"Hx Setup Log: agent restart:  0 agent(s) stopped"};
  for (const std::string& session : UserSessions()) {
    lines.push_back("Hx Setup Log: agent restart:  " + session +
                    (code ? " failed:  " + std::to_string(code) : std::string(" started")));
  }
  return lines;
}

void Append(std::vector<std::string>& lines, const std::vector<std::string>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

bool HasChild(DWORD process) {
  HANDLE processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  bool hasChild = false;
  for (BOOL more = Process32FirstW(processes, &entry); more; more = Process32NextW(processes, &entry))
    hasChild = hasChild || entry.th32ParentProcessID == process;
  CloseHandle(processes);
  return hasChild;
}

// True if the log ends at the start of the library's first action. Nothing has been changed before that.
bool IsInFirstAction(const std::wstring& log) {
  static const std::string start = "Action start ", action = ": CustomAction";
  std::vector<std::string> lines = SplitLines(LogText(ReadBytes(log)));
  size_t actions = 0;
  for (const std::string& line : lines) {
    if (line.rfind(start, 0) == 0 && line.find(action) != std::string::npos) ++actions;
  }
  return actions == 1 && lines.back().rfind(start, 0) == 0;
}

// Runs the installer's `command` once. False if nothing was changed and it can be started again: under
// emulation a process sometimes dies before its first instruction. That is the installer itself, or the
// process in which it runs the actions; the installer then waits forever for that process.
bool RunOnce(std::wstring command, const std::wstring& log, InstallerRun& run) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process;
  DeleteFileW(log.c_str());
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    return false;
  }
  DWORD waited = 0;
  int lost = 0;
  const bool isWine = ThisEngine() == Engine::kWine;
  const DWORD limit = isWine ? kInstallerTimeLimit : kWindowsTimeLimit;
  while (WaitForSingleObject(process.hProcess, kLookInterval) != WAIT_OBJECT_0 && lost < kLostLooks &&
         (waited += kLookInterval) < limit) {
    // Microsoft's engine runs the actions in processes of its service.
    lost = !isWine || HasChild(process.dwProcessId) ? 0 : lost + 1;
  }
  GetExitCodeProcess(process.hProcess, &run.exitCode);
  bool isLost = false;
  if (run.exitCode == STILL_ACTIVE) {
    TerminateProcess(process.hProcess, 1);
    WaitForSingleObject(process.hProcess, kInstallerTimeLimit);
    // Nobody can read the installer's log before the installer ends.
    isLost = lost == kLostLooks && IsInFirstAction(log);
    if (isLost)
      std::printf("---- %s: lost the installer's action process; starting again\n", run.name.c_str());
    if (!isLost) ADD_FAILURE() << FromWide(command) << " does not end";
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return !isLost;
}

// Prints the important part of a run's log: the library's actions and lines, failures, and the properties.
void PrintRun(const InstallerRun& run) {
  static const char* const marks[] = {"start", "Setup Log:", "Return value 0.", "Return value 3.",
                                      "(S): PROP_"};
  std::printf("---- %s: exit code %lu; from its log:\n", run.name.c_str(), run.exitCode);
  for (const std::string& line : run.lines) {
    for (const char* mark : marks) {
      if (line.find(mark) == std::string::npos) continue;
      std::printf("     %s\n", line.c_str());
      break;
    }
  }
}

std::string TestName() {
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(test->test_suite_name()) + "." + test->name();
  for (char& c : name) {
    if (c == '/') c = '-';
  }
  return name;
}

}  // namespace

const char kUserKey[] = "Software\\Quillfern\\Ostrel";
const char kUserKeyAbove[] = "Software\\Quillfern";
const char kServiceKey[] = "SYSTEM\\CurrentControlSet\\Services\\Ostrel\\Settings";
const char kServiceKeyAbove[] = "SYSTEM\\CurrentControlSet\\Services\\Ostrel";

std::string InstallerRun::Property(const std::string& property) const {
  auto found = properties.find(property);
  return found == properties.end() ? "" : found->second;
}

std::vector<std::string> InstallerRun::LinesWith(const std::string& mark) const {
  std::vector<std::string> found;
  for (const std::string& line : lines) {
    if (line.find(mark) != std::string::npos) found.push_back(line);
  }
  const std::vector<std::string> once = WithoutRepeats(ThisEngine(), found);
  if (once.size() != found.size()) Note(Differs::kNoticesInLog);
  return once;
}

std::vector<std::string> InstallerRun::SetupLines() const {
  // With the lines of paths, which are left out afterwards.
  std::vector<std::string> found = AgentLines();
  found.erase(
      std::remove_if(found.begin(), found.end(),
                     [](const std::string& line) { return line.find("Hx Setup Log:") == std::string::npos; }),
      found.end());
  static const std::string mark = "agent restart:  ", end = " agent(s) stopped";
  for (std::string& line : found) {
    const size_t start = line.find(mark), stop = line.find(end);
    if (start == std::string::npos || stop == std::string::npos || !OnWindows(Differs::kTasks)) continue;
    line.replace(start + mark.size(), stop - start - mark.size(), "0");
  }
  return found;
}

std::vector<std::string> InstallerRun::AgentLines() const {
  const std::vector<std::string> found = LinesWith("Setup Log: ");
  const std::vector<std::string> others = WithMovedAgents(ThisEngine(), found);
  if (others.size() != found.size()) Note(Differs::kFilesInUse);
  return others;
}

bool InstallerRun::HasMovedAgents() const {
  return AgentLines() != LinesWith("Setup Log: ");
}

std::vector<std::string> InstallerRun::FailuresOf(const std::string& action) const {
  Note(Differs::kFailureInLog);
  std::vector<std::string> found;
  for (const std::string& line : lines) {
    if (SaysFailed(ThisEngine(), line, action)) found.push_back(line);
  }
  return found;
}

std::vector<std::string> InstallerRun::ScriptActions(const std::vector<std::string>& names) const {
  Note(Differs::kScriptInLog);
  return install::ScriptActions(ThisEngine(), lines, names);
}

bool Package::IsInstalled() const {
  return MsiQueryProductStateW(ToWide(productCode).c_str()) == INSTALLSTATE_DEFAULT;
}

std::optional<std::string> Package::ShownVersion(REGSAM view) const {
  return GetRegistryText(HKEY_LOCAL_MACHINE, std::string(kUninstallKey) + "\\" + productCode,
                         "DisplayVersion", view);
}

std::vector<std::string> Package::VersionLines() const {
  // The entry of a 64-bit package is in the 64-bit view, which is also the library's own; the 32-bit view has
  // none.
  return {"Hx Setup Log: set ARP version to " + displayVersion + " (default)",
          "Hx Setup Log: set ARP version to " + displayVersion + " (64-bit)",
          "Hx Setup Log: can't open uninstall registry key (32-bit)"};
}

std::vector<std::string> Package::InstallLines() const {
  std::vector<std::string> lines = VersionLines();
  Append(lines, TaskLines());
  return lines;
}

std::vector<std::string> UserSessions() {
  wchar_t user[256] = {};
  DWORD size = 256, session = 0;
  GetUserNameW(user, &size);
  ProcessIdToSessionId(GetCurrentProcessId(), &session);
  if (ThisEngine() == Engine::kWine)
    return {"session " + std::to_string(session) + " (" + FromWide(user) + ")"};
  std::vector<std::string> sessions;
  // Bound by name, so that no program that only reads logs needs the module.
  const HMODULE module = LoadLibraryExW(L"wtsapi32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  auto* enumerate = reinterpret_cast<decltype(&WTSEnumerateSessionsW)>(
      reinterpret_cast<void*>(GetProcAddress(module, "WTSEnumerateSessionsW")));
  auto* query = reinterpret_cast<decltype(&WTSQuerySessionInformationW)>(
      reinterpret_cast<void*>(GetProcAddress(module, "WTSQuerySessionInformationW")));
  auto* release = reinterpret_cast<decltype(&WTSFreeMemory)>(
      reinterpret_cast<void*>(GetProcAddress(module, "WTSFreeMemory")));
  WTS_SESSION_INFOW* found = nullptr;
  DWORD count = 0;
  if (enumerate && query && release && enumerate(nullptr, 0, 1, &found, &count)) {
    for (DWORD i = 0; i < count; ++i) {
      wchar_t* name = nullptr;
      DWORD bytes = 0;
      if (found[i].State != WTSActive && found[i].State != WTSDisconnected) continue;
      if (!query(nullptr, found[i].SessionId, WTSUserName, &name, &bytes)) continue;
      if (name[0] && _wcsicmp(name, L"SYSTEM") != 0)
        sessions.push_back("session " + std::to_string(found[i].SessionId) + " (" + FromWide(name) + ")");
      release(name);
    }
    release(found);
  }
  return sessions;
}

size_t StartedAgents() {
  return OnWindows(Differs::kTasks) ? UserSessions().size() : 0;
}

std::vector<std::string> TaskLines() {
  std::vector<std::string> lines =
      Expected({"Hx Setup Log: Task install failed:  -16", "Hx Setup Log: Task install failed:  -19"});
  Append(lines, RestartLines(ByEngine(Differs::kTasks, -6, 0)));
  return lines;
}

std::vector<std::string> RemovalLines() {
  // Deleting the first task deletes the task folder, which is then empty.
  std::vector<std::string> lines = Expected({"Hx Setup Log: Task uninstall failed:  -5"});
  Append(lines, RestartLines(-5));
  return lines;
}

const Package& Client() {
  static const Package package = OpenPackage(L"client.msi");
  return package;
}

const Package& NewerClient() {
  static const Package package = OpenPackage(L"client-newer.msi");
  return package;
}

const Package& Gauge() {
  static const Package package = OpenPackage(L"other.msi");
  return package;
}

const Package& NewerGauge() {
  static const Package package = OpenPackage(L"other-newer.msi");
  return package;
}

const Package& Gauge(const std::string& fragment) {
  static std::map<std::string, Package> packages;
  auto [entry, isNew] = packages.try_emplace(fragment);
  if (isNew) entry->second = OpenPackage((L"other-" + ToWide(fragment) + L".msi").c_str());
  return entry->second;
}

const Package& Probe() {
  static const Package package = OpenPackage(L"other-client.msi");
  return package;
}

const Package& NewerProbe() {
  static const Package package = OpenPackage(L"other-client-newer.msi");
  return package;
}

std::string RefusalText(const std::wstring& path, const std::string& action) {
  constexpr int kErrorAction = 19;
  MSIHANDLE database = OpenDatabase(path);
  std::string text =
      PackageText(database, L"SELECT `Target` FROM `CustomAction` WHERE `Type` = " +
                                std::to_wstring(kErrorAction) + L" AND `Action` = '" + ToWide(action) + L"'");
  MsiCloseHandle(database);
  return text;
}

std::string ActionTarget(const std::wstring& path, const std::string& action) {
  MSIHANDLE database = OpenDatabase(path);
  std::string text = PackageText(
      database, L"SELECT `Target` FROM `CustomAction` WHERE `Action` = '" + ToWide(action) + L"'");
  MsiCloseHandle(database);
  return text;
}

const Package& GuideClient() {
  static const Package package = OpenPackage(L"guide-client.msi");
  return package;
}

const Package& GuideServer() {
  static const Package package = OpenPackage(L"guide-server.msi");
  return package;
}

const Package& OlderServer() {
  static const Package package = OpenPackage(L"server-older.msi");
  return package;
}

const Package& Server() {
  static const Package package = OpenPackage(L"server.msi");
  return package;
}

const Package& WatchedServer() {
  static const Package package = OpenPackage(L"server-watched.msi");
  return package;
}

std::vector<const Package*> AllPackages() {
  return {&Client(),         &NewerClient(),   &OlderServer(), &Server(),     &WatchedServer(),
          &GuideClient(),    &GuideServer(),   &Gauge(),       &NewerGauge(), &Gauge("firewall"),
          &Gauge("account"), &Gauge("access"), &Probe(),       &NewerProbe()};
}

std::vector<std::string> ComparedNames(const std::wstring& folder) {
  std::vector<std::string> names;
  for (const std::string& name : Names(folder)) {
    if (_stricmp(name.c_str(), "Config.Msi") == 0) continue;
    if (ThisEngine() == Engine::kWine || machine::CanBeOurs(folder, ToWide(name))) names.push_back(name);
  }
  return names;
}

std::wstring InstalledFile() {
  return Environment(L"ProgramW6432") + L"\\Halvorstead\\Ostrel\\about.txt";
}

bool FileExists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool KeyExists(HKEY root, const std::string& path, REGSAM view) {
  HKEY key;
  if (RegOpenKeyExA(root, path.c_str(), 0, KEY_QUERY_VALUE | view, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

std::optional<std::string> GetRegistryText(HKEY root, const std::string& path, const std::string& name,
                                           REGSAM view) {
  HKEY key;
  if (RegOpenKeyExA(root, path.c_str(), 0, KEY_QUERY_VALUE | view, &key) != ERROR_SUCCESS)
    return std::nullopt;
  wchar_t value[512] = {};
  DWORD size = sizeof value - sizeof(wchar_t), type = 0;
  LSTATUS status =
      RegQueryValueExW(key, ToWide(name).c_str(), nullptr, &type, reinterpret_cast<BYTE*>(value), &size);
  RegCloseKey(key);
  if (status != ERROR_SUCCESS || type != REG_SZ) return std::nullopt;
  return FromWide(value);
}

void SetRegistryText(HKEY root, const std::string& path, const std::string& name, const std::string& value) {
  HKEY key;
  ASSERT_EQ(RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr),
            ERROR_SUCCESS)
      << path;
  std::wstring text = ToWide(value);
  EXPECT_EQ(RegSetValueExW(key, ToWide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                           static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
            ERROR_SUCCESS)
      << path << " " << name;
  RegCloseKey(key);
}

void DeleteRegistryTree(HKEY root, const std::string& path) {
  RegDeleteTreeA(root, path.c_str());
}

std::wstring SettingsFile() {
  wchar_t folder[MAX_PATH];
  GetWindowsDirectoryW(folder, MAX_PATH);
  return std::wstring(folder) + L"\\ostrel.ini";
}

void WriteSettingsFile(int storeSwitch, const Settings& settings, UINT codePage) {
  std::string text = "[options]\r\nregistry=" + std::to_string(storeSwitch) + "\r\nsite=" + settings.site +
                     "\r\nassetID=" + settings.assetId + "\r\nassetLocation=" + settings.assetLocation +
                     "\r\nassetOwner=" + settings.assetOwner + "\r\n[logon]\r\nhost=" + settings.host +
                     "\r\n";
  std::string bytes = FromWide(ToWide(text), codePage);
  HANDLE file = CreateFileW(SettingsFile().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
  CloseHandle(file);
}

void WriteRegistrySettings(Store store, const Settings& settings) {
  HKEY root = store == kUserStore ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
  std::string path = store == kUserStore ? kUserKey : kServiceKey;
  SetRegistryText(root, path + "\\logon", "host", settings.host);
  SetRegistryText(root, path + "\\options", "site", settings.site);
  SetRegistryText(root, path + "\\options", "assetID", settings.assetId);
  SetRegistryText(root, path + "\\options", "assetLocation", settings.assetLocation);
  SetRegistryText(root, path + "\\options", "assetOwner", settings.assetOwner);
}

Settings SettingsOf(Store store) {
  static const char* const names[] = {"file", "user", "service"};
  std::string name = names[store];
  return {name + "-host.example", name + " site", name + "-4711", name + " room 12", name + " owner"};
}

void FillAllStores(int storeSwitch) {
  WriteSettingsFile(storeSwitch, SettingsOf(kFileStore));
  WriteRegistrySettings(kUserStore, SettingsOf(kUserStore));
  WriteRegistrySettings(kServiceStore, SettingsOf(kServiceStore));
}

Settings PublishedSettings(const InstallerRun& run) {
  return {run.Property("PROP_HOSTNAME"), run.Property("PROP_SITE"), run.Property("PROP_ASSETID"),
          run.Property("PROP_ASSETLOCATION"), run.Property("PROP_ASSETOWNER")};
}

bool operator==(const Settings& left, const Settings& right) {
  return left.host == right.host && left.site == right.site && left.assetId == right.assetId &&
         left.assetLocation == right.assetLocation && left.assetOwner == right.assetOwner;
}

void PrintTo(const Settings& settings, std::ostream* stream) {
  *stream << "host \"" << settings.host << "\", site \"" << settings.site << "\", assetID \""
          << settings.assetId << "\", assetLocation \"" << settings.assetLocation << "\", assetOwner \""
          << settings.assetOwner << "\"";
}

InstallerRun RunInstaller(const std::string& name, const std::wstring& arguments) {
  InstallerRun run;
  run.name = name;
  std::wstring log = Environment(L"HX_ARTIFACTS") + L"\\" + ToWide(name) + L".log";
  // Without a user interface Windows would restart itself if a file is in use.
  const wchar_t* restart = ThisEngine() == Engine::kWindows ? L" /norestart" : L"";
  const std::wstring command = L"msiexec.exe " + arguments + restart + L" /l*v \"" + log + L"\"";
  machine::WaitForDeletedServices(kInstallerTimeLimit);
  bool isDone = false;
  for (int attempt = 0; !isDone && attempt < kStartAttempts; ++attempt) isDone = RunOnce(command, log, run);
  for (int attempt = 0; run.exitCode == ERROR_INSTALL_ALREADY_RUNNING && attempt < kBusyAttempts; ++attempt) {
    Sleep(kBusyWait);
    RunOnce(command, log, run);
  }
  if (!isDone) ADD_FAILURE() << "cannot run " << FromWide(command);

  if (FileExists(log)) EXPECT_TRUE(machine::HidePasswordsInFile(log)) << FromWide(log);
  const unsigned long result = ResultOf(ThisEngine(), run.exitCode);
  if (result != run.exitCode) {
    std::printf("---- %s: ended with %lu, a file was in use\n", name.c_str(), run.exitCode);
    Note(Differs::kFilesInUse);
    run.exitCode = result;
  }
  const std::string bytes = ReadBytes(log);
  run.lines = SplitLines(LogText(bytes));
  const std::string mark = "Property(S): ";
  for (const std::string& line : run.lines) {
    size_t sign = line.find(" = ");
    if (line.rfind(mark, 0) != 0 || sign == std::string::npos) continue;
    run.properties[line.substr(mark.size(), sign - mark.size())] = line.substr(sign + 3);
  }
  return run;
}

void InstallTest::SetUp() {
  EndAgentsIn(kMovedFiles);
  EmptyStores();
  before_ = DescribeMachine();
}

void InstallTest::TearDown() {
  EmptyStores();
  EXPECT_EQ(DescribeMachine(), before_) << "the test changed the machine";
  if (HasFailure()) {
    for (const auto& run : runs_) PrintRun(*run);
  }
}

const InstallerRun& InstallTest::Msiexec(const std::string& step, const std::wstring& arguments) {
  runs_.push_back(std::make_unique<InstallerRun>(
      RunInstaller(TestName() + "." + std::to_string(runs_.size() + 1) + "-" + step, arguments)));
  return *runs_.back();
}

const InstallerRun& InstallTest::Install(const Package& package, const std::wstring& properties) {
  return Msiexec("install", L"/i \"" + package.path + L"\" /qn " + properties);
}

const InstallerRun& InstallTest::Reinstall(const Package& package, const std::wstring& properties) {
  return Msiexec("reinstall",
                 L"/i \"" + package.path + L"\" /qn REINSTALL=ALL REINSTALLMODE=omus " + properties);
}

const InstallerRun& InstallTest::Remove(const Package& package, const std::wstring& properties) {
  return Msiexec("remove", L"/x \"" + package.path + L"\" /qn " + properties);
}

void InstalledClientTest::SetUpTestSuite() {
  EmptyStores();
  InstallerRun run = RunInstaller("InstalledClientTest.install", L"/i \"" + Client().path + L"\" /qn");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_TRUE(Client().IsInstalled());
}

void InstalledClientTest::TearDownTestSuite() {
  InstallerRun run = RunInstaller("InstalledClientTest.remove", L"/x \"" + Client().path + L"\" /qn");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_FALSE(Client().IsInstalled());
}

}  // namespace install
