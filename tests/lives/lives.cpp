// Runs the steps of packages' lives: for ./hx lives, in a Windows of its own.
//
//   lives.exe FILE
//
// FILE has an instruction on each line, in UTF-8, with a tab between its words:
//
//   name CODE TEXT            the product code CODE reads TEXT from here on
//   start                     remembers the machine, for "state"
//   run NAME ARGUMENTS        runs msiexec with a verbose log NAME.log beside FILE, and prints "run NAME
//   CODE" state NAME                prints "state NAME", the changes since "start" as machine::State::Since
//   lists them
//                             with contents, and "end"
//   text PATH TEXT            writes a file of one line; makes its folders
//   once PATH TEXT            the same, unless the file exists
//   pause TIME                waits so many milliseconds
//   data PATH SIZE SEED       writes a file of SIZE bytes, the same for the same SEED; makes its folders
//   folder PATH               makes a folder, and those above it
//   setting KEY NAME VALUE    writes a text below HKEY_LOCAL_MACHINE
//   delete PATH               deletes a file
//   restore NAME KEY          puts an older server back by hand, as docs/server-upgrade.md says: stops the
//   service
//                             "Vantor". Renames what is in the places that the note in KEY names (" (part)"
//                             after its name, or a number before the bracket), and gives the folders that are
//                             kept their names again. Deletes KEY. Prints "restore NAME done", or "restore
//                             NAME none" without a note
//   tree NAME PATH            prints "tree NAME", the entries of a folder at all depths, and "end": "+
//   ENTRY\" for a
//                             folder, "+ ENTRY = HASH" for a file. A missing folder prints "missing".
//   watch NAME PATH ARGUMENTS runs msiexec, and prints "watch NAME CODE SEEN END": after how many
//   milliseconds
//                             PATH existed first (-1: never), and after how many the run ended
//   kill NAME DELAY PATH ARGUMENTS
//                             starts msiexec and waits until PATH exists ("-": does not wait) and then DELAY
//                             milliseconds. Ends every process of the engine then, and prints "kill NAME
//                             killed", or "kill NAME ended CODE" if the run had ended before that.
//
// The exit status is 0 if everything took place, whatever the results of msiexec, and 2 if FILE is wrong or
// msiexec does not end.
#include <windows.h>
// After windows.h, which they need.
#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "machine/services.h"
#include "machine/state.h"

namespace {

using machine::FromWide;
using machine::State;
using machine::ToWide;

// Limits in milliseconds: an installer that takes longer never ends; a service's process that is going; and
// the processes that the engine has started, such as a conversion, after the engine was killed.
constexpr DWORD kInstallerTimeLimit = 180 * 1000;
constexpr DWORD kServiceTimeLimit = 60 * 1000;
constexpr DWORD kChildTimeLimit = 60 * 1000;
// How often a running installer is looked at, in milliseconds.
constexpr DWORD kLookInterval = 2;

std::string folder;
machine::Names names;
State before;

// ---- processes

// Returns the processes with this file name.
std::vector<DWORD> ProcessesOf(const wchar_t* name) {
  std::vector<DWORD> found;
  HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(all, &entry); more; more = Process32NextW(all, &entry)) {
    if (_wcsicmp(entry.szExeFile, name) == 0) found.push_back(entry.th32ProcessID);
  }
  CloseHandle(all);
  return found;
}

// Ends every process of the engine: that which the command line started, its service, and those that run
// actions. Repeats until none is left, because one may start another meanwhile.
void KillEngine() {
  for (std::vector<DWORD> found; !(found = ProcessesOf(L"msiexec.exe")).empty();) {
    for (DWORD id : found) {
      HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
      if (!process) continue;
      TerminateProcess(process, 1);
      WaitForSingleObject(process, kInstallerTimeLimit);
      CloseHandle(process);
    }
  }
}

// Waits for the programs that a killed engine has left running.
void WaitForChildren() {
  for (const wchar_t* name : {L"cmd.exe", L"reg.exe"}) {
    for (DWORD waited = 0; !ProcessesOf(name).empty() && waited < kChildTimeLimit; waited += 20) Sleep(20);
  }
}

