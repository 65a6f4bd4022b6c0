// The audit's password: after CustomAction6 it must exist only where it was passed to, neither on the stack
// nor in freed memory.

#include <windows.h>

#include "rig/action_test.h"
#include "rig/own_stack.h"
#include "rig/secrets.h"

namespace audit_task_secret_test {

constexpr wchar_t kPassword[] = L"Qz7!Wx8-Ey9.Rv0~Ut1+";

// Returns the places in `memory` with parts of the password; empty if there are none. Searches for pieces of
// four letters, as 8-bit and as wide text.
std::string Secrets(std::string_view memory) {
  constexpr size_t kPiece = 4;
  const std::wstring_view password(kPassword);
  std::string found;
  for (size_t at = 0; at < password.size(); at += kPiece) {
    std::string narrow, wide;
    for (wchar_t letter : password.substr(at, kPiece)) {
      narrow += static_cast<char>(letter);
      wide += {static_cast<char>(letter), '\0'};
    }
    for (const std::string& piece : {narrow, wide}) {
      for (size_t place = memory.find(piece); place != memory.npos; place = memory.find(piece, place + 1)) {
        found += "piece " + std::to_string(at / kPiece) + " at " + std::to_string(place) + "; ";
      }
    }
  }
  return found;
}

class AuditTaskSecretTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override {
    world.modules.Loaded("OLE32");
    world.services.Of("Schedule");
    user_ = L"auditor";
    folder_ = L"C:\\Client\\";
    passwordLength_ = 20;
    reads_ = 0;
    // Writes the answer letter by letter, so that nothing of the password stays on the stack.
    world.On<::MsiGetPropertyW>([this](MSIHANDLE, const wchar_t* name, wchar_t* buffer, DWORD* size) -> UINT {
      const bool isPassword = std::wstring_view(name) == L"PROP_TASKPASS";
      const wchar_t* value = isPassword                                    ? kPassword
                             : std::wstring_view(name) == L"PROP_TASKUSER" ? user_
                             : std::wstring_view(name) == L"DIR_CLIENT"    ? folder_
                                                                           : L"";
      const DWORD length = isPassword ? passwordLength_ : static_cast<DWORD>(std::wstring_view(value).size());
      const DWORD room = *size;
      volatile wchar_t* target = buffer;
      for (DWORD at = 0; at < length && at + 1 < room; ++at) target[at] = value[isPassword ? at % 20 : at];
      target[length < room ? length : room - 1] = L'\0';
      *size = length;
      reads_ += isPassword ? 1 : 0;
      return length < room ? UINT{ERROR_SUCCESS} : UINT{ERROR_MORE_DATA};
    });
  }
  // Runs the action on a separate stack, and expects nothing of the password in the memory that it leaves.
  void RunAndSearch() {
    rig::RunAndSearch([this] { return Run(6); }, Secrets);
  }
  void ExpectKeptTrigger() { TheRig().ledger.Deliberate(rig::kInterface, "schedule"); }
  // Ends this run with all its checks, and begins another one in a new world.
  void NewScene() {
    TearDown();
    SetUp();
  }
  rig::TaskScheduler& Tasks() { return TheWorld().tasks; }

  const wchar_t* user_ = nullptr;
  const wchar_t* folder_ = nullptr;
  // The number of letters in the property; the password is repeated to fill it.
  DWORD passwordLength_ = 0;
  // How often the password was read.
  int reads_ = 0;
};

// The search finds the password if it is there.
TEST_F(AuditTaskSecretTest, ASearchFindsTheSecret) {
  EXPECT_NE(Secrets("in front Ey9. behind"), "");
  EXPECT_NE(Secrets({"R\0v\0"
                     "0\0~\0",
                     8}),
            "");
  EXPECT_EQ(Secrets("Qz7?"), "");
  rig::OwnStack stack;
  stack.Run([&] {
    // Many copies, because later calls overwrite the end of the stack.
    volatile wchar_t copies[50 * 20] = {};
    for (size_t at = 0; at < 50 * 20; ++at) copies[at] = kPassword[at % 20];
  });
  EXPECT_NE(Secrets(stack.Content()), "");
}

TEST_F(AuditTaskSecretTest, NothingStaysAfterTheWorkItemIsCreated) {
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
  EXPECT_EQ(Tasks().items, std::set<std::string>{"Ostrel"});
  ExpectKeptTrigger();
}

// A password that fills the buffer is passed on. Of a longer one the buffer has the beginning.
TEST_F(AuditTaskSecretTest, NothingStaysOfALongPassword) {
  passwordLength_ = 127;
  RunAndSearch();
  EXPECT_EQ(Tasks().items, std::set<std::string>{"Ostrel"});
  ExpectKeptTrigger();
  NewScene();
  passwordLength_ = 128;
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
  EXPECT_TRUE(Tasks().items.empty());
}

TEST_F(AuditTaskSecretTest, NothingStaysWithoutAPath) {
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> void* { return nullptr; });
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
}

TEST_F(AuditTaskSecretTest, NothingStaysWithoutTheScheduler) {
  TheWorld().com.start = E_UNEXPECTED;
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
  NewScene();
  TheModules().MissingFunction("OLE32", "CoInitializeEx");
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
  NewScene();
  TheWorld().services.managerError = ERROR_ACCESS_DENIED;
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
  NewScene();
  TheWorld().On<::CoCreateInstance>(
      [](const CLSID&, IUnknown*, DWORD, const IID&, void**) { return REGDB_E_CLASSNOTREG; });
  RunAndSearch();
  EXPECT_EQ(reads_, 1);
}

TEST_F(AuditTaskSecretTest, NothingStaysIfAStepFails) {
  for (const char* step : {"scheduler.NewWorkItem", "item.SetAccountInformation", "item.CreateTrigger",
                           "schedule.SetTrigger", "item.QueryInterface", "file.Save"}) {
    SCOPED_TRACE(step);
    const std::string name = step;
    if (name == "item.QueryInterface") {
      Tasks().MissingInterface("file");
    } else {
      Tasks().FailMethod(name, E_ACCESSDENIED);
    }
    RunAndSearch();
    EXPECT_EQ(reads_, 1);
    if (name != "scheduler.NewWorkItem" && name != "item.CreateTrigger") ExpectKeptTrigger();
    NewScene();
  }
}

}  // namespace audit_task_secret_test
