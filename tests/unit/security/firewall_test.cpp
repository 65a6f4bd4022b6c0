// The firewall's exceptions: opening, finding, adding, removing, and the texts of rules.
#include "security/firewall.h"

#include <memory>

#include "rig/internals_test.h"
#include "rig/print.h"

namespace firewall_test {

HX_INTERNAL(OpenFirewall);
HX_INTERNAL(CloseFirewall);
HX_INTERNAL(AddFirewallRule);
HX_INTERNAL(RemoveFirewallRule);
HX_INTERNAL(BuildRuleString);
HX_INTERNAL(SetRuleProperties);
HX_INTERNAL(SetApplicationProperties);
HX_INTERNAL(IsFirewallOff);

using Rules = std::vector<rig::FirewallRule>;
using Applications = std::vector<rig::AuthorizedApplication>;

constexpr wchar_t kPath[] = L"C:\\p.exe";
constexpr HRESULT kRefused = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);

class FirewallTest : public rig::RiggedInternalsTest {
 protected:
  // The caller starts COM, so these operations find it started.
  void Arrange(rig::World& world) override { world.com.start = RPC_E_CHANGED_MODE; }
  rig::Firewall& TheFirewall() { return TheWorld().firewall; }
  static void MakeOld(rig::World& world) { world.clock.versionInfo.dwMajorVersion = 5; }

  // Returns the text and frees it as the library would; "null" for null.
  static std::string Take(BSTR text) {
    if (text == nullptr) {
      return "null";
    }
    std::string result = rig::ToUtf8(text);
    auto* free = reinterpret_cast<decltype(&::SysFreeString)>(
        const_cast<void*>(rig::Function<&::SysFreeString>::GetDeclaration().Thunk()));
    free(text);
    return result;
  }
  // Returns the result of `operation` with the firewall opened.
  template <class Operation>
  auto WithFirewall(Operation operation) {
    FirewallSession* session = OpenFirewall();
    auto result = operation(session);
    CloseFirewall(session);
    return result;
  }
  HRESULT Add(const wchar_t* path, const wchar_t* name, int base, LONG protocol) {
    return WithFirewall(
        [&](FirewallSession* session) { return AddFirewallRule(session, path, name, base, protocol); });
  }
  int Remove(const wchar_t* path, const wchar_t* name, int base) {
    return WithFirewall(
        [&](FirewallSession* session) { return RemoveFirewallRule(session, path, name, base); });
  }
};

// ---- opening

TEST_F(FirewallTest, OpensThePolicyOfANewSystem) {
  FirewallSession* session = OpenFirewall();
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(session->IsComplex());
  EXPECT_FALSE(static_cast<bool>(session->profile));
  CloseFirewall(session);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FirewallTest, OpensTheProfileOfAnOldSystem) {
  MakeOld(TheWorld());
  FirewallSession* session = OpenFirewall();
  ASSERT_NE(session, nullptr);
  EXPECT_FALSE(session->IsComplex());
  EXPECT_TRUE(static_cast<bool>(session->profile));
  // The manager and the policy are not kept.
  EXPECT_EQ(TheRig().ledger.Count(rig::kInterface), 1u);
  CloseFirewall(session);
}

TEST_F(FirewallTest, OpeningFailsIfAnObjectIsNull) {
  MakeOld(TheWorld());
  TheFirewall().Withhold("profile");
  EXPECT_EQ(OpenFirewall(), nullptr);
  TheFirewall().Withhold("localpolicy");
  EXPECT_EQ(OpenFirewall(), nullptr);
  CloseFirewall(nullptr);
}

TEST_F(FirewallTest, OpeningSurvivesEveryFailure) {
  for (bool isOld : {false, true}) {
    rig::SweepOptions options;
    options.results = {0, 1, 2};
    options.check = [&](const rig::SweepRun& run) {
      bool isLeft = !isOld && (run.name == "CoCreateInstance" || run.name == "GetVersionExA");
      EXPECT_EQ(run.result, isLeft ? 2u : isOld && run.name == "GetVersionExA" ? 2u : 0u) << run.call;
    };
    FailEachCall(
        [](rig::Scene&) -> UINT {
          FirewallSession* session = OpenFirewall();
          UINT result = session == nullptr ? 0 : session->IsComplex() ? 1 : 2;
          CloseFirewall(session);
          return result;
        },
        [&](rig::World& world) {
          if (isOld) {
            MakeOld(world);
          }
        },
        options);
  }
}

