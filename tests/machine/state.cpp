#include "machine/state.h"

#include <aclapi.h>
#include <msi.h>
#include <sddl.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

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

constexpr char kUninstallKeys[] = "\\CurrentVersion\\Uninstall\\";
// The values that a package writes into its entry in the list of installed programs; the engine writes twenty
// more.
const char* const kUninstallValues[] = {"DisplayName", "DisplayVersion", "Publisher", "Comments"};

std::string Hash(const std::string& bytes) {
  uint64_t hash = 14695981039346656037u;
  for (unsigned char c : bytes) hash = (hash ^ c) * 1099511628211u;
  return std::to_string(bytes.size()) + "/" + std::to_string(hash);
}

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

class State::Collector {
 public:
  Collector(State& state, const Names& names) : entries_(state.entries_), names_(names) {
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

  void AddRegistry() {
    for (const RegistryPart& part : kRegistryParts) {
      HKEY key;
      if (RegOpenKeyExA(part.root, part.path, 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
      AddKey(key, std::string(part.name) + "\\" + part.path);
    }
  }

  void AddServices() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_CONNECT);
    std::vector<BYTE> buffer(64 * 1024);
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
      Add("service " + name, StateName(services[i].ServiceStatusProcess.dwCurrentState));
    }
    CloseServiceHandle(manager);
  }

  void AddProducts() {
    wchar_t code[39];
    for (DWORD i = 0; MsiEnumProductsW(i, code) == ERROR_SUCCESS; ++i)
      Add("product " + WithNames(FromWide(code)), Property(code, L"VersionString"));
  }

 private:
  static std::string Property(const wchar_t* product, const wchar_t* property) {
    wchar_t value[256];
    DWORD length = 256;
    return MsiGetProductInfoW(product, property, value, &length) == ERROR_SUCCESS ? FromWide(value) : "";
  }

  void Add(const std::string& name, const std::string& value) { entries_[name] = {value, " = " + value}; }

  void AddFile(const std::wstring& path, const WIN32_FIND_DATAW& found) {
    for (const wchar_t* foreign : kForeignFolders) {
      if (path == foreign) return;
    }
    const bool isFolder = found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    Entry entry;
    if (path.rfind(kWindowsFolder, 0) == 0) {
      // A thousand files of the system, which take seconds to open.
      if (!isFolder) entry.value = Stamp(found);
    } else {
      const std::string access = AccessTo(path);
      if (access != (isFolder ? usualFolder_ : usualFile_)) entry.shown = " = " + access;
      entry.value = entry.shown + (isFolder ? "" : Hash(Content(path)));
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

  static std::string Content(const std::wstring& path) {
    HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return "unreadable";
    std::string bytes;
    char block[16384];
    for (DWORD count; ReadFile(file, block, sizeof block, &count, nullptr) && count;)
      bytes.append(block, count);
    CloseHandle(file);
    return bytes;
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
      bool isForeign = false;
      for (const char* foreign : kForeignKeys) isForeign = isForeign || inner == foreign;
      HKEY child;
      if (!isForeign && RegOpenKeyExA(key, name, 0, KEY_READ, &child) == ERROR_SUCCESS) AddKey(child, inner);
    }
    RegCloseKey(key);
  }

  void AddValues(HKEY key, const std::string& path) {
    wchar_t name[512];
    std::vector<BYTE> data(16 * 1024);
    DWORD length = 512, size = static_cast<DWORD>(data.size()), type;
    for (DWORD i = 0;
         RegEnumValueW(key, i, name, &length, nullptr, &type, data.data(), &size) == ERROR_SUCCESS;
         ++i, length = 512, size = static_cast<DWORD>(data.size())) {
      const std::string value = FromWide(name);
      if (path.find(kUninstallKeys) != std::string::npos) {
        bool isThePackages = false;
        for (const char* known : kUninstallValues) isThePackages = isThePackages || value == known;
        if (!isThePackages) continue;
      }
      Add(WithNames(path) + "\\" + value,
          WithNames(ValueText(type, std::vector<BYTE>(data.begin(), data.begin() + size))));
    }
  }

  std::string WithNames(std::string text) const {
    for (const auto& [what, name] : names_) text = Replaced(std::move(text), what, name);
    return text;
  }

  std::map<std::string, Entry>& entries_;
  const Names& names_;
  std::string usualFolder_, usualFile_;
};

State State::Now(const Names& names) {
  State state;
  Collector collector(state, names);
  collector.AddFiles(L"C:");
  collector.AddRegistry();
  collector.AddServices();
  collector.AddProducts();
  return state;
}

std::vector<std::string> State::Since(const State& before) const {
  std::vector<std::string> lines;
  std::string gone;
  auto older = before.entries_.begin();
  auto lose = [&] {
    const std::string& name = older++->first;
    if (!gone.empty() && name.compare(0, gone.size(), gone) == 0) return;
    lines.push_back("- " + name);
    gone = name.back() == '\\' ? name : "";
  };
  for (const auto& [name, entry] : entries_) {
    while (older != before.entries_.end() && older->first < name) lose();
    if (older == before.entries_.end() || older->first != name) {
      lines.push_back("+ " + name + entry.shown);
    } else if (older++->second.value != entry.value) {
      lines.push_back("~ " + name + entry.shown);
    }
  }
  while (older != before.entries_.end()) lose();
  return lines;
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
