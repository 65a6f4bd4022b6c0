#include "security/firewall.h"

#include "base/heap.h"
#include "base/os_version.h"
#include "base/text.h"

namespace {

// Identifiers of the firewall, which no import library holds.
constexpr CLSID kPolicyClass = {0xE2B3C97F, 0x6AE1, 0x41AC, {0x81, 0x7A, 0xF6, 0xF9, 0x21, 0x66, 0xD7, 0xDD}};
constexpr IID kPolicyId = {0x98325047, 0xC671, 0x4174, {0x8D, 0x81, 0xDE, 0xFC, 0xD3, 0xF0, 0x31, 0x86}};
constexpr CLSID kManagerClass = {
    0x304CE942, 0x6E39, 0x40D8, {0x94, 0x3A, 0xB9, 0x13, 0xC4, 0x0C, 0x9C, 0xD4}};
constexpr IID kManagerId = {0xF7898AF5, 0xCAC4, 0x4632, {0xA2, 0xEC, 0xDA, 0x06, 0xE5, 0x11, 0x1A, 0xF2}};
constexpr CLSID kRuleClass = {0x2C5BC43E, 0x3369, 0x4C33, {0xAB, 0x0C, 0xBE, 0x94, 0x69, 0x67, 0x7A, 0xF4}};
constexpr IID kRuleId = {0xAF230D27, 0xBABA, 0x4E42, {0xAC, 0xED, 0xF5, 0x24, 0xF2, 0x2C, 0xFC, 0xE2}};
constexpr CLSID kApplicationClass = {
    0xEC9846B3, 0x2762, 0x4A6B, {0xA2, 0x14, 0x6A, 0xCB, 0x60, 0x34, 0x62, 0xD2}};
constexpr IID kApplicationId = {0xB5E64FFA, 0xC2C5, 0x444E, {0xA3, 0x01, 0xFB, 0x5E, 0x00, 0x01, 0x80, 0x50}};

// The first system that has rules.
constexpr uint32_t kFirstMajorWithRules = 6;

// What stands behind a rule's first text.
constexpr int kGroupText = 1;
constexpr int kDescriptionText = 2;

// A program's text is put together in a buffer of twice its path's length and this, in bytes.
constexpr size_t kTextSlack = 128;

// One exception as the caller wants it.
struct Exception {
  const FirewallSession& firewall;
  const wchar_t* path;
  const wchar_t* name;
  int base;
  LONG protocol;

  bool IsRule() const { return firewall.IsComplex(); }
};

// A collection of exceptions, or one of them, in the form that the session takes: rules, or authorised
// applications. Both are gone through in the same steps.
using ComObject = ComPtr<IDispatch>;

INetFwRules* AsRules(const ComObject& object) {
  return static_cast<INetFwRules*>(object.get());
}
INetFwRule* AsRule(const ComObject& object) {
  return static_cast<INetFwRule*>(object.get());
}
INetFwAuthorizedApplications* AsApplications(const ComObject& object) {
  return static_cast<INetFwAuthorizedApplications*>(object.get());
}
INetFwAuthorizedApplication* AsApplication(const ComObject& object) {
  return static_cast<INetFwAuthorizedApplication*>(object.get());
}
template <typename Interface>
Interface** PutAs(ComObject* object) {
  return reinterpret_cast<Interface**>(object->put());
}

HRESULT Create(const CLSID& classId, const IID& interfaceId, void** object) {
  return CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, interfaceId, object);
}

bool IsEmpty(const SystemString& text) {
  return !text || !text.get()[0];
}

// Calls `put` of `object` with `text`, which it frees. E_OUTOFMEMORY for an empty text. Out of line for its
// size.
template <typename Interface>
[[gnu::noinline]] HRESULT PutText(Interface* object, HRESULT (WINAPI Interface::*put)(BSTR), BSTR text) {
  SystemString owner(text);
  return IsEmpty(owner) ? E_OUTOFMEMORY : (object->*put)(owner.get());
}

