#include "install/agent_rig.h"

#include <lm.h>
#include <tlhelp32.h>

#include <ostream>

#include "install/agent_scheduler.h"
#include "machine/signed_libraries.h"

namespace install {

namespace {

constexpr char kService[] = "Ostrel";
constexpr wchar_t kAuditAccount[] = L"auditor";
constexpr char kWindowsKey[] = "Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows";
constexpr char kList[] = "AppInit_DLLs";
constexpr char kSwitch[] = "LoadAppInit_DLLs";
const std::wstring kAgentOfCache = std::wstring(kInstallerCache) + L"\\osua.exe";

std::wstring Variable(const wchar_t* name) {
  wchar_t value[MAX_PATH];
  return std::wstring(value, GetEnvironmentVariableW(name, value, MAX_PATH));
}

std::wstring RecordFile() {
  return Variable(L"ProgramData") + L"\\Ostrel record.txt";
}

std::optional<std::string> Bytes(const std::wstring& path) {
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::nullopt;
  std::string bytes(GetFileSize(file, nullptr), '\0');
  DWORD count = 0;
  EXPECT_TRUE(ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr));
  CloseHandle(file);
  EXPECT_EQ(count, bytes.size());
  return bytes;
}

// Opens a service with all rights.
class ServiceAccess {
 public:
  explicit ServiceAccess(const char* name = kService)
      : manager_(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
    service_ = OpenServiceA(manager_, name, SERVICE_ALL_ACCESS);
  }
  ~ServiceAccess() {
    if (service_) CloseServiceHandle(service_);
    CloseServiceHandle(manager_);
  }
  SC_HANDLE get() const { return service_; }
  // Returns the service's state and, while it runs, its process.
  SERVICE_STATUS_PROCESS Status() const {
    SERVICE_STATUS_PROCESS status = {};
    DWORD size;
    if (service_)
      QueryServiceStatusEx(service_, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                           &size);
    return status;
  }

 private:
  SC_HANDLE manager_;
  SC_HANDLE service_;
};

// Returns a comma and the version with which the package marks the end of a program in the client folder;
// empty without a mark.
std::string VersionOf(const std::string& program) {
  static const std::string mark = "\nOstrel ";
  const std::string bytes = Bytes(std::wstring(kClientFolder) + L"\\" + ToWide(program)).value_or("");
  size_t start = bytes.rfind(mark);
  if (start == std::string::npos) return "";
  return ", " + bytes.substr(start + mark.size(), bytes.find('\n', start + 1) - start - mark.size());
}

// Lets this process end those of services.
void EnableDebugPrivilege() {
  HANDLE token = nullptr;
  TOKEN_PRIVILEGES privileges = {};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token);
  LookupPrivilegeValueW(nullptr, L"SeDebugPrivilege", &privileges.Privileges[0].Luid);
  AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr);
  CloseHandle(token);
}

void EndProcess(DWORD id) {
  EnableDebugPrivilege();
  HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
  if (!process) return;
  TerminateProcess(process, 0);
  WaitForSingleObject(process, kPatience);
  CloseHandle(process);
}

}  // namespace

void WaitUntil(const std::string& what, const std::function<bool()>& isTrue) {
  DWORD start = GetTickCount();
  while (!isTrue()) {
    if (GetTickCount() - start > kPatience) {
      ADD_FAILURE() << "timed out waiting until " << what;
      return;
    }
    Sleep(10);
  }
}

const wchar_t kClientFolder[] = L"C:\\Program Files\\Halvorstead\\Ostrel";
const wchar_t kOtherFolder[] = L"C:\\Ostrel elsewhere";
const wchar_t kInstallerCache[] = L"C:\\Windows\\Installer";
const wchar_t kMovedFiles[] = L"C:\\Config.Msi";

// ---- the record

Texts Record() {
  const std::string bytes = Bytes(RecordFile()).value_or("");
  Texts lines;
  for (size_t start = 0; start < bytes.size();) {
    size_t end = bytes.find("\r\n", start);
    if (end == std::string::npos) end = bytes.size();
    lines.push_back(bytes.substr(start, end - start));
    start = end + 2;
  }
  return lines;
}

Texts RecordOf(const std::string& head) {
  Texts lines;
  for (const std::string& line : Record()) {
    if (line.rfind(head, 0) == 0) lines.push_back(line);
  }
  return lines;
}

