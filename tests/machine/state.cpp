#include "machine/state.h"

#include <aclapi.h>
#include <msi.h>
#include <sddl.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "machine/places.h"

namespace machine {

namespace {

// Folders that change by themselves or belong to the engine; no backslash at the end.
const wchar_t* const kForeignFolders[] = {
    L"C:\\windows\\Installer",
    L"C:\\windows\\temp",
    L"C:\\users\\root\\AppData\\Local\\Temp",
    // The record of the stand-in programs.
    L"C:\\ProgramData\\Ostrel record.txt",
};

// The keys to compare, and the keys in them to skip: the engine's own, and the classes, thousands of keys
// that no package here touches.
struct RegistryPart {
  HKEY root;
  const char* name;
  const char* path;
};
const RegistryPart kRegistryParts[] = {
    {HKEY_LOCAL_MACHINE, "HKLM", "SOFTWARE"},
    {HKEY_LOCAL_MACHINE, "HKLM", "SYSTEM\\CurrentControlSet\\Services"},
    {HKEY_LOCAL_MACHINE, "HKLM", "SYSTEM\\CurrentControlSet\\Control\\Session Manager"},
    {HKEY_CURRENT_USER, "HKCU", "Software"},
    {HKEY_CURRENT_USER, "HKCU", "Environment"},
};
const char* const kForeignKeys[] = {
    "HKLM\\SOFTWARE\\Classes",
    "HKLM\\SOFTWARE\\Wow6432Node\\Classes",
    "HKLM\\SOFTWARE\\Microsoft\\Cryptography",
    "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer",
    "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer",
    "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Telephony",
    "HKCU\\Software\\Classes",
};

constexpr wchar_t kWindowsFolder[] = L"C:\\windows\\";
constexpr wchar_t kTaskFiles[] = L"C:\\windows\\system32\\tasks\\";

constexpr char kUninstallKeys[] = "\\CurrentVersion\\Uninstall\\";
// The values that a package writes into its entry in the list of installed programs; the engine writes twenty
// more.
const char* const kUninstallValues[] = {"DisplayName", "DisplayVersion", "Publisher", "Comments"};

constexpr char kServiceKeys[] = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\";
// The values that a package writes into its service's key.
const char* const kServiceValues[] = {"Description", "DisplayName", "ErrorControl", "ImagePath",
                                      "ObjectName",  "Start",       "Type"};

std::string ValueText(DWORD type, const std::vector<BYTE>& data) {
  if (type == REG_DWORD && data.size() == sizeof(DWORD))
    return std::to_string(*reinterpret_cast<const DWORD*>(data.data()));
  if (type == REG_SZ || type == REG_EXPAND_SZ) {
    std::wstring text(reinterpret_cast<const wchar_t*>(data.data()), data.size() / sizeof(wchar_t));
    while (!text.empty() && text.back() == L'\0') text.pop_back();
    return "\"" + FromWide(text) + "\"";
  }
  static const char digits[] = "0123456789abcdef";
  std::string text = "type " + std::to_string(type) + ":";
  for (BYTE byte : data) text += {' ', digits[byte >> 4], digits[byte & 15]};
  return text;
}

const char* StateName(DWORD state) {
  switch (state) {
    case SERVICE_STOPPED:
      return "stopped";
    case SERVICE_RUNNING:
      return "running";
    default:
      return "on its way";
  }
}

}  // namespace

std::string Hash(const std::string& bytes) {
  uint64_t hash = 14695981039346656037u;
  for (unsigned char c : bytes) hash = (hash ^ c) * 1099511628211u;
  return std::to_string(bytes.size()) + "/" + std::to_string(hash);
}

std::string ContentOf(const std::wstring& path) {
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return "(unreadable)";
  std::string bytes;
  char block[16384];
  for (DWORD count; ReadFile(file, block, sizeof block, &count, nullptr) && count;)
    bytes.append(block, count);
  CloseHandle(file);
  return bytes;
}

class State::Collector {
 public:
  Collector(State& state, const Names& names, Scope scope)
      : entries_(state.entries_), names_(names), scope_(scope) {
    const std::wstring folder = L"C:\\a usual folder";
    CreateDirectoryW(folder.c_str(), nullptr);
    CloseHandle(
        CreateFileW((folder + L"\\file").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    usualFolder_ = AccessTo(folder);
    usualFile_ = AccessTo(folder + L"\\file");
    DeleteFileW((folder + L"\\file").c_str());
    RemoveDirectoryW(folder.c_str());
  }

  void AddFiles(const std::wstring& folder) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
      const std::wstring name = found.cFileName;
      if (name != L"." && name != L"..") AddFile(folder + L"\\" + name, found);
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }

  // Adds the places of places.h, and the names in the root of the drive.
  void AddPlaces() {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(L"C:\\*", &found);
    if (search != INVALID_HANDLE_VALUE) {
      do {
        // The engine keeps files that were in use in Config.Msi until the machine restarts. Updates of
        // Windows make folders whose names begin with "$".
        const bool isFolder = found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
        if (isFolder && _wcsicmp(found.cFileName, L"Config.Msi") != 0 && found.cFileName[0] != L'$')
          entries_[FromWide(std::wstring(L"C:\\") + found.cFileName) + "\\"] = {};
      } while (FindNextFileW(search, &found));
      FindClose(search);
    }
    for (const auto* places : {&kFolders, &kFiles}) {
      for (const std::wstring& path : *places) {
        search = FindFirstFileW(path.c_str(), &found);
        if (search == INVALID_HANDLE_VALUE) continue;
        FindClose(search);
        AddFile(path, found);
      }
    }
    for (const std::string& path : kKeys) {
      if (HKEY key = OpenKey(path)) AddKey(key, path);
    }
    for (const std::string& value : kValues) {
      const size_t end = value.rfind('\\');
      HKEY key = OpenKey(value.substr(0, end));
      if (!key) continue;
      AddValues(key, value.substr(0, end), value.substr(end + 1));
      RegCloseKey(key);
    }
    for (const auto& [code, name] : names_) {
      for (const char* root : {"HKLM\\SOFTWARE\\", "HKLM\\SOFTWARE\\WOW6432Node\\"}) {
        const std::string path = root + ("Microsoft\\Windows" + std::string(kUninstallKeys)) + code;
        if (HKEY key = OpenKey(path)) AddKey(key, path);
      }
    }
  }

  void AddRegistry() {
    for (const RegistryPart& part : kRegistryParts) {
      HKEY key;
      if (RegOpenKeyExA(part.root, part.path, 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
      AddKey(key, std::string(part.name) + "\\" + part.path);
    }
  }

  void AddServices() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_CONNECT);
    // The most that the service manager gives at once; 64 KB are not enough for every Windows.
    std::vector<BYTE> buffer(256 * 1024);
    DWORD missing = 0, count = 0;
    if (!EnumServicesStatusExW(manager, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL, buffer.data(),
                               static_cast<DWORD>(buffer.size()), &missing, &count, nullptr, nullptr)) {
      throw std::runtime_error("cannot list the services: error " + std::to_string(GetLastError()));
    }
    const auto* services = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(buffer.data());
    for (DWORD i = 0; i < count; ++i) {
      const std::string name = FromWide(services[i].lpServiceName);
      // The engine's service comes and goes with each run.
      if (name == "MSIServer") continue;
      if (scope_ == Scope::kPlaces &&
          std::find(kServices.begin(), kServices.end(), services[i].lpServiceName) == kServices.end()) {
        continue;
      }
      Add("service " + name, StateName(services[i].ServiceStatusProcess.dwCurrentState));
    }
    CloseServiceHandle(manager);
  }

  void AddProducts() {
    wchar_t code[39];
    for (DWORD i = 0; MsiEnumProductsW(i, code) == ERROR_SUCCESS; ++i) {
      const std::string name = WithNames(FromWide(code));
      if (scope_ == Scope::kPlaces && name == FromWide(code)) continue;
      Add("product " + name, Property(code, L"VersionString"));
    }
  }

 private:
  // Opens a key by its name as in places.h; null if there is none.
  static HKEY OpenKey(const std::string& path) {
    const HKEY root = path.rfind("HKCU\\", 0) == 0 ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
    HKEY key = nullptr;
    RegOpenKeyExA(root, path.c_str() + 5, 0, KEY_READ, &key);
    return key;
  }

  static std::string Property(const wchar_t* product, const wchar_t* property) {
    wchar_t value[256];
    DWORD length = 256;
    return MsiGetProductInfoW(product, property, value, &length) == ERROR_SUCCESS ? FromWide(value) : "";
  }

  void Add(const std::string& name, const std::string& value) { entries_[name] = {value, " = " + value, ""}; }

  void AddFile(const std::wstring& path, const WIN32_FIND_DATAW& found) {
    for (const wchar_t* foreign : kForeignFolders) {
      if (path == foreign) return;
    }
    const bool isFolder = found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    Entry entry;
    if (path.rfind(kWindowsFolder, 0) == 0) {
      // A thousand files of the system, which take seconds to open. Each run writes the files of tasks again.
      const bool isTask = scope_ == Scope::kPlaces && path.rfind(kTaskFiles, 0) == 0;
      if (!isFolder && !isTask) entry.value = Stamp(found);
    } else {
      const std::string access = AccessTo(path);
      // Where entries are inherited, a list depends on its folder and on the machine's accounts.
      const bool isShown = scope_ == Scope::kWhole && access != (isFolder ? usualFolder_ : usualFile_);
      if (isShown) entry.shown = " = " + access;
      if (!isFolder) entry.content = Hash(ContentOf(path));
      entry.value = access + entry.content;
    }
    entries_[FromWide(path) + (isFolder ? "\\" : "")] = entry;
    if (isFolder && !(found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) AddFiles(path);
  }

  // Returns the file's properties that show a change, without reading its content.
  static std::string Stamp(const WIN32_FIND_DATAW& found) {
    const FILETIME& time = found.ftLastWriteTime;
    return std::to_string(found.nFileSizeLow) + "/" + std::to_string(time.dwHighDateTime) + "/" +
           std::to_string(time.dwLowDateTime);
  }

  // Closes the key.
  void AddKey(HKEY key, const std::string& path) {
    entries_[WithNames(path) + "\\"] = {};
    AddValues(key, path);
    char name[256];
    DWORD length = sizeof name;
    for (DWORD i = 0;
         RegEnumKeyExA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, length = sizeof name) {
      const std::string inner = path + "\\" + name;
      // The service manager's own list of who may control a service.
      bool isForeign = scope_ == Scope::kPlaces && std::string(name) == "Security";
      for (const char* foreign : kForeignKeys) isForeign = isForeign || inner == foreign;
      HKEY child;
      if (!isForeign && RegOpenKeyExA(key, name, 0, KEY_READ, &child) == ERROR_SUCCESS) AddKey(child, inner);
    }
    RegCloseKey(key);
  }

  // Adds the values of a key, or only the one named `only`.
  void AddValues(HKEY key, const std::string& path, const std::string& only = "") {
    wchar_t name[512];
    std::vector<BYTE> data(16 * 1024);
    DWORD length = 512, size = static_cast<DWORD>(data.size()), type;
    for (DWORD i = 0;
         RegEnumValueW(key, i, name, &length, nullptr, &type, data.data(), &size) == ERROR_SUCCESS;
         ++i, length = 512, size = static_cast<DWORD>(data.size())) {
      const std::string value = FromWide(name);
      if (!only.empty() && _stricmp(value.c_str(), only.c_str()) != 0) continue;
      const bool isService = scope_ == Scope::kPlaces && path.find(kServiceKeys) != std::string::npos;
      if (isService && path.find('\\', sizeof kServiceKeys - 1) == std::string::npos &&
          std::find_if(std::begin(kServiceValues), std::end(kServiceValues),
                       [&](const char* known) { return value == known; }) == std::end(kServiceValues)) {
        continue;
      }
      if (path.find(kUninstallKeys) != std::string::npos) {
        bool isThePackages = false;
        for (const char* known : kUninstallValues) isThePackages = isThePackages || value == known;
        if (!isThePackages) continue;
      }
      std::string text = WithNames(ValueText(type, std::vector<BYTE>(data.begin(), data.begin() + size)));
      if (isService && value == "ImagePath") text = Replaced(std::move(text), "\"\"", "\"");
      Add(WithNames(path) + "\\" + value, text);
    }
  }

  std::string WithNames(std::string text) const {
    for (const auto& [what, name] : names_) text = Replaced(std::move(text), what, name);
    return text;
  }

  std::map<std::string, Entry>& entries_;
  const Names& names_;
  const Scope scope_;
  std::string usualFolder_, usualFile_;
};

bool IsWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll"), "wine_get_version") != nullptr;
}

State State::Now(const Names& names, Scope scope) {
  State state;
  Collector collector(state, names, scope);
  if (scope == Scope::kPlaces) {
    collector.AddPlaces();
  } else {
    collector.AddFiles(L"C:");
    collector.AddRegistry();
  }
  collector.AddServices();
  collector.AddProducts();
  return state;
}

std::vector<std::string> State::Since(const State& before, Shown shown) const {
  std::vector<std::string> lines;
  std::string gone;
  auto older = before.entries_.begin();
  auto lose = [&] {
    const std::string& name = older++->first;
    if (!gone.empty() && name.compare(0, gone.size(), gone) == 0) return;
    lines.push_back("- " + name);
    gone = name.back() == '\\' ? name : "";
  };
  auto text = [&](const Entry& entry) {
    const bool hasContent = shown == Shown::kContents && !entry.content.empty();
    return entry.shown + (hasContent ? " = " + entry.content : "");
  };
  for (const auto& [name, entry] : entries_) {
    while (older != before.entries_.end() && older->first < name) lose();
    if (older == before.entries_.end() || older->first != name) {
      lines.push_back("+ " + name + text(entry));
    } else if (older++->second.value != entry.value) {
      lines.push_back("~ " + name + text(entry));
    }
  }
  while (older != before.entries_.end()) lose();
  return lines;
}

bool HasOwnEntry(const std::string& list) {
  for (size_t entry = list.find('('); entry != std::string::npos; entry = list.find('(', entry + 1)) {
    const size_t flags = list.find(';', entry);
    if (flags == std::string::npos) return false;
    const std::string text = list.substr(flags + 1, list.find(';', flags + 1) - flags - 1);
    bool isInherited = false;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
      isInherited = isInherited || text.compare(i, 2, "ID") == 0;
    if (!isInherited) return true;
  }
  return false;
}

std::string UserIdentifier() {
  HANDLE token = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
  BYTE user[256];
  DWORD size = sizeof user;
  char* text = nullptr;
  std::string identifier;
  if (GetTokenInformation(token, TokenUser, user, sizeof user, &size) &&
      ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &text)) {
    identifier = text;
  }
  LocalFree(text);
  CloseHandle(token);
  return identifier;
}

std::string AccessTo(const std::wstring& path) {
  PSECURITY_DESCRIPTOR security = nullptr;
  char* text = nullptr;
  std::string list = "(unreadable)";
  if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            nullptr, nullptr, &security) == ERROR_SUCCESS &&
      ConvertSecurityDescriptorToStringSecurityDescriptorA(security, SDDL_REVISION_1,
                                                           DACL_SECURITY_INFORMATION, &text, nullptr)) {
    list = Replaced(text, UserIdentifier(), "USER");
  }
  LocalFree(text);
  LocalFree(security);
  return list;
}

}  // namespace machine
