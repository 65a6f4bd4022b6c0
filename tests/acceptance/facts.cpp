#include "acceptance/facts.h"

#include <windows.h>
// After windows.h, which they need.
#include <lm.h>
#include <msi.h>
#include <msiquery.h>
#include <wincrypt.h>

#include <cstdio>

#include "machine/places.h"
#include "machine/texts.h"

namespace acceptance {

namespace {

using machine::FromWide;
using machine::ToWide;

constexpr size_t kHashBytes = 32;

std::string Number(uint64_t number) {
  return std::to_string(number);
}

std::string MachineName(USHORT machine) {
  switch (machine) {
    case IMAGE_FILE_MACHINE_AMD64:
      return "x64";
    case IMAGE_FILE_MACHINE_ARM64:
      return "arm64";
    case IMAGE_FILE_MACHINE_I386:
      return "x86";
    default:
      return "machine " + Number(machine);
  }
}

// The machine's own processor, also for a program that it emulates.
std::string NativeProcessor() {
  using Ask = BOOL WINAPI(HANDLE, USHORT*, USHORT*);
  auto* ask = reinterpret_cast<Ask*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "IsWow64Process2")));
  USHORT process = 0, native = 0;
  if (ask && ask(GetCurrentProcess(), &process, &native)) return MachineName(native);
  SYSTEM_INFO system;
  GetNativeSystemInfo(&system);
  return system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ? "x64" : "x86";
}

std::string RegistryText(const char* value) {
  char text[256] = {};
  DWORD size = sizeof text;
  RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", value, RRF_RT_REG_SZ,
               nullptr, text, &size);
  return text;
}

// True if this process may do what the tests need: an administrator without elevation may not change
// services.
bool IsElevated() {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  if (manager) CloseServiceHandle(manager);
  return manager != nullptr;
}

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// True if the drive of the temporary folder gives a long name a short one too.
bool GivesShortNames() {
  wchar_t folder[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, folder);
  const std::wstring path = std::wstring(folder) + L"A long name of the acceptance run.text";
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  WIN32_FIND_DATAW found = {};
  HANDLE search = FindFirstFileW(path.c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) FindClose(search);
  CloseHandle(file);
  return found.cAlternateFileName[0] != L'\0';
}

// The SHA-256 hash of a file in lower case; empty if it cannot be read.
std::string HashOf(const std::wstring& path) {
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  HCRYPTPROV provider = 0;
  HCRYPTHASH hash = 0;
  std::string text;
  if (file != INVALID_HANDLE_VALUE &&
      CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT) &&
      CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash)) {
    std::vector<BYTE> block(1 << 16);
    DWORD count = 0;
    bool isHashed = true;
    while (isHashed && ReadFile(file, block.data(), static_cast<DWORD>(block.size()), &count, nullptr) &&
           count)
      isHashed = CryptHashData(hash, block.data(), count, 0);
    BYTE bytes[kHashBytes];
    DWORD size = sizeof bytes;
    if (isHashed && CryptGetHashParam(hash, HP_HASHVAL, bytes, &size, 0)) {
      for (BYTE byte : bytes) {
        static const char digits[] = "0123456789abcdef";
        text += {digits[byte >> 4], digits[byte & 15]};
      }
    }
  }
  if (hash) CryptDestroyHash(hash);
  if (provider) CryptReleaseContext(provider, 0);
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  return text;
}

bool IsRemote(const std::wstring& path) {
  return path.rfind(L"\\\\", 0) == 0 || GetDriveTypeW((path.substr(0, 2) + L"\\").c_str()) == DRIVE_REMOTE;
}

bool IsInOneDrive(const std::wstring& path) {
  for (const wchar_t* variable : {L"OneDrive", L"OneDriveConsumer", L"OneDriveCommercial"}) {
    wchar_t folder[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(variable, folder, MAX_PATH);
    if (length && length < MAX_PATH && IsIn(path, folder)) return true;
  }
  return false;
}

std::string LanguageName(LANGID language) {
  wchar_t name[LOCALE_NAME_MAX_LENGTH] = {};
  LCIDToLocaleName(MAKELCID(language, SORT_DEFAULT), name, LOCALE_NAME_MAX_LENGTH, 0);
  return FromWide(name);
}

// True if the user of this process has an account of this computer, and not one of a domain or of a service.
bool IsLocalUser() {
  HANDLE token = nullptr;
  alignas(TOKEN_USER) BYTE user[256];
  DWORD size = sizeof user;
  wchar_t name[256] = {}, domain[256] = {}, computer[256] = {};
  DWORD nameLength = 256, domainLength = 256, computerLength = 256;
  SID_NAME_USE use;
  const bool isFound = OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) &&
                       GetTokenInformation(token, TokenUser, user, sizeof user, &size) &&
                       LookupAccountSidW(nullptr, reinterpret_cast<TOKEN_USER*>(user)->User.Sid, name,
                                         &nameLength, domain, &domainLength, &use) &&
                       GetComputerNameW(computer, &computerLength);
  if (token) CloseHandle(token);
  BYTE* information = nullptr;
  if (!isFound || _wcsicmp(domain, computer) != 0 ||
      NetUserGetInfo(nullptr, name, 1, &information) != NERR_Success)
    return false;
  NetApiBufferFree(information);
  return true;
}

