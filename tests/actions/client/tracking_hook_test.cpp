// CustomAction9 and CustomAction10: the tracking library in the list of libraries for all processes.

#include "rig/action_test.h"

namespace tracking_hook_action_test {

using std::string_literals::operator""s;
using rig::View;

constexpr char kKey[] = "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows";
constexpr char kList[] = "AppInit_DLLs";
constexpr char kSwitch[] = "LoadAppInit_DLLs";

class TrackingActionTest : public rig::ActionTest {
 protected:
  // Makes the library's process a 32-bit one on a 64-bit system, or not.
  static void SetWow64(rig::World& world, bool isWow64) {
    world.On<::IsWow64Process>([isWow64](HANDLE process, BOOL* answer) {
      EXPECT_EQ(process, GetCurrentProcess());
      *answer = isWow64 ? TRUE : FALSE;
      return TRUE;
    });
  }
  // Returns the line that opens the key in a view.
  static std::string Opens(const std::string& access, int number) {
    return R"(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows", 0, )" +
           access + ", *) = " + (number == 0 ? "2" : "0");
  }
};

class AddTrackingTest : public TrackingActionTest {};

TEST_F(AddTrackingTest, ANativeProcessAddsTheLibraryInTheNativeView) {
  TheRegistry().SetText(kKey, kList, "a.dll");
  TheRegistry().SetNumber(kKey, kSwitch, 2);
  TheRegistry().Create(kKey, View::k32);
  EXPECT_EQ(Run(9), 0u);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "IsWow64Process") = *)",
      "SetErrorMode(0x4000) = 32769",
      "IsWow64Process(INVALID_HANDLE_VALUE, *) = 1",
      Opens("0x3", 1),
      R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 0)",
      R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, null, *, *) = 0)",
      R"(RegSetValueExA(key#1, "AppInit_DLLs", 0, 1, "a.dll OSTRACK.DLL\0", 18) = 0)",
      R"(RegQueryValueExA(key#1, "LoadAppInit_DLLs", null, *, *, *) = 0)",
      R"(RegSetValueExA(key#1, "LoadAppInit_DLLs", 0, 4, "\x03\0\0\0", 4) = 0)",
      "RegCloseKey(key#1) = 0",
  });
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "a.dll OSTRACK.DLL\0"s);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kList, View::k32).has_value());
  EXPECT_LOG({});
}

TEST_F(AddTrackingTest, AMissingListIsCreated) {
  TheRegistry().Create(kKey);
  EXPECT_EQ(Run(9), 0u);
  const std::vector<std::string>& calls = TheRig().trace.Lines();
  EXPECT_EQ(std::vector<std::string>(calls.begin() + 5, calls.end()),
            (std::vector<std::string>{
                Opens("0x3", 1),
                R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 2)",
                R"(RegSetValueExA(key#1, "AppInit_DLLs", 0, 1, "OSTRACK.DLL\0", 12) = 0)",
                R"(RegQueryValueExA(key#1, "LoadAppInit_DLLs", null, *, *, *) = 2)",
                R"(RegSetValueExA(key#1, "LoadAppInit_DLLs", 0, 4, "\x01\0\0\0", 4) = 0)",
                "RegCloseKey(key#1) = 0",
            }));
}

TEST_F(AddTrackingTest, ASecondTimeChangesNothing) {
  TheRegistry().Create(kKey);
  EXPECT_EQ(Run(9), 0u);
  TheRegistry().DenySetting(kKey);
  TheRig().trace.Clear();
  EXPECT_EQ(Run(9), 0u);
  for (const std::string& line : TheRig().trace.Lines()) {
    EXPECT_NE(line.rfind("RegSetValueExA", 0), 0u) << line;
  }
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "OSTRACK.DLL\0"s);
}

TEST_F(AddTrackingTest, A32BitProcessAddsBothLibrariesEachInItsView) {
  SetWow64(TheWorld(), true);
  TheRegistry().SetText(kKey, kList, "a.dll");
  TheRegistry().SetText(kKey, kList, "b.dll", View::k32);
  EXPECT_EQ(Run(9), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "a.dll OSTRK64.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList, View::k32), "b.dll OSTRACK.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), "\1\0\0\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch, View::k32), "\1\0\0\0"s);
  EXPECT_EQ(TheRig().trace.Lines().at(5), Opens("0x103", 1));
  EXPECT_EQ(TheRig().trace.Lines().at(12), Opens("0x203", 1));
}

