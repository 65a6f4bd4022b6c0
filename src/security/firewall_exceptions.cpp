// Firewall exceptions for the programs that PROP_FIREWALLDATA lists: NAME["@"SELECTOR]"/"PATH, separated by
// ";". The selector is "tcp", "udp" or "all", in any case; "all" is the default.
//
// CustomAction5   adds the exceptions: rules for the protocols of the selector or, on an older system, an
//                 authorised application. Shows notice 25000 if the firewall rejects an exception, unless the
//                 firewall is off or its service is not running. On an older system, shows notice 25001 if
//                 the current profile ignores authorised applications or does not say whether it does. Reads
//                 PROP_SILENCE and ProductName for the notices.
// CustomAction19  removes the exceptions.
//
// Both log what they do and always return 0. They do not log a failure to start COM or to remove an
// exception.

#include "base/com_owners.h"
#include "base/heap.h"
#include "base/text.h"
#include "frame/com_start.h"
#include "frame/notice.h"
#include "frame/session.h"
#include "security/firewall.h"

namespace {

constexpr INSTALLMESSAGE kWarning = static_cast<INSTALLMESSAGE>(INSTALLMESSAGE_WARNING | MB_ICONWARNING);

constexpr Notice kNotCustomized = {
    25000, kWarning,
    "The installer was unable to customize the built-in Windows Firewall exception "
    "list.\n\nConsult the Hx documentation for firewall setup details.",
    MB_OK | MB_ICONEXCLAMATION, NoticeTitle::kReusedCount};
// On purpose: "The the". The text is kept as its readers know it.
constexpr Notice kExceptionsIgnored = {
    25001, kWarning,
    "The the built-in Windows Firewall is currently configured to ignore its "
    "exception list.\n\nTo enable the custom exception, use the Windows Firewall "
    "control panel to Uncheck \"Don't allow exceptions\".",
    MB_OK | MB_ICONEXCLAMATION, NoticeTitle::kReusedCount};

// The result of a call to the firewall if its service is not running.
constexpr HRESULT kServiceNotRunning = static_cast<HRESULT>(0x800706D9);

// The rule for one protocol, and the selector that asks for it.
struct ProtocolRule {
  const wchar_t* selector;
  RuleTexts texts;
  LONG protocol;
  const char* failure;
};
constexpr wchar_t kAllProtocols[] = L"all";
constexpr ProtocolRule kTcpRule = {L"tcp", kTcpRuleTexts, NET_FW_IP_PROTOCOL_TCP,
                                   "failure %ld (0x%08lX) modifying firewall for TCP"};
constexpr ProtocolRule kUdpRule = {L"udp", kUdpRuleTexts, NET_FW_IP_PROTOCOL_UDP,
                                   "failure %ld (0x%08lX) modifying firewall for UDP"};

// One program of the list; the texts point into the property's value.
struct FirewallEntry {
  const wchar_t* name;
  const wchar_t* selector;
  const wchar_t* path;

  bool Means(const ProtocolRule& rule) const {
    return TxtCompareIW(selector, rule.selector) == 0 || TxtCompareIW(selector, kAllProtocols) == 0;
  }
};

// Takes the next program from the list at `*rest`. Returns false at the end of the list, and if no path
// follows.
bool TakeEntry(wchar_t** rest, FirewallEntry* entry) {
  wchar_t* text = *rest;
  if (!*text) return false;
  // On purpose: the "/" before the path is searched for in the whole rest of the list. The name of an entry
  // without a path extends to the "/" of the next entry.
  wchar_t* path = TxtCutW(text, L'/');
  if (!path) return false;
  entry->name = text;
  const wchar_t* selector = TxtCutW(text, L'@');
  entry->selector = selector ? selector : kAllProtocols;
  entry->path = path;
  wchar_t* behind = TxtCutW(path, L';');
  *rest = behind ? behind : path + TxtLenW(path);
  return true;
}

// Calls `job` for each program of the list, with COM started for it. Stops if COM's library is not loaded;
// skips a program for which COM cannot be started.
void ForEachEntry(MSIHANDLE session, void (*job)(MSIHANDLE session, const FirewallEntry& entry)) {
  HeapStringW list(ReadPropertyW(session, L"PROP_FIREWALLDATA"));
  if (!list) return;
  wchar_t* rest = list.get();
  for (FirewallEntry entry; TakeEntry(&rest, &entry);) {
    HRESULT started;
    if (!StartCom(&started)) return;
    ComScope com(started);
    if (com.IsUsable()) job(session, entry);
  }
}

// Opens the firewall and closes it at the end of the scope.
struct OpenedFirewall {
  FirewallSession* session = OpenFirewall();

