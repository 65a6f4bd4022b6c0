// The fixtures that tests derive from. Used by every unit and action test.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "rig/function.h"
#include "rig/scene.h"
#include "rig/sweep.h"
#include "rig/world/world.h"

namespace rig {

/// A test with a fresh library in a fresh world. At its end the library must have freed everything that it
/// acquired.
class RiggedTest : public testing::Test {
 protected:
  /// Loads `file` ("hxsetup.dll"); `policy` says what happens to a call that nobody answers.
  RiggedTest(std::string file, Policy policy) : file_(std::move(file)), policy_(policy) {}

  void SetUp() override;
  void TearDown() override;

  /// Prepares the world for every test of a fixture and for every run of its sweeps.
  virtual void Arrange(World& world) { (void)world; }

  /// Returns the world of this test; during a sweep, the world of the current run.
  World& TheWorld() { return *World::Current(); }
  /// Returns the rig of that world: trace, ledger, answers.
  Rig& TheRig() { return TheWorld().rig; }
  /// Returns the library under test.
  Library& TheLibrary() { return scene_->library; }
  /// Returns the world's installer session.
  InstallerSession& Installer() { return TheWorld().installer; }
  /// Returns the world's registry.
  Registry& TheRegistry() { return TheWorld().registry; }
  /// Returns the world's profile files.
  ProfileFiles& Profile() { return TheWorld().profile; }
  /// Returns the world's modules.
  Modules& TheModules() { return TheWorld().modules; }

  /// Calls the exported entry point with this number for the session. A crash fails and ends the test.
  UINT Run(int number);

  /// Runs the entry point once per call that it makes, with that call failing (see Sweep). Arrange and then
  /// `arrange` prepare the world of every run. Each run has its own world, so what the test arranged
  /// elsewhere has no effect. Returns the number of calls that were made to fail; 0 fails the test.
  size_t FailEachCall(int number, const std::function<void(World&)>& arrange = {},
                      const SweepOptions& options = {});
  /// Does the same for any function that returns the action's result.
  size_t FailEachCall(const std::function<UINT(Scene&)>& action,
                      const std::function<void(World&)>& arrange = {}, const SweepOptions& options = {});

  /// Returns the number of heap blocks that the library holds now.
  size_t LiveBlocks() const { return scene_->rig.ledger.Count(kBlock); }

 private:
  /// Creates the scene and arranges its world.
  void Open();

  std::string file_;
  Policy policy_;
  std::unique_ptr<Scene> scene_;
};

/// A test of the shipped library's entry points. A call that nobody answers fails the test.
class ActionTest : public RiggedTest {
 protected:
  /// Loads hxsetup.dll.
  ActionTest() : RiggedTest("hxsetup.dll", Policy::kAnswered) {}
};

/// A test of internal operations (HX_INTERNAL). The heap is guarded; everything else is real and not traced.
class InternalsTest : public RiggedTest {
 protected:
  /// Loads hxinternals.dll.
  InternalsTest() : RiggedTest("hxinternals.dll", Policy::kReal) {}
};

/// A test of internal operations in a rigged world, as for an action.
class RiggedInternalsTest : public RiggedTest {
 protected:
  /// Loads hxinternals.dll.
  RiggedInternalsTest() : RiggedTest("hxinternals.dll", Policy::kAnswered) {}
};

}  // namespace rig

/// Compares the calls so far with the given lines: EXPECT_TRACE({"MsiSetInternalUI(3, null) = 5"}).
#define EXPECT_TRACE(...)                                                                \
  ::rig::CompareLines(__FILE__, __LINE__, "trace", std::vector<std::string> __VA_ARGS__, \
                      ::rig::Rig::Current()->trace.Lines())

/// Compares the lines in the installer's log: EXPECT_LOG({"Hx Setup Log: done"}).
#define EXPECT_LOG(...)                                                                \
  ::rig::CompareLines(__FILE__, __LINE__, "log", std::vector<std::string> __VA_ARGS__, \
                      ::rig::World::Current()->installer.Log())

/// Compares the properties that were set, in order: EXPECT_PUBLISHED({"PROP_HOSTNAME = host"}).
#define EXPECT_PUBLISHED(...)                                                                             \
  ::rig::CompareLines(__FILE__, __LINE__, "list of set properties", std::vector<std::string> __VA_ARGS__, \
                      ::rig::World::Current()->installer.Published())
