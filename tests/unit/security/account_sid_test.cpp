// Resolving account names to security identifiers.

#include "security/account_sid.h"

#include <lm.h>

#include <memory>

#include "base/heap.h"
#include "rig/guarded_heap.h"
#include "rig/internals_test.h"
#include "rig/kept.h"

namespace account_sid_test {

HX_INTERNAL(ResolveAccountSid);
HX_INTERNAL(HeapFreeSafe);

using Bytes = std::vector<BYTE>;

// The size in bytes of the buffers of the first lookup: 256 bytes and 256 characters.
constexpr ptrdiff_t kFirstRoom = 768;

class AccountSidTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override {
    Accounts().users["svc"];
    Accounts().domains["CORP"].accounts["svc"];
    // Already loaded, so that no module is loaded for good.
    world.modules.Loaded("NETAPI32");
  }
  rig::AccessLists& Lists() { return TheWorld().accessLists; }
  rig::Accounts& Accounts() { return TheWorld().accounts; }

  // Returns the bytes of an identifier, which lies at the start of a block of `size` bytes, and frees the
  // block. Empty for null.
  static Bytes Take(void* sid, ptrdiff_t size) {
    if (sid == nullptr) {
      return {};
    }
    EXPECT_EQ(rig::GuardedHeap::Get().SizeOf(sid), size);
    const auto* bytes = static_cast<const BYTE*>(sid);
    Bytes result(bytes, bytes + 8 + 4 * size_t{bytes[1]});
    HeapFreeSafe(sid);
    return result;
  }
  // Returns the identifier of an account that is written like this.
  static Bytes Resolve(const char* account, ptrdiff_t size = kFirstRoom) {
    return Take(ResolveAccountSid(account), size);
  }
  Bytes SidOf(const std::string& account) { return Accounts().SidOf(account); }
  // True if a line of the trace begins with `start`.
  bool Called(const std::string& start) {
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.rfind(start, 0) == 0) {
        return true;
      }
    }
    return false;
  }
};

TEST_F(AccountSidTest, ANullAccountIsNull) {
  EXPECT_EQ(ResolveAccountSid(nullptr), nullptr);
  EXPECT_TRACE({});
}

TEST_F(AccountSidTest, AnEmptyNameIsNull) {
  for (const char* account : {"", "\\", ".\\", "PC7\\", "CORP\\"}) {
    EXPECT_EQ(ResolveAccountSid(account), nullptr) << account;
  }
  EXPECT_FALSE(Called("LookupAccountNameW"));
}

TEST_F(AccountSidTest, AccountsOfThisComputerNeedNoController) {
  for (const char* account : {"svc", "SVC", "\\svc", ".\\svc", "PC7\\svc", "pc7\\Svc"}) {
    EXPECT_EQ(Resolve(account), SidOf("PC7\\svc")) << account;
  }
  EXPECT_FALSE(Called("NetGetDCName"));
}

TEST_F(AccountSidTest, OnlyDomainsOtherThanADotQueryTheComputersName) {
  for (const char* account : {"svc", "\\svc", ".\\svc", "LocalSystem\\svc"}) {
    TheRig().trace.Clear();
    void* sid = ResolveAccountSid(account);
    EXPECT_EQ(Called("GetComputerNameExW"), account[0] == 'L') << account;
    HeapFreeSafe(sid);
  }
}

TEST_F(AccountSidTest, TheBufferIsIgnoredIfQueryingTheComputersNameFails) {
  TheWorld().On<::GetComputerNameExW>([](COMPUTER_NAME_FORMAT, wchar_t* buffer, DWORD* size) {
    EXPECT_EQ(*size, 64u);
    CopyMemory(buffer, L"PC7", sizeof L"PC7");
    SetLastError(ERROR_MORE_DATA);
    return FALSE;
  });
  EXPECT_EQ(ResolveAccountSid("PC7\\svc"), nullptr);
}

TEST_F(AccountSidTest, AccountsOfADomainAreLookedUpAtItsController) {
  for (const char* account : {"CORP\\svc", "corp\\SVC"}) {
    EXPECT_EQ(Resolve(account), SidOf("CORP\\svc")) << account;
  }
  EXPECT_EQ(ResolveAccountSid("CORP\\ghost"), nullptr);
  EXPECT_EQ(ResolveAccountSid("BRANCH\\svc"), nullptr);
  EXPECT_EQ(ResolveAccountSid("PC7 \\svc"), nullptr);
  EXPECT_EQ(ResolveAccountSid("..\\svc"), nullptr);
}

TEST_F(AccountSidTest, ADomainOfOneCharacterIsADomain) {
  Accounts().domains["X"].controller = "\\\\DC2";
  Accounts().domains["X"].accounts["svc"];
  EXPECT_EQ(Resolve("X\\svc"), SidOf("X\\svc"));
  EXPECT_TRUE(Called(R"(NetGetDCName(null, "X",)"));
  EXPECT_TRUE(Called(R"(LookupAccountNameW("\\\\DC2", "svc",)"));
}

