#include "rig/world/access_lists.h"

#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"

namespace rig {
namespace {

BOOL RefuseWith(DWORD error) {
  SetLastError(error);
  return FALSE;
}

DWORD SizeOfSid(const void* sid) {
  return 8 + 4 * DWORD{static_cast<const BYTE*>(sid)[1]};
}

// The identifiers S-1-5-18 and S-1-5-19.
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

std::string AccessLists::OwnerOf(const void* sid) {
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
  for (const auto& [user, account] : accounts_.users) {
    names.push_back(accounts_.computer + "\\" + user);
  }
  for (const auto& [domain, what] : accounts_.domains) {
    for (const auto& [user, account] : what.accounts) {
      names.push_back(domain + "\\" + user);
    }
  }
  for (const std::string& name : names) {
    std::vector<BYTE> bytes = accounts_.SidOf(name);
    if (is(bytes.data(), bytes.size())) {
      return name;
    }
  }
  return "nobody";
}

std::string AccessLists::Describe(const EXPLICIT_ACCESS_W& entry) {
  const TRUSTEE_W& trustee = entry.Trustee;
  return "rights=" + HexText(entry.grfAccessPermissions) + " mode=" + std::to_string(entry.grfAccessMode) +
         " inherits=" + std::to_string(entry.grfInheritance) +
         " multiple=" + (trustee.pMultipleTrustee == nullptr ? "null/" : "*/") +
         std::to_string(trustee.MultipleTrusteeOperation) + " form=" + std::to_string(trustee.TrusteeForm) +
         " type=" + std::to_string(trustee.TrusteeType) + " sid=" + OwnerOf(trustee.ptstrName);
}

void AccessLists::Install() {
  rig_.On<::CreateWellKnownSid>([this](WELL_KNOWN_SID_TYPE type, void* domain, void* sid, DWORD* size) {
    wellKnownSizes.push_back(*size);
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
  rig_.On<::SetEntriesInAclW>([this](ULONG count, EXPLICIT_ACCESS_W* entries, ACL* old, ACL** out) -> DWORD {
    if (entriesError != ERROR_SUCCESS) return entriesError;
    if (count != 1 || old != nullptr) {
      Fail("SetEntriesInAclW is given an older list, or not exactly one entry");
    }
    std::string text = Describe(entries[0]);
    *out = static_cast<ACL*>(GuardedHeap::Get().Allocate(sizeof(ACL)));
    entries_[*out] = text;
    return ERROR_SUCCESS;
  });
  rig_.On<::SetNamedSecurityInfoW>([this](wchar_t* name, SE_OBJECT_TYPE type, SECURITY_INFORMATION what,
                                          void* owner, void* group, ACL* list, ACL* audit) -> DWORD {
    if (type != SE_FILE_OBJECT || what != DACL_SECURITY_INFORMATION || owner != nullptr || group != nullptr ||
        audit != nullptr) {
      Fail("SetNamedSecurityInfoW is given more to set than the access list of a file");
    }
    if (applyError != ERROR_SUCCESS) {
      return applyError;
    }
    auto entry = entries_.find(list);
    applied.push_back(ToUtf8(name) + ": " + (entry == entries_.end() ? "no list" : entry->second));
    return ERROR_SUCCESS;
  });
}

}  // namespace rig
