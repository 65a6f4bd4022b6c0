// CustomAction1: the desktop tools.

#include "rig/action_test.h"

namespace closing_tools_test {

using Lines = std::vector<std::string>;

struct Tool {
  const char* windowClass;
  const char* title;
};

// In the order in which they are closed; the last two are the network tools.
constexpr Tool kTools[] = {
    {"AudraClass", "Audra"}, {"Lendo", "Lendo"},     {"Warden", "Warden"},   {"PVMain", "Provo"},
    {"Lendo32", "Lendo"},    {"Warden32", "Warden"}, {"Tollgate", "Ostrel"}, {"Tollgate32", "Ostrel"},
};
constexpr size_t kFirstNetworkTool = 6;

std::string Found(const Tool& tool, bool there) {
  return std::string("FindWindowA(\"") + tool.windowClass + "\", \"" + tool.title +
         "\") = " + (there ? std::string("window:") + tool.windowClass : std::string("null"));
}

class ClosingToolsTest : public rig::ActionTest {
 protected:
  rig::Window& Open(size_t index) {
    rig::Window& window = TheWorld().windows.Open(kTools[index].windowClass, kTools[index].title);
    window.closesOn = index < kFirstNetworkTool ? WM_CLOSE : WM_USER + 1000;
    return window;
  }
};

TEST_F(ClosingToolsTest, LooksForTheEightToolsInTheirOrder) {
  EXPECT_EQ(Run(1), 0u);
  Lines expected;
  for (const Tool& tool : kTools) expected.push_back(Found(tool, false));
  expected.emplace_back("OpenSCManagerA(null, null, 0xf003f) = service#1");
  expected.emplace_back(R"(OpenServiceA(service#1, "Ostrel", 0xa4) = null)");
  expected.emplace_back("CloseServiceHandle(service#1) = 1");
  EXPECT_TRACE({expected});
  EXPECT_LOG({});
}

TEST_F(ClosingToolsTest, ClosesEachToolInItsOwnWay) {
  for (size_t index = 0; index < std::size(kTools); ++index) Open(index);
  EXPECT_EQ(Run(1), 0u);
  Lines expected;
  for (size_t index = 0; index < std::size(kTools); ++index) {
    expected.push_back(Found(kTools[index], true));
    expected.push_back(std::string("SendMessageA(window:") + kTools[index].windowClass +
                       (index < kFirstNetworkTool ? ", 16, 0, 0) = 0" : ", 2024, 0, 0) = 0"));
    expected.push_back(Found(kTools[index], false));
  }
  expected.emplace_back("OpenSCManagerA(null, null, 0xf003f) = service#1");
  expected.emplace_back(R"(OpenServiceA(service#1, "Ostrel", 0xa4) = null)");
  expected.emplace_back("CloseServiceHandle(service#1) = 1");
  EXPECT_TRACE({expected});
}

TEST_F(ClosingToolsTest, WaitsForSlowTools) {
  for (size_t index = 0; index < std::size(kTools); ++index) Open(index).lingers = 3;
  const DWORD start = TheWorld().clock.ticks;
  EXPECT_EQ(Run(1), 0u);
  EXPECT_EQ(TheWorld().clock.ticks - start, 8u * 3u * 500u);
}

TEST_F(ClosingToolsTest, AToolOfAnotherTitleIsLeftAlone) {
  const rig::Window& window = TheWorld().windows.Open("Warden", "Lendo");
  EXPECT_EQ(Run(1), 0u);
  EXPECT_TRUE(window.got.empty());
}

class StayingToolTest : public ClosingToolsTest, public testing::WithParamInterface<size_t> {};

TEST_P(StayingToolTest, TheFirstToolThatStaysStopsTheInstallation) {
  const size_t stays = GetParam();
  TheWorld().services.Of("Ostrel");
  std::vector<const rig::Window*> windows;
  for (size_t index = 0; index < std::size(kTools); ++index) {
    rig::Window& window = Open(index);
    if (index == stays) window.closesOn = rig::Window::kNone;
    windows.push_back(&window);
  }
  const DWORD start = TheWorld().clock.ticks;
  EXPECT_EQ(Run(1), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(TheWorld().clock.ticks - start, stays < kFirstNetworkTool ? 5500u : 16500u);
  for (size_t index = 0; index < std::size(kTools); ++index) {
    EXPECT_EQ(windows[index]->isGone, index < stays) << kTools[index].windowClass;
    EXPECT_EQ(windows[index]->got.empty(), index > stays) << kTools[index].windowClass;
  }
  EXPECT_EQ(TheRig().trace.Lines().back(), "Sleep(500)");
  EXPECT_TRUE(TheWorld().services.Of("Ostrel").controls.empty());
  EXPECT_LOG({});
}
INSTANTIATE_TEST_SUITE_P(Tools, StayingToolTest, testing::Range(size_t{0}, std::size(kTools)));

TEST_F(ClosingToolsTest, SurvivesTheFailureOfEachCall) {
  FailEachCall(1, [](rig::World& world) {
    for (const Tool& tool : kTools) {
      rig::Window& window = world.windows.Open(tool.windowClass, tool.title);
      if (&tool - kTools >= static_cast<ptrdiff_t>(kFirstNetworkTool)) window.closesOn = WM_COMMAND;
    }
  });
}

}  // namespace closing_tools_test