void ClearRecord() {
  DeleteFileW(RecordFile().c_str());
}

// ---- programs

void LayDownProgram(const std::wstring& path) {
  WriteTree(path.substr(0, path.rfind(L'\\')), {});
  std::wstring source = Variable(L"HX_LIBRARY_DIR") + L"\\agent.exe";
  ASSERT_TRUE(CopyFileW(source.c_str(), path.c_str(), FALSE)) << FromWide(path) << ": " << GetLastError();
}

Process::Process(const std::wstring& path, const std::wstring& arguments) {
  std::wstring command = L"\"" + path + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  // Under emulation a process sometimes dies before its first instruction.
  for (int attempt = 0; !information_.hProcess && attempt < 3; ++attempt)
    CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                   &information_);
  EXPECT_NE(information_.hProcess, nullptr) << FromWide(command) << ": " << GetLastError();
}

Process::~Process() {
  End();
  CloseHandle(information_.hThread);
  CloseHandle(information_.hProcess);
}

bool Process::IsRunning() const {
  return WaitForSingleObject(information_.hProcess, 0) == WAIT_TIMEOUT;
}

void Process::End() {
  TerminateProcess(information_.hProcess, 0);
  WaitForSingleObject(information_.hProcess, kPatience);
}

std::unique_ptr<Process> StartAgent(const std::wstring& path) {
  const size_t before = RecordOf("osua.exe: started").size();
  auto agent = std::make_unique<Process>(path, L"");
  WaitUntil("an agent runs", [&] { return RecordOf("osua.exe: started").size() > before; });
  return agent;
}

void EndAgentsIn(const std::wstring& folder) {
  if (ThisEngine() == Engine::kWine) return;
  EnableDebugPrivilege();
  const std::wstring head = folder + L"\\";
  HANDLE processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(processes, &entry); more; more = Process32NextW(processes, &entry)) {
    if (_wcsicmp(entry.szExeFile, L"osua.exe") != 0) continue;
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID);
    if (!process) continue;
    wchar_t path[MAX_PATH];
    DWORD length = MAX_PATH;
    const bool isThere = QueryFullProcessImageNameW(process, 0, path, &length) &&
                         _wcsnicmp(path, head.c_str(), head.size()) == 0;
    CloseHandle(process);
    if (isThere) EndProcess(entry.th32ProcessID);
  }
  CloseHandle(processes);
}

std::unique_ptr<Process> OpenTool(const std::string& windowClass, const std::string& title, int refusals,
                                  int delay) {
  const std::wstring program = std::wstring(kOtherFolder) + L"\\tool.exe";
  if (!FileExists(program)) LayDownProgram(program);
  const size_t before = RecordOf(windowClass + ": opened").size();
  auto tool = std::make_unique<Process>(
      program,
      ToWide(windowClass + " \"" + title + "\" " + std::to_string(refusals) + " " + std::to_string(delay)));
  WaitUntil(windowClass + " is open", [&] { return RecordOf(windowClass + ": opened").size() > before; });
  EXPECT_NE(FindWindowA(windowClass.c_str(), title.c_str()), nullptr) << windowClass;
  return tool;
}

// ---- the service

DWORD ServiceState() {
  return ServiceAccess().Status().dwCurrentState;
}