// msiexec, while it runs.
class Installer {
 public:
  Installer(const std::string& name, const std::string& arguments) {
    machine::WaitForDeletedServices(kServiceTimeLimit);
    std::wstring command = ToWide("msiexec.exe " + arguments + " /l*v \"" + folder + "\\" + name + ".log\"");
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    started_ = GetTickCount64();
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process_)) {
      throw std::runtime_error("cannot run " + FromWide(command));
    }
  }
  ~Installer() {
    CloseHandle(process_.hThread);
    CloseHandle(process_.hProcess);
  }
  Installer(const Installer&) = delete;
  Installer& operator=(const Installer&) = delete;

  // Waits for the end, at most `limit` milliseconds. True if it has ended.
  bool Wait(DWORD limit) const { return WaitForSingleObject(process_.hProcess, limit) == WAIT_OBJECT_0; }
  // Returns the milliseconds since the start.
  long long Time() const { return static_cast<long long>(GetTickCount64() - started_); }
  // Waits for the end, and returns the engine's result.
  DWORD Result() const {
    if (!Wait(kInstallerTimeLimit)) {
      KillEngine();
      throw std::runtime_error("msiexec does not end");
    }
    DWORD code = 0;
    GetExitCodeProcess(process_.hProcess, &code);
    return code;
  }

 private:
  PROCESS_INFORMATION process_ = {};
  ULONGLONG started_ = 0;
};

// ---- files

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void MakeFolders(const std::wstring& path) {
  for (size_t end = path.find(L'\\', 3); end != std::wstring::npos; end = path.find(L'\\', end + 1))
    CreateDirectoryW(path.substr(0, end).c_str(), nullptr);
}

void Write(const std::string& path, const std::string& bytes) {
  const std::wstring name = ToWide(path);
  MakeFolders(name);
  HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  const bool isWritten = file != INVALID_HANDLE_VALUE &&
                         WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                         written == bytes.size();
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  if (!isWritten) throw std::runtime_error("cannot write " + path);
}

// Returns `size` bytes, which depend on `seed` only.
std::string Data(size_t size, uint32_t seed) {
  std::string bytes(size, '\0');
  for (char& c : bytes) {
    seed = seed * 1664525u + 1013904223u;
    c = static_cast<char>(seed >> 24);
  }
  return bytes;
}

void ShowTree(const std::wstring& path, const std::string& prefix) {
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) {
    std::printf("missing\n");
    return;
  }
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::string shown = prefix + FromWide(name);
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      std::printf("+ %s\\\n", shown.c_str());
      ShowTree(path + L"\\" + name, shown + "\\");
    } else {
      std::printf("+ %s = %s\n", shown.c_str(),
                  machine::Hash(machine::ContentOf(path + L"\\" + name)).c_str());
    }
  } while (FindNextFileW(search, &found));
  FindClose(search);
}

void SetText(const std::string& path, const std::string& name, const std::string& value) {
  HKEY key;
  const std::wstring text = ToWide(value);
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, ToWide(path).c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                      nullptr) != ERROR_SUCCESS ||
      RegSetValueExW(key, ToWide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) != ERROR_SUCCESS) {
    throw std::runtime_error("cannot write " + path);
  }
  RegCloseKey(key);
}

// Returns a text below HKEY_LOCAL_MACHINE; empty without it.
std::wstring GetText(const std::string& path, const wchar_t* name) {
  wchar_t text[1024] = {};
  DWORD size = sizeof text - sizeof *text;
  return RegGetValueW(HKEY_LOCAL_MACHINE, ToWide(path).c_str(), name, RRF_RT_REG_SZ, nullptr, text, &size) ==
                 ERROR_SUCCESS
             ? text
             : L"";
}

// ---- putting an older server back

void StopServer() {
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (const SC_HANDLE service = OpenServiceW(manager, L"Vantor", SERVICE_STOP | SERVICE_QUERY_STATUS)) {
    SERVICE_STATUS status = {};
    ControlService(service, SERVICE_CONTROL_STOP, &status);
    for (DWORD waited = 0; QueryServiceStatus(service, &status) && status.dwCurrentState != SERVICE_STOPPED &&
                           waited < kServiceTimeLimit;
         waited += 20) {
      Sleep(20);
    }
    CloseServiceHandle(service);
  }
  CloseServiceHandle(manager);
}

// Returns a free name for the part of a server that is at `place`.
std::wstring PartName(const std::wstring& place) {
  std::wstring name = place + L" (part)";
  for (int number = 2; Exists(name); ++number) name = place + L" (part " + std::to_wstring(number) + L")";
  return name;
}

void Rename(const std::wstring& from, const std::wstring& to) {
  if (!MoveFileW(from.c_str(), to.c_str())) throw std::runtime_error("cannot rename " + FromWide(from));
}

// `kept` and `place` are folders of the note, with a backslash at the end.
void PutBack(std::wstring kept, std::wstring place) {
  if (kept.empty() || place.empty() || !Exists(kept)) return;
  kept.pop_back();
  place.pop_back();
  if (Exists(place)) Rename(place, PartName(place));
  Rename(kept, place);
}