// A second backslash belongs to the name, which nobody has.
TEST_F(AccountSidTest, OnlyTheFirstBackslashSplitsTheName) {
  EXPECT_EQ(ResolveAccountSid("\\\\svc"), nullptr);
  EXPECT_EQ(ResolveAccountSid(".\\.\\svc"), nullptr);
  EXPECT_TRUE(Called(R"(LookupAccountNameW(null, "\\svc",)"));
  EXPECT_TRUE(Called(R"(LookupAccountNameW(null, ".\\svc",)"));
}

TEST_F(AccountSidTest, SystemAccountsHaveFixedIdentifiers) {
  const Bytes system = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
  const Bytes service = {1, 1, 0, 0, 0, 0, 0, 5, 19, 0, 0, 0};
  for (const char* account : {"LocalSystem", "LOCALSYSTEM", "localsystem"}) {
    EXPECT_EQ(Resolve(account, SECURITY_MAX_SID_SIZE), system) << account;
  }
  for (const char* account : {"LocalService", "LOCALSERVICE", "localservice"}) {
    EXPECT_EQ(Resolve(account, SECURITY_MAX_SID_SIZE), service) << account;
  }
  EXPECT_EQ(Lists().wellKnownSizes, (std::vector<DWORD>(6, 68)));
  EXPECT_FALSE(Called("LookupAccountNameW"));
}

// Blanks and dashes matter, and a name with a backslash is looked up.
TEST_F(AccountSidTest, NoOtherSpellingIsASystemAccount) {
  for (const char* account :
       {"Local System", "Local-System", "LocalSystem ", " LocalSystem", ".\\LocalSystem", "\\LocalService"}) {
    EXPECT_EQ(ResolveAccountSid(account), nullptr) << account;
  }
  EXPECT_FALSE(Called("CreateWellKnownSid"));
}

TEST_F(AccountSidTest, AFailureForASystemAccountIsFinal) {
  TheWorld().On<::CreateWellKnownSid>([](WELL_KNOWN_SID_TYPE, void*, void*, DWORD*) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  });
  Accounts().users["LocalSystem"];
  EXPECT_EQ(ResolveAccountSid("LocalSystem"), nullptr);
}

TEST_F(AccountSidTest, MissingFunctionsResolveNothing) {
  struct Missing {
    const char* module;
    const char* function;
    const char* account;
  };
  for (const Missing& one : {Missing{"ADVAPI32", "CreateWellKnownSid", "LocalSystem"},
                             {"ADVAPI32", "LookupAccountNameW", "svc"},
                             {"NETAPI32", "NetGetDCName", "CORP\\svc"}}) {
    TheModules().MissingFunction(one.module, one.function);
    EXPECT_EQ(ResolveAccountSid(one.account), nullptr) << one.function;
  }
}

TEST_F(AccountSidTest, NamesAreUtf8) {
  Accounts().users["Jürgen 日本 𝔘"];
  Accounts().domains["ВЕТВЬ"].controller = "\\\\ДК1";
  Accounts().domains["ВЕТВЬ"].accounts["служба"];
  Accounts().computer = "ЯЩИК";
  EXPECT_EQ(Resolve("Jürgen 日本 𝔘"), SidOf("ЯЩИК\\Jürgen 日本 𝔘"));
  EXPECT_EQ(Resolve("ВЕТВЬ\\служба"), SidOf("ВЕТВЬ\\служба"));
  EXPECT_EQ(Resolve("ящик\\svc"), SidOf("ЯЩИК\\svc"));
}

TEST_F(AccountSidTest, ANameThatIsNotUtf8IsNull) {
  EXPECT_EQ(ResolveAccountSid("J\xFCrgen"), nullptr);
  EXPECT_TRUE(Called("LookupAccountNameW(null, \"J\xEF\xBF\xBDrgen\","));
}

TEST_F(AccountSidTest, LongNamesAreLookedUpWhole) {
  std::string name(5000, 'n');
  Accounts().users[name];
  EXPECT_EQ(Resolve(name.c_str()), SidOf("PC7\\" + name));
  std::string domain(2000, 'd');
  Accounts().domains[domain].controller = "\\\\DC2";
  Accounts().domains[domain].accounts["svc"];
  // 28 bytes for the identifier and 2001 characters.
  EXPECT_EQ(Resolve((domain + "\\svc").c_str(), 28 + 2 * 2001), SidOf(domain + "\\svc"));
}

TEST_F(AccountSidTest, SurvivesEveryFailure) {
  for (const char* account : {"svc", "LocalService", "CORP\\svc", "pc7\\svc"}) {
    FailEachCall(
        [account](rig::Scene& scene) -> UINT {
          void* sid = ResolveAccountSid(account);
          rig::KeepModules(scene.rig, {"NETAPI32", "ADVAPI32"});
          rig::KeepWithout(scene.rig, "NETAPI32", "NetApiBufferFree", rig::kNetBuffer);
          HeapFreeSafe(sid);
          return sid == nullptr ? 1 : 0;
        },
        [this](rig::World&) { Accounts().demands = {{300, 300}}; }, {.results = {0, 1}});
  }
}

}  // namespace account_sid_test
