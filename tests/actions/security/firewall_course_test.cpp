// CustomAction5 and CustomAction19: every branch, with all its calls. A second description of the two
// actions, step by step, computes the expected calls.

#include <cstdio>
#include <optional>

#include "actions/security/firewall_support.h"

namespace firewall_course_test {

using firewall_test::Calls;
using firewall_test::kProgram;
using firewall_test::TextOf;

// An exception that exists before the action.
struct Found {
  const char* program;
  bool isEnabled;
};

// The situation in which the actions run.
struct Circumstances {
  bool isOld = false;
  std::string name = "Vantor";
  std::string selector;  // "@tcp"; empty for none
  std::string path = kProgram;
  std::optional<Found> found;
  bool isOn = true;
  bool ignoresExceptions = false;
  // The classes that cannot be created: "policy", "manager", "rule" or "application".
  std::string lacking;
  // The methods that fail, and their results.
  std::map<std::string, HRESULT> failing;
};

constexpr HRESULT kLacking = static_cast<HRESULT>(0x80040154);
constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80070002);
constexpr HRESULT kNotRunning = static_cast<HRESULT>(0x800706D9);

std::string Hex(HRESULT result) {
  return FAILED(result) ? rig::HexText(static_cast<uint32_t>(result)) : std::to_string(result);
}

std::string Quoted(const std::string& text) {
  return rig::Quote(std::string_view(text));
}

// Computes the expected calls.
class Course {
 public:
  explicit Course(const Circumstances& circumstances) : now_(circumstances) {}

  std::vector<std::string> Adding() {
    calls_.Read().Start();
    if (!Open()) return calls_.Log("failure opening firewall").End().lines;
    if (hasRules_) {
      AddRules();
    } else {
      calls_.Log("installing simple firewall rule");
      HRESULT result = Add(0);
      if (FAILED(result)) {
        calls_.Log("failure " + Both(result) + " modifying firewall");
        Report(result);
      } else if (FAILED(Do("profile.get_ExceptionsNotAllowed(*)")) || now_.ignoresExceptions) {
        calls_.Notify(25001);
      }
    }
    return calls_.End().lines;
  }

  std::vector<std::string> Removing() {
    calls_.Read().Start();
    if (!Open()) return calls_.Log("failure initializing firewall").End().lines;
    calls_.Log(hasRules_ ? "removing complex firewall rules" : "removing simple firewall rule");
    for (int base : hasRules_ ? std::vector<int>{1000, 1010} : std::vector<int>{0}) {
      if (FAILED(Do(Collection()))) continue;
      std::string key = Key(base);
      if (key.empty()) continue;
      Do(std::string(hasRules_ ? "rules" : "applications") + ".Remove(" + Quoted(key) + ")",
         now_.found ? S_OK : kNotFound);
    }
    return calls_.End().lines;
  }

 private:
  static std::string Both(HRESULT result) {
    char text[32];
    std::snprintf(text, sizeof text, "%d (0x%08X)", static_cast<int>(result), static_cast<unsigned>(result));
    return text;
  }
  // Makes a call, which may be a failing one. Returns its result.
  HRESULT Do(const std::string& call, HRESULT good = S_OK) {
    auto failing = now_.failing.find(call.substr(0, call.find('(')));
    HRESULT result = failing == now_.failing.end() ? good : failing->second;
    calls_.Add(call + " = " + Hex(result));
    return result;
  }
  bool Lacks(const char* what) const { return now_.lacking.find(what) != std::string::npos; }