// ---- the instructions

using Words = std::vector<std::string>;

void Run(const Words& words) {
  std::printf("run %s %lu\n", words[1].c_str(), Installer(words[1], words[2]).Result());
}

void ShowState(const Words& words) {
  machine::WaitForDeletedServices(kServiceTimeLimit);
  std::printf("state %s\n%send\n", words[1].c_str(),
              machine::Joined(State::Now(names).Since(before, machine::Shown::kContents)).c_str());
}

void Watch(const Words& words) {
  long long seen[] = {-1, -1};
  const Installer installer(words[1], words[4]);
  do {
    for (size_t i = 0; i < std::size(seen); ++i) {
      if (seen[i] < 0 && Exists(ToWide(words[2 + i]))) seen[i] = installer.Time();
    }
  } while (!installer.Wait(kLookInterval) && installer.Time() < kInstallerTimeLimit);
  const DWORD code = installer.Result();
  std::printf("watch %s %lu %lld %lld %lld\n", words[1].c_str(), code, seen[0], seen[1], installer.Time());
}

void Kill(const Words& words) {
  const DWORD delay = std::stoul(words[2]);
  const std::wstring path = ToWide(words[3]);
  const Installer installer(words[1], words[4]);
  while (path != L"-" && !Exists(path) && !installer.Wait(kLookInterval) &&
         installer.Time() < kInstallerTimeLimit) {
  }
  if (installer.Wait(delay)) {
    std::printf("kill %s ended %lu\n", words[1].c_str(), installer.Result());
    return;
  }
  KillEngine();
  WaitForChildren();
  std::printf("kill %s killed\n", words[1].c_str());
}

void Restore(const Words& words) {
  const std::string& key = words[2];
  const bool isNoted = !GetText(key, L"Server").empty();
  if (isNoted) {
    StopServer();
    PutBack(GetText(key, L"Aside"), GetText(key, L"Server"));
    PutBack(GetText(key, L"AsideData"), GetText(key, L"Data"));
    if (RegDeleteKeyW(HKEY_LOCAL_MACHINE, ToWide(key).c_str()) != ERROR_SUCCESS)
      throw std::runtime_error("cannot delete " + key);
  }
  std::printf("restore %s %s\n", words[1].c_str(), isNoted ? "done" : "none");
}

struct Instruction {
  const char* name;
  size_t words;  ///< with the name
  void (*run)(const Words& words);
};
const Instruction kInstructions[] = {
    {"name", 3, [](const Words& words) { names.emplace_back(words[1], words[2]); }},
    {"start", 1, [](const Words&) { before = State::Now(names); }},
    {"run", 3, Run},
    {"state", 2, ShowState},
    {"text", 3, [](const Words& words) { Write(words[1], words[2] + "\r\n"); }},
    {"once", 3,
     [](const Words& words) {
       if (!Exists(ToWide(words[1]))) Write(words[1], words[2] + "\r\n");
     }},
    {"pause", 2, [](const Words& words) { Sleep(std::stoul(words[1])); }},
    {"data", 4,
     [](const Words& words) { Write(words[1], Data(std::stoul(words[2]), std::stoul(words[3]))); }},
    {"folder", 2, [](const Words& words) { MakeFolders(ToWide(words[1] + "\\")); }},
    {"setting", 4, [](const Words& words) { SetText(words[1], words[2], words[3]); }},
    {"delete", 2, [](const Words& words) { DeleteFileW(ToWide(words[1]).c_str()); }},
    {"restore", 3, Restore},
    {"tree", 3,
     [](const Words& words) {
       std::printf("tree %s\n", words[1].c_str());
       ShowTree(ToWide(words[2]), "");
       std::printf("end\n");
     }},
    {"watch", 5, Watch},
    {"kill", 5, Kill},
};

Words Split(const std::string& line) {
  Words words;
  size_t start = 0;
  for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
    words.push_back(line.substr(start, tab - start));
  words.push_back(line.substr(start));
  return words;
}

void RunLine(const std::string& line) {
  const Words words = Split(line);
  for (const Instruction& instruction : kInstructions) {
    if (words[0] != instruction.name) continue;
    if (words.size() != instruction.words) throw std::runtime_error("wrong number of words: " + line);
    instruction.run(words);
    std::fflush(stdout);
    return;
  }
  throw std::runtime_error("unknown: " + line);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const std::string path = count == 2 ? arguments[1] : "";
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("usage: lives.exe FILE");
    folder = path.substr(0, path.rfind('\\'));
    for (std::string line; std::getline(file, line);) RunLine(line);
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "lives: %s\n", error.what());
    return 2;
  }
  return 0;
}
