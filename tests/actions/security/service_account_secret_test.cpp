// The password of CustomAction23: after the action it must exist only where it was passed to, neither on the
// stack nor in freed memory.

#include <windows.h>
// Needs windows.h first.
#include <lm.h>

#include "actions/security/service_account_support.h"
#include "rig/function.h"
#include "rig/own_stack.h"
#include "rig/secrets.h"

namespace service_account_secret_test {

// A GUID with all classes, and its password. The rig does not know this password, because its handling of
// known secrets leaves them on the stack.
constexpr BYTE kChance[] = {0x91, 0x92, 0x57, 0x93, 0x94, 0xAD, 0x95, 0x96,
                            0xF7, 0x97, 0x98, 0x6A, 0x99, 0x9A, 0xB4, 0x9B};
constexpr std::string_view kPassword = "bBAA1CAA=DAAuBAA8CAA";
static_assert(sizeof kChance == sizeof(GUID));

// Returns the places in `memory` with parts of the password or of its GUID; empty if there are none. The
// parts are the password's groups, as 8-bit and as wide text, and the GUID's bytes that count with those
// between them.
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

// Returns true if this is the password. Compares letter by letter, so that nothing of it stays on the stack.
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
    // The functions that receive the password read it in place.
    world.On<::CoCreateGuid>([this](GUID* out) {
      if (++draws_ > lastDraw_) return E_UNEXPECTED;
      auto* bytes = reinterpret_cast<volatile BYTE*>(out);
      for (size_t at = 0; at < sizeof kChance; ++at) bytes[at] = kChance[at];
      // The first draw has one class missing, and the other four groups right.
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
    // Fails, which is ignored, so the rig does not read the password.
    Directory().Refuse("user.SetPassword", 0x80070005);
    Accounts().users["svc"];
  }
  // Runs the action on a separate stack, and expects nothing of the password in the memory that it leaves.
  void RunAndSearch() {
    EXPECT_GT(rig::RunAndSearch([this] { return Run(23); }, Secrets), 0u);
    // Without a trace it is not known which modules were loaded, and which objects a failing run keeps.
    for (const rig::Kind* kind : {&rig::kModule, &rig::kInterface}) {
      for (size_t count = TheRig().ledger.Count(*kind); count > 0; --count) TheRig().ledger.Deliberate(*kind);
    }
  }
  // The number of draws, and how many may succeed.
  int draws_ = 0;
  int lastDraw_ = 2;
  // How often the password was published, and how often it was passed for a local account.
  int published_ = 0;
  int made_ = 0;
};

// The search finds the password if it is there.
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

TEST_F(ServiceAccountSecretTest, NothingStaysOfThePasswordIfALaterStepFails) {
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

// The second GUID cannot be created. The first one does not make a valid password, but most of one.
TEST_F(ServiceAccountSecretTest, NothingStaysOfAPasswordThatWasNotFinished) {
  lastDraw_ = 1;
  Installer().Set("PROP_ACCOUNTTYPE", "1");
  RunAndSearch();
  EXPECT_EQ(draws_, 2);
  EXPECT_EQ(made_, 0);
  EXPECT_EQ(published_, 0);
}

}  // namespace service_account_secret_test
