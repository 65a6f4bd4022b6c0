// Shared by the tests of the server's security: a session of Wine's installer engine in this process, access
// lists as text, accounts of this computer and the service "Vantor". Used by
// tests/install/security_*_test.cpp.
#pragma once

#include "install/server_rig.h"
#include "machine/state.h"

namespace install {

/// The server package with a witness, which logs the results of the actions.
const Package& WatchedServer();

/// A session of the installer with the server package, in this process, in which the library's actions can be
/// called one by one. Only one may exist at a time. The actions change this computer. This engine keeps an
/// account for the process that created it, so the account is visible here.
class Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Set(const std::string& property, const std::string& value);
  std::string Get(const std::string& property) const;
  /// Runs an action, which must return 0. Returns the lines that the library logs meanwhile, without their
  /// prefix, and its notices after "Notice: ".
  std::vector<std::string> Run(const char* action);

 private:
  HMODULE library_ = nullptr;
  unsigned long session_ = 0;
};

/// Returns `text` as a line of the library's log.
std::string SetupLine(const std::string& text);

using machine::AccessTo;
/// Sets the access list of a folder to `list`, in the notation of AccessTo, with nothing added.
void SetAccess(const std::wstring& path, const std::string& list);

/// The name of this process's user, and of this computer.
std::string UserName();
std::string ComputerName();

/// True if this computer has an account of this name.
bool HasAccount(const std::wstring& name);

/// The key in which the section of the package's INF file writes a value.
extern const char kEventSourceKey[];

/// Creates the service "Vantor" for a program, under an account, as another installer would.
void MakeServer(const std::wstring& program, const std::wstring& account);
/// Returns the account that the service "Vantor" runs under, according to the service manager; empty without
/// a service.
std::optional<std::string> ServerAccount();
/// Gives the service "Vantor" another account, as an administrator would.
void SetServerAccount(const std::string& account);

/// The key of the server's packages; and the account that an installation has noted there, after its domain,
/// or "(none)" without such values.
extern const char kVantorKey[];
std::string NotedAccount();

/// Tests that begin and end without a server and its service.
class SecurityTest : public ServerTest {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace install