// ---- texts

TEST_F(FirewallTest, BuildsTheTextsOfAProgram) {
  EXPECT_EQ(Take(BuildRuleString(kPath, L"Name", 1000, 0)), "@C:\\p.exe,-1000");
  EXPECT_EQ(Take(BuildRuleString(kPath, nullptr, 1010, 2)), "@C:\\p.exe,-1012");
  EXPECT_EQ(Take(BuildRuleString(L"", L"", 1000, 1)), "@,-1001");
  EXPECT_EQ(Take(BuildRuleString(kPath, L"Name", -1, 0)), "@C:\\p.exe,--1");
}

TEST_F(FirewallTest, WithoutABaseTheTextIsTheName) {
  EXPECT_EQ(Take(BuildRuleString(kPath, L"Name", 0, 0)), "Name");
  EXPECT_EQ(Take(BuildRuleString(kPath, L"Name", 0, 1)), "Name");
  EXPECT_EQ(Take(BuildRuleString(kPath, L"", 0, 0)), "null");
  EXPECT_EQ(Take(BuildRuleString(kPath, nullptr, 0, 0)), "null");
}

// The buffer's size in bytes is twice the length of the path, plus 128.
TEST_F(FirewallTest, BuildsTextsInABufferOfAKnownSize) {
  TheRig().MakeLoud("HeapAlloc");
  Take(BuildRuleString(kPath, nullptr, 1000, 0));
  EXPECT_EQ(TheRig().trace.Lines().at(0).find("HeapAlloc(*, 8, 144)"), 0u) << TheRig().trace.Lines().at(0);
}

// ---- the properties of an exception

class FirewallPropertiesTest : public FirewallTest {
 protected:
  void Arrange(rig::World& world) override {
    FirewallTest::Arrange(world);
    rule_ = &world.com.Make<INetFwRule>("r");
    auto accept = [this](const char* method) {
      return [this, method](BSTR) { return method == failing_ ? error_ : S_OK; };
    };
    rule_->On<&INetFwRule::put_ApplicationName>(accept("program"));
    rule_->On<&INetFwRule::put_Name>(accept("name"));
    rule_->On<&INetFwRule::put_Grouping>(accept("grouping"));
    rule_->On<&INetFwRule::put_Description>(accept("description"));
    application_ = &world.com.Make<INetFwAuthorizedApplication>("a");
    application_->On<&INetFwAuthorizedApplication::put_ProcessImageFileName>(accept("program"));
    application_->On<&INetFwAuthorizedApplication::put_Name>(accept("name"));
  }
  HRESULT SetRule(const wchar_t* path, const wchar_t* name, int base) {
    INetFwRule* rule;
    rule_->Give(&rule);
    HRESULT result = SetRuleProperties(rule, path, name, base);
    rule->Release();
    return result;
  }
  HRESULT SetApplication(const wchar_t* path, const wchar_t* name) {
    INetFwAuthorizedApplication* application;
    application_->Give(&application);
    HRESULT result = SetApplicationProperties(application, path, name);
    application->Release();
    return result;
  }
  // Makes a method return `error` from now on, which may be a success code, and clears the trace.
  void Answer(const char* method, HRESULT error) {
    TheRig().trace.Clear();
    failing_ = method;
    error_ = error;
  }

 private:
  rig::FakeObject<INetFwRule>* rule_ = nullptr;
  rig::FakeObject<INetFwAuthorizedApplication>* application_ = nullptr;
  std::string failing_;
  HRESULT error_ = S_OK;
};

