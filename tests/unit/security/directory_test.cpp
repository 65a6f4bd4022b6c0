// The domain's directory: containers, distinguished names, service principal names.

#include "security/directory.h"

#include <adshlp.h>

#include <algorithm>
#include <map>
#include <memory>

#include "base/heap.h"
#include "rig/action_test.h"
#include "rig/directory_interfaces.h"
#include "rig/import_hook.h"
#include "rig/internals.h"
#include "rig/kept.h"
#include "rig/print.h"

namespace directory_test {

HX_INTERNAL(GetAccountDistinguishedName);
HX_INTERNAL(HeapFreeSafe);
HX_INTERNAL(JoinAccountName);
HX_INTERNAL(OpenDomainContainer);
HX_INTERNAL(UpdateServicePrincipalNames);

constexpr DWORD kFailed = 0xFFFFFFFF;

class DirectoryTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override {
    world.com.start = RPC_E_CHANGED_MODE;
    world.accounts.domains["CORP"].accounts["svc"];
    world.accounts.domains["PC7"].accounts["installer"];
  }
  void TearDown() override {
    NameKept(TheRig());
    rig::RiggedInternalsTest::TearDown();
  }
  // Loaded modules are kept for the life of the process.
  static void NameKept(rig::Rig& rig) { rig::KeepModules(rig, {"NETAPI32", "NTDSAPI", "ACTIVEDS"}); }
  // Returns the paths that ADsGetObject was given.
  std::vector<std::string> Paths() {
    std::vector<std::string> paths;
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.rfind("ADsGetObject", 0) == 0) paths.push_back(line.substr(14, line.find('"', 14) - 14));
    }
    return paths;
  }
  // Returns the name, read into a buffer of exactly the right size. The returned length must be its length.
  std::string NameOf(const wchar_t* domain, const wchar_t* user) {
    rig::GuardedBuffer buffer(kDistinguishedNameSize * sizeof(wchar_t));
    DWORD length = GetAccountDistinguishedName(domain, user, buffer.As<wchar_t>());
    const auto* text = buffer.As<wchar_t>();
    if (length >= kDistinguishedNameSize || text[length] != L'\0') return "without a terminator";
    std::string name = rig::ToUtf8(text);
    EXPECT_EQ(name.size(), length);
    return name;
  }
  // Returns the calls that gave the directory a name to translate.
  std::vector<std::string> Asked() {
    std::vector<std::string> asked;
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.rfind("translator.Set", 0) == 0) asked.push_back(line);
    }
    return asked;
  }
  DWORD Update(PrincipalNameChange change) {
    return UpdateServicePrincipalNames(L"VANTOR", L"CN=svc", change);
  }
  rig::Accounts& Accounts() { return TheWorld().accounts; }
  rig::Directory& Directory() { return TheWorld().directory; }
};

TEST_F(DirectoryTest, DomainAndNameAreJoined) {
  for (const auto& [domain, name, joined] :
       std::vector<std::array<const wchar_t*, 3>>{{L"CORP", L"svc", L"CORP\\svc"}, {L"", L"", L"\\"}}) {
    wchar_t* text = JoinAccountName(domain, name);
    EXPECT_EQ(std::wstring(text), joined);
    HeapFreeSafe(text);
  }
}

// ---- containers

TEST_F(DirectoryTest, TheContainerOfTheDomainIsOpened) {
  TheRig().MakeLoud("HeapAlloc");
  IADsContainer* container = OpenDomainContainer(L"CORP");
  ASSERT_NE(container, nullptr);
  container->Release();
  EXPECT_TRACE({
      "HeapAlloc(*, 8, 26) = block#1",
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleW("ACTIVEDS") = null)",
      R"(LoadLibraryW("ACTIVEDS") = ACTIVEDS)",
      R"(GetProcAddress(ACTIVEDS, "ADsGetObject") = *)",
      "SetErrorMode(0x4000) = 32769",
      R"(ADsGetObject("WinNT://CORP", {001677D0-FD16-11CE-ABC4-02608C9E7553}, *) = 0)",
  });
}

TEST_F(DirectoryTest, WithoutADomainTheComputersWholeDomainIsUsed) {
  const std::string longName(200, 'D');
  Accounts().domains[longName];
  for (const std::string& domain : {std::string("CORP"), longName}) {
    for (const wchar_t* given : {static_cast<const wchar_t*>(nullptr), L""}) {
      TheRig().trace.Clear();
      NameKept(TheRig());
      Accounts().workgroup = domain;
      IADsContainer* container = OpenDomainContainer(given);
      ASSERT_NE(container, nullptr);
      container->Release();
      EXPECT_EQ(Paths(), std::vector<std::string>{"WinNT://" + domain});
    }
  }
  TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
  TheRig().ledger.Deliberate(rig::kModule, "ACTIVEDS");
}

