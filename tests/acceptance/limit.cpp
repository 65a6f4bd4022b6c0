#include "acceptance/limit.h"

#include <cstdio>

namespace acceptance {

namespace {

constexpr DWORD kLookInterval = 200, kWordInterval = 60 * 1000;

// Prints the complete lines of the program's output since the last time that tell of a failure.
class Watcher {
 public:
  explicit Watcher(const std::wstring& path)
      : file_(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          nullptr, OPEN_EXISTING, 0, nullptr)) {}
  ~Watcher() {
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  void Look() {
    char block[16384];
    DWORD count = 0;
    while (file_ != INVALID_HANDLE_VALUE && ReadFile(file_, block, sizeof block, &count, nullptr) && count) {
      text_.append(block, count);
      for (size_t end; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1))
        Take(text_.substr(0, end));
    }
  }
  void Say(DWORD seconds) const {
    std::printf("  after %lu s: %u tests ended, %u failed\n", seconds, ended_, failed_);
    std::fflush(stdout);
  }

 private:
  void Take(const std::string& line) {
    const bool isFailure = line.rfind("[  FAILED  ]", 0) == 0 && line.find(" ms)") != std::string::npos;
    if (isFailure || line.rfind("[       OK ]", 0) == 0) ++ended_;
    if (!isFailure) return;
    ++failed_;
    std::printf("  %s\n", line.substr(0, line.find('\r')).c_str());
    std::fflush(stdout);
  }

  HANDLE file_;
  std::string text_;
  unsigned ended_ = 0, failed_ = 0;
};

}  // namespace

DWORD RunLimited(std::wstring command, const std::wstring& output, DWORD seconds) {
  // Nobody touches the machine for hours, and it must not go to sleep.
  SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  HANDLE log = CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                           CREATE_ALWAYS, 0, nullptr);
  HANDLE empty = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                             OPEN_EXISTING, 0, nullptr);
  // Ends everything that the program has started, and also if this process is ended.
  HANDLE job = CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);

  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = empty;
  startup.hStdOutput = startup.hStdError = log;
  PROCESS_INFORMATION process = {};
  DWORD status = kNotStarted;
  if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr,
                     &startup, &process)) {
    AssignProcessToJobObject(job, process.hProcess);
    ResumeThread(process.hThread);
    Watcher watcher(output);
    const ULONGLONG start = GetTickCount64(), limit = ULONGLONG{seconds} * 1000;
    ULONGLONG said = start;
    bool isRunning = true;
    while ((isRunning = WaitForSingleObject(process.hProcess, kLookInterval) == WAIT_TIMEOUT) &&
           GetTickCount64() - start < limit) {
      watcher.Look();
      if (GetTickCount64() - said < kWordInterval) continue;
      said = GetTickCount64();
      watcher.Say(static_cast<DWORD>((said - start) / 1000));
    }
    if (isRunning) {
      TerminateJobObject(job, kTimedOut);
      // Where the job does not reach the process, this does.
      TerminateProcess(process.hProcess, kTimedOut);
      WaitForSingleObject(process.hProcess, 10 * 1000);
      status = kTimedOut;
    } else {
      GetExitCodeProcess(process.hProcess, &status);
    }
    watcher.Look();
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  SetThreadExecutionState(ES_CONTINUOUS);
  CloseHandle(job);
  CloseHandle(empty);
  CloseHandle(log);
  return status;
}

}  // namespace acceptance