TEST_F(FirewallPropertiesTest, ARuleHasTextsOfItsProgram) {
  EXPECT_EQ(SetRule(kPath, L"Name", 1010), S_OK);
  EXPECT_TRACE({
      R"(r.put_ApplicationName("C:\\p.exe") = 0)",
      R"(wsprintfW(*, "@%s,-%d", "C:\\p.exe", 1010) = 15)",
      R"(r.put_Name("@C:\\p.exe,-1010") = 0)",
      R"(wsprintfW(*, "@%s,-%d", "C:\\p.exe", 1011) = 15)",
      R"(r.put_Grouping("@C:\\p.exe,-1011") = 0)",
      R"(wsprintfW(*, "@%s,-%d", "C:\\p.exe", 1012) = 15)",
      R"(r.put_Description("@C:\\p.exe,-1012") = 0)",
  });
}

TEST_F(FirewallPropertiesTest, ARuleWithoutABaseHasItsNameAndNoDescription) {
  EXPECT_EQ(SetRule(kPath, L"Name", 0), S_OK);
  EXPECT_TRACE({
      R"(r.put_ApplicationName("C:\\p.exe") = 0)",
      R"(r.put_Name("Name") = 0)",
      R"(r.put_Grouping("Name") = 0)",
  });
}

TEST_F(FirewallPropertiesTest, ARuleNeedsItsTexts) {
  EXPECT_EQ(SetRule(L"", L"Name", 1000), E_OUTOFMEMORY);
  EXPECT_TRACE({});
  EXPECT_EQ(SetRule(kPath, L"", 0), E_OUTOFMEMORY);
  EXPECT_TRACE({R"(r.put_ApplicationName("C:\\p.exe") = 0)"});
}

TEST_F(FirewallPropertiesTest, ARuleNeedsProgramAndNameOnly) {
  Answer("program", kRefused);
  EXPECT_EQ(SetRule(kPath, L"Name", 0), kRefused);
  EXPECT_TRACE({R"(r.put_ApplicationName("C:\\p.exe") = 0x80070005)"});
  Answer("name", kRefused);
  EXPECT_EQ(SetRule(kPath, L"Name", 0), kRefused);
  EXPECT_TRACE({R"(r.put_ApplicationName("C:\\p.exe") = 0)", R"(r.put_Name("Name") = 0x80070005)"});
  for (const char* method : {"grouping", "description"}) {
    Answer(method, kRefused);
    EXPECT_EQ(SetRule(kPath, L"Name", 1000), S_OK);
    EXPECT_EQ(TheRig().trace.Lines().size(), 7u) << method;
  }
}

TEST_F(FirewallPropertiesTest, TheResultIsTheResultOfSettingTheName) {
  Answer("name", S_FALSE);
  EXPECT_EQ(SetRule(kPath, L"Name", 1000), S_FALSE);
  EXPECT_EQ(TheRig().trace.Lines().size(), 7u);
  EXPECT_EQ(SetApplication(kPath, L"Name"), S_FALSE);
  Answer("program", S_FALSE);
  EXPECT_EQ(SetRule(kPath, L"Name", 1000), S_OK);
  EXPECT_EQ(SetApplication(kPath, L"Name"), S_OK);
}

TEST_F(FirewallPropertiesTest, AnApplicationHasProgramAndName) {
  EXPECT_EQ(SetApplication(kPath, L"Name"), S_OK);
  EXPECT_TRACE({R"(a.put_ProcessImageFileName("C:\\p.exe") = 0)", R"(a.put_Name("Name") = 0)"});
}

TEST_F(FirewallPropertiesTest, AnApplicationNeedsBoth) {
  EXPECT_EQ(SetApplication(L"", L"Name"), E_OUTOFMEMORY);
  EXPECT_TRACE({});
  EXPECT_EQ(SetApplication(kPath, L""), E_OUTOFMEMORY);
  EXPECT_TRACE({R"(a.put_ProcessImageFileName("C:\\p.exe") = 0)"});
  Answer("program", kRefused);
  EXPECT_EQ(SetApplication(kPath, L"Name"), kRefused);
  EXPECT_TRACE({R"(a.put_ProcessImageFileName("C:\\p.exe") = 0x80070005)"});
  Answer("name", kRefused);
  EXPECT_EQ(SetApplication(kPath, L"Name"), kRefused);
}