void MakeService(const std::wstring& path) {
  SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  SC_HANDLE service =
      CreateServiceW(manager, ToWide(kService).c_str(), nullptr, SERVICE_ALL_ACCESS,
                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                     (L"\"" + path + L"\"").c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_NE(service, nullptr) << GetLastError();
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

void SetServiceCommand(const std::wstring& command) {
  ServiceAccess service;
  EXPECT_TRUE(ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                   command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))
      << GetLastError();
}

std::wstring ServiceCommand() {
  ServiceAccess service;
  // Elements of eight bytes align the structure at the front.
  std::vector<unsigned long long> buffer(1024);
  auto* configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  DWORD size;
  if (!QueryServiceConfigW(service.get(), configuration, static_cast<DWORD>(buffer.size() * 8), &size))
    return L"(no service)";
  return configuration->lpBinaryPathName;
}

void StopAgentService() {
  ServiceAccess service;
  if (!service.get() || service.Status().dwCurrentState == SERVICE_STOPPED) return;
  EndProcess(service.Status().dwProcessId);
  WaitUntil("the service stops", [&] { return service.Status().dwCurrentState == SERVICE_STOPPED; });
}

void DeleteAgentService() {
  StopAgentService();
  {
    ServiceAccess service;
    if (!service.get()) return;
    EXPECT_TRUE(DeleteService(service.get())) << GetLastError();
  }
  WaitUntil("the service is gone", [] { return !ServiceAccess().get(); });
}

bool IsServiceRunning(const char* name) {
  return ServiceAccess(name).Status().dwCurrentState == SERVICE_RUNNING;
}

void RunService(const char* name) {
  ServiceAccess service(name);
  EXPECT_TRUE(StartServiceW(service.get(), 0, nullptr)) << name << ": " << GetLastError();
  WaitUntil(std::string(name) + " runs", [&] { return service.Status().dwCurrentState == SERVICE_RUNNING; });
}

void StopService(const char* name) {
  ServiceAccess service(name);
  SERVICE_STATUS status;
  if (service.Status().dwCurrentState == SERVICE_STOPPED) return;
  EXPECT_TRUE(ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) << name << ": " << GetLastError();
  WaitUntil(std::string(name) + " stops", [&] { return service.Status().dwCurrentState == SERVICE_STOPPED; });
}

// ---- the list of libraries that Windows loads, and the audit file

LibraryList GetLibraryList() {
  LibraryList list;
  HKEY key;
  list.hasKey = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kWindowsKey, 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS;
  if (!list.hasKey) return list;
  // Including the terminator, of which there must be only one.
  char text[512];
  DWORD size = sizeof text, type;
  if (RegQueryValueExA(key, kList, nullptr, &type, reinterpret_cast<BYTE*>(text), &size) == ERROR_SUCCESS) {
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size, std::string(text).size() + 1);
    list.list = text;
  }
  DWORD number;
  size = sizeof number;
  if (RegQueryValueExA(key, kSwitch, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size) ==
      ERROR_SUCCESS) {
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    list.isOn = number;
  }
  RegCloseKey(key);
  return list;
}

void SetLibraryList(const LibraryList& list) {
  if (!list.hasKey && !OnWindows(Differs::kSharedKey)) {
    RegDeleteKeyExA(HKEY_LOCAL_MACHINE, kWindowsKey, 0, 0);
    return;
  }
  HKEY key;
  ASSERT_EQ(
      RegCreateKeyExA(HKEY_LOCAL_MACHINE, kWindowsKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr),
      ERROR_SUCCESS);
  RegDeleteValueA(key, kList);
  RegDeleteValueA(key, kSwitch);
  if (list.list)
    RegSetValueExA(key, kList, 0, REG_SZ, reinterpret_cast<const BYTE*>(list.list->c_str()),
                   static_cast<DWORD>(list.list->size() + 1));
  if (list.isOn)
    RegSetValueExA(key, kSwitch, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&*list.isOn), sizeof *list.isOn);
  RegCloseKey(key);
}

bool operator==(const LibraryList& left, const LibraryList& right) {
  return left.hasKey == right.hasKey && left.list == right.list && left.isOn == right.isOn;
}

void PrintTo(const LibraryList& list, std::ostream* stream) {
  *stream << (list.hasKey ? "list " : "no key; list ") << (list.list ? "\"" + *list.list + "\"" : "absent")
          << ", switch " << (list.isOn ? std::to_string(*list.isOn) : "absent");
}

std::wstring AuditFile() {
  return Variable(L"ProgramData") + L"\\Ostrel Audit";
}

std::optional<std::string> AuditBytes() {
  return Bytes(AuditFile());
}

void WriteAuditFile(const std::string& bytes) {
  WriteTree(Variable(L"ProgramData"), {{"Ostrel Audit", bytes}});
}

void OnlySignedLibraries::SetUp() {
  if (ThisEngine() == Engine::kWindows) EXPECT_TRUE(machine::RequireSignedLibraries());
}

void OnlySignedLibraries::TearDown() {
  if (ThisEngine() == Engine::kWindows) EXPECT_TRUE(machine::RestoreSignedLibraries());
}

[[maybe_unused]] static testing::Environment* const onlySignedLibraries =
    testing::AddGlobalTestEnvironment(new OnlySignedLibraries);

