// What the tests of the service account share: a world with accounts and a directory, and the calls that the
// two actions often make. Used by the tests service_account_* in this folder.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "actions/expected_calls.h"
#include "rig/action_test.h"

namespace service_account_test {

/// The calls that a test expects, with the numbers of the handles in them.
class Calls : public expected::CallList<Calls> {
 public:
  /// Sets a property.
  Calls& Set(const std::string& name, const std::string& value);
  /// Asks for the workgroup; the answer is the buffer of this number.
  Calls& AskWorkgroup(int buffer);
  /// Opens the container of CORP.
  Calls& OpenContainer();
  /// Translates CORP\svc into a distinguished name.
  Calls& Translate();
  /// Gets the service principal names of a class, and adds them to the account (operation 0) or removes them
  /// (2).
  Calls& UpdateNames(const std::string& serviceClass, int operation);
  /// Grants the right; `controller` is as in the trace.
  Calls& Grant(const std::string& controller);
  /// Shows the notice of this number.
  Calls& Notice(int number);
  /// Logs that there is no account: the end of a failed creation.
  Calls& NoAccount();
  /// Asks for the account of the service "Vantor"; the answer is this ASCII text.
  Calls& AskService(const std::string& account);
  /// Asks for the account of the service "Vantor", which does not exist.
  Calls& LackService();
};

/// A test of CustomAction23 or CustomAction24. The computer is PC7, in the domain CORP.
class ServiceAccountTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override;
  void TearDown() override;

  /// Returns the accounts of this world.
  rig::Accounts& Accounts() { return TheWorld().accounts; }
  /// Returns the directory of this world.
  rig::Directory& Directory() { return TheWorld().directory; }
  /// Makes the service "Vantor" run under this account; a null name means none. Creates the service if it
  /// does not exist.
  void SetService(const std::optional<std::string>& account);
  /// Makes the function fail with `code`, as Accounts::Refuse does. Also takes a function of the service
  /// manager, which then fails for the service "Vantor".
  void RefuseCall(const std::string& function, DWORD code);
  /// Returns the accounts of CORP.
  rig::AccountMap& DomainUsers() { return Accounts().domains.at("CORP").accounts; }

  /// Runs the action once for each call, with that call failing; see FailEachCall.
  size_t SweepAction(int number, const std::function<void(rig::World&)>& arrange,
                     const std::function<void(const rig::SweepRun&)>& check);
  /// Ends this run with all its checks, and begins another one in a new world.
  void NewScene();
  /// Declares that the modules that the action loaded are kept on purpose.
  static void NameKept(rig::Rig& rig);
  /// Declares that a failing creation of a user keeps its objects on purpose, and that nothing can free what
  /// has no function for that.
  static void NameLost(rig::Rig& rig);
  /// Returns the properties PROP_ACCOUNTNAME, ...PASS and ...DOMAIN in one line.
  static std::string Published(const rig::World& world);
  /// Returns the same of this test's world.
  std::string Published() { return Published(TheWorld()); }
};

/// Returns the size in bytes of a service's configuration with this account, in ASCII; a null account means
/// none.
size_t ConfigurationSize(const std::optional<std::string>& account);

/// What Published returns without an account.
inline constexpr char kNoAccount[] = "||";

}  // namespace service_account_test
