// The access lists of files in memory. Part of a world.
#pragma once

#include <windows.h>

// Must come after windows.h.
#include <aclapi.h>

#include <map>
#include <string>
#include <vector>

#include "rig/world/accounts.h"

namespace rig {

/// The access lists that files get. The files are not looked up: paths are taken as given.
class AccessLists {
 public:
  /// Creates the part of the world that belongs to this rig. `accounts` names the owners of security
  /// identifiers.
  AccessLists(Rig& rig, Accounts& accounts) : rig_(rig), accounts_(accounts) {}
  AccessLists(const AccessLists&) = delete;
  AccessLists& operator=(const AccessLists&) = delete;
  /// Routes the functions of this part here.
  void Install();

  /// The error of SetEntriesInAclW.
  DWORD entriesError = ERROR_SUCCESS;
  /// The error of SetNamedSecurityInfoW.
  DWORD applyError = ERROR_SUCCESS;
  /// The lists that files were given, "S:\Data: rights=0x10000000 mode=2 ... sid=PC7\svc": the path and each
  /// field of the only entry.
  std::vector<std::string> applied;
  /// The buffer sizes in bytes that CreateWellKnownSid was given.
  std::vector<DWORD> wellKnownSizes;

 private:
  /// Returns the name of an identifier's owner; "nobody" if there is none.
  std::string OwnerOf(const void* sid);
  /// Describes each field of an entry.
  std::string Describe(const EXPLICIT_ACCESS_W& entry);

  Rig& rig_;
  Accounts& accounts_;
  std::map<const ACL*, std::string> entries_;
};

}  // namespace rig
