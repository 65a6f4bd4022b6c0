// The Windows Firewall in memory, through its newer and its older interfaces. Part of a world.
#pragma once

#include <windows.h>
// After windows.h, on which it builds.
#include <netfw.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rig/com.h"

namespace rig {

/// One rule, as a test arranges it and finds it afterwards; the numbers are those of a fresh object.
struct FirewallRule {
  std::string name;              ///< Its name, by which it is found, letter by letter.
  std::string program;           ///< The program that it is for.
  bool enabled = false;          ///< It is in force.
  std::string grouping = "";     ///< Its group.
  std::string description = "";  ///< Its description.
  LONG protocol = 256;           ///< The IP protocol; 256 for any.
  LONG direction = 0;            ///< 1 for inbound.
  LONG action = 0;               ///< 1 for allow.
  LONG profiles = 0;             ///< The profiles that it is for.
  bool operator==(const FirewallRule&) const = default;
};

/// One authorised application, as a test arranges it and finds it afterwards.
struct AuthorizedApplication {
  std::string name;     ///< What the list shows.
  std::string program;  ///< The program, by which it is found, in any case.
  bool enabled = true;  ///< It is in force.
  LONG scope = -1;      ///< The addresses that may reach it; -1 if not set.
  bool operator==(const AuthorizedApplication&) const = default;
};

/// The firewall, at first without any exception. The objects are fakes; their calls are in the trace:
/// "policy", "rules", "rule" (a new one) and "found" (one that is there) of the newer interfaces; "manager",
/// "localpolicy", "profile", "applications", "application" and "foundapplication" of the older ones. Only
/// what the library needs is there. Each text must be a system string that the library holds.
class Firewall {
 public:
  /// The part of the world that belongs to this rig.
  Firewall(Rig& rig, Com& com) : rig_(rig), com_(com) {}
  Firewall(const Firewall&) = delete;
  Firewall& operator=(const Firewall&) = delete;
  /// Makes the objects of both interfaces.
  void Install();

  /// Every call of the method ("rules.Add") returns `error` and does nothing.
  void FailMethod(const std::string& method, HRESULT error) { failing_[method] = error; }
  /// The call of this number, from 1, returns `error` and does nothing.
  void FailCall(const std::string& method, int number, HRESULT error) {
    failingCalls_[{method, number}] = error;
  }
  /// A method that returns this object succeeds, but returns nothing.
  void Withhold(const std::string& object) { withheld_.insert(object); }
  /// The firewall's service does not run: every call that needs it returns kNotRunning.
  void StopService() { isRunning_ = false; }

  /// The result of a call while the service does not run.
  static constexpr HRESULT kNotRunning = static_cast<HRESULT>(0x800706D9);
  /// The result of looking for an exception that does not exist.
  static constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80070002);

  /// The rules, in order; of two with one name the first is found.
  std::vector<FirewallRule> rules;
  /// The authorised applications of the current profile.
  std::vector<AuthorizedApplication> applications;
  /// The firewall is on.
  bool enabled = true;
  /// The current profile ignores its exceptions.
  bool ignoresExceptions = false;

 private:
  /// Gives `fake` a method that answers as `answer` does, unless a test makes it fail.
  template <auto Member, class Interface, class Answer>
  Declaration& Add(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// Gives `fake` a method that returns `result`.
  template <auto Member, class Interface>
  void HandOut(FakeObject<Interface>& fake, const char* name, FakeBase& result);
  /// Gives `fake` a method that sets a text of `target`.
  template <auto Member, class Interface>
  void SetText(FakeObject<Interface>& fake, const char* name, std::string* target);
  /// Gives `fake` a method that sets a number.
  template <auto Member, class Interface>
  void SetNumber(FakeObject<Interface>& fake, const char* name, LONG* target);
  /// Gives `fake` a method that returns a truth value.
  template <auto Member, class Interface, class Answer>
  void Tell(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// The error of this call of the method, or S_OK.
  HRESULT FailureOf(const std::string& method);
  /// Stores `fake` unless it is withheld.
  void Give(FakeBase& fake, void* out);
  /// The text; fails the test if it is not a system string that the library holds.
  std::string TextOf(BSTR text) const;

  /// Makes the policy and the rules.
  void InstallRules();
  /// Makes the new rule and the one that is there.
  void InstallRule(FakeObject<INetFwRule>& rule, FakeObject<INetFwRule>& found);
  /// Makes the manager and the profile.
  void InstallProfile();
  /// Makes the list of applications, the new one and the one that is there.
  void InstallApplications(FakeObject<INetFwAuthorizedApplications>& list);

  Rig& rig_;
  Com& com_;
  std::map<std::string, HRESULT> failing_;
  std::map<std::pair<std::string, int>, HRESULT> failingCalls_;
  std::map<std::string, int> calls_;
  std::set<std::string> withheld_;
  bool isRunning_ = true;
  FirewallRule newRule_;
  size_t foundRule_ = 0;
  AuthorizedApplication newApplication_;
  size_t foundApplication_ = 0;
};

}  // namespace rig
