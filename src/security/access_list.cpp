#include "security/access_list.h"

#include <aclapi.h>

#include "base/heap.h"
#include "base/windows_owners.h"
#include "security/account_sid.h"
#include "security/advapi32.h"

namespace {

constexpr DWORD kNoFunction = static_cast<DWORD>(kAccessNoFunction);
constinit LateFunction<decltype(SetEntriesInAclW)> setEntriesInAcl{&advapi32, "SetEntriesInAclW",
                                                                   kNoFunction};
constinit LateFunction<decltype(SetNamedSecurityInfoW)> setNamedSecurityInfo{
    &advapi32, "SetNamedSecurityInfoW", kNoFunction};

// The Windows access right for each access mode.
struct AccessRight {
  DWORD mode;
  DWORD right;
};
constexpr AccessRight kAccessRights[] = {
    {kAccessRead, GENERIC_READ},
    {kAccessWrite, GENERIC_WRITE},
    {kAccessExecute, GENERIC_EXECUTE},
};

DWORD RightsOf(DWORD mode) {
  if ((mode & kAccessAll) == kAccessAll) return GENERIC_ALL;
  DWORD rights = 0;
  for (const AccessRight& access : kAccessRights) {
    if (mode & access.mode) rights |= access.right;
  }
  return rights;
}

// Returns true if the system has access lists: Windows 2000 or newer.
bool HasAccessLists() {
  constexpr DWORD kFamily9x = 0x80000000;
  constexpr DWORD kFirstMajor = 5;
  DWORD version = GetVersion();
  return !(version & kFamily9x) && (version & 0xFF) >= kFirstMajor;
}

// Returns an entry that sets the access of the account `sid` to `mode`. `sid` must outlive the entry.
EXPLICIT_ACCESS_W EntryOf(void* sid, DWORD mode) {
  EXPLICIT_ACCESS_W entry = {};
  entry.grfAccessPermissions = RightsOf(mode);
  entry.grfAccessMode = SET_ACCESS;
  entry.grfInheritance =
      mode & kAccessInherit ? SUB_CONTAINERS_AND_OBJECTS_INHERIT : NO_PROPAGATE_INHERIT_ACE;
  entry.Trustee.MultipleTrusteeOperation = NO_MULTIPLE_TRUSTEE;
  entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  entry.Trustee.TrusteeType = TRUSTEE_IS_UNKNOWN;
  entry.Trustee.ptstrName = static_cast<wchar_t*>(sid);
  return entry;
}

}  // namespace

int ApplyAccountAccess(PathObject* path, const char* account, DWORD mode) {
  if (!path || !account) return kAccessMissingArgument;
  if (!HasAccessLists()) return 0;
  HeapStringW text(PathToWide(path));
  if (!text) return kAccessNoPath;
  HeapBlock<void> sid(ResolveAccountSid(account));
  if (!sid) return kAccessNoAccount;
  EXPLICIT_ACCESS_W entry = EntryOf(sid.get(), mode);
  LocalBlock<ACL> list;
  // On purpose: the existing list is not merged into the new one.
  DWORD error = setEntriesInAcl(1, &entry, nullptr, list.put());
  if (!list.keep(error == ERROR_SUCCESS)) return static_cast<int>(error);
  return static_cast<int>(setNamedSecurityInfo(text.get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                               nullptr, list.get(), nullptr));
}
