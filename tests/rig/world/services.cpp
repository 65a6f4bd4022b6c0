#include "rig/world/services.h"

#include <cstddef>
#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"

namespace rig {
namespace {

// Returns the right that a control needs.
DWORD AccessFor(DWORD control) {
  constexpr DWORD kFirstUserDefined = 128;
  if (control == SERVICE_CONTROL_STOP) {
    return SERVICE_STOP;
  }
  if (control == SERVICE_CONTROL_INTERROGATE) {
    return SERVICE_INTERROGATE;
  }
  return control >= kFirstUserDefined ? SERVICE_USER_DEFINED_CONTROL : SERVICE_PAUSE_CONTINUE;
}

BOOL Refuse(DWORD error) {
  SetLastError(error);
  return FALSE;
}

SC_HANDLE RefuseHandle(DWORD error) {
  SetLastError(error);
  return nullptr;
}

BOOL RefuseStatus(DWORD error, SERVICE_STATUS* status) {
  if (status != nullptr) {
    *status = {};
    status->dwCurrentState = SERVICE_RUNNING;
  }
  return Refuse(error);
}

BOOL StoreStatus(const Service& service, SERVICE_STATUS* status) {
  *status = {};
  status->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status->dwCurrentState = service.state;
  status->dwControlsAccepted = SERVICE_ACCEPT_STOP;
  return TRUE;
}

// The content of the block that a configuration query fills: a record, then the data that its pointers point
// to.
class ConfigurationBlock {
 public:
  ConfigurationBlock(size_t record, bool isWide) : bytes_(record, '\0'), isWide_(isWide) {}

  /// Appends bytes and points the field at `place` to them.
  void PointTo(size_t place, const std::string& bytes) {
    pointers_[place] = bytes_.size();
    bytes_ += bytes;
  }
  /// Appends a text with its terminator and points the field at `place` to it; without a text the field
  /// stays null.
  void PointToText(size_t place, const std::optional<std::string>& text) {
    if (!text.has_value()) {
      return;
    }
    if (!isWide_) {
      PointTo(place, *text + '\0');
      return;
    }
    std::wstring wide = ToWide(*text);
    PointTo(place, {reinterpret_cast<const char*>(wide.c_str()), (wide.size() + 1) * sizeof(wchar_t)});
  }
  /// Sets the number at `place`.
  void Set(size_t place, DWORD value) { std::memcpy(&bytes_[place], &value, sizeof value); }
  /// Returns its size in bytes.
  size_t Size() const { return bytes_.size(); }
  /// Copies it to its final place and sets the pointers.
  void Store(BYTE* target) const {
    std::memcpy(target, bytes_.data(), bytes_.size());
    for (const auto& [place, offset] : pointers_) {
      const BYTE* address = target + offset;
      std::memcpy(target + place, &address, sizeof address);
    }
  }

