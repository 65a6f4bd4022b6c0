// The accounts of this computer and of domains, in memory: network management, the policy of rights,
// lookups. Part of the world.
#pragma once

#include <windows.h>

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rig/ignore_case.h"
#include "rig/secrets.h"
#include "rig/world/sessions.h"

namespace rig {

/// An account as the library created it.
struct Account {
  std::string password;  ///< As text; a secret shows as the mark.
  std::string fullName;  ///< As text.
  std::string record;    ///< Every field of the record that created it; for local accounts only.
};

/// Accounts of a computer or of a domain, by name.
using AccountMap = std::map<std::string, Account, IgnoreCase>;

/// A domain.
struct Domain {
  std::string controller;  ///< The name of its controller; empty if no controller answers.
  AccountMap accounts;     ///< Its users.
};

/// The accounts of this computer and of its domains. All text is UTF-8. Where Windows allows several
/// outcomes, this part returns the strictest. A network buffer ends with the last byte that it needs. A
/// lookup that fails first fills the given buffers with rubbish. The rest of a buffer after a name is
/// rubbish.
class Accounts {
 public:
  /// Creates the part of the world that belongs to this rig; `sessions` is the part that opens tokens.
  Accounts(Rig& rig, const Sessions& sessions);
  Accounts(const Accounts&) = delete;
  Accounts& operator=(const Accounts&) = delete;
  /// Routes the functions of this part here.
  void Install();

  /// Makes the function ("NetUserAdd") fail with `code`. The code is the result if the function returns its
  /// error, otherwise the last error.
  void Refuse(const std::string& function, DWORD code) { refused_[function] = code; }
  /// Returns the code that `function` fails with; 0 if it does not fail.
  DWORD RefusalOf(const std::string& function) const;

  /// The bytes of a GUID, in memory order.
  using Chance = std::array<BYTE, 16>;
  /// The GUIDs that CoCreateGuid returns, in order; one call more fails the test. Initially one GUID, whose
  /// password has characters of all classes.
  std::deque<Chance> chances;
  /// The password that results from that GUID; no trace shows it.
  static constexpr char kPassword[] = "aBAA0CAA!DAAvAAA9AAA";

  std::string computer = "PC7";                       ///< The name of this computer.
  std::string workgroup = "CORP";                     ///< Its domain or workgroup; "\1" for a null name.
  AccountMap users;                                   ///< The accounts of this computer.
  std::map<std::string, Domain, IgnoreCase> domains;  ///< The domains; initially CORP, with a controller.
  std::string processUser = "PC7\\installer";         ///< The account that the process runs under.

  /// Buffer sizes that LookupAccountNameW asks for before it answers: bytes of the identifier and characters
  /// of the domain. It asks even if the buffers are large enough.
  std::deque<std::pair<DWORD, DWORD>> demands;
  /// The buffer sizes that LookupAccountNameW was given, in order.
  std::vector<std::pair<DWORD, DWORD>> rooms;
  /// The rights that were granted, "PC7\svc SeServiceLogonRight (38 of 40)" with the lengths in bytes.
  std::vector<std::string> rights;

  /// Returns the identifier of an account ("PC7\svc"), the same each time.
  std::vector<BYTE> SidOf(const std::string& account);

 private:
  /// Answers the functions that add, query and delete users, and CoCreateGuid.
  void InstallUsers();
  /// Answers the functions of domains.
  void InstallNetwork();
  /// Answers lookups.
  void InstallLookUps();
  /// Answers the functions of the rights policy.
  void InstallPolicy();
  /// Answers queries for the process's user.
  void InstallUserOfProcess();
  /// Answers NetUserAdd.
  DWORD Add(DWORD level, const BYTE* buffer);
  /// Answers LookupAccountNameW.
  BOOL LookUp(const std::string& system, const std::string& name, void* sid, DWORD* sidSize, wchar_t* domain,
              DWORD* domainSize);
  /// Returns the account ("PC7\svc") that a name means on a computer; empty if there is none.
  std::string Resolve(const std::string& system, const std::string& name) const;
  /// Answers LookupAccountSidW.
  BOOL LookUpSid(const void* sid, wchar_t* name, DWORD* nameSize, wchar_t* domain, DWORD* domainSize);
  /// Returns the account of an identifier; empty if there is none.
  std::string OwnerOf(const void* sid) const;
  /// Answers GetComputerNameW.
  BOOL TellComputer(wchar_t* buffer, DWORD* size, DWORD tooSmall);

  Rig& rig_;
  const Sessions& sessions_;
  std::optional<Secret> secret_;  // from Install on
  std::map<std::string, DWORD> refused_;
  std::map<std::string, std::vector<BYTE>, IgnoreCase> sids_;
  std::map<void*, DWORD> policies_;
  uintptr_t nextHandle_ = 0xACC0010;
};

/// Allocates a network buffer of exactly `size` bytes, which NetApiBufferFree frees.
void* MakeNetworkBuffer(size_t size);
/// Returns the quoted text, or "null".
std::string TextOrNull(const wchar_t* text);

}  // namespace rig
