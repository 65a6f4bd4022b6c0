// The password of CustomAction23, which must not outlive the action anywhere but where it is handed over:
// neither on the stack nor in the memory that the action gives back.

#include <windows.h>
// Behind windows.h, on which it builds.
#include <lm.h>

#include "actions/security/service_account_support.h"
#include "rig/function.h"
#include "rig/own_stack.h"
#include "rig/secrets.h"

namespace service_account_secret_test {

// A number with all classes, and the password that it stands for: one that the rig does not know of, because
// what the rig does for the secrets that it keeps leaves them on the stack.
constexpr BYTE kChance[] = {0x91, 0x92, 0x57, 0x93, 0x94, 0xAD, 0x95, 0x96,
                            0xF7, 0x97, 0x98, 0x6A, 0x99, 0x9A, 0xB4, 0x9B};
constexpr std::string_view kPassword = "bBAA1CAA=DAAuBAA8CAA";
static_assert(sizeof kChance == sizeof(GUID));

// What memory holds of the password or of the number that it was made of, and where; empty for nothing. The
// pieces are the password's groups, as text of either width, and the bytes that count with those between.
std::string Secrets(std::string_view memory) {
  constexpr size_t kGroup = 4;
  std::string found;
  auto look = [&](const std::string& what, std::string_view piece) {
    for (size_t at = memory.find(piece); at != std::string_view::npos; at = memory.find(piece, at + 1)) {
      found += what + " at " + std::to_string(at) + " of " + std::to_string(memory.size()) + "; ";
    }
  };
  for (size_t at = 0; at < kPassword.size(); at += kGroup) {
    std::string narrow(kPassword.substr(at, kGroup));
    std::string wide;
    for (char letter : narrow) {
      wide += {letter, '\0'};
    }
    look("group " + std::to_string(at / kGroup), narrow);
    look("wide group " + std::to_string(at / kGroup), wide);
  }
  for (size_t at = 2; at + kGroup <= sizeof kChance; at += 3) {
    look("byte " + std::to_string(at), {reinterpret_cast<const char*>(&kChance[at]), kGroup});
  }
  return found;
}

// Whether this is the password; looked at letter by letter, so that nothing of it stays on the stack.
bool IsPassword(const wchar_t* text) {
  size_t same = 0;
  while (same < kPassword.size() && text[same] == static_cast<wchar_t>(kPassword[same])) ++same;
  return same == kPassword.size() && text[same] == L'\0';
}

class ServiceAccountSecretTest : public service_account_test::ServiceAccountTest {
 protected:
  void Arrange(rig::World& world) override {
    ServiceAccountTest::Arrange(world);
    draws_ = published_ = made_ = 0;
    // What is given the password reads it in place.
    world.On<::CoCreateGuid>([this](GUID* out) {
      if (++draws_ > lastDraw_) return E_UNEXPECTED;
      auto* bytes = reinterpret_cast<volatile BYTE*>(out);
      for (size_t at = 0; at < sizeof kChance; ++at) bytes[at] = kChance[at];
      // The first draw lacks one class, and has the other four groups.
      if (draws_ == 1) bytes[8] = 0;
      return HRESULT{S_OK};
    });
    world.On<::MsiSetPropertyW>([this](MSIHANDLE, const wchar_t*, const wchar_t* value) {
      published_ += IsPassword(value) ? 1 : 0;
      return UINT{ERROR_SUCCESS};
    });
    world.On<::NetUserAdd>([this](const wchar_t*, DWORD, BYTE* buffer, DWORD*) -> DWORD {
      made_ += IsPassword(reinterpret_cast<USER_INFO_2*>(buffer)->usri2_password) ? 1 : 0;
      return Accounts().RefusalOf("NetUserAdd");
    });
    // Fails, which counts for nothing, and so is not read.
    Directory().Refuse("user.SetPassword", 0x80070005);
    Accounts().users["svc"];
  }
  // Runs the action on a stack of its own and expects nothing of the password in what it leaves.
  void RunAndSearch() {
    EXPECT_GT(rig::RunAndSearch([this] { return Run(23); }, Secrets), 0u);
    // Without a trace nobody knows which modules were loaded, and which objects a failing start keeps.
    for (const rig::Kind* kind : {&rig::kModule, &rig::kInterface}) {
      for (size_t count = TheRig().ledger.Count(*kind); count > 0; --count) TheRig().ledger.Deliberate(*kind);
    }
  }
  // How many draws there were, and how many there may be.
  int draws_ = 0;
  int lastDraw_ = 2;
  // How often the password was published, and given to a local account.
  int published_ = 0;
  int made_ = 0;
};

// The search finds what there is to be found.
TEST_F(ServiceAccountSecretTest, ASearchFindsTheSecret) {
  const std::string password(kPassword);
  EXPECT_NE(Secrets("in front " + password), "");
  EXPECT_NE(Secrets(password.substr(3, 6)), "");
  EXPECT_NE(Secrets({"8\0C\0A\0A\0", 8}), "");
  EXPECT_NE(Secrets("\x57\x93\x94\xAD"), "");
  EXPECT_EQ(Secrets(password.substr(0, 2) + "!0AA"), "");
  rig::OwnStack stack;
  stack.Run([&] {
    volatile char copy[21] = {};
    for (size_t at = 0; at < password.size(); ++at) copy[at] = password[at];
  });
  EXPECT_NE(Secrets(stack.Content()), "");
}

TEST_F(ServiceAccountSecretTest, NothingStaysOfThePasswordOfALocalAccount) {
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  RunAndSearch();
  EXPECT_EQ(made_, 1);
  EXPECT_EQ(published_, 1);
}

TEST_F(ServiceAccountSecretTest, NothingStaysOfThePasswordOfAnAccountOfTheDomain) {
  Installer().Set("PROP_ACCOUNTTYPE", "0");
  RunAndSearch();
  EXPECT_EQ(made_, 0);
  EXPECT_EQ(published_, 1);
}

TEST_F(ServiceAccountSecretTest, NothingStaysOfThePasswordOfAnAccountThatIsRefused) {
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  Accounts().Refuse("NetUserAdd", ERROR_ACCESS_DENIED);
  RunAndSearch();
  EXPECT_EQ(made_, 1);
  EXPECT_EQ(published_, 0);
  for (const char* step : {"ADsGetObject", "container.Create", "object.QueryInterface", "user.SetInfo"}) {
    SCOPED_TRACE(step);
    NewScene();
    Installer().Set("PROP_ACCOUNTTYPE", "0");
    Directory().Refuse(step, 0x80070005);
    if (std::string(step) == "object.QueryInterface") Directory().HideUsers();
    RunAndSearch();
    EXPECT_EQ(published_, 0);
  }
}

TEST_F(ServiceAccountSecretTest, NothingStaysOfThePasswordOfAnAccountThatLacksWhatFollows) {
  for (const char* step : {"NetGetDCName", "LookupAccountNameW", "LsaOpenPolicy", "GetComputerNameW"}) {
    for (const char* type : {"0", "1"}) {
      SCOPED_TRACE(step);
      Installer().Set("PROP_ACCOUNTTYPE", type);
      Accounts().Refuse(step, ERROR_ACCESS_DENIED);
      RunAndSearch();
      EXPECT_EQ(published_, 1);
      NewScene();
    }
  }
}

// The second number is not to be had: what the first one gave is no password, but most of one.
TEST_F(ServiceAccountSecretTest, NothingStaysOfAPasswordThatWasNotFinished) {
  lastDraw_ = 1;
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  RunAndSearch();
  EXPECT_EQ(draws_, 2);
  EXPECT_EQ(made_, 0);
  EXPECT_EQ(published_, 0);
}

}  // namespace service_account_secret_test
