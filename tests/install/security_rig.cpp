#include "install/security_rig.h"

#include <aclapi.h>
#include <lm.h>
#include <msi.h>
#include <msiquery.h>
#include <sddl.h>

#include "install/agent_rig.h"

namespace install {

namespace {

constexpr wchar_t kService[] = L"Vantor";
constexpr char kMark[] = "Hx Setup Log: ";

std::vector<std::string>* sessionLines;

int WINAPI TakeLine(void*, UINT type, LPCWSTR message) {
  constexpr UINT kKindMask = 0xFF000000;
  std::string line = FromWide(message);
  if (!sessionLines) return IDOK;
  if ((type & kKindMask) == INSTALLMESSAGE_WARNING) sessionLines->push_back("Notice: " + line);
  if (line.rfind(kMark, 0) == 0) sessionLines->push_back(line.substr(sizeof kMark - 1));
  return IDOK;
}

// Returns the identifier of this process's user, as text.
}  // namespace

const char kVantorKey[] = "SOFTWARE\\Halvorstead\\Vantor";
const char kEventSourceKey[] = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Vantor";

Session::Session() {
  wchar_t folder[MAX_PATH] = {};
  GetEnvironmentVariableW(L"HX_LIBRARY_DIR", folder, MAX_PATH);
  library_ = LoadLibraryW((std::wstring(folder) + L"\\hxsetup.dll").c_str());
  MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
  MsiSetExternalUIW(TakeLine, INSTALLLOGMODE_INFO | INSTALLLOGMODE_WARNING, nullptr);
  MSIHANDLE session = 0;
  EXPECT_EQ(MsiOpenPackageExW(Server().path.c_str(), MSIOPENPACKAGEFLAGS_IGNOREMACHINESTATE, &session), 0u);
  session_ = session;
}

Session::~Session() {
  MsiCloseHandle(session_);
  MsiSetExternalUIW(nullptr, 0, nullptr);
  if (library_) FreeLibrary(library_);
}

void Session::Set(const std::string& property, const std::string& value) {
  EXPECT_EQ(MsiSetPropertyW(session_, ToWide(property).c_str(), ToWide(value).c_str()), 0u) << property;
}

std::string Session::Get(const std::string& property) const {
  wchar_t value[512] = {};
  DWORD size = 512;
  EXPECT_EQ(MsiGetPropertyW(session_, ToWide(property).c_str(), value, &size), 0u) << property;
  return FromWide(value);
}

std::vector<std::string> Session::Run(const char* action) {
  using Action = UINT WINAPI(MSIHANDLE);
  std::vector<std::string> lines;
  auto* function = reinterpret_cast<Action*>(
      reinterpret_cast<void*>(library_ ? GetProcAddress(library_, action) : nullptr));
  if (!function) {
    ADD_FAILURE() << action << " is missing";
    return lines;
  }
  sessionLines = &lines;
  EXPECT_EQ(function(session_), 0u) << action;
  sessionLines = nullptr;
  return lines;
}

std::string SetupLine(const std::string& text) {
  return kMark + text;
}

void SetAccess(const std::wstring& path, const std::string& list) {
  PSECURITY_DESCRIPTOR security = nullptr;
  std::string text = Replaced(list, "USER", machine::UserIdentifier());
  ASSERT_TRUE(
      ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &security, nullptr))
      << text;
  EXPECT_TRUE(SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, security)) << FromWide(path);
  LocalFree(security);
}

std::string UserName() {
  wchar_t name[256] = {};
  DWORD size = 256;
  GetUserNameW(name, &size);
  return FromWide(name);
}

std::string ComputerName() {
  wchar_t name[256] = {};
  DWORD size = 256;
  GetComputerNameW(name, &size);
  return FromWide(name);
}

bool HasAccount(const std::wstring& name) {
  BYTE* information = nullptr;
  if (NetUserGetInfo(nullptr, name.c_str(), 1, &information) != NERR_Success) return false;
  NetApiBufferFree(information);
  return true;
}

void MakeServer(const std::wstring& program, const std::wstring& account) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  SC_HANDLE service = CreateServiceW(manager, kService, kService, SERVICE_ALL_ACCESS,
                                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                     program.c_str(), nullptr, nullptr, nullptr, account.c_str(), nullptr);
  EXPECT_NE(service, nullptr) << GetLastError();
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

std::optional<std::string> ServerAccount() {
  std::optional<std::string> account;
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (SC_HANDLE service = OpenServiceW(manager, kService, SERVICE_QUERY_CONFIG)) {
    alignas(QUERY_SERVICE_CONFIGW) BYTE configuration[4096];
    DWORD size;
    auto* start = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(configuration);
    if (QueryServiceConfigW(service, start, sizeof configuration, &size))
      account = FromWide(start->lpServiceStartName);
    CloseServiceHandle(service);
  }
  CloseServiceHandle(manager);
  return account;
}

void SetServerAccount(const std::string& account) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE service = OpenServiceW(manager, kService, SERVICE_CHANGE_CONFIG);
  EXPECT_TRUE(ChangeServiceConfigW(service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, nullptr,
                                   nullptr, nullptr, nullptr, ToWide(account).c_str(), nullptr, nullptr))
      << GetLastError();
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

std::string NotedAccount() {
  std::optional<std::string> name = GetRegistryText(HKEY_LOCAL_MACHINE, kVantorKey, "Account");
  std::optional<std::string> domain = GetRegistryText(HKEY_LOCAL_MACHINE, kVantorKey, "AccountDomain");
  return name && domain ? *domain + "\\" + *name : "(none)";
}

void SecurityTest::SetUp() {
  ServerTest::SetUp();
  ClearRecord();
}

void SecurityTest::TearDown() {
  if (WatchedServer().IsInstalled()) Msiexec("clear-up", L"/x \"" + WatchedServer().path + L"\" /qn");
  ServerTest::TearDown();
  DeleteRegistryTree(HKEY_LOCAL_MACHINE, kEventSourceKey);
  ClearRecord();
}

}  // namespace install