TEST_F(AddTrackingTest, A32BitProcessGoesOnWithTheSecondViewIfTheFirstIsClosed) {
  SetWow64(TheWorld(), true);
  TheRegistry().Create(kKey);
  TheRegistry().Create(kKey, View::k32);
  TheRegistry().Deny(kKey);
  EXPECT_EQ(Run(9), 0u);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kList).has_value());
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList, View::k32), "OSTRACK.DLL\0"s);
}

TEST_F(AddTrackingTest, TheKeyIsNeverCreated) {
  EXPECT_EQ(Run(9), 0u);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "IsWow64Process") = *)",
      "SetErrorMode(0x4000) = 32769",
      "IsWow64Process(INVALID_HANDLE_VALUE, *) = 1",
      Opens("0x3", 0),
  });
  EXPECT_FALSE(TheRegistry().Exists(kKey));
}

TEST_F(AddTrackingTest, ASystemThatCannotTellCountsAsNative) {
  TheRegistry().Create(kKey);
  TheModules().MissingFunction("KERNEL32", "IsWow64Process");
  EXPECT_EQ(Run(9), 0u);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "IsWow64Process") = null)",
      "SetErrorMode(0x4000) = 32769",
      Opens("0x3", 1),
      R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 2)",
      R"(RegSetValueExA(key#1, "AppInit_DLLs", 0, 1, "OSTRACK.DLL\0", 12) = 0)",
      R"(RegQueryValueExA(key#1, "LoadAppInit_DLLs", null, *, *, *) = 2)",
      R"(RegSetValueExA(key#1, "LoadAppInit_DLLs", 0, 4, "\x01\0\0\0", 4) = 0)",
      "RegCloseKey(key#1) = 0",
  });
}

TEST_F(AddTrackingTest, TheAnswerOfAFailedCallIsIgnored) {
  TheRegistry().Create(kKey);
  TheRegistry().Create(kKey, View::k32);
  TheWorld().On<::IsWow64Process>([](HANDLE, BOOL* answer) {
    *answer = TRUE;
    return FALSE;
  });
  EXPECT_EQ(Run(9), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "OSTRACK.DLL\0"s);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kList, View::k32).has_value());
}

// A list without the library must not be switched on.
TEST_F(AddTrackingTest, AListThatCannotBeWrittenLeavesTheSwitchAlone) {
  TheRegistry().Create(kKey);
  TheRegistry().DenySetting(kKey);
  EXPECT_EQ(Run(9), 0u);
  TheRegistry().SetText(kKey, kList, "a.dll");
  TheRegistry().SetNumber(kKey, kSwitch, 2);
  EXPECT_EQ(Run(9), 0u);
  const std::vector<std::string>& calls = TheRig().trace.Lines();
  EXPECT_EQ(std::vector<std::string>(calls.begin() + 5, calls.end()),
            (std::vector<std::string>{
                Opens("0x3", 1),
                R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 2)",
                R"(RegSetValueExA(key#1, "AppInit_DLLs", 0, 1, "OSTRACK.DLL\0", 12) = 5)",
                "RegCloseKey(key#1) = 0",
                "IsWow64Process(INVALID_HANDLE_VALUE, *) = 1",
                Opens("0x3", 2),
                R"(RegQueryValueExA(key#2, "AppInit_DLLs", null, *, null, *) = 0)",
                R"(RegQueryValueExA(key#2, "AppInit_DLLs", null, null, *, *) = 0)",
                R"(RegSetValueExA(key#2, "AppInit_DLLs", 0, 1, "a.dll OSTRACK.DLL\0", 18) = 5)",
                "RegCloseKey(key#2) = 0",
            }));
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "a.dll\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), "\2\0\0\0"s);
}

TEST_F(AddTrackingTest, A32BitProcessGoesOnWithTheSecondViewIfTheFirstCannotBeWritten) {
  SetWow64(TheWorld(), true);
  TheRegistry().Create(kKey);
  TheRegistry().Create(kKey, View::k32);
  TheRegistry().DenySetting(kKey);
  EXPECT_EQ(Run(9), 0u);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kSwitch).has_value());
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList, View::k32), "OSTRACK.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch, View::k32), "\1\0\0\0"s);
}

TEST_F(AddTrackingTest, SurvivesTheFailureOfEachCall) {
  for (bool isWow64 : {false, true}) {
    FailEachCall(9, [isWow64](rig::World& world) {
      SetWow64(world, isWow64);
      world.registry.SetText(kKey, kList, "a.dll");
      world.registry.Create(kKey, View::k32);
    });
  }
}

