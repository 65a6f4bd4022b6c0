// The Windows Firewall in memory, through its newer and its older interfaces. Part of the world.
#pragma once

#include <windows.h>
// Must come after windows.h.
#include <netfw.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rig/com.h"

namespace rig {

/// One rule, as a test arranges it and inspects it afterwards. A fresh object has the default numbers.
struct FirewallRule {
  std::string name;              ///< Its name; Item and Remove find it by its exact name.
  std::string program;           ///< The program that it applies to; if empty, all, and its text is null.
  bool enabled = false;          ///< True if it is in force.
  std::string grouping = "";     ///< Its group.
  std::string description = "";  ///< Its description.
  LONG protocol = 256;           ///< The IP protocol; 256 for any.
  LONG direction = 0;            ///< 1 for inbound.
  LONG action = 0;               ///< 1 for allow.
  LONG profiles = 0;             ///< The profiles that it applies to.
  bool operator==(const FirewallRule&) const = default;
};

/// One authorised application, as a test arranges it and inspects it afterwards.
struct AuthorizedApplication {
  std::string name;     ///< The name shown in the list.
  std::string program;  ///< The program, by which it is found, ignoring case.
  bool enabled = true;  ///< True if it is in force.
  LONG scope = -1;      ///< The addresses that may reach it; -1 if not set.
  bool operator==(const AuthorizedApplication&) const = default;
};

/// The firewall, initially without exceptions. The objects are fakes, whose calls are in the trace. The
/// newer interfaces have "policy", "rules", "rule" (a new one) and "found" (an existing one). The older ones
/// have "manager", "localpolicy", "profile", "applications", "application" and "foundapplication". Only what
/// the library needs is implemented. Each text must be a system string that the library holds.
class Firewall {
 public:
  /// Creates the part of the world that belongs to this rig.
  Firewall(Rig& rig, Com& com) : rig_(rig), com_(com) {}
  Firewall(const Firewall&) = delete;
  Firewall& operator=(const Firewall&) = delete;
  /// Creates the objects of both interfaces.
  void Install();

  /// Makes every call of the method ("rules.Add") return `error` and do nothing.
  void FailMethod(const std::string& method, HRESULT error) { failing_[method] = error; }
  /// Makes the call of this number, from 1, return `error` and do nothing.
  void FailCall(const std::string& method, int number, HRESULT error) {
    failingCalls_[{method, number}] = error;
  }
  /// Makes the methods that return this object succeed with null.
  void Withhold(const std::string& object) { withheld_.insert(object); }
  /// Stops the firewall's service: every call that needs it returns kNotRunning.
  void StopService() { isRunning_ = false; }

  /// The result of a call while the service does not run.
  static constexpr HRESULT kNotRunning = static_cast<HRESULT>(0x800706D9);
  /// The result of looking for an exception that does not exist.
  static constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80070002);

  /// The rules, in order; of two rules with the same name the first is found.
  std::vector<FirewallRule> rules;
  /// The authorised applications of the current profile.
  std::vector<AuthorizedApplication> applications;
  /// True if the firewall is on.
  bool enabled = true;
  /// True if the current profile ignores its exceptions.
  bool ignoresExceptions = false;

 private:
  /// Gives `fake` a method that `answer` answers, unless a test makes it fail.
  template <auto Member, class Interface, class Answer>
  Declaration& Add(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// Gives `fake` a method that returns `result`.
  template <auto Member, class Interface>
  void HandOut(FakeObject<Interface>& fake, const char* name, FakeBase& result);
  /// Gives `fake` a method that sets a text of `target`.
  template <auto Member, class Interface>
  void SetText(FakeObject<Interface>& fake, const char* name, std::string* target);
  /// Gives `fake` a method that sets the number `target`.
  template <auto Member, class Interface>
  void SetNumber(FakeObject<Interface>& fake, const char* name, LONG* target);
  /// Gives `fake` a method that returns a truth value, which `answer` computes.
  template <auto Member, class Interface, class Answer>
  void Tell(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// Returns the error of this call of the method, or S_OK.
  HRESULT FailureOf(const std::string& method);
  /// Stores `fake` unless it is withheld.
  void Give(FakeBase& fake, void* out);
  /// Returns the text as UTF-8; fails the test if it is not a system string that the library holds.
  std::string TextOf(BSTR text) const;

  /// Creates the policy and the rules.
  void InstallRules();
  /// Implements the new rule and the existing one.
  void InstallRule(FakeObject<INetFwRule>& rule, FakeObject<INetFwRule>& found);
  /// Creates the manager and the profile.
  void InstallProfile();
  /// Implements the list of applications, the new one and the existing one.
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
