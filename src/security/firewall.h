// Exceptions of the Windows Firewall for programs. Used by the actions that add and remove them.
//
// From version 6 on, Windows has rules, one for each protocol, whose texts are in the program's string table
// ("complex"). Older systems have a list of authorised applications in the current profile ("simple").
#pragma once

#include <windows.h>
// Needs windows.h first.
#include <netfw.h>

#include "base/com_owners.h"

/// The firewall, opened in one of the two ways.
struct FirewallSession {
  ComPtr<INetFwPolicy2> policy;   ///< the policy with the rules; null on an older system or if not available
  ComPtr<INetFwProfile> profile;  ///< the current profile; null if `policy` is not

  /// Returns true if exceptions are rules.
  bool IsComplex() const { return static_cast<bool>(policy); }
};

/// The number of the first of a rule's three texts in the program's string table: the rule's name, then its
/// group, then its description.
enum RuleTexts : int {
  kNoRuleTexts = 0,      ///< a simple exception, which has its own name
  kTcpRuleTexts = 1000,  ///< a rule for TCP
  kUdpRuleTexts = 1010   ///< a rule for UDP
};

/// The exceptions are not available.
constexpr int kFirewallNoCollection = -1;
/// The key of the exception is empty or could not be made.
constexpr int kFirewallNoKey = -2;

extern "C" {

/// Opens the firewall; COM must have been started. Returns a session, which the caller passes to
/// CloseFirewall; null if the firewall is not available or out of memory.
FirewallSession* OpenFirewall();

/// Closes a session; null is ignored.
void CloseFirewall(FirewallSession* session);

/// Adds an exception for the program `path` unless an enabled one exists. A rule has the texts from `base` on
/// and the IP protocol `protocol` (0: not set); a simple exception has the name `name`. An existing exception
/// of the same key for another program is first rewritten for this one. A disabled one stays disabled, and
/// the new exception is added as well. Returns a success code or the HRESULT of the failure. Returns
/// E_OUTOFMEMORY also for a null session and for empty texts, E_FAIL if the firewall succeeds but returns no
/// collection of exceptions.
HRESULT AddFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base,
                        LONG protocol);

/// Removes the exception that AddFirewallRule adds for the same arguments. Returns 0, also if there was none;
/// kFirewallNoCollection, also for a null session; or kFirewallNoKey.
int RemoveFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base);

/// Makes the text that refers the firewall to string `base` + `offset` of the program's string table. With a
/// `base` of 0 it is `name`, or null if that is null or empty. Cuts a reference at 1,024 characters. The
/// caller frees the string with SysFreeString (or holds it in a SystemString). Returns null also if out of
/// memory.
BSTR BuildRuleString(const wchar_t* path, const wchar_t* name, int base, int offset);

/// Sets the program, the name and the group of a rule, and with a `base` other than 0 its description.
/// Returns the result of the first failure among program and name, otherwise that of setting the name.
/// Failures to set group and description are ignored. Returns E_OUTOFMEMORY for an empty program or name.
HRESULT SetRuleProperties(INetFwRule* rule, const wchar_t* path, const wchar_t* name, int base);

/// Sets the program and the name of a simple exception. Returns the result of the first failure, otherwise
/// that of setting the name; E_OUTOFMEMORY for an empty program or name.
HRESULT SetApplicationProperties(INetFwAuthorizedApplication* application, const wchar_t* path,
                                 const wchar_t* name);

/// Returns true if the firewall reports that it is off; false also if it cannot be asked.
bool IsFirewallOff(FirewallSession* session);

}  // extern "C"
