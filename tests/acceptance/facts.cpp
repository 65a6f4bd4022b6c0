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

Facts Gather(const std::wstring& folder) {
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
          "time: " + facts.time + " UTC, zone " + facts.zone};
}

}  // namespace acceptance