// ---- the machine

std::string AgentMachine::Describe() {
  std::string text;
  for (const std::wstring& folder :
       {std::wstring(L"C:"), Variable(L"ProgramData"), Variable(L"ProgramW6432") + L"\\Halvorstead"}) {
    for (const std::string& name : ComparedNames(folder)) text += FromWide(folder) + "\\" + name + "\n";
  }
  for (const char* key : {kMakerKey, kServiceKeyAbove}) {
    if (KeyExists(HKEY_LOCAL_MACHINE, key)) text += std::string(key) + "\n";
  }
  for (const Package* package : {&NewerClient(), &Client()}) {
    if (package->IsInstalled()) text += FromWide(package->path) + "\n";
  }
  return text;
}

void AgentMachine::Take() {
  libraries_ = GetLibraryList();
  Clear();
  SetLibraryList({});
  before_ = Describe();
}

void AgentMachine::Clear() {
  DeleteAgentService();
  EndAgentsIn(kMovedFiles);
  EndAgentsIn(kClientFolder);
  DeleteTree(kClientFolder);
  DeleteTree(kOtherFolder);
  DeleteFileW(kAgentOfCache.c_str());
  DeleteFileW(AuditFile().c_str());
  Scheduler scheduler;
  scheduler.Clear();
  scheduler.DeleteWorkItem();
  ClearRecord();
}

void AgentMachine::GiveBack() {
  for (const Package* package : {&NewerClient(), &Client()}) {
    if (package->IsInstalled()) RunInstaller("AgentMachine.clear-up", L"/x \"" + package->path + L"\" /qn");
  }
  Clear();
  SetLibraryList(libraries_);
  EXPECT_EQ(Describe(), before_) << "the tests changed the machine";
}

AuditAccount::AuditAccount(const std::wstring& password) {
  if (!OnWindows(Differs::kAccounts)) return;
  std::wstring name = kAuditAccount, secret = password;
  USER_INFO_1 account = {};
  account.usri1_name = name.data();
  account.usri1_password = secret.data();
  account.usri1_priv = USER_PRIV_USER;
  account.usri1_flags = UF_SCRIPT | UF_NORMAL_ACCOUNT;
  EXPECT_EQ(NetUserAdd(nullptr, 1, reinterpret_cast<BYTE*>(&account), nullptr),
            static_cast<NET_API_STATUS>(NERR_Success));
}

AuditAccount::~AuditAccount() {
  if (ThisEngine() == Engine::kWindows) NetUserDel(nullptr, kAuditAccount);
}

AgentState RunAndLook(const std::string& name, const std::wstring& arguments) {
  ClearRecord();
  AgentState state;
  state.run = RunInstaller(name, arguments);
  // Where the engine runs tasks, the installation starts the agent in each session of a user, some time
  // later.
  for (const std::string& line : Record()) {
    if (line.rfind("osua.exe: started", 0) != 0 || !OnWindows(Differs::kTasks)) state.record.push_back(line);
  }
  state.service = ServiceState();
  Scheduler scheduler;
  state.tasks = scheduler.Tasks();
  state.workItem = scheduler.WorkItem();
  state.libraries = GetLibraryList();
  state.audit = AuditBytes();
  for (const std::string& name : Names(kClientFolder)) state.programs.push_back(name + VersionOf(name));
  state.hasClient = Client().IsInstalled();
  state.hasNewerClient = NewerClient().IsInstalled();
  return state;
}

std::vector<std::string> FailInScript(int sequence) {
  // An entry point of the library, deferred, without impersonation: CustomAction17, which fails
  // without a marker of success.
  constexpr int kDeferredAction = 1 + 1024 + 2048;
  return {"INSERT INTO `Property` (`Property`, `Value`) VALUES ('Fail', '" + FromWide(kOtherFolder) + "\\')",
          "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Fail', " +
              std::to_string(kDeferredAction) + ", 'hxsetup', 'CustomAction17')",
          "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
          "VALUES ('Fail', 'NOT REMOVE', " +
              std::to_string(sequence) + ")"};
}

void AgentTest::SetUp() {
  InstallTest::SetUp();
  machine_.Take();
}

void AgentTest::TearDown() {
  machine_.GiveBack();
  InstallTest::TearDown();
}

}  // namespace install
