// Waiting until windows are closed, and the ways of closing them.

#include "client/tool_windows.h"

#include <algorithm>

#include "rig/action_test.h"
#include "rig/internals.h"

namespace tool_windows_test {

HX_INTERNAL(WaitWindowGone);
HX_INTERNAL(CloseToolWindow);
HX_INTERNAL(CloseNetworkTool);

using Lines = std::vector<std::string>;

constexpr DWORD kStart = 1000000;
// Within a deadline of five seconds the wait polls eleven times, every half second.
constexpr int kPolls = 11;

class ToolWindowsTest : public rig::RiggedInternalsTest {
 protected:
  // Opens a window that is closing and is still found `polls` times.
  void OpenGoing(unsigned polls) {
    rig::Window& window = TheWorld().windows.Open("Class", "Title");
    window.isGoing = true;
    window.lingers = polls;
  }
  void OpenStaying() { TheWorld().windows.Open("Class", "Title").closesOn = rig::Window::kNone; }
  // Returns how many lines of the trace are `call`.
  static ptrdiff_t Count(const std::string& call) {
    const Lines& lines = rig::Rig::Current()->trace.Lines();
    return std::count(lines.begin(), lines.end(), call);
  }
};

TEST_F(ToolWindowsTest, DoesNotWaitWithoutAWindow) {
  TheRig().MakeLoud("GetTickCount");
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 1);
  EXPECT_TRACE({"GetTickCount() = 0xf4240", R"(FindWindowA("Class", "Title") = null)"});
}

TEST_F(ToolWindowsTest, AWindowIsWaitedFor) {
  TheRig().MakeLoud("GetTickCount");
  OpenGoing(2);
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 1);
  EXPECT_TRACE({
      "GetTickCount() = 0xf4240",
      R"(FindWindowA("Class", "Title") = window:Class)",
      "Sleep(500)",
      "GetTickCount() = 0xf4434",
      R"(FindWindowA("Class", "Title") = window:Class)",
      "Sleep(500)",
      "GetTickCount() = 0xf4628",
      R"(FindWindowA("Class", "Title") = null)",
  });
}

TEST_F(ToolWindowsTest, AWindowMayCloseAtTheLastPoll) {
  OpenGoing(kPolls - 1);
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 1);
  EXPECT_EQ(TheWorld().clock.ticks, kStart + 5000);
}

// At exactly five seconds the deadline has not passed yet. The wait ends at the first poll after it, which
// does not look for the window again.
TEST_F(ToolWindowsTest, TheWaitForAWindowThatStaysEndsAfterFiveSeconds) {
  OpenGoing(kPolls);
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 0);
  EXPECT_EQ(Count("Sleep(500)"), kPolls);
  EXPECT_EQ(Count(R"(FindWindowA("Class", "Title") = window:Class)"), kPolls);
  EXPECT_EQ(TheRig().trace.Lines().back(), "Sleep(500)");
  EXPECT_EQ(TheWorld().clock.ticks, kStart + 5500);
}

TEST_F(ToolWindowsTest, ADeadlineThatWrapsAroundHasPassedAtTheFirstPoll) {
  TheWorld().clock.ticks = 0xFFFFFFFF - 4999;
  OpenStaying();
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 0);
  EXPECT_EQ(Count("Sleep(500)"), 1);
}

TEST_F(ToolWindowsTest, ADeadlineThatWrapsAroundHasNotPassedIfTheCountWrapsToo) {
  TheWorld().clock.ticks = 0xFFFFFFFF - 499;
  OpenStaying();
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 0);
  EXPECT_EQ(Count("Sleep(500)"), kPolls);
}

TEST_F(ToolWindowsTest, ACountThatWrapsAroundBeforeTheDeadlineKeepsWaiting) {
  TheWorld().clock.ticks = 0xFFFFFFFF - 5000;
  OpenGoing(40);
  EXPECT_EQ(WaitWindowGone("Class", "Title"), 1);
  EXPECT_EQ(Count("Sleep(500)"), 40);
}

TEST_F(ToolWindowsTest, NothingIsSentWithoutAWindow) {
  TheWorld().windows.Open("Class", "Other");
  TheWorld().windows.Open("Other", "Title");
  EXPECT_EQ(CloseToolWindow("Class", "Title"), 1);
  EXPECT_TRACE({R"(FindWindowA("Class", "Title") = null)"});
}