HRESULT OpenCollection(const Exception& wanted, ComObject* collection) {
  HRESULT result = wanted.IsRule() ? wanted.firewall.policy->get_Rules(PutAs<INetFwRules>(collection))
                                   : wanted.firewall.profile->get_AuthorizedApplications(
                                         PutAs<INetFwAuthorizedApplications>(collection));
  // A success without a collection is none.
  return collection->keep(result) && !*collection ? E_FAIL : result;
}

// The text by which the exception is found; the caller frees it.
BSTR MakeKey(const Exception& wanted) {
  return wanted.IsRule() ? BuildRuleString(wanted.path, wanted.name, wanted.base, 0)
                         : SysAllocString(wanted.path);
}

HRESULT Describe(const Exception& wanted, const ComObject& item) {
  return wanted.IsRule() ? SetRuleProperties(AsRule(item), wanted.path, wanted.name, wanted.base)
                         : SetApplicationProperties(AsApplication(item), wanted.path, wanted.name);
}

// Whether the exception is for the program, in this very spelling.
bool IsForProgram(const Exception& wanted, const ComObject& item) {
  SystemString program;
  HRESULT result = wanted.IsRule() ? AsRule(item)->get_ApplicationName(program.put())
                                   : AsApplication(item)->get_ProcessImageFileName(program.put());
  return program.keep(SUCCEEDED(result)) && program &&
         CompareStringW(LOCALE_SYSTEM_DEFAULT, 0, program.get(), -1, wanted.path, -1) == CSTR_EQUAL;
}

// Whether an enabled exception is there already; one for another program becomes one for this. The result
// says whether that could be found out.
HRESULT FindEnabled(const Exception& wanted, bool* isThere) {
  *isThere = false;
  ComObject collection;
  HRESULT result = OpenCollection(wanted, &collection);
  if (FAILED(result)) return result;
  SystemString key(MakeKey(wanted));
  if (IsEmpty(key)) return E_OUTOFMEMORY;
  ComObject item;
  result = wanted.IsRule()
               ? AsRules(collection)->Item(key.get(), PutAs<INetFwRule>(&item))
               : AsApplications(collection)->Item(key.get(), PutAs<INetFwAuthorizedApplication>(&item));
  if (!item.keep(result) || !item) return S_OK;
  if (!IsForProgram(wanted, item)) Describe(wanted, item);
  VARIANT_BOOL isEnabled;
  result =
      wanted.IsRule() ? AsRule(item)->get_Enabled(&isEnabled) : AsApplication(item)->get_Enabled(&isEnabled);
  *isThere = SUCCEEDED(result) && isEnabled;
  return S_OK;
}

HRESULT AddNew(const Exception& wanted) {
  ComObject collection;
  HRESULT result = OpenCollection(wanted, &collection);
  if (FAILED(result)) return result;
  ComObject item;
  result = wanted.IsRule() ? Create(kRuleClass, kRuleId, item.putVoid())
                           : Create(kApplicationClass, kApplicationId, item.putVoid());
  if (item.keep(result)) result = Describe(wanted, item);
  if (FAILED(result)) return result;
  // Deliberate: of the settings only a rule's last one is looked at.
  if (!wanted.IsRule()) {
    AsApplication(item)->put_Scope(NET_FW_SCOPE_ALL);
    return AsApplications(collection)->Add(AsApplication(item));
  }
  INetFwRule* rule = AsRule(item);
  rule->put_Direction(NET_FW_RULE_DIR_IN);
  rule->put_Action(NET_FW_ACTION_ALLOW);
  if (wanted.protocol) rule->put_Protocol(wanted.protocol);
  rule->put_Profiles(NET_FW_PROFILE2_ALL);
  result = rule->put_Enabled(VARIANT_TRUE);
  return SUCCEEDED(result) ? AsRules(collection)->Add(rule) : result;
}