  bool Open() {
    if (!now_.isOld) {
      calls_.OpenRules(Lacks("policy") ? Hex(kLacking) : "0");
      hasRules_ = !Lacks("policy");
      if (hasRules_) return true;
    }
    calls_.OpenManager(Lacks("manager") ? Hex(kLacking) : "0");
    return !Lacks("manager") && SUCCEEDED(Do("manager.get_LocalPolicy(*)")) &&
           SUCCEEDED(Do("localpolicy.get_CurrentProfile(*)"));
  }
  void AddRules() {
    calls_.Log("installing complex firewall rules");
    const std::string selector = now_.selector.empty() ? "@all" : now_.selector;
    HRESULT result = S_OK;
    if (selector == "@tcp" || selector == "@all") {
      result = Add(1000);
      if (FAILED(result)) calls_.Log("failure " + Both(result) + " modifying firewall for TCP");
    }
    if (selector == "@udp" || selector == "@all") {
      result = Add(1010);
      if (FAILED(result)) calls_.Log("failure " + Both(result) + " modifying firewall for UDP");
    }
    if (FAILED(result)) Report(result);
  }
  void Report(HRESULT failure) {
    HRESULT told =
        Do(hasRules_ ? "policy.get_FirewallEnabled(0x7fffffff, *)" : "profile.get_FirewallEnabled(*)");
    if ((SUCCEEDED(told) && !now_.isOn) || failure == kNotRunning) {
      calls_.Log("it seems that the Firewall is disabled");
    } else {
      calls_.Notify(25000);
    }
  }
  std::string Collection() const {
    return hasRules_ ? "policy.get_Rules(*)" : "profile.get_AuthorizedApplications(*)";
  }
  // Returns the text by which the exception is found.
  std::string Key(int base) {
    if (!hasRules_) return now_.path;
    calls_.Text(now_.path, base);
    return TextOf(now_.path, base);
  }
  HRESULT Add(int base) {
    HRESULT result = Do(Collection());
    if (FAILED(result)) return result;
    std::string key = Key(base);
    if (key.empty()) return E_OUTOFMEMORY;
    result = Do(std::string(hasRules_ ? "rules" : "applications") + ".Item(" + Quoted(key) + ", *)",
                now_.found ? S_OK : kNotFound);
    if (SUCCEEDED(result)) {
      const std::string found = hasRules_ ? "found" : "foundapplication";
      result = Do(found + (hasRules_ ? ".get_ApplicationName(*)" : ".get_ProcessImageFileName(*)"));
      if (FAILED(result) || now_.found->program != now_.path) Describe(found, base);
      if (SUCCEEDED(Do(found + ".get_Enabled(*)")) && now_.found->isEnabled) return S_OK;
    }
    result = Do(Collection());
    if (FAILED(result)) return result;
    return hasRules_ ? NewRule(base) : NewApplication();
  }
  HRESULT NewRule(int base) {
    calls_.Create("2C5BC43E-3369-4C33-AB0C-BE9469677AF4", "AF230D27-BABA-4E42-ACED-F524F22CFCE2",
                  Lacks("rule") ? Hex(kLacking) : "0");
    if (Lacks("rule")) return kLacking;
    HRESULT result = Describe("rule", base);
    if (FAILED(result)) return result;
    Do("rule.put_Direction(1)");
    Do("rule.put_Action(1)");
    Do(base == 1000 ? "rule.put_Protocol(6)" : "rule.put_Protocol(17)");
    Do("rule.put_Profiles(2147483647)");
    result = Do("rule.put_Enabled(-1)");
    return FAILED(result) ? result : Do("rules.Add(rule)");
  }
  HRESULT NewApplication() {
    calls_.Create("EC9846B3-2762-4A6B-A214-6ACB603462D2", "B5E64FFA-C2C5-444E-A301-FB5E00018050",
                  Lacks("application") ? Hex(kLacking) : "0");
    if (Lacks("application")) return kLacking;
    HRESULT result = Describe("application", 0);
    if (FAILED(result)) return result;
    Do("application.put_Scope(0)");
    return Do("applications.Add(application)");
  }
  HRESULT Describe(const std::string& object, int base) {
    if (now_.path.empty()) return E_OUTOFMEMORY;
    HRESULT result = Do(object + (hasRules_ ? ".put_ApplicationName(" : ".put_ProcessImageFileName(") +
                        Quoted(now_.path) + ")");
    if (FAILED(result)) return result;
    if (!hasRules_)
      return now_.name.empty() ? E_OUTOFMEMORY : Do(object + ".put_Name(" + Quoted(now_.name) + ")");
    calls_.Text(now_.path, base);
    result = Do(object + ".put_Name(" + Quoted(TextOf(now_.path, base)) + ")");
    if (FAILED(result)) return result;
    calls_.Text(now_.path, base + 1);
    Do(object + ".put_Grouping(" + Quoted(TextOf(now_.path, base + 1)) + ")");
    calls_.Text(now_.path, base + 2);
    Do(object + ".put_Description(" + Quoted(TextOf(now_.path, base + 2)) + ")");
    return result;
  }

