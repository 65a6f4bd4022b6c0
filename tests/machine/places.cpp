#include "machine/places.h"

#include <cwchar>

namespace machine {

const std::vector<std::wstring> kFolders = {
    L"C:\\Another",
    L"C:\\Made before",
    L"C:\\Metering",
    L"C:\\Ostrel elsewhere",
    L"C:\\Probes",
    L"C:\\Program Files\\Brackwell",
    L"C:\\Program Files\\Halvorstead",
    L"C:\\ProgramData\\Brackwell",
    L"C:\\Vantor Stop",
    L"C:\\Vantor Store",
    L"C:\\windows\\system32\\tasks\\Quillfern",
};

const std::vector<std::wstring> kFiles = {
    L"C:\\ProgramData\\Ostrel Audit",
    L"C:\\windows\\ostrel.ini",
    L"C:\\windows\\system32\\OSTRACK.DLL",
    L"C:\\windows\\tasks\\Ostrel.job",
};

bool CanBeOurs(const std::wstring& folder, const std::wstring& name) {
  for (const wchar_t* head : {L"Ostrel", L"Vantor"}) {
    if (_wcsnicmp(name.c_str(), head, std::wcslen(head)) == 0) return true;
  }
  // True if `inner` is `outer`, or in it.
  const auto isIn = [](const std::wstring& inner, const std::wstring& outer) {
    return _wcsnicmp(inner.c_str(), outer.c_str(), outer.size()) == 0 &&
           (inner.size() == outer.size() || inner[outer.size()] == L'\\');
  };
  const std::wstring path = folder + L"\\" + name;
  for (const auto* places : {&kFolders, &kFiles}) {
    for (const std::wstring& place : *places) {
      if (isIn(place, path) || isIn(path, place)) return true;
    }
  }
  return false;
}

const std::vector<std::string> kKeys = {
    "HKCU\\Software\\Quillfern",
    "HKLM\\SOFTWARE\\Brackwell",
    "HKLM\\SOFTWARE\\Halvorstead",
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\Vantor",
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Gauge",
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Ostrel",
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vantor",
};

const std::vector<std::string> kValues = {
    "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\AppInit_DLLs",
    "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\LoadAppInit_DLLs",
};

const std::vector<std::wstring> kServices = {L"Gauge", L"Ostrel", L"Vantor"};

const std::vector<std::wstring> kAccounts = {L"auditor", L"gauge", L"meter", L"somebody", L"vantor"};

}  // namespace machine
