#include "rig/world/accounts.h"

#include <cstring>

// Must come after windows.h.
#include <lm.h>
#include <ntsecapi.h>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"
#include "rig/world/process.h"

namespace rig {
namespace {

constexpr char kNullName[] = "\1";
constexpr DWORD kSidSize = 28;
constexpr NTSTATUS kNoSuchAccount = static_cast<NTSTATUS>(0xC0000073);
constexpr NTSTATUS kNoSuchPrivilege = static_cast<NTSTATUS>(0xC0000060);
constexpr NTSTATUS kBadHandle = static_cast<NTSTATUS>(0xC0000008);
constexpr NTSTATUS kDenied = static_cast<NTSTATUS>(0xC0000022);

BOOL Refused(DWORD error) {
  SetLastError(error);
  return FALSE;
}

std::string Numbered(const char* name, DWORD value, bool hex = false) {
  return std::string(" ") + name + "=" + (hex ? HexText(value) : std::to_string(value));
}

std::string Named(const char* name, const wchar_t* text) {
  return std::string(" ") + name + "=" + TextOrNull(text);
}

// Describes every field of the record; the password shows as a secret.
std::string Describe(const USER_INFO_2& user) {
  return "name=" + TextOrNull(user.usri2_name) + Named("password", user.usri2_password) +
         Numbered("age", user.usri2_password_age) + Numbered("priv", user.usri2_priv) +
         Named("home", user.usri2_home_dir) + Named("comment", user.usri2_comment) +
         Numbered("flags", user.usri2_flags, true) + Named("script", user.usri2_script_path) +
         Numbered("auth", user.usri2_auth_flags) + Named("full", user.usri2_full_name) +
         Named("remark", user.usri2_usr_comment) + Named("parms", user.usri2_parms) +
         Named("stations", user.usri2_workstations) + Numbered("on", user.usri2_last_logon) +
         Numbered("off", user.usri2_last_logoff) + Numbered("expires", user.usri2_acct_expires, true) +
         Numbered("storage", user.usri2_max_storage, true) + Numbered("units", user.usri2_units_per_week) +
         (user.usri2_logon_hours == nullptr ? " hours=null" : " hours=*") +
         Numbered("bad", user.usri2_bad_pw_count) + Numbered("logons", user.usri2_num_logons) +
         Named("server", user.usri2_logon_server) + Numbered("country", user.usri2_country_code) +
         Numbered("page", user.usri2_code_page);
}

// Allocates a network buffer for a record with one name, which ends at the end of the buffer.
template <class Record>
BYTE* MakeRecord(wchar_t* Record::* field, const std::string& text) {
  std::wstring wide = ToWide(text);
  size_t size = (wide.size() + 1) * sizeof(wchar_t);
  auto* buffer = static_cast<BYTE*>(MakeNetworkBuffer(sizeof(Record) + size));
  auto* record = reinterpret_cast<Record*>(buffer);
  *record = {};
  if (text != kNullName) {
    record->*field = reinterpret_cast<wchar_t*>(buffer + sizeof(Record));
    std::memcpy(record->*field, wide.c_str(), size);
  }
  return buffer;
}

// Writes a text with its terminator, fills the rest with rubbish and sets the length. If the text does not
// fit, writes only rubbish and sets the needed size, with the terminator.
bool WriteName(const std::string& text, wchar_t* buffer, DWORD* size) {
  std::wstring wide = ToWide(text);
  auto length = static_cast<DWORD>(wide.size());
  std::memset(buffer, GuardedHeap::kRubbish, *size * sizeof *buffer);
  if (length >= *size) {
    *size = length + 1;
    return false;
  }
  std::memcpy(buffer, wide.c_str(), (length + 1) * sizeof *buffer);
  *size = length;
  return true;
}

}  // namespace

void* MakeNetworkBuffer(size_t size) {
  return GuardedHeap::Get().Allocate(size);
}

std::string TextOrNull(const wchar_t* text) {
  return text == nullptr ? "null" : Quote(std::wstring_view(text));
}

Accounts::Accounts(Rig& rig, const Sessions& sessions) : rig_(rig), sessions_(sessions) {
  chances = {
      {0xEE, 0xEE, 0x56, 0xEE, 0xEE, 0xAC, 0xEE, 0xEE, 0xF6, 0xEE, 0xEE, 0x2B, 0xEE, 0xEE, 0x35, 0xEE}};
  domains["CORP"].controller = "\\\\DC1";
}

void Accounts::Install() {
  // Only a world that answers keeps the password secret: elsewhere nothing generates it.
  secret_.emplace(kPassword);
  InstallUsers();
  InstallNetwork();
  InstallLookUps();
  InstallPolicy();
  InstallUserOfProcess();
}

DWORD Accounts::RefusalOf(const std::string& function) const {
  auto refused = refused_.find(function);
  return refused == refused_.end() ? 0 : refused->second;
}

std::vector<BYTE> Accounts::SidOf(const std::string& account) {
  std::vector<BYTE>& sid = sids_[account];
  if (sid.empty()) {
    sid.assign(kSidSize, 0);
    sid[0] = SID_REVISION;
    sid[1] = 5;                                 // The number of subauthorities.
    sid[7] = 5;                                 // The authority: Windows NT.
    sid[8] = 21;                                // The subauthority SECURITY_NT_NON_UNIQUE.
    sid[24] = static_cast<BYTE>(sids_.size());  // The account's own number.
  }
  return sid;
}

std::string Accounts::OwnerOf(const void* sid) const {
  for (const auto& [account, bytes] : sids_) {
    if (std::memcmp(bytes.data(), sid, bytes.size()) == 0) {
      return account;
    }
  }
  return {};
}

DWORD Accounts::Add(DWORD level, const BYTE* buffer) {
  const auto& user = *reinterpret_cast<const USER_INFO_2*>(buffer);
  if (DWORD error = RefusalOf("NetUserAdd")) {
    return error;
  }
  if (level != 2) {
    return ERROR_INVALID_LEVEL;
  }
  std::string name = ToUtf8(user.usri2_name);
  if (name.empty() || name.find('\\') != std::string::npos) {
    return NERR_BadUsername;
  }
  if (users.count(name) != 0) {
    return NERR_UserExists;
  }
  auto text = [](const wchar_t* given) { return given == nullptr ? std::string() : ToUtf8(given); };
  users[name] = {text(user.usri2_password), text(user.usri2_full_name), Describe(user)};
  return NERR_Success;
}

void Accounts::InstallUsers() {
  rig_.On<::NetUserAdd>([this](const wchar_t* server, DWORD level, BYTE* buffer, DWORD* wrong) -> DWORD {
    if (server != nullptr || wrong != nullptr) {
      Fail("NetUserAdd is given a server or an output for the number of a wrong field");
    }
    return Add(level, buffer);
  });
  rig_.On<::NetUserGetInfo>([this](const wchar_t*, const wchar_t* name, DWORD level, BYTE** out) -> DWORD {
    *out = nullptr;
    if (DWORD error = RefusalOf("NetUserGetInfo")) {
      return error;
    }
    auto user = users.find(ToUtf8(name));
    if (user == users.end()) {
      return NERR_UserNotFound;
    }
    if (level != 1) {
      return ERROR_INVALID_LEVEL;
    }
    *out = MakeRecord(&USER_INFO_1::usri1_name, user->first);
    return NERR_Success;
  });
  rig_.On<::NetUserDel>([this](const wchar_t*, const wchar_t* name) -> DWORD {
    DWORD error = RefusalOf("NetUserDel");
    if (error != 0) {
      return error;
    }
    return users.erase(ToUtf8(name)) == 0 ? DWORD{NERR_UserNotFound} : DWORD{NERR_Success};
  });
  rig_.On<::CoCreateGuid>([this](GUID* out) -> HRESULT {
    if (DWORD error = RefusalOf("CoCreateGuid")) {
      return static_cast<HRESULT>(error);
    }
    if (chances.empty()) {
      Fail("CoCreateGuid is called more often than the test expects");
      return E_UNEXPECTED;
    }
    static_assert(sizeof *out == sizeof chances.front());
    std::memcpy(out, chances.front().data(), sizeof *out);
    chances.pop_front();
    return S_OK;
  });
}

void Accounts::InstallNetwork() {
  rig_.On<::NetApiBufferFree>([](void* buffer) -> DWORD {
    Heap::TakeBack(buffer);
    return NERR_Success;
  });
  rig_.On<::NetWkstaGetInfo>([this](wchar_t*, DWORD level, BYTE** out) -> DWORD {
    *out = nullptr;
    if (DWORD error = RefusalOf("NetWkstaGetInfo")) {
      return error;
    }
    if (level != 100) {
      return ERROR_INVALID_LEVEL;
    }
    *out = MakeRecord(&WKSTA_INFO_100::wki100_langroup, workgroup);
    return NERR_Success;
  });
  rig_.On<::NetGetDCName>([this](const wchar_t*, const wchar_t* name, BYTE** out) -> DWORD {
    *out = nullptr;
    if (DWORD error = RefusalOf("NetGetDCName")) {
      return error;
    }
    auto domain = domains.find(ToUtf8(name));
    if (domain == domains.end() || domain->second.controller.empty()) {
      return NERR_DCNotFound;
    }
    std::wstring controller = ToWide(domain->second.controller);
    size_t size = (controller.size() + 1) * sizeof(wchar_t);
    *out = static_cast<BYTE*>(MakeNetworkBuffer(size));
    std::memcpy(*out, controller.c_str(), size);
    return NERR_Success;
  });
}

std::string Accounts::Resolve(const std::string& system, const std::string& name) const {
  if (system.empty()) {
    auto user = users.find(name);
    return user == users.end() ? std::string() : computer + "\\" + user->first;
  }
  for (const auto& [domain, what] : domains) {
    auto user = what.accounts.find(name);
    if (what.controller == system && user != what.accounts.end()) {
      return domain + "\\" + user->first;
    }
  }
  return {};
}

BOOL Accounts::LookUp(const std::string& system, const std::string& name, void* sid, DWORD* sidSize,
                      wchar_t* domain, DWORD* domainSize) {
  rooms.emplace_back(*sidSize, *domainSize);
  std::memset(sid, GuardedHeap::kRubbish, *sidSize);
  std::memset(domain, GuardedHeap::kRubbish, *domainSize * sizeof *domain);
  if (DWORD error = RefusalOf("LookupAccountNameW")) {
    return Refused(error);
  }
  std::string account = Resolve(system, name);
  if (account.empty()) {
    return Refused(ERROR_NONE_MAPPED);
  }
  if (!demands.empty()) {
    std::tie(*sidSize, *domainSize) = demands.front();
    demands.pop_front();
    return Refused(ERROR_INSUFFICIENT_BUFFER);
  }
  std::vector<BYTE> bytes = SidOf(account);
  std::string where = account.substr(0, account.find('\\'));
  if (*sidSize < bytes.size() || *domainSize <= where.size()) {
    *sidSize = static_cast<DWORD>(bytes.size());
    *domainSize = static_cast<DWORD>(where.size() + 1);
    return Refused(ERROR_INSUFFICIENT_BUFFER);
  }
  std::memcpy(sid, bytes.data(), bytes.size());
  *sidSize = static_cast<DWORD>(bytes.size());
  WriteName(where, domain, domainSize);
  return TRUE;
}

BOOL Accounts::LookUpSid(const void* sid, wchar_t* name, DWORD* nameSize, wchar_t* domain,
                         DWORD* domainSize) {
  if (DWORD error = RefusalOf("LookupAccountSidW")) {
    return Refused(error);
  }
  std::string owner = OwnerOf(sid);
  if (owner.empty()) {
    return Refused(ERROR_NONE_MAPPED);
  }
  size_t backslash = owner.find('\\');
  bool fits = WriteName(owner.substr(0, backslash), domain, domainSize);
  fits = WriteName(owner.substr(backslash + 1), name, nameSize) && fits;
  return fits ? TRUE : Refused(ERROR_INSUFFICIENT_BUFFER);
}

BOOL Accounts::TellComputer(wchar_t* buffer, DWORD* size, DWORD tooSmall) {
  return WriteName(computer, buffer, size) ? TRUE : Refused(tooSmall);
}

void Accounts::InstallLookUps() {
  rig_.On<::LookupAccountNameW>([this](const wchar_t* system, const wchar_t* name, void* sid, DWORD* sidSize,
                                       wchar_t* domain, DWORD* domainSize, SID_NAME_USE* use) {
    *use = SidTypeUser;
    return LookUp(system == nullptr ? "" : ToUtf8(system), ToUtf8(name), sid, sidSize, domain, domainSize);
  });
  rig_.On<::LookupAccountSidW>([this](const wchar_t*, void* sid, wchar_t* name, DWORD* nameSize,
                                      wchar_t* domain, DWORD* domainSize, SID_NAME_USE* use) {
    *use = SidTypeUser;
    return LookUpSid(sid, name, nameSize, domain, domainSize);
  });
  rig_.On<::GetComputerNameW>([this](wchar_t* buffer, DWORD* size) {
    DWORD error = RefusalOf("GetComputerNameW");
    return error != 0 ? Refused(error) : TellComputer(buffer, size, ERROR_BUFFER_OVERFLOW);
  });
  rig_.On<::GetComputerNameExW>([this](COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size) {
    DWORD error =
        format != ComputerNameNetBIOS ? DWORD{ERROR_INVALID_PARAMETER} : RefusalOf("GetComputerNameExW");
    return error != 0 ? Refused(error) : TellComputer(buffer, size, ERROR_MORE_DATA);
  });
}

void Accounts::InstallPolicy() {
  rig_.On<::LsaOpenPolicy>([this](LSA_UNICODE_STRING* system, LSA_OBJECT_ATTRIBUTES* attributes,
                                  ACCESS_MASK access, LSA_HANDLE* out) -> NTSTATUS {
    const LSA_OBJECT_ATTRIBUTES zeros = {};
    if (system != nullptr || std::memcmp(attributes, &zeros, sizeof zeros) != 0) {
      Fail("LsaOpenPolicy is given another system or attributes");
    }
    if (DWORD status = RefusalOf("LsaOpenPolicy")) {
      return static_cast<NTSTATUS>(status);
    }
    *out = reinterpret_cast<LSA_HANDLE>(nextHandle_ += 0x10);
    policies_[*out] = access;
    return 0;
  });
  rig_.On<::LsaAddAccountRights>(
      [this](LSA_HANDLE policy, void* sid, LSA_UNICODE_STRING* names, ULONG count) -> NTSTATUS {
        constexpr DWORD kNeeded = POLICY_CREATE_ACCOUNT | POLICY_LOOKUP_NAMES;
        auto opened = policies_.find(policy);
        if (opened == policies_.end()) {
          return kBadHandle;
        }
        if ((opened->second & kNeeded) != kNeeded) {
          return kDenied;
        }
        if (DWORD status = RefusalOf("LsaAddAccountRights")) {
          return static_cast<NTSTATUS>(status);
        }
        std::string owner = OwnerOf(sid);
        if (owner.empty()) {
          return kNoSuchAccount;
        }
        for (ULONG at = 0; at < count; ++at) {
          std::string right = ToUtf8({names[at].Buffer, names[at].Length / sizeof(wchar_t)});
          if (right != "SeServiceLogonRight") {
            return kNoSuchPrivilege;
          }
          rights.push_back(owner + " " + right + " (" + std::to_string(names[at].Length) + " of " +
                           std::to_string(names[at].MaximumLength) + ")");
        }
        return 0;
      });
  rig_.On<::LsaClose>([this](LSA_HANDLE policy) { return policies_.erase(policy) == 0 ? kBadHandle : 0; });
  rig_.On<::LsaNtStatusToWinError>([](NTSTATUS status) -> ULONG {
    switch (status) {
      case 0:
        return ERROR_SUCCESS;
      case kDenied:
        return ERROR_ACCESS_DENIED;
      case kNoSuchPrivilege:
        return ERROR_NO_SUCH_PRIVILEGE;
      default:
        return ERROR_MR_MID_NOT_FOUND;
    }
  });
}

void Accounts::InstallUserOfProcess() {
  rig_.On<::GetTokenInformation>(
      [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size, DWORD* needed) {
        std::optional<DWORD> access = sessions_.AccessOfToken(token);
        if (!access.has_value() || kind != TokenUser || (*access & TOKEN_QUERY) == 0) {
          return Refused(access.has_value() ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE);
        }
        if (DWORD error = RefusalOf("GetTokenInformation")) {
          return Refused(error);
        }
        std::vector<BYTE> sid = SidOf(processUser);
        *needed = static_cast<DWORD>(sizeof(TOKEN_USER) + sid.size());
        if (size < *needed) {
          return Refused(ERROR_INSUFFICIENT_BUFFER);
        }
        auto* user = static_cast<TOKEN_USER*>(buffer);
        user->User = {user + 1, 0};
        std::memcpy(user + 1, sid.data(), sid.size());
        return TRUE;
      });
}

}  // namespace rig
