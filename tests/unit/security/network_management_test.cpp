// Network management: the names of domains and controllers, the accounts of this computer.

#include "security/network_management.h"

#include "base/heap.h"
#include "rig/action_test.h"
#include "rig/import_hook.h"
#include "rig/internals.h"
#include "rig/print.h"

namespace network_management_test {

HX_INTERNAL(AddLocalUser);
HX_INTERNAL(CopyWorkstationDomain);
HX_INTERNAL(DeleteLocalUser);
HX_INTERNAL(FindDomainController);
HX_INTERNAL(FreeNetApiBuffer);
HX_INTERNAL(GetWorkstationDomain);
HX_INTERNAL(HasLocalUser);
HX_INTERNAL(HeapFreeSafe);

constexpr DWORD kMissing = 0xFFFFFFFF;

class NetworkManagementTest : public rig::RiggedInternalsTest {
 protected:
  void TearDown() override {
    if (keeps_) TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
    rig::RiggedInternalsTest::TearDown();
  }
  // Says that the test loads the module, which is kept for the life of the process.
  void Keeps() { keeps_ = true; }
  // Returns the domain, read into a buffer of exactly the right size, and its length.
  std::string Domain(DWORD* length) {
    rig::GuardedBuffer buffer(kDomainNameSize * sizeof(wchar_t));
    *length = GetWorkstationDomain(buffer.As<wchar_t>());
    return rig::ToUtf8(buffer.As<wchar_t>());
  }
  rig::Accounts& Accounts() { return TheWorld().accounts; }

 private:
  bool keeps_ = false;
};

TEST_F(NetworkManagementTest, TheDomainIsCutToTheBuffer) {
  Keeps();
  for (size_t size : {1, 4, 62, 63, 64, 65, 300}) {
    Accounts().workgroup = std::string(size, 'D');
    DWORD length = 0;
    size_t cut = std::min<size_t>(size, 63);
    EXPECT_EQ(Domain(&length), std::string(cut, 'D'));
    EXPECT_EQ(length, cut);
    // Without a buffer the result is the whole length.
    EXPECT_EQ(GetWorkstationDomain(nullptr), size);
  }
}

TEST_F(NetworkManagementTest, TheWholeDomainIsCopied) {
  Keeps();
  for (size_t size : {1, 63, 64, 300}) {
    Accounts().workgroup = std::string(size, 'D');
    wchar_t* copy = CopyWorkstationDomain();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(rig::ToUtf8(copy), Accounts().workgroup);
    HeapFreeSafe(copy);
  }
  Accounts().workgroup = "";
  EXPECT_EQ(CopyWorkstationDomain(), nullptr);
}

TEST_F(NetworkManagementTest, WithoutADomainTheBufferStaysUnchanged) {
  Keeps();
  wchar_t buffer[kDomainNameSize] = L"before";
  Accounts().workgroup = "\1";
  EXPECT_EQ(GetWorkstationDomain(buffer), 0u);
  EXPECT_EQ(GetWorkstationDomain(nullptr), 0u);
  EXPECT_EQ(CopyWorkstationDomain(), nullptr);
  Accounts().Refuse("NetWkstaGetInfo", ERROR_ACCESS_DENIED);
  EXPECT_EQ(GetWorkstationDomain(buffer), 0u);
  EXPECT_EQ(GetWorkstationDomain(nullptr), 0u);
  EXPECT_EQ(CopyWorkstationDomain(), nullptr);
  EXPECT_EQ(std::wstring(buffer), L"before");
}

TEST_F(NetworkManagementTest, ASuccessWithoutDataIsNoDomain) {
  Keeps();
  TheWorld().On<::NetWkstaGetInfo>([](wchar_t*, DWORD, BYTE** data) -> DWORD {
    *data = nullptr;
    return NERR_Success;
  });
  wchar_t buffer[kDomainNameSize] = L"before";
  EXPECT_EQ(GetWorkstationDomain(buffer), 0u);
  EXPECT_EQ(CopyWorkstationDomain(), nullptr);
  EXPECT_EQ(std::wstring(buffer), L"before");
}

TEST_F(NetworkManagementTest, WithoutMemoryThereIsNoCopy) {
  Keeps();
  Accounts().workgroup = "CORP";
  std::vector<SIZE_T> sizes;
  HX_HOOK(allocating, HeapAlloc, [&](HANDLE, DWORD, SIZE_T size) -> void* {
    sizes.push_back(size);
    return nullptr;
  });
  EXPECT_EQ(CopyWorkstationDomain(), nullptr);
  EXPECT_EQ(sizes, std::vector<SIZE_T>{10});
}

TEST_F(NetworkManagementTest, AnEmptyDomainIsAnEmptyText) {
  Keeps();
  Accounts().workgroup = "";
  DWORD length = 77;
  EXPECT_EQ(Domain(&length), "");
  EXPECT_EQ(length, 0u);
}

TEST_F(NetworkManagementTest, AControllerIsFoundByItsDomain) {
  Keeps();
  wchar_t* controller = nullptr;
  EXPECT_EQ(FindDomainController(L"corp", &controller), 0u);
  EXPECT_EQ(rig::ToUtf8(controller), "\\\\DC1");
  EXPECT_EQ(FreeNetApiBuffer(controller), 0u);
  EXPECT_EQ(FindDomainController(L"ELSEWHERE", &controller), static_cast<DWORD>(NERR_DCNotFound));
}

TEST_F(NetworkManagementTest, UsersAreAddedFoundAndDeleted) {
  Keeps();
  wchar_t name[] = L"svc";
  wchar_t password[] = L"a made-up one";
  USER_INFO_2 user = {};
  user.usri2_name = name;
  user.usri2_password = password;
  EXPECT_FALSE(HasLocalUser(name));
  EXPECT_EQ(DeleteLocalUser(name), static_cast<DWORD>(NERR_UserNotFound));
  EXPECT_EQ(AddLocalUser(&user), 0u);
  EXPECT_EQ(AddLocalUser(&user), static_cast<DWORD>(NERR_UserExists));
  EXPECT_TRUE(HasLocalUser(L"SVC"));
  EXPECT_EQ(DeleteLocalUser(name), 0u);
  EXPECT_FALSE(HasLocalUser(name));
}

TEST_F(NetworkManagementTest, WithoutTheModuleEachFunctionHasItsResult) {
  TheModules().Missing("NETAPI32");
  wchar_t buffer[kDomainNameSize] = {};
  wchar_t* controller = nullptr;
  USER_INFO_2 user = {};
  EXPECT_EQ(GetWorkstationDomain(buffer), 0u);
  EXPECT_EQ(GetWorkstationDomain(nullptr), 0u);
  EXPECT_EQ(CopyWorkstationDomain(), nullptr);
  EXPECT_EQ(FindDomainController(L"CORP", &controller), kMissing);
  EXPECT_EQ(AddLocalUser(&user), kMissing);
  EXPECT_FALSE(HasLocalUser(L"svc"));
  EXPECT_EQ(DeleteLocalUser(L"svc"), kMissing);
  EXPECT_EQ(FreeNetApiBuffer(buffer), kMissing);
}

}  // namespace network_management_test