TEST_F(DirectoryTest, WithoutAnyDomainThereIsNoContainer) {
  for (const char* workgroup : {"", "\1"}) {
    Accounts().workgroup = workgroup;
    EXPECT_EQ(OpenDomainContainer(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(E_FAIL));
  }
  Accounts().Refuse("NetWkstaGetInfo", ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenDomainContainer(L""), nullptr);
  EXPECT_EQ(Paths(), std::vector<std::string>{});
}

// Out of memory is a different error from a missing domain, and the directory is not asked.
TEST_F(DirectoryTest, OutOfMemoryForThePathIsTheLastError) {
  Accounts().workgroup = "CORP";
  for (const wchar_t* domain : {L"CORP", L""}) {
    // Without a domain the first block is for the computer's own domain.
    int blocks = *domain ? 0 : 1;
    HX_HOOK(allocating, HeapAlloc, [&](HANDLE heap, DWORD flags, SIZE_T size) -> void* {
      return blocks-- > 0 ? allocating.Next(heap, flags, size) : nullptr;
    });
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(OpenDomainContainer(domain), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(E_OUTOFMEMORY));
  }
  EXPECT_EQ(Paths(), std::vector<std::string>{});
}

TEST_F(DirectoryTest, ARefusalIsTheLastError) {
  EXPECT_EQ(OpenDomainContainer(L"ELSEWHERE"), nullptr);
  EXPECT_EQ(GetLastError(), 0x8007054Bu);
  Directory().Refuse("ADsGetObject", 0x80041001);
  EXPECT_EQ(OpenDomainContainer(L"CORP"), nullptr);
  EXPECT_EQ(GetLastError(), 0x80041001u);
}

TEST_F(DirectoryTest, AMissingFunctionIsMinusOne) {
  TheModules().MissingFunction("ACTIVEDS", "ADsGetObject");
  EXPECT_EQ(OpenDomainContainer(L"CORP"), nullptr);
  EXPECT_EQ(GetLastError(), kFailed);
}

// ---- distinguished names

TEST_F(DirectoryTest, DomainAndNameAreTranslated) {
  EXPECT_EQ(NameOf(L"CORP", L"svc"), "CN=svc,CN=Users,DC=CORP");
  EXPECT_TRACE({
      "CoCreateInstance({274FAE1F-3626-11D1-A3A4-00C04FB950DC}, null, 0x1, "
      "{B1B272A3-3625-11D1-A3A4-00C04FB950DC}, *) = 0",
      "translator.Init(3, null) = 0",
      R"(translator.Set(3, "CORP\\svc") = 0)",
      "translator.Get(1, *) = 0",
  });
}

TEST_F(DirectoryTest, WithoutADomainTheComputersIsUsedCutTo63Characters) {
  EXPECT_EQ(NameOf(nullptr, L"svc"), "CN=svc,CN=Users,DC=CORP");
  Accounts().workgroup = std::string(70, 'D');
  EXPECT_EQ(NameOf(nullptr, L"svc"), "");
  EXPECT_EQ(Asked()[1], "translator.Set(3, \"" + std::string(63, 'D') + "\\\\svc\") = 0x800708ad");
  Accounts().workgroup = "";
  EXPECT_EQ(NameOf(nullptr, L"svc"), "");
  EXPECT_EQ(Asked().size(), 2u);
}

TEST_F(DirectoryTest, AnEmptyDomainIsNoDomain) {
  EXPECT_EQ(NameOf(L"", L"svc"), "CN=svc,CN=Users,DC=CORP");
  EXPECT_EQ(Asked(), std::vector<std::string>{R"(translator.Set(3, "CORP\\svc") = 0)"});
}

TEST_F(DirectoryTest, ANullTranslationIsNoName) {
  constexpr CLSID kNameTranslate = {
      0x274FAE1F, 0x3626, 0x11D1, {0xA3, 0xA4, 0x00, 0xC0, 0x4F, 0xB9, 0x50, 0xDC}};
  auto& translator = TheWorld().com.Make<IADsNameTranslate>("silent");
  translator.On<&IADsNameTranslate::Init>([](long, BSTR) { return S_OK; });
  translator.On<&IADsNameTranslate::Set>([](long, BSTR) { return S_OK; }).TextArguments();
  translator.On<&IADsNameTranslate::Get>([](long, BSTR* name) {
    *name = nullptr;
    return S_OK;
  });
  TheWorld().com.Register(kNameTranslate, translator);
  EXPECT_EQ(NameOf(L"CORP", L"svc"), "");
  EXPECT_TRACE({
      "CoCreateInstance({274FAE1F-3626-11D1-A3A4-00C04FB950DC}, null, 0x1, "
      "{B1B272A3-3625-11D1-A3A4-00C04FB950DC}, *) = 0",
      "silent.Init(3, null) = 0",
      R"(silent.Set(3, "CORP\\svc") = 0)",
      "silent.Get(1, *) = 0",
  });
}

TEST_F(DirectoryTest, WithoutAUserTheUserOfTheProcessIsUsed) {
  TheRig().MakeLoud("CloseHandle");
  EXPECT_EQ(NameOf(L"IGNORED", nullptr), "CN=installer,CN=Users,DC=PC7");
  EXPECT_TRACE({
      "OpenProcessToken(INVALID_HANDLE_VALUE, 0x8, *) = 1",
      "GetTokenInformation(handle#1, 1, null, 0, *) = 0",
      "GetTokenInformation(handle#1, 1, *, 44, *) = 1",
      "LookupAccountSidW(null, *, *, *, *, *, *) = 1",
      "CloseHandle(handle#1) = 1",
      "CoCreateInstance({274FAE1F-3626-11D1-A3A4-00C04FB950DC}, null, 0x1, "
      "{B1B272A3-3625-11D1-A3A4-00C04FB950DC}, *) = 0",
      "translator.Init(3, null) = 0",
      R"(translator.Set(3, "PC7\\installer") = 0)",
      "translator.Get(1, *) = 0",
  });
}

TEST_F(DirectoryTest, AnUnknownUserOfTheProcessHasNoName) {
  for (const char* call : {"OpenProcessToken", "GetTokenInformation", "LookupAccountSidW"}) {
    const bool isToken = std::string(call) == "OpenProcessToken";
    TheWorld().sessions.tokenError = isToken ? DWORD{ERROR_ACCESS_DENIED} : DWORD{ERROR_SUCCESS};
    Accounts().Refuse(call, isToken ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(NameOf(nullptr, nullptr), "") << call;
    Accounts().Refuse(call, ERROR_SUCCESS);
  }
  Accounts().processUser = "PC7\\" + std::string(64, 'u');
  EXPECT_EQ(NameOf(nullptr, nullptr), "");
  Accounts().processUser = std::string(64, 'd') + "\\installer";
  EXPECT_EQ(NameOf(nullptr, nullptr), "");
  EXPECT_EQ(Asked().size(), 0u);
}

// Each name has at most 63 characters; one more does not fit (see above).
TEST_F(DirectoryTest, TheLongestNamesOfAUserOfTheProcessAreTranslated) {
  const std::string user(63, 'u');
  const std::string domain(63, 'd');
  Accounts().processUser = domain + "\\" + user;
  Accounts().domains[domain].accounts[user];
  EXPECT_EQ(NameOf(nullptr, nullptr), "CN=" + user + ",CN=Users,DC=" + domain);
  EXPECT_EQ(Asked(), std::vector<std::string>{"translator.Set(3, \"" + domain + "\\\\" + user + "\") = 0"});
}

TEST_F(DirectoryTest, ALongNameIsCutTo1023Characters) {
  for (size_t size : {1, 1022, 1023, 1024, 1025, 3000}) {
    Directory().distinguishedNames["CORP\\svc"] = std::string(size, 'N');
    EXPECT_EQ(NameOf(L"CORP", L"svc"), std::string(std::min<size_t>(size, 1023), 'N'));
  }
}

TEST_F(DirectoryTest, TheTranslationIsFreedBeforeTheOriginalName) {
  for (const char* call : {"SysFreeString", "HeapFree"}) TheRig().MakeLoud(call);
  EXPECT_EQ(NameOf(L"CORP", L"svc"), "CN=svc,CN=Users,DC=CORP");
  EXPECT_TRACE({
      "CoCreateInstance({274FAE1F-3626-11D1-A3A4-00C04FB950DC}, null, 0x1, "
      "{B1B272A3-3625-11D1-A3A4-00C04FB950DC}, *) = 0",
      "translator.Init(3, null) = 0",
      R"(translator.Set(3, "CORP\\svc") = 0)",
      "translator.Get(1, *) = 0",
      "SysFreeString(string#1)",
      "HeapFree(*, 0, block#1) = 1",
  });
}

TEST_F(DirectoryTest, TheFirstStepThatFailsEndsTheTranslation) {
  for (const char* call : {"translator.Init", "translator.Set", "translator.Get"}) {
    TheRig().trace.Clear();
    Directory().Refuse(call, 0x80072030);
    EXPECT_EQ(NameOf(L"CORP", L"svc"), "");
    EXPECT_EQ(TheRig().trace.Lines().back().rfind(call, 0), 0u) << TheRig().trace.Lines().back();
    Directory().Refuse(call, 0);
  }
}

TEST_F(DirectoryTest, WithoutATranslatorThereIsNoName) {
  FailEachCall(
      [](rig::Scene&) -> UINT {
        wchar_t name[kDistinguishedNameSize] = L"before";
        DWORD length = GetAccountDistinguishedName(L"CORP", L"svc", name);
        return length == 0 && name[0] == L'\0' ? 0 : length;
      },
      {},
      {.results = {0, 23}, .check = [](const rig::SweepRun& run) { EXPECT_EQ(run.result, 0u) << run.call; }});
}

// The token's user is asked twice: for the size, and for the user.
TEST_F(DirectoryTest, NoFailureMakesUpAUserOfTheProcess) {
  std::map<std::string, int> failed;
  FailEachCall(
      [](rig::Scene&) -> UINT {
        wchar_t name[kDistinguishedNameSize] = L"before";
        DWORD length = GetAccountDistinguishedName(nullptr, nullptr, name);
        return length == 0 && name[0] == L'\0' ? 0 : length;
      },
      {}, {.results = {0, 28}, .check = [&](const rig::SweepRun& run) {
             EXPECT_EQ(run.result, 0u) << run.call;
             ++failed[run.name];
           }});
  EXPECT_EQ(failed["GetTokenInformation"], 2);
  // For the token's user and for its whole name.
  EXPECT_EQ(failed["HeapAlloc"], 2);
}

// ---- names of services

TEST_F(DirectoryTest, NamesAreAddedAndRemoved) {
  Directory().registered = {"CN=svc HOST/PC7"};
  EXPECT_EQ(Update(kAddPrincipalNames), 0u);
  EXPECT_EQ(Directory().registered, (std::set<std::string>{"CN=svc HOST/PC7", "CN=svc VANTOR/PC7",
                                                           "CN=svc VANTOR/pc7.corp.example"}));
  TheRig().trace.Clear();
  EXPECT_EQ(Update(kRemovePrincipalNames), 0u);
  EXPECT_EQ(Directory().registered, std::set<std::string>{"CN=svc HOST/PC7"});
  EXPECT_TRACE({
      R"(DsGetSpnW(0, "VANTOR", null, 0, 0, null, null, *, *) = 0)",
      "DsBindW(null, null, *) = 0",
      R"(DsWriteAccountSpnW(directory#2, 2, "CN=svc", 2, principal-names#2) = 0)",
      "DsUnBindW(*) = 0",
      "DsFreeSpnArrayW(2, principal-names#2)",
  });
  TheRig().ledger.Deliberate(rig::kModule, "NTDSAPI");
}

TEST_F(DirectoryTest, AComputerWithoutNamesHasNothingToAdd) {
  Directory().hasPrincipalNames = false;
  EXPECT_EQ(Update(kAddPrincipalNames), kFailed);
  const std::vector<std::string>& lines = TheRig().trace.Lines();
  EXPECT_EQ(lines.back(), "DsFreeSpnArrayW(0, principal-names#1)");
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.rfind("DsBind", 0) == 0; }),
            0);
}

TEST_F(DirectoryTest, FailingStepsAreMinusOneButTheLastHasItsOwnError) {
  const std::vector<std::pair<const char*, DWORD>> steps = {
      {"DsGetSpnW", kFailed}, {"DsBindW", kFailed}, {"DsWriteAccountSpnW", 8453}};
  for (const auto& [call, result] : steps) {
    Directory().Refuse(call, 8453);
    EXPECT_EQ(Update(kAddPrincipalNames), result) << call;
    EXPECT_TRUE(Directory().registered.empty());
    Directory().Refuse(call, 0);
  }
}

TEST_F(DirectoryTest, MissingFunctionsAreMinusOne) {
  for (const char* function : {"DsGetSpnW", "DsBindW", "DsWriteAccountSpnW"}) {
    TheModules().MissingFunction("NTDSAPI", function);
  }
  // Each function is found as soon as those before it exist.
  EXPECT_EQ(Update(kAddPrincipalNames), kFailed);
  EXPECT_TRUE(Directory().registered.empty());
}

}  // namespace directory_test