// Out of memory for a text gives E_OUTOFMEMORY, except for texts that a rule does not need.
TEST_F(FirewallPropertiesTest, OutOfMemoryFailsOnlyForRequiredTexts) {
  std::vector<UINT> results;
  rig::SweepOptions options;
  options.results = {0, static_cast<UINT>(E_OUTOFMEMORY), static_cast<UINT>(E_FAIL)};
  options.check = [&](const rig::SweepRun& run) {
    if (run.name == "HeapAlloc" || run.name == "SysAllocString") {
      results.push_back(run.result);
    }
  };
  FailEachCall([this](rig::Scene&) { return static_cast<UINT>(SetRule(kPath, L"Name", 1000)); }, {}, options);
  const UINT none = static_cast<UINT>(E_OUTOFMEMORY);
  EXPECT_EQ(results, (std::vector<UINT>{none, none, none, 0, 0, 0, 0}));
}

// ---- adding and removing

TEST_F(FirewallTest, NothingIsDoneWithoutASession) {
  EXPECT_EQ(AddFirewallRule(nullptr, kPath, L"Name", 1000, 6), E_OUTOFMEMORY);
  EXPECT_EQ(RemoveFirewallRule(nullptr, kPath, L"Name", 1000), kFirewallNoCollection);
  EXPECT_TRACE({});
}

TEST_F(FirewallTest, AddsARuleOfAnyProtocol) {
  EXPECT_EQ(Add(kPath, L"Name", 1000, 0), S_OK);
  ASSERT_EQ(TheFirewall().rules.size(), 1u);
  EXPECT_EQ(TheFirewall().rules[0].protocol, 256);
  for (const std::string& line : TheRig().trace.Lines()) {
    EXPECT_EQ(line.find("put_Protocol"), std::string::npos);
  }
}

TEST_F(FirewallTest, WithoutABaseARuleIsFoundByItsName) {
  EXPECT_EQ(Add(kPath, L"Name", 0, 17), S_OK);
  const rig::FirewallRule made = {.name = "Name",
                                  .program = "C:\\p.exe",
                                  .enabled = true,
                                  .grouping = "Name",
                                  .protocol = 17,
                                  .direction = 1,
                                  .action = 1,
                                  .profiles = 0x7FFFFFFF};
  EXPECT_EQ(TheFirewall().rules, Rules{made});
  // It is found by its name and not added again.
  EXPECT_EQ(Add(kPath, L"Name", 0, 17), S_OK);
  EXPECT_EQ(TheFirewall().rules, Rules{made});
  EXPECT_EQ(Remove(kPath, L"Name", 0), 0);
  EXPECT_TRUE(TheFirewall().rules.empty());
}

TEST_F(FirewallTest, ARuleNeedsAKey) {
  EXPECT_EQ(Add(kPath, L"", 0, 6), E_OUTOFMEMORY);
  EXPECT_EQ(TheRig().trace.Lines().back(), "policy.get_Rules(*) = 0");
  EXPECT_EQ(Remove(kPath, L"", 0), kFirewallNoKey);
  EXPECT_EQ(TheRig().trace.Lines().back(), "policy.get_Rules(*) = 0");
}

TEST_F(FirewallTest, AnApplicationNeedsAKey) {
  MakeOld(TheWorld());
  EXPECT_EQ(Add(L"", L"Name", 0, 0), E_OUTOFMEMORY);
  EXPECT_EQ(TheRig().trace.Lines().back(), "profile.get_AuthorizedApplications(*) = 0");
  EXPECT_EQ(Remove(L"", L"Name", 0), kFirewallNoKey);
}

TEST_F(FirewallTest, AnApplicationIgnoresTheBase) {
  MakeOld(TheWorld());
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), S_OK);
  EXPECT_EQ(TheFirewall().applications, (Applications{{"Name", "C:\\p.exe", true, 0}}));
  EXPECT_EQ(Remove(kPath, nullptr, 1000), 0);
  EXPECT_TRUE(TheFirewall().applications.empty());
}

TEST_F(FirewallTest, AMissingCollectionFails) {
  TheFirewall().FailMethod("policy.get_Rules", kRefused);
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), kRefused);
  EXPECT_EQ(Remove(kPath, L"Name", 1000), kFirewallNoCollection);
  TheFirewall().FailMethod("policy.get_Rules", S_OK);
  TheFirewall().Withhold("rules");
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), E_FAIL);
  EXPECT_EQ(Remove(kPath, L"Name", 1000), kFirewallNoCollection);
}

