#include "rig/sweep.h"

#include "rig/crash.h"
#include "rig/failures.h"

namespace rig {
namespace {

struct Outcome {
  std::vector<CountedCall> counted;
  bool crashed = false;
};

/// Runs the action once within a capture, with call number `failing` failing (-1: none).
Outcome RunOnce(const std::string& file, Policy policy, const std::function<void(World&)>& arrange,
                const std::function<UINT(Scene&)>& action, const SweepOptions& options, int failing) {
  Outcome outcome;
  Scene scene(file, policy);
  arrange(scene.world);
  UINT result = 0;
  scene.rig.BeginCounting(failing);
  try {
    result = action(scene);
  } catch (const LibraryCrash&) {
    outcome.crashed = true;  // Reported already.
  }
  scene.rig.EndCounting();
  outcome.counted = scene.rig.Counted();
  if (outcome.crashed) {
    return outcome;
  }
  if (options.results.count(result) == 0) {
    Fail("the action returned " + std::to_string(result));
  }
  scene.world.CheckEnd(failing < 0);
  if (failing >= 0) {
    if (!scene.rig.FailureApplied()) {
      Fail("the call was not reached: the action took another path than in the first run");
    } else if (options.check) {
      const CountedCall& call = outcome.counted[static_cast<size_t>(failing)];
      options.check({static_cast<size_t>(failing), call.name, call.text, result, scene});
    }
  }
  return outcome;
}

}  // namespace

size_t Sweep(const std::string& file, Policy policy, const std::function<void(World&)>& arrange,
             const std::function<UINT(Scene&)>& action, const SweepOptions& options) {
  std::vector<CountedCall> plan;
  std::string complaints;
  {
    FailureCapture capture;
    plan = RunOnce(file, policy, arrange, action, options, -1).counted;
    complaints = capture.Joined();
  }
  if (!complaints.empty()) {
    Fail("without any failing call:\n" + complaints);
    return 0;
  }
  for (size_t index = 0; index < plan.size(); ++index) {
    {
      FailureCapture capture;
      Outcome outcome = RunOnce(file, policy, arrange, action, options, static_cast<int>(index));
      if (index < outcome.counted.size() && outcome.counted[index].name != plan[index].name) {
        Fail("call number " + std::to_string(index) + " was " + outcome.counted[index].name +
             " this time: the action took another path than in the first run");
      }
      complaints = capture.Joined();
    }
    if (!complaints.empty()) {
      Fail("with call " + std::to_string(index) + ", " + plan[index].text + ", failing:\n" + complaints);
    }
  }
  return plan.size();
}

}  // namespace rig
