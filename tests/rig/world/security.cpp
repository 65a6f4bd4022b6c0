#include "rig/world/security.h"

#include <setupapi.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"

namespace rig {
namespace {

// A block that a query of the service manager fills: a record, and behind it what its pointers point to.
class ConfigurationBlock {
 public:
  explicit ConfigurationBlock(size_t record) : bytes_(record, '\0') {}

  /// Puts bytes behind what is there and points the field at `place` to them.
  void PointTo(size_t place, const std::string& bytes) {
    pointers_[place] = bytes_.size();
    bytes_ += bytes;
  }
  /// The same with text and its terminator; none leaves null.
  void PointToText(size_t place, const std::optional<std::string>& text) {
    if (text.has_value()) {
      PointTo(place, *text + '\0');
    }
  }
  /// Sets a field.
  void Set(size_t place, DWORD value) { std::memcpy(&bytes_[place], &value, sizeof value); }
  /// Its size in bytes.
  size_t Size() const { return bytes_.size(); }
  /// Writes it where it stays.
  void Store(BYTE* target) const {
    std::memcpy(target, bytes_.data(), bytes_.size());
    for (const auto& [place, offset] : pointers_) {
      const BYTE* address = target + offset;
      std::memcpy(target + place, &address, sizeof address);
    }
  }

 private:
  std::string bytes_;
  std::map<size_t, size_t> pointers_;
};

BOOL RefuseWith(DWORD error) {
  SetLastError(error);
  return FALSE;
}

// Answers the query of a configuration, of its size when there is no block.
BOOL AnswerQuery(const ServiceSettings& service, const ConfigurationBlock& configuration, BYTE* block,
                 DWORD size, DWORD* needed) {
  auto wanted = service.demand != 0 ? service.demand : static_cast<DWORD>(configuration.Size());
  if (block == nullptr) {
    if (size != 0) {
      Fail("a query of a service's configuration is given a size, but no block");
    }
    if (service.sizingError == ERROR_SUCCESS || service.sizingError == ERROR_INSUFFICIENT_BUFFER) {
      *needed = wanted;
    }
    return service.sizingError == ERROR_SUCCESS ? TRUE : RefuseWith(service.sizingError);
  }
  if (service.queryError != ERROR_SUCCESS) {
    return RefuseWith(service.queryError);
  }
  if (size < wanted) {
    std::memset(block, GuardedHeap::kRubbish, size);
    *needed = wanted;
    return RefuseWith(ERROR_INSUFFICIENT_BUFFER);
  }
  configuration.Store(block);
  return TRUE;
}

std::string QuotedOrNull(const char* text) {
  return text == nullptr ? "null" : Quote(std::string_view(text));
}

DWORD SizeOfSid(const void* sid) {
  return 8 + 4 * DWORD{static_cast<const BYTE*>(sid)[1]};
}

// S-1-5-18 and S-1-5-19.
struct WellKnown {
  WELL_KNOWN_SID_TYPE type;
  BYTE number;
  const char* name;
};
constexpr WellKnown kWellKnown[] = {
    {WinLocalSystemSid, 18, "<LocalSystem>"},
    {WinLocalServiceSid, 19, "<LocalService>"},
};

std::string WellKnownSid(BYTE number) {
  std::string sid(12, '\0');
  sid[0] = SID_REVISION;
  sid[1] = 1;
  sid[7] = 5;
  sid[8] = static_cast<char>(number);
  return sid;
}

}  // namespace

Security::Security(World& world) : accounts(world), world_(world) {
  AnswerLists();
  AnswerServices();
  world.On<::InstallHinfSectionA>(
      [this](HWND, HINSTANCE, const char* commandLine, INT) { sections.emplace_back(commandLine); });
  world.On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  });
}

void Security::NameKept(Rig& rig) {
  auto has = [&rig](const std::string& start) {
    const std::vector<std::string>& lines = rig.trace.Lines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.rfind(start, 0) == 0; });
  };
  for (const std::string module : {"NETAPI32", "ADVAPI32"}) {
    if (has("LoadLibraryW(\"" + module + "\") = " + module)) {
      rig.ledger.Deliberate(kModule, module);
    }
  }
  if (has("GetProcAddress(NETAPI32, \"NetApiBufferFree\") = null")) {
    rig.ledger.Deliberate(kNetBuffer);
  }
}

