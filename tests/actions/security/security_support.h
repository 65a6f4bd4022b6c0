// What the tests of access lists, of a service's configuration and of the setup library share: their world,
// and the traces of what the actions often do. Used by the tests folder_access_*, service_access,
// failure_actions and inf_section beside it.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "actions/expected_calls.h"
#include "rig/action_test.h"

namespace security_test {

using expected::Quoted;

/// The calls that a test expects, with the numbers of what they take.
class Calls : public expected::CallList<Calls> {
 public:
  /// Begins as the actions do: asks whether the installer rolls back.
  Calls() { Add("MsiGetMode(session, 17) = 0"); }

  /// Makes a path of this text, which has no names but the last one that may be short.
  Calls& MakePath(const std::string& path);
  /// Asks for this computer's name.
  Calls& AskComputer() { return Add("GetComputerNameExW(0, *, *) = 1"); }
  /// Looks a name up on a computer: "null" or the quoted name, as the trace shows it.
  Calls& LookUp(const std::string& computer, const std::string& name, const std::string& result = "1");
  /// Makes a list of one entry and gives it to a path.
  Calls& SetList(const std::string& path);
  /// Opens the service manager, and a service with this access.
  Calls& OpenService(const std::string& name, const std::string& access);
  /// Closes both.
  Calls& CloseService();

 private:
  int lists_ = 0;
};

/// A test of these actions. The computer is PC7; it has the account "svc", the domain CORP has another one of
/// that name, and the domain BRANCH has no controller.
class SecurityTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override;
  void TearDown() override;

  /// The access lists of this world.
  rig::AccessLists& Lists() { return TheWorld().accessLists; }
  /// The accounts of this world.
  rig::Accounts& Accounts() { return TheWorld().accounts; }

  /// Says what the action keeps on purpose: the modules that it loaded, and what it could not free because
  /// the function for it is missing.
  static void NameKept(rig::Rig& rig);
  /// Runs the action once per call with that call failing; see FailEachCall.
  size_t SweepAction(int number, const std::function<void(rig::World&)>& arrange,
                     const std::function<void(const rig::SweepRun&)>& check);
  /// Sets CustomActionData.
  void SetData(const std::string& data) { Installer().Set("CustomActionData", data); }
  /// Ends this run, with all its checks, and begins another one in a fresh world.
  void NewScene();
};

/// The calls of CustomAction25 up to the look-up of the account; `given` is the text before the "*".
Calls BeginFullControl(const std::string& account, const std::string& given,
                       const std::string& path = "S:\\Data");
/// The same for an account that is spelled as in the data.
Calls BeginFullControl(const std::string& account);
/// The list of a path whose only entry gives rights, "0x10000000", to an account; inherited by
/// default.
std::string ListOf(const std::string& path, const std::string& rights, const std::string& account);

}  // namespace security_test
