// The rig's own tests: the sweep.
#include "unit/rig/rig_subject.h"

namespace rig_test {

class RigSweepTest : public RigTest {
 protected:
  void Arrange(rig::World& world) override {
    world.registry.SetText("HKEY_CURRENT_USER\\Software\\Subject", "value", "text");
  }

  /// Returns what a sweep over SubjectAction with this fault reports.
  std::string SweepOver(SubjectFault fault, const rig::SweepOptions& options = {}) {
    return Reported([&] {
      FailEachCall([fault](rig::Scene& scene) { return SubjectAction(scene.rig.session, fault); }, {},
                   options);
    });
  }
};

TEST_F(RigSweepTest, EveryCallFailsOnce) {
  std::vector<std::string> failed;
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) {
    EXPECT_EQ(run.index, failed.size());
    failed.push_back(run.name);
  };
  EXPECT_EQ(FailEachCall(1, {}, options), 4U);
  EXPECT_EQ(failed,
            (std::vector<std::string>{"HeapAlloc", "RegOpenKeyExA", "RegQueryValueExA", "MsiSetPropertyA"}));
}

TEST_F(RigSweepTest, TheFailingCallIsInTheTrace) {
  rig::SweepOptions options;
  options.check = [](const rig::SweepRun& run) {
    if (run.name == "RegOpenKeyExA") {
      EXPECT_TRACE(
          {"RegOpenKeyExA(HKEY_CURRENT_USER, \"Software\\\\Subject\", 0, 0x1, *) = 5 (made to fail)"});
      EXPECT_EQ(run.call, "RegOpenKeyExA(HKEY_CURRENT_USER, \"Software\\\\Subject\", 0, 0x1, *)");
      EXPECT_EQ(run.result, 0U);
    }
  };
  FailEachCall(1, {}, options);
}

TEST_F(RigSweepTest, TheArrangementOfTheSweepApplies) {
  size_t calls =
      FailEachCall(1, [](rig::World& world) { world.registry.Deny("HKEY_CURRENT_USER\\Software\\Subject"); });
  EXPECT_EQ(calls, 2U);
}

TEST_F(RigSweepTest, ASoundActionPasses) {
  EXPECT_EQ(SweepOver(kSubjectSound), "");
}

TEST_F(RigSweepTest, ALeakAfterOneFailingCallIsFound) {
  std::string text = SweepOver(kSubjectLeaks);
  EXPECT_TRUE(Has(text, "with call 1, RegOpenKeyExA("));
  EXPECT_TRUE(Has(text, "block#1 was not released (32 bytes)"));
  EXPECT_FALSE(Has(text, "with call 2"));
}

TEST_F(RigSweepTest, ACrashAfterOneFailingCallIsFound) {
  std::string text = SweepOver(kSubjectCrashes);
  EXPECT_TRUE(Has(text, "with call 0, HeapAlloc("));
  EXPECT_TRUE(Has(text, "crash at rigsubject.dll+0x"));
}

TEST_F(RigSweepTest, AResultThatIsNotAllowedIsFound) {
  EXPECT_TRUE(Has(SweepOver(kSubjectLies), "with call 3, MsiSetPropertyA("));
  rig::SweepOptions options;
  options.results = {0, 5};
  EXPECT_EQ(SweepOver(kSubjectLies, options), "");
}

TEST_F(RigSweepTest, TheResultIsCheckedWithoutFailuresToo) {
  EXPECT_TRUE(Has(Reported([&] { FailEachCall(2); }), "without any failing call:\nthe action returned 1603"));
}

TEST_F(RigSweepTest, AnUnexpectedCallAfterAFailingOneIsFound) {
  std::string text = SweepOver(kSubjectStrays);
  EXPECT_TRUE(Has(text, "with call 2, RegQueryValueExA("));
  EXPECT_TRUE(Has(text, "unexpected call"));
}

TEST_F(RigSweepTest, ARunThatTakesAnotherPathIsFound) {
  DWORD ticks = 0;
  std::string text = Reported([&] {
    FailEachCall([](rig::Scene& scene) { return SubjectAction(scene.rig.session, kSubjectWanders); },
                 [&](rig::World& world) { world.clock.ticks = ++ticks; });
  });
  EXPECT_TRUE(Has(text, "the action took another path than in the first run"));
}

TEST_F(RigSweepTest, ACallThatIsNotReachedIsFound) {
  DWORD ticks = 0;
  std::string text = Reported([&] {
    FailEachCall(
        [&](rig::Scene& scene) { return ++ticks == 1 ? SubjectAction(scene.rig.session, kSubjectSound) : 0; },
        {});
  });
  EXPECT_TRUE(Has(text, "the call was not reached"));
}

TEST_F(RigSweepTest, ASweepWithoutCallsFails) {
  EXPECT_TRUE(Has(Reported([&] { FailEachCall([](rig::Scene&) { return 0U; }); }),
                  "the sweep found no call that could fail"));
}

}  // namespace rig_test