 private:
  std::string bytes_;
  bool isWide_;
  std::map<size_t, size_t> pointers_;
};

// Answers a configuration query; without a block, a query for the size.
BOOL AnswerQuery(const Service& service, const ConfigurationBlock& configuration, BYTE* block, DWORD size,
                 DWORD* needed) {
  auto wanted = service.demand != 0 ? service.demand : static_cast<DWORD>(configuration.Size());
  if (block == nullptr) {
    if (size != 0) {
      Fail("a query of a service's configuration is given a size, but no block");
    }
    if (service.sizingError == ERROR_SUCCESS || service.sizingError == ERROR_INSUFFICIENT_BUFFER) {
      *needed = wanted;
    }
    return service.sizingError == ERROR_SUCCESS ? TRUE : Refuse(service.sizingError);
  }
  if (service.configurationError != ERROR_SUCCESS) {
    return Refuse(service.configurationError);
  }
  if (size < wanted) {
    std::memset(block, GuardedHeap::kRubbish, size);
    *needed = wanted;
    return Refuse(ERROR_INSUFFICIENT_BUFFER);
  }
  configuration.Store(block);
  return TRUE;
}

std::string QuotedOrNull(const char* text) {
  return text == nullptr ? "null" : Quote(std::string_view(text));
}

}  // namespace

SC_HANDLE Services::Open(Service* service, DWORD access) {
  auto handle = reinterpret_cast<SC_HANDLE>(nextHandle_);
  nextHandle_ += 0x10;
  opened_[handle] = {service, access};
  return handle;
}

SC_HANDLE Services::OpenService(SC_HANDLE manager, const std::string& name, DWORD access) {
  auto opened = opened_.find(manager);
  if (opened == opened_.end() || opened->second.service != nullptr) {
    return RefuseHandle(ERROR_INVALID_HANDLE);
  }
  auto known = services_.find(name);
  if (known == services_.end()) {
    return RefuseHandle(name.empty() ? ERROR_INVALID_NAME : ERROR_SERVICE_DOES_NOT_EXIST);
  }
  Service& service = known->second;
  return service.openError == ERROR_SUCCESS ? Open(&service, access) : RefuseHandle(service.openError);
}

Service* Services::Reach(SC_HANDLE handle, DWORD access) {
  auto opened = opened_.find(handle);
  if (opened == opened_.end() || opened->second.service == nullptr) {
    Refuse(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if ((opened->second.access & access) == 0) {
    Refuse(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return opened->second.service;
}

BOOL Services::Control(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
  Service* service = Reach(handle, AccessFor(control));
  if (service == nullptr) {
    return RefuseStatus(GetLastError(), status);
  }
  service->controls.push_back(control);
  auto error = service->controlErrors.find(control);
  if (error != service->controlErrors.end()) {
    return RefuseStatus(error->second, status);
  }
  if (service->state == SERVICE_STOPPED) {
    return RefuseStatus(ERROR_SERVICE_NOT_ACTIVE, status);
  }
  auto after = service->stateAfter.find(control);
  if (after != service->stateAfter.end()) {
    service->state = after->second;
  }
  return StoreStatus(*service, status);
}

BOOL Services::QueryStatus(SC_HANDLE handle, SERVICE_STATUS* status) {
  Service* service = Reach(handle, SERVICE_QUERY_STATUS);
  if (service == nullptr) {
    return RefuseStatus(GetLastError(), status);
  }
  if (!service->coming.empty()) {
    service->state = service->coming.front();
    service->coming.pop_front();
  } else if (service->statusError != ERROR_SUCCESS) {
    return RefuseStatus(service->statusError, status);
  }
  return StoreStatus(*service, status);
}

BOOL Services::Start(SC_HANDLE handle, DWORD count, const char** arguments) {
  Service* service = Reach(handle, SERVICE_START);
  if (service == nullptr) {
    return FALSE;
  }
  service->starts.push_back(count == 0 ? std::vector<std::string>()
                                       : std::vector<std::string>(arguments, arguments + count));
  if (service->startError != ERROR_SUCCESS) {
    return Refuse(service->startError);
  }
  if (service->state != SERVICE_STOPPED) {
    return Refuse(ERROR_SERVICE_ALREADY_RUNNING);
  }
  service->state = service->stateAfterStart;
  return TRUE;
}

BOOL Services::QueryConfiguration(SC_HANDLE handle, bool isWide, void* block, DWORD size, DWORD* needed) {
  Service* service = Reach(handle, SERVICE_QUERY_CONFIG);
  if (service == nullptr) {
    return FALSE;
  }
  // The wide record differs only in the texts that its pointers point to.
  using Record = QUERY_SERVICE_CONFIGA;
  static_assert(sizeof(Record) == sizeof(QUERY_SERVICE_CONFIGW));
  ConfigurationBlock configuration(sizeof(Record), isWide);
  configuration.Set(offsetof(Record, dwServiceType), SERVICE_WIN32_OWN_PROCESS);
  configuration.Set(offsetof(Record, dwStartType), SERVICE_AUTO_START);
  configuration.PointToText(offsetof(Record, lpBinaryPathName), service->program);
  configuration.PointToText(offsetof(Record, lpLoadOrderGroup), "");
  configuration.PointToText(offsetof(Record, lpDependencies), "");
  configuration.PointToText(offsetof(Record, lpDisplayName), service->displayName);
  configuration.PointToText(offsetof(Record, lpServiceStartName), service->account);
  return AnswerQuery(*service, configuration, static_cast<BYTE*>(block), size, needed);
}

BOOL Services::QueryFailureActions(SC_HANDLE handle, DWORD level, BYTE* block, DWORD size, DWORD* needed) {
  Service* service = Reach(handle, SERVICE_QUERY_CONFIG);
  if (service == nullptr) {
    return FALSE;
  }
  if (level != SERVICE_CONFIG_FAILURE_ACTIONS) {
    return Refuse(ERROR_INVALID_LEVEL);
  }
  using Record = SERVICE_FAILURE_ACTIONSA;
  ConfigurationBlock configuration(sizeof(Record), false);
  configuration.Set(offsetof(Record, dwResetPeriod), service->resetPeriod);
  configuration.Set(offsetof(Record, cActions), static_cast<DWORD>(service->actions.size()));
  if (!service->actions.empty()) {
    configuration.PointTo(offsetof(Record, lpsaActions),
                          {reinterpret_cast<const char*>(service->actions.data()),
                           service->actions.size() * sizeof(SC_ACTION)});
  }
  configuration.PointToText(offsetof(Record, lpRebootMsg), service->rebootMessage);
  configuration.PointToText(offsetof(Record, lpCommand), service->command);
  BOOL isAnswered = AnswerQuery(*service, configuration, block, size, needed);
  if (isAnswered && block != nullptr) {
    lastActions_ = reinterpret_cast<Record*>(block)->lpsaActions;
  }
  return isAnswered;
}

BOOL Services::ChangeFailureActions(SC_HANDLE handle, DWORD level, const void* information) {
  Service* service = Reach(handle, SERVICE_CHANGE_CONFIG);
  if (service == nullptr) {
    return FALSE;
  }
  if (service->changeError != ERROR_SUCCESS) {
    return Refuse(service->changeError);
  }
  const auto& actions = *static_cast<const SERVICE_FAILURE_ACTIONSA*>(information);
  const char* list = actions.lpsaActions == nullptr ? "null" : "*";
  if (actions.lpsaActions != nullptr && actions.lpsaActions == lastActions_) {
    list = "kept";
  }
  service->changes.push_back("level=" + std::to_string(level) + " reset=" + HexText(actions.dwResetPeriod) +
                             " reboot=" + QuotedOrNull(actions.lpRebootMsg) +
                             " command=" + QuotedOrNull(actions.lpCommand) +
                             " count=" + std::to_string(actions.cActions) + " actions=" + list);
  // As the system does: null keeps the old value, and any list replaces the old list.
  if (actions.lpsaActions != nullptr) {
    service->resetPeriod = actions.dwResetPeriod;
    service->actions.assign(actions.lpsaActions, actions.lpsaActions + actions.cActions);
  }
  if (actions.lpRebootMsg != nullptr) {
    service->rebootMessage = actions.lpRebootMsg;
  }
  if (actions.lpCommand != nullptr) {
    service->command = actions.lpCommand;
  }
  return TRUE;
}

void Services::InstallHandles() {
  rig_.On<::OpenSCManagerA>([this](const char* machine, const char* database, DWORD access) -> SC_HANDLE {
    if (machine != nullptr || database != nullptr) {
      Fail("OpenSCManagerA is given another machine or database; the world knows its own only");
    }
    return managerError == ERROR_SUCCESS ? Open(nullptr, access) : RefuseHandle(managerError);
  });
  rig_.On<::OpenServiceA>([this](SC_HANDLE manager, const char* name, DWORD access) {
    return OpenService(manager, name, access);
  });
  rig_.On<::OpenServiceW>([this](SC_HANDLE manager, const wchar_t* name, DWORD access) {
    return OpenService(manager, ToUtf8(name), access);
  });
  rig_.On<::CloseServiceHandle>([this](SC_HANDLE handle) -> BOOL { return opened_.erase(handle) != 0; });
}

void Services::InstallConfiguration() {
  rig_.On<::QueryServiceConfigA>(
      [this](SC_HANDLE handle, QUERY_SERVICE_CONFIGA* block, DWORD size, DWORD* needed) {
        return QueryConfiguration(handle, false, block, size, needed);
      });
  rig_.On<::QueryServiceConfigW>(
      [this](SC_HANDLE handle, QUERY_SERVICE_CONFIGW* block, DWORD size, DWORD* needed) {
        return QueryConfiguration(handle, true, block, size, needed);
      });
  rig_.On<::QueryServiceConfig2A>(
      [this](SC_HANDLE handle, DWORD level, BYTE* block, DWORD size, DWORD* needed) {
        return QueryFailureActions(handle, level, block, size, needed);
      });
  rig_.On<::ChangeServiceConfig2A>([this](SC_HANDLE handle, DWORD level, void* information) {
    return ChangeFailureActions(handle, level, information);
  });
}

void Services::Install() {
  InstallHandles();
  InstallConfiguration();
  rig_.On<::ControlService>([this](SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
    return Control(handle, control, status);
  });
  rig_.On<::QueryServiceStatus>(
      [this](SC_HANDLE handle, SERVICE_STATUS* status) { return QueryStatus(handle, status); });
  rig_.On<::StartServiceA>([this](SC_HANDLE handle, DWORD count, const char** arguments) {
    return Start(handle, count, arguments);
  });
}

}  // namespace rig
