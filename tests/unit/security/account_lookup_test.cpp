// Account lookups: the buffers for the identifier and for the domain may have to grow.

#include <cstring>
#include <memory>

#include "base/heap.h"
#include "rig/action_test.h"
#include "rig/guarded_heap.h"
#include "rig/internals.h"
#include "security/account_sid.h"

namespace account_lookup_test {

HX_INTERNAL(HeapFreeSafe);
HX_INTERNAL(LookUpAccountSid);

using Rooms = std::vector<std::pair<DWORD, DWORD>>;

class AccountLookupTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override {
    world.accounts.users["svc"];
    world.accounts.domains["CORP"].accounts["boss"];
  }
  // True if the lookup finds this account; for an empty `account`, if it finds nothing.
  bool Finds(const wchar_t* controller, const wchar_t* name, const std::string& account) {
    void* sid = LookUpAccountSid(controller, name);
    if (sid == nullptr) return account.empty();
    std::vector<BYTE> expected = Accounts().SidOf(account);
    bool isSame = std::memcmp(sid, expected.data(), expected.size()) == 0;
    size_ = static_cast<size_t>(rig::GuardedHeap::Get().SizeOf(sid));
    HeapFreeSafe(sid);
    return isSame;
  }
  rig::Accounts& Accounts() { return TheWorld().accounts; }
  // The size in bytes of the last block that was found.
  size_t size_ = 0;
};

TEST_F(AccountLookupTest, OneBlockHoldsTheIdentifierAndTheDomain) {
  TheRig().MakeLoud("HeapAlloc");
  EXPECT_TRUE(Finds(nullptr, L"svc", "PC7\\svc"));
  EXPECT_TRACE({
      "HeapAlloc(*, 8, 768) = block#1",
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleW("ADVAPI32") = ADVAPI32)",
      R"(GetProcAddress(ADVAPI32, "LookupAccountNameW") = *)",
      "SetErrorMode(0x4000) = 32769",
      R"(LookupAccountNameW(null, "svc", *, *, *, *, *) = 1)",
  });
  EXPECT_EQ(size_, 768u);
}

TEST_F(AccountLookupTest, AControllerKnowsTheUsersOfItsDomain) {
  EXPECT_TRUE(Finds(L"\\\\DC1", L"boss", "CORP\\boss"));
  EXPECT_TRUE(Finds(nullptr, L"boss", ""));
  EXPECT_TRUE(Finds(L"\\\\DC1", L"svc", ""));
  EXPECT_TRUE(Finds(L"\\\\DC2", L"boss", ""));
}

TEST_F(AccountLookupTest, TheBlockGrowsToWhatTheSystemAsksFor) {
  const Rooms demands = {{257, 256}, {256, 257}, {300, 300}, {28, 300}, {700, 4}, {28, 257}, {4000, 4000}};
  for (const auto& demand : demands) {
    Accounts().rooms.clear();
    Accounts().demands = {demand};
    EXPECT_TRUE(Finds(nullptr, L"svc", "PC7\\svc")) << demand.first << ", " << demand.second;
    EXPECT_EQ(Accounts().rooms, (Rooms{{256, 256}, demand}));
    EXPECT_EQ(size_, demand.first + 2 * demand.second);
  }
}

TEST_F(AccountLookupTest, TheBlockGrowsMoreThanOnce) {
  const Rooms demands = {{300, 256}, {28, 400}, {301, 5}, {600, 401}, {601, 402}};
  Accounts().demands = {demands.begin(), demands.end()};
  EXPECT_TRUE(Finds(nullptr, L"svc", "PC7\\svc"));
  Rooms rooms = {{256, 256}};
  rooms.insert(rooms.end(), demands.begin(), demands.end());
  EXPECT_EQ(Accounts().rooms, rooms);
}

TEST_F(AccountLookupTest, DemandsThatDoNotGrowEndTheLookup) {
  const std::vector<Rooms> endless = {Rooms(100, {256, 256}),
                                      Rooms(100, {28, 4}),
                                      Rooms(100, {300, 300}),
                                      {{300, 10}, {10, 300}, {300, 10}, {10, 300}}};
  for (const Rooms& demands : endless) {
    Accounts().demands = {demands.begin(), demands.end()};
    Accounts().rooms.clear();
    EXPECT_TRUE(Finds(nullptr, L"svc", ""));
    EXPECT_LE(Accounts().rooms.size(), 3u);
  }
}

TEST_F(AccountLookupTest, AnyOtherErrorEndsTheLookup) {
  for (DWORD error : {ERROR_NONE_MAPPED, ERROR_ACCESS_DENIED, ERROR_MORE_DATA, ERROR_SUCCESS}) {
    Accounts().rooms.clear();
    TheWorld().On<::LookupAccountNameW>([this, error](const wchar_t*, const wchar_t*, void*, DWORD* sidSize,
                                                      wchar_t*, DWORD*, SID_NAME_USE*) {
      Accounts().rooms.emplace_back(*sidSize, 0);
      *sidSize += Accounts().rooms.size() < 10 ? 1000 : 0;
      SetLastError(error);
      return FALSE;
    });
    EXPECT_TRUE(Finds(nullptr, L"svc", ""));
    EXPECT_EQ(Accounts().rooms.size(), 1u);
  }
}

TEST_F(AccountLookupTest, SurvivesEveryFailure) {
  size_t calls = FailEachCall(
      [](rig::Scene& scene) -> UINT {
        HeapFreeSafe(LookUpAccountSid(nullptr, L"svc"));
        // A module that does not count as loaded is loaded and kept.
        for (const std::string& line : scene.rig.trace.Lines()) {
          if (line == "LoadLibraryW(\"ADVAPI32\") = ADVAPI32") {
            scene.rig.ledger.Deliberate(rig::kModule, "ADVAPI32");
          }
        }
        return 0;
      },
      [this](rig::World&) { Accounts().demands = {{300, 300}, {28, 1000}}; });
  EXPECT_EQ(calls, 8u);
}

}  // namespace account_lookup_test
