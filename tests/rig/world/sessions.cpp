#include "rig/world/sessions.h"

#include <wtsapi32.h>

#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"
#include "rig/world/process.h"

namespace rig {
namespace {

// Any value will do.
constexpr LUID kDebugPrivilege = {20, 0};

// Allocates one buffer with an array followed by its texts, as the terminal services do.
template <class Entry>
Entry* MakeEntries(const std::vector<Entry>& entries, const std::vector<std::string>& texts,
                   wchar_t* Entry::* text) {
  size_t size = entries.size() * sizeof(Entry);
  std::vector<size_t> places;
  std::wstring all;
  for (const std::string& one : texts) {
    places.push_back(size + all.size() * sizeof(wchar_t));
    all += ToWide(one) + L'\0';
  }
  auto* buffer = static_cast<char*>(GuardedHeap::Get().Allocate(size + all.size() * sizeof(wchar_t)));
  if (!entries.empty()) {
    std::memcpy(buffer, entries.data(), size);
  }
  std::memcpy(buffer + size, all.data(), all.size() * sizeof(wchar_t));
  auto* result = reinterpret_cast<Entry*>(buffer);
  for (size_t index = 0; index < entries.size(); ++index) {
    result[index].*text = texts[index].empty() ? nullptr : reinterpret_cast<wchar_t*>(buffer + places[index]);
  }
  return result;
}

BOOL Failed(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

void Sessions::Install() {
  InstallTerminalServices();
  InstallProcesses();
  InstallPrivileges();
}

void Sessions::InstallTerminalServices() {
  rig_.On<::WTSEnumerateProcessesW>([this](HANDLE, DWORD, DWORD, WTS_PROCESS_INFOW** out, DWORD* count) {
    if (processesError != ERROR_SUCCESS) {
      return Failed(processesError);
    }
    std::vector<WTS_PROCESS_INFOW> entries;
    std::vector<std::string> names;
    for (const Process& one : processes) {
      entries.push_back({one.session, one.id, nullptr, nullptr});
      names.push_back(one.name);
    }
    *out = MakeEntries(entries, names, &WTS_PROCESS_INFOW::pProcessName);
    *count = static_cast<DWORD>(entries.size());
    return TRUE;
  });
  rig_.On<::WTSEnumerateSessionsW>([this](HANDLE, DWORD, DWORD, WTS_SESSION_INFOW** out, DWORD* count) {
    if (sessionsError != ERROR_SUCCESS) {
      return Failed(sessionsError);
    }
    std::vector<WTS_SESSION_INFOW> entries;
    std::vector<std::string> names;
    for (const TerminalSession& one : sessions) {
      entries.push_back({one.id, nullptr, static_cast<WTS_CONNECTSTATE_CLASS>(one.state)});
      names.push_back("Console");
    }
    *out = MakeEntries(entries, names, &WTS_SESSION_INFOW::pWinStationName);
    *count = static_cast<DWORD>(entries.size());
    return TRUE;
  });
  rig_.On<::WTSQuerySessionInformationW>(
      [this](HANDLE, DWORD id, WTS_INFO_CLASS type, wchar_t** out, DWORD* size) {
        for (const TerminalSession& one : sessions) {
          if (one.id == id && type == WTSUserName && one.asking != TerminalSession::Asking::kFails) {
            std::wstring user = ToWide(one.user);
            *size = static_cast<DWORD>((user.size() + 1) * sizeof(wchar_t));
            *out = nullptr;
            if (one.asking == TerminalSession::Asking::kWorks) {
              *out = static_cast<wchar_t*>(GuardedHeap::Get().Allocate(*size));
              std::memcpy(*out, user.c_str(), *size);
            }
            return TRUE;
          }
        }
        return Failed(ERROR_ACCESS_DENIED);
      });
  rig_.On<::WTSFreeMemory>([](void* memory) { Heap::TakeBack(memory); });
}

Process* Sessions::Reach(HANDLE handle, DWORD access) {
  auto opened = opened_.find(handle);
  if (opened == opened_.end()) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if ((opened->second.access & access) != access) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return opened->second.process;
}

std::optional<DWORD> Sessions::AccessOfToken(HANDLE token) const {
  auto opened = tokens_.find(token);
  return opened == tokens_.end() ? std::nullopt : std::optional(opened->second);
}

void Sessions::InstallProcesses() {
  rig_.On<::OpenProcess>([this](DWORD access, BOOL, DWORD id) -> HANDLE {
    for (Process& one : processes) {
      if (one.id == id && one.openError == ERROR_SUCCESS) {
        // A real handle, because the real CloseHandle closes it.
        HANDLE handle = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        opened_[handle] = {&one, access};
        return handle;
      }
      if (one.id == id) {
        SetLastError(one.openError);
        return nullptr;
      }
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  });
  rig_.On<::QueryFullProcessImageNameW>([this](HANDLE handle, DWORD flags, wchar_t* buffer, DWORD* size) {
    Process* process = Reach(handle, PROCESS_QUERY_LIMITED_INFORMATION);
    if (process == nullptr) {
      return FALSE;
    }
    std::wstring image = ToWide(process->image);
    if (flags != 0 || image.empty() || image.size() >= *size) {
      return Failed(image.empty() ? ERROR_GEN_FAILURE : ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(buffer, image.c_str(), (image.size() + 1) * sizeof(wchar_t));
    *size = static_cast<DWORD>(image.size());
    return TRUE;
  });
  rig_.On<::TerminateProcess>([this](HANDLE handle, UINT) {
    Process* process = Reach(handle, PROCESS_TERMINATE);
    if (process == nullptr) {
      return FALSE;
    }
    if (process->terminateError != ERROR_SUCCESS) {
      return Failed(process->terminateError);
    }
    process->ended = true;
    return TRUE;
  });
  rig_.On<::WaitForSingleObject>([this](HANDLE handle, DWORD) -> DWORD {
    Process* process = Reach(handle, SYNCHRONIZE);
    if (process == nullptr) {
      return WAIT_FAILED;
    }
    return process->ended ? process->waitResult : DWORD{WAIT_TIMEOUT};
  });
}

void Sessions::InstallPrivileges() {
  rig_.On<::LookupPrivilegeValueA>([this](const char* system, const char* name, LUID* out) {
    if (system != nullptr || std::string(name) != "SeDebugPrivilege" || !hasDebugPrivilege) {
      return Failed(ERROR_NO_SUCH_PRIVILEGE);
    }
    *out = kDebugPrivilege;
    return TRUE;
  });
  rig_.On<::OpenProcessToken>([this](HANDLE process, DWORD access, HANDLE* out) {
    if (process != GetCurrentProcess()) {
      Fail("OpenProcessToken is given another process");
    }
    if (tokenError != ERROR_SUCCESS) {
      return Failed(tokenError);
    }
    *out = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    tokens_[*out] = access;
    return TRUE;
  });
  rig_.On<::AdjustTokenPrivileges>(
      [this](HANDLE, BOOL disablesAll, TOKEN_PRIVILEGES* privileges, DWORD size, TOKEN_PRIVILEGES*, DWORD*) {
        bool isDebug = size == sizeof *privileges && privileges->PrivilegeCount == 1 && !disablesAll &&
                       privileges->Privileges[0].Luid.LowPart == kDebugPrivilege.LowPart &&
                       privileges->Privileges[0].Luid.HighPart == kDebugPrivilege.HighPart;
        if (!isDebug) {
          return Failed(ERROR_INVALID_PARAMETER);
        }
        if (privilegeError == ERROR_SUCCESS) {
          enabled.push_back(privileges->Privileges[0].Attributes);
        }
        // After a success the last error is set only on request: the library must not read an older one.
        if (privilegeError != ERROR_SUCCESS) {
          SetLastError(privilegeError);
        }
        return TRUE;
      });
}

}  // namespace rig
