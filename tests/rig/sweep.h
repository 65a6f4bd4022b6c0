// Runs an action once per call that it makes, with that call failing. Used through the fixtures'
// FailEachCall.
#pragma once

#include <windows.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "rig/scene.h"

namespace rig {

/// One run of a sweep, for the caller's own checks.
struct SweepRun {
  size_t index;      ///< The number of the call that failed, from 0.
  std::string name;  ///< The function that failed.
  std::string call;  ///< Its call with the arguments.
  UINT result;       ///< What the action returned.
  Scene& scene;      ///< Trace, log, ledger, world as the action left them.
};

/// What a sweep allows, and what it checks besides the ledger, crashes and unexpected calls.
struct SweepOptions {
  /// The results that the action may return.
  std::set<UINT> results = {0};
  /// Called after every run with a failing call.
  std::function<void(const SweepRun&)> check = nullptr;
};

/// Runs `action` once without failures, then once per call that can fail, with that call failing as
/// declared. Every run has a fresh scene that `arrange` prepares. A run that crashes, leaks or makes an
/// unexpected call fails the test. So does a run that returns a result that is not allowed, or that does not
/// reach the call that should fail. Returns the number of calls that were made to fail.
size_t Sweep(const std::string& file, Policy policy, const std::function<void(World&)>& arrange,
             const std::function<UINT(Scene&)>& action, const SweepOptions& options);

}  // namespace rig