// Opens the current profile. False, and `profile` stays empty, when there is none.
bool OpenProfile(ComPtr<INetFwProfile>* profile) {
  ComPtr<INetFwMgr> manager;
  if (!manager.keep(Create(kManagerClass, kManagerId, manager.putVoid()))) return false;
  ComPtr<INetFwPolicy> policy;
  if (!policy.keep(manager->get_LocalPolicy(policy.put())) || !policy) return false;
  return profile->keep(policy->get_CurrentProfile(profile->put())) && *profile;
}

}  // namespace

FirewallSession* OpenFirewall() {
  auto* session = HeapNew<FirewallSession>();
  if (!session) return nullptr;
  if (IsVersionAtLeast(kFirstMajorWithRules, 0)) {
    session->policy.keep(Create(kPolicyClass, kPolicyId, session->policy.putVoid()));
  }
  if (session->policy || OpenProfile(&session->profile)) return session;
  CloseFirewall(session);
  return nullptr;
}

void CloseFirewall(FirewallSession* session) {
  HeapDelete(session);
}

HRESULT AddFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base,
                        LONG protocol) {
  if (!session) return E_OUTOFMEMORY;
  const Exception wanted = {*session, path, name, base, protocol};
  bool isThere;
  HRESULT result = FindEnabled(wanted, &isThere);
  return FAILED(result) || isThere ? result : AddNew(wanted);
}

int RemoveFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base) {
  if (!session) return kFirewallNoCollection;
  const Exception wanted = {*session, path, name, base, 0};
  ComObject collection;
  if (FAILED(OpenCollection(wanted, &collection))) return kFirewallNoCollection;
  SystemString key(MakeKey(wanted));
  if (IsEmpty(key)) return kFirewallNoKey;
  // The result is ignored on purpose: what is not there need not be removed.
  if (wanted.IsRule()) {
    AsRules(collection)->Remove(key.get());
  } else {
    AsApplications(collection)->Remove(key.get());
  }
  return 0;
}

BSTR BuildRuleString(const wchar_t* path, const wchar_t* name, int base, int offset) {
  if (!base) return name && name[0] ? SysAllocString(name) : nullptr;
  HeapStringW text(static_cast<wchar_t*>(HeapAllocZero(2 * TxtLenW(path) + kTextSlack)));
  if (!text) return nullptr;
  // Deliberate: what wsprintfW cuts, at 1,024 characters, stays cut.
  wsprintfW(text.get(), L"@%s,-%d", path, base + offset);
  return SysAllocString(text.get());
}

HRESULT SetRuleProperties(INetFwRule* rule, const wchar_t* path, const wchar_t* name, int base) {
  HRESULT result = PutText(rule, &INetFwRule::put_ApplicationName, SysAllocString(path));
  if (FAILED(result)) return result;
  result = PutText(rule, &INetFwRule::put_Name, BuildRuleString(path, name, base, 0));
  if (FAILED(result)) return result;
  // Deliberate: a rule without group and description is one all the same.
  PutText(rule, &INetFwRule::put_Grouping, BuildRuleString(path, name, base, kGroupText));
  if (base) PutText(rule, &INetFwRule::put_Description, BuildRuleString(path, name, base, kDescriptionText));
  return result;
}

HRESULT SetApplicationProperties(INetFwAuthorizedApplication* application, const wchar_t* path,
                                 const wchar_t* name) {
  HRESULT result =
      PutText(application, &INetFwAuthorizedApplication::put_ProcessImageFileName, SysAllocString(path));
  if (FAILED(result)) return result;
  return PutText(application, &INetFwAuthorizedApplication::put_Name, SysAllocString(name));
}

bool IsFirewallOff(FirewallSession* session) {
  VARIANT_BOOL isOn;
  HRESULT result = session->IsComplex() ? session->policy->get_FirewallEnabled(NET_FW_PROFILE2_ALL, &isOn)
                                        : session->profile->get_FirewallEnabled(&isOn);
  return SUCCEEDED(result) && !isOn;
}
