#include "security/firewall.h"

#include "base/heap.h"
#include "base/os_version.h"
#include "base/text.h"

namespace {

// Identifiers of the firewall, which are in no import library.
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

// The major version of the first Windows that has rules.
constexpr uint32_t kFirstMajorWithRules = 6;

// The offsets of the texts after a rule's first one, its name.
constexpr int kGroupText = 1;
constexpr int kDescriptionText = 2;

// The reference to a program's text is made in a buffer of twice the length of the path and this many bytes.
constexpr size_t kTextSlack = 128;

// The exception that the caller wants.
struct Exception {
  const FirewallSession& firewall;
  const wchar_t* path;
  const wchar_t* name;
  int base;
  LONG protocol;
};

HRESULT Create(const CLSID& classId, const IID& interfaceId, void** object) {
  return CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, interfaceId, object);
}

bool IsEmpty(const SystemString& text) {
  return !text || !text.get()[0];
}

// Calls `put` of `object` with `text`, which it frees. Returns E_OUTOFMEMORY for an empty text. The method is
// called through IUnknown, the base of all interfaces, so that one copy of this function is enough.
using TextMethod = HRESULT (WINAPI IUnknown::*)(BSTR text);
HRESULT PutText(IUnknown* object, TextMethod put, BSTR text) {
  SystemString owner(text);
  return IsEmpty(owner) ? E_OUTOFMEMORY : (object->*put)(owner.get());
}
template <auto Put, typename Interface>
HRESULT PutText(Interface* object, BSTR text) {
  return PutText(object, static_cast<TextMethod>(Put), text);
}

// The two forms of an exception. Each has a collection, the items in it, and the steps that differ between
// the forms. The templates below them are written once for both.

// The form with rules of the policy.
struct RuleForm {
  using Collection = INetFwRules;
  using Item = INetFwRule;

  static HRESULT OpenCollection(const FirewallSession& firewall, Collection** collection) {
    return firewall.policy->get_Rules(collection);
  }
  // The text by which the exception is found; the caller frees it.
  static BSTR MakeKey(const Exception& wanted) {
    return BuildRuleString(wanted.path, wanted.name, wanted.base, 0);
  }
  static HRESULT CreateItem(void** item) { return Create(kRuleClass, kRuleId, item); }
  // Sets the program and the texts of the exception.
  static HRESULT Describe(const Exception& wanted, Item* rule) {
    return SetRuleProperties(rule, wanted.path, wanted.name, wanted.base);
  }
  static HRESULT GetProgram(Item* rule, BSTR* program) { return rule->get_ApplicationName(program); }
  // Sets what a new exception allows.
  static HRESULT Allow(const Exception& wanted, Item* rule) {
    // On purpose: only the result of the last call counts.
    rule->put_Direction(NET_FW_RULE_DIR_IN);
    rule->put_Action(NET_FW_ACTION_ALLOW);
    if (wanted.protocol) rule->put_Protocol(wanted.protocol);
    rule->put_Profiles(NET_FW_PROFILE2_ALL);
    return rule->put_Enabled(VARIANT_TRUE);
  }
};

// The form with authorised applications of the current profile.
struct ApplicationForm {
  using Collection = INetFwAuthorizedApplications;
  using Item = INetFwAuthorizedApplication;

  static HRESULT OpenCollection(const FirewallSession& firewall, Collection** collection) {
    return firewall.profile->get_AuthorizedApplications(collection);
  }
  // The text by which the exception is found; the caller frees it.
  static BSTR MakeKey(const Exception& wanted) { return SysAllocString(wanted.path); }
  static HRESULT CreateItem(void** item) { return Create(kApplicationClass, kApplicationId, item); }
  // Sets the program and the name of the exception.
  static HRESULT Describe(const Exception& wanted, Item* application) {
    return SetApplicationProperties(application, wanted.path, wanted.name);
  }
  static HRESULT GetProgram(Item* application, BSTR* program) {
    return application->get_ProcessImageFileName(program);
  }
  // Sets what a new exception allows.
  static HRESULT Allow(const Exception&, Item* application) {
    // On purpose: the result is ignored.
    application->put_Scope(NET_FW_SCOPE_ALL);
    return S_OK;
  }
};

// Returns true if `program` is the wanted one, spelled exactly the same.
bool IsWantedProgram(const Exception& wanted, BSTR program) {
  return program && CompareStringW(LOCALE_SYSTEM_DEFAULT, 0, program, -1, wanted.path, -1) == CSTR_EQUAL;
}

template <typename Form>
HRESULT OpenCollection(const Exception& wanted, ComPtr<typename Form::Collection>* collection) {
  HRESULT result = Form::OpenCollection(wanted.firewall, collection->put());
  // S_OK with a null collection is a failure.
  return collection->keep(result) && !*collection ? E_FAIL : result;
}

