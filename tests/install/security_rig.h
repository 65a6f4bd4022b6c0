// What the tests of the server's security share: a session of Wine's installer engine in this process, access
// lists as text, accounts of this computer and the service "Vantor". Used by
// tests/install/security_*_test.cpp.
#pragma once

#include "install/server_rig.h"

namespace install {

/// The server package with the witness in it, which says in the log what the actions have left.
const Package& WatchedServer();

/// A session of the installer with the server package, in this process, in which the library's actions can be
/// called one by one. There is one at a time. What they do to this computer is real; this engine keeps an
/// account for the process that made it, so here it can be looked at.
class Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Set(const std::string& property, const std::string& value);
  std::string Get(const std::string& property) const;
  /// Runs an action, which must return 0. The lines that the library logs meanwhile, without their mark, and
  /// its notices behind "Notice: ".
  std::vector<std::string> Run(const char* action);

 private:
  HMODULE library_ = nullptr;
  unsigned long session_ = 0;
};

/// A line as the library logs it.
std::string SetupLine(const std::string& text);

/// The access list of a file or folder as the system writes such lists; the user of this process is "USER" in
/// it. "(unreadable)" where it cannot be had.
std::string AccessTo(const std::wstring& path);
/// Makes `list`, written in the same way, the access list of a folder, with nothing added to it.
void SetAccess(const std::wstring& path, const std::string& list);

/// The name of this process's user, and of this computer.
std::string UserName();
std::string ComputerName();

/// Whether this computer has an account.
bool HasAccount(const std::wstring& name);

/// The key that the section of the package's INF file writes a value of.
extern const char kEventSourceKey[];

/// Makes the service "Vantor" of a program under an account, as another installer would.
void MakeServer(const std::wstring& program, const std::wstring& account);
/// The account that the service "Vantor" runs under, as the service manager says; nothing without a service.
std::optional<std::string> ServerAccount();
/// Gives the service "Vantor" another account, as an administrator would.
void SetServerAccount(const std::string& account);

/// The key of the server's packages, and the account that an installation has noted there, with its domain
/// before it;
/// "(none)" without such values.
extern const char kVantorKey[];
std::string NotedAccount();

/// Tests that begin and end without a server and its service.
class SecurityTest : public ServerTest {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace install