TEST_F(ToolWindowsTest, AWindowIsSentACloseMessage) {
  TheWorld().windows.Open("Class", "Title").lingers = 1;
  EXPECT_EQ(CloseToolWindow("Class", "Title"), 1);
  EXPECT_TRACE({
      R"(FindWindowA("Class", "Title") = window:Class)",
      "SendMessageA(window:Class, 16, 0, 0) = 0",
      R"(FindWindowA("Class", "Title") = window:Class)",
      "Sleep(500)",
      R"(FindWindowA("Class", "Title") = null)",
  });
}

TEST_F(ToolWindowsTest, TheTimeThatAMessageTakesIsNotPartOfTheWait) {
  OpenStaying();
  TheWorld().On<::SendMessageA>([this](HWND, UINT, WPARAM, LPARAM) -> LRESULT {
    TheWorld().clock.ticks += 60000;
    return 0;
  });
  EXPECT_EQ(CloseToolWindow("Class", "Title"), 0);
  EXPECT_EQ(Count("Sleep(500)"), kPolls);
}

TEST_F(ToolWindowsTest, AWindowThatIgnoresTheMessageStays) {
  rig::Window& window = TheWorld().windows.Open("Class", "Title");
  window.closesOn = rig::Window::kNone;
  EXPECT_EQ(CloseToolWindow("Class", "Title"), 0);
  EXPECT_EQ(window.got, (Lines{"send 16 0 0"}));
}

TEST_F(ToolWindowsTest, NothingIsSentWithoutANetworkTool) {
  EXPECT_EQ(CloseNetworkTool("Tollgate"), 1);
  EXPECT_TRACE({R"(FindWindowA("Tollgate", "Ostrel") = null)"});
}

struct StageCase {
  UINT closesOn;
  bool isPosted;
  int result;
  Lines got;
  DWORD waited;  // milliseconds
};

class NetworkToolTest : public ToolWindowsTest, public testing::WithParamInterface<StageCase> {};

TEST_P(NetworkToolTest, IsAskedInThreeStages) {
  const StageCase& row = GetParam();
  rig::Window& window = TheWorld().windows.Open("Tollgate32", "Ostrel");
  window.closesOn = row.closesOn;
  window.isPosted = row.isPosted;
  EXPECT_EQ(CloseNetworkTool("Tollgate32"), row.result);
  EXPECT_EQ(window.got, row.got);
  EXPECT_EQ(TheWorld().clock.ticks - kStart, row.waited);
}

const StageCase kStages[] = {
    {WM_USER + 1000, false, 1, {"send 2024 0 0"}, 0},
    {WM_ENDSESSION, true, 1, {"send 2024 0 0", "post 22 1 0"}, 5500},
    {WM_COMMAND, false, 1, {"send 2024 0 0", "post 22 1 0", "send 273 1001 0"}, 11000},
    {rig::Window::kNone, false, 0, {"send 2024 0 0", "post 22 1 0", "send 273 1001 0"}, 16500},
    {WM_CLOSE, false, 0, {"send 2024 0 0", "post 22 1 0", "send 273 1001 0"}, 16500},
};
INSTANTIATE_TEST_SUITE_P(Stages, NetworkToolTest, testing::ValuesIn(kStages));

// The window is looked for once; later messages go to the same window.
TEST_F(ToolWindowsTest, AllStagesUseTheWindowThatWasFoundFirst) {
  rig::Window& first = TheWorld().windows.Open("Tollgate", "Ostrel");
  rig::Window& second = TheWorld().windows.Open("Tollgate", "Ostrel");
  first.closesOn = WM_USER + 1000;
  second.closesOn = WM_USER + 1000;
  EXPECT_EQ(CloseNetworkTool("Tollgate"), 0);
  EXPECT_EQ(first.got, (Lines{"send 2024 0 0"}));
  EXPECT_TRUE(second.got.empty());
}

TEST_F(ToolWindowsTest, ClosingANetworkToolSurvivesTheFailureOfEachCall) {
  FailEachCall([](rig::Scene&) -> UINT { return CloseNetworkTool("Tollgate") == 1 ? 0 : 1; },
               [](rig::World& world) {
                 rig::Window& window = world.windows.Open("Tollgate", "Ostrel");
                 window.closesOn = WM_COMMAND;
                 window.lingers = 1;
               });
}

}  // namespace tool_windows_test