bool HasService(const std::wstring& name) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE service = OpenServiceW(manager, name.c_str(), SERVICE_QUERY_STATUS);
  const bool hasService = service || GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST;
  if (service) CloseServiceHandle(service);
  if (manager) CloseServiceHandle(manager);
  return hasService;
}

bool HasAccount(const std::wstring& name) {
  BYTE* information = nullptr;
  if (NetUserGetInfo(nullptr, name.c_str(), 1, &information) != NERR_Success) return false;
  NetApiBufferFree(information);
  return true;
}

bool HasKey(const std::string& path) {
  const HKEY root = path.rfind("HKCU\\", 0) == 0 ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
  HKEY key = nullptr;
  if (RegOpenKeyExA(root, path.c_str() + 5, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

// Returns the first value of the package's Property table with this name.
std::wstring PackageProperty(MSIHANDLE database, const wchar_t* name) {
  const std::wstring query =
      std::wstring(L"SELECT `Value` FROM `Property` WHERE `Property` = '") + name + L"'";
  MSIHANDLE view = 0, record = 0;
  wchar_t text[256] = {};
  DWORD length = 256;
  if (MsiDatabaseOpenViewW(database, query.c_str(), &view) == ERROR_SUCCESS &&
      MsiViewExecute(view, 0) == ERROR_SUCCESS && MsiViewFetch(view, &record) == ERROR_SUCCESS) {
    MsiRecordGetStringW(record, 1, text, &length);
  }
  if (record) MsiCloseHandle(record);
  if (view) MsiCloseHandle(view);
  return text;
}

// Adds the products that are installed and are those of a package, or others of its upgrade code.
void AddProducts(const std::wstring& packages, std::vector<std::string>& found) {
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW((packages + L"\\*.msi").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    MSIHANDLE database = 0;
    // Null for the mode is the header's MSIDBOPEN_READONLY, which exists only in 8-bit form.
    if (MsiOpenDatabaseW((packages + L"\\" + entry.cFileName).c_str(), nullptr, &database) != ERROR_SUCCESS)
      continue;
    const std::wstring code = PackageProperty(database, L"ProductCode"),
                       family = PackageProperty(database, L"UpgradeCode");
    const std::string name = FromWide(PackageProperty(database, L"ProductName"));
    MsiCloseHandle(database);
    wchar_t related[39] = {};
    const bool isFamilyThere = MsiEnumRelatedProductsW(family.c_str(), 0, 0, related) == ERROR_SUCCESS;
    if (!isFamilyThere && MsiQueryProductStateW(code.c_str()) == INSTALLSTATE_UNKNOWN) continue;
    const std::string line = "the product " + name + " " + FromWide(isFamilyThere ? related : code.c_str());
    if (found.empty() || found.back() != line) found.push_back(line);
  } while (FindNextFileW(search, &entry));
  FindClose(search);
}

std::vector<std::string> InUse(const std::wstring& folder) {
  std::vector<std::string> found;
  AddProducts(folder + L"\\packages", found);
  for (const std::wstring& name : machine::kServices) {
    if (HasService(name)) found.push_back("the service " + FromWide(name));
  }
  for (const std::wstring& name : machine::kAccounts) {
    if (HasAccount(name)) found.push_back("the account " + FromWide(name));
  }
  for (const auto* places : {&machine::kFolders, &machine::kFiles}) {
    for (const std::wstring& path : *places) {
      if (Exists(path)) found.push_back(FromWide(path));
    }
  }
  for (const std::string& key : machine::kKeys) {
    if (HasKey(key)) found.push_back("the key " + key);
  }
  return found;
}

}  // namespace

bool FitsCodePage(const std::wstring& path, unsigned codePage) {
  // This code page has every character, and takes neither the flag nor the answer.
  if (codePage == CP_UTF8 || path.empty()) return true;
  BOOL isReplaced = FALSE;
  const int length = WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, path.c_str(),
                                         static_cast<int>(path.size()), nullptr, 0, nullptr, &isReplaced);
  return length > 0 && !isReplaced;
}

bool IsIn(const std::wstring& path, const std::wstring& folder) {
  if (folder.empty() || _wcsnicmp(path.c_str(), folder.c_str(), folder.size()) != 0) return false;
  return path.size() == folder.size() || folder.back() == L'\\' || path[folder.size()] == L'\\';
}

bool IsEnglish(const std::string& language) {
  return language.substr(0, language.find('-')) == "en";
}

std::vector<std::string> Damaged(const std::wstring& folder) {
  std::FILE* file = _wfopen((folder + L"\\files.txt").c_str(), L"rb");
  if (!file) return {"files.txt"};
  std::vector<std::string> damaged;
  char line[1024];
  size_t count = 0;
  while (std::fgets(line, sizeof line, file)) {
    std::string text = line;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (text.size() <= 2 * kHashBytes + 2) continue;
    ++count;
    const std::string name = text.substr(2 * kHashBytes + 2);
    if (HashOf(folder + L"\\" + ToWide(name)) != text.substr(0, 2 * kHashBytes)) damaged.push_back(name);
  }
  std::fclose(file);
  if (count == 0) damaged.push_back("files.txt");
  return damaged;
}

Facts Gather(const std::wstring& folder, const std::wstring& report) {
  Facts facts;
  facts.native = NativeProcessor();
  using Version = LONG WINAPI(OSVERSIONINFOW*);
  using WineVersion = const char* CDECL();
  const HMODULE ntdll = GetModuleHandleW(L"ntdll");
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  // The true version: others depend on the program's manifest.
  auto* ask = reinterpret_cast<Version*>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")));
  if (ask) ask(&version);
  facts.major = version.dwMajorVersion;
  facts.build = version.dwBuildNumber;
  // Older versions have no display version.
  const std::string display = RegistryText("DisplayVersion");
  facts.edition = RegistryText("ProductName") + (display.empty() ? "" : " " + display);
  auto* wine =
      reinterpret_cast<WineVersion*>(reinterpret_cast<void*>(GetProcAddress(ntdll, "wine_get_version")));
  facts.engine = wine ? std::string("Wine's (") + wine() + ")" : "Microsoft's";
  facts.isElevated = IsElevated();
  wchar_t windows[MAX_PATH] = {};
  GetWindowsDirectoryW(windows, MAX_PATH);
  facts.windowsDrive = FromWide(windows).substr(0, 2);
  ULARGE_INTEGER available = {};
  if (GetDiskFreeSpaceExW(windows, &available, nullptr, nullptr)) facts.freeBytes = available.QuadPart;
  facts.codePage = GetACP();
  wchar_t locale[LOCALE_NAME_MAX_LENGTH] = {};
  GetUserDefaultLocaleName(locale, LOCALE_NAME_MAX_LENGTH);
  facts.locale = FromWide(locale);
  TIME_ZONE_INFORMATION zone = {};
  const DWORD season = GetTimeZoneInformation(&zone);
  const LONG bias = zone.Bias + (season == TIME_ZONE_ID_DAYLIGHT ? zone.DaylightBias : 0);
  facts.zone =
      "UTC" + std::string(bias > 0 ? "-" : "+") + std::to_string(bias > 0 ? bias : -bias) + " minutes";
  MEMORYSTATUSEX memory = {};
  memory.dwLength = sizeof memory;
  GlobalMemoryStatusEx(&memory);
  facts.memory = Number(memory.ullTotalPhys >> 20) + " MB";
  SYSTEMTIME now;
  GetSystemTime(&now);
  char time[32];
  std::snprintf(time, sizeof time, "%04u-%02u-%02u %02u:%02u:%02u", now.wYear, now.wMonth, now.wDay,
                now.wHour, now.wMinute, now.wSecond);
  facts.time = time;
  facts.hasShortNames = GivesShortNames();
  facts.folderLength = folder.size();
  facts.reportLength = report.size();
  facts.fitsCodePage = FitsCodePage(folder, facts.codePage) && FitsCodePage(report, facts.codePage);
  facts.isOnNetwork = IsRemote(folder) || (!report.empty() && IsRemote(report));
  facts.isInOneDrive = IsInOneDrive(folder) || IsInOneDrive(report);
  facts.userLanguage = LanguageName(GetUserDefaultUILanguage());
  facts.systemLanguage = LanguageName(GetSystemDefaultUILanguage());
  facts.isLocalUser = IsLocalUser();
  facts.damaged = Damaged(folder);
  facts.inUse = InUse(folder);
  return facts;
}

std::vector<std::string> Refusals(const Facts& facts, const std::string& processor, bool goesOn,
                                  bool installs) {
  std::vector<std::string> refusals;
  const bool isEmulated = processor == "x64" && facts.native == "arm64";
  if (facts.native != processor && !isEmulated) {
    refusals.push_back("this archive is for " + processor + ", and this machine is " + facts.native +
                       ": use the archive for " + facts.native);
  }
  if (!facts.damaged.empty()) {
    std::string names;
    for (size_t i = 0; i < facts.damaged.size() && i < 5; ++i) names += (i ? ", " : "") + facts.damaged[i];
    if (facts.damaged.size() > 5) names += " and " + Number(facts.damaged.size() - 5) + " more";
    refusals.push_back(
        "the archive is damaged or not complete: extract all of it again, into an empty folder. Missing or "
        "changed: " +
        names);
  }
  if (facts.major < 10 || facts.build < kFirstBuild) {
    refusals.push_back("this Windows is older than Windows 10 version 1607 or Windows Server 2016 (build " +
                       Number(kFirstBuild) + "): it has build " + Number(facts.build));
  }
  if (!facts.isElevated) {
    refusals.push_back(
        "this window has no administrator's rights: right-click \"Command Prompt\", choose \"Run as "
        "administrator\", and start accept.cmd there");
  }
  if (facts.freeBytes < kNeededBytes) {
    refusals.push_back("the drive of Windows has only " + Number(facts.freeBytes >> 20) + " MB free: make " +
                       Number(kNeededBytes >> 20) + " MB free");
  }
  if (facts.windowsDrive != "C:") {
    refusals.push_back("Windows is on the drive " + facts.windowsDrive +
                       ", and the tests expect it on C:. Use another machine");
  }
  if (facts.folderLength > kLongestFolder) {
    refusals.push_back("the path of this folder has " + Number(facts.folderLength) +
                       " characters: move it to one with at most " + Number(kLongestFolder) +
                       ", such as C:\\accept");
  }
  if (facts.reportLength > kLongestReport) {
    refusals.push_back("the path of the report has " + Number(facts.reportLength) +
                       " characters: name one with at most " + Number(kLongestReport) +
                       ", such as C:\\report");
  }
  if (!facts.fitsCodePage) {
    refusals.push_back(
        "the path of this folder or of the report has characters that are not in the 8-bit code "
        "page " +
        Number(facts.codePage) +
        " of this Windows: use folders with plain letters, such as C:\\accept and C:\\report");
  }
  if (facts.isOnNetwork) {
    refusals.push_back(
        "this folder or that of the report is on the network: copy the archive to a drive of this computer, "
        "such as C:\\accept, and start accept.cmd there");
  }
  if (facts.isInOneDrive) {
    refusals.push_back(
        "this folder or that of the report is in OneDrive, which opens the files during the tests and copies "
        "the logs to the network: move the archive to C:\\accept, and start accept.cmd there");
  }
  if (installs && !(IsEnglish(facts.userLanguage) && IsEnglish(facts.systemLanguage))) {
    refusals.push_back(
        "the install tests read texts of Windows in English, and here the user's language is " +
        facts.userLanguage + " and that of Windows " + facts.systemLanguage +
        ": use a Windows that was installed in English. /no-install leaves out these tests");
  }
  if (installs && !facts.isLocalUser) {
    refusals.push_back(
        "this user has no account of this computer, which the install tests need: add a local user to the "
        "administrators, log on with it, and start again. /no-install leaves out these tests");
  }
  if (!facts.hasShortNames) {
    refusals.push_back(
        "the drive of the temporary folder gives no short (8.3) names, which some tests need: run \"fsutil "
        "8dot3name set C: 0\" and start again");
  }
  if (installs && !goesOn && !facts.inUse.empty()) {
    std::string names;
    for (const std::string& name : facts.inUse) names += (names.empty() ? "" : "; ") + name;
    refusals.push_back(
        "this machine seems to be in use, and the tests would change or delete these: " + names +
        ". Use a machine that you can reset. /in-use goes on all the same, /no-install leaves out the "
        "tests that change the machine");
  }
  return refusals;
}

std::vector<std::string> Remarks(const Facts& facts, const std::string& processor) {
  std::vector<std::string> remarks;
  if (processor == "x64" && facts.native == "arm64") {
    remarks.push_back(
        "this archive is for x64 and runs emulated on this ARM64 machine; the library for ARM64 is in the "
        "other archive");
  }
  if (facts.codePage != 1252) {
    remarks.push_back("the system's 8-bit code page is " + Number(facts.codePage) +
                      ": two tests of SettingsTest need 1252 and fail");
  }
  return remarks;
}

std::vector<std::string> Lines(const Facts& facts) {
  return {"Windows: " + facts.edition + ", version " + Number(facts.major) + ", build " + Number(facts.build),
          "engine: " + facts.engine,
          "processor: " + facts.native,
          "memory: " + facts.memory,
          "locale: " + facts.locale + ", code page " + Number(facts.codePage),
          "language: " + facts.userLanguage + ", of Windows " + facts.systemLanguage,
          "time: " + facts.time + " UTC, zone " + facts.zone};
}

}  // namespace acceptance