template <typename Form>
bool IsForProgram(const Exception& wanted, typename Form::Item* item) {
  SystemString program;
  HRESULT result = Form::GetProgram(item, program.put());
  return program.keep(SUCCEEDED(result)) && IsWantedProgram(wanted, program.get());
}

// Looks for an enabled exception; rewrites an existing one for another program. Returns a failure if the
// collection or the key is not available.
template <typename Form>
HRESULT FindEnabled(const Exception& wanted, bool* isThere) {
  *isThere = false;
  ComPtr<typename Form::Collection> collection;
  HRESULT result = OpenCollection<Form>(wanted, &collection);
  if (FAILED(result)) return result;
  SystemString key(Form::MakeKey(wanted));
  if (IsEmpty(key)) return E_OUTOFMEMORY;
  ComPtr<typename Form::Item> item;
  if (!item.keep(collection->Item(key.get(), item.put())) || !item) return S_OK;
  if (!IsForProgram<Form>(wanted, item.get())) Form::Describe(wanted, item.get());
  VARIANT_BOOL isEnabled;
  *isThere = SUCCEEDED(item->get_Enabled(&isEnabled)) && isEnabled;
  return S_OK;
}

template <typename Form>
HRESULT AddNew(const Exception& wanted) {
  ComPtr<typename Form::Collection> collection;
  HRESULT result = OpenCollection<Form>(wanted, &collection);
  if (FAILED(result)) return result;
  ComPtr<typename Form::Item> item;
  result = Form::CreateItem(item.putVoid());
  if (item.keep(result)) result = Form::Describe(wanted, item.get());
  if (SUCCEEDED(result)) result = Form::Allow(wanted, item.get());
  return SUCCEEDED(result) ? collection->Add(item.get()) : result;
}

template <typename Form>
HRESULT AddUnlessThere(const Exception& wanted) {
  bool isThere;
  HRESULT result = FindEnabled<Form>(wanted, &isThere);
  return FAILED(result) || isThere ? result : AddNew<Form>(wanted);
}

template <typename Form>
int Remove(const Exception& wanted) {
  ComPtr<typename Form::Collection> collection;
  if (FAILED(OpenCollection<Form>(wanted, &collection))) return kFirewallNoCollection;
  SystemString key(Form::MakeKey(wanted));
  if (IsEmpty(key)) return kFirewallNoKey;
  // On purpose: the result is ignored. An exception that does not exist need not be removed.
  collection->Remove(key.get());
  return 0;
}

// Opens the current profile; false on failure.
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
  return session->IsComplex() ? AddUnlessThere<RuleForm>(wanted) : AddUnlessThere<ApplicationForm>(wanted);
}

int RemoveFirewallRule(FirewallSession* session, const wchar_t* path, const wchar_t* name, int base) {
  if (!session) return kFirewallNoCollection;
  const Exception wanted = {*session, path, name, base, 0};
  return session->IsComplex() ? Remove<RuleForm>(wanted) : Remove<ApplicationForm>(wanted);
}

BSTR BuildRuleString(const wchar_t* path, const wchar_t* name, int base, int offset) {
  if (!base) return name && name[0] ? SysAllocString(name) : nullptr;
  HeapStringW text(static_cast<wchar_t*>(HeapAllocZero(2 * TxtLenW(path) + kTextSlack)));
  if (!text) return nullptr;
  // On purpose: a text that wsprintfW cuts, at 1,024 characters, is used nevertheless.
  wsprintfW(text.get(), L"@%s,-%d", path, base + offset);
  return SysAllocString(text.get());
}

HRESULT SetRuleProperties(INetFwRule* rule, const wchar_t* path, const wchar_t* name, int base) {
  HRESULT result = PutText<&INetFwRule::put_ApplicationName>(rule, SysAllocString(path));
  if (FAILED(result)) return result;
  result = PutText<&INetFwRule::put_Name>(rule, BuildRuleString(path, name, base, 0));
  if (FAILED(result)) return result;
  // On purpose: failures to set the group and the description are ignored. The rule works without them.
  PutText<&INetFwRule::put_Grouping>(rule, BuildRuleString(path, name, base, kGroupText));
  if (base) PutText<&INetFwRule::put_Description>(rule, BuildRuleString(path, name, base, kDescriptionText));
  return result;
}

HRESULT SetApplicationProperties(INetFwAuthorizedApplication* application, const wchar_t* path,
                                 const wchar_t* name) {
  HRESULT result =
      PutText<&INetFwAuthorizedApplication::put_ProcessImageFileName>(application, SysAllocString(path));
  if (FAILED(result)) return result;
  return PutText<&INetFwAuthorizedApplication::put_Name>(application, SysAllocString(name));
}

bool IsFirewallOff(FirewallSession* session) {
  VARIANT_BOOL isOn;
  HRESULT result = session->IsComplex() ? session->policy->get_FirewallEnabled(NET_FW_PROFILE2_ALL, &isOn)
                                        : session->profile->get_FirewallEnabled(&isOn);
  return SUCCEEDED(result) && !isOn;
}