  OpenedFirewall() = default;
  OpenedFirewall(const OpenedFirewall&) = delete;
  OpenedFirewall& operator=(const OpenedFirewall&) = delete;
  ~OpenedFirewall() { CloseFirewall(session); }
};

// Shows the user a failure. If the firewall is off or its service is not running, only logs that, because
// nothing blocks the program then.
void ReportFailure(MSIHANDLE session, FirewallSession* firewall, HRESULT failure) {
  if (IsFirewallOff(firewall) || failure == kServiceNotRunning) {
    LogSetupMessage(session, "it seems that the Firewall is disabled");
  } else {
    SendNotice(session, &kNotCustomized);
  }
}

void AddApplication(MSIHANDLE session, FirewallSession* firewall, const FirewallEntry& entry) {
  LogSetupMessage(session, "installing simple firewall rule");
  HRESULT result = AddFirewallRule(firewall, entry.path, entry.name, kNoRuleTexts, 0);
  if (FAILED(result)) {
    LogSetupMessage(session, "failure %ld (0x%08lX) modifying firewall", result, result);
    ReportFailure(session, firewall, result);
    return;
  }
  VARIANT_BOOL areIgnored;
  if (FAILED(firewall->profile->get_ExceptionsNotAllowed(&areIgnored)) || areIgnored) {
    SendNotice(session, &kExceptionsIgnored);
  }
}

// Adds the rule. Returns the result of the firewall; logs it if it is a failure.
HRESULT AddRule(MSIHANDLE session, FirewallSession* firewall, const FirewallEntry& entry,
                const ProtocolRule& rule) {
  HRESULT result = AddFirewallRule(firewall, entry.path, entry.name, rule.texts, rule.protocol);
  if (FAILED(result)) LogSetupMessage(session, rule.failure, result, result);
  return result;
}

void AddRules(MSIHANDLE session, FirewallSession* firewall, const FirewallEntry& entry) {
  LogSetupMessage(session, "installing complex firewall rules");
  HRESULT result = S_OK;
  if (entry.Means(kTcpRule)) result = AddRule(session, firewall, entry, kTcpRule);
  // On purpose: if both rules are wanted, only a failure of the second is shown to the user.
  if (entry.Means(kUdpRule)) result = AddRule(session, firewall, entry, kUdpRule);
  if (FAILED(result)) ReportFailure(session, firewall, result);
}

void AddException(MSIHANDLE session, const FirewallEntry& entry) {
  OpenedFirewall firewall;
  if (!firewall.session) {
    LogSetupMessage(session, "failure opening firewall");
  } else if (firewall.session->IsComplex()) {
    AddRules(session, firewall.session, entry);
  } else {
    AddApplication(session, firewall.session, entry);
  }
}

void RemoveException(MSIHANDLE session, const FirewallEntry& entry) {
  OpenedFirewall firewall;
  if (!firewall.session) {
    LogSetupMessage(session, "failure initializing firewall");
  } else if (firewall.session->IsComplex()) {
    LogSetupMessage(session, "removing complex firewall rules");
    RemoveFirewallRule(firewall.session, entry.path, entry.name, kTcpRuleTexts);
    RemoveFirewallRule(firewall.session, entry.path, entry.name, kUdpRuleTexts);
  } else {
    LogSetupMessage(session, "removing simple firewall rule");
    RemoveFirewallRule(firewall.session, entry.path, entry.name, kNoRuleTexts);
  }
}

}  // namespace

extern "C" UINT WINAPI CustomAction5(MSIHANDLE session) {
  ForEachEntry(session, AddException);
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction19(MSIHANDLE session) {
  ForEachEntry(session, RemoveException);
  return ERROR_SUCCESS;
}
