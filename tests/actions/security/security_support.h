// What the tests of access lists, of the configuration of services and of the setup library share: their
// world, and the calls that the actions often make. Used by the tests folder_access_*, service_access,
// failure_actions and inf_section in this folder.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "actions/expected_calls.h"
#include "rig/action_test.h"

namespace security_test {

using expected::Quoted;

/// The calls that a test expects, with the numbers of the handles in them.
class Calls : public expected::CallList<Calls> {
 public:
  /// Starts as the actions do: asks whether the installer is rolling back.
  Calls() { Add("MsiGetMode(session, 17) = 0"); }

  /// Makes a path of this text. Only its last name may be a short one.
  Calls& MakePath(const std::string& path);
  /// Gets the name of this computer.
  Calls& AskComputer() { return Add("GetComputerNameExW(0, *, *) = 1"); }
  /// Looks up a name on a computer, which is "null" or the quoted name, as in the trace.
  Calls& LookUp(const std::string& computer, const std::string& name, const std::string& result = "1");
  /// Makes a list of one entry and sets it on a path.
  Calls& SetList(const std::string& path);
  /// Opens the service manager, and a service with this access.
  Calls& OpenService(const std::string& name, const std::string& access);
  /// Closes both.
  Calls& CloseService();

 private:
  int lists_ = 0;
};

/// A test of these actions. The computer is PC7 and has the account "svc". The domain CORP has another
/// account of that name, and the domain BRANCH has no controller.
class SecurityTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override;
  void TearDown() override;

  /// Returns the access lists of this world.
  rig::AccessLists& Lists() { return TheWorld().accessLists; }
  /// Returns the accounts of this world.
  rig::Accounts& Accounts() { return TheWorld().accounts; }

  /// Declares what the action keeps on purpose: the modules that it loaded, and what it could not free
  /// because the function for that is missing.
  static void NameKept(rig::Rig& rig);
  /// Runs the action once for each call, with that call failing; see FailEachCall.
  size_t SweepAction(int number, const std::function<void(rig::World&)>& arrange,
                     const std::function<void(const rig::SweepRun&)>& check);
  /// Sets CustomActionData.
  void SetData(const std::string& data) { Installer().Set("CustomActionData", data); }
  /// Ends this run with all its checks, and begins another one in a new world.
  void NewScene();
};

/// Returns the calls of CustomAction25 up to the look-up of the account; `given` is the text before the "*".
Calls BeginFullControl(const std::string& account, const std::string& given,
                       const std::string& path = "S:\\Data");
/// The same, for an account that is spelled as in the data.
Calls BeginFullControl(const std::string& account);
/// Returns the list of a path whose only entry gives `rights`, for example "0x10000000", to an account.
/// Sub-folders and files inherit the entry.
std::string ListOf(const std::string& path, const std::string& rights, const std::string& account);

}  // namespace security_test
