// The firewall's exceptions for the package's programs, which PROP_FIREWALLDATA lists:
// NAME["@"SELECTOR]"/"PATH, with ";" between them. The selector is "tcp", "udp" or "all" (as without one), in
// any case.
//
// CustomAction5   adds them: rules for the protocols that the selector means or, on an older system, an
//                 authorised application. Notice 25000 when the firewall refuses and is on; 25001 when the
//                 current profile ignores authorised applications or does not say whether it does. Reads
//                 PROP_SILENCE and ProductName for the notices.
// CustomAction19  removes them.
//
// Both say in the log what they do and what fails, and return 0 in every outcome.

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
// The doubled word is deliberate: the text is the one that its readers know.
constexpr Notice kExceptionsIgnored = {
    25001, kWarning,
    "The the built-in Windows Firewall is currently configured to ignore its "
    "exception list.\n\nTo enable the custom exception, use the Windows Firewall "
    "control panel to Uncheck \"Don't allow exceptions\".",
    MB_OK | MB_ICONEXCLAMATION, NoticeTitle::kReusedCount};

// What a call to the firewall gives where its service does not run.
constexpr HRESULT kServiceNotRunning = static_cast<HRESULT>(0x800706D9);

// The rules of an exception, and the selectors that mean them.
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

// One program of the list; the texts are stretches of the property's.
struct FirewallEntry {
  const wchar_t* name;
  const wchar_t* selector;
  const wchar_t* path;

  bool Means(const ProtocolRule& rule) const {
    return TxtCompareIW(selector, rule.selector) == 0 || TxtCompareIW(selector, kAllProtocols) == 0;
  }
};

// Takes the next program off the list at `*rest`. False at its end, and where no path follows. The look for
// the path runs over the whole rest, on purpose: an entry without one takes in what stands before the next
// one's.
bool TakeEntry(wchar_t** rest, FirewallEntry* entry) {
  wchar_t* text = *rest;
  if (!*text) return false;
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

// Does `job` to each program of the list, with COM started for it. Where COM is not to be had, the rest of
// the list is left alone.
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

// The firewall for the length of a scope.
struct OpenedFirewall {
  FirewallSession* session = OpenFirewall();

  OpenedFirewall() = default;
  OpenedFirewall(const OpenedFirewall&) = delete;
  OpenedFirewall& operator=(const OpenedFirewall&) = delete;
  ~OpenedFirewall() { CloseFirewall(session); }
};

// Tells the user of a failure, unless the firewall is off: then nothing is in the program's way.
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

// Adds the rule. The result of the firewall, which the log has when it is a failure.
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
  // Deliberate: where both rules are wanted, only what comes of the second is reported to the user.
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
