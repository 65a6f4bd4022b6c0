// The Windows Firewall: exceptions for programs. Used by the actions that add and remove them.
//
// A newer system has rules, one for each protocol, whose texts stand in the program's own string table
// ("complex"); an older one has a list of authorised applications in the current profile ("simple").
#pragma once

#include <windows.h>
// Behind windows.h, on which it builds.
#include <netfw.h>

#include "base/com_owners.h"

/// The firewall, opened in one of the two ways.
struct FirewallSession {
  ComPtr<INetFwPolicy2> policy;   ///< the rules' policy; empty on an older system
  ComPtr<INetFwProfile> profile;  ///< the current profile; empty on a newer system

  /// Whether exceptions are rules.
  bool IsComplex() const { return static_cast<bool>(policy); }
};

/// The numbers of a program's strings: the first for the name of a rule, the next for its group, the next for
/// its description.
enum RuleTexts : int {
  kNoRuleTexts = 0,      ///< a simple exception, which carries its name itself
  kTcpRuleTexts = 1000,  ///< a rule for TCP
  kUdpRuleTexts = 1010   ///< a rule for UDP
};

/// The rules cannot be had.
constexpr int kFirewallNoCollection = -1;
/// The exception has no name to be found by.
constexpr int kFirewallNoKey = -2;

extern "C" {

/// Opens the firewall. COM must have been started. The caller gives the session to CloseFirewall. Null when
/// the firewall is not to be had or memory lacks.
FirewallSession* OpenFirewall();

/// Closes a session; null is ignored.
void CloseFirewall(FirewallSession* session);

/// Adds an exception for `path`, unless there is an enabled one: a rule with the texts from `base` on and for
/// the IP protocol `protocol` (0: none is set), or a simple exception `name`. One that is there for another
/// program is rewritten first; a disabled one stays as it is beside the new one. 0 or a success code, or the
/// HRESULT of what failed; E_OUTOFMEMORY also for no session and for empty texts, E_FAIL for exceptions that
/// the firewall does not hand out.
HRESULT AddFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base,
                        LONG protocol);

/// Removes the exception that AddFirewallRule makes for the same arguments. 0, also when there was none, or
/// kFirewallNoCollection, or kFirewallNoKey.
int RemoveFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base);

/// The text number `base` + `offset` of the program's string table, as the firewall takes it; with a `base`
/// of 0 the name, or null when that is empty. Null also when memory lacks; a text of more than 1,024
/// characters is cut. The caller frees it with SysFreeString (or holds it in a SystemString).
BSTR BuildRuleString(const wchar_t* path, const wchar_t* name, int base, int offset);

/// Sets what a rule is for: program, name, group, and with a `base` that is not 0 its description. The result
/// of setting the name, or that of what failed before; E_OUTOFMEMORY for empty texts.
HRESULT SetRuleProperties(INetFwRule* rule, const wchar_t* path, const wchar_t* name, int base);

/// The same for a simple exception: program and name.
HRESULT SetApplicationProperties(INetFwAuthorizedApplication* application, const wchar_t* path,
                                 const wchar_t* name);

/// Whether the firewall says that it is off; a question that fails is no such answer.
bool IsFirewallOff(FirewallSession* session);

}  // extern "C"
