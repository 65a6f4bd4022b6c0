#include "tools/hxrun_rig.h"

#include <algorithm>
#include <stdexcept>

#include "rig/print.h"

namespace hxrun_test {
namespace {

// In milliseconds; emulated processors are slow.
constexpr DWORD kTimeLimit = 120 * 1000;

std::wstring Environment(const wchar_t* name) {
  wchar_t value[MAX_PATH];
  const DWORD length = GetEnvironmentVariableW(name, value, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) throw std::runtime_error(rig::ToUtf8(name) + " must be set");
  return value;
}

std::wstring OwnFolder() {
  wchar_t path[MAX_PATH];
  std::wstring own(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
  return own.substr(0, own.find_last_of(L'\\'));
}

void MakeFolders(const std::wstring& path) {
  for (size_t at = path.find(L'\\', 3); at != std::wstring::npos; at = path.find(L'\\', at + 1)) {
    CreateDirectoryW(path.substr(0, at).c_str(), nullptr);
  }
}

HANDLE OpenOutput(const std::wstring& path) {
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot write " + rig::ToUtf8(path));
  return file;
}

std::string WithoutReturns(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

// Besides the temporary folder no file changes, so that the machine can be compared.
std::wstring TemporaryFile(const wchar_t* name) {
  wchar_t folder[MAX_PATH];
  GetTempPathW(MAX_PATH, folder);
  return std::wstring(folder) + name;
}

}  // namespace

// How often hxrun is started before a test gives up.
constexpr int kStartAttempts = 3;

const wchar_t kRunFolder[] = L"C:\\hxrun";

void LayDownHxRun() {
  CreateDirectoryW(kRunFolder, nullptr);
  const std::wstring folder = kRunFolder;
  const bool isDone =
      CopyFileW((OwnFolder() + L"\\hxrun.exe").c_str(), (folder + L"\\hxrun.exe").c_str(), FALSE) &&
      CopyFileW((Environment(L"HX_LIBRARY_DIR") + L"\\hxsetup.dll").c_str(),
                (folder + L"\\hxsetup.dll").c_str(), FALSE);
  if (!isDone) throw std::runtime_error("hxrun.exe or hxsetup.dll is missing");
}

HxRun RunHxRun(const std::wstring& arguments) {
  const std::wstring outputFile = TemporaryFile(L"hxrun-output"), errorFile = TemporaryFile(L"hxrun-errors");
  HANDLE output = OpenOutput(outputFile), errors = OpenOutput(errorFile);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = errors;
  PROCESS_INFORMATION process = {};
  std::wstring line = L"\"" + std::wstring(kRunFolder) + L"\\hxrun.exe\" " + arguments;
  // Under emulation a process sometimes dies before its first instruction.
  BOOL isStarted = FALSE;
  for (int attempt = 0; !isStarted && attempt < kStartAttempts; ++attempt) {
    isStarted = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, kRunFolder, &startup,
                               &process);
  }
  CloseHandle(output);
  CloseHandle(errors);
  if (!isStarted) throw std::runtime_error("hxrun cannot be started");
  HxRun run;
  if (WaitForSingleObject(process.hProcess, kTimeLimit) != WAIT_OBJECT_0) {
    TerminateProcess(process.hProcess, 99);
    WaitForSingleObject(process.hProcess, kTimeLimit);
  }
  GetExitCodeProcess(process.hProcess, &run.status);
  CloseHandle(process.hProcess);
  CloseHandle(process.hThread);
  run.output = WithoutReturns(ReadBytes(outputFile));
  run.errors = WithoutReturns(ReadBytes(errorFile));
  DeleteFileW(outputFile.c_str());
  DeleteFileW(errorFile.c_str());
  return run;
}

std::vector<std::string> HxRun::Lines(const std::string& head) const {
  std::vector<std::string> lines;
  for (size_t start = 0; start < output.size();) {
    const size_t end = std::min(output.find('\n', start), output.size());
    if (output.compare(start, head.size(), head) == 0) {
      lines.push_back(output.substr(start + head.size(), end - start - head.size()));
    }
    start = end + 1;
  }
  return lines;
}

std::string HxRun::Story() const {
  size_t start = 0;
  for (int line = 0; line < 2 && start != std::string::npos; ++line) {
    start = output.find('\n', start);
    if (start != std::string::npos) ++start;
  }
  return start == std::string::npos ? std::string() : output.substr(start);
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

void WriteBytes(const std::wstring& path, const std::string& bytes) {
  MakeFolders(path);
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot write " + rig::ToUtf8(path));
  DWORD written;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
}

void DeleteFolder(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring path = folder + L"\\" + name;
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      DeleteFolder(path);
    } else {
      DeleteFileW(path.c_str());
    }
  } while (FindNextFileW(search, &found));
  FindClose(search);
  RemoveDirectoryW(folder.c_str());
}

std::string AsUtf16(const std::string& text) {
  const std::wstring wide = L"\xFEFF" + rig::ToWide(text);
  return std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
}

}  // namespace hxrun_test
