// The access lists of files in memory. Part of a world.
#pragma once

#include <windows.h>

// After windows.h, on which it builds.
#include <aclapi.h>

#include <map>
#include <string>
#include <vector>

#include "rig/world/accounts.h"

namespace rig {

/// The access lists that files get. The files themselves are not looked up: a path is spelled as it is given.
class AccessLists {
 public:
  /// The part of the world that belongs to this rig; `accounts` names the owners of identifiers.
  AccessLists(Rig& rig, Accounts& accounts) : rig_(rig), accounts_(accounts) {}
  AccessLists(const AccessLists&) = delete;
  AccessLists& operator=(const AccessLists&) = delete;
  /// Sends its functions here.
  void Install();

  /// What SetEntriesInAclW fails with.
  DWORD entriesError = ERROR_SUCCESS;
  /// What SetNamedSecurityInfoW fails with.
  DWORD applyError = ERROR_SUCCESS;
  /// The lists that files were given, "S:\Data: rights=0x10000000 mode=2 ... sid=PC7\svc": the path and each
  /// field of the only entry.
  std::vector<std::string> applied;
  /// The sizes in bytes of the buffers that CreateWellKnownSid was given.
  std::vector<DWORD> wellKnownSizes;

 private:
  /// The name of an identifier's owner; "nobody" if there is none.
  std::string OwnerOf(const void* sid);
  /// Each field of an entry.
  std::string Describe(const EXPLICIT_ACCESS_W& entry);

  Rig& rig_;
  Accounts& accounts_;
  std::map<const ACL*, std::string> entries_;
};

}  // namespace rig
