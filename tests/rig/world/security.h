// Access lists and the setup library in memory. A part of a world that its tests attach themselves.
#pragma once

#include <windows.h>

// Behind windows.h, on which it builds.
#include <aclapi.h>

#include <map>
#include <string>
#include <vector>

#include "rig/world/accounts.h"

namespace rig {

/// The machine as the library's actions around an installed service meet it, in one world: make one in
/// Arrange, where it attaches itself. Look-ups of accounts are those of `accounts`. Files are not looked up:
/// a path is spelled as it is given.
class Security {
 public:
  /// Answers for this world, which lives longer.
  explicit Security(World& world);
  Security(const Security&) = delete;
  Security& operator=(const Security&) = delete;

  /// Tells the ledger what the library keeps on purpose: the modules that it loaded, and what a function that
  /// is missing was to free.
  static void NameKept(Rig& rig);

  /// Who is who.
  Accounts accounts;
  /// What SetEntriesInAclW fails with.
  DWORD entriesError = ERROR_SUCCESS;
  /// What SetNamedSecurityInfoW fails with.
  DWORD applyError = ERROR_SUCCESS;
  /// The lists that files were given, "S:\Data: rights=0x10000000 mode=2 ... sid=PC7\svc": the path and each
  /// field of the only entry.
  std::vector<std::string> lists;
  /// The rooms in bytes that CreateWellKnownSid was given.
  std::vector<DWORD> wellKnownRooms;
  /// The command lines that InstallHinfSectionA was given.
  std::vector<std::string> sections;

 private:
  /// Makes the functions of access lists.
  void AnswerLists();
  /// The name of an identifier's owner; "nobody" when there is none.
  std::string OwnerOf(const void* sid);
  /// Each field of an entry.
  std::string Describe(const EXPLICIT_ACCESS_W& entry);

  World& world_;
  std::map<const ACL*, std::string> entries_;
};

}  // namespace rig