  const Circumstances& now_;
  Calls calls_;
  bool hasRules_ = false;
};

class FirewallCourseTest : public firewall_test::FirewallTest {
 protected:
  void Arrange(rig::World& world) override {
    const std::pair<const char*, CLSID> classes[] = {{"policy", __uuidof(NetFwPolicy2)},
                                                     {"manager", __uuidof(NetFwMgr)},
                                                     {"rule", __uuidof(NetFwRule)},
                                                     {"application", __uuidof(NetFwAuthorizedApplication)}};
    for (const auto& [name, clsid] : classes) {
      if (now_.lacking.find(name) != std::string::npos) world.com.Missing(clsid);
    }
    FirewallTest::Arrange(world);
    if (now_.isOld) MakeOld(world);
    world.installer.Set("PROP_FIREWALLDATA", now_.name + now_.selector + "/" + now_.path);
    TheFirewall().enabled = now_.isOn;
    TheFirewall().ignoresExceptions = now_.ignoresExceptions;
    for (const auto& [method, error] : now_.failing) TheFirewall().FailMethod(method, error);
    if (!now_.found) return;
    TheFirewall().applications = {
        {.name = "Old", .program = now_.found->program, .enabled = now_.found->isEnabled}};
    for (int base : {1000, 1010}) {
      TheFirewall().rules.push_back({.name = TextOf(now_.path, base),
                                     .program = now_.found->program,
                                     .enabled = now_.found->isEnabled});
    }
  }
  // Runs both actions, each in a new world, and compares their calls.
  void Expect(const Circumstances& now) {
    now_ = now;
    for (int action : {5, 19}) {
      TearDown();
      SetUp();
      EXPECT_EQ(Run(action), 0u);
      EXPECT_TRACE((action == 5 ? Course(now).Adding() : Course(now).Removing()));
    }
  }

 private:
  Circumstances now_;
};

TEST_F(FirewallCourseTest, EachSelectorOnEachSystem) {
  for (bool isOld : {false, true}) {
    for (const char* selector : {"", "@tcp", "@udp", "@all", "@icmp", "@"}) {
      SCOPED_TRACE(selector);
      Expect({.isOld = isOld, .selector = selector});
    }
  }
}

TEST_F(FirewallCourseTest, EachStateOfAnExistingException) {
  for (bool isOld : {false, true}) {
    for (const char* program : {kProgram, "C:\\Vantor\\VT.EXE", "c:\\Vantor\\vt.exe"}) {
      for (bool isEnabled : {false, true}) {
        SCOPED_TRACE(program);
        Expect({.isOld = isOld, .found = Found{program, isEnabled}});
      }
    }
  }
  for (bool isEnabled : {false, true}) Expect({.found = Found{"C:\\Old\\vt.exe", isEnabled}});
}

TEST_F(FirewallCourseTest, EachMethodOfARuleMayFail) {
  const char* const methods[] = {"policy.get_Rules",
                                 "rules.Item",
                                 "found.get_ApplicationName",
                                 "found.put_ApplicationName",
                                 "found.put_Name",
                                 "found.put_Grouping",
                                 "found.put_Description",
                                 "found.get_Enabled",
                                 "rule.put_ApplicationName",
                                 "rule.put_Name",
                                 "rule.put_Grouping",
                                 "rule.put_Description",
                                 "rule.put_Direction",
                                 "rule.put_Action",
                                 "rule.put_Protocol",
                                 "rule.put_Profiles",
                                 "rule.put_Enabled",
                                 "rules.Add",
                                 "rules.Remove",
                                 "policy.get_FirewallEnabled"};
  for (const char* method : methods) {
    for (HRESULT error : {HRESULT{E_ACCESSDENIED}, kNotRunning}) {
      for (const char* selector : {"", "@tcp", "@udp"}) {
        SCOPED_TRACE(method);
        Expect({.selector = selector, .failing = {{method, error}}});
        bool isFound = std::string(method) != "rules.Item";
        if (isFound)
          Expect(
              {.selector = selector, .found = Found{"C:\\Old\\vt.exe", true}, .failing = {{method, error}}});
      }
    }
  }
}

