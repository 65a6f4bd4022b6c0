#include "rig/fixtures.h"

namespace rig {

void RiggedTest::Open() {
  scene_ = std::make_unique<Scene>(file_, policy_);
  Arrange(scene_->world);
}

void RiggedTest::SetUp() {
  Open();
}

void RiggedTest::TearDown() {
  // After a failure (above all a crash) further failures about what is left would only hide the cause.
  if (scene_ != nullptr && !HasFailure()) {
    scene_->world.CheckEnd(true);
  }
  scene_.reset();
}

UINT RiggedTest::Run(int number) {
  return scene_->library.CustomAction(number, scene_->rig.session);
}

size_t RiggedTest::FailEachCall(int number, const std::function<void(World&)>& arrange,
                                const SweepOptions& options) {
  return FailEachCall(
      [number](Scene& scene) { return scene.library.CustomAction(number, scene.rig.session); }, arrange,
      options);
}

size_t RiggedTest::FailEachCall(const std::function<UINT(Scene&)>& action,
                                const std::function<void(World&)>& arrange, const SweepOptions& options) {
  // Only one scene can exist: close the test's own scene and reopen it after the sweep.
  scene_->world.CheckEnd(true);
  scene_.reset();
  size_t calls = Sweep(
      file_, policy_,
      [&](World& world) {
        Arrange(world);
        if (arrange) {
          arrange(world);
        }
      },
      action, options);
  if (calls == 0) {
    Fail("the sweep found no call that could fail");
  }
  Open();
  return calls;
}

}  // namespace rig
