// CustomAction2, and the library's DllMain.

#include "rig/action_test.h"

namespace user_interface_test {

class UserInterfaceTest : public rig::ActionTest {};

// INSTALLUILEVEL_BASIC in the headers of Windows Installer is 3; 2 would be no user interface at all.
static_assert(INSTALLUILEVEL_BASIC == 3 && INSTALLUILEVEL_NONE == 2);

TEST_F(UserInterfaceTest, SetsTheBasicLevelAndNothingElse) {
  EXPECT_EQ(Run(2), 0u);
  EXPECT_TRACE({"MsiSetInternalUI(3, null) = 5"});
  EXPECT_EQ(Installer().uiLevel, INSTALLUILEVEL_BASIC);
  EXPECT_LOG({});
}

// The sweep has nothing to do here. If the action ever makes a call that can fail, this test fails: the
// action then needs a sweep like the others.
TEST_F(UserInterfaceTest, HasNoCallThatCanFail) {
  rig::FailureCapture capture;
  EXPECT_EQ(FailEachCall(2), 0u);
  EXPECT_EQ(capture.Joined(), "the sweep found no call that could fail");
}

class EntryTest : public rig::ActionTest {};

TEST_F(EntryTest, AttachingSwitchesThreadNotificationsOff) {
  bool calledForThisModule = false;
  HMODULE handle = TheLibrary().Handle();
  TheWorld().On<::DisableThreadLibraryCalls>([&](HMODULE module) {
    calledForThisModule = module == handle;
    return TRUE;
  });
  EXPECT_EQ(TheLibrary().CallEntry(DLL_PROCESS_ATTACH), TRUE);
  EXPECT_TRUE(calledForThisModule);
  EXPECT_EQ(TheRig().trace.Lines().size(), 1u);
}

TEST_F(EntryTest, EveryOtherReasonIsAcceptedWithoutACall) {
  for (DWORD reason :
       {DWORD{DLL_PROCESS_DETACH}, DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}, DWORD{77}}) {
    EXPECT_EQ(TheLibrary().CallEntry(reason), TRUE);
  }
  EXPECT_TRACE({});
}

TEST_F(EntryTest, LoadsEvenIfNotificationsCannotBeSwitchedOff) {
  TheWorld().On<::DisableThreadLibraryCalls>([](HMODULE) { return FALSE; });
  EXPECT_EQ(TheLibrary().CallEntry(DLL_PROCESS_ATTACH), TRUE);
}

}  // namespace user_interface_test
