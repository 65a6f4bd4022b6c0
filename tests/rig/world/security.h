// Access lists, the configuration of services and the setup library in memory. A part of a world that its
// tests attach themselves.
#pragma once

#include <windows.h>

// Behind windows.h, on which it builds.
#include <aclapi.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "rig/world/accounts.h"
#include "rig/world/service_handles.h"

namespace rig {

/// The configuration of one service, as a test arranges it and finds it afterwards. Text is 8-bit, as the
/// functions give it.
struct ServiceSettings {
  std::optional<std::string> account = "LocalSystem";  ///< Whom it runs under; none for a null name.

  DWORD resetPeriod = 86400;                              ///< Seconds until failures are forgotten.
  std::optional<std::string> rebootMessage = "Good bye";  ///< What users are told; none for null.
  std::optional<std::string> command = "mend.exe /now";   ///< What is run; none for null.
  /// What is done about the first failure, the second, and so on; at first nothing.
  std::vector<SC_ACTION> actions;
  /// What ChangeServiceConfig2A was given, each field of it, "level=2 reset=0xffffffff ..."; the list of
  /// actions is "kept" when it is the one that the query handed out.
  std::vector<std::string> changes;

  DWORD openError = ERROR_SUCCESS;  ///< What opening it fails with.
  /// What asking for the size of its configuration fails with; ERROR_SUCCESS lets it succeed.
  DWORD sizingError = ERROR_INSUFFICIENT_BUFFER;
  DWORD queryError = ERROR_SUCCESS;   ///< What asking for its configuration fails with.
  DWORD changeError = ERROR_SUCCESS;  ///< What changing it fails with.
  DWORD demand = 0;                   ///< The size in bytes that is told instead of the true one, unless 0.
};

/// The machine as the library's actions around an installed service meet it, in one world: make one in
/// Arrange, where it attaches itself. Look-ups of accounts are those of `accounts`. Files are not looked up:
/// a path is spelled as it is given. Stricter than Windows where its promise leaves room: a configuration
/// fills its block to the byte, texts begin right behind the records, and a block that is too small is filled
/// with rubbish.
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
  /// The services.
  std::map<std::string, ServiceSettings, IgnoreCase> services;
  /// What opening the service manager fails with.
  DWORD managerError = ERROR_SUCCESS;

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
  /// Makes those of services.
  void AnswerServices();
  /// Answers QueryServiceConfigA.
  BOOL QueryAccount(SC_HANDLE handle, BYTE* block, DWORD size, DWORD* needed);
  /// Answers QueryServiceConfig2A.
  BOOL QueryFailureActions(SC_HANDLE handle, DWORD level, BYTE* block, DWORD size, DWORD* needed);
  /// Answers ChangeServiceConfig2A.
  BOOL Change(SC_HANDLE handle, DWORD level, const void* information);
  /// The name of an identifier's owner; "nobody" when there is none.
  std::string OwnerOf(const void* sid);
  /// Each field of an entry.
  std::string Describe(const EXPLICIT_ACCESS_W& entry);

  World& world_;
  ServiceHandles<ServiceSettings> handles_;
  std::map<const ACL*, std::string> entries_;
  const SC_ACTION* handedOut_ = nullptr;
};

}  // namespace rig