TEST_F(FirewallCourseTest, EachMethodOfAnApplicationMayFail) {
  const char* const methods[] = {"manager.get_LocalPolicy",
                                 "localpolicy.get_CurrentProfile",
                                 "profile.get_AuthorizedApplications",
                                 "applications.Item",
                                 "foundapplication.get_ProcessImageFileName",
                                 "foundapplication.put_ProcessImageFileName",
                                 "foundapplication.put_Name",
                                 "foundapplication.get_Enabled",
                                 "application.put_ProcessImageFileName",
                                 "application.put_Name",
                                 "application.put_Scope",
                                 "applications.Add",
                                 "applications.Remove",
                                 "profile.get_ExceptionsNotAllowed",
                                 "profile.get_FirewallEnabled"};
  for (const char* method : methods) {
    for (HRESULT error : {HRESULT{E_ACCESSDENIED}, kNotRunning}) {
      SCOPED_TRACE(method);
      Expect({.isOld = true, .failing = {{method, error}}});
      bool isFound = std::string(method) != "applications.Item";
      if (isFound)
        Expect({.isOld = true, .found = Found{"C:\\VANTOR\\vt.exe", true}, .failing = {{method, error}}});
    }
  }
}

TEST_F(FirewallCourseTest, AFailureIsReportedUnlessTheFirewallIsOff) {
  for (bool isOld : {false, true}) {
    for (HRESULT error : {HRESULT{E_ACCESSDENIED}, kNotRunning, static_cast<HRESULT>(0x800706D8)}) {
      for (bool isOn : {false, true}) {
        for (bool isTold : {false, true}) {
          Circumstances now = {.isOld = isOld, .isOn = isOn};
          now.failing[isOld ? "applications.Add" : "rules.Add"] = error;
          if (!isTold)
            now.failing[isOld ? "profile.get_FirewallEnabled" : "policy.get_FirewallEnabled"] = E_FAIL;
          Expect(now);
        }
      }
    }
  }
}

TEST_F(FirewallCourseTest, AProfileThatIgnoresItsExceptionsIsReportedIfAnApplicationIsThere) {
  for (bool isOld : {false, true}) {
    Expect({.isOld = isOld, .ignoresExceptions = true});
    Expect({.isOld = isOld, .found = Found{kProgram, true}, .ignoresExceptions = true});
    Circumstances now = {.isOld = isOld, .ignoresExceptions = true};
    now.failing[isOld ? "applications.Add" : "rules.Add"] = E_ACCESSDENIED;
    Expect(now);
  }
}

TEST_F(FirewallCourseTest, EachClassMayBeMissing) {
  for (bool isOld : {false, true}) {
    for (const char* lacking :
         {"policy", "manager", "policy manager", "rule", "application", "policy application"}) {
      SCOPED_TRACE(lacking);
      Expect({.isOld = isOld, .lacking = lacking});
    }
  }
}

TEST_F(FirewallCourseTest, AnEntryMayHaveNoNameOrNoPath) {
  for (bool isOld : {false, true}) {
    Expect({.isOld = isOld, .name = ""});
    Expect({.isOld = isOld, .path = ""});
    Expect({.isOld = isOld, .name = "", .path = ""});
    Expect({.isOld = isOld, .name = " ", .path = " "});
    Expect({.isOld = isOld, .name = "\xC3\xA9", .path = "C:\\\xD0\x96\\\xF0\x9F\x98\x80.exe"});
  }
}

}  // namespace firewall_course_test