std::string Security::OwnerOf(const void* sid) {
  auto is = [sid](const void* bytes, size_t size) {
    return SizeOfSid(sid) == size && std::memcmp(sid, bytes, size) == 0;
  };
  for (const WellKnown& one : kWellKnown) {
    std::string known = WellKnownSid(one.number);
    if (is(known.data(), known.size())) {
      return one.name;
    }
  }
  std::vector<std::string> names;
  for (const auto& [user, account] : accounts.users) {
    names.push_back(accounts.computer + "\\" + user);
  }
  for (const auto& [domain, what] : accounts.domains) {
    for (const auto& [user, account] : what.accounts) {
      names.push_back(domain + "\\" + user);
    }
  }
  for (const std::string& name : names) {
    std::vector<BYTE> bytes = accounts.SidOf(name);
    if (is(bytes.data(), bytes.size())) {
      return name;
    }
  }
  return "nobody";
}

std::string Security::Describe(const EXPLICIT_ACCESS_W& entry) {
  const TRUSTEE_W& trustee = entry.Trustee;
  return "rights=" + HexText(entry.grfAccessPermissions) + " mode=" + std::to_string(entry.grfAccessMode) +
         " inherits=" + std::to_string(entry.grfInheritance) +
         " multiple=" + (trustee.pMultipleTrustee == nullptr ? "null/" : "*/") +
         std::to_string(trustee.MultipleTrusteeOperation) + " form=" + std::to_string(trustee.TrusteeForm) +
         " type=" + std::to_string(trustee.TrusteeType) + " sid=" + OwnerOf(trustee.ptstrName);
}

void Security::AnswerLists() {
  world_.On<::CreateWellKnownSid>([this](WELL_KNOWN_SID_TYPE type, void* domain, void* sid, DWORD* size) {
    wellKnownRooms.push_back(*size);
    for (const WellKnown& one : kWellKnown) {
      std::string bytes = WellKnownSid(one.number);
      if (one.type == type && domain == nullptr && *size >= bytes.size()) {
        std::memset(sid, GuardedHeap::kRubbish, *size);
        std::memcpy(sid, bytes.data(), bytes.size());
        *size = static_cast<DWORD>(bytes.size());
        return TRUE;
      }
    }
    return RefuseWith(ERROR_INVALID_PARAMETER);
  });
  world_.On<::SetEntriesInAclW>(
      [this](ULONG count, EXPLICIT_ACCESS_W* entries, ACL* old, ACL** out) -> DWORD {
        if (entriesError != ERROR_SUCCESS) return entriesError;
        if (count != 1 || old != nullptr) {
          Fail("SetEntriesInAclW is given another number of entries than one, or an older list");
        }
        std::string text = Describe(entries[0]);
        *out = static_cast<ACL*>(GuardedHeap::Get().Allocate(sizeof(ACL)));
        entries_[*out] = text;
        return ERROR_SUCCESS;
      });
  world_.On<::SetNamedSecurityInfoW>([this](wchar_t* name, SE_OBJECT_TYPE type, SECURITY_INFORMATION what,
                                            void* owner, void* group, ACL* list, ACL* audit) -> DWORD {
    if (type != SE_FILE_OBJECT || what != DACL_SECURITY_INFORMATION || owner != nullptr || group != nullptr ||
        audit != nullptr) {
      Fail("SetNamedSecurityInfoW is given more to set than the access list of a file");
    }
    if (applyError != ERROR_SUCCESS) {
      return applyError;
    }
    auto entry = entries_.find(list);
    lists.push_back(ToUtf8(name) + ": " + (entry == entries_.end() ? "no list" : entry->second));
    return ERROR_SUCCESS;
  });
}

BOOL Security::QueryAccount(SC_HANDLE handle, BYTE* block, DWORD size, DWORD* needed) {
  ServiceSettings* service = handles_.Reach(handle, SERVICE_QUERY_CONFIG);
  if (service == nullptr) {
    return FALSE;
  }
  using Record = QUERY_SERVICE_CONFIGA;
  ConfigurationBlock configuration(sizeof(Record));
  configuration.Set(offsetof(Record, dwServiceType), SERVICE_WIN32_OWN_PROCESS);
  configuration.Set(offsetof(Record, dwStartType), SERVICE_AUTO_START);
  configuration.PointToText(offsetof(Record, lpBinaryPathName), "C:\\Vantor\\vantor.exe");
  configuration.PointToText(offsetof(Record, lpLoadOrderGroup), "");
  configuration.PointToText(offsetof(Record, lpDependencies), "");
  configuration.PointToText(offsetof(Record, lpDisplayName), "Vantor");
  configuration.PointToText(offsetof(Record, lpServiceStartName), service->account);
  return AnswerQuery(*service, configuration, block, size, needed);
}