TEST_F(FirewallTest, AMissingCollectionOfApplicationsFails) {
  MakeOld(TheWorld());
  TheFirewall().FailMethod("profile.get_AuthorizedApplications", kRefused);
  EXPECT_EQ(Add(kPath, L"Name", 0, 0), kRefused);
  EXPECT_EQ(Remove(kPath, L"Name", 0), kFirewallNoCollection);
  TheFirewall().FailMethod("profile.get_AuthorizedApplications", S_OK);
  TheFirewall().Withhold("applications");
  EXPECT_EQ(Add(kPath, L"Name", 0, 0), E_FAIL);
  EXPECT_EQ(Remove(kPath, L"Name", 0), kFirewallNoCollection);
}

// A rule is created after the collection is fetched a second time. A failure then counts as at the first
// time.
TEST_F(FirewallTest, AMissingCollectionFailsTheSecondTimeToo) {
  TheFirewall().FailCall("policy.get_Rules", 2, kRefused);
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), kRefused);
  EXPECT_EQ(TheRig().trace.Lines().back(), "policy.get_Rules(*) = 0x80070005");
}

TEST_F(FirewallTest, ANullExceptionCountsAsNotFound) {
  TheFirewall().rules = {{.name = "Name", .program = "C:\\p.exe", .enabled = true}};
  TheFirewall().Withhold("found");
  EXPECT_EQ(Add(kPath, L"Name", 0, 6), S_OK);
  EXPECT_EQ(TheFirewall().rules.size(), 2u);
}

// A rule for all programs has no program. The wanted program has its name, so it becomes its rule.
TEST_F(FirewallTest, ARuleForAllProgramsIsForAnotherProgram) {
  TheFirewall().rules = {{.name = "Name", .program = "", .enabled = true}};
  EXPECT_EQ(Add(kPath, L"Name", 0, 6), S_OK);
  EXPECT_EQ(TheFirewall().rules,
            (Rules{{.name = "Name", .program = "C:\\p.exe", .enabled = true, .grouping = "Name"}}));
}

TEST_F(FirewallTest, TheResultOfAddingIsReturned) {
  TheFirewall().FailMethod("rules.Add", S_FALSE);
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), S_FALSE);
  TheFirewall().FailMethod("rules.Add", kRefused);
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), kRefused);
  TheFirewall().FailMethod("rule.put_Enabled", E_ABORT);
  EXPECT_EQ(Add(kPath, L"Name", 1000, 6), E_ABORT);
}

TEST_F(FirewallTest, TheResultOfRemovingIsIgnored) {
  TheFirewall().FailMethod("rules.Remove", kRefused);
  EXPECT_EQ(Remove(kPath, L"Name", 1000), 0);
  EXPECT_EQ(TheRig().trace.Lines().back(), R"(rules.Remove("@C:\\p.exe,-1000") = 0x80070005)");
}

// ---- a firewall that is off

TEST_F(FirewallTest, IsOffOnlyIfItSaysSo) {
  auto isOff = [this] {
    return WithFirewall([](FirewallSession* session) { return IsFirewallOff(session); });
  };
  EXPECT_FALSE(isOff());
  TheFirewall().enabled = false;
  EXPECT_TRUE(isOff());
  EXPECT_EQ(TheRig().trace.Lines().back(), "policy.get_FirewallEnabled(0x7fffffff, *) = 0");
  TheFirewall().FailMethod("policy.get_FirewallEnabled", kRefused);
  EXPECT_FALSE(isOff());
}

TEST_F(FirewallTest, AProfileIsOffOnlyIfItSaysSo) {
  MakeOld(TheWorld());
  auto isOff = [this] {
    return WithFirewall([](FirewallSession* session) { return IsFirewallOff(session); });
  };
  EXPECT_FALSE(isOff());
  TheFirewall().enabled = false;
  EXPECT_TRUE(isOff());
  EXPECT_EQ(TheRig().trace.Lines().back(), "profile.get_FirewallEnabled(*) = 0");
  TheFirewall().FailMethod("profile.get_FirewallEnabled", kRefused);
  EXPECT_FALSE(isOff());
}

}  // namespace firewall_test