class RemoveTrackingTest : public TrackingActionTest {};

TEST_F(RemoveTrackingTest, ANativeProcessRemovesTheLibraryFromTheNativeView) {
  TheRegistry().SetText(kKey, kList, "a.dll OSTRACK.DLL b.dll");
  TheRegistry().SetText(kKey, kList, "OSTRACK.DLL", View::k32);
  TheRegistry().SetNumber(kKey, kSwitch, 3);
  EXPECT_EQ(Run(10), 0u);
  EXPECT_TRACE({
      "SetErrorMode(0x8001) = 16384",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "IsWow64Process") = *)",
      "SetErrorMode(0x4000) = 32769",
      "IsWow64Process(INVALID_HANDLE_VALUE, *) = 1",
      Opens("0x3", 1),
      R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 0)",
      R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, null, *, *) = 0)",
      R"(RegSetValueExA(key#1, "AppInit_DLLs", 0, 1, "a.dll b.dll\0", 12) = 0)",
      "RegCloseKey(key#1) = 0",
  });
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList, View::k32), "OSTRACK.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), "\3\0\0\0"s);
  EXPECT_LOG({});
}

TEST_F(RemoveTrackingTest, AListWithOnlyTheLibraryIsDeleted) {
  TheRegistry().SetText(kKey, kList, "OSTRACK.DLL");
  EXPECT_EQ(Run(10), 0u);
  const std::vector<std::string>& calls = TheRig().trace.Lines();
  EXPECT_EQ(std::vector<std::string>(calls.begin() + 6, calls.end()),
            (std::vector<std::string>{
                R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 0)",
                R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, null, *, *) = 0)",
                R"(RegDeleteValueA(key#1, "AppInit_DLLs") = 0)",
                "RegCloseKey(key#1) = 0",
            }));
}

TEST_F(RemoveTrackingTest, NothingIsWrittenIfThereIsNothingToRemove) {
  TheRegistry().SetText(kKey, kList, "a.dll");
  EXPECT_EQ(Run(10), 0u);
  const std::vector<std::string>& calls = TheRig().trace.Lines();
  EXPECT_EQ(std::vector<std::string>(calls.begin() + 6, calls.end()),
            (std::vector<std::string>{
                R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, *, null, *) = 0)",
                R"(RegQueryValueExA(key#1, "AppInit_DLLs", null, null, *, *) = 0)",
                "RegCloseKey(key#1) = 0",
            }));
}

TEST_F(RemoveTrackingTest, A32BitProcessRemovesBothLibrariesEachFromItsView) {
  SetWow64(TheWorld(), true);
  TheRegistry().SetText(kKey, kList, "OSTRACK.DLL OSTRK64.DLL");
  TheRegistry().SetText(kKey, kList, "OSTRACK.DLL OSTRK64.DLL", View::k32);
  EXPECT_EQ(Run(10), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "OSTRACK.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList, View::k32), "OSTRK64.DLL\0"s);
  EXPECT_EQ(TheRig().trace.Lines().at(5), Opens("0x103", 1));
  EXPECT_EQ(TheRig().trace.Lines().at(10), Opens("0x203", 1));
}

TEST_F(RemoveTrackingTest, AMissingKeyIsNotAFailure) {
  EXPECT_EQ(Run(10), 0u);
  EXPECT_EQ(TheRig().trace.Lines().back(), Opens("0x3", 0));
  EXPECT_FALSE(TheRegistry().Exists(kKey));
}

TEST_F(RemoveTrackingTest, RemovesWhatWasAdded) {
  TheRegistry().SetText(kKey, kList, "a.dll b.dll");
  TheRegistry().SetNumber(kKey, kSwitch, 0);
  EXPECT_EQ(Run(9), 0u);
  EXPECT_EQ(Run(10), 0u);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "a.dll b.dll\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), "\1\0\0\0"s);
}

TEST_F(RemoveTrackingTest, SurvivesTheFailureOfEachCall) {
  for (bool isWow64 : {false, true}) {
    FailEachCall(10, [isWow64](rig::World& world) {
      SetWow64(world, isWow64);
      world.registry.SetText(kKey, kList, "a.dll OSTRK64.DLL OSTRACK.DLL");
      world.registry.SetText(kKey, kList, "OSTRACK.DLL", View::k32);
    });
  }
}

}  // namespace tracking_hook_action_test
