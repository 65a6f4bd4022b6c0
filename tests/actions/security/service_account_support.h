// What the tests of the service account share: a world with accounts and a directory, and the traces of what
// the two actions often do. Used by the tests service_account_* beside it.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "actions/expected_calls.h"
#include "rig/action_test.h"

namespace service_account_test {

/// The calls that a test expects, with the numbers of what they take.
class Calls : public expected::CallList<Calls> {
 public:
  /// Sets a property.
  Calls& Set(const std::string& name, const std::string& value);
  /// Asks for the workgroup, in the buffer of this number.
  Calls& AskWorkgroup(int buffer);
  /// Opens the container of CORP.
  Calls& OpenContainer();
  /// Translates CORP\svc into a distinguished name.
  Calls& Translate();
  /// Gets the names of a class, and adds them to the account (operation 0) or removes them (2).
  Calls& UpdateNames(const std::string& serviceClass, int operation);
  /// Grants the right; `controller` is that of the trace.
  Calls& Grant(const std::string& controller);
  /// Tells the user what the notice of this number says.
  Calls& Notice(int number);
  /// Logs that there is no account: the end of a creation that failed.
  Calls& NoAccount();
  /// Asks for the account of the service "Vantor", whose name is this ASCII text.
  Calls& AskService(const std::string& account);
  /// Asks for the account of the service "Vantor", which does not exist.
  Calls& LackService();
};

/// A test of CustomAction23 or CustomAction24. The computer is PC7, in the domain CORP.
class ServiceAccountTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override;
  void TearDown() override;

  /// The accounts of this world.
  rig::Accounts& Accounts() { return TheWorld().accounts; }
  /// The directory of this world.
  rig::Directory& Directory() { return TheWorld().directory; }
  /// Makes the service "Vantor" run under this account; none for a null name. Makes the service if it does
  /// not exist.
  void SetService(const std::optional<std::string>& account);
  /// The function fails with `code`, as Accounts::Refuse makes it fail; also a function of the service
  /// manager, then for the service "Vantor".
  void RefuseCall(const std::string& function, DWORD code);
  /// The account of this name in CORP.
  rig::AccountMap& DomainUsers() { return Accounts().domains.at("CORP").accounts; }

  /// Runs the action once per call with that call failing; see FailEachCall.
  size_t SweepAction(int number, const std::function<void(rig::World&)>& arrange,
                     const std::function<void(const rig::SweepRun&)>& check);
  /// Ends this run, with all its checks, and begins another one in a fresh world.
  void NewScene();
  /// Says that the modules that the action loaded are kept on purpose.
  static void NameKept(rig::Rig& rig);
  /// The same for what a failing creation of a user leaves unreleased, and for what nobody can free because
  /// the function for it is missing.
  static void NameLost(rig::Rig& rig);
  /// The properties PROP_ACCOUNTNAME, ...PASS and ...DOMAIN, in one line.
  static std::string Published(const rig::World& world);
  /// The same of this test's world.
  std::string Published() { return Published(TheWorld()); }
};

/// The size in bytes of the configuration of a service whose account has this name of ASCII; none for null.
size_t ConfigurationSize(const std::optional<std::string>& account);

/// What Published says without an account.
inline constexpr char kNoAccount[] = "||";

}  // namespace service_account_test