BOOL Security::QueryFailureActions(SC_HANDLE handle, DWORD level, BYTE* block, DWORD size, DWORD* needed) {
  ServiceSettings* service = handles_.Reach(handle, SERVICE_QUERY_CONFIG);
  if (service == nullptr || level != SERVICE_CONFIG_FAILURE_ACTIONS) {
    return service == nullptr ? FALSE : RefuseWith(ERROR_INVALID_LEVEL);
  }
  using Record = SERVICE_FAILURE_ACTIONSA;
  ConfigurationBlock configuration(sizeof(Record));
  configuration.Set(offsetof(Record, dwResetPeriod), service->resetPeriod);
  configuration.Set(offsetof(Record, cActions), static_cast<DWORD>(service->actions.size()));
  if (!service->actions.empty()) {
    configuration.PointTo(offsetof(Record, lpsaActions),
                          {reinterpret_cast<const char*>(service->actions.data()),
                           service->actions.size() * sizeof(SC_ACTION)});
  }
  configuration.PointToText(offsetof(Record, lpRebootMsg), service->rebootMessage);
  configuration.PointToText(offsetof(Record, lpCommand), service->command);
  BOOL told = AnswerQuery(*service, configuration, block, size, needed);
  if (told && block != nullptr) {
    handedOut_ = reinterpret_cast<Record*>(block)->lpsaActions;
  }
  return told;
}

BOOL Security::Change(SC_HANDLE handle, DWORD level, const void* information) {
  ServiceSettings* service = handles_.Reach(handle, SERVICE_CHANGE_CONFIG);
  if (service == nullptr) {
    return FALSE;
  }
  if (service->changeError != ERROR_SUCCESS) {
    return RefuseWith(service->changeError);
  }
  const auto& actions = *static_cast<const SERVICE_FAILURE_ACTIONSA*>(information);
  const char* list = actions.lpsaActions == nullptr ? "null" : "*";
  if (actions.lpsaActions != nullptr && actions.lpsaActions == handedOut_) {
    list = "kept";
  }
  service->changes.push_back("level=" + std::to_string(level) + " reset=" + HexText(actions.dwResetPeriod) +
                             " reboot=" + QuotedOrNull(actions.lpRebootMsg) +
                             " command=" + QuotedOrNull(actions.lpCommand) +
                             " count=" + std::to_string(actions.cActions) + " actions=" + list);
  // As the system does: null leaves what is there, and a list that is not null takes the old one's place.
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

void Security::AnswerServices() {
  world_.On<::OpenSCManagerA>([this](const char* machine, const char* database, DWORD access) {
    return handles_.OpenManager(machine, database, access, managerError);
  });
  world_.On<::OpenServiceW>([this](SC_HANDLE manager, const wchar_t* name, DWORD access) {
    auto service = services.find(ToUtf8(name));
    if (service != services.end()) {
      return handles_.OpenService(manager, &service->second, access, service->second.openError);
    }
    DWORD error = *name == L'\0' ? ERROR_INVALID_NAME : ERROR_SERVICE_DOES_NOT_EXIST;
    return handles_.OpenService(manager, nullptr, access, error);
  });
  world_.On<::QueryServiceConfigA>(
      [this](SC_HANDLE handle, QUERY_SERVICE_CONFIGA* block, DWORD size, DWORD* needed) {
        return QueryAccount(handle, reinterpret_cast<BYTE*>(block), size, needed);
      });
  world_.On<::QueryServiceConfig2A>(
      [this](SC_HANDLE handle, DWORD level, BYTE* block, DWORD size, DWORD* needed) {
        return QueryFailureActions(handle, level, block, size, needed);
      });
  world_.On<::ChangeServiceConfig2A>([this](SC_HANDLE handle, DWORD level, void* information) {
    return Change(handle, level, information);
  });
  world_.On<::CloseServiceHandle>([this](SC_HANDLE handle) -> BOOL { return handles_.Close(handle); });
}

}  // namespace rig
