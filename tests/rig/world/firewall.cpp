#include "rig/world/firewall.h"

#include <algorithm>

#include "rig/print.h"

namespace rig {
namespace {

// True if two program paths differ at most in case.
bool IsSameProgram(const std::string& a, const std::string& b) {
  std::wstring wideA = ToWide(a);
  std::wstring wideB = ToWide(b);
  return CompareStringOrdinal(wideA.c_str(), -1, wideB.c_str(), -1, TRUE) == CSTR_EQUAL;
}

VARIANT_BOOL AsVariant(bool value) {
  return value ? VARIANT_TRUE : VARIANT_FALSE;
}

}  // namespace

HRESULT Firewall::FailureOf(const std::string& method) {
  int number = ++calls_[method];
  if (auto call = failingCalls_.find({method, number}); call != failingCalls_.end()) {
    return call->second;
  }
  if (auto failing = failing_.find(method); failing != failing_.end()) {
    return failing->second;
  }
  // Methods of an object that is not yet in the firewall need no service.
  bool needsService = method.rfind("rule.", 0) != 0 && method.rfind("application.", 0) != 0 &&
                      method.rfind("manager.", 0) != 0 && method.rfind("localpolicy.", 0) != 0;
  return needsService && !isRunning_ ? kNotRunning : S_OK;
}

std::string Firewall::TextOf(BSTR text) const {
  if (!rig_.ledger.Holds(kSystemString, ToWord(text))) {
    Fail("a text of the firewall is not a system string of the library");
  }
  return text == nullptr ? "" : ToUtf8(text);
}

void Firewall::Give(FakeBase& fake, void* out) {
  if (withheld_.count(fake.Name()) == 0) {
    fake.Give(out);
  }
}

template <auto Member, class Interface, class Answer>
Declaration& Firewall::Add(FakeObject<Interface>& fake, const char* name, Answer answer) {
  std::string method = fake.Name() + "." + name;
  return fake.template On<Member>([this, method, answer](auto... arguments) -> HRESULT {
    HRESULT failure = FailureOf(method);
    return failure != S_OK ? failure : answer(arguments...);
  });
}

template <auto Member, class Interface>
void Firewall::HandOut(FakeObject<Interface>& fake, const char* name, FakeBase& result) {
  Add<Member>(fake, name, [this, &result](auto** out) {
    Give(result, out);
    return S_OK;
  }).HandsOut(Arg<0>);
}

template <auto Member, class Interface>
void Firewall::SetText(FakeObject<Interface>& fake, const char* name, std::string* target) {
  Add<Member>(fake, name, [this, target](BSTR text) {
    *target = TextOf(text);
    return S_OK;
  });
}

template <auto Member, class Interface>
void Firewall::SetNumber(FakeObject<Interface>& fake, const char* name, LONG* target) {
  Add<Member>(fake, name, [target](auto number) {
    *target = static_cast<LONG>(number);
    return S_OK;
  });
}

template <auto Member, class Interface, class Answer>
void Firewall::Tell(FakeObject<Interface>& fake, const char* name, Answer answer) {
  Add<Member>(fake, name, [answer](VARIANT_BOOL* out) {
    *out = AsVariant(answer());
    return S_OK;
  });
}

void Firewall::Install() {
  InstallRules();
  InstallProfile();
}

void Firewall::InstallRules() {
  auto& policy = com_.Make<INetFwPolicy2>("policy");
  auto& list = com_.Make<INetFwRules>("rules");
  auto& rule = com_.Make<INetFwRule>("rule");
  auto& found = com_.Make<INetFwRule>("found");
  com_.Register(__uuidof(NetFwPolicy2), policy);
  com_.Register(__uuidof(NetFwRule), rule);
  // The library gets the list before it creates a rule, so getting the list starts a new rule.
  Add<&INetFwPolicy2::get_Rules>(policy, "get_Rules", [this, &list](INetFwRules** out) {
    newRule_ = {};
    Give(list, out);
    return S_OK;
  }).HandsOut(Arg<0>);
  Add<&INetFwPolicy2::get_FirewallEnabled>(policy, "get_FirewallEnabled",
                                           [this](NET_FW_PROFILE_TYPE2, VARIANT_BOOL* out) {
                                             *out = AsVariant(enabled);
                                             return S_OK;
                                           });
  Add<&INetFwRules::Item>(list, "Item", [this, &found](BSTR name, INetFwRule** out) {
    auto place = std::find_if(rules.begin(), rules.end(),
                              [text = TextOf(name)](const FirewallRule& one) { return one.name == text; });
    if (place == rules.end()) {
      return kNotFound;
    }
    foundRule_ = static_cast<size_t>(place - rules.begin());
    Give(found, out);
    return HRESULT{S_OK};
  }).HandsOut(Arg<1>);
  Add<&INetFwRules::Add>(list, "Add", [this, &rule](INetFwRule* one) {
    if (one != rule.Get()) {
      return E_INVALIDARG;
    }
    rules.push_back(newRule_);
    return HRESULT{S_OK};
  });
  Add<&INetFwRules::Remove>(list, "Remove", [this](BSTR name) {
    auto place = std::find_if(rules.begin(), rules.end(),
                              [text = TextOf(name)](const FirewallRule& one) { return one.name == text; });
    if (place == rules.end()) {
      return kNotFound;
    }
    rules.erase(place);
    return HRESULT{S_OK};
  });
  InstallRule(rule, found);
}

void Firewall::InstallRule(FakeObject<INetFwRule>& rule, FakeObject<INetFwRule>& found) {
  SetText<&INetFwRule::put_ApplicationName>(rule, "put_ApplicationName", &newRule_.program);
  SetText<&INetFwRule::put_Name>(rule, "put_Name", &newRule_.name);
  SetText<&INetFwRule::put_Grouping>(rule, "put_Grouping", &newRule_.grouping);
  SetText<&INetFwRule::put_Description>(rule, "put_Description", &newRule_.description);
  SetNumber<&INetFwRule::put_Direction>(rule, "put_Direction", &newRule_.direction);
  SetNumber<&INetFwRule::put_Action>(rule, "put_Action", &newRule_.action);
  SetNumber<&INetFwRule::put_Protocol>(rule, "put_Protocol", &newRule_.protocol);
  SetNumber<&INetFwRule::put_Profiles>(rule, "put_Profiles", &newRule_.profiles);
  Add<&INetFwRule::put_Enabled>(rule, "put_Enabled", [this](VARIANT_BOOL value) {
    newRule_.enabled = value != VARIANT_FALSE;
    return S_OK;
  });

  Add<&INetFwRule::get_ApplicationName>(found, "get_ApplicationName", [this](BSTR* out) {
    const std::string& program = rules[foundRule_].program;
    *out = program.empty() ? nullptr : com_.GiveString(ToWide(program));
    return S_OK;
  }).HandsOut(Arg<0>);
  Tell<&INetFwRule::get_Enabled>(found, "get_Enabled", [this] { return rules[foundRule_].enabled; });
  Add<&INetFwRule::put_ApplicationName>(found, "put_ApplicationName", [this](BSTR text) {
    rules[foundRule_].program = TextOf(text);
    return S_OK;
  });
  Add<&INetFwRule::put_Name>(found, "put_Name", [this](BSTR text) {
    rules[foundRule_].name = TextOf(text);
    return S_OK;
  });
  Add<&INetFwRule::put_Grouping>(found, "put_Grouping", [this](BSTR text) {
    rules[foundRule_].grouping = TextOf(text);
    return S_OK;
  });
  Add<&INetFwRule::put_Description>(found, "put_Description", [this](BSTR text) {
    rules[foundRule_].description = TextOf(text);
    return S_OK;
  });
}

void Firewall::InstallProfile() {
  auto& manager = com_.Make<INetFwMgr>("manager");
  auto& policy = com_.Make<INetFwPolicy>("localpolicy");
  auto& profile = com_.Make<INetFwProfile>("profile");
  auto& list = com_.Make<INetFwAuthorizedApplications>("applications");
  com_.Register(__uuidof(NetFwMgr), manager);
  HandOut<&INetFwMgr::get_LocalPolicy>(manager, "get_LocalPolicy", policy);
  HandOut<&INetFwPolicy::get_CurrentProfile>(policy, "get_CurrentProfile", profile);
  Add<&INetFwProfile::get_AuthorizedApplications>(profile, "get_AuthorizedApplications",
                                                  [this, &list](INetFwAuthorizedApplications** out) {
                                                    newApplication_ = {};
                                                    Give(list, out);
                                                    return S_OK;
                                                  })
      .HandsOut(Arg<0>);
  Tell<&INetFwProfile::get_FirewallEnabled>(profile, "get_FirewallEnabled", [this] { return enabled; });
  Tell<&INetFwProfile::get_ExceptionsNotAllowed>(profile, "get_ExceptionsNotAllowed",
                                                 [this] { return ignoresExceptions; });
  InstallApplications(list);
}

void Firewall::InstallApplications(FakeObject<INetFwAuthorizedApplications>& list) {
  auto& application = com_.Make<INetFwAuthorizedApplication>("application");
  auto& found = com_.Make<INetFwAuthorizedApplication>("foundapplication");
  com_.Register(__uuidof(NetFwAuthorizedApplication), application);
  auto find = [this](BSTR program) {
    return std::find_if(applications.begin(), applications.end(),
                        [text = TextOf(program)](const AuthorizedApplication& one) {
                          return IsSameProgram(one.program, text);
                        });
  };
  Add<&INetFwAuthorizedApplications::Item>(
      list, "Item",
      [this, find, &found](BSTR program, INetFwAuthorizedApplication** out) {
        auto place = find(program);
        if (place == applications.end()) {
          return kNotFound;
        }
        foundApplication_ = static_cast<size_t>(place - applications.begin());
        Give(found, out);
        return HRESULT{S_OK};
      })
      .HandsOut(Arg<1>);
  Add<&INetFwAuthorizedApplications::Add>(list, "Add",
                                          [this, &application](INetFwAuthorizedApplication* one) {
                                            if (one != application.Get()) {
                                              return E_INVALIDARG;
                                            }
                                            applications.push_back(newApplication_);
                                            return HRESULT{S_OK};
                                          });
  Add<&INetFwAuthorizedApplications::Remove>(list, "Remove", [this, find](BSTR program) {
    auto place = find(program);
    if (place == applications.end()) {
      return kNotFound;
    }
    applications.erase(place);
    return HRESULT{S_OK};
  });

  SetText<&INetFwAuthorizedApplication::put_ProcessImageFileName>(application, "put_ProcessImageFileName",
                                                                  &newApplication_.program);
  SetText<&INetFwAuthorizedApplication::put_Name>(application, "put_Name", &newApplication_.name);
  SetNumber<&INetFwAuthorizedApplication::put_Scope>(application, "put_Scope", &newApplication_.scope);
  Add<&INetFwAuthorizedApplication::get_ProcessImageFileName>(
      found, "get_ProcessImageFileName",
      [this](BSTR* out) {
        *out = com_.GiveString(ToWide(applications[foundApplication_].program));
        return S_OK;
      })
      .HandsOut(Arg<0>);
  Tell<&INetFwAuthorizedApplication::get_Enabled>(found, "get_Enabled",
                                                  [this] { return applications[foundApplication_].enabled; });
  Add<&INetFwAuthorizedApplication::put_ProcessImageFileName>(
      found, "put_ProcessImageFileName", [this](BSTR text) {
        applications[foundApplication_].program = TextOf(text);
        return S_OK;
      });
  Add<&INetFwAuthorizedApplication::put_Name>(found, "put_Name", [this](BSTR text) {
    applications[foundApplication_].name = TextOf(text);
    return S_OK;
  });
}

}  // namespace rig
